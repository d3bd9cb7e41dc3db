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
 * ICU's own tools `genrb` and `icupkg` make these files. ICU remembers for the life of the process
 * that a bundle was not there: one that is installed later is not seen. It takes a file that it
 * cannot read for one that is not there, and does not check what stands behind a file's header: a
 * damaged file can crash the process, so bundles must be the host product's own.
 */
class KELP_CMN_API CCmnIcuMessageCatalog : public CCmnMessageCatalog {
 public:
  /**
   * A catalog without a bundle, until init() opens it.
   * @param language     the language served, an ICU locale name such as "ja"
   * @param catalogName  the message file's base name, without "lib"; stands before every text
   *                     found and every marker
   */
  CCmnIcuMessageCatalog(const std::string& language, const tstr& catalogName)
      : CCmnMessageCatalog(language, catalogName), m_bundle(nullptr) {}

  /**
   * Opens the bundle. A second call opens it anew and gives up the first one without freeing it.
   * The directory of the resources is created if it is missing. Not to be called while anybody else
   * uses the catalog.
   * @return 0 if the bundle has the very language, or if ICU had to take the process's default
   *         locale or the root for it (U_USING_DEFAULT_WARNING). 3 for everything else, also if it
   *         has only a parent of the language, such as "de" for "de_AT" (U_USING_FALLBACK_WARNING):
   *         that is meant.
   */
  int init() override;

  /**
   * Looks up a text. Does not change the catalog: as safe in several threads as
   * `icu::ResourceBundle::getStringEx` on one bundle.
   * @param id           the key
   * @param defaultText  what to return where there is no bundle or no such string; may be null
   * @return the catalog's name, ": " and the text in UTF-8. Without a text: `defaultText` alone;
   *         where that is null, the catalog's name, ": " and the identifier between "<" and ">".
   */
  tstr getMessage(const std::string& id, const char* defaultText) const override;

  /** Closes the bundle. */
  ~CCmnIcuMessageCatalog() override;

 private:
  icu::ResourceBundle* m_bundle;
};

}  // namespace kelp_cmn_4_4

#endif
