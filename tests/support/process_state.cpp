#include "process_state.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>

namespace kelp_test {
namespace {

std::set<std::string> expectedChanges;

std::map<int, std::string> openDescriptors() {
  std::map<int, std::string> result;
  DIR* directory = opendir("/proc/self/fd");
  if (directory == nullptr) {
    return result;
  }
  const int own = dirfd(directory);
  while (const dirent* entry = readdir(directory)) {
    char* end = nullptr;
    const long number = std::strtol(entry->d_name, &end, 10);
    if (end == entry->d_name || number == own) {
      continue;
    }
    char target[PATH_MAX];
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    result[static_cast<int>(number)] =
        length < 0 ? "?" : std::string(target, static_cast<size_t>(length));
  }
  closedir(directory);
  return result;
}

std::vector<std::string> signalDispositions() {
  std::vector<std::string> result;
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    std::string text = "none";
    if (sigaction(number, nullptr, &action) == 0) {
      text = action.sa_handler == SIG_DFL   ? "default"
             : action.sa_handler == SIG_IGN ? "ignored"
                                            : "handled";
    }
    result.push_back(text);
  }
  return result;
}

std::string signalMaskText() {
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  std::string result;
  for (int number = 1; number < NSIG; ++number) {
    result += sigismember(&mask, number) == 1 ? '1' : '0';
  }
  return result;
}

bool anyChildren() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

std::string describe(const std::map<int, std::string>& descriptors) {
  std::string result;
  for (const auto& [number, target] : descriptors) {
    result += " " + std::to_string(number) + "=" + target;
  }
  return result;
}

class Guard : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    expectedChanges.clear();
    m_before = ProcessState::capture();
  }
  void OnTestEnd(const testing::TestInfo&) override {
    for (const std::string& line : unexpectedChanges(m_before, ProcessState::capture())) {
      ADD_FAILURE() << "the test left behind: " << line;
    }
  }
  ProcessState m_before;
};

}  // namespace

ProcessState ProcessState::capture() {
  ProcessState state;
  state.descriptors = openDescriptors();
  state.dispositions = signalDispositions();
  state.signalMask = signalMaskText();
  const char* locale = setlocale(LC_ALL, nullptr);
  state.locale = locale == nullptr ? "" : locale;
  char directory[PATH_MAX];
  state.workingDirectory = getcwd(directory, sizeof directory) == nullptr ? "" : directory;
  state.umask = ::umask(0);
  ::umask(state.umask);
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    state.environment.emplace_back(*variable);
  }
  std::sort(state.environment.begin(), state.environment.end());
  state.hasChildren = anyChildren();
  return state;
}

void expectChangeOf(const std::string& what) { expectedChanges.insert(what); }

std::vector<std::string> unexpectedChanges(const ProcessState& before, const ProcessState& after) {
  std::vector<std::string> lines;
  const auto report = [&lines](const std::string& what, const std::string& detail) {
    if (expectedChanges.count(what) == 0) {
      lines.push_back(what + " " + detail);
    }
  };
  if (before.descriptors != after.descriptors) {
    report("descriptors", describe(before.descriptors) + " ->" + describe(after.descriptors));
  }
  for (size_t i = 0; i < before.dispositions.size(); ++i) {
    if (before.dispositions[i] != after.dispositions[i]) {
      const int number = static_cast<int>(i) + 1;
      report(number == SIGCHLD ? "SIGCHLD" : "signal " + std::to_string(number),
             before.dispositions[i] + " -> " + after.dispositions[i]);
    }
  }
  if (before.signalMask != after.signalMask) {
    report("signal mask", before.signalMask + " -> " + after.signalMask);
  }
  if (before.locale != after.locale) {
    report("locale", before.locale + " -> " + after.locale);
  }
  if (before.workingDirectory != after.workingDirectory) {
    report("working directory", before.workingDirectory + " -> " + after.workingDirectory);
  }
  if (before.umask != after.umask) {
    report("umask", std::to_string(before.umask) + " -> " + std::to_string(after.umask));
  }
  if (before.environment != after.environment) {
    report("environment", "changed");
  }
  if (!before.hasChildren && after.hasChildren) {
    report("children", "not reaped");
  }
  return lines;
}

void installProcessStateGuard() { testing::UnitTest::GetInstance()->listeners().Append(new Guard); }

}  // namespace kelp_test
