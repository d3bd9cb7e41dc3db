/**
 * @file cmnicucatalog.h
 * @brief The message catalog in an ICU resource bundle.
 */
#ifndef CMNICUCATALOG_H
#define CMNICUCATALOG_H

#include "cmnexport.h"
#include "cmnmsgcatalog.h"

#include <unicode/resbund.h>

namespace kelp_cmn_4_4 {

/**
 * A catalog whose texts are the strings of an ICU resource bundle.
 *
 * The bundle of catalog NAME is opened as the package "/usr/tulsk/resources/libNAME": a directory
 * of that name with a file LANGUAGE.res for each language and root.res, or a file libNAME.dat that
 * packs these. The keys are message identifiers, the values ICU message patterns.
 *
 * ICU's own tools `genrb` and `icupkg` make these files. Files of a directory win over those of a
 * package. A file that is in no directory of that name is looked for in the directories of the
 * environment variable ICU_DATA, too, before the package: `u_setDataDirectory("")` before the first
 * catalog closes that way.
 *
 * ICU maps the files. No descriptor stays open, but the mapping outlives the catalog: until
 * `u_cleanup()` or the end of the process. A file that is cut or rewritten in place kills the
 * process with SIGBUS; replace it by renaming another one. What was replaced is not noticed, and
 * ICU remembers for the life of the process that a bundle was not there: one that is installed
 * later is not seen.
 *
 * ICU takes a file that it cannot read for one that is not there, and does not check what stands
 * behind a file's header. One that was cut off mostly opens, and its missing texts come from the
 * root; other damage can crash the process. So bundles must be the host product's own.
 */
class KELP_CMN_API CCmnIcuMessageCatalog : public CCmnMessageCatalog {
 public:
  /**
   * A catalog without a bundle, until init() opens it.
   * @param language     the language served, an ICU locale name such as "ja"
   * @param catalogName  the message file's base name, without "lib"; stands before every text found
   *                     and every marker
   */
  CCmnIcuMessageCatalog(const std::string& language, const tstr& catalogName)
      : CCmnMessageCatalog(language, catalogName), m_bundle(nullptr) {}

  /**
   * Opens the bundle. A second call opens it anew and gives up the first one without freeing it.
   * The directory of the resources is created if it is missing. Not to be called while anybody else
   * uses the catalog.
   * @return catalogOk if the bundle has the very language, or if ICU had to take the process's
   *         default locale or the root for it (U_USING_DEFAULT_WARNING). catalogUnusable for
   *         everything else, also for lack of memory (a later call may succeed), and if it has only
   *         a parent of the language (U_USING_FALLBACK_WARNING): that is meant. "de" is a parent of
   *         "de_AT"; of a language in another script than its usual one, such as "zh_Hant", "zh_TW"
   *         or "sr_Latn", the root is, which otherwise counts as usable.
   */
  int init() override;

  /**
   * Looks up a text. Does not change the catalog: as safe in several threads as
   * `icu::ResourceBundle::getStringEx` on one bundle.
   * @param id           the key
   * @param defaultText  what to return where there is no bundle or no such string; may be null
   * @return the catalog's name, ": " and the text in UTF-8. Without a text: `defaultText` alone;
   *         where that is null, the catalog's name, ": " and the identifier between "<" and ">".
   * @throw std::bad_alloc if there is no memory for the text
   */
  tstr getMessage(const std::string& id, const char* defaultText) const override;

  /** Closes the bundle. */
  ~CCmnIcuMessageCatalog() override;

 private:
  icu::ResourceBundle* m_bundle;
};

}  // namespace kelp_cmn_4_4

#endif
