/**
 * @file cmnqrbconfiguration.h
 * @brief The one setting that the host product itself publishes: its verbosity.
 */
#ifndef CMNQRBCONFIGURATION_H
#define CMNQRBCONFIGURATION_H

#include "cmnexport.h"
#include "cmntypes.h"

namespace kelp_cmn_4_4 {

/** @name Statuses of CCmnQRBConfiguration::getTraceLevel() */
///@{
constexpr int verbosityOk = 0;           ///< the level was set
constexpr int verbosityMissing = 1;      ///< no line with a number for it
constexpr int verbosityUnreadable = 26;  ///< the file cannot be opened
///@}

/**
 * Finds the host product's "rk.conf" and reads its "VERBOSE" line.
 *
 * Static functions only. Nothing is kept between calls: every call reads the file afresh.
 * May be called from any thread. Throws std::bad_alloc where memory fails; the texts stay as
 * they were then.
 */
class KELP_CMN_API CCmnQRBConfiguration {
 public:
  /**
   * Gives the place of the host product's configuration file.
   * @param dir   receives "/usr/tulsk/krellvane/"
   * @param file  receives "rk.conf"
   * @return 0
   */
  static int getTraceConfigFileInfo(tstr& dir, tstr& file);

  /**
   * Reads the verbosity from the first line of a file that holds "VERBOSE" anywhere, commented
   * out or not.
   *
   * The number is the decimal one after the first "=" of that line, counted from the line's start;
   * what follows it is ignored. White space and a sign may stand before it. Of a number beyond
   * `int` the low 32 bits are kept, of one beyond 64 bits those of the nearest 64-bit number. Later
   * lines are never looked at. Lines are read in pieces of at most 255 bytes, and each piece counts
   * as a line of its own.
   * @param dir    the file's directory, with its closing "/"; not changed
   * @param file   the file's name; not changed
   * @param level  receives the number; untouched unless verbosityOk is returned
   * @return verbosityOk when the level was set; verbosityMissing when no line holds "VERBOSE", or
   *         the first that does has no "=" or no number after it; verbosityUnreadable when the file
   *         cannot be opened for reading, also for lack of memory
   */
  static int getTraceLevel(tstr& dir, tstr& file, int& level);
};

}  // namespace kelp_cmn_4_4

#endif
