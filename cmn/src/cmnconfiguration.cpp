#include "cmnconfiguration.h"

#include "cmnpathtool.h"

#include <ace/Configuration_Import_Export.h>

namespace kelp_cmn_4_4 {
namespace {

constexpr size_t sectionMapSize = 16;

const char* orEmpty(const char* text) { return text == nullptr ? "" : text; }

CCmnError failure(int code, const char* message, const char* function, int line) {
  return {code, message, __FILE__, line, function};
}

}  // namespace

CCmnConfiguration::CCmnConfiguration() {
  const int rc = m_heap.open(sectionMapSize);
  if (rc != 0) {
    m_lastError = failure(rc, "Failed to open configuration heap", "CCmnConfiguration", __LINE__);
  }
}

CCmnConfiguration::CCmnConfiguration(const char* dir, const char* file, bool import)
    : CCmnConfiguration() {
  if (import) {
    importConfig(dir, file);
  } else {
    m_configDir = orEmpty(dir);
    m_configFile = orEmpty(file);
    m_configPath = m_configDir + m_configFile;
  }
}

CCmnConfiguration::~CCmnConfiguration() = default;

ACE_Configuration_Heap& CCmnConfiguration::configHeap() { return m_heap; }

int CCmnConfiguration::importConfig(const char* dir, const char* file) {
  m_configDir = orEmpty(dir);
  m_configFile = orEmpty(file);
  m_configPath = m_configDir + m_configFile;
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
  ACE_Registry_ImpExp registry(m_heap);
  rc = registry.import_config(m_configPath.c_str());
  if (rc != 0) {
    m_lastError = failure(rc, "Import of configuration file failed.", "importConfig", __LINE__);
  }
  return rc;
}

int CCmnConfiguration::exportConfig() {
  ACE_Registry_ImpExp registry(m_heap);
  return registry.export_config(m_configPath.c_str());
}

int CCmnConfiguration::openSection(const ACE_Configuration_Section_Key& base, const char* name,
                                   ACE_Configuration_Section_Key& result, int create) {
  const int rc = m_heap.open_section(base, name, create != 0, result);
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
  return m_heap.get_string_value(m_currentSection, name, value);
}

int CCmnConfiguration::setStringValue(const char* name, const tstr& value) {
  return m_heap.set_string_value(m_currentSection, name, value);
}

int CCmnConfiguration::getIntegerValue(const char* name, unsigned int& value) {
  return m_heap.get_integer_value(m_currentSection, name, value);
}

int CCmnConfiguration::setIntegerValue(const char* name, unsigned int value) {
  return m_heap.set_integer_value(m_currentSection, name, value);
}

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
  tstr name;
  for (int index = 0; m_heap.enumerate_sections(key, index, name) == 0; ++index) {
    names.push_back(name);
  }
  return names;
}

std::vector<tstr> CCmnConfiguration::enumerateSections() {
  return enumerateSections(m_currentSection);
}

}  // namespace kelp_cmn_4_4
