// The plugin as its host sees it: opened so that it lends its symbols to nobody.
#ifndef HIDDEN_PLUGIN_H
#define HIDDEN_PLUGIN_H

#include "cmnsmartptr.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <typeinfo>

template <class T>
using SharedHolder = kelp_cmn_4_4::CCmnSmartPtr<T, kelp_cmn_4_4::CCmnContextSingletonAllocator<T>>;

class HiddenPlugin {
 public:
  HiddenPlugin() : m_plugin(dlopen(HIDDEN_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(m_plugin, nullptr) << dlerror();
  }
  HiddenPlugin(const HiddenPlugin&) = delete;
  HiddenPlugin& operator=(const HiddenPlugin&) = delete;
  ~HiddenPlugin() { dlclose(m_plugin); }

  template <class T>
  const void* instanceOf() const {
    const auto instance =
        reinterpret_cast<const void* (*)(const char*)>(dlsym(m_plugin, "instanceOfPlugin"));
    return instance(typeid(T).name());
  }

 private:
  void* m_plugin;
};

#endif
