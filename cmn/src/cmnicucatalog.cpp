#include "cmnicucatalog.h"

#include "cmnacestring.h"
#include "cmnpathtool.h"
#include "cmnstringtool.h"

#include <unicode/locid.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>

#include <new>

namespace kelp_cmn_4_4 {
namespace {

// ICU makes a bogus locale, which stands for the root, of a name that it refuses and for lack of
// memory alike. Only the first is to have a bundle.
bool hadNoMemory(const icu::Locale& locale, const char* name) {
  if (!locale.isBogus()) {
    return false;
  }
  UErrorCode status = U_ZERO_ERROR;
  uloc_getName(name, nullptr, 0, &status);
  if (status != U_BUFFER_OVERFLOW_ERROR) {
    return status == U_MEMORY_ALLOCATION_ERROR;
  }
  status = U_ZERO_ERROR;
  return uloc_getLanguage(name, nullptr, 0, &status) < ULOC_LANG_CAPACITY;
}

// Null where there was no memory for it.
icu::ResourceBundle* openBundle(const char* path, const char* language, UErrorCode& status) {
  const icu::Locale locale(language);
  return hadNoMemory(locale, language) ? nullptr : new icu::ResourceBundle(path, locale, status);
}

}  // namespace

int CCmnIcuMessageCatalog::init() try {
  tstr directory;
  tstr file;
  CCmnPathTool::getMessageFileInfo(m_catalogName, directory, file);  // never fails
  assign(m_bundlePath, joined(directory, file));
  UErrorCode status = U_ZERO_ERROR;
  icu::ResourceBundle* const bundle = openBundle(m_bundlePath.c_str(), m_language.c_str(), status);
  if (bundle == nullptr) {
    return catalogUnusable;
  }
  // Deliberate: the bundle of an earlier call is not freed. A host that opens a catalog anew beside
  // look-ups in it loses some memory by that, and not the process. And one that fails below is
  // kept, as its texts are better than none.
  m_bundle = bundle;
  // Deliberate: a parent's bundle (U_USING_FALLBACK_WARNING) is a failure, the default locale's is
  // not. In place of a parent the manager asks the host's own default language.
  return status == U_ZERO_ERROR || status == U_USING_DEFAULT_WARNING ? catalogOk : catalogUnusable;
} catch (const std::bad_alloc&) {
  return catalogUnusable;
}

tstr CCmnIcuMessageCatalog::getMessage(const std::string& id, const char* defaultText) const {
  if (m_bundle != nullptr) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text = m_bundle->getStringEx(id.c_str(), status);
    if (U_SUCCESS(status)) {
      return joined(m_catalogName, ": ", CCmnStringTool::ustr2str(text).c_str());
    }
    if (status == U_MEMORY_ALLOCATION_ERROR) {
      throw std::bad_alloc();
    }
  }
  // Deliberate: without the catalog's name. The default text is the caller's own, and complete.
  if (defaultText != nullptr) {
    return copied(defaultText);
  }
  return joined(m_catalogName, ": <", id.c_str(), ">");
}

CCmnIcuMessageCatalog::~CCmnIcuMessageCatalog() { delete m_bundle; }

}  // namespace kelp_cmn_4_4
