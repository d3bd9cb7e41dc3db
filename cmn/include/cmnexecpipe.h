/**
 * @file cmnexecpipe.h
 * @brief Running an external command on POSIX, without a shell.
 */
#ifndef CMNEXECPIPE_H
#define CMNEXECPIPE_H

#include "cmnexecpipebase.h"
#include "cmnexport.h"

#include <signal.h>

#include <map>
#include <string>
#include <vector>

namespace kelp_cmn_4_4 {

/**
 * Runs a command as a child process whose standard output and standard error feed one pipe.
 *
 * What a host should know before it runs a command:
 *
 * - **No shell.** The command line is split at blanks and tabs by the rule that stands at
 *   ParseCommand(), and the first word is the path of the file to execute; `PATH` is not searched.
 * - **A `SIGCHLD` handler** is installed by every ExecPipe() and stays for the life of the process;
 *   the library stays loaded as long. It reaps *any* ended child of the process, one for each
 *   signal, the host's own children too, and records their numbers and statuses in one map for
 *   the whole process. A record that nobody asks for stays there, and is taken for that of a later
 *   child with the same number. Signals that merge stand for one child only: others stay unreaped
 *   until a `waitpid` asks for them. A handler of the host's is replaced and not called; the host's
 *   `waitpid`, `system` and `pclose` may find their child gone (`ECHILD`); and calls that a signal
 *   interrupts fail with `EINTR` when a child ends, as `SA_RESTART` is not set.
 * - **Statuses.** The map holds a plain exit code or signal number, and Close() reads it as an
 *   encoded wait status all the same. So a child that exited with 3 is mostly reported as ended
 *   by signal 3 (code 12), one that exited with 127 or 255 as code 13, one that exited with 128
 *   as success. Only when `waitpid` comes before the handler is an exit status reported as such
 *   (code 11). This is meant.
 * - **Code 8** can stand for a command that ended well, and whose output is whole: its status was
 *   lost. Signals that come together merge, and the handler reaps one child for each, which may
 *   be another than the one whose record it keeps. So it happens to commands that overlap with
 *   each other or with children of the host, in a host one of whose threads blocks `SIGCHLD`, and
 *   in one that reaps children itself. Of 3,000 runs of a program that ends at once, on two busy
 *   processors, it came to none with one thread, 1 with two, 4 with four, 15 with eight, 40 with
 *   twenty; beside a thread that reaped every child it came to 94 of 640. Let a command whose
 *   result matters tell it in its output, as its last line, say, and run such commands one at a
 *   time. Do not repeat a command because of an 8 alone.
 * - **Time-outs** end the reading for good. A grandchild that holds the pipe, or a child of another
 *   object or thread that inherited its write end, keeps the reading alive after the child's end.
 *   A child that writes after the read end was closed gets `SIGPIPE` (or `EPIPE`, where the host
 *   ignores that signal), and mostly ends with code 12.
 * - **Left-over output.** Output that was read ahead but not handed out (after an abort, or a
 *   Close() before the end of the output) is handed out first by the next run of the same object.
 *   This is meant.
 * - **Descriptors.** The child inherits every descriptor that the host has not marked
 *   close-on-exec, and the host's signal mask and ignored signals.
 * - **The environment** is inherited, but for "LANG", "LC_ALL" and the "LC_" variables of the six
 *   POSIX categories, which become "C", and "CDPATH", "EDITOR", "ENV", "FPATH" and "IFS", which
 *   become empty.
 *
 * Between `fork` and `execv` the child allocates memory, changes its environment and may write to
 * the trace log; in a host with several threads it may so wait for ever for a lock that another
 * thread held. Objects in several threads share the handler and the map; each object is used by one
 * thread at a time, and so are all objects with the same trace log together.
 *
 * A child that the host itself forks can run commands, whatever the host's other threads were
 * doing here at that moment: the library has handlers of `pthread_atfork` for that. If there was no
 * memory for them when it was loaded, and another thread was at work here at that moment, each
 * command of the child takes some tenths of a second longer and may come to code 8. Once the
 * process has begun to destroy its static objects commands still run, and only `waitpid` is asked
 * for their ends.
 */
class KELP_CMN_API CCmnExecPipePosix : public CCmnExecPipeBase {
 public:
  /** No child, nothing read. */
  CCmnExecPipePosix();

  /** The same with a list that is kept for the host. */
  explicit CCmnExecPipePosix(std::vector<std::string> hostList);

  /**
   * Calls Close(10): a child that still runs is waited for, and ended by force; up to half a
   * minute may pass.
   */
  ~CCmnExecPipePosix() override;

  /**
   * Starts a command. Its standard input is the file that the last Exec() named, "/dev/null" at
   * first. An earlier command should have been ended by Close(); else its child and its pipe are
   * lost. That is so after a time-out of Exec(), too, which leaves the child.
   * @param command   the command line, up to its first zero byte, as for ParseCommand()
   * @param reserved  not used
   * @return 0 with the child running and its output ready to be read; 1, 4, 6 or 7. What fails
   *         in the child, `execv` of a directory or a damaged file included, makes it exit
   *         with status 1.
   */
  int ExecPipe(std::string command, std::string reserved) override;

  /**
   * Waits for the child, asking every 100 milliseconds: the map first, then `waitpid`.
   *
   * After the time-out the child gets `SIGTERM`; after the same time again, but at most 30
   * seconds, `SIGKILL`; and after as much again it is given up. The child is not forgotten: that
   * is for Close().
   * @param timeoutSeconds  how many seconds to wait before `SIGTERM`, measured in the clock's whole
   *                        seconds; 0 lasts until the clock's second changes, a negative number
   *                        gives no time at any stage
   * @return the status from the map, or else the raw one from `waitpid`; -1 when there is no child,
   *         it cannot be found, or it hangs
   */
  int WaitPid(long timeoutSeconds) override;

  /**
   * Closes the read end and reaps the child. With neither of them, returns 0 at once.
   * @param timeoutSeconds  as for WaitPid()
   * @return 0, 3, 8, 11, 12 or 13; a failure of the child goes before a failure of closing
   *
   * When there is no memory for the record of a failure, std::bad_alloc leaves, after everything
   * else was done: the read end is closed and the child reaped.
   */
  int Close(long timeoutSeconds) override;

  /**
   * Reads a line of output. At the end of the output, on a time-out and on an error the read
   * end is closed.
   *
   * A last line without a line end is handed out before the end is reported. On a time-out what
   * came of a line is handed out too, with `*timedOut` set.
   * @param buffer          receives the line with its line end, NUL-terminated; a line that is too
   *                        long comes in pieces of `size` - 1 bytes. Zero bytes of the output stay,
   *                        but no length is told.
   * @param size            the buffer's size in bytes; below 2 nothing is read
   * @param timedOut        receives 1 when waiting for output ran out of time, else 0; must
   *                        not be null
   * @param timeoutSeconds  how many seconds to wait for each block of output; 0 does not wait, a
   *                        negative number has run out at once
   * @return whether a line was stored; otherwise the buffer is not terminated. An error drops what
   *         came of the line.
   */
  bool ReadLine(char* buffer, int size, unsigned char* timedOut, long timeoutSeconds) override;

  /** The result of the host's hook, or 0 without one. */
  int IsChildContext() override;

  /**
   * Runs a command through the host's hook.
   * @param command  the command line
   * @param output   appended to: the output's lines without their line ends. What follows the last
   *                 line end is dropped, on purpose.
   * @return the hook's result; 1 without a hook
   */
  int ExecCommandInChildContext(std::string command, std::vector<std::string>& output) override;

  /** Resets all but the base's members, without releasing anything; for a fresh object only. */
  void Init() override;

  /** Releases the argument vector. */
  void ClearArgsList();

  /**
   * Appends an argument to the vector.
   *
   * Quotes and backslashes work as ParseCommand() says; blanks and tabs are bytes like others.
   * @param text    the argument's bytes, not yet decoded; may be null when `length` is 0
   * @param length  how many; 0 ends the vector with a null instead
   * @return false when there is no memory, or when a backslash is the last byte; the argument is
   *         then stored without its terminator
   */
  bool AddArgument(const char* text, int length);

  /**
   * Splits a command line into the argument vector, which should be empty.
   *
   * The whole rule:
   * - Blanks and tabs separate words; a line end does not, nor does any other byte.
   * - Single and double quotes are alike. What stands between two of a kind is taken as it is,
   *   blanks, backslashes and quotes of the other kind too, and the quotes vanish. They may
   *   begin and end within a word; two with nothing between them are an empty word, or nothing at
   *   all within one.
   * - Outside of quotes a backslash vanishes, and the byte after it is taken as it is.
   * - Every other byte is taken as it is.
   *
   * A shell does otherwise: within double quotes a backslash protects nothing here, not even a
   * double quote; "#" begins no comment; a backslash before a line end keeps the line end; and
   * nothing is expanded or redirected.
   *
   * One way of writing is safe for words of all kinds, and for a shell, too: each word in single
   * quotes, and a single quote in it written as ``'\''``.
   * @code
   * std::string inSingleQuotes(const std::string& word) {
   *   std::string result = "'";
   *   for (const char c : word) {
   *     result += c == '\'' ? std::string("'\\''") : std::string(1, c);
   *   }
   *   return result + "'";
   * }
   * @endcode
   * @param commandLine  NUL-terminated, not null
   * @return false for no word at all, an open quote, a backslash at the end, or no memory
   */
  bool ParseCommand(const char* commandLine);

  /**
   * The `SIGCHLD` handler: reaps one ended child of the process, whichever it is, and records what
   * the signal says of its sender. Where `waitpid` fails, nothing is recorded; that nothing has
   * ended yet is no failure.
   *
   * Safe at any point of the program: it takes no lock, waits for nobody and never allocates from a
   * heap. A record goes into the map at once, or, while somebody else is in the map or after 64
   * records between two calls of the library, into a queue, from which the next look-up or command
   * takes it into the map. A full queue grows by pages that come from the system, and keeps them.
   * Only where the system has none is a record lost. Keeps `errno`. Does nothing once the process
   * has begun to destroy its static objects.
   * @param signalNumber  not used
   * @param info          the child's number and its exit code or signal; nothing is recorded
   *                      when it is null
   * @param context       not used
   */
  static void GetChildStatus(int signalNumber, siginfo_t* info, void* context);

  /**
   * Takes the record of an ended child out of the map. Waits a fifth of a second at most, and that
   * only for another thread that is in the map or in the handler.
   * @param pid     the child's number
   * @param status  receives its exit code or signal number; untouched when there is no record;
   *                must not be null
   * @return whether there was one
   */
  bool CheckChildStatusMap(int pid, int* status);

 protected:
  static struct sigaction m_act;  ///< the handler as last installed
  /**
   * Ended child -> exit code or signal number. Asked through CheckChildStatusMap() only, lest the
   * handler meet it half changed.
   */
  static std::map<int, int> m_childStatusMap;

  int m_childPid;             ///< the running child; -1 for none
  char m_readBuffer[512];     ///< output read ahead
  int m_bufferCount;          ///< how many bytes of it
  int m_bufferPos;            ///< the next one
  int m_readFd;               ///< the pipe's read end; -1 for none
  int m_argc;                 ///< arguments stored, the closing null not counted
  int m_argCapacity;          ///< slots allocated
  char** m_argv;              ///< on the malloc heap; its elements are arrays made with new
  std::string m_commandLine;  ///< the command line of the run
};

}  // namespace kelp_cmn_4_4

#endif
