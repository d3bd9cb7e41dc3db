/**
 * @file cmnmsgcatalog.h
 * @brief The abstract message catalog.
 */
#ifndef CMNMSGCATALOG_H
#define CMNMSGCATALOG_H

#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmnsmartptr.h"
#include "cmntypes.h"

#include <new>
#include <string>

namespace kelp_cmn_4_4 {

/** @name Statuses of CCmnMessageCatalog::init() */
///@{
constexpr int catalogOk = 0;        ///< the catalog can be used
constexpr int catalogUnusable = 3;  ///< it cannot; from CCmnIcuMessageCatalog
///@}

/**
 * Turns message identifiers into the localized patterns of one language.
 *
 * A host's CCmnMessageCatalogFactory makes catalogs; CCmnMessageCatalogManager calls init() once
 * and, where that gave 0, asks for texts from then on. Catalogs are shared through holders
 * (CCmnMessageCatalogPtr), and cannot be copied.
 */
class KELP_CMN_API CCmnMessageCatalog : public virtual CCmnRefCount {
 public:
  /**
   * Keeps both names for the derived catalog.
   * @param language     the language served, an ICU locale name such as "ja"
   * @param catalogName  the message file's base name
   * @throw std::bad_alloc  also for a name that its maker had no memory for (`c_str()` is null)
   */
  CCmnMessageCatalog(const std::string& language, const tstr& catalogName)
      : m_language(language), m_catalogName(catalogName) {
    // What ACE leaves where there was no memory for the name.
    if (catalogName.c_str() == nullptr || m_catalogName.c_str() == nullptr) {
      throw std::bad_alloc();
    }
  }

  /**
   * Sets the catalog up. This one needs no setup.
   * @return catalogOk; a derived catalog that cannot be used returns something else
   */
  virtual int init();

  /**
   * Looks up the pattern of a message. May be called by several threads at once if the derived
   * catalog says so.
   * @param id           the identifier
   * @param defaultText  what to return for an unknown identifier; may be null
   * @return the pattern; the caller's own
   */
  virtual tstr getMessage(const std::string& id, const char* defaultText) const = 0;

  // Deliberate: declared behind getMessage(). Hosts' virtual tables have it there.
  ~CCmnMessageCatalog() override;

 protected:
  /** The language served. */
  std::string m_language;
  /** Where the resource bundle is; set by init() of the derived catalog. */
  tstr m_bundlePath;
  /** The message file's base name. */
  tstr m_catalogName;
};

/** A holder of a catalog, as CCmnMessageCatalogManager keeps and its factory gives it. */
using CCmnMessageCatalogPtr =
    CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;

}  // namespace kelp_cmn_4_4

#endif
