/**
 * @file cmnpathtool.h
 * @brief Where a component's resource, trace and configuration files live.
 */
#ifndef CMNPATHTOOL_H
#define CMNPATHTOOL_H

#include "cmnexport.h"
#include "cmntypes.h"

namespace kelp_cmn_4_4 {

/**
 * Turns a component's name into directories and file names under the install root "/usr/tulsk".
 *
 * Static functions only. The paths are fixed: no environment variable or option moves them. Every
 * directory handed out ends with "/", so that directory and file are joined by plain concatenation.
 *
 * The component's name is used unchanged; an empty one gives a file name of just the prefix or
 * suffix. Texts are read as NUL-terminated byte strings, whatever the locale. May be called from
 * any thread. Throws std::bad_alloc where memory fails; the texts stay as they were then.
 */
class KELP_CMN_API CCmnPathTool {
 public:
  /**
   * Tells whether a path exists, by POSIX `access(path, F_OK)`.
   * @param path  a NUL-terminated path; must not be null; the empty one does not exist
   * @return 0 if it exists; -1 with `errno` as `access` left it if it does not, or cannot
   *         be reached
   */
  static int verify(const char* path);

  /**
   * Gives the install root.
   * @param path  receives "/usr/tulsk"
   * @return 0
   */
  static int getInstallPath(tstr& path);

  /**
   * Gives the place of a component's message resources.
   *
   * A missing directory is created with mode 0755 (less the umask), without its parents; a failure
   * to create it is not reported. The same holds for the two functions below.
   * @param component  the component's name
   * @param dir        receives "/usr/tulsk/resources/"
   * @param file       receives "lib" followed by the component's name
   * @return 0
   */
  static int getMessageFileInfo(const tstr& component, tstr& dir, tstr& file);

  /**
   * Gives the place of a component's trace file.
   * @param component  the component's name
   * @param dir        receives "/usr/tulsk/krellvane/logs/zorvt/"
   * @param file       receives the component's name followed by ".log"
   * @return 0
   */
  static int getTraceFileInfo(const tstr& component, tstr& dir, tstr& file);

  /**
   * Gives the place of a component's configuration file.
   * @param component  the component's name
   * @param dir        receives "/usr/tulsk/lib/kelp/configfiles/"
   * @param file       receives the component's name followed by ".conf"
   * @return 0
   */
  static int getConfigFileInfo(const tstr& component, tstr& dir, tstr& file);
};

}  // namespace kelp_cmn_4_4

#endif
