#include "cmnicucatalog.h"

#include "cmnpathtool.h"
#include "cmnstringtool.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace kelp_cmn_4_4 {
namespace {

constexpr int initFailed = 3;

}  // namespace

int CCmnIcuMessageCatalog::init() {
  tstr directory;
  tstr file;
  if (CCmnPathTool::getMessageFileInfo(m_catalogName, directory, file) != 0) {
    return initFailed;
  }
  m_bundlePath = directory + file;
  const icu::Locale locale(m_language.c_str());
  UErrorCode status = U_ZERO_ERROR;
  // The bundle of an earlier call is not freed, and a failing one is kept: both are meant.
  m_bundle = new icu::ResourceBundle(m_bundlePath.c_str(), locale, status);
  // A parent's bundle (U_USING_FALLBACK_WARNING) is a failure on purpose; the default locale's is
  // not.
  return status == U_ZERO_ERROR || status == U_USING_DEFAULT_WARNING ? 0 : initFailed;
}

tstr CCmnIcuMessageCatalog::getMessage(const std::string& id, const char* defaultText) const {
  if (m_bundle != nullptr) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text = m_bundle->getStringEx(id.c_str(), status);
    if (U_SUCCESS(status)) {
      return m_catalogName + ": " + CCmnStringTool::ustr2tstr(text);
    }
  }
  if (defaultText != nullptr) {
    return tstr(defaultText);
  }
  return m_catalogName + ": <" + CCmnStringTool::str2tstr(id) + ">";
}

CCmnIcuMessageCatalog::~CCmnIcuMessageCatalog() { delete m_bundle; }

}  // namespace kelp_cmn_4_4
