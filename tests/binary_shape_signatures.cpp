// The signatures that hosts are compiled against, with defaults and the types of what they reach in
// a class that they derive. All of it is decided when this file is compiled.
#include "Q_sscanf.h"
#include "Q_strings.h"
#include "Q_strtoimax.h"
#include "Q_strtoumax.h"
#include "Q_vfscanf.h"
#include "cmnconfiguration.h"
#include "cmnerror.h"
#include "cmnexecpipe.h"
#include "cmnexecpipebase.h"
#include "cmnicucatalog.h"
#include "cmnicumessage.h"
#include "cmnmessage.h"
#include "cmnmillisleep.h"
#include "cmnmsgcatalog.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnmsgdgst5.h"
#include "cmnnetwork.h"
#include "cmnpathtool.h"
#include "cmnqrbconfiguration.h"
#include "cmnrefcount.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmnstringtool.h"
#include "cmntraceable.h"
#include "cmntracelog.h"

#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace kelp_cmn_4_4;

template <auto function, class Type>
constexpr bool hasSignature = std::is_same_v<decltype(function), Type>;

// For a function with overloads: the argument names the one that has exactly this type.
template <class Type>
constexpr bool hasOverload(Type /*function*/) {
  return true;
}

static_assert(hasSignature<Q_sscanf, int (*)(const char*, const char*, ...)>);
static_assert(hasSignature<Q_vfscanf, int (*)(ScanSource*, const char*, va_list)>);
static_assert(hasSignature<__Qrefill, int (*)(ScanSource*)>);
static_assert(hasSignature<eofread, int (*)(void*, char*, int)>);
static_assert(hasSignature<updateFILE, void (*)(ScanSource*)>);
static_assert(hasSignature<updateVFILE, void (*)(ScanSource*)>);

static_assert(hasSignature<__Qstrtoimax, intmax_t (*)(const char*, char**, int)>);
static_assert(hasSignature<__Qstrtoumax, uintmax_t (*)(const char*, char**, int)>);

template <class Char>
using Bounded = size_t (*)(Char*, const Char*, size_t);
template <class Char>
using BoundedTwice = size_t (*)(Char*, const Char*, size_t, size_t);

static_assert(hasSignature<Q_strlcpy, Bounded<char>>);
static_assert(hasSignature<Q_strlcat, Bounded<char>>);
static_assert(hasSignature<Q_strlncpy, BoundedTwice<char>>);
static_assert(hasSignature<Q_strlncat, BoundedTwice<char>>);
static_assert(hasSignature<Q_wcslcpy, Bounded<wchar_t>>);
static_assert(hasSignature<Q_wcslcat, Bounded<wchar_t>>);
static_assert(hasSignature<Q_wcslncpy, BoundedTwice<wchar_t>>);
static_assert(hasSignature<Q_wcslncat, BoundedTwice<wchar_t>>);
static_assert(hasSignature<Q_strverify, int (*)(const char*, size_t, size_t*)>);
static_assert(hasSignature<Q_wstrverify, int (*)(const wchar_t*, size_t, size_t*)>);
static_assert(hasSignature<Q_snprintf, int (*)(char*, size_t, const char*, ...)>);
static_assert(hasSignature<Q_vsnprintf, int (*)(char*, size_t, const char*, va_list)>);
static_assert(hasSignature<Q_snwprintf, int (*)(wchar_t*, size_t, const wchar_t*, ...)>);
static_assert(hasSignature<Q_vsnwprintf, int (*)(wchar_t*, size_t, const wchar_t*, va_list)>);
static_assert(hasSignature<Q_dumb_realloc, void* (*)(void**, size_t)>);

using Text = CCmnStringTool;
using Alloc = void* (*)(unsigned long);
using TextList = std::vector<std::string>;

static_assert(!std::is_default_constructible_v<Text>);

template <auto function, class Expected>
constexpr bool isFunction = hasSignature<function, Expected*>;
template <class Expected>
constexpr bool isOverload(Expected* function) {
  return hasOverload<Expected*>(function);
}

static_assert(isFunction<&Text::str2ustr, icu::UnicodeString(std::string&)>);
static_assert(isFunction<&Text::ustr2str, std::string(icu::UnicodeString&)>);
static_assert(isFunction<&Text::tstr2ustr, icu::UnicodeString(tstr&)>);
static_assert(isFunction<&Text::ustr2tstr, tstr(icu::UnicodeString&)>);
static_assert(isFunction<&Text::strdup, char*(const std::string&, Alloc)>);
static_assert(isFunction<&Text::wstrdup, wchar_t*(const std::wstring&, Alloc)>);
static_assert(isFunction<&Text::tstrdup, char*(const tstr&, Alloc)>);
static_assert(isFunction<&Text::tstrduplist, char**(const std::vector<tstr>&)>);
static_assert(isFunction<&Text::tstrfreelist, void(char**&)>);
static_assert(
    isFunction<&Text::find, unsigned long(const TextList&, const char*, unsigned long&, bool)>);
static_assert(isFunction<&Text::convertToXmlSpecialCharacters, std::string(const std::string&)>);
static_assert(isFunction<&Text::convertFromXmlSpecialCharacters, std::string(const std::string&)>);
static_assert(isFunction<&Text::xmlBracket, std::string(std::string, bool, bool)>);
static_assert(isFunction<&Text::xmlBracketValue, std::string(std::string, std::string)>);
static_assert(isFunction<&Text::binary2str, std::string(unsigned char*, int)>);
static_assert(isFunction<&Text::binary2wstr, std::wstring(unsigned char*, int)>);
static_assert(isFunction<&Text::str2binary, int(unsigned char*, int*, const std::string&)>);
static_assert(isFunction<&Text::wstr2binary, int(unsigned char*, int*, std::wstring, bool)>);
static_assert(isFunction<&Text::str2uid, std::string(unsigned int, const std::string&)>);
static_assert(isFunction<&Text::wstr2uid, std::string(unsigned int, const std::wstring&)>);
static_assert(isFunction<&Text::binary2uid, std::wstring(unsigned int, unsigned char*, int)>);
static_assert(isFunction<&Text::tokenize, TextList(const std::string&, const std::string&)>);
static_assert(isFunction<&Text::isIpAddress, bool(const std::string&)>);
static_assert(isOverload<std::wstring(const std::string&)>(Text::str2wstr));
static_assert(isOverload<std::wstring(const std::wstring&)>(Text::str2wstr));
static_assert(isOverload<std::string(const std::wstring&)>(Text::wstr2str));
static_assert(isOverload<std::string(const std::string&)>(Text::wstr2str));
static_assert(isFunction<&Text::mbs2wcs, std::wstring(const std::string&)>);
static_assert(isFunction<&Text::wcs2mbs, std::string(const std::wstring&)>);
static_assert(isFunction<&Text::str2tstr, tstr(const std::string&)>);
static_assert(isFunction<&Text::tstr2str, std::string(const tstr&)>);
static_assert(isFunction<&Text::tstr2wstr, std::wstring(const tstr&)>);
static_assert(isFunction<&Text::wstr2tstr, tstr(const std::wstring&)>);
static_assert(isOverload<std::string(int)>(Text::int2str));
static_assert(isOverload<std::string(long)>(Text::int2str));
static_assert(isOverload<std::string(unsigned int)>(Text::uint2str));
static_assert(isOverload<std::string(unsigned long)>(Text::uint2str));
static_assert(isOverload<std::wstring(int)>(Text::int2wstr));
static_assert(isOverload<std::wstring(long)>(Text::int2wstr));
static_assert(isOverload<std::wstring(unsigned int)>(Text::uint2wstr));
static_assert(isOverload<std::wstring(unsigned long)>(Text::uint2wstr));
static_assert(isFunction<&Text::double2str, std::string(double)>);
static_assert(isFunction<&Text::bool2str, std::string(bool)>);
static_assert(isOverload<int(const std::string&)>(Text::str2int));
static_assert(isOverload<int(const std::string&, int&)>(Text::str2int));
static_assert(isOverload<unsigned int(const std::string&)>(Text::str2uint));
static_assert(isOverload<int(const std::string&, unsigned int&)>(Text::str2uint));
static_assert(isFunction<&Text::str2uint64, int(const std::string&, unsigned long&)>);
static_assert(isOverload<double(const std::string&)>(Text::str2double));
static_assert(isOverload<int(const std::string&, double&)>(Text::str2double));
static_assert(isFunction<&Text::isDigit, bool(const std::string&)>);
static_assert(isOverload<bool(const std::string&, const std::string&)>(Text::CompareNoCase));
static_assert(isOverload<bool(const std::wstring&, const std::wstring&)>(Text::CompareNoCase));
static_assert(isOverload<std::string(const std::string&)>(Text::tostrlower));
static_assert(isOverload<std::string(const std::string&)>(Text::tostrupper));
static_assert(isOverload<std::wstring(const std::wstring&)>(Text::tostrlower));
static_assert(isOverload<std::wstring(const std::wstring&)>(Text::tostrupper));
static_assert(isFunction<&Text::searchreplace,
                         std::string(const std::string&, const std::string&, const std::string&)>);
static_assert(isFunction<&Text::ltrim, std::string(const std::string&, const char*)>);
static_assert(isFunction<&Text::rtrim, std::string(const std::string&, const char*)>);
static_assert(isFunction<&Text::trim, std::string(const std::string&, const char*)>);

using Holder = CCmnSmartPtr<CCmnRefCount, CCmnNullAllocator<CCmnRefCount>>;

static_assert(hasSignature<&Holder::operator->, CCmnRefCount* (Holder::*)() const>);
static_assert(hasSignature<&Holder::operator*, CCmnRefCount& (Holder::*)() const>);
static_assert(hasSignature<&Holder::get, CCmnRefCount* (Holder::*)() const>);
static_assert(std::is_same_v<decltype(std::declval<Holder&>() = std::declval<Holder&>()), Holder&>);

static_assert(!std::is_base_of_v<std::exception, CCmnError>);
static_assert(std::is_constructible_v<CCmnError, int, const tstr&, const tstr&, int, const tstr&>);
static_assert(hasSignature<&CCmnError::getMessageId,
                           std::string (CCmnError::*)(const std::string&, long) const>);
static_assert(hasSignature<&CCmnError::what, const char* (CCmnError::*)() const>);
static_assert(hasSignature<&CCmnError::getCode, int (CCmnError::*)() const>);
static_assert(hasSignature<&CCmnError::getFileName, const char* (CCmnError::*)() const>);
static_assert(hasSignature<&CCmnError::getLineNumber, int (CCmnError::*)() const>);
static_assert(hasSignature<&CCmnError::getFunction, const char* (CCmnError::*)() const>);

static_assert(hasSignature<&CCmnRefCount::increment, int (CCmnRefCount::*)()>);
static_assert(hasSignature<&CCmnRefCount::decrement, int (CCmnRefCount::*)()>);
static_assert(hasSignature<&CCmnRefCount::getCount, int (CCmnRefCount::*)()>);

static_assert(hasSignature<&CCmnMessage::serialize, SCmnMessageInfo* (CCmnMessage::*)()>);
static_assert(
    hasSignature<&CCmnMessage::deserialize, void (CCmnMessage::*)(const SCmnMessageInfo*)>);
static_assert(hasSignature<&CCmnMessage::getSeverity, int (CCmnMessage::*)()>);
static_assert(hasSignature<&CCmnMessage::getLineNumber, int (CCmnMessage::*)()>);
static_assert(hasSignature<&CCmnMessage::getFileName, std::string (CCmnMessage::*)()>);
static_assert(hasSignature<&CCmnMessage::getMessageId, std::string (CCmnMessage::*)()>);
static_assert(hasSignature<&CCmnMessage::formatMessage, tstr (CCmnMessage::*)(tstr)>);
static_assert(hasSignature<&CCmnIcuMessage::serialize, SCmnMessageInfo* (CCmnIcuMessage::*)()>);
static_assert(
    hasSignature<&CCmnIcuMessage::deserialize, void (CCmnIcuMessage::*)(const SCmnMessageInfo*)>);
static_assert(hasSignature<&CCmnIcuMessage::formatMessage, tstr (CCmnIcuMessage::*)(tstr)>);
static_assert(hasSignature<&CCmnMessageCatalog::init, int (CCmnMessageCatalog::*)()>);
static_assert(hasSignature<&CCmnMessageCatalog::getMessage,
                           tstr (CCmnMessageCatalog::*)(const std::string&, const char*) const>);

using Icu = CCmnIcuMessage;

static_assert(std::is_constructible_v<Icu, std::string, int>);
static_assert(hasSignature<&Icu::setArguments, void (Icu::*)(const icu::Formattable*, int)>);
static_assert(hasSignature<&Icu::addArgument, void (Icu::*)(const icu::Formattable&)>);
static_assert(hasSignature<&Icu::getArgumentCount, int (Icu::*)() const>);
static_assert(hasSignature<&Icu::getArgument, const icu::Formattable& (Icu::*)(int) const>);

using Manager = CCmnMessageCatalogManager;
using MessageHolder = CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>>;
using CatalogHolder = CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;

static_assert(std::is_same_v<CCmnMessagePtr, MessageHolder>);
static_assert(std::is_same_v<CCmnMessageCatalogPtr, CatalogHolder>);

static_assert(hasSignature<&CCmnMessageCatalogFactory::createCatalog,
                           CatalogHolder (CCmnMessageCatalogFactory::*)(const char*)>);
static_assert(hasSignature<&CCmnMessageCatalogFactory::createMessage,
                           MessageHolder (CCmnMessageCatalogFactory::*)(const SCmnMessageInfo*)>);
static_assert(hasSignature<&CCmnMessageCatalogFactory::getDefaultLanguage,
                           std::string (CCmnMessageCatalogFactory::*)()>);
static_assert(
    hasSignature<&Manager::registerFactory, void (Manager::*)(CCmnMessageCatalogFactory*)>);
static_assert(hasSignature<&Manager::activateCatalog, void (Manager::*)(std::string)>);
static_assert(hasSignature<&Manager::getMessage,
                           tstr (Manager::*)(const std::string&, const char*, std::string)>);
static_assert(
    hasOverload<tstr (Manager::*)(MessageHolder&, const char*)>(&Manager::getLocalizedMessage));
static_assert(hasOverload<void (Manager::*)(const char*, const char*, char**)>(
    &Manager::getLocalizedMessage));
static_assert(hasOverload<void (Manager::*)(SCmnMessageInfo*, const char*, char**)>(
    &Manager::getLocalizedMessage));
static_assert(hasSignature<&Manager::deleteLocalizedMessage, void (Manager::*)(char**)>);
static_assert(hasSignature<&Manager::getNativeLanguage, const char* (Manager::*)()>);
static_assert(hasSignature<&Manager::setNativeLanguage, void (Manager::*)(const char*)>);

using Settings = CCmnConfiguration;
using Section = ACE_Configuration_Section_Key;

static_assert(std::is_constructible_v<Settings, const char*, const char*, bool>);
static_assert(hasSignature<&Settings::configHeap, ACE_Configuration_Heap& (Settings::*)()>);
static_assert(hasSignature<&Settings::importConfig, int (Settings::*)(const char*, const char*)>);
static_assert(hasSignature<&Settings::exportConfig, int (Settings::*)()>);
static_assert(hasOverload<int (Settings::*)(const Section&, const char*, Section&, int)>(
    &Settings::openSection));
static_assert(hasOverload<int (Settings::*)(const char*, Section&, int)>(&Settings::openSection));
static_assert(hasOverload<int (Settings::*)(const char*, tstr&)>(&Settings::getStringValue));
static_assert(
    hasOverload<int (Settings::*)(const char*, const char*, tstr&)>(&Settings::getStringValue));
static_assert(hasSignature<&Settings::setStringValue, int (Settings::*)(const char*, const tstr&)>);
static_assert(
    hasOverload<int (Settings::*)(const char*, unsigned int&)>(&Settings::getIntegerValue));
static_assert(hasOverload<int (Settings::*)(const char*, const char*, unsigned int&)>(
    &Settings::getIntegerValue));
static_assert(
    hasSignature<&Settings::setIntegerValue, int (Settings::*)(const char*, unsigned int)>);
static_assert(
    hasOverload<std::vector<tstr> (Settings::*)(const Section&)>(&Settings::enumerateSections));
static_assert(hasOverload<std::vector<tstr> (Settings::*)()>(&Settings::enumerateSections));
static_assert(hasSignature<&Settings::getLastError, const CCmnError& (Settings::*)() const>);

using PathOf = int (*)(const tstr&, tstr&, tstr&);

static_assert(hasSignature<&CCmnPathTool::verify, int (*)(const char*)>);
static_assert(hasSignature<&CCmnPathTool::getInstallPath, int (*)(tstr&)>);
static_assert(hasSignature<&CCmnPathTool::getMessageFileInfo, PathOf>);
static_assert(hasSignature<&CCmnPathTool::getTraceFileInfo, PathOf>);
static_assert(hasSignature<&CCmnPathTool::getConfigFileInfo, PathOf>);
static_assert(hasSignature<&CCmnQRBConfiguration::getTraceConfigFileInfo, int (*)(tstr&, tstr&)>);
static_assert(hasSignature<&CCmnQRBConfiguration::getTraceLevel, int (*)(tstr&, tstr&, int&)>);

using Log = CCmnTraceLog;
using LogHolder = CCmnSmartPtr<Log, CCmnContextSingletonAllocator<Log>>;

static_assert(std::is_same_v<CCmnTraceLogPtr, LogHolder>);
static_assert(hasSignature<&Log::initialize, void (Log::*)(const tstr&, tstr, tstr, int, bool)>);
static_assert(hasSignature<&Log::trace, void (Log::*)(int, const char*, ...)>);
static_assert(
    hasSignature<&Log::updateConfigFile, int (Log::*)(const tstr&, const tstr&, const int&)>);
static_assert(hasSignature<&Log::loadFromConfigFile, void (Log::*)(tstr&, tstr&, int&)>);
static_assert(hasSignature<&Log::initTraceSettings, void (Log::*)(tstr&, tstr&, int&)>);
static_assert(hasSignature<&Log::UpdateTraceLevelFromConfigFile, void (Log::*)()>);
static_assert(hasSignature<&Log::getTraceLevel, int (Log::*)() const>);
static_assert(hasSignature<&Log::getTracePath, const tstr& (Log::*)() const>);
static_assert(hasSignature<&Log::isInitialized, bool (Log::*)() const>);
static_assert(
    hasSignature<&CCmnTraceable::registerTraceLog, void (CCmnTraceable::*)(const LogHolder&)>);

using Base = CCmnExecPipeBase;
using Posix = CCmnExecPipePosix;

static_assert(hasSignature<&Base::ExecPipe, int (Base::*)(std::string, std::string)>);
static_assert(hasSignature<&Base::WaitPid, int (Base::*)(long)>);
static_assert(hasSignature<&Base::Close, int (Base::*)(long)>);
static_assert(hasSignature<&Base::ReadLine, bool (Base::*)(char*, int, unsigned char*, long)>);
static_assert(hasSignature<&Base::IsAbortRequested, bool (Base::*)()>);
static_assert(hasSignature<&Base::IsChildContext, int (Base::*)()>);
static_assert(hasSignature<&Base::ExecCommandInChildContext,
                           int (Base::*)(std::string, std::vector<std::string>&)>);
static_assert(
    hasSignature<&Base::Exec, int (Base::*)(std::string, std::vector<std::string>&, std::string,
                                            unsigned long, std::string, std::string, std::string)>);
static_assert(hasSignature<&Base::Abort, void (Base::*)()>);
static_assert(hasSignature<&Base::Init, void (Base::*)()>);
static_assert(hasSignature<&Base::getLastError, ECmnExecPipe (Base::*)()>);
static_assert(std::is_same_v<decltype(Base::m_pfnIsChildContext), int (*)()>);
static_assert(std::is_same_v<decltype(Base::m_pfnExecInChild), int (*)(const char*, char**, int*)>);
static_assert(std::is_same_v<decltype(Base::m_pfnFreeOutput), void (*)(char*, int)>);
static_assert(std::is_constructible_v<ECmnExecPipe, const std::string&, int>);
static_assert(
    std::is_constructible_v<ECmnExecPipe, const std::string&, const std::wstring&, int, long>);

static_assert(std::is_default_constructible_v<Posix>);
static_assert(std::is_constructible_v<Posix, std::vector<std::string>>);
static_assert(!std::is_convertible_v<std::vector<std::string>, Posix>);
static_assert(hasSignature<&Posix::ClearArgsList, void (Posix::*)()>);
static_assert(hasSignature<&Posix::AddArgument, bool (Posix::*)(const char*, int)>);
static_assert(hasSignature<&Posix::ParseCommand, bool (Posix::*)(const char*)>);
static_assert(hasSignature<&Posix::CheckChildStatusMap, bool (Posix::*)(int, int*)>);
static_assert(hasSignature<&Posix::GetChildStatus, void (*)(int, siginfo_t*, void*)>);

// What a host's own pipe reaches.
struct DerivedPipe : Posix {
  using Posix::m_act;
  using Posix::m_argc;
  using Posix::m_argCapacity;
  using Posix::m_bufferCount;
  using Posix::m_bufferPos;
  using Posix::m_childPid;
  using Posix::m_childStatusMap;
  using Posix::m_commandLine;
  using Posix::m_hostString1;
  using Posix::m_hostString2;
  using Posix::m_readFd;
  using Posix::m_stdinFile;
};

static_assert(std::is_same_v<decltype(DerivedPipe::m_act), struct sigaction>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_childStatusMap), std::map<int, int>>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_childPid), int>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_bufferCount), int>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_bufferPos), int>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_readFd), int>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_argc), int>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_argCapacity), int>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_commandLine), std::string>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_hostString1), std::string>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_hostString2), std::string>);
static_assert(std::is_same_v<decltype(DerivedPipe::m_stdinFile), std::string>);
static_assert(!std::is_final_v<ECmnExecPipe>);

static_assert(hasSignature<&millisleep, void (*)(long)>);

using Net = CCmnNetwork;
using Addresses = std::set<std::string>;

static_assert(!std::is_default_constructible_v<Net>);
static_assert(isFunction<&Net::validateIPAddress, bool(const char*)>);
static_assert(isFunction<&Net::getComputerName, std::string()>);
static_assert(isFunction<&Net::extractIPAddress, Addresses(addrinfo*)>);
static_assert(isFunction<&Net::addrinfoBlob, TextList(addrinfo*)>);
static_assert(isFunction<&Net::getAddrByHost, int(const std::string&, Addresses&)>);
static_assert(isFunction<&Net::getAddressListForHost, Addresses(const std::string&)>);
static_assert(isFunction<&Net::getHostbyAddr, int(const std::string&, std::string&)>);
static_assert(isOverload<int(const char*, std::string&)>(Net::getFQDN));
static_assert(isOverload<int(std::string&)>(Net::getFQDN));
static_assert(isOverload<CCmnHostInfo(const std::string&)>(Net::resolve));
static_assert(isOverload<CCmnHostInfo()>(Net::resolve));
static_assert(isOverload<bool(const std::string&, const std::string&)>(Net::compare));
static_assert(isOverload<bool(const CCmnHostInfo&, const CCmnHostInfo&)>(Net::compare));
static_assert(isOverload<bool(const std::string&, const CCmnHostInfo&)>(Net::compare));

using Parser = CCmnSaxParser;

static_assert(hasSignature<&Parser::init, void (Parser::*)()>);
static_assert(hasSignature<&Parser::setHandler, void (Parser::*)(xercesc::DefaultHandler*)>);
static_assert(hasOverload<void (Parser::*)(const std::string&)>(&Parser::parse));
static_assert(hasOverload<void (Parser::*)(const TextList&)>(&Parser::parse));

using Handler = CCmnSaxParseHandler;

static_assert(hasSignature<&Handler::hasErrorOccurred, bool (Handler::*)() const>);
static_assert(hasSignature<&Handler::getLastException,
                           const xercesc::SAXParseException& (Handler::*)() const>);
static_assert(hasSignature<&Handler::getCharacters, const std::string& (Handler::*)() const>);
// The only characters() that the class shows: were the inherited one shown, too, a call with an int
// would be ambiguous, and so would be this.
static_assert(hasSignature<&Handler::characters, void (Handler::*)(const XMLCh*, unsigned int)>);

using Digest = CCmnMessageDigest5;
using DigestStep = void (Digest::*)(unsigned long&, unsigned long, unsigned long, unsigned long,
                                    unsigned long, unsigned long, unsigned long);
struct OpenDigest : Digest {
  using Digest::Transform;
  using Digest::Transform_Round1;
  using Digest::Transform_Round2;
  using Digest::Transform_Round3;
  using Digest::Transform_Round4;
};

static_assert(hasSignature<&Digest::Initialize, void (Digest::*)()>);
static_assert(hasSignature<&Digest::Update, void (Digest::*)(const unsigned char*, unsigned long)>);
static_assert(hasSignature<&Digest::Finalize, void (Digest::*)()>);
static_assert(hasSignature<&Digest::operator[], unsigned char (Digest::*)(unsigned long) const>);
static_assert(hasSignature<&Digest::GetAnsiMessageDigest, const char* (Digest::*)() const>);
static_assert(hasSignature<&Digest::GetUnicodeMessageDigest, const wchar_t* (Digest::*)() const>);
static_assert(hasSignature<&OpenDigest::Transform, void (Digest::*)(const unsigned char*)>);
static_assert(hasSignature<&OpenDigest::Transform_Round1, DigestStep>);
static_assert(hasSignature<&OpenDigest::Transform_Round2, DigestStep>);
static_assert(hasSignature<&OpenDigest::Transform_Round3, DigestStep>);
static_assert(hasSignature<&OpenDigest::Transform_Round4, DigestStep>);

}  // namespace
