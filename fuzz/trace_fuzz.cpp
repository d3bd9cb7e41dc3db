// Tracing: whatever component, settings, levels and texts there are, the trace file, what is echoed
// and the settings file hold what a plain form expects.
#include "cmntracelog.h"
#include "expect.h"
#include "input.h"
#include "install_root.h"
#include "scratch.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace {

namespace fs = std::filesystem;

using kelp_fuzz::expect;
using kelp_fuzz::Input;
using kelp_test::InstallRoot;

// ---- texts with timestamps in them

// Null stands for a timestamp, of which only the form is known.
using PlainText = std::vector<std::optional<std::string>>;

constexpr char timestampForm[] = "dddd-dd-dd dd:dd:dd.dddddd";
constexpr size_t timestampLength = sizeof timestampForm - 1;

bool isTimestamp(const std::string& text) {
  const auto has = [](char c, char form) { return form == 'd' ? c >= '0' && c <= '9' : c == form; };
  return std::equal(text.begin(), text.end(), timestampForm, timestampForm + timestampLength, has);
}

void expectText(const std::string& text, const PlainText& plain) {
  size_t position = 0;
  for (const auto& piece : plain) {
    const std::string found =
        text.substr(position, piece.has_value() ? piece->size() : timestampLength);
    expect(piece.has_value() ? found == *piece : isTimestamp(found), "the plain form's text");
    position += found.size();
  }
  expect(position == text.size(), "nothing more");
}

// The process's standard output is a text in memory meanwhile.
class EchoText {
 public:
  EchoText() : m_before(stdout) {
    std::fflush(stdout);
    stdout = open_memstream(&m_text, &m_size);
    expect(stdout != nullptr, "a stream in memory");
  }
  ~EchoText() {
    std::fclose(stdout);
    stdout = m_before;
    std::free(m_text);
  }
  EchoText(const EchoText&) = delete;
  EchoText& operator=(const EchoText&) = delete;

  std::string text() const {
    std::fflush(stdout);
    return {m_text, m_size};
  }

 private:
  FILE* m_before;
  char* m_text = nullptr;
  size_t m_size = 0;
};

// ---- the settings file

class PlainSettings {
 public:
  void set(const std::string& key, const std::string& text) { m_values[key] = text; }
  void set(const std::string& key, unsigned int number) { m_values[key] = number; }

  bool empty() const { return m_values.empty(); }

  // A value of the other type counts as none, and is replaced as one that is missing.
  template <class Value>
  bool has(const std::string& key) const {
    const auto found = m_values.find(key);
    return found != m_values.end() && std::holds_alternative<Value>(found->second);
  }
  template <class Value>
  Value getOrSet(const std::string& key, const Value& value) {
    if (!has<Value>(key)) {
      m_values[key] = value;
    }
    return std::get<Value>(m_values[key]);
  }

  // In the order of the keys.
  std::string content() const {
    std::string content = "[DEBUG_TRACE_INFO]\n";
    for (const auto& [key, value] : m_values) {
      content += "\"" + key + "\"=";
      if (const auto* const text = std::get_if<std::string>(&value)) {
        content += "\"" + *text + "\"\n";
      } else {
        char number[32];
        std::snprintf(number, sizeof number, "dword:%08x\n", std::get<unsigned int>(value));
        content += number;
      }
    }
    return content;
  }

 private:
  std::map<std::string, std::variant<std::string, unsigned int>> m_values;
};

std::string sortedLines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.size(), text.find('\n', start)) + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  std::sort(lines.begin(), lines.end());
  std::string sorted;
  for (const std::string& line : lines) {
    sorted += line;
  }
  return sorted;
}

// ---- what a script may choose

// What can be a file's name, or a part of one.
std::string someName(Input& input) {
  constexpr size_t longest = 100;
  std::string name = input.text().substr(0, longest);
  const auto isUnfit = [](char c) { return c == '/' || c == '\n' || c == '\r'; };
  name.erase(std::remove_if(name.begin(), name.end(), isUnfit), name.end());
  return name;
}

std::string someDir(Input& input) {
  constexpr const char* dirs[] = {InstallRoot::traceDir, "/usr/tulsk/lib",
                                  "/usr/tulsk/krellvane/missing"};
  return dirs[input.upTo(std::size(dirs) - 1)];
}

int someLevel(Input& input) {
  constexpr int levels[] = {0, 1, 2, 3, 8, 9, 10, -1, INT_MAX, INT_MIN};
  const size_t chosen = input.upTo(std::size(levels));
  return chosen < std::size(levels) ? levels[chosen] : input.number<int>();
}

// Long ones are about as long as a buffer that doubles.
std::string someText(Input& input) {
  std::string text = input.text();
  if (text.empty() || input.upTo(3) != 0) {
    return text;
  }
  const size_t length = (size_t{1024} << input.upTo(2)) - 4 + input.upTo(8);
  std::string longText;
  while (longText.size() < length) {
    longText += text;
  }
  return longText.substr(0, length);
}

// Each key may be there, and have the other type.
PlainSettings someSettings(Input& input) {
  PlainSettings settings;
  const size_t keys = input.upTo(255);
  if ((keys & 1U) != 0) {
    settings.set("TRACEDIR", someDir(input));
  }
  if ((keys & 2U) != 0) {
    settings.set("TRACEFILE", "configured.log");
  }
  if ((keys & 4U) != 0) {
    settings.set("TRACELEVEL", static_cast<unsigned int>(someLevel(input)));
  }
  if ((keys & 8U) != 0) {
    settings.set("TRACESTDOUT", static_cast<unsigned int>(input.upTo(2)));
  }
  if ((keys & 16U) != 0) {
    settings.set("TRACELEVEL", "3");
  }
  if ((keys & 32U) != 0) {
    settings.set("TRACESTDOUT", "1");
  }
  if ((keys & 64U) != 0) {
    settings.set("TRACEFILE", 5U);
  }
  if ((keys & 128U) != 0) {
    settings.set("OTHER", "kept");
  }
  return settings;
}

// ---- the script

class Script {
 public:
  explicit Script(Input& input)
      : m_input(input), m_component(someName(input)), m_settings(someSettings(input)) {
    if (!m_settings.empty()) {
      kelp_test::writeFile(settingsPath(), m_settings.content());
    }
    setVerbosity();
    initialize();
  }
  ~Script() {
    fs::remove(settingsPath());
    fs::remove(InstallRoot::productConfig);
    if (m_isInitialized) {
      fs::remove(path());
    }
    fs::remove(InstallRoot::traceDir);
  }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  void step() {
    switch (m_input.upTo(7)) {
      case 0:
        setVerbosity();
        break;
      case 1:
        removeTrace();
        break;
      case 2:
        m_log.trace(someLevel(m_input), nullptr);
        traceAsFormat(someLevel(m_input), "");
        break;
      default:
        trace();
    }
  }

  void expectAll() const {
    expectText(m_echo.text(), m_plainEcho);
    expectText(m_isInitialized ? kelp_test::readFile(path()) : "", m_plainTrace);
    expect(sortedLines(kelp_test::readFile(settingsPath())) == sortedLines(m_settings.content()),
           "the plain form's settings");
  }

 private:
  std::string settingsPath() const { return InstallRoot::configDir + m_component + ".conf"; }
  std::string path() const { return m_dir + "/" + m_file; }

  void setVerbosity() {
    m_verbosity = m_input.choice() ? someLevel(m_input) : -1;
    if (m_verbosity == -1) {
      fs::remove(InstallRoot::productConfig);
    } else {
      kelp_test::writeFile(InstallRoot::productConfig,
                           "VERBOSE=" + std::to_string(m_verbosity) + "\n");
    }
  }

  void removeTrace() {
    if (m_isInitialized) {
      fs::remove(path());
    }
    m_plainTrace.clear();
  }

  void initialize() {
    const std::string dir = m_input.choice() ? someDir(m_input) : "";
    const std::string file = m_input.choice() ? someName(m_input) : "";
    const int level = someLevel(m_input);
    const bool echo = m_input.choice();
    m_log.initialize(m_component.c_str(), dir.c_str(), file.c_str(), level, echo);
    resolve(dir, file, static_cast<unsigned int>(level), echo);
    m_isInitialized = fs::is_directory(m_dir) && !m_file.empty() && !fs::is_directory(path());
    if (!m_isInitialized) {
      m_plainEcho.emplace_back("[CCmnTraceLog] Error: Tracefile [" + path() +
                               "] initialization failed.[" + m_file + "][" + m_dir + "]\n");
    }
    expect(m_log.isInitialized() == m_isInitialized, "initialized, or not");
    expect(m_log.getTracePath() == path().c_str(), "the plain form's path");
    expect(m_log.getTraceLevel() == m_level, "the plain form's level");
  }

  // What is given together wins over the file, and what is missing there is written.
  void resolve(const std::string& dir, const std::string& file, unsigned int level, bool echo) {
    const bool isGiven = !dir.empty() && !file.empty();
    if (isGiven) {
      m_settings.set("TRACEDIR", dir);
      m_settings.set("TRACEFILE", file);
      m_settings.set("TRACELEVEL", level);
    }
    const bool isNew = m_settings.empty();
    if (isGiven || isNew) {
      m_settings.set("TRACESTDOUT", 0U);
    }
    const bool hasLevel = m_settings.has<unsigned int>("TRACELEVEL");
    m_dir = m_settings.getOrSet<std::string>("TRACEDIR", InstallRoot::traceDir);
    m_file = m_settings.getOrSet<std::string>("TRACEFILE", m_component + ".log");
    m_configuredLevel = m_settings.getOrSet("TRACELEVEL", level);
    m_echoes = m_settings.getOrSet("TRACESTDOUT", echo ? 1U : 0U) == 1 || echo;
    m_level = std::max(hasLevel && m_configuredLevel > 0 ? 1 : 0, m_verbosity);
  }

  void trace() {
    const int level = someLevel(m_input);
    const std::string text = someText(m_input);
    switch (m_input.upTo(2)) {
      case 0:
        m_log.trace(level, "%s", text.c_str());
        expectLine(level, text);
        break;
      case 1:
        m_log.trace(level, "%d:%s|%5.1f", -42, text.c_str(), 2.5);
        expectLine(level, "-42:" + text + "|  2.5");
        break;
      default:
        traceAsFormat(level, text);
    }
  }

  // An empty format writes no line.
  void traceAsFormat(int level, const std::string& text) {
    std::string format;
    for (const char c : text) {
      format += std::string(c == '%' ? 2 : 1, c);
    }
    m_log.trace(level, format.c_str(), "not looked at");
    if (!format.empty()) {
      expectLine(level, text);
    }
  }

  void expectLine(int level, const std::string& text) {
    const bool isWanted =
        level <= static_cast<int>(m_configuredLevel) || (level <= m_verbosity && m_verbosity >= 9);
    if (!m_isInitialized || !isWanted) {
      return;
    }
    m_plainTrace.insert(m_plainTrace.end(), {std::nullopt, " " + text + "\n"});
    if (m_echoes) {
      m_plainEcho.insert(m_plainEcho.end(), {m_component + ":", std::nullopt, " " + text + "\n"});
    }
  }

  Input& m_input;
  EchoText m_echo;
  kelp_cmn_4_4::CCmnTraceLog m_log;

  std::string m_component;
  PlainSettings m_settings;
  std::string m_dir;
  std::string m_file;
  unsigned int m_configuredLevel = 0;
  int m_verbosity = -1;
  int m_level = 0;
  bool m_echoes = false;
  bool m_isInitialized = false;
  PlainText m_plainEcho;
  PlainText m_plainTrace;
};

struct PreparedRoot : InstallRoot {
  PreparedRoot() { makeConfigDir(); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const PreparedRoot root;
  Input input(data, size);
  Script script(input);
  while (!input.empty()) {
    script.step();
  }
  script.expectAll();
  return 0;
}
