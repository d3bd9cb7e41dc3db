// Configuration files: whatever a file holds, the store then has what a plain reader finds; and
// what is set comes back from the file that it is exported to.
#include "cmnconfiguration.h"
#include "expect.h"
#include "input.h"
#include "memory_file.h"

#include <ace/Configuration.h>

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnConfiguration;
using kelp_cmn_4_4::tstr;
using kelp_fuzz::expect;
using kelp_fuzz::MemoryFile;

using Binary = std::vector<unsigned char>;

struct LessButForCase {
  bool operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }
};

// The spelling of a value's name is that of the first.
struct Section {
  std::map<std::string, std::variant<std::string, unsigned int, Binary>, LessButForCase> values;
  std::map<std::string, Section> sections;

  bool operator==(const Section& other) const {
    return values == other.values && sections == other.sections;
  }
};

// Whether two sections of one level differ in nothing but case. Such are mostly refused, and
// sometimes the same.
bool hasTwins(const Section& section) {
  std::set<std::string, LessButForCase> names;
  return std::any_of(section.sections.begin(), section.sections.end(), [&](const auto& sub) {
    return !names.insert(sub.first).second || hasTwins(sub.second);
  });
}

// ---- what the store has

ACE_Configuration_Section_Key subsection(ACE_Configuration_Heap& heap,
                                         const ACE_Configuration_Section_Key& key,
                                         const char* name) {
  ACE_Configuration_Section_Key result;
  expect(heap.open_section(key, name, false, result) == 0, "a section that is enumerated");
  return result;
}

void readValue(ACE_Configuration_Heap& heap, const ACE_Configuration_Section_Key& key,
               const char* name, ACE_Configuration::VALUETYPE type, Section& section) {
  if (type == ACE_Configuration::STRING) {
    tstr text;
    expect(heap.get_string_value(key, name, text) == 0, "a text that is enumerated");
    section.values[name] = std::string(text.c_str());
  } else if (type == ACE_Configuration::INTEGER) {
    unsigned int number = 0;
    expect(heap.get_integer_value(key, name, number) == 0, "a number that is enumerated");
    section.values[name] = number;
  } else {
    void* bytes = nullptr;
    size_t length = 0;
    expect(heap.get_binary_value(key, name, bytes, length) == 0, "bytes that are enumerated");
    const auto* const first = static_cast<unsigned char*>(bytes);
    section.values[name] = Binary(first, first + length);
    delete[] static_cast<char*>(bytes);
  }
}

Section held(CCmnConfiguration& store, const ACE_Configuration_Section_Key& key) {
  ACE_Configuration_Heap& heap = store.configHeap();
  Section section;
  tstr name;
  ACE_Configuration::VALUETYPE type{};
  for (int i = 0; heap.enumerate_values(key, i, name, type) == 0; ++i) {
    readValue(heap, key, name.c_str(), type, section);
  }
  for (const tstr& subsectionName : store.enumerateSections(key)) {
    section.sections[subsectionName.c_str()] =
        held(store, subsection(heap, key, subsectionName.c_str()));
  }
  return section;
}

Section held(CCmnConfiguration& store) { return held(store, store.configHeap().root_section()); }

// ---- the plain reader

constexpr size_t longestName = 255;

bool isName(const std::string& name) {
  return name.size() <= longestName && name.find_first_of("\\][") == std::string::npos;
}

// Goes to the section of that path, and makes it where it is missing; false where a name may not
// be. A path without a name leads nowhere.
bool open(const std::string& path, Section& root, Section*& section) {
  Section* next = &root;
  size_t start = 0;
  while ((start = path.find_first_not_of("\\/", start)) != std::string::npos) {
    const size_t end = std::min(path.size(), path.find_first_of("\\/", start));
    const std::string name = path.substr(start, end - start);
    if (!isName(name)) {
      return false;
    }
    section = next = &next->sections[name];
    start = end;
  }
  return true;
}

Binary bytesIn(const std::string& text) {
  Binary bytes;
  const char* next = text.c_str();
  for (size_t count = text.size() / 3; count > 0; --count) {
    bytes.push_back(static_cast<unsigned char>(std::strtoul(next, nullptr, 16)));
    next += 3;
  }
  return bytes;
}

bool startsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

// False where the value cannot be taken.
bool readValueLine(const std::string& line, Section* section) {
  const size_t nameEnd = line.find('"', 1);
  if (nameEnd == std::string::npos) {
    return true;
  }
  const std::string name = line.substr(1, nameEnd - 1);
  const std::string value = line.substr(std::min(line.size(), nameEnd + 2));
  const bool canHold = section != nullptr && isName(name);
  if (startsWith(value, "\"")) {
    if (canHold) {
      section->values[name] = value.substr(1, value.rfind('"') - 1);
    }
    return canHold;
  }
  if (startsWith(value, "dword:")) {
    if (canHold) {
      section->values[name] =
          static_cast<unsigned int>(std::strtoul(value.c_str() + 6, nullptr, 16));
    }
    return canHold;
  }
  if (startsWith(value, "hex:")) {
    if (canHold) {
      section->values[name] = bytesIn(value.substr(4));
    }
    return canHold;
  }
  return true;
}

// A value as older files have it: its name is not quoted, its text has no end, and its number
// is decimal.
bool readOldValueLine(const std::string& line, Section* section) {
  const size_t end = std::min(line.find('\r'), line.size() - 1);
  const size_t equals = line.find('=');
  if (equals >= end || (line[equals + 1] != '"' && line[equals + 1] != '#')) {
    return true;
  }
  const std::string name = line.substr(0, equals);
  if (section == nullptr || !isName(name)) {
    return false;
  }
  const std::string value = line.substr(equals + 2, end - (equals + 2));
  if (line[equals + 1] == '"') {
    section->values[name] = value;
  } else {
    section->values[name] = static_cast<unsigned int>(std::strtol(value.c_str(), nullptr, 10));
  }
  return true;
}

// The status. Lines end with a newline, or are none.
int plainlyRead(const std::string& content, Section& root) {
  if (content.find('\0') != std::string::npos) {
    return -1;
  }
  Section* section = nullptr;
  size_t start = 0;
  for (size_t end; (end = content.find('\n', start)) != std::string::npos; start = end + 1) {
    const std::string line = content.substr(start, end + 1 - start);
    if (line[0] == '[') {
      const size_t bracket = line.rfind(']');
      if (bracket == std::string::npos || !open(line.substr(1, bracket - 1), root, section)) {
        return -3;
      }
    } else if (line[0] != ';' && line[0] != '#') {
      if (!(line[0] == '"' ? readValueLine(line, section) : readOldValueLine(line, section))) {
        return -4;
      }
    }
  }
  return 0;
}

void readFile(const MemoryFile& file, const std::string& content, CCmnConfiguration& store,
              Section& plain) {
  file.hold(content);
  const int status = store.importConfig(MemoryFile::directory, file.name().c_str());
  const int plainStatus = plainlyRead(content, plain);
  if (hasTwins(plain)) {
    return;
  }
  expect(status == plainStatus, "the plain reader's status");
  expect(status == 0 || store.getLastError().getCode() == status, "the status on record");
  expect(held(store) == plain, "what the plain reader finds");
}

// ---- what is written

bool isLasting(const std::string& text) { return text.find('\n') == std::string::npos; }

// Whether the form of a file has room for all that a section holds.
bool isLasting(const Section& section) {
  return std::all_of(section.values.begin(), section.values.end(),
                     [](const auto& value) {
                       const auto* const text = std::get_if<std::string>(&value.second);
                       return value.first.find('"') == std::string::npos &&
                              (text == nullptr || isLasting(*text));
                     }) &&
         std::all_of(section.sections.begin(), section.sections.end(),
                     [](const auto& sub) { return isLasting(sub.second); });
}

void expectLasting(const MemoryFile& file, CCmnConfiguration& store, const Section& plain) {
  expect(store.exportConfig() == 0, "an export");
  if (!isLasting(plain) || hasTwins(plain)) {
    return;
  }
  Section written;
  expect(plainlyRead(file.content(), written) == 0 && written == plain, "all of it in the file");
  CCmnConfiguration again;
  expect(again.importConfig(MemoryFile::directory, file.name().c_str()) == 0, "a file to import");
  expect(held(again) == plain, "what was exported");
}

// ---- a store that is written and read

// None is another's in other letters.
std::string someName(kelp_fuzz::Input& input) {
  constexpr const char* names[] = {"A", "b", "TRACELEVEL", "two words", "\xc3\xa4;#=", "0"};
  return names[input.upTo(std::size(names) - 1)];
}

std::string somePath(kelp_fuzz::Input& input) {
  std::string path = someName(input);
  for (size_t more = input.upTo(2); more > 0; --more) {
    path += "\\" + someName(input);
  }
  return path;
}

class Script {
 public:
  explicit Script(const MemoryFile& file)
      : m_store(MemoryFile::directory, file.name().c_str(), false) {}

  void step(kelp_fuzz::Input& input) {
    switch (input.upTo(5)) {
      case 0:
        openSection(input);
        break;
      case 1:
        setText(someName(input), input.text());
        break;
      case 2:
        setNumber(someName(input), input.number<unsigned int>());
        break;
      case 3:
        goTo(somePath(input));
        break;
      case 4:
        expectValue(someName(input));
        break;
      default:
        expectNames();
    }
  }

  CCmnConfiguration& store() { return m_store; }
  const Section& plain() const { return m_plain; }

 private:
  // From the root or from the current section.
  void openSection(kelp_fuzz::Input& input) {
    const bool isRelative = input.choice() && m_current != nullptr;
    const bool create = input.choice();
    const std::string path = somePath(input);
    ACE_Configuration_Section_Key key;
    const int status = isRelative ? m_store.openSection(m_key, path.c_str(), key, create ? 1 : 0)
                                  : m_store.openSection(path.c_str(), key, create ? 1 : 0);
    Section& base = isRelative ? *m_current : m_plain;
    expect((status == 0) == (create || exists(base, path)), "a section, or none");
    if (status == 0) {
      expect(open(path, base, m_current), "a path");
      m_key = key;
    }
  }

  // What the two-name getters do before they read, and all they do without such a value.
  void goTo(const std::string& path) {
    tstr text;
    expect(m_store.getStringValue(path.c_str(), "none", text) != 0, "no such value");
    expect(open(path, m_plain, m_current), "a path");
    expect(m_store.openSection(path.c_str(), m_key, 0) == 0, "a section that was made");
  }

  static bool exists(const Section& base, const std::string& path) {
    const size_t end = std::min(path.size(), path.find('\\'));
    const auto found = base.sections.find(path.substr(0, end));
    return found != base.sections.end() &&
           (end == path.size() || exists(found->second, path.substr(end + 1)));
  }

  void setText(const std::string& name, const std::string& text) {
    const int status = m_store.setStringValue(name.c_str(), text.c_str());
    expect((status == 0) == (m_current != nullptr), "a text is set in a section");
    if (status == 0) {
      m_current->values[name] = text;
    }
  }

  void setNumber(const std::string& name, unsigned int number) {
    const int status = m_store.setIntegerValue(name.c_str(), number);
    expect((status == 0) == (m_current != nullptr), "a number is set in a section");
    if (status == 0) {
      m_current->values[name] = number;
    }
  }

  // Neither getter writes when it fails.
  void expectValue(const std::string& name) {
    tstr text("untouched");
    unsigned int number = 77;
    const bool isText = m_store.getStringValue(name.c_str(), text) == 0;
    const bool isNumber = m_store.getIntegerValue(name.c_str(), number) == 0;
    std::string plainText = "untouched";
    unsigned int plainNumber = 77;
    if (m_current != nullptr && m_current->values.count(name) != 0) {
      const auto& value = m_current->values[name];
      plainText = isText ? std::get<std::string>(value) : plainText;
      plainNumber = isNumber ? std::get<unsigned int>(value) : plainNumber;
      expect(isText || isNumber, "a value that was set");
    } else {
      expect(!isText && !isNumber, "no value that was not set");
    }
    expect(text.c_str() == plainText && number == plainNumber, "the value that was set");
  }

  void expectNames() {
    std::set<std::string> names;
    for (const tstr& name : m_store.enumerateSections()) {
      names.insert(name.c_str());
    }
    std::set<std::string> plainNames;
    if (m_current != nullptr) {
      for (const auto& [name, section] : m_current->sections) {
        plainNames.insert(name);
      }
    }
    expect(names == plainNames, "the sections in the current one");
  }

  CCmnConfiguration m_store;
  ACE_Configuration_Section_Key m_key;
  Section m_plain;
  Section* m_current = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const MemoryFile file;
  kelp_fuzz::Input input(data, size);
  if (input.choice()) {
    Script script(file);
    while (!input.empty()) {
      script.step(input);
    }
    expect(held(script.store()) == script.plain(), "all that was set");
    expectLasting(file, script.store(), script.plain());
    return 0;
  }
  CCmnConfiguration store;
  Section plain;
  const std::string before = input.bytes(input.upTo(2000));
  readFile(file, before, store, plain);
  readFile(file, input.rest(), store, plain);
  expectLasting(file, store, plain);
  return 0;
}
