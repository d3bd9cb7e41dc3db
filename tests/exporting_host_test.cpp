// A host that exports its symbols to its plugins: linked with -rdynamic.
#include "hidden_plugin.h"
#include "host_instances.h"

namespace {

TEST(InstanceOfAHostsClass, IsTheSameInAPluginIfTheProgramExportsIt) {
  const auto held = SharedHolder<HostSettings>::create();
  EXPECT_EQ(HiddenPlugin().instanceOf<HostSettings>(), held.get());
}

}  // namespace
