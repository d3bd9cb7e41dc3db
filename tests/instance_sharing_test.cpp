// One instance per process, whoever asks for it. This program is linked without -rdynamic, as
// programs usually are.
#include "cmnicumessage.h"
#include "cmnmsgcatalogmgr.h"
#include "cmntracelog.h"
#include "hidden_plugin.h"
#include "host_instances.h"

namespace {

using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::CCmnMessageCatalogManager;
using kelp_cmn_4_4::CCmnRefCount;
using kelp_cmn_4_4::CCmnTraceLog;

using Log = SharedHolder<CCmnTraceLog>;

template <class T>
void expectTheHostsInstanceInThePlugin() {
  const auto held = SharedHolder<T>::create();
  EXPECT_EQ(HiddenPlugin().instanceOf<T>(), held.get()) << typeid(T).name();
}

TEST(InstanceOfALibraryClass, IsTheSameInAHostAndInAPluginWithHiddenVisibility) {
  // The counted classes that can be made without arguments.
  expectTheHostsInstanceInThePlugin<CCmnTraceLog>();
  expectTheHostsInstanceInThePlugin<CCmnMessageCatalogManager>();
  expectTheHostsInstanceInThePlugin<CCmnIcuMessage>();
  expectTheHostsInstanceInThePlugin<CCmnRefCount>();
}

TEST(InstanceOfAHostsClass, IsTheSameInAPluginIfASharedLibraryOfTheHostHasTheInstantiation) {
  expectTheHostsInstanceInThePlugin<HostRegistry>();
}

TEST(TraceLogOfTheProcess, IsANewOneAfterTheLastHolderLetGo) {
  Log first = Log::create();
  first->UpdateTraceLevelFromConfigFile();
  EXPECT_EQ(Log::create()->getTraceLevel(), 1);
  first = Log();
  EXPECT_EQ(Log::create()->getTraceLevel(), 0);
}

}  // namespace
