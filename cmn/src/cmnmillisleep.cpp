#include "cmnmillisleep.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace kelp_cmn_4_4 {

void millisleep(long milliseconds) {
  static bool bSupported = true;
  if (bSupported) {
    timespec duration{};
    duration.tv_sec = milliseconds / 1000;
    duration.tv_nsec = (milliseconds % 1000) * 1000000;
    if (nanosleep(&duration, nullptr) == 0 || errno != ENOSYS) {
      return;
    }
    bSupported = false;
  }
  sleep(static_cast<unsigned int>((milliseconds + 1000) / 1000));
}

}  // namespace kelp_cmn_4_4
