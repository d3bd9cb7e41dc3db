// What a look-up of CCmnNetwork's comes to.
#pragma once

namespace kelp_test::look_up {

constexpr int found = 0;
constexpr int failed = 3;
constexpr int noAddress = -1;

}  // namespace kelp_test::look_up
