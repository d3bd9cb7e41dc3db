/**
 * @file Q_strings.h
 * @brief Copying, appending, checking and formatting text in buffers of a fixed size.
 *        Usable from C.
 *
 * What holds for every function here:
 * - A size counts the elements (bytes, or wide characters) of the destination, the terminator
 *   included. A length result counts the characters that were stored, without the terminator, never
 *   what would have been needed.
 * - A source is never read beyond what can be stored, so it needs no terminator within that range;
 *   a destination is never read or written beyond its size.
 * - Source and destination must not overlap.
 * - A null argument means a null destination or source; what is not said to accept one must
 *   not be null.
 * - The functions keep no state and may be called from any thread. `errno` carries no result; what
 *   the platform's own functions leave there stays. Only the formatters look at the locale:
 *   LC_NUMERIC for decimal points, LC_CTYPE between bytes and wide characters.
 */
#ifndef Q_STRINGS_H
#define Q_STRINGS_H

#include "cmnexport.h"

/* NOLINTBEGIN(modernize-deprecated-headers): read by C compilers, too */
#include <stdarg.h>
#include <stddef.h>
#include <wchar.h>
/* NOLINTEND(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Copies a text, cut to fit, and terminates it.
 * @param dst   the destination
 * @param src   the text; may lack a terminator within `size - 1` bytes
 * @param size  of `dst`, in bytes
 * @return the characters copied, at most `size - 1`; 0, and nothing is written, when `size` is 0 or
 *         an argument is null
 */
KELP_CMN_API size_t Q_strlcpy(char* dst, const char* src, size_t size);

/**
 * Appends a text, cut to fit, and terminates the whole.
 * @param dst   the destination with the text to append to
 * @param src   the text to append
 * @param size  of all of `dst`, in bytes
 * @return the characters appended, not the resulting length. 0, and nothing is written, when
 *         `size` is 0, an argument is null, `dst` is full, or `dst` holds no terminator within
 *         `size` bytes
 */
KELP_CMN_API size_t Q_strlcat(char* dst, const char* src, size_t size);

/**
 * Copies at most `n` characters, fills up with zero bytes to `n` characters, cut to fit,
 * and terminates.
 * @param dst   the destination; its first min(n + 1, size) bytes are written
 * @param src   the text; at most min(n, size - 1) bytes of it are read
 * @param n     the characters to store
 * @param size  of `dst`, in bytes
 * @return min(n, size - 1), deliberately whatever the length of `src`; 0, and nothing is written,
 *         when `size` is 0 or an argument is null
 */
KELP_CMN_API size_t Q_strlncpy(char* dst, const char* src, size_t n, size_t size);

/**
 * Appends at most `n` characters of a text, cut to fit, and terminates the whole.
 * @param dst   the destination with the text to append to; must not be null
 * @param src   the text to append; at most `n` bytes of it are read
 * @param n     the most characters to append
 * @param size  of all of `dst`, in bytes
 * @return as Q_strlcat()
 */
KELP_CMN_API size_t Q_strlncat(char* dst, const char* src, size_t n, size_t size);

/** As Q_strlcpy(), in wide characters. */
KELP_CMN_API size_t Q_wcslcpy(wchar_t* dst, const wchar_t* src, size_t size);

/** As Q_strlcat(), in wide characters. */
KELP_CMN_API size_t Q_wcslcat(wchar_t* dst, const wchar_t* src, size_t size);

/** As Q_strlncpy(), in wide characters. */
KELP_CMN_API size_t Q_wcslncpy(wchar_t* dst, const wchar_t* src, size_t n, size_t size);

/** As Q_strlncat(), in wide characters. */
KELP_CMN_API size_t Q_wcslncat(wchar_t* dst, const wchar_t* src, size_t n, size_t size);

/**
 * Checks that a buffer holds a terminated text.
 * @param buf     the buffer; may be null
 * @param n       the bytes of the buffer to look at
 * @param length  receives the length of the text, 0 when there is none; may be null
 * @return 0; -1 when there is no terminator within `n` bytes, or `buf` is null
 */
KELP_CMN_API int Q_strverify(const char* buf, size_t n, size_t* length);

/** As Q_strverify(); `n` and the length are in wide characters. */
KELP_CMN_API int Q_wstrverify(const wchar_t* buf, size_t n, size_t* length);

/**
 * Formats a text, cut to fit, with the platform's `vsnprintf`.
 *
 * Every format that `vsnprintf` takes is passed on, one with %n in writable memory included.
 * @param dst     the destination
 * @param size    of `dst`, in bytes
 * @param format  the printf format
 * @param args    its arguments; indeterminate afterwards, the caller ends them
 * @return the characters stored, at most `size - 1`; 0, and `dst` is empty, on an encoding or
 *         format error, and when the whole text has more than INT_MAX characters, however few fit;
 *         -1, and nothing is written, when `size` is 0 or `dst` is null
 */
KELP_CMN_API int Q_vsnprintf(char* dst, size_t size, const char* format, va_list args)
    KELP_CMN_FORMAT(3, 0);

/** As Q_vsnprintf(); the arguments follow the format. */
KELP_CMN_API int Q_snprintf(char* dst, size_t size, const char* format, ...) KELP_CMN_FORMAT(3, 4);

/**
 * Formats a wide text, cut to fit, with the platform's `vswprintf`.
 *
 * Unlike Q_vsnprintf() it tells that a text was cut, but not where. It formats into a temporary of
 * `size` wide characters from `malloc`, which it frees.
 * @param dst     the destination; where it is null, nothing is stored
 * @param size    of `dst`, in wide characters
 * @param format  the wprintf format
 * @param args    its arguments; indeterminate afterwards, the caller ends them
 * @return the result of `vswprintf`: the characters stored, or -1 when the text did not fit (`dst`
 *         then holds what does) or could not be encoded (`dst` then holds what stands before the
 *         conversion that failed, cut to fit); the result does not tell which. -1, too, and nothing
 *         is written, when `size` is 0 or the temporary cannot be allocated
 */
KELP_CMN_API int Q_vsnwprintf(wchar_t* dst, size_t size, const wchar_t* format, va_list args);

/** As Q_vsnwprintf(); the arguments follow the format. */
KELP_CMN_API int Q_snwprintf(wchar_t* dst, size_t size, const wchar_t* format, ...);

/**
 * Resizes a block with `realloc`, and frees it where that fails: the caller never keeps
 * a stale one.
 * @param block  the address of the block, which may be null; receives the new one, null on failure
 * @param size   the new size in bytes; 0 is passed on, too: the platform then frees an existing
 *               block and returns null, and gives a fresh block where there was none
 * @return the new block, owned by the caller and freed with `free`; null on failure, or when
 *         `block` itself is null
 */
KELP_CMN_API void* Q_dumb_realloc(void** block, size_t size);

#ifdef __cplusplus
}
#endif

#endif
