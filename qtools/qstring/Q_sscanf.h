/**
 * @file Q_sscanf.h
 * @brief Reading values out of a text by a scanf format. Usable from C.
 */
#ifndef Q_SSCANF_H
#define Q_SSCANF_H

#include "cmnexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Scans a text. The format, the arguments and the result are those of Q_vfscanf().
 *
 * Unlike the standard `sscanf` it takes two arguments for every value: the destination and, as an
 * `int`, its size in bytes.
 * @code
 * int number = 0;
 * char word[16];
 * const int assigned = Q_sscanf("12 apples", "%d %s", &number, 4, word, 16);  // 2
 * @endcode
 * @param text    a NUL-terminated text, not null, not changed; of a text longer than INT_MAX the
 *                rest is not seen
 * @param format  the format, not null
 * @return the number of values assigned; -1 when the text ended before the first conversion, or the
 *         format is cut off inside one
 */
KELP_CMN_API int Q_sscanf(const char* text, const char* format, ...);

#ifdef __cplusplus
}
#endif

#endif
