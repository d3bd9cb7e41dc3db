/**
 * @file Q_vfscanf.h
 * @brief The scanner: values out of a text, a callback or a stream, by a scanf format.
 *        Usable from C.
 */
#ifndef Q_VFSCANF_H
#define Q_VFSCANF_H

#include "cmnexport.h"

/* NOLINTBEGIN(modernize-deprecated-headers,modernize-use-using): read by C compilers, too */
#include <stdarg.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bits of ScanSource::flags. */
enum {
  Q_SCAN_EOF = 0x20 /**< no more input can come */
};

/**
 * Where the scanner's input comes from, and how far it has been read.
 *
 * A record owns nothing; it and its stream, which is not locked, are used by one thread at a time.
 * Input is counted, not terminated: zero bytes are input like any other.
 */
typedef struct ScanSource {
  const char* position; /**< the next unread byte */
  int unread;           /**< the bytes there are at `position` */
  int flags;            /**< Q_SCAN_EOF, or 0 */
  const char* base;     /**< the whole input, or the buffer that `read` fills, which must then be
                             writable; null for none */
  int size;             /**< the bytes at `base` */
  /**
   * Fetches more input; may be null.
   * @param cookie  the record itself
   * @param buffer  the record's `base`
   * @param size    the most bytes to store there
   * @return the bytes stored; 0 or less when there are no more
   */
  int (*read)(void* cookie, char* buffer, int size);
  FILE* stream; /**< fetches more input instead of `read`; null for none */
} ScanSource;
/* NOLINTEND(modernize-deprecated-headers,modernize-use-using) */

/**
 * Reads values by a format like that of the standard `vfscanf`; what holds is told here.
 *
 * White space in the format (`isspace` of the current locale) matches any run of white space, none
 * included. Two percent signs match white space and one percent sign; so do "%5%", "%*%" and "%l%":
 * what stands between them changes nothing. Any other character matches itself. A conversion is
 * "%", "*" to assign nothing, a width in decimal digits (none, and 0, mean no limit; more than
 * INT_MAX counts as that), one size modifier, and a conversion character:
 *
 * | character | reads | stores |
 * |---|---|---|
 * | d | a decimal integer | int |
 * | i | an integer, hexadecimal after "0x", octal after "0", else decimal | int |
 * | u, o | a decimal, an octal integer | unsigned int |
 * | x, X | a hexadecimal integer, "0x" before it or not | unsigned int |
 * | p | the same; modifiers change nothing | void* |
 * | D, O | as ld, lo | long, unsigned long |
 * | e, E, f, g, G | a decimal floating number, with "." as its point in every locale | float |
 * | c | one character whatever the width; with "*" as many as the width says, else one | char |
 * | s | characters up to white space | a terminated text |
 * | [ | characters of a set up to "]", or after "^" not of it | a terminated text |
 * | n | nothing | int: the characters consumed so far |
 * | any other | a decimal integer; modifiers change nothing | long for A to Z, else int |
 *
 * Every conversion but c, [ and n skips white space first. In a set "]" may stand first, and "a-z"
 * is a range; "-" stands for itself first, last, and between characters that fall. The end of one
 * range may begin the next: "[a-c-e]" is "[a-e]". The modifiers hh, h, l, ll or q, j, t and z store
 * integers as char, short, long, long long, intmax_t, ptrdiff_t and size_t; l and L store floating
 * numbers as double and long double; else they change nothing. There are no wide characters,
 * hexadecimal floating numbers, infinities or NaNs.
 *
 * **Arguments.** Every conversion without "*", n included, takes two: the destination, and its
 * size in bytes as an `int`. Only s and [ look at the size: the whole run is consumed, but at most
 * `size - 1` characters are stored, then a terminator; with a size below 1 nothing is, and the
 * conversion counts all the same. A conversion that fails stores nothing.
 *
 * **Numbers.** The longest text that can still become a number is consumed, whatever its length. So
 * "0x" reads as 0 and "1e+" as 1, while "-" and "." are consumed and do not match; of ".e5", too,
 * only "." is consumed. Every digit counts, and no length needs an allocation. Integers that do not
 * fit are limited to `intmax_t` or `uintmax_t`, then cut to the type stored. Floating numbers are
 * read by `strtod`; out of the range of double they are what it gives, infinity or about 0, and
 * then made the type stored.
 *
 * **errno.** A stored number out of range of intmax_t, uintmax_t or double sets ERANGE; one that is
 * read with "*" sets nothing. Fetching more input leaves what the platform or the callback leaves.
 * `errno` carries no other result.
 *
 * @param source  the input; must not be null. Its position and count are left after what was
 *                consumed; a stream is moved there with updateFILE()
 * @param format  the format; must not be null
 * @param args    the arguments; the caller ends them
 * @return the number of values assigned (%n does not count) when the format is done or the
 *         input does not match it. When the input ends early, the same, but -1 before the first
 *         conversion (those with "*" are conversions; %n and %% are not). -1 when the scan reaches
 *         a conversion or a set that the end of the format cuts off
 */
KELP_CMN_API int Q_vfscanf(ScanSource* source, const char* format, va_list args);

/**
 * Makes more input available; meant for a source with no unread bytes.
 *
 * With Q_SCAN_EOF set there is none. A stream is first moved to the source's position, if that lies
 * in the stream's buffer; then all output streams are flushed, one character is read and pushed
 * back, and the stream's buffer becomes the unread input. Else the callback fills `base`; when it
 * has nothing, Q_SCAN_EOF is set.
 *
 * The flush waits for the lock of every stream that the process has open, one that is only read
 * included: while another thread holds one (it waits for input there, say), this one waits, too.
 * @param source  the source; must not be null
 * @return 0 when there is more input, -1 when there is not
 */
KELP_CMN_API int __Qrefill(ScanSource* source);

/** The callback of a source that has no more input. @return 0 */
KELP_CMN_API int eofread(void* cookie, char* buffer, int size);

/**
 * Moves the stream's read position to the source's, so that the stream goes on where the
 * scanner stopped.
 *
 * A source adopts its stream's buffer when it is first refilled, that is, when a scan looks for a
 * character and none is unread, or by updateVFILE(). A scan with an empty format or "%n" alone
 * looks for none.
 * @param source  a source that has adopted its stream's buffer, the stream not having
 *                been used since
 */
KELP_CMN_API void updateFILE(ScanSource* source);

/**
 * Adopts what the stream's buffer holds unread as the source's input.
 * @param source  a source with a stream
 */
KELP_CMN_API void updateVFILE(ScanSource* source);

#ifdef __cplusplus
}
#endif

#endif
