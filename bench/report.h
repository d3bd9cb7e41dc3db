// The table: printed line by line as it grows, and written for machines at the end.
#pragma once

#include "measure.h"

#include <string>
#include <vector>

namespace kelp_bench {

class Report {
 public:
  void add(const Measurement& measurement);
  void add(const Slope& slope);

  // False where the files could not be written.
  bool write(const std::string& directory) const;

 private:
  std::vector<Measurement> m_measurements;
  std::vector<Slope> m_slopes;
};

}  // namespace kelp_bench
