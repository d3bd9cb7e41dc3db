#include "cmnconfiguration.h"

#include "cmnacestring.h"
#include "cmnpathtool.h"
#include "cmnsettingsfile.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <new>

namespace kelp_cmn_4_4 {
namespace {

constexpr size_t sectionMapSize = 16;
constexpr int refused = -1;

const char* orEmpty(const char* text) { return text == nullptr ? "" : text; }

CCmnError failure(int code, const char* message, const char* function, int line) {
  return {code, message, __FILE__, line, function};
}

// ACE does not check whether its heap is open. The current section of a store without a heap is
// this mark, for as long as the store lives.
class NoHeap : public ACE_Section_Key_Internal {
 public:
  int add_ref() override { return 1; }
  int dec_ref() override { return 1; }
};

ACE_Configuration_Section_Key noHeap() {
  // Never destroyed, because a store of a host may outlive any static object.
  alignas(NoHeap) static unsigned char memory[sizeof(NoHeap)];
  static auto* const mark = new (memory) NoHeap;
  return ACE_Configuration_Section_Key(mark);
}

// A derived class, because the function that tells what a key holds is protected.
class KeyReader : public ACE_Configuration_Heap {
 public:
  static ACE_Section_Key_Internal* read(ACE_Configuration& heap,
                                        const ACE_Configuration_Section_Key& key) {
    return (heap.*&KeyReader::get_internal_key)(key);
  }
};

bool lacksHeap(ACE_Configuration& heap, const ACE_Configuration_Section_Key& currentSection) {
  return dynamic_cast<NoHeap*>(KeyReader::read(heap, currentSection)) != nullptr;
}

void nameFile(const char* dir, const char* file, tstr& configDir, tstr& configFile,
              tstr& configPath) {
  tstr newDir = copied(orEmpty(dir));
  tstr newFile = copied(orEmpty(file));
  // Deliberate: no slash is put between them. Every directory of CCmnPathTool ends with one.
  tstr newPath = joined(newDir, newFile);
  configDir.swap(newDir);
  configFile.swap(newFile);
  configPath.swap(newPath);
}

}  // namespace

CCmnConfiguration::CCmnConfiguration() {
  const int rc = m_heap.open(sectionMapSize);
  if (rc != 0) {
    m_currentSection = noHeap();
    m_lastError = failure(rc, "Failed to open configuration heap", "CCmnConfiguration", __LINE__);
  }
}

CCmnConfiguration::CCmnConfiguration(const char* dir, const char* file, bool import)
    : CCmnConfiguration() {
  if (import) {
    importConfig(dir, file);
  } else {
    nameFile(dir, file, m_configDir, m_configFile, m_configPath);
  }
}

CCmnConfiguration::~CCmnConfiguration() = default;

ACE_Configuration_Heap& CCmnConfiguration::configHeap() { return m_heap; }

int CCmnConfiguration::importConfig(const char* dir, const char* file) {
  nameFile(dir, file, m_configDir, m_configFile, m_configPath);
  int rc = CCmnPathTool::verify(m_configDir.c_str());
  if (rc != 0) {
    m_lastError = failure(rc, "Configuration path verification failed", "importConfig", __LINE__);
    return rc;
  }
  rc = CCmnPathTool::verify(m_configPath.c_str());
  if (rc != 0) {
    m_lastError = failure(rc, "Configuration path succeeded but no configuration file exists.",
                          "importConfig", __LINE__);
    return rc;
  }
  // Deliberate: what the heap holds already stays, so that a host can import its defaults first.
  // Nor does a success clear the last error: a host may ask once, when it has set everything up.
  rc = lacksHeap(m_heap, m_currentSection) ? refused : importSettings(m_heap, m_configPath.c_str());
  if (rc != 0) {
    m_lastError = failure(rc, "Import of configuration file failed.", "importConfig", __LINE__);
  }
  return rc;
}

int CCmnConfiguration::exportConfig() {
  if (lacksHeap(m_heap, m_currentSection)) {
    return refused;
  }
  return exportSettings(m_heap, m_configPath.c_str());
}

int CCmnConfiguration::openSection(const ACE_Configuration_Section_Key& base, const char* name,
                                   ACE_Configuration_Section_Key& result, int create) {
  if (lacksHeap(m_heap, m_currentSection)) {
    return refused;
  }
  const int rc = m_heap.open_section(base, name, create != 0, result);
  // Deliberate: becomes the current one. The trace log's getters and setters work on it.
  if (rc == 0) {
    m_currentSection = result;
  }
  return rc;
}

int CCmnConfiguration::openSection(const char* name, ACE_Configuration_Section_Key& result,
                                   int create) {
  return openSection(m_heap.root_section(), name, result, create);
}

int CCmnConfiguration::getStringValue(const char* name, tstr& value) {
  tstr text;
  errno = 0;
  const int rc = m_heap.get_string_value(m_currentSection, name, text);
  if (rc == 0) {
    // The one sign by which ACE tells a lack of memory from an empty text.
    if (text.is_empty() && errno == ENOMEM) {
      throw std::bad_alloc();
    }
    assign(value, text);
  }
  return rc;
}

int CCmnConfiguration::setStringValue(const char* name, const tstr& value) {
  return m_heap.set_string_value(m_currentSection, name, whole(value));
}

int CCmnConfiguration::getIntegerValue(const char* name, unsigned int& value) {
  return m_heap.get_integer_value(m_currentSection, name, value);
}

int CCmnConfiguration::setIntegerValue(const char* name, unsigned int value) {
  return m_heap.set_integer_value(m_currentSection, name, value);
}

// Deliberate: here and below, creates a missing section and leaves it the current one, so that a
// caller can set there what it did not find.
int CCmnConfiguration::getStringValue(const char* section, const char* name, tstr& value) {
  ACE_Configuration_Section_Key key;
  const int rc = openSection(section, key, 1);
  return rc != 0 ? rc : getStringValue(name, value);
}

int CCmnConfiguration::getIntegerValue(const char* section, const char* name, unsigned int& value) {
  ACE_Configuration_Section_Key key;
  const int rc = openSection(section, key, 1);
  return rc != 0 ? rc : getIntegerValue(name, value);
}

std::vector<tstr> CCmnConfiguration::enumerateSections(const ACE_Configuration_Section_Key& key) {
  std::vector<tstr> names;
  if (lacksHeap(m_heap, m_currentSection)) {
    return names;
  }
  tstr name;
  // Deliberate: an error ends the list as its end does. What was gathered is of use
  // without the rest.
  for (int index = 0; m_heap.enumerate_sections(key, index, name) == 0; ++index) {
    names.push_back(name);
    name.clear();
  }
  // No section's name is empty, but one is that there was no memory for.
  if (std::any_of(names.begin(), names.end(), std::mem_fn(&tstr::is_empty))) {
    throw std::bad_alloc();
  }
  return names;
}

std::vector<tstr> CCmnConfiguration::enumerateSections() {
  return enumerateSections(m_currentSection);
}

}  // namespace kelp_cmn_4_4
