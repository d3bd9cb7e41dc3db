/**
 * @file cmnversion.h
 * @brief The version whose headers a host is compiled with. Preprocessor lines only; usable from C.
 */
#ifndef CMNVERSION_H
#define CMNVERSION_H

/** The version's first number. */
#define KELP_CMN_VERSION_MAJOR 4

/** The second: first and second together name the series, which keeps its binary interface. */
#define KELP_CMN_VERSION_MINOR 4

/** The third: it grows with corrections and additions. */
#define KELP_CMN_VERSION_PATCH 0

/** The version as one number that grows with it, for `#if`: 4.4.0 is 40400. */
#define KELP_CMN_VERSION_NUMBER \
  (KELP_CMN_VERSION_MAJOR * 10000 + KELP_CMN_VERSION_MINOR * 100 + KELP_CMN_VERSION_PATCH)

/** The version as a text. */
#define KELP_CMN_VERSION_STRING "4.4.0"

#endif
