/**
 * @file cmnmsgcatalogmgr.h
 * @brief From message identifiers, messages and serialized messages to localized texts.
 */
#ifndef CMNMSGCATALOGMGR_H
#define CMNMSGCATALOGMGR_H

#include "cmnexport.h"
#include "cmnmessage.h"
#include "cmnmsgcatalog.h"
#include "cmnrefcount.h"
#include "cmnsmartptr.h"
#include "cmntypes.h"

#include <map>
#include <string>

namespace kelp_cmn_4_4 {

/**
 * What a host implements so that a CCmnMessageCatalogManager can make catalogs and messages.
 *
 * @code
 * #include <cmnicucatalog.h>
 * #include <cmnicumessage.h>
 * #include <cmnmsgcatalogmgr.h>
 *
 * using namespace kelp_cmn_4_4;
 *
 * class Factory : public CCmnMessageCatalogFactory {
 *  public:
 *   CCmnMessageCatalogPtr createCatalog(const char* language) override {
 *     return new CCmnIcuMessageCatalog(language, "msgs");
 *   }
 *   CCmnMessagePtr createMessage(const SCmnMessageInfo* info) override {
 *     CCmnMessagePtr message(new CCmnIcuMessage);
 *     message->deserialize(info);
 *     return message;
 *   }
 *   std::string getDefaultLanguage() override { return "en"; }
 * };
 * @endcode
 */
class KELP_CMN_API CCmnMessageCatalogFactory {
 public:
  /** The manager never destroys its factory. */
  virtual ~CCmnMessageCatalogFactory();

  /**
   * Makes a catalog, without calling its init().
   * @param language  the language; the manager's, valid during the call
   * @return a full holder of a catalog made with `new`
   */
  virtual CCmnMessageCatalogPtr createCatalog(const char* language) = 0;

  /**
   * Makes a message from a serialized one.
   * @param info  the record that the manager was given
   * @return a full holder of a message made with `new`
   */
  virtual CCmnMessagePtr createMessage(const SCmnMessageInfo* info) = 0;

  /** The language where none is given, and where the given one has no catalog. */
  virtual std::string getDefaultLanguage() = 0;
};

/**
 * Gives localized texts: one catalog for each language, made through the host's factory on first
 * need and kept.
 *
 * No operation reports an error: what is not found comes back as the default text, or as the
 * identifier between "<" and ">", with the catalog's name and ": " before it where a catalog was
 * asked. A language whose catalog fails is tried again on every request.
 *
 * A catalog that is active answers alone. For a key that it has not, the default language is not
 * asked, only what ICU itself looks through: the parents of the language, and the root. Nor is it
 * asked for a language without a file where there is a root file, or one of the process's default
 * locale: CCmnIcuMessageCatalog counts these as usable.
 *
 * Where memory fails, std::bad_alloc leaves; a catalog whose init() met that is tried again.
 *
 * The two operations with a `char** result` hand out texts that the manager owns, kept under the
 * identifier or the serialized text. Such a text is valid until it, or an equal one, is given back
 * with deleteLocalizedMessage(), until the same identifier (or the same serialized text) is asked
 * for again, in whatever language, or until the manager's end. Callers never free it. What is not
 * given back stays. If something is thrown, `*result` and the texts stay as they were.
 *
 * A manager is used by one thread at a time. It cannot be copied.
 */
class KELP_CMN_API CCmnMessageCatalogManager : public virtual CCmnRefCount {
 public:
  /** No factory, no catalog, no native language. */
  CCmnMessageCatalogManager();

  /** Lets go of the catalogs and frees every text handed out. The factory is not touched. */
  ~CCmnMessageCatalogManager() override;

  /**
   * Uses this factory from now on, in place of an earlier one, and activates the catalog of its
   * default language. Catalogs that are active stay.
   * @param factory  not null; stays the caller's, and must live as long as the manager is used
   */
  void registerFactory(CCmnMessageCatalogFactory* factory);

  /**
   * Makes a catalog for the language and initialises it, unless one is active already. Does nothing
   * without a factory. A catalog whose init() does not give 0 is dropped.
   * @param language  passed to the factory as it is, also if empty
   */
  void activateCatalog(std::string language);

  /**
   * Looks up the pattern of a message, in the catalog of the language, which is activated if need
   * be, or else in that of the default language if it is active already.
   * @param id           the identifier
   * @param defaultText  what to return for an unknown identifier, or where there is no catalog;
   *                     may be null
   * @param language     the language; empty for the factory's default language. "native" is not
   *                     replaced here.
   * @return what the catalog's getMessage() gives, with CCmnIcuMessageCatalog "NAME: <ID>" for an
   *         unknown identifier without a default text; without a catalog `defaultText`, or, where
   *         that is null, the identifier between "<" and ">"
   */
  tstr getMessage(const std::string& id, const char* defaultText, std::string language);

  /**
   * Localizes a message.
   * @param message   a full holder
   * @param language  as for getMessage(); must not be null
   * @return the message's formatMessage() of the pattern for its identifier
   */
  tstr getLocalizedMessage(CCmnMessagePtr& message, const char* language);

  /**
   * Looks up the pattern of a message, as a C string; its places for arguments are left
   * as they are.
   * @param id        the identifier, not null; the text is kept under it
   * @param language  null or empty for the default language, "native" (in just these letters) for
   *                  the native one
   * @param result    not null; receives the text, which is the manager's; do not change it
   */
  void getLocalizedMessage(const char* id, const char* language, char** result);

  /**
   * Localizes a serialized message. Needs a factory.
   * @param info      the record, whose text is not null; the result is kept under the whole text
   * @param language  as for the identifier
   * @param result    not null; receives the text, which is the manager's; do not change it
   * @throw std::out_of_range for some malformed texts, if the factory's createMessage() does; what
   *        else that throws leaves, too
   */
  void getLocalizedMessage(SCmnMessageInfo* info, const char* language, char** result);

  /**
   * Gives back a text that one of the two operations above handed out, and so ends its life.
   *
   * It is found by its content: of several equal texts the one with the smallest key goes, which
   * need not be the one handed out, and an equal text of the caller's own does as well.
   * @param result  points to the text, or to null for the empty text; `*result` stays. A text that
   *                the manager does not keep changes nothing.
   */
  void deleteLocalizedMessage(char** result);

  /**
   * What "native" stands for.
   * @return the language that "native" stands for, empty at first; the manager's, never null, valid
   *         until setNativeLanguage() or the manager's end
   */
  const char* getNativeLanguage();

  /**
   * Says what "native" stands for.
   * @param language  the language that "native" stands for from now on; copied; not null; empty for
   *                  the default language
   */
  void setNativeLanguage(const char* language);

 private:
  std::map<std::string, CCmnMessageCatalogPtr> m_catalogs;
  CCmnMessageCatalogFactory* m_factory;
  std::map<std::string, tstr> m_localizedMessages;
  std::string m_nativeLanguage;
};

/** The process's one manager is the library's: hosts and plugins share this instantiation. */
extern template class KELP_CMN_API CCmnContextSingletonAllocator<CCmnMessageCatalogManager>;

}  // namespace kelp_cmn_4_4

#endif
