/**
 * @file cmntracelog.h
 * @brief The library's one diagnostic channel: printf-style lines in a trace file per component.
 */
#ifndef CMNTRACELOG_H
#define CMNTRACELOG_H

#include "cmnconfiguration.h"
#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmnsmartptr.h"
#include "cmntypes.h"

namespace kelp_cmn_4_4 {

/**
 * The trace of a component of the calling process.
 *
 * Each line is stamped with the time, appended to the component's trace file and, if wanted, echoed
 * to standard output. Directory, file, level and echo come from the section "DEBUG_TRACE_INFO" of
 * the component's configuration file (see CCmnPathTool), where
 *
 * | key | holds | written when missing |
 * |---|---|---|
 * | "TRACEDIR" | the trace directory, a text | "/usr/tulsk/krellvane/logs/zorvt/" |
 * | "TRACEFILE" | the trace file's name, a text | the component's name and ".log" |
 * | "TRACELEVEL" | the trace level, a number | the caller's level |
 * | "TRACESTDOUT" | 1 to echo, a number | 0; in an older section 1 if the caller asked for echo |
 *
 * and the host product's verbosity (see CCmnQRBConfiguration) can only raise the level. A lower
 * level is more important: 1 is for errors, 3 for details.
 *
 * A log is shared through CCmnSmartPtr holders; CCmnContextSingletonAllocator hands out one per
 * process. It is used by one thread at a time, through whichever object that shares it. Several
 * processes may append to one trace file. Nothing is thrown but std::bad_alloc.
 *
 * With an echo, what a child of the process traces between `fork` and `execv` goes to its standard
 * output, too, which an exec pipe reads: where the host's standard output is not fully buffered,
 * the child's own failure line comes back as the command's output.
 */
class KELP_CMN_API CCmnTraceLog : public virtual CCmnRefCount {
 public:
  /** A log that is not initialized: level 0, empty texts, no echo, no configuration loaded. */
  CCmnTraceLog();

  /** Writes nothing. */
  ~CCmnTraceLog() override;

  /**
   * Sets the log up: resolves its settings, creating or completing the configuration file, and
   * tries the trace file. That the configuration file cannot be written is not reported; the
   * settings then hold for this log only.
   *
   * The configuration file is written where it lacks a key, and always where both directory and
   * file are given. It is then rewritten whole, with what CCmnConfiguration::exportConfig() keeps:
   * comments and the order of sections and values are lost, and of a file that cannot be read to
   * its end, all the rest. A file with all four keys is otherwise left alone; so ship one.
   *
   * If the trace file cannot be opened, "[CCmnTraceLog] Error: Tracefile [%s] initialization
   * failed.[%s][%s]" goes to standard output, with path, file and directory. A new log stays
   * silent. One that was initialized before still says so, but has the new path: its lines are
   * lost, but for the echo, until the file can be opened or initialize() is called again. If
   * resolving the settings throws, "ERROR: CCmnTraceLog: Failed to initialize log settings" goes
   * there, and set-up continues with what is known.
   * @param component  names the trace and configuration files, and stands before echoed lines
   * @param dir        the trace directory; empty for the configured or default one
   * @param file       the trace file's name; empty for the configured or default one. Only where
   *                   both are given do they count: they are written into the configuration file
   *                   together with the level, and so win; that also sets the configured echo to 0.
   * @param level      the level to write where none is configured. The log starts with the
   *                   configured level, but at most 1, or with 0 where none was configured, unless
   *                   the host product's verbosity is higher.
   * @param toStdout   whether to echo; a configured 0 does not switch it off
   */
  void initialize(const tstr& component, tstr dir, tstr file, int level, bool toStdout);

  /**
   * Writes one line: the local time, such as "2024-05-01 12:34:56.123456", a blank, the message; on
   * standard output the component's name and ":" stand before it.
   *
   * The message passes if its level is at most the configured "TRACELEVEL" (1 where there is none),
   * or at most the host product's verbosity where that is 9 or more. "TRACELEVEL" is taken from the
   * configuration as loaded; the verbosity is read anew from its file by every call. The trace file
   * is opened for the line and closed at once; a line that cannot be written, or that there is no
   * memory for, is lost without a report, and a message that cannot be formatted is empty. Nothing
   * is written or echoed before an initialize() that could open the trace file. May change `errno`.
   * @param level   the message's level
   * @param format  a printf format, for the process locale; null and empty print nothing, though
   *                compilers warn of an empty literal; its arguments follow
   */
  void trace(int level, const char* format, ...) KELP_CMN_FORMAT(3, 4);

  /**
   * Writes the four keys and saves the configuration file of the component that initialize() named
   * (of the empty name before that). "TRACESTDOUT" always becomes 0 here, on purpose.
   * @param dir    the trace directory
   * @param file   the trace file's name
   * @param level  the trace level
   * @return the status of CCmnConfiguration::exportConfig()
   */
  int updateConfigFile(const tstr& dir, const tstr& file, const int& level);

  /**
   * Resolves the settings, completing the configuration file where keys are missing, and the echo.
   * @param dir    receives the effective directory; what it holds is ignored
   * @param file   receives the effective file name; what it holds is ignored
   * @param level  in: the caller's level; out: the larger of the configured level, cut to 1, and
   *               the host product's verbosity. A level that had to be written counts as 0.
   */
  void loadFromConfigFile(tstr& dir, tstr& file, int& level);

  /**
   * Does the two above: updateConfigFile() only when neither text is empty, then
   * loadFromConfigFile(). A CCmnError thrown by either is dropped.
   */
  void initTraceSettings(tstr& dir, tstr& file, int& level);

  /**
   * Sets the level to the loaded "TRACELEVEL", as it is, or to 1 where there is none. The file is
   * not read again.
   */
  void UpdateTraceLevelFromConfigFile();

  /**
   * What initialize() computed; from the first trace() on, the loaded "TRACELEVEL" as it is. The
   * verbosity is not counted in.
   */
  int getTraceLevel() const { return m_traceLevel; }

  /**
   * The trace file's path, as a rule with a doubled slash before the name; empty before
   * initialize(). The log's; valid until the next initialize() or the log's end.
   */
  const tstr& getTracePath() const { return m_tracePath; }

  /**
   * Whether an initialize() could open its trace file. A later one that fails does not change it.
   */
  bool isInitialized() const { return m_initialized; }

 private:
  CCmnConfiguration m_config;
  int m_traceLevel;
  tstr m_component;
  tstr m_traceFile;
  tstr m_traceDir;
  tstr m_tracePath;
  bool m_initialized;
  bool m_toStdout;
};

/** A holder of a trace log, as CCmnTraceable takes it; its create() gives the process's one. */
using CCmnTraceLogPtr = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;

/** The process's one trace log is the library's: hosts and plugins share this instantiation. */
extern template class KELP_CMN_API CCmnContextSingletonAllocator<CCmnTraceLog>;

}  // namespace kelp_cmn_4_4

#endif
