// The shape that hosts are compiled against: slots of the virtual tables, inheritance, fields. The
// signatures stand in binary_shape_signatures.cpp.
#include "Q_vfscanf.h"
#include "cmnconfiguration.h"
#include "cmnerror.h"
#include "cmnexecpipe.h"
#include "cmnexecpipebase.h"
#include "cmnicucatalog.h"
#include "cmnicumessage.h"
#include "cmnmessage.h"
#include "cmnmsgcatalog.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnmsgdgst5.h"
#include "cmnnetwork.h"
#include "cmnrefcount.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmntraceable.h"
#include "cmntracelog.h"
#include "exposed_members.h"

#include <gtest/gtest.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

using namespace kelp_cmn_4_4;

// --- virtual tables

std::string demangled(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(symbol, nullptr, nullptr, &status), std::free);
  std::string text = status == 0 ? name.get() : symbol;
  return text.substr(0, text.find_first_of("(["));  // without arguments and ABI tags
}

// "deleting" where the symbol is that of a deleting destructor.
std::string functionAt(const void* address) {
  if (address == nullptr) {
    return "empty";
  }
  Dl_info info{};
  if (dladdr(address, &info) == 0) {
    return "no address";
  }
  if (info.dli_sname == nullptr) {
    return "not exported";
  }
  const std::string symbol = info.dli_sname;
  const bool deleting = symbol.size() > 4 && symbol.compare(symbol.size() - 4, 4, "D0Ev") == 0;
  return (deleting ? "deleting " : "") + demangled(info.dli_sname);
}

struct VirtualTable {
  const void* const* words = nullptr;
  size_t count = 0;
};

VirtualTable virtualTableOfMangled(const std::string& mangledName) {
  const CCmnRefCount linked;  // without a use of it, the linker would leave the library out
  void* address = dlsym(RTLD_DEFAULT, ("_ZTV" + mangledName).c_str());
  if (address == nullptr) {
    return {};
  }
  Dl_info info{};
  void* entry = nullptr;
  dladdr1(address, &info, &entry, RTLD_DL_SYMENT);
  const size_t bytes = static_cast<const ElfW(Sym)*>(entry)->st_size;
  return {static_cast<const void* const*>(address), bytes / sizeof(void*)};
}

VirtualTable virtualTable(const std::string& className) {
  return virtualTableOfMangled("N12kelp_cmn_4_4" + std::to_string(className.size()) + className +
                               "E");
}

// The functions of a class without virtual bases, after the two words that every table begins with.
std::vector<std::string> slotsOf(const std::string& className) {
  const VirtualTable table = virtualTable(className);
  std::vector<std::string> slots;
  for (size_t i = 2; i < table.count; ++i) {
    slots.push_back(functionAt(table.words[i]));
  }
  return slots;
}

const std::string scope = "kelp_cmn_4_4::";

TEST(VirtualTable, OfRefCountHoldsDestructorsThenCountOperations) {
  const std::string name = scope + "CCmnRefCount::";
  EXPECT_EQ(slotsOf("CCmnRefCount"),
            (std::vector<std::string>{name + "~CCmnRefCount", "deleting " + name + "~CCmnRefCount",
                                      name + "increment", name + "decrement", name + "getCount"}));
}

TEST(VirtualTable, OfErrorHoldsDestructorsThenMessageIdThenWhat) {
  const std::string name = scope + "CCmnError::";
  EXPECT_EQ(slotsOf("CCmnError"),
            (std::vector<std::string>{name + "~CCmnError", "deleting " + name + "~CCmnError",
                                      name + "getMessageId", name + "what"}));
}

TEST(VirtualTable, OfTraceableHoldsDestructorsThenRegisterTraceLog) {
  const std::string name = scope + "CCmnTraceable::";
  EXPECT_EQ(
      slotsOf("CCmnTraceable"),
      (std::vector<std::string>{name + "~CCmnTraceable", "deleting " + name + "~CCmnTraceable",
                                name + "registerTraceLog"}));
}

// A destructor's slot in the table of an abstract class. No object is ever of that class itself, so
// g++ leaves the slot empty; clang++ does not.
std::string inAbstract([[maybe_unused]] const std::string& destructor) {
#ifdef __clang__
  return destructor;
#else
  return "empty";
#endif
}

TEST(VirtualTable, OfExecPipeBaseHoldsDestructorsThenTheTraceLogThenTheOperations) {
  const std::string name = scope + "CCmnExecPipeBase::";
  const std::string pure = "__cxa_pure_virtual";
  EXPECT_EQ(slotsOf("CCmnExecPipeBase"),
            (std::vector<std::string>{inAbstract(name + "~CCmnExecPipeBase"),
                                      inAbstract("deleting " + name + "~CCmnExecPipeBase"),
                                      scope + "CCmnTraceable::registerTraceLog", pure, pure, pure,
                                      pure, name + "IsAbortRequested", name + "IsChildContext",
                                      name + "ExecCommandInChildContext", name + "Exec",
                                      name + "Abort", name + "Init", name + "getLastError"}));
}

TEST(VirtualTable, OfExecPipePosixOverridesTheBaseInPlace) {
  const std::string base = scope + "CCmnExecPipeBase::";
  const std::string name = scope + "CCmnExecPipePosix::";
  EXPECT_EQ(slotsOf("CCmnExecPipePosix"),
            (std::vector<std::string>{
                name + "~CCmnExecPipePosix", "deleting " + name + "~CCmnExecPipePosix",
                scope + "CCmnTraceable::registerTraceLog", name + "ExecPipe", name + "WaitPid",
                name + "Close", name + "ReadLine", base + "IsAbortRequested",
                name + "IsChildContext", name + "ExecCommandInChildContext", base + "Exec",
                base + "Abort", name + "Init", base + "getLastError"}));
}

TEST(VirtualTable, OfMessageHoldsTheCountThenItsOperations) {
  const std::string name = scope + "CCmnMessage::";
  const std::string count = scope + "CCmnRefCount::";
  const std::string pure = "__cxa_pure_virtual";
  EXPECT_EQ(slotsOf("CCmnMessage"),
            (std::vector<std::string>{inAbstract(name + "~CCmnMessage"),
                                      inAbstract("deleting " + name + "~CCmnMessage"),
                                      count + "increment", count + "decrement", count + "getCount",
                                      pure, pure, name + "getSeverity", name + "getLineNumber",
                                      name + "getFileName", name + "getMessageId", pure}));
}

TEST(VirtualTable, OfIcuMessageOverridesTheMessageInPlace) {
  const std::string base = scope + "CCmnMessage::";
  const std::string name = scope + "CCmnIcuMessage::";
  const std::string count = scope + "CCmnRefCount::";
  EXPECT_EQ(slotsOf("CCmnIcuMessage"),
            (std::vector<std::string>{
                name + "~CCmnIcuMessage", "deleting " + name + "~CCmnIcuMessage",
                count + "increment", count + "decrement", count + "getCount", name + "serialize",
                name + "deserialize", base + "getSeverity", base + "getLineNumber",
                base + "getFileName", base + "getMessageId", name + "formatMessage"}));
}

TEST(VirtualTable, OfTheFactoryHoldsDestructorsThenWhatHostsImplement) {
  const std::string pure = "__cxa_pure_virtual";
  const std::string destructor = scope + "CCmnMessageCatalogFactory::~CCmnMessageCatalogFactory";
  EXPECT_EQ(slotsOf("CCmnMessageCatalogFactory"),
            (std::vector<std::string>{inAbstract(destructor), inAbstract("deleting " + destructor),
                                      pure, pure, pure}));
}

// The table of a class with CCmnRefCount as its virtual base: virtual base offset, offset to top,
// type; its own slots; then the base's part: four call offsets, offset to top, type; five slots.
void expectSlotsBeforeVirtualCount(const std::string& className,
                                   const std::vector<std::string>& ownSlots,
                                   const std::vector<std::string>& destructors) {
  const std::string count = scope + "CCmnRefCount::";
  std::vector<std::string> expected = ownSlots;
  expected.insert(expected.end(), destructors.begin(), destructors.end());
  expected.insert(expected.end(), {count + "increment", count + "decrement", count + "getCount"});

  const VirtualTable table = virtualTable(className);
  ASSERT_EQ(table.count, 3 + ownSlots.size() + 6 + 5);
  std::vector<std::string> slots;
  for (size_t i = 0; i < ownSlots.size(); ++i) {
    slots.push_back(functionAt(table.words[3 + i]));
  }
  for (size_t i = 0; i < 5; ++i) {
    slots.push_back(functionAt(table.words[3 + ownSlots.size() + 6 + i]));
  }
  EXPECT_EQ(slots, expected);
}

TEST(VirtualTable, OfMessageCatalogHoldsInitThenGetMessageThenDestructors) {
  const std::string name = scope + "CCmnMessageCatalog::";
  const std::string destructor = name + "~CCmnMessageCatalog";
  expectSlotsBeforeVirtualCount("CCmnMessageCatalog",
                                {name + "init", "__cxa_pure_virtual", inAbstract(destructor),
                                 inAbstract("deleting " + destructor)},
                                {inAbstract("virtual thunk to " + destructor),
                                 inAbstract("deleting virtual thunk to " + destructor)});
}

TEST(VirtualTable, OfIcuMessageCatalogOverridesTheCatalogInPlace) {
  const std::string name = scope + "CCmnIcuMessageCatalog::";
  const std::string destructor = name + "~CCmnIcuMessageCatalog";
  expectSlotsBeforeVirtualCount(
      "CCmnIcuMessageCatalog",
      {name + "init", name + "getMessage", destructor, "deleting " + destructor},
      {"virtual thunk to " + destructor, "deleting virtual thunk to " + destructor});
}

TEST(VirtualTable, OfTheCatalogManagerHoldsOnlyDestructors) {
  const std::string destructor = scope + "CCmnMessageCatalogManager::~CCmnMessageCatalogManager";
  expectSlotsBeforeVirtualCount(
      "CCmnMessageCatalogManager", {destructor, "deleting " + destructor},
      {"virtual thunk to " + destructor, "deleting virtual thunk to " + destructor});
}

TEST(VirtualTable, OfTraceLogHoldsOnlyDestructors) {
  const std::string destructor = scope + "CCmnTraceLog::~CCmnTraceLog";
  expectSlotsBeforeVirtualCount(
      "CCmnTraceLog", {destructor, "deleting " + destructor},
      {"virtual thunk to " + destructor, "deleting virtual thunk to " + destructor});
}

// The functions of a class that has several bases, as far as the first base's table goes: up to the
// offset to top of the next one, which is no address. Where DefaultHandler's own operation stands,
// an inline one of which the library has a copy of its own, is a "-".
std::vector<std::string> primarySlotsOf(const std::type_info& type) {
  const VirtualTable table = virtualTableOfMangled(type.name());
  std::vector<std::string> slots;
  for (size_t i = 2; i < table.count && functionAt(table.words[i]) != "no address"; ++i) {
    const std::string function = functionAt(table.words[i]);
    slots.push_back(function.find(scope) == std::string::npos ? "-" : function);
  }
  return slots;
}

TEST(VirtualTable, OfTheSaxHandlerReplacesSlotsOfItsBaseAndAddsCharactersAtTheEnd) {
  std::vector<std::string> expected = primarySlotsOf(typeid(xercesc::DefaultHandler));
  ASSERT_EQ(expected, std::vector<std::string>(expected.size(), "-"));
  const std::string own = scope + "CCmnSaxParseHandler::";
  expected.at(0) = own + "~CCmnSaxParseHandler";
  expected.at(1) = "deleting " + own + "~CCmnSaxParseHandler";
  // The places where Xerces-C declares them in DefaultHandler.
  expected.at(5) = own + "endElement";
  expected.at(11) = own + "startElement";
  expected.at(15) = own + "error, fatalError or warning";
  expected.at(16) = expected.at(15);
  expected.at(17) = expected.at(15);
  expected.push_back(own + "characters");

  std::vector<std::string> slots = primarySlotsOf(typeid(CCmnSaxParseHandler));
  for (std::string& slot : slots) {
    // The three do the same, so an optimiser may give them one address.
    if (slot == own + "error" || slot == own + "fatalError" || slot == own + "warning") {
      slot = expected.at(15);
    }
  }
  EXPECT_EQ(slots, expected);
}

// --- inheritance

// A downcast from a virtual base is ill-formed.
template <class Base, class Derived, class = void>
struct IsVirtualBase : std::is_base_of<Base, Derived> {};
template <class Base, class Derived>
struct IsVirtualBase<Base, Derived,
                     std::void_t<decltype(static_cast<Derived*>(std::declval<Base*>()))>>
    : std::false_type {};

TEST(Inheritance, IsAsHostsWereCompiledAgainst) {
  EXPECT_TRUE((IsVirtualBase<CCmnRefCount, CCmnTraceLog>::value));
  EXPECT_TRUE((IsVirtualBase<CCmnRefCount, CCmnMessageCatalog>::value));
  EXPECT_TRUE((IsVirtualBase<CCmnRefCount, CCmnMessageCatalogManager>::value));
  EXPECT_TRUE((std::is_base_of_v<CCmnMessageCatalog, CCmnIcuMessageCatalog>));
  EXPECT_FALSE((IsVirtualBase<CCmnMessageCatalog, CCmnIcuMessageCatalog>::value));
  EXPECT_TRUE((std::is_base_of_v<CCmnRefCount, CCmnMessage>));
  EXPECT_FALSE((IsVirtualBase<CCmnRefCount, CCmnMessage>::value));
  EXPECT_TRUE((std::is_base_of_v<CCmnMessage, CCmnIcuMessage>));
  EXPECT_FALSE((IsVirtualBase<CCmnMessage, CCmnIcuMessage>::value));
  EXPECT_FALSE((std::is_base_of_v<CCmnRefCount, CCmnMessageCatalogFactory>));
  EXPECT_TRUE(std::is_abstract_v<CCmnMessage>);
  EXPECT_TRUE(std::is_abstract_v<CCmnMessageCatalog>);
  EXPECT_TRUE(std::is_abstract_v<CCmnMessageCatalogFactory>);
  EXPECT_TRUE((std::is_base_of_v<CCmnTraceable, CCmnExecPipeBase>));
  EXPECT_FALSE((IsVirtualBase<CCmnTraceable, CCmnExecPipeBase>::value));
  EXPECT_TRUE((std::is_base_of_v<CCmnExecPipeBase, CCmnExecPipePosix>));
  EXPECT_FALSE((IsVirtualBase<CCmnExecPipeBase, CCmnExecPipePosix>::value));
  EXPECT_TRUE((std::is_convertible_v<CCmnSaxParseHandler*, xercesc::DefaultHandler*>));
  EXPECT_FALSE(std::is_polymorphic_v<CCmnSaxParser>);
  EXPECT_FALSE(std::is_polymorphic_v<CCmnMessageDigest5>);
  EXPECT_FALSE(std::is_polymorphic_v<CCmnHostInfo>);
  EXPECT_FALSE(std::is_polymorphic_v<CCmnConfiguration>);
  EXPECT_FALSE(std::is_polymorphic_v<ECmnExecPipe>);
  EXPECT_TRUE(std::is_abstract_v<CCmnExecPipeBase>);
  EXPECT_FALSE(std::is_abstract_v<CCmnExecPipePosix>);
}

TEST(Copying, IsPossibleForRecordsAndHoldersOnly) {
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnRefCount>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnRefCount>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnTraceLog>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnTraceLog>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnIcuMessage>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnIcuMessage>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnIcuMessageCatalog>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnIcuMessageCatalog>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnMessageCatalog>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnMessageCatalog>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnMessageCatalogManager>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnMessageCatalogManager>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnConfiguration>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnConfiguration>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnExecPipeBase>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnExecPipeBase>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnExecPipePosix>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnExecPipePosix>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnSaxParser>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnSaxParser>);
  EXPECT_FALSE(std::is_copy_constructible_v<CCmnSaxParseHandler>);
  EXPECT_FALSE(std::is_copy_assignable_v<CCmnSaxParseHandler>);
  EXPECT_TRUE(std::is_copy_constructible_v<CCmnMessageDigest5>);
  EXPECT_TRUE(std::is_copy_assignable_v<CCmnMessageDigest5>);
  EXPECT_TRUE(std::is_copy_constructible_v<CCmnHostInfo>);
  EXPECT_TRUE(std::is_copy_assignable_v<CCmnHostInfo>);
  EXPECT_TRUE(std::is_copy_constructible_v<CCmnError>);
  EXPECT_TRUE(std::is_copy_assignable_v<CCmnError>);
  EXPECT_TRUE(std::is_copy_constructible_v<ECmnExecPipe>);
  EXPECT_TRUE(std::is_copy_assignable_v<ECmnExecPipe>);
}

// --- construction

using Holder = CCmnSmartPtr<CCmnRefCount, CCmnNullAllocator<CCmnRefCount>>;
using Digest = CCmnMessageDigest5;

TEST(Construction, IsPossibleFromWhatHostsGiveIt) {
  EXPECT_TRUE((std::is_convertible_v<CCmnRefCount*, Holder>));
  EXPECT_TRUE((std::is_constructible_v<bool, Holder>));
  EXPECT_FALSE((std::is_convertible_v<Holder, bool>));
  EXPECT_TRUE((std::is_convertible_v<const char*, Digest>));
  EXPECT_TRUE((std::is_convertible_v<const unsigned short*, Digest>));
  EXPECT_TRUE((std::is_constructible_v<Digest, const void*, unsigned long>));
  EXPECT_TRUE((std::is_constructible_v<CCmnSaxParser, xercesc::DefaultHandler*>));
  EXPECT_FALSE(std::is_default_constructible_v<CCmnSaxParser>);
}

TEST(Destruction, IsVirtualWhereHostsDeleteThroughABase) {
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnRefCount>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnMessageCatalogFactory>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnError>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnTraceLog>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnTraceable>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnExecPipeBase>);
  EXPECT_TRUE(std::has_virtual_destructor_v<CCmnSaxParseHandler>);
}

// --- fields

template <class Class, class Type>
ptrdiff_t offsetOf(Type Class::*member) {
  ptrdiff_t offset = 0;
  static_assert(sizeof member == sizeof offset);
  std::memcpy(&offset, &member, sizeof offset);
  return offset;
}

template <class Type, class Class, class Actual>
constexpr bool hasType(Actual Class::*) {
  return std::is_same_v<Type, Actual>;
}

KELP_EXPOSE(CCmnRefCount, m_count)
KELP_EXPOSE(CCmnError, m_code)
KELP_EXPOSE(CCmnError, m_message)
KELP_EXPOSE(CCmnError, m_fileName)
KELP_EXPOSE(CCmnError, m_lineNumber)
KELP_EXPOSE(CCmnError, m_function)
KELP_EXPOSE(CCmnMessage, m_messageId)
KELP_EXPOSE(CCmnMessage, m_severity)
KELP_EXPOSE(CCmnMessage, m_fileName)
KELP_EXPOSE(CCmnMessage, m_lineNumber)
KELP_EXPOSE(CCmnIcuMessage, m_arguments)
KELP_EXPOSE(CCmnIcuMessage, m_info)
KELP_EXPOSE(CCmnIcuMessage, m_serialized)
KELP_EXPOSE(CCmnMessageCatalog, m_language)
KELP_EXPOSE(CCmnMessageCatalog, m_bundlePath)
KELP_EXPOSE(CCmnMessageCatalog, m_catalogName)
KELP_EXPOSE(CCmnIcuMessageCatalog, m_bundle)
KELP_EXPOSE(CCmnMessageCatalogManager, m_catalogs)
KELP_EXPOSE(CCmnMessageCatalogManager, m_factory)
KELP_EXPOSE(CCmnMessageCatalogManager, m_localizedMessages)
KELP_EXPOSE(CCmnMessageCatalogManager, m_nativeLanguage)
KELP_EXPOSE(CCmnSaxParser, m_handler)
KELP_EXPOSE(CCmnSaxParser, m_reader)
KELP_EXPOSE(CCmnSaxParseHandler, m_lastException)
KELP_EXPOSE(CCmnSaxParseHandler, m_errorOccurred)
KELP_EXPOSE(CCmnSaxParseHandler, m_characters)
KELP_EXPOSE(CCmnMessageDigest5, m_buffer)
KELP_EXPOSE(CCmnMessageDigest5, m_bufferCount)
KELP_EXPOSE(CCmnMessageDigest5, m_state)
KELP_EXPOSE(CCmnMessageDigest5, m_bitCount)
KELP_EXPOSE(CCmnMessageDigest5, m_digest)
KELP_EXPOSE(CCmnMessageDigest5, m_ansiDigest)
KELP_EXPOSE(CCmnMessageDigest5, m_unicodeDigest)
KELP_EXPOSE(CCmnConfiguration, m_lastError)
KELP_EXPOSE(CCmnConfiguration, m_heap)
KELP_EXPOSE(CCmnConfiguration, m_configDir)
KELP_EXPOSE(CCmnConfiguration, m_configFile)
KELP_EXPOSE(CCmnConfiguration, m_configPath)
KELP_EXPOSE(CCmnConfiguration, m_currentSection)
KELP_EXPOSE(CCmnTraceLog, m_config)
KELP_EXPOSE(CCmnTraceLog, m_traceLevel)
KELP_EXPOSE(CCmnTraceLog, m_component)
KELP_EXPOSE(CCmnTraceLog, m_traceFile)
KELP_EXPOSE(CCmnTraceLog, m_traceDir)
KELP_EXPOSE(CCmnTraceLog, m_tracePath)
KELP_EXPOSE(CCmnTraceLog, m_initialized)
KELP_EXPOSE(CCmnTraceLog, m_toStdout)
KELP_EXPOSE(CCmnTraceable, m_traceLog)
KELP_EXPOSE(CCmnExecPipeBase, m_abortRequested)
KELP_EXPOSE(CCmnExecPipeBase, m_hostList)
KELP_EXPOSE(CCmnExecPipeBase, m_lastError)
KELP_EXPOSE(CCmnExecPipeBase, m_hostString1)
KELP_EXPOSE(CCmnExecPipeBase, m_hostString2)
KELP_EXPOSE(CCmnExecPipeBase, m_stdinFile)
KELP_EXPOSE(CCmnExecPipePosix, m_childPid)
KELP_EXPOSE(CCmnExecPipePosix, m_readBuffer)
KELP_EXPOSE(CCmnExecPipePosix, m_bufferCount)
KELP_EXPOSE(CCmnExecPipePosix, m_bufferPos)
KELP_EXPOSE(CCmnExecPipePosix, m_readFd)
KELP_EXPOSE(CCmnExecPipePosix, m_argc)
KELP_EXPOSE(CCmnExecPipePosix, m_argCapacity)
KELP_EXPOSE(CCmnExecPipePosix, m_argv)
KELP_EXPOSE(CCmnExecPipePosix, m_commandLine)

// Each field begins where the one before it ended, but for alignment; the last one ends the object.
struct Field {
  ptrdiff_t offset;
  size_t size;
  size_t alignment;
};

template <class Class, class Type>
Field fieldOf(Type Class::*member) {
  // NOLINTNEXTLINE(bugprone-sizeof-expression): a field that is a pointer has a pointer's size
  return {offsetOf(member), sizeof(Type), alignof(Type)};
}

void expectInOrder(ptrdiff_t begin, const std::vector<Field>& fields) {
  ptrdiff_t end = begin;
  for (size_t i = 0; i < fields.size(); ++i) {
    const auto alignment = static_cast<ptrdiff_t>(fields[i].alignment);
    EXPECT_EQ(fields[i].offset, (end + alignment - 1) / alignment * alignment) << "field " << i;
    end = fields[i].offset + static_cast<ptrdiff_t>(fields[i].size);
  }
}

constexpr ptrdiff_t afterVirtualPointer = sizeof(void*);

TEST(Fields, OfRefCountAreAVolatileInt) {
  constexpr auto count = memberOf(CCmnRefCount_m_count{});
  EXPECT_TRUE(hasType<volatile int>(count));
  expectInOrder(afterVirtualPointer, {fieldOf(count)});
}

TEST(Fields, OfTheHolderAreOnePointer) {
  EXPECT_EQ(sizeof(Holder), sizeof(void*));
  EXPECT_TRUE(std::is_empty_v<CCmnNullAllocator<CCmnRefCount>>);
  EXPECT_TRUE(std::is_empty_v<CCmnContextSingletonAllocator<CCmnTraceLog>>);
}

TEST(Fields, OfErrorAreCodeMessageFileLineFunction) {
  EXPECT_TRUE(hasType<int>(memberOf(CCmnError_m_code{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnError_m_message{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnError_m_fileName{})));
  EXPECT_TRUE(hasType<int>(memberOf(CCmnError_m_lineNumber{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnError_m_function{})));
  expectInOrder(
      afterVirtualPointer,
      {fieldOf(memberOf(CCmnError_m_code{})), fieldOf(memberOf(CCmnError_m_message{})),
       fieldOf(memberOf(CCmnError_m_fileName{})), fieldOf(memberOf(CCmnError_m_lineNumber{})),
       fieldOf(memberOf(CCmnError_m_function{}))});
}

TEST(Fields, OfConfigurationAreLastErrorHeapPathsAndSection) {
  EXPECT_TRUE(hasType<CCmnError>(memberOf(CCmnConfiguration_m_lastError{})));
  EXPECT_TRUE(hasType<ACE_Configuration_Heap>(memberOf(CCmnConfiguration_m_heap{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnConfiguration_m_configDir{})));
  EXPECT_TRUE(
      hasType<ACE_Configuration_Section_Key>(memberOf(CCmnConfiguration_m_currentSection{})));
  expectInOrder(0, {fieldOf(memberOf(CCmnConfiguration_m_lastError{})),
                    fieldOf(memberOf(CCmnConfiguration_m_heap{})),
                    fieldOf(memberOf(CCmnConfiguration_m_configDir{})),
                    fieldOf(memberOf(CCmnConfiguration_m_configFile{})),
                    fieldOf(memberOf(CCmnConfiguration_m_configPath{})),
                    fieldOf(memberOf(CCmnConfiguration_m_currentSection{}))});
}

TEST(Fields, OfTraceLogAreSettingsLevelNamesAndSwitches) {
  EXPECT_TRUE(hasType<CCmnConfiguration>(memberOf(CCmnTraceLog_m_config{})));
  EXPECT_TRUE(hasType<int>(memberOf(CCmnTraceLog_m_traceLevel{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnTraceLog_m_tracePath{})));
  EXPECT_TRUE(hasType<bool>(memberOf(CCmnTraceLog_m_initialized{})));
  expectInOrder(
      afterVirtualPointer,
      {fieldOf(memberOf(CCmnTraceLog_m_config{})), fieldOf(memberOf(CCmnTraceLog_m_traceLevel{})),
       fieldOf(memberOf(CCmnTraceLog_m_component{})), fieldOf(memberOf(CCmnTraceLog_m_traceFile{})),
       fieldOf(memberOf(CCmnTraceLog_m_traceDir{})), fieldOf(memberOf(CCmnTraceLog_m_tracePath{})),
       fieldOf(memberOf(CCmnTraceLog_m_initialized{})),
       fieldOf(memberOf(CCmnTraceLog_m_toStdout{}))});
}

TEST(Fields, OfTraceableAreOneHolder) {
  using LogHolder = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;
  EXPECT_TRUE(hasType<LogHolder>(memberOf(CCmnTraceable_m_traceLog{})));
  expectInOrder(afterVirtualPointer, {fieldOf(memberOf(CCmnTraceable_m_traceLog{}))});
}

TEST(Fields, OfTheExecPipeRecordAreCommandMessageCodeDetail) {
  EXPECT_TRUE(hasType<std::string>(&ECmnExecPipe::m_command));
  EXPECT_TRUE(hasType<std::wstring>(&ECmnExecPipe::m_message));
  EXPECT_TRUE(hasType<int>(&ECmnExecPipe::m_code));
  EXPECT_TRUE(hasType<long>(&ECmnExecPipe::m_detail));
  expectInOrder(0, {fieldOf(&ECmnExecPipe::m_command), fieldOf(&ECmnExecPipe::m_message),
                    fieldOf(&ECmnExecPipe::m_code), fieldOf(&ECmnExecPipe::m_detail)});
}

TEST(Fields, OfExecPipeBaseFollowTheTraceable) {
  EXPECT_TRUE(hasType<bool>(memberOf(CCmnExecPipeBase_m_abortRequested{})));
  EXPECT_TRUE(hasType<std::vector<std::string>>(memberOf(CCmnExecPipeBase_m_hostList{})));
  EXPECT_TRUE(hasType<ECmnExecPipe>(memberOf(CCmnExecPipeBase_m_lastError{})));
  expectInOrder(sizeof(CCmnTraceable), {fieldOf(memberOf(CCmnExecPipeBase_m_abortRequested{})),
                                        fieldOf(memberOf(CCmnExecPipeBase_m_hostList{})),
                                        fieldOf(&CCmnExecPipeBase::m_pfnIsChildContext),
                                        fieldOf(&CCmnExecPipeBase::m_pfnExecInChild),
                                        fieldOf(&CCmnExecPipeBase::m_pfnFreeOutput),
                                        fieldOf(memberOf(CCmnExecPipeBase_m_lastError{})),
                                        fieldOf(memberOf(CCmnExecPipeBase_m_hostString1{})),
                                        fieldOf(memberOf(CCmnExecPipeBase_m_hostString2{})),
                                        fieldOf(memberOf(CCmnExecPipeBase_m_stdinFile{}))});
}

TEST(Fields, OfExecPipePosixFollowTheBase) {
  EXPECT_TRUE(hasType<char[512]>(memberOf(CCmnExecPipePosix_m_readBuffer{})));
  EXPECT_TRUE(hasType<char**>(memberOf(CCmnExecPipePosix_m_argv{})));
  expectInOrder(sizeof(CCmnExecPipeBase), {fieldOf(memberOf(CCmnExecPipePosix_m_childPid{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_readBuffer{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_bufferCount{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_bufferPos{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_readFd{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_argc{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_argCapacity{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_argv{})),
                                           fieldOf(memberOf(CCmnExecPipePosix_m_commandLine{}))});
}

TEST(Fields, OfTheMessageRecordAreTextAndLength) {
  EXPECT_TRUE(hasType<char*>(&SCmnMessageInfo::text));
  EXPECT_TRUE(hasType<int>(&SCmnMessageInfo::length));
  EXPECT_TRUE(std::is_trivial_v<SCmnMessageInfo>);
  EXPECT_TRUE(std::is_standard_layout_v<SCmnMessageInfo>);
  expectInOrder(0, {fieldOf(&SCmnMessageInfo::text), fieldOf(&SCmnMessageInfo::length)});
}

TEST(Fields, OfMessageFollowTheCount) {
  EXPECT_TRUE(hasType<std::string>(memberOf(CCmnMessage_m_messageId{})));
  EXPECT_TRUE(hasType<int>(memberOf(CCmnMessage_m_severity{})));
  EXPECT_TRUE(hasType<std::string>(memberOf(CCmnMessage_m_fileName{})));
  EXPECT_TRUE(hasType<int>(memberOf(CCmnMessage_m_lineNumber{})));
  expectInOrder(
      sizeof(CCmnRefCount),
      {fieldOf(memberOf(CCmnMessage_m_messageId{})), fieldOf(memberOf(CCmnMessage_m_severity{})),
       fieldOf(memberOf(CCmnMessage_m_fileName{})), fieldOf(memberOf(CCmnMessage_m_lineNumber{}))});
}

TEST(Fields, OfIcuMessageFollowTheMessage) {
  EXPECT_TRUE(hasType<icu::Formattable>(memberOf(CCmnIcuMessage_m_arguments{})));
  EXPECT_TRUE(hasType<SCmnMessageInfo>(memberOf(CCmnIcuMessage_m_info{})));
  EXPECT_TRUE(hasType<std::string>(memberOf(CCmnIcuMessage_m_serialized{})));
  // The derived class begins in the padding that the message's last int leaves.
  expectInOrder(
      offsetOf(memberOf(CCmnMessage_m_lineNumber{})) + static_cast<ptrdiff_t>(sizeof(int)),
      {fieldOf(memberOf(CCmnIcuMessage_m_arguments{})), fieldOf(memberOf(CCmnIcuMessage_m_info{})),
       fieldOf(memberOf(CCmnIcuMessage_m_serialized{}))});
}

TEST(Fields, OfMessageCatalogAreLanguagePathAndName) {
  EXPECT_TRUE(hasType<std::string>(memberOf(CCmnMessageCatalog_m_language{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnMessageCatalog_m_bundlePath{})));
  EXPECT_TRUE(hasType<tstr>(memberOf(CCmnMessageCatalog_m_catalogName{})));
  EXPECT_TRUE(hasType<icu::ResourceBundle*>(memberOf(CCmnIcuMessageCatalog_m_bundle{})));
  expectInOrder(afterVirtualPointer, {fieldOf(memberOf(CCmnMessageCatalog_m_language{})),
                                      fieldOf(memberOf(CCmnMessageCatalog_m_bundlePath{})),
                                      fieldOf(memberOf(CCmnMessageCatalog_m_catalogName{})),
                                      fieldOf(memberOf(CCmnIcuMessageCatalog_m_bundle{}))});
}

TEST(Fields, OfTheCatalogManagerAreCatalogsFactoryTextsAndNativeLanguage) {
  using Catalog = CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;
  using Catalogs = std::map<std::string, Catalog>;
  using Texts = std::map<std::string, tstr>;
  EXPECT_TRUE(hasType<Catalogs>(memberOf(CCmnMessageCatalogManager_m_catalogs{})));
  EXPECT_TRUE(hasType<CCmnMessageCatalogFactory*>(memberOf(CCmnMessageCatalogManager_m_factory{})));
  EXPECT_TRUE(hasType<Texts>(memberOf(CCmnMessageCatalogManager_m_localizedMessages{})));
  EXPECT_TRUE(hasType<std::string>(memberOf(CCmnMessageCatalogManager_m_nativeLanguage{})));
  expectInOrder(afterVirtualPointer,
                {fieldOf(memberOf(CCmnMessageCatalogManager_m_catalogs{})),
                 fieldOf(memberOf(CCmnMessageCatalogManager_m_factory{})),
                 fieldOf(memberOf(CCmnMessageCatalogManager_m_localizedMessages{})),
                 fieldOf(memberOf(CCmnMessageCatalogManager_m_nativeLanguage{}))});
}

TEST(Fields, OfTheHostRecordAreNameAddressesAndQualifiedName) {
  EXPECT_TRUE(hasType<std::string>(&CCmnHostInfo::m_name));
  EXPECT_TRUE(hasType<std::set<std::string>>(&CCmnHostInfo::m_addresses));
  EXPECT_TRUE(hasType<std::string>(&CCmnHostInfo::m_fqdn));
  expectInOrder(0, {fieldOf(&CCmnHostInfo::m_name), fieldOf(&CCmnHostInfo::m_addresses),
                    fieldOf(&CCmnHostInfo::m_fqdn)});
}

TEST(Fields, OfTheSaxParserAreHandlerAndReader) {
  EXPECT_TRUE(hasType<xercesc::DefaultHandler*>(memberOf(CCmnSaxParser_m_handler{})));
  EXPECT_TRUE(hasType<xercesc::SAX2XMLReader*>(memberOf(CCmnSaxParser_m_reader{})));
  expectInOrder(0, {fieldOf(memberOf(CCmnSaxParser_m_handler{})),
                    fieldOf(memberOf(CCmnSaxParser_m_reader{}))});
}

TEST(Fields, OfTheSaxHandlerFollowItsBase) {
  EXPECT_TRUE(hasType<xercesc::SAXParseException>(memberOf(CCmnSaxParseHandler_m_lastException{})));
  EXPECT_TRUE(hasType<bool>(memberOf(CCmnSaxParseHandler_m_errorOccurred{})));
  EXPECT_TRUE(hasType<std::string>(memberOf(CCmnSaxParseHandler_m_characters{})));
  expectInOrder(sizeof(xercesc::DefaultHandler),
                {fieldOf(memberOf(CCmnSaxParseHandler_m_lastException{})),
                 fieldOf(memberOf(CCmnSaxParseHandler_m_errorOccurred{})),
                 fieldOf(memberOf(CCmnSaxParseHandler_m_characters{}))});
}

TEST(Fields, OfTheDigestAreBufferStateCountsAndTexts) {
  EXPECT_TRUE(std::is_standard_layout_v<CCmnMessageDigest5>);
  EXPECT_TRUE(std::is_trivially_copyable_v<CCmnMessageDigest5>);
  EXPECT_EQ(sizeof(CCmnMessageDigest5), 296U);
  EXPECT_TRUE(hasType<unsigned char[64]>(memberOf(CCmnMessageDigest5_m_buffer{})));
  EXPECT_TRUE(hasType<unsigned long>(memberOf(CCmnMessageDigest5_m_bufferCount{})));
  EXPECT_TRUE(hasType<unsigned long[4]>(memberOf(CCmnMessageDigest5_m_state{})));
  EXPECT_TRUE(hasType<unsigned long>(memberOf(CCmnMessageDigest5_m_bitCount{})));
  EXPECT_TRUE(hasType<unsigned char[16]>(memberOf(CCmnMessageDigest5_m_digest{})));
  EXPECT_TRUE(hasType<char[33]>(memberOf(CCmnMessageDigest5_m_ansiDigest{})));
  EXPECT_TRUE(hasType<wchar_t[33]>(memberOf(CCmnMessageDigest5_m_unicodeDigest{})));
  expectInOrder(0, {fieldOf(memberOf(CCmnMessageDigest5_m_buffer{})),
                    fieldOf(memberOf(CCmnMessageDigest5_m_bufferCount{})),
                    fieldOf(memberOf(CCmnMessageDigest5_m_state{})),
                    fieldOf(memberOf(CCmnMessageDigest5_m_bitCount{})),
                    fieldOf(memberOf(CCmnMessageDigest5_m_digest{})),
                    fieldOf(memberOf(CCmnMessageDigest5_m_ansiDigest{})),
                    fieldOf(memberOf(CCmnMessageDigest5_m_unicodeDigest{}))});
}

TEST(Fields, OfTheScanSourceAreTheUnreadTextItsBufferAndWhatFillsIt) {
  EXPECT_TRUE(std::is_standard_layout_v<ScanSource>);
  EXPECT_TRUE(hasType<const char*>(&ScanSource::position));
  EXPECT_TRUE(hasType<int>(&ScanSource::unread));
  EXPECT_TRUE(hasType<int>(&ScanSource::flags));
  EXPECT_TRUE(hasType<const char*>(&ScanSource::base));
  EXPECT_TRUE(hasType<int>(&ScanSource::size));
  EXPECT_TRUE((hasType<int (*)(void*, char*, int)>(&ScanSource::read)));
  EXPECT_TRUE(hasType<FILE*>(&ScanSource::stream));
  EXPECT_EQ(Q_SCAN_EOF, 0x20);
  expectInOrder(
      0, {fieldOf(&ScanSource::position), fieldOf(&ScanSource::unread), fieldOf(&ScanSource::flags),
          fieldOf(&ScanSource::base), fieldOf(&ScanSource::size), fieldOf(&ScanSource::read),
          fieldOf(&ScanSource::stream)});
}

}  // namespace
