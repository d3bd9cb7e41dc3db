// Messages, catalogs, the manager of catalogs.
#include "cmnicucatalog.h"
#include "cmnicumessage.h"
#include "cmnmsgcatalogmgr.h"
#include "job.h"
#include "resource_bundles.h"
#include "words.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using namespace kelp_cmn_4_4;
using Message = IcuFactory::Holder<CCmnMessage>;

const std::string id = "MSG_GREETING";
constexpr char name[] = "a name of some length, so that it is long";

icu::UnicodeString unicode(const char* text) { return icu::UnicodeString::fromUTF8(text); }

std::vector<icu::Formattable> values() {
  const icu::Formattable list[] = {icu::Formattable(unicode(name)), icu::Formattable(3)};
  return {icu::Formattable(unicode(name)), icu::Formattable(12), icu::Formattable(1.5),
          icu::Formattable(list, 2)};
}

std::string inWords(const icu::Formattable& value) {
  switch (value.getType()) {
    case icu::Formattable::kString:
      return words(value.getString());
    case icu::Formattable::kLong:
      return words(static_cast<int>(value.getLong()));
    case icu::Formattable::kDouble:
      return words(value.getDouble());
    default:
      return "a list";
  }
}

std::string inWords(CCmnIcuMessage& message) {
  std::string result = message.getMessageId() + " " + words(message.getSeverity()) + ":";
  for (int i = 0; i < message.getArgumentCount(); ++i) {
    result += " " + inWords(message.getArgument(i)) + ",";
  }
  return result;
}

class MessageJob : public Job {
 public:
  std::string outcome() override { return inWords(m_message); }
  std::string state() override { return inWords(m_message); }

 protected:
  const std::vector<icu::Formattable> m_values = values();
  CCmnIcuMessage m_message{id, 4, "file.cpp", 12};
};

class SettingArguments : public MessageJob {
 public:
  void run() override {
    m_message.setArguments(m_values.data(), static_cast<int>(m_values.size()));
  }
};

class AddingAnArgument : public MessageJob {
 public:
  AddingAnArgument() { m_message.addArgument(m_values[1]); }
  void run() override { m_message.addArgument(m_values[0]); }
  // The one that was added last: there are more with each run.
  std::string outcome() override {
    return inWords(m_message.getArgument(m_message.getArgumentCount() - 1));
  }
};

class Serializing : public MessageJob {
 public:
  Serializing() { m_message.setArguments(m_values.data(), 3); }
  void run() override { m_info = m_message.serialize(); }
  std::string outcome() override { return words(m_info->text); }

 private:
  SCmnMessageInfo* m_info = nullptr;
};

class Deserializing : public MessageJob {
 public:
  Deserializing() {
    m_source.setArguments(m_values.data(), 3);
    m_info = m_source.serialize();
  }
  void run() override { m_message.deserialize(m_info); }

 private:
  CCmnIcuMessage m_source{"MSG_OTHER_OF_SOME_LENGTH", 7};
  SCmnMessageInfo* m_info = nullptr;
};

class Formatting : public MessageJob {
 public:
  explicit Formatting(const char* pattern) : m_pattern(pattern) {
    m_message.setArguments(m_values.data(), 3);
  }
  void run() override { m_result.keep(m_format); }
  std::string outcome() override { return words(*m_result); }

 private:
  const tstr m_pattern;
  const std::function<tstr()> m_format = [this] { return m_message.formatMessage(m_pattern); };
  Kept<tstr> m_result;
};

// ---- catalogs

class Bundles {
 public:
  Bundles() { installBundle("messages", BundleForm::directory); }

 private:
  InstallRoot m_root;
  ScopedIcu m_icu{"ja"};
};

std::shared_ptr<void> bundles() { return std::make_shared<Bundles>(); }

class MakingACatalog : public Job {
 public:
  void run() override {
    m_catalog.reset();
    m_catalog.emplace(m_language, m_name);
  }
  std::string outcome() override { return words(m_catalog->getMessage(id, nullptr)); }

 private:
  const std::string m_language = "de";
  const tstr m_name{"messages"};
  std::optional<CCmnIcuMessageCatalog> m_catalog;
};

class OpeningACatalog : public Job {
 public:
  void run() override {
    m_catalog.emplace(m_language, m_name);
    m_result = m_catalog->init();
  }
  std::string outcome() override {
    return words(m_result) + (m_result == 0 ? ": " + words(m_catalog->getMessage(id, "")) : "");
  }

 private:
  const std::string m_language = "de";
  const tstr m_name{"messages"};
  std::optional<CCmnIcuMessageCatalog> m_catalog;
  int m_result = 0;
};

class AskingACatalog : public Job {
 public:
  AskingACatalog(const char* key, const char* defaultText)
      : m_key(key), m_defaultText(defaultText) {
    m_catalog.init();
  }
  void run() override { m_result.keep(m_ask); }
  std::string outcome() override { return words(*m_result); }

 private:
  CCmnIcuMessageCatalog m_catalog{"de", "messages"};
  const std::string m_key;
  const char* const m_defaultText;
  const std::function<tstr()> m_ask = [this] { return m_catalog.getMessage(m_key, m_defaultText); };
  Kept<tstr> m_result;
};

// ---- the manager

class Registering : public Job {
 public:
  void run() override {
    m_manager.reset();
    m_manager.emplace();
    m_manager->registerFactory(&m_factory);
  }
  std::string outcome() override { return words(m_manager->getMessage(id, nullptr, "")); }

 private:
  IcuFactory m_factory;
  std::optional<CCmnMessageCatalogManager> m_manager;
};

class ManagerJob : public Job {
 protected:
  ManagerJob() {
    m_manager.registerFactory(&m_factory);
    m_message.addArgument(icu::Formattable(unicode(name)));
  }
  IcuFactory m_factory;
  CCmnMessageCatalogManager m_manager;
  CCmnIcuMessage m_message{id, 4};
};

class Activating : public ManagerJob {
 public:
  void run() override { m_manager.activateCatalog("de"); }
  std::string outcome() override { return words(m_manager.getMessage(id, nullptr, "de")); }
};

class AskingTheManager : public ManagerJob {
 public:
  void run() override { m_result.keep(m_ask); }
  std::string outcome() override { return words(*m_result); }

 private:
  const std::function<tstr()> m_ask = [this] { return m_manager.getMessage(id, nullptr, "de"); };
  Kept<tstr> m_result;
};

class LocalizingAMessage : public ManagerJob {
 public:
  void run() override { m_result.keep(m_ask); }
  std::string outcome() override { return words(*m_result); }

 private:
  Message m_shared = [this] {
    auto* const message = new CCmnIcuMessage(id, 4);
    message->addArgument(m_message.getArgument(0));
    return Message(message);
  }();
  const std::function<tstr()> m_ask = [this] {
    return m_manager.getLocalizedMessage(m_shared, "de");
  };
  Kept<tstr> m_result;
};

class LocalizingAnIdentifier : public ManagerJob {
 public:
  void run() override { m_manager.getLocalizedMessage(id.c_str(), "native", &m_text); }
  std::string outcome() override { return words(m_text); }
  std::string state() override { return words(m_text); }

 private:
  char* m_text = nullptr;
};

class LocalizingASerialized : public ManagerJob {
 public:
  void run() override { m_manager.getLocalizedMessage(m_info, "de", &m_text); }
  std::string outcome() override { return words(m_text); }
  std::string state() override { return words(m_text); }

 private:
  SCmnMessageInfo* const m_info = m_message.serialize();
  char* m_text = nullptr;
};

class GivingBack : public ManagerJob {
 public:
  void run() override {
    m_manager.getLocalizedMessage(id.c_str(), "de", &m_text);
    m_manager.deleteLocalizedMessage(&m_text);
  }
  std::string outcome() override { return "given back"; }

 private:
  char* m_text = nullptr;
};

class NamingTheNativeLanguage : public ManagerJob {
 public:
  void run() override { m_manager.setNativeLanguage("a language with a long name"); }
  std::string outcome() override { return words(m_manager.getNativeLanguage()); }
  std::string state() override { return words(m_manager.getNativeLanguage()); }
};

void addMessages(Operations& all) {
  all.push_back(function(
      "message: make",
      [text = std::string("file.cpp of some length")] {
        return std::make_unique<CCmnIcuMessage>(id, 4, text, 12);
      },
      [](const std::unique_ptr<CCmnIcuMessage>& message) { return inWords(*message); }));
  const auto positioned = std::make_shared<CCmnIcuMessage>("MSG_WITH_AN_IDENTIFIER_OF_SOME_LENGTH",
                                                           4, "file.cpp of some length", 12);
  all.push_back(function(
      "message: getMessageId", [positioned] { return positioned->getMessageId(); }, InWords()));
  all.push_back(function(
      "message: getFileName", [positioned] { return positioned->getFileName(); }, InWords()));
  all.push_back(operationOf<SettingArguments>("message: setArguments"));
  all.push_back(operationOf<AddingAnArgument>("message: addArgument"));
  all.push_back(operationOf<Serializing>("message: serialize"));
  all.push_back(operationOf<Deserializing>("message: deserialize"));
  const char* const patterns[] = {"no argument", "{0} and {0}, of '{'{0}'}' and some length",
                                  "{1,number} {2}", "{1,plural,one{one}other{# others}}"};
  for (const char* pattern : patterns) {
    // ICU refuses a pattern, or chooses another form, where it has no memory for its rules.
    all.push_back({std::string("message: format ") + pattern,
                   [pattern] { return std::make_unique<Formatting>(pattern); },
                   {{memoryCalls(), {pattern, "one"}}},
                   nullptr,
                   {},
                   false});
  }
}

// ICU takes a file that it cannot read for one that is not there, and remembers that.
const std::vector<Call> readingBundles{Call::open, Call::mmap, Call::stat, Call::fopen,
                                       Call::access};

void addCatalogs(Operations& all) {
  const std::vector<Allowance> mayFail{{memoryCalls(), {"3"}, Where::here, {"3"}},
                                       {readingBundles, {"3", asEver}, Where::here, {"3"}}};
  all.push_back(operationOf<MakingACatalog>("catalog: make", {}, bundles));
  all.push_back(operationOf<OpeningACatalog>("catalog: init", mayFail, bundles));
  Operation first = operationOf<OpeningACatalog>("catalog: first init", mayFail, bundles);
  first.isCold = true;
  all.push_back(first);
  const struct {
    const char* key;
    const char* defaultText;
  } rows[] = {{"MSG_PLAIN", nullptr},
              {"MSG_ROOT_ONLY", nullptr},
              {"MSG_NONE", nullptr},
              {"MSG_NONE", "a default text of some length"}};
  for (const auto& row : rows) {
    const auto make = [row] { return std::make_unique<AskingACatalog>(row.key, row.defaultText); };
    const std::string suffix = row.defaultText == nullptr ? "" : " with a default";
    all.push_back(
        {std::string("catalog: getMessage ") + row.key + suffix, make, {}, bundles, {}, false});
  }
}

void addManager(Operations& all) {
  // A catalog that cannot be opened is tried again by the next request; this one goes to the
  // default language.
  const std::vector<Allowance> mayFallBack{{memoryCalls(), {"messages: Hello*", "<MSG_GREETING>"}}};
  all.push_back(operationOf<Registering>("manager: registerFactory", {}, bundles));
  all.push_back(operationOf<Activating>("manager: activateCatalog", {}, bundles));
  all.push_back(operationOf<AskingTheManager>("manager: getMessage", mayFallBack, bundles));
  all.push_back(
      operationOf<LocalizingAMessage>("manager: localize a message", mayFallBack, bundles));
  all.push_back(
      operationOf<LocalizingAnIdentifier>("manager: localize an id", mayFallBack, bundles));
  all.push_back(
      operationOf<LocalizingASerialized>("manager: localize a serialized", mayFallBack, bundles));
  all.push_back(operationOf<GivingBack>("manager: deleteLocalizedMessage", {}, bundles));
  all.push_back(operationOf<NamingTheNativeLanguage>("manager: setNativeLanguage", {}, bundles));
}

}  // namespace

Operations messageOperations() {
  Operations all;
  addMessages(all);
  addCatalogs(all);
  addManager(all);
  return all;
}

}  // namespace kelp_test
