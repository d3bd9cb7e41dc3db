// hostile_child MODE [ARG …]: the external command of the exec pipe's tests. Writes without
// buffering, and never lives longer than two minutes.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

void writeAll(int fd, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) {
      _exit(99);
    }
    done += written < 0 ? 0 : static_cast<size_t>(written);
  }
}

void say(const std::string& text) { writeAll(STDOUT_FILENO, text); }

// "\n", "\t", "\0" and "\\" stand for what they do in C.
std::string unescaped(const char* text) {
  std::string result;
  for (; *text != '\0'; ++text) {
    if (*text != '\\' || text[1] == '\0') {
      result += *text;
      continue;
    }
    ++text;
    result += *text == 'n' ? '\n' : *text == 't' ? '\t' : *text == '0' ? '\0' : *text;
  }
  return result;
}

std::string letters(size_t count) {
  std::string result(count, '\0');
  for (size_t i = 0; i < count; ++i) {
    result[i] = static_cast<char>('a' + i % 26);
  }
  return result;
}

size_t number(const char* text) { return static_cast<size_t>(std::strtoul(text, nullptr, 10)); }

int arguments(char** argv) {
  for (; *argv != nullptr; ++argv) {
    say(std::string(*argv) + "\n");
  }
  return 0;
}

int environment(char**) {
  for (char** variable = environ; *variable != nullptr; ++variable) {
    say(std::string(*variable) + "\n");
  }
  return 0;
}

int descriptors(char**) {
  DIR* directory = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(directory)) {
    char target[4096];
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    if (length >= 0 && std::atoi(entry->d_name) != dirfd(directory)) {
      say(std::string(entry->d_name) + " " + std::string(target, static_cast<size_t>(length)) +
          "\n");
    }
  }
  closedir(directory);
  return 0;
}

int signals(char**) {
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  for (int i = 1; i < NSIG; ++i) {
    struct sigaction action {};
    if (sigismember(&mask, i) == 1) {
      say("blocked " + std::to_string(i) + "\n");
    }
    if (sigaction(i, nullptr, &action) == 0 && action.sa_handler != SIG_DFL) {
      say("ignored " + std::to_string(i) + "\n");
    }
  }
  return 0;
}

int echoInput(char**) {
  char block[4096];
  ssize_t count = 0;
  while ((count = read(STDIN_FILENO, block, sizeof block)) > 0) {
    say(std::string(block, static_cast<size_t>(count)));
  }
  return count == 0 ? 0 : 2;
}

int exitWith(char** argv) { return std::atoi(argv[0]); }

int dieBy(char** argv) {
  signal(std::atoi(argv[0]), SIG_DFL);  // a sanitizer may have taken it
  raise(std::atoi(argv[0]));
  return 98;
}

[[noreturn]] void waitForever() {
  while (true) {
    pause();
  }
}

int stay(char**) {
  say("r\n");
  waitForever();
}

int ignoreTermination(char** argv) {
  signal(SIGTERM, SIG_IGN);
  return stay(argv);
}

int closeOutputAndStay(char**) {
  say("closing\n");
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  waitForever();
}

void sleepMilliseconds(size_t count) {
  timespec left{static_cast<time_t>(count / 1000), static_cast<long>(count % 1000 * 1000000)};
  while (nanosleep(&left, &left) != 0) {
  }
}

// Says nothing, and exits with a status after so many milliseconds.
int silence(char** argv) {
  sleepMilliseconds(number(argv[0]));
  return std::atoi(argv[1]);
}

// Closes its output and runs on: for so many milliseconds, until it exits with a status.
int closeOutputAndLinger(char** argv) {
  say("closing\n");
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  return silence(argv);
}

// So many numbered lines, each written alone.
int count(char** argv) {
  for (size_t i = 0; i < number(argv[0]); ++i) {
    say(std::to_string(i) + "\n");
  }
  return 0;
}

// Numbered lines without end, many in one piece.
int flood(char**) {
  for (size_t i = 0;; i += 1000) {
    std::string block;
    for (size_t k = i; k < i + 1000; ++k) {
      block += std::to_string(k) + "\n";
    }
    say(block);
  }
}

// Says the grandchild's number, then ends; the grandchild stays and holds the pipe.
int leaveGrandchild(char**) {
  const pid_t child = fork();
  if (child == 0) {
    waitForever();
  }
  say(std::to_string(child) + "\n");
  return 0;
}

int sayText(char** argv) {
  say(unescaped(argv[0]));
  return argv[1] == nullptr ? 0 : std::atoi(argv[1]);
}

// A line for each argument, which is its length without the line end.
int lines(char** argv) {
  for (; *argv != nullptr; ++argv) {
    say(letters(number(*argv)) + "\n");
  }
  return 0;
}

int bytesWithoutLineEnd(char** argv) {
  say(letters(number(argv[0])));
  return 0;
}

// Writes a text byte by byte and waits for a byte of input after each.
int dribble(char** argv) {
  for (const char c : unescaped(argv[0])) {
    char ready = 0;
    say(std::string(1, c));
    if (read(STDIN_FILENO, &ready, 1) != 1) {
      return 2;
    }
  }
  return 0;
}

// Says a line, waits for a byte of input, exits with a status.
int sayThenWait(char** argv) {
  char ready = 0;
  say("waiting\n");
  return read(STDIN_FILENO, &ready, 1) == 1 ? std::atoi(argv[0]) : 2;
}

int bothOutputs(char**) {
  for (int i = 0; i < 3; ++i) {
    writeAll(STDOUT_FILENO, "out " + std::to_string(i) + "\n");
    writeAll(STDERR_FILENO, "err " + std::to_string(i) + "\n");
  }
  return 0;
}

int stopItself(char**) {
  say("stopping\n");
  raise(SIGSTOP);
  say("woken\n");
  return 0;
}

const std::map<std::string, int (*)(char**)> modes = {
    {"args", arguments},
    {"env", environment},
    {"fds", descriptors},
    {"signals", signals},
    {"echo", echoInput},
    {"exit", exitWith},
    {"die", dieBy},
    {"stay", stay},
    {"ignoreterm", ignoreTermination},
    {"closeoutput", closeOutputAndStay},
    {"silence", silence},
    {"linger", closeOutputAndLinger},
    {"count", count},
    {"flood", flood},
    {"grandchild", leaveGrandchild},
    {"say", sayText},
    {"lines", lines},
    {"bytes", bytesWithoutLineEnd},
    {"dribble", dribble},
    {"waitbyte", sayThenWait},
    {"both", bothOutputs},
    {"stop", stopItself},
};

}  // namespace

int main(int argc, char** argv) {
  constexpr unsigned int longestLife = 120;
  alarm(longestLife);
  const auto mode = argc < 2 ? modes.end() : modes.find(argv[1]);
  return mode == modes.end() ? 97 : mode->second(argv + 2);
}
