#include "cmnmsgcatalogmgr.h"

#include "cmnacestring.h"
#include "cmnstringtool.h"

#include <algorithm>
#include <string_view>

namespace kelp_cmn_4_4 {

template class CCmnContextSingletonAllocator<CCmnMessageCatalogManager>;

namespace {

tstr fallbackText(const std::string& id, const char* defaultText) {
  if (defaultText != nullptr) {
    return copied(defaultText);
  }
  return joined("<", CCmnStringTool::str2tstr(id), ">");
}

// Deliberate: only the two operations that give out a char* take null, for the default, and
// "native". The others use a language as it is, which may come from elsewhere and be of any name.
std::string languageMeant(const char* language, const std::string& nativeLanguage) {
  if (language == nullptr) {
    return std::string();
  }
  return std::string_view(language) == "native" ? nativeLanguage : language;
}

char* keep(std::map<std::string, tstr>& texts, const std::string& key, const tstr& text) {
  tstr copy = copied(text);
  // Deliberate: ends the text that the key had before. So no more is kept than there are keys,
  // whatever callers forget to give back.
  tstr& kept = texts[key];
  kept.swap(copy);
  return const_cast<char*>(kept.c_str());
}

}  // namespace

CCmnMessageCatalogFactory::~CCmnMessageCatalogFactory() = default;

CCmnMessageCatalogManager::CCmnMessageCatalogManager() : m_factory(nullptr) {}

CCmnMessageCatalogManager::~CCmnMessageCatalogManager() = default;

void CCmnMessageCatalogManager::registerFactory(CCmnMessageCatalogFactory* factory) {
  // Deliberate: catalogs of an earlier factory stay active. They serve their languages,
  // whoever made them.
  m_factory = factory;
  activateCatalog(m_factory->getDefaultLanguage());
}

void CCmnMessageCatalogManager::activateCatalog(std::string language) {
  if (m_factory == nullptr || m_catalogs.count(language) != 0) {
    return;
  }
  const CCmnMessageCatalogPtr catalog = m_factory->createCatalog(language.c_str());
  // Deliberate: a catalog that fails is not remembered. The next request tries it again, and may
  // find the memory, or the file, that this one lacks.
  if (catalog->init() == catalogOk) {
    m_catalogs[language] = catalog;
  }
}

tstr CCmnMessageCatalogManager::getMessage(const std::string& id, const char* defaultText,
                                           std::string language) {
  if (m_factory == nullptr) {
    return fallbackText(id, defaultText);
  }
  if (language.empty()) {
    language = m_factory->getDefaultLanguage();
  }
  activateCatalog(language);
  auto found = m_catalogs.find(language);
  if (found == m_catalogs.end()) {
    const std::string defaultLanguage = m_factory->getDefaultLanguage();
    // Deliberate: not activated here. A request for one language does not load another one.
    found = defaultLanguage == language ? m_catalogs.end() : m_catalogs.find(defaultLanguage);
  }
  if (found == m_catalogs.end()) {
    return fallbackText(id, defaultText);
  }
  const CCmnMessageCatalogPtr catalog = found->second;
  return catalog->getMessage(id, defaultText);
}

tstr CCmnMessageCatalogManager::getLocalizedMessage(CCmnMessagePtr& message, const char* language) {
  return message->formatMessage(getMessage(message->getMessageId(), nullptr, language));
}

void CCmnMessageCatalogManager::getLocalizedMessage(const char* id, const char* language,
                                                    char** result) {
  const tstr text = getMessage(id, nullptr, languageMeant(language, m_nativeLanguage));
  *result = keep(m_localizedMessages, id, text);
}

void CCmnMessageCatalogManager::getLocalizedMessage(SCmnMessageInfo* info, const char* language,
                                                    char** result) {
  const std::string meant = languageMeant(language, m_nativeLanguage);
  const tstr text = [&] {
    CCmnMessagePtr message = m_factory->createMessage(info);
    return getLocalizedMessage(message, meant.c_str());
  }();
  *result = keep(m_localizedMessages, info->text, text);
}

void CCmnMessageCatalogManager::deleteLocalizedMessage(char** result) {
  // Deliberate: found by its content, and `*result` stays: callers give back copies of theirs, too.
  const std::string_view wanted = *result == nullptr ? std::string_view() : *result;
  const auto found = std::find_if(m_localizedMessages.begin(), m_localizedMessages.end(),
                                  [wanted](const auto& kept) {
                                    const tstr& text = kept.second;
                                    return std::string_view(text.c_str(), text.length()) == wanted;
                                  });
  if (found != m_localizedMessages.end()) {
    m_localizedMessages.erase(found);
  }
}

const char* CCmnMessageCatalogManager::getNativeLanguage() { return m_nativeLanguage.c_str(); }

void CCmnMessageCatalogManager::setNativeLanguage(const char* language) {
  m_nativeLanguage = language;
}

}  // namespace kelp_cmn_4_4
