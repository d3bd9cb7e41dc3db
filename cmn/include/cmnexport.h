/**
 * @file cmnexport.h
 * @brief Marks what the shared library shows to its hosts. Preprocessor lines only; usable from C.
 */
#ifndef CMNEXPORT_H
#define CMNEXPORT_H

/**
 * Stands before every exported class and function. The library is built with everything
 * else hidden.
 */
#define KELP_CMN_API __attribute__((visibility("default")))

/**
 * Stands behind a function that formats like `printf`, so that compilers check its callers' formats
 * and arguments (-Wformat, part of -Wall). Expands to nothing where a compiler cannot.
 * @param format  the format's place among the arguments, from 1; a member function's object is the
 *                first
 * @param first   the place of the first argument to be formatted; 0 where these come as a va_list:
 *                then the format alone is checked
 */
#ifdef __GNUC__
#define KELP_CMN_FORMAT(format, first) __attribute__((__format__(__printf__, format, first)))
#else
#define KELP_CMN_FORMAT(format, first)
#endif

#endif
