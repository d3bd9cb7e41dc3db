/**
 * @file cmnexecpipebase.h
 * @brief Running an external command and collecting its output: the interface and the driver.
 */
#ifndef CMNEXECPIPEBASE_H
#define CMNEXECPIPEBASE_H

#include "cmnexport.h"
#include "cmntraceable.h"

#include <string>
#include <vector>

namespace kelp_cmn_4_4 {

/**
 * @name Result codes of CCmnExecPipeBase::Exec(), ExecPipe() and Close()
 * Codes 2, 9 and 10 are never produced.
 */
///@{
constexpr int execPipeOk = 0;             ///< success; the child exited with status 0
constexpr int execPipePipeFailed = 1;     ///< no pipe could be created
constexpr int execPipeCloseFailed = 3;    ///< the read end could not be closed
constexpr int execPipeForkFailed = 4;     ///< no child could be created
constexpr int execPipeReadTimedOut = 5;   ///< no output came in time
constexpr int execPipeParseFailed = 6;    ///< the command line could not be split
constexpr int execPipeNotExecutable = 7;  ///< its first word names no executable file
constexpr int execPipeWaitFailed = 8;     ///< the child's status is lost, or it hangs
constexpr int execPipeExitStatus = 11;    ///< exited with a non-zero status, seen by `waitpid`
constexpr int execPipeSignalled = 12;  ///< ended by a signal, or a non-zero status from the handler
constexpr int execPipeUnexpectedStatus = 13;  ///< the wait gave an unexpected status
///@}

/**
 * The record of an exec pipe's failure; a plain value.
 *
 * Copying copies everything. Assigning copies the command and the code only, on purpose: the record
 * that CCmnExecPipeBase::getLastError() returns has been assigned to, so its message is empty and
 * its detail 0. Whoever wants a text builds it from the code.
 */
struct KELP_CMN_API ECmnExecPipe {
  /** No failure: empty texts, code 0, detail 0. */
  ECmnExecPipe();

  /** A failure without message and detail. */
  ECmnExecPipe(const std::string& command, int code);

  /** A whole record. */
  ECmnExecPipe(const std::string& command, const std::wstring& message, int code, long detail);

  /** Copies all four fields. */
  ECmnExecPipe(const ECmnExecPipe& other);

  /** Copies the command and the code; message and detail stay as they are. */
  ECmnExecPipe& operator=(const ECmnExecPipe& other);

  ~ECmnExecPipe();

  std::string m_command;   ///< the command line that was being run
  std::wstring m_message;  ///< a readable text
  int m_code;              ///< one of the result codes; 0 for no failure
  long m_detail;           ///< by code: `errno`, exit status, signal number or raw wait status
};

/**
 * Runs a command through the platform's operations, which a derived class
 * supplies (CCmnExecPipePosix).
 *
 * One object runs one command at a time and can be used again after Close(). It is used by one
 * thread at a time; only Abort() may be called from another thread or from a signal handler.
 * Failures are results, and the last one is kept; nothing is thrown but allocation failures. An
 * object cannot be copied.
 */
class KELP_CMN_API CCmnExecPipeBase : public CCmnTraceable {
 public:
  /** No host list, no abort, no failure, no trace log. */
  CCmnExecPipeBase();

  /** The same with a list that is kept for the host and never read here. */
  explicit CCmnExecPipeBase(std::vector<std::string> hostList);

  ~CCmnExecPipeBase() override;

  CCmnExecPipeBase(const CCmnExecPipeBase&) = delete;
  CCmnExecPipeBase& operator=(const CCmnExecPipeBase&) = delete;

  /**
   * Starts a command.
   * @param command   the command line
   * @param reserved  not used
   * @return a result code
   */
  virtual int ExecPipe(std::string command, std::string reserved) = 0;

  /**
   * Waits for the child.
   * @param timeoutSeconds  how many seconds to wait before the child is ended by force
   * @return the child's status, or -1
   */
  virtual int WaitPid(long timeoutSeconds) = 0;

  /**
   * Closes the pipe and reaps the child.
   * @param timeoutSeconds  as for WaitPid()
   * @return a result code
   */
  virtual int Close(long timeoutSeconds) = 0;

  /**
   * Reads a line of output, its line end included.
   * @param buffer          receives the line, NUL-terminated
   * @param size            the buffer's size in bytes
   * @param timedOut        receives 1 when no output came in time, else 0
   * @param timeoutSeconds  how many seconds to wait for more output
   * @return whether a line was stored
   */
  virtual bool ReadLine(char* buffer, int size, unsigned char* timedOut, long timeoutSeconds) = 0;

  /** Whether Abort() was called. */
  virtual bool IsAbortRequested();

  /**
   * Non-zero when commands are to be run by ExecCommandInChildContext() instead of a
   * process; 0 here.
   */
  virtual int IsChildContext();

  /**
   * Runs a command without a process.
   * @param command  the command line
   * @param output   receives the lines
   * @return the host's result; 0 here, where nothing is done
   */
  virtual int ExecCommandInChildContext(std::string command, std::vector<std::string>& output);

  /**
   * Runs a command to its end and collects its standard output and standard error, in the order in
   * which they were written.
   *
   * In a child context (see IsChildContext()) it only calls ExecCommandInChildContext(), which
   * appends to `output`; no time-out runs, and no failure is kept.
   *
   * After its output the child has 10 seconds to end, before it is ended by force (see WaitPid()).
   * A time-out returns at once instead, with the whole lines that came before it: the child is
   * neither waited for nor ended, but left to a Close(), which must come before the next run, or to
   * the destructor. Another run without a Close() loses the child. An abort ends the reading before
   * the next line and gives the result of closing. A child that writes after the read end was
   * closed gets `SIGPIPE`.
   *
   * When an exception leaves (std::bad_alloc, or what a derived class throws) after the command was
   * started, the command has been ended by Close(10) first, and its result is lost; `output` holds
   * the lines that came before. The next run is as any other after a Close() before the end of the
   * output: what was read ahead comes first.
   * @param command         the command line
   * @param output          left as it is when the command cannot be started; else cleared, then
   *                        receives an element for each line, its line end included where it had
   *                        one; a line of more than 8190 bytes comes in pieces of that size. A zero
   *                        byte ends an element.
   * @param stdinFile       the file that becomes the child's standard input; empty for "/dev/null".
   *                        If it cannot be opened, the child exits with status 1.
   * @param timeoutSeconds  how many seconds to wait for more output, each time; not the command's
   *                        whole time. 0 does not wait; a number beyond `long` counts as negative
   *                        and has run out at once
   * @param reserved        not used
   * @param hostString1     kept for the host
   * @param hostString2     kept for the host
   * @return a result code; in a child context, the result of ExecCommandInChildContext()
   */
  virtual int Exec(std::string command, std::vector<std::string>& output, std::string stdinFile,
                   unsigned long timeoutSeconds, std::string reserved, std::string hostString1,
                   std::string hostString2);

  /**
   * Asks a running Exec() to read no more. Never taken back: every later Exec() of this object
   * reads nothing. Only stores a flag, so a read that is waiting goes on waiting, and no child is
   * signalled. Safe from any thread and in a signal handler.
   */
  virtual void Abort();

  /** Resets a fresh object; does nothing here. */
  virtual void Init();

  /**
   * A copy of the last failure's record; code 0 as long as there was none. A later success does
   * not clear it.
   */
  virtual ECmnExecPipe getLastError();

 protected:
  bool m_abortRequested;                ///< whether Abort() was called
  std::vector<std::string> m_hostList;  ///< kept for the host

 public:
  /** Set by the host: tells whether commands are to be run by the hook below. Null at first. */
  int (*m_pfnIsChildContext)();

  /**
   * Set by the host: runs a command and gives its output. Null at first. Its result becomes
   * that of Exec().
   *
   * Neither address is null; the output is null and the length 0 until the hook sets them. The
   * output is a NUL-terminated text, which is changed in place; the length is that of the text, 0
   * for none, negative for a buffer that only has to be freed.
   */
  int (*m_pfnExecInChild)(const char* command, char** output, int* outputLength);

  /**
   * Set by the host: releases such an output. Null at first: nothing is released. Not called for
   * a length of 0.
   */
  void (*m_pfnFreeOutput)(char* output, int outputLength);

 protected:
  ECmnExecPipe m_lastError;   ///< the last failure; code 0 for none
  std::string m_hostString1;  ///< kept for the host
  std::string m_hostString2;  ///< kept for the host
  std::string m_stdinFile;    ///< the child's standard input; empty for "/dev/null"
};

}  // namespace kelp_cmn_4_4

#endif
