#include "cmnmillisleep.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace kelp_cmn_4_4 {

void millisleep(long milliseconds) {
  // Relaxed: the flag tells all there is to tell. A thread that does not see it yet asks the system
  // once more and learns the same.
  static bool bSupported = true;
  if (__atomic_load_n(&bSupported, __ATOMIC_RELAXED)) {
    timespec duration{};
    duration.tv_sec = milliseconds / 1000;
    duration.tv_nsec = (milliseconds % 1000) * 1000000;
    // Deliberate: not resumed after a signal. Callers wait for a child, and its end is one.
    if (nanosleep(&duration, nullptr) == 0 || errno != ENOSYS) {
      return;
    }
    __atomic_store_n(&bSupported, false, __ATOMIC_RELAXED);
  }
  // Deliberate: a second more where the time is whole already. Too long is better than too short.
  sleep(static_cast<unsigned int>((milliseconds + 1000) / 1000));
}

}  // namespace kelp_cmn_4_4
