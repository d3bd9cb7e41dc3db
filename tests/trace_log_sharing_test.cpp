// One trace log per process, whoever asks for it.
#include <gtest/gtest.h>

#include <cmntracelog.h>
#include <dlfcn.h>

namespace kelp_cmn_4_4 {
namespace {

using Log = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;

TEST(TraceLogOfTheProcess, IsTheSameInAHostAndInAPluginWithHiddenVisibility) {
  const Log log = Log::create();
  void* plugin = dlopen(HIDDEN_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(plugin, nullptr) << dlerror();
  const auto traceLogOfPlugin =
      reinterpret_cast<const void* (*)()>(dlsym(plugin, "traceLogOfPlugin"));
  ASSERT_NE(traceLogOfPlugin, nullptr) << dlerror();
  EXPECT_EQ(traceLogOfPlugin(), log.get());
  dlclose(plugin);
}

TEST(TraceLogOfTheProcess, IsANewOneAfterTheLastHolderLetGo) {
  Log first = Log::create();
  first->UpdateTraceLevelFromConfigFile();
  EXPECT_EQ(Log::create()->getTraceLevel(), 1);
  first = Log();
  EXPECT_EQ(Log::create()->getTraceLevel(), 0);
}

}  // namespace
}  // namespace kelp_cmn_4_4
