// One instance per process, whoever asks for it. This program is linked without -rdynamic, as
// programs usually are.
#include "hidden_plugin.h"
#include "host_instances.h"

#include <cmnicumessage.h>
#include <cmnmsgcatalogmgr.h>
#include <cmntracelog.h>

namespace {

using namespace kelp_cmn_4_4;

using Log = SharedHolder<CCmnTraceLog>;

template <class T>
class InstanceOfALibraryClass : public testing::Test {};

using CountedClassesThatCanBeMade =
    testing::Types<CCmnTraceLog, CCmnMessageCatalogManager, CCmnIcuMessage, CCmnRefCount>;
TYPED_TEST_SUITE(InstanceOfALibraryClass, CountedClassesThatCanBeMade);

TYPED_TEST(InstanceOfALibraryClass, IsTheSameInAHostAndInAPluginWithHiddenVisibility) {
  const auto held = SharedHolder<TypeParam>::create();
  EXPECT_EQ(HiddenPlugin().instanceOf<TypeParam>(), held.get());
}

TEST(InstanceOfAHostsClass, IsTheSameInAPluginIfASharedLibraryOfTheHostHasTheInstantiation) {
  const auto held = SharedHolder<HostRegistry>::create();
  EXPECT_EQ(HiddenPlugin().instanceOf<HostRegistry>(), held.get());
}

TEST(TraceLogOfTheProcess, IsANewOneAfterTheLastHolderLetGo) {
  Log first = Log::create();
  first->UpdateTraceLevelFromConfigFile();
  EXPECT_EQ(Log::create()->getTraceLevel(), 1);
  first = Log();
  EXPECT_EQ(Log::create()->getTraceLevel(), 0);
}

}  // namespace
