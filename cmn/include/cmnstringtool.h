/**
 * @file cmnstringtool.h
 * @brief Conversions between the string types, numbers and text, trimming, case, search,
 *        duplicates, XML escaping, hexadecimal, tokens.
 */
#ifndef CMNSTRINGTOOL_H
#define CMNSTRINGTOOL_H

#include "cmnexport.h"
#include "cmntypes.h"

#include <unicode/unistr.h>

#include <string>
#include <vector>

namespace kelp_cmn_4_4 {

/**
 * Text functions. Static only; there are no objects of this class.
 *
 * The names abbreviate the string types:
 *
 * | name | type | content |
 * |---|---|---|
 * | str | std::string | bytes: with wstr in the locale's multibyte encoding, with ustr UTF-8 |
 * | wstr | std::wstring | 32-bit wide characters, as the platform's functions make them |
 * | tstr | the ACE string | bytes, always read as a NUL-terminated text |
 * | ustr | icu::UnicodeString | UTF-16 |
 *
 * A conversion that changes the type reads its input up to the first zero byte or character; but
 * ustr2str() and ustr2tstr() read all of it, and cut only the result at its first zero byte. The
 * locale is the process locale, LC_CTYPE and for doubles LC_NUMERIC, or the calling thread's own
 * after `uselocale`; it is only read. The ICU conversions are UTF-8 whatever the locale.
 *
 * Nothing throws on bad text, but str2binary() and wstr2binary() on an empty one. Where memory
 * cannot be had, also inside ACE and ICU, std::bad_alloc is thrown and the arguments are as they
 * were; the duplicates say what they do instead. Trimming, searching, replacing and tokenizing are
 * linear in the text and in what is removed, searched for or separates.
 *
 * All functions are reentrant and may be called from any thread, as long as no other changes the
 * locale. Only strdup(), wstrdup(), tstrdup() and tstrduplist() return something to be freed.
 */
class KELP_CMN_API CCmnStringTool {
 public:
  CCmnStringTool() = delete;

  /** @name Between str and wstr, by the process locale */
  ///@{

  /**
   * Widens a text by the locale.
   * @param text  multibyte text
   * @return the text in wide characters; empty if any of it is not valid in the locale, or if it
   *         ends inside a character. What is valid the platform says: in C.UTF-8 sequences of up to
   *         six bytes are, for numbers up to 0x7fffffff. So this does not tell whether a text is
   *         Unicode; str2ustr() does.
   */
  static std::wstring str2wstr(const std::string& text);

  /** The same as str2wstr(). */
  static std::wstring mbs2wcs(const std::string& text);

  /**
   * Narrows a text by the locale.
   * @param text  wide text
   * @return the text in the locale's multibyte encoding, up to the first character that the locale
   *         cannot represent. (What the platform wrote of that one stays: two bytes of U+327E in
   *         CP949.) At most 2 * text.length() + 2 bytes are made, on purpose: text that needs more
   *         is cut there, between two characters. What stands behind a zero character is not
   *         converted, but counts in that length.
   */
  static std::string wstr2str(const std::wstring& text);

  /** The same as wstr2str(). */
  static std::string wcs2mbs(const std::wstring& text);

  /** A copy of the argument: nothing is converted, zero characters stay. */
  static std::wstring str2wstr(const std::wstring& text);

  /** A copy of the argument: nothing is converted, zero bytes stay. */
  static std::string wstr2str(const std::string& text);

  ///@}
  /** @name To and from the ACE string */
  ///@{

  /**
   * Makes an ACE string.
   * @return the bytes up to the first zero byte, owned by the result, on ACE's default allocator
   * @throw std::bad_alloc where that gives null; a tstr by itself then only has a null c_str()
   */
  static tstr str2tstr(const std::string& text);

  /**
   * Copies the bytes of an ACE string.
   * @param text  its c_str() must not be null
   * @return the bytes up to the first zero byte
   */
  static std::string tstr2str(const tstr& text);

  /** tstr2str(), then str2wstr(). */
  static std::wstring tstr2wstr(const tstr& text);

  /** wstr2str(), then str2tstr(). */
  static tstr wstr2tstr(const std::wstring& text);

  ///@}
  /** @name To and from ICU's string, in UTF-8 */
  ///@{

  /**
   * Reads UTF-8, and refuses what is not well-formed.
   * @param text  UTF-8; not changed
   * @return the text in UTF-16, never bogus; empty if any of it is malformed (surrogates and
   *         numbers above 0x10ffff are), or if it has INT_MAX bytes or more, which ICU cannot count
   */
  static icu::UnicodeString str2ustr(std::string& text);

  /**
   * Writes UTF-8.
   * @param text  UTF-16; not changed
   * @return the text in UTF-8, up to its first zero byte; empty if any of it is malformed (an
   *         unpaired surrogate), also behind a zero character, if it is bogus, or if it would be
   *         INT_MAX bytes or more, which ICU cannot count
   */
  static std::string ustr2str(icu::UnicodeString& text);

  /** tstr2str(), then str2ustr(). */
  static icu::UnicodeString tstr2ustr(tstr& text);

  /** ustr2str(), then str2tstr(). */
  static tstr ustr2tstr(icu::UnicodeString& text);

  ///@}
  /** @name Numbers to text */
  ///@{

  /** The number in decimal. */
  static std::string int2str(int number);
  /** The number in decimal. */
  static std::string int2str(long number);
  /** The number in decimal. */
  static std::string uint2str(unsigned int number);
  /** The number in decimal. */
  static std::string uint2str(unsigned long number);

  /**
   * Writes a number with up to six digits.
   * @return the number by "%g": six significant digits, with the decimal point of the locale
   *         (LC_NUMERIC); "inf" and "nan", with their sign, for what is not finite
   */
  static std::string double2str(double number);

  /** "true" or "false". */
  static std::string bool2str(bool value);

  /** The number in decimal. */
  static std::wstring int2wstr(int number);
  /** The number in decimal. */
  static std::wstring int2wstr(long number);
  /** The number in decimal. */
  static std::wstring uint2wstr(unsigned int number);
  /** The number in decimal. */
  static std::wstring uint2wstr(unsigned long number);

  ///@}
  /**
   * @name Text to numbers
   *
   * White space and a sign may stand in front, and the number ends without complaint at the first
   * character that does not belong to it; a text without any number is 0. What is out of range is
   * read as the standard `strtol`, `strtoull` and `strtod` do: as the nearest `long` or `unsigned
   * long`, as infinity or about 0. That is not reported, but may set `errno`. The forms with a
   * second argument return a status: 0, or -1 with `number` untouched if the text has length 0.
   */
  ///@{

  /**
   * Reads a signed decimal number, and keeps its low 32 bits.
   * @return the low 32 bits of the text read as a decimal `long`, so 0 for "4294967296", -1 above
   *         the range of `long` and 0 below it; 0 for an empty text
   */
  static int str2int(const std::string& text);

  /** As str2int(), unsigned. So "-1" is 4294967295 and "4294967296" is 0, on purpose. */
  static unsigned int str2uint(const std::string& text);

  /**
   * Reads a floating-point number.
   * @return the text read by `strtod`, with the decimal point of the locale (LC_NUMERIC); "inf",
   *         "nan" and hexadecimal numbers ("0x1p4") are read, too. 0.0 for an empty text.
   */
  static double str2double(const std::string& text);

  /**
   * str2int() with a status.
   * @param text    the text
   * @param number  receives what str2int(const std::string&) returns
   * @return 0; -1 for an empty text
   */
  static int str2int(const std::string& text, int& number);

  /**
   * str2uint() with a status.
   * @param text    the text
   * @param number  receives what str2uint(const std::string&) returns
   * @return 0; -1 for an empty text
   */
  static int str2uint(const std::string& text, unsigned int& number);

  /**
   * Reads an unsigned number of 64 bits.
   * @param text    the text
   * @param number  receives the text read as a decimal `unsigned long`; "-1" is the largest one
   * @return 0; -1 for an empty text
   */
  static int str2uint64(const std::string& text, unsigned long& number);

  /**
   * str2double() with a status.
   * @param text    the text
   * @param number  receives what str2double(const std::string&) returns
   * @return 0; -1 for an empty text
   */
  static int str2double(const std::string& text, double& number);

  ///@}
  /** @name Inspection, comparison and case, by the process locale */
  ///@{

  /** Whether every byte is one of '0' to '9'. An empty text holds no other: true. */
  static bool isDigit(const std::string& text);

  /**
   * Whether two texts are equal but for the case of letters.
   * @return whether the texts are equal. Where both have a letter, it is compared in upper case;
   *         all else is compared as it is. Every byte is looked at by itself, as in tostrlower().
   */
  static bool CompareNoCase(const std::string& first, const std::string& second);

  /** The same for wide texts, character by character. */
  static bool CompareNoCase(const std::wstring& first, const std::wstring& second);

  /**
   * Puts letters into lower case.
   * @return a copy with every letter in lower case. Every byte is looked at by itself: in UTF-8 the
   *         bytes of multibyte characters stay.
   */
  static std::string tostrlower(const std::string& text);

  /** A copy with every letter in upper case, byte by byte as in tostrlower(). */
  static std::string tostrupper(const std::string& text);

  /** A copy with every letter in lower case. */
  static std::wstring tostrlower(const std::wstring& text);

  /** A copy with every letter in upper case. */
  static std::wstring tostrupper(const std::wstring& text);

  ///@}
  /**
   * @name Trimming
   *
   * `set` is a NUL-terminated text of the bytes to remove, so a zero byte is never removed. If the
   * text is empty, or `set` is null or empty, the result is a verbatim copy of the text.
   */
  ///@{

  /**
   * Removes the set's bytes from the start.
   * @return the text without the set's bytes at its start. Where trimming is done at all, the
   *         result ends at the first zero byte that is kept, on purpose; rtrim() keeps zero bytes.
   */
  static std::string ltrim(const std::string& text, const char* set = " \n\t\r");

  /** The text without the set's bytes at its end. */
  static std::string rtrim(const std::string& text, const char* set = " \n\t\r");

  /** ltrim(), then rtrim(). */
  static std::string trim(const std::string& text, const char* set = " \n\t\r");

  ///@}
  /** @name Search and replace */
  ///@{

  /**
   * Searches the texts of a list, in order, for the first that contains a pattern.
   *
   * Call it again with `index` + 1 to go on.
   * @param list       the texts
   * @param pattern    NUL-terminated, not null; compared byte by byte; an empty one is
   *                   in every text
   * @param index      in: the number of the text to begin with; out: the number of the text found,
   *                   or list.size() if there is none (one that was larger stays)
   * @param trimRight  whether white space (" \n\t\r") at a text's end is left out of the search
   * @return the match's position in its text, in bytes; std::string::npos if there is none
   */
  static unsigned long find(const std::vector<std::string>& list, const char* pattern,
                            unsigned long& index, bool trimRight);

  /**
   * Replaces every occurrence of a text, found from left to right and not overlapping.
   * @param text  where to replace
   * @param from  what to replace; if empty, the result is `text` as it is
   * @param to    what to put there
   * @return the new text up to its first zero byte
   * @throw std::bad_alloc also where no size_t holds the size of the new text
   */
  static std::string searchreplace(const std::string& text, const std::string& from,
                                   const std::string& to);

  ///@}
  /**
   * @name Duplicates as NUL-terminated arrays
   *
   * `alloc` is called once with a number of bytes, as `malloc` is; null means `malloc`. Neither may
   * fail: the result is not checked. The caller frees the array with the counterpart of `alloc`,
   * with `free` for null.
   */
  ///@{

  /** The text, zero bytes included, and a terminator: length + 1 bytes from `alloc`. */
  static char* strdup(const std::string& text, void* (*alloc)(unsigned long));

  /**
   * Duplicates a wide text.
   * @return the text, zero characters included, and a terminator: (length + 1) * 4 bytes
   *         from `alloc`
   */
  static wchar_t* wstrdup(const std::wstring& text, void* (*alloc)(unsigned long));

  /** strdup() of tstr2str(). */
  static char* tstrdup(const tstr& text, void* (*alloc)(unsigned long));

  /**
   * Duplicates a list.
   * @return an array of tstrdup() copies that ends with a null pointer, all from `malloc`, to be
   *         freed with tstrfreelist(); null if the array cannot be allocated
   */
  static char** tstrduplist(const std::vector<tstr>& list);

  /**
   * Frees the texts up to the first null pointer, and the array.
   * @param list  from tstrduplist(); null is allowed; becomes null
   */
  static void tstrfreelist(char**& list);

  ///@}
  /** @name XML text */
  ///@{

  /**
   * Escapes a text for XML.
   * @return the text, up to its first zero byte, with `&amp;`, `&lt;`, `&gt;`, `&quot;` and `&#39;`
   *         for the five special characters
   */
  static std::string convertToXmlSpecialCharacters(const std::string& text);

  /**
   * Puts the characters in place of the five entities that convertToXmlSpecialCharacters() writes,
   * wherever they stand. No other entity is known, `&apos;` neither. What an ampersand's entity
   * gives is not looked at again: `&amp;lt;` becomes `&lt;`.
   * @return the new text, up to its first zero byte
   */
  static std::string convertFromXmlSpecialCharacters(const std::string& text);

  /**
   * Writes a tag.
   * @param name     the element's name, neither escaped nor checked
   * @param open     true for an opening tag, `<name>`, false for a closing one, `</name>`
   * @param newline  whether a newline follows
   * @return the tag
   */
  static std::string xmlBracket(std::string name, bool open, bool newline);

  /**
   * Writes an element on a line of its own: a tab, the opening tag, the escaped value, the closing
   * tag and a newline.
   * @param name   the element's name, neither escaped nor checked
   * @param value  the text, not yet escaped, up to its first zero byte
   * @return the line
   */
  static std::string xmlBracketValue(std::string name, std::string value);

  ///@}
  /** @name Hexadecimal */
  ///@{

  /**
   * Writes bytes in hexadecimal.
   * @param data   the bytes; may be null if `count` is below 1
   * @param count  their number; below 1 for none
   * @return two lower-case digits for each byte
   */
  static std::string binary2str(unsigned char* data, int count);

  /** binary2str(), then str2wstr(). */
  static std::wstring binary2wstr(unsigned char* data, int count);

  /**
   * Reads pairs of hexadecimal digits, in upper or lower case. The last digit of an odd number is
   * dropped. A pair that is no number gives what `strtol` makes of it: 0 for "zz", 1 for "1z".
   * @param out   receives the bytes; must not be null
   * @param size  in: the room in `out`, in bytes; out: the number of bytes stored; must not be null
   * @param hex   the digits; must not be empty
   * @return 0; -1 if there is room for less than half the length of `hex`, rounded down, with
   *         nothing stored and `*size` untouched. No room is enough for 2 * INT_MAX + 2 digits.
   * @throw std::out_of_range for an empty text, after one zero byte was stored even into a room of
   *        0, which is meant
   */
  static int str2binary(unsigned char* out, int* size, const std::string& hex);

  /**
   * str2binary() of wstr2str(); so it throws also where that gives an empty text. The flag is
   * ignored, on purpose.
   */
  static int wstr2binary(unsigned char* out, int* size, std::wstring hex, bool ignored);

  ///@}
  /** @name Identifiers: a type of at least four hexadecimal digits, then bytes in hexadecimal */
  ///@{

  /**
   * Writes a type, and then bytes.
   * @param type   the type, in lower-case digits
   * @param bytes  the bytes, zero bytes included. One of 0x80 or more is widened with its sign, on
   *               purpose: 0x80 gives "ffffff80". binary2uid() gives "80" for it.
   * @return for instance "000141" for type 1 and "A"
   */
  static std::string str2uid(unsigned int type, const std::string& bytes);

  /** str2uid() of wstr2str(). */
  static std::string wstr2uid(unsigned int type, const std::wstring& bytes);

  /**
   * The wide form, for bytes in memory. Its bytes are unsigned: 0x80 gives "80".
   * @param type   the type, in lower-case digits
   * @param data   the bytes, as for binary2wstr()
   * @param count  their number
   * @return for instance L"000141" for type 1 and "A"
   */
  static std::wstring binary2uid(unsigned int type, unsigned char* data, int count);

  ///@}
  /** @name Tokens */
  ///@{

  /**
   * Splits a text as the standard `strtok` does, but without its process-wide state.
   * @param text        up to its first zero byte
   * @param delimiters  each of its bytes, up to its first zero byte, separates; without any the
   *                    text is one token
   * @return the tokens in order, none of them empty: delimiters in a row count as one, those at
   *         either end as none
   */
  static std::vector<std::string> tokenize(const std::string& text, const std::string& delimiters);

  /**
   * Whether a text looks like an IPv4 address.
   * @param text  up to its first zero byte: what stands behind it is not looked at
   * @return whether the text has the shape of a dotted IPv4 address: four tokens of decimal digits
   *         between points. On purpose no more is looked at, so "999.1.1.1" and ".1..2.3.4" pass.
   */
  static bool isIpAddress(const std::string& text);

  ///@}
};

}  // namespace kelp_cmn_4_4

#endif
