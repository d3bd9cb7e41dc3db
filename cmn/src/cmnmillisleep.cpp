#include "cmnmillisleep.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace kelp_cmn_4_4 {

void millisleep(long milliseconds) {
  // Relaxed: whichever thread learns it first, the flag tells all there is to tell.
  static bool bSupported = true;
  if (__atomic_load_n(&bSupported, __ATOMIC_RELAXED)) {
    timespec duration{};
    duration.tv_sec = milliseconds / 1000;
    duration.tv_nsec = (milliseconds % 1000) * 1000000;
    if (nanosleep(&duration, nullptr) == 0 || errno != ENOSYS) {
      return;
    }
    __atomic_store_n(&bSupported, false, __ATOMIC_RELAXED);
  }
  sleep(static_cast<unsigned int>((milliseconds + 1000) / 1000));
}

}  // namespace kelp_cmn_4_4
