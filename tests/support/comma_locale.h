// A locale that writes numbers with a comma.
#pragma once

#include "made_locale.h"

#include <clocale>

namespace kelp_test {

// Set (LC_NUMERIC) for as long as a test needs it.
class CommaLocale : public MadeLocale {
 public:
  CommaLocale()
      : MadeLocale(LC_NUMERIC,
                   "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\n"
                   "END LC_NUMERIC\n") {}
};

}  // namespace kelp_test
