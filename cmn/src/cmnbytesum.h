// Counting in loops that compilers make vector code of.
#ifndef CMNBYTESUM_H
#define CMNBYTESUM_H

#include <algorithm>
#include <climits>
#include <cstddef>

namespace kelp_cmn_4_4 {

// Sums up what `countAt` gives for each index below `size`, two at most. The sums of a block fit
// into a byte: so sixteen are added at once.
template <class CountAt>
size_t sumInBlocks(size_t size, CountAt countAt) {
  constexpr size_t longestBlock = UCHAR_MAX / 2;
  size_t sum = 0;
  for (size_t start = 0; start < size; start += longestBlock) {
    const size_t end = std::min(start + longestBlock, size);
    unsigned char blockSum = 0;
    for (size_t i = start; i < end; ++i) {
      blockSum = static_cast<unsigned char>(blockSum + countAt(i));
    }
    sum += blockSum;
  }
  return sum;
}

}  // namespace kelp_cmn_4_4

#endif
