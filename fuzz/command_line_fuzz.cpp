// Command lines fall into the arguments that a plain splitter finds, which does in one pass what
// the library does in two. Lines follow each other on one object, with single arguments between
// them, also such as no line has.
#include "cmnexecpipe.h"
#include "expect.h"
#include "input.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using kelp_fuzz::expect;

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// What the object is to hold.
class PlainArguments {
 public:
  bool addLine(const std::string& line) {
    std::string argument;
    char quote = '\0';
    bool inWord = false;
    for (size_t i = 0; i < line.size(); ++i) {
      const char c = line[i];
      if (quote == '\0' && isBlank(c)) {
        if (inWord) {
          store(argument);
        }
        inWord = false;
        argument.clear();
        continue;
      }
      inWord = true;
      if (quote == '\0' && c == '\\') {
        if (++i == line.size()) {
          return false;
        }
        argument += line[i];
      } else if (quote == '\0' && (c == '\'' || c == '"')) {
        quote = c;
      } else if (quote != '\0' && c == quote) {
        quote = '\0';
      } else {
        argument += c;
      }
    }
    if (quote != '\0') {
      return false;
    }
    if (inWord) {
      store(argument);
    }
    return !m_texts.empty() && end();
  }

  // Quotes may stay open here, and blanks are nothing special.
  bool addArgument(const std::string& text) {
    if (text.empty()) {
      return end();
    }
    std::string argument;
    char quote = '\0';
    bool escaped = false;
    for (const char c : text) {
      if (escaped) {
        argument += c;
        escaped = false;
      } else if (quote == '\0' && c == '\\') {
        escaped = true;
      } else if (quote == '\0' && (c == '\'' || c == '"')) {
        quote = c;
      } else if (c == quote && quote != '\0') {
        quote = '\0';
      } else {
        argument += c;
      }
    }
    store(argument);
    m_terminated.back() = !escaped;
    return !escaped;
  }

  void clear() { *this = PlainArguments(); }

  const std::vector<std::string>& texts() const { return m_texts; }
  bool isTerminated(size_t index) const { return m_terminated[index]; }
  bool isEnded() const { return m_ended; }
  size_t capacity() const { return m_capacity; }

 private:
  void makeRoom() {
    if (m_texts.size() >= m_capacity) {
      m_capacity += 10;
    }
  }

  void store(const std::string& text) {
    makeRoom();
    m_texts.push_back(text);
    m_terminated.push_back(true);
    m_ended = false;
  }

  bool end() {
    makeRoom();
    m_ended = true;
    return true;
  }

  std::vector<std::string> m_texts;
  std::vector<bool> m_terminated;
  bool m_ended = false;  // by a null
  size_t m_capacity = 0;
};

class Splitter : public kelp_cmn_4_4::CCmnExecPipePosix {
 public:
  void expectToHold(const PlainArguments& plain) const {
    const std::vector<std::string>& texts = plain.texts();
    expect(static_cast<size_t>(m_argc) == texts.size(), "as many arguments");
    expect(static_cast<size_t>(m_argCapacity) == plain.capacity(), "slots in tens");
    for (size_t i = 0; i < texts.size(); ++i) {
      const size_t size = texts[i].size() + (plain.isTerminated(i) ? 1 : 0);
      expect(std::memcmp(m_argv[i], texts[i].c_str(), size) == 0, "the same arguments");
    }
    expect(!plain.isEnded() || m_argv[m_argc] == nullptr, "a null behind the last argument");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kelp_fuzz::Input input(data, size);
  Splitter splitter;
  PlainArguments plain;
  while (!input.empty()) {
    switch (input.upTo(3)) {
      case 0:
        splitter.ClearArgsList();
        plain.clear();
        break;
      case 1: {
        const std::string argument = input.bytes(input.upTo(40));
        const bool added = splitter.AddArgument(argument.data(), static_cast<int>(argument.size()));
        expect(added == plain.addArgument(argument), "the argument's result");
        break;
      }
      default: {
        const std::string line = input.text();
        expect(splitter.ParseCommand(line.c_str()) == plain.addLine(line), "the line's result");
      }
    }
    splitter.expectToHold(plain);
  }
  return 0;
}
