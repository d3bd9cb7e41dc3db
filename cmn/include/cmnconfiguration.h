/**
 * @file cmnconfiguration.h
 * @brief Sectioned key/value settings, read from and written to a file.
 */
#ifndef CMNCONFIGURATION_H
#define CMNCONFIGURATION_H

#include "cmnerror.h"
#include "cmnexport.h"
#include "cmntypes.h"

#include <ace/Configuration.h>

#include <vector>

namespace kelp_cmn_4_4 {

/**
 * A store of settings in sections, kept in memory in an ACE configuration heap.
 *
 * The file format is that of `ACE_Registry_ImpExp`: a line with a section's path in square
 * brackets, nested names separated by backslashes, then a line for each value: the name in double
 * quotes, "=", and a text in double quotes or `dword:` with eight hexadecimal digits. What ACE does
 * with such a file holds here too: the last line needs its line end; a section line without its
 * closing bracket, or a value before any section, ends the import with what came before it already
 * applied; other lines that are no values are passed over; and a line end inside a value, or a
 * double quote inside a name, breaks the file that it is exported to. In a file a slash separates
 * nested names, too, so that a section whose own name holds one comes back as two. Values in
 * ACE's older form are read as well: `NAME="TEXT`, which has no closing quote, and `NAME=#NUMBER`,
 * which is decimal.
 *
 * Names that differ in case alone are not told apart, as ACE compares them. A value keeps the name
 * that it was first set under; a section beside one of another case is refused as a rule (by an
 * import with -3), and now and then is that one. A name that is longer than ACE's limit of 255
 * bytes is refused.
 *
 * A settings file must be the host product's own. One that holds a zero byte is refused as a whole,
 * because ACE would crash on it or misplace its values: so is a file that was saved as UTF-16.
 * Other files can still cost much. A section line with thousands of nested names takes memory with
 * the square of their number (10,000 take 140 MB, and 460 MB when exported), tens of thousands of
 * values in one section take minutes, and a line of 2 GiB ends the process. A file that is no
 * regular one, such as a pipe, is not looked at before.
 *
 * The store remembers the file that it was loaded from and the section last opened, on which the
 * one-name getters and setters work. Nothing is written unless exportConfig() is called.
 *
 * A status of 0 is success; any other is negative and that of the ACE call, or of `access`, that
 * failed, passed through unchanged. Section and value names must not be null. Nothing is thrown but
 * std::bad_alloc. A store is used by one thread at a time. It cannot be copied. Getters leave their
 * out parameter as it was when they fail. Before any section was opened, the one-name getters and
 * setters fail and there is nothing to enumerate.
 *
 * Where memory fails, no text is read or kept that is cut: std::bad_alloc leaves, or the heap's
 * status says so. What ACE does by itself then cannot be helped. Opening the heap, making a
 * section, importing and exporting may end the process, an import may give 0 and have lost values,
 * a list of sections may be too short, and a section that was half made is refused ever after, by
 * openSection() as well as by every import that holds it (-3): use a new store. Nor does ACE tell
 * an error while it reads a file from the file's end.
 */
class KELP_CMN_API CCmnConfiguration {
 public:
  /**
   * Opens an empty store. A failure shows in getLastError() only, as "Failed to open configuration
   * heap". Every operation of such a store fails: with -1, or with an empty list.
   */
  CCmnConfiguration();

  /**
   * Opens a store for a file.
   * @param dir     as for importConfig()
   * @param file    the file's name; null counts as empty
   * @param import  whether to load the file now, as importConfig() does, a failure showing in
   *                getLastError() only; otherwise the names are just kept, unverified, and a later
   *                exportConfig() creates the file
   */
  CCmnConfiguration(const char* dir, const char* file, bool import);

  /** Discards what was not exported. */
  ~CCmnConfiguration();

  CCmnConfiguration(const CCmnConfiguration&) = delete;
  CCmnConfiguration& operator=(const CCmnConfiguration&) = delete;

  /**
   * The heap itself, for callers that need ACE's own interface; lives as long as the store. One
   * that could not be opened is lent as well: ACE does not check that, and crashes.
   */
  ACE_Configuration_Heap& configHeap();

  /**
   * Loads a file into the heap. Values add to, and replace, what the heap already holds.
   * @param dir   the file's directory; joined with the name as it is, so it should end with "/";
   *              null counts as empty, which is no directory: the current one is "./"
   * @param file  the file's name; null counts as empty
   * @return 0; -1 when the directory or the file does not exist, or when the file holds a zero
   *         byte or cannot be searched for one, which leaves the heap as it was; else the status
   *         of ACE's import: -1 when the file cannot be opened, -3 for a bad section line, -4 for a
   *         value that cannot be set, such as one before any section. The names are kept, whatever
   *         the result, and a failure is recorded.
   */
  int importConfig(const char* dir, const char* file);

  /**
   * Writes every section of the heap to the file last named, in place: a crash, a full disk or a
   * lack of memory leaves a file that is not whole.
   *
   * The file is rewritten, whatever it held. Only what an import has read, or a setter set, stands
   * in it: no comments, no empty lines, no lines that ACE passes over, nothing behind a line that
   * ended the import. Sections and values come in the heap's order, not in that of the file, each
   * parent of a nested section with a line of its own; ACE's older forms come in the newer one.
   * Owner and mode of an existing file stay.
   * @return 0, else the status of ACE's export: -1 when the file cannot be opened, below -1 when it
   *         cannot be written
   * @throw std::bad_alloc if ACE gives 0, but had no memory for all of it
   */
  int exportConfig();

  /**
   * Opens a section and, on success, makes it the current one.
   * @param base    the section below which to look
   * @param name    a section's name, or a path of names separated by backslashes; not empty
   * @param result  receives the section's key. A failure changes it, too, mostly: it is then the
   *                key of `base`, or of the last section on the path that was there
   * @param create  non-zero to create what is missing, 0 not to
   * @return 0, else the heap's status; the current section then stays
   */
  int openSection(const ACE_Configuration_Section_Key& base, const char* name,
                  ACE_Configuration_Section_Key& result, int create);

  /** The same below the root section. */
  int openSection(const char* name, ACE_Configuration_Section_Key& result, int create);

  /**
   * Reads a text of the current section.
   * @param name   the value's name
   * @param value  receives the text
   * @return 0, else the heap's status: missing, or not a text
   */
  int getStringValue(const char* name, tstr& value);

  /** Writes a text into the current section. @return 0, else the heap's status */
  int setStringValue(const char* name, const tstr& value);

  /**
   * Reads a number of the current section.
   * @param name   the value's name
   * @param value  receives the number
   * @return 0, else the heap's status: missing, or not a number
   */
  int getIntegerValue(const char* name, unsigned int& value);

  /** Writes a number into the current section. @return 0, else the heap's status */
  int setIntegerValue(const char* name, unsigned int value);

  /**
   * Reads a text of a named section. The section is created when it is missing, and stays the
   * current one afterwards; both are meant. The same holds for the number below.
   * @param section  the section below the root, as for openSection()
   * @param name     the value's name
   * @param value    receives the text
   * @return 0, else the heap's status
   */
  int getStringValue(const char* section, const char* name, tstr& value);

  /** Reads a number of a named section. @return 0, else the heap's status */
  int getIntegerValue(const char* section, const char* name, unsigned int& value);

  /**
   * The names of a section's subsections, in the heap's order; those gathered so far when the heap
   * fails. The key must be this store's.
   */
  std::vector<tstr> enumerateSections(const ACE_Configuration_Section_Key& key);

  /** The same for the current section. */
  std::vector<tstr> enumerateSections();

  /**
   * The last failure that was recorded: the heap could not be opened, a path is missing, or an
   * import failed. Its code is the status that was returned. Code 0 and empty texts as long as
   * there was none. A later success does not clear it, on purpose.
   * @return a reference that lives as long as the store
   */
  const CCmnError& getLastError() const { return m_lastError; }

 private:
  CCmnError m_lastError;
  ACE_Configuration_Heap m_heap;
  tstr m_configDir;
  tstr m_configFile;
  tstr m_configPath;
  ACE_Configuration_Section_Key m_currentSection;
};

}  // namespace kelp_cmn_4_4

#endif
