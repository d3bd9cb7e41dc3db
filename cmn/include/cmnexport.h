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

#endif
