// The catalog manager through a script of calls, with a factory whose catalogs fail now and
// then: its answers, what it asks of the factory, and how long texts and catalogs live are those
// of plain maps.
#include "cmnmsgcatalogmgr.h"
#include "expect.h"
#include "input.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnMessage;
using kelp_cmn_4_4::CCmnMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalogFactory;
using kelp_cmn_4_4::CCmnMessageCatalogManager;
using kelp_cmn_4_4::CCmnMessageCatalogPtr;
using kelp_cmn_4_4::CCmnMessagePtr;
using kelp_cmn_4_4::SCmnMessageInfo;
using kelp_cmn_4_4::tstr;
using kelp_fuzz::expect;
using kelp_fuzz::Input;

// ---- the host's side

// What everybody here knows. Each catalog has a number, and the script says which of them fail.
struct World {
  std::string defaultLanguage;
  unsigned int failing = 0;  // bit n for the catalogs number n, n + 32, …
  int made = 0;
  int alive = 0;
  std::vector<std::string> calls;

  bool fails(int number) const {
    return (failing >> (static_cast<unsigned int>(number) % 32) & 1U) != 0;
  }
};

// What catalog number n says. Some texts are those of other identifiers and of other catalogs.
std::string catalogText(int number, const std::string& id, const std::optional<std::string>& text) {
  if (text && id.size() % 2 == 0) {
    return *text;
  }
  return id.size() % 3 == 0 ? "the same" : std::to_string(number % 3) + ":" + id;
}

class ScriptedCatalog : public CCmnMessageCatalog {
 public:
  ScriptedCatalog(World& world, const std::string& language)
      : CCmnMessageCatalog(language, "scripted"), m_world(world), m_number(world.made++) {
    ++m_world.alive;
  }
  ~ScriptedCatalog() override { --m_world.alive; }

  int init() override {
    m_world.calls.push_back("init " + m_language);
    return m_world.fails(m_number) ? 3 : 0;
  }

  tstr getMessage(const std::string& id, const char* defaultText) const override {
    m_world.calls.push_back("message of " + std::to_string(m_number));
    const auto text =
        defaultText == nullptr ? std::nullopt : std::optional<std::string>(defaultText);
    return tstr(catalogText(m_number, id, text).c_str());
  }

 private:
  World& m_world;
  int m_number;
};

// Its text is its identifier.
class ScriptedMessage : public CCmnMessage {
 public:
  explicit ScriptedMessage(const std::string& id) : CCmnMessage(id, 0, "", 0) {}
  SCmnMessageInfo* serialize() override { return nullptr; }
  void deserialize(const SCmnMessageInfo* info) override { m_messageId = info->text; }
  tstr formatMessage(tstr pattern) override {
    return tstr(("(" + std::string(pattern.c_str()) + ")").c_str());
  }
};

class ScriptedFactory : public CCmnMessageCatalogFactory {
 public:
  explicit ScriptedFactory(World& world) : m_world(world) {}

  CCmnMessageCatalogPtr createCatalog(const char* language) override {
    m_world.calls.push_back(std::string("catalog ") + language);
    return new ScriptedCatalog(m_world, language);
  }
  CCmnMessagePtr createMessage(const SCmnMessageInfo* info) override {
    m_world.calls.push_back(std::string("message ") + info->text);
    CCmnMessagePtr message(new ScriptedMessage(""));
    message->deserialize(info);
    return message;
  }
  std::string getDefaultLanguage() override {
    m_world.calls.emplace_back("default");
    return m_world.defaultLanguage;
  }

 private:
  World& m_world;
};

// ---- the plain manager

class PlainManager {
 public:
  explicit PlainManager(const World& world) : m_world(world) {}

  void registerFactory() {
    m_hasFactory = true;
    activate(defaultLanguage());
  }

  void activate(const std::string& language) {
    if (!m_hasFactory || m_catalogs.count(language) != 0) {
      return;
    }
    const int number = m_made++;
    calls.push_back("catalog " + language);
    calls.push_back("init " + language);
    if (!m_world.fails(number)) {
      m_catalogs[language] = number;
    }
  }

  std::string message(const std::string& id, const std::optional<std::string>& text,
                      std::string language) {
    if (m_hasFactory) {
      language = language.empty() ? defaultLanguage() : language;
      activate(language);
      if (m_catalogs.count(language) == 0) {
        language = defaultLanguage();
      }
      if (m_catalogs.count(language) != 0) {
        calls.push_back("message of " + std::to_string(m_catalogs[language]));
        return catalogText(m_catalogs[language], id, text);
      }
    }
    return text ? *text : "<" + id + ">";
  }

  std::string localized(const std::string& id, const std::string& language) {
    return "(" + message(id, std::nullopt, language) + ")";
  }

  std::string meant(const std::optional<std::string>& language) const {
    if (!language) {
      return std::string();
    }
    return *language == "native" ? native : *language;
  }

  // The text with the smallest key goes.
  void forget(const std::string& text) {
    for (auto kept = texts.begin(); kept != texts.end(); ++kept) {
      if (kept->second == text) {
        texts.erase(kept);
        return;
      }
    }
  }

  bool hasFactory() const { return m_hasFactory; }
  size_t activeCatalogs() const { return m_catalogs.size(); }

  std::map<std::string, std::string> texts;
  std::string native;
  std::vector<std::string> calls;

 private:
  std::string defaultLanguage() {
    calls.emplace_back("default");
    return m_world.defaultLanguage;
  }

  const World& m_world;
  std::map<std::string, int> m_catalogs;
  bool m_hasFactory = false;
  int m_made = 0;
};

// ---- the script

std::optional<std::string> someLanguage(Input& input) {
  constexpr const char* languages[] = {"", "en", "de", "ja", "native", "Native"};
  const size_t chosen = input.upTo(std::size(languages) + 1);
  if (chosen == std::size(languages)) {
    return std::nullopt;
  }
  return chosen < std::size(languages) ? languages[chosen] : input.text();
}

const char* orNull(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

class Script {
 public:
  void step(Input& input) {
    switch (input.upTo(9)) {
      case 0:
        m_world.failing = input.number<unsigned int>();
        break;
      case 1:
        m_world.defaultLanguage = someLanguage(input).value_or("");
        break;
      case 2:
        m_manager.registerFactory(&m_factories[input.upTo(1)]);
        m_plain.registerFactory();
        break;
      case 3: {
        const std::string language = someLanguage(input).value_or("");
        m_manager.activateCatalog(language);
        m_plain.activate(language);
        break;
      }
      case 4:
        expectMessage(input);
        break;
      case 5:
        expectLocalized(input);
        break;
      case 6:
        handOutId(input);
        break;
      case 7:
        handOutMessage(input);
        break;
      case 8:
        giveBack(input);
        break;
      default:
        setNative(input);
    }
    expectAll();
  }

 private:
  void expectMessage(Input& input) {
    const std::string id = input.text();
    const auto text = input.choice() ? std::optional<std::string>(input.text()) : std::nullopt;
    const std::string language = someLanguage(input).value_or("");
    const tstr message = m_manager.getMessage(id, orNull(text), language);
    expect(message.c_str() == m_plain.message(id, text, language), "the plain manager's message");
  }

  void expectLocalized(Input& input) {
    const std::string id = input.text();
    const std::string language = someLanguage(input).value_or("");
    CCmnMessagePtr message(new ScriptedMessage(id));
    const tstr text = m_manager.getLocalizedMessage(message, language.c_str());
    expect(text.c_str() == m_plain.localized(id, language), "the plain manager's text");
  }

  void handOutId(Input& input) {
    const std::string id = input.text();
    const auto language = someLanguage(input);
    char* result = nullptr;
    m_manager.getLocalizedMessage(id.c_str(), orNull(language), &result);
    keep(id, m_plain.message(id, std::nullopt, m_plain.meant(language)), result);
  }

  void handOutMessage(Input& input) {
    std::string text = input.text();
    const auto language = someLanguage(input);
    if (!m_plain.hasFactory()) {
      return;
    }
    SCmnMessageInfo info{text.data(), -1};
    char* result = nullptr;
    m_manager.getLocalizedMessage(&info, orNull(language), &result);
    m_plain.calls.push_back("message " + text);
    keep(text, m_plain.localized(text, m_plain.meant(language)), result);
  }

  void keep(const std::string& key, const std::string& text, char* result) {
    m_plain.texts[key] = text;
    m_handedOut[key] = result;
  }

  // One of those that were handed out, some other text, or null.
  void giveBack(Input& input) {
    const size_t chosen = input.upTo(20);
    std::string other = chosen == 0 ? input.text() : std::string();
    char* given = chosen == 0 ? other.data() : nullptr;
    if (chosen > 1 && chosen - 2 < m_handedOut.size()) {
      given = std::next(m_handedOut.begin(), static_cast<std::ptrdiff_t>(chosen - 2))->second;
    }
    const std::string text = given == nullptr ? "" : given;
    char* const before = given;
    m_manager.deleteLocalizedMessage(&given);
    expect(given == before, "the caller's pointer stays");
    m_plain.forget(text);
  }

  void setNative(Input& input) {
    m_plain.native = someLanguage(input).value_or("");
    m_manager.setNativeLanguage(m_plain.native.c_str());
  }

  void expectAll() {
    expect(m_manager.getNativeLanguage() == m_plain.native, "the native language");
    expect(m_world.calls == m_plain.calls, "the plain manager's calls of the host");
    m_world.calls.clear();
    m_plain.calls.clear();
    expect(static_cast<size_t>(m_world.alive) == m_plain.activeCatalogs(),
           "the active catalogs live, and no others");
    for (auto kept = m_handedOut.begin(); kept != m_handedOut.end();) {
      kept = m_plain.texts.count(kept->first) == 0 ? m_handedOut.erase(kept) : std::next(kept);
    }
    for (const auto& [key, text] : m_handedOut) {
      expect(text == m_plain.texts[key], "each text as long as it is kept");
    }
  }

  World m_world;
  ScriptedFactory m_factories[2] = {ScriptedFactory(m_world), ScriptedFactory(m_world)};
  PlainManager m_plain{m_world};
  CCmnMessageCatalogManager m_manager;
  std::map<std::string, char*> m_handedOut;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  Script script;
  while (!input.empty()) {
    script.step(input);
  }
  return 0;
}
