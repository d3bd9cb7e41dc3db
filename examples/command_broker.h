// A small process that runs commands for a host that has grown large, where `fork` has grown slow.
#pragma once

#include <cmnexecpipe.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace command_broker {

constexpr int brokerLost = 100;  // a result code of this program's own: the broker has died

// One end of the connection. Texts cross it, each after its size.
class Channel {
 public:
  explicit Channel(int fd) : m_fd(fd) {}
  ~Channel() { close(m_fd); }
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  bool send(const std::string& text) const {
    const size_t size = text.size();
    return sendBytes(&size, sizeof size) && sendBytes(text.data(), size);
  }

  // False also at the end of the other process.
  bool receive(std::string& text) const {
    size_t size = 0;
    if (!receiveBytes(&size, sizeof size)) {
      return false;
    }
    text.resize(size);
    return receiveBytes(text.data(), size);
  }

 private:
  bool sendBytes(const void* data, size_t size) const {
    return transferAll(size, [=](size_t done) {
      return ::send(m_fd, static_cast<const char*>(data) + done, size - done, MSG_NOSIGNAL);
    });
  }
  bool receiveBytes(void* data, size_t size) const {
    return transferAll(size, [=](size_t done) {
      return recv(m_fd, static_cast<char*>(data) + done, size - done, 0);
    });
  }

  // Goes on where the end of a child has interrupted the broker.
  template <class Transfer>
  static bool transferAll(size_t size, Transfer transfer) {
    for (size_t done = 0; done < size;) {
      const ssize_t count = transfer(done);
      if (count == 0 || (count < 0 && errno != EINTR)) {
        return false;
      }
      done += count < 0 ? 0 : static_cast<size_t>(count);
    }
    return true;
  }

  int m_fd;
};

struct Reply {
  int code = brokerLost;
  std::string text;  // every line with its end
};

// The broker's life: one command after another, until the host closes its end.
inline void serve(const Channel& host) {
  std::string command;
  std::string stdinFile;
  std::string timeoutSeconds;
  while (host.receive(command) && host.receive(stdinFile) && host.receive(timeoutSeconds)) {
    kelp_cmn_4_4::CCmnExecPipePosix pipe;
    std::vector<std::string> lines;
    const int code = pipe.Exec(command, lines, stdinFile, std::stoul(timeoutSeconds), "", "", "");
    std::string text;
    for (const std::string& line : lines) {
      // The host's hooks drop what no line end follows.
      text += line.empty() || line.back() != '\n' ? line + '\n' : line;
    }
    host.send(std::to_string(code));
    host.send(text);
    // A command that has run out of time is ended here, by the pipe's destructor.
  }
}

// The host's side: one command at a time, whichever thread asks. To be made first of all, while the
// host is small and has one thread.
class Broker {
 public:
  Broker() : Broker(connectedEnds()) {}
  ~Broker() {
    shutdown(m_fd, SHUT_RDWR);  // the broker sees the end of its input, and ends
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  Reply run(const std::string& command, const std::string& stdinFile,
            unsigned long timeoutSeconds) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string code;
    Reply reply;
    if (!m_channel.send(command) || !m_channel.send(stdinFile) ||
        !m_channel.send(std::to_string(timeoutSeconds)) || !m_channel.receive(code) ||
        !m_channel.receive(reply.text)) {
      return Reply();
    }
    reply.code = std::stoi(code);
    return reply;
  }

  pid_t pid() const { return m_pid; }

 private:
  using Ends = std::array<int, 2>;
  static Ends connectedEnds() {
    Ends ends;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      throw std::runtime_error("no connection to the broker");
    }
    return ends;
  }

  explicit Broker(Ends ends) : m_fd(ends[0]), m_channel(m_fd), m_pid(fork()) {
    if (m_pid == 0) {
      close(m_fd);
      serve(Channel(ends[1]));
      _exit(0);
    }
    close(ends[1]);
    if (m_pid < 0) {
      throw std::runtime_error("no process for the broker");
    }
  }

  int m_fd;
  Channel m_channel;
  pid_t m_pid;
  std::mutex m_mutex;
};

// Runs commands as CCmnExecPipePosix does, but in the broker, where its hooks lead.
//
// The hooks carry the command, its lines without their line ends, and the result code. Input file,
// time-out and last error go past them; line ends, and which lines were pieces, are lost.
class BrokeredPipe : public kelp_cmn_4_4::CCmnExecPipePosix {
 public:
  explicit BrokeredPipe(Broker& broker) : m_broker(broker) {
    m_pfnIsChildContext = [] { return 1; };
    m_pfnExecInChild = runInBroker;
    m_pfnFreeOutput = [](char* output, int /*length*/) { std::free(output); };
  }

  int Exec(std::string command, std::vector<std::string>& output, std::string stdinFile,
           unsigned long timeoutSeconds, std::string reserved, std::string hostString1,
           std::string hostString2) override {
    Call call{m_broker, stdinFile, timeoutSeconds};
    s_call = &call;
    output.clear();
    const int code = CCmnExecPipePosix::Exec(command, output, stdinFile, timeoutSeconds, reserved,
                                             hostString1, hostString2);
    s_call = nullptr;
    if (code != kelp_cmn_4_4::execPipeOk) {
      m_lastError = kelp_cmn_4_4::ECmnExecPipe(command, code);
    }
    return code;
  }

 private:
  struct Call {
    Broker& broker;
    std::string stdinFile;
    unsigned long timeoutSeconds;
  };

  // The hooks get no context: the thread keeps it.
  static inline thread_local Call* s_call = nullptr;

  static int runInBroker(const char* command, char** output, int* outputLength) {
    const Reply reply = s_call->broker.run(command, s_call->stdinFile, s_call->timeoutSeconds);
    if (!reply.text.empty()) {  // else nobody would release it
      *output = strdup(reply.text.c_str());
      *outputLength = *output == nullptr ? 0 : static_cast<int>(reply.text.size());
    }
    return reply.code;
  }

  Broker& m_broker;
};

}  // namespace command_broker
