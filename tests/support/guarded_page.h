// Memory that ends, or begins, at a page nobody may touch, so that one element too far faults at
// once.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kelp_test {

template <class Char>
class GuardedPage {
 public:
  // Room for `count` elements; the first byte after the last one faults.
  explicit GuardedPage(size_t count) : count_(count) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t bytes = count * sizeof(Char);
    size_ = (bytes / page + 2) * page;
    base_ = static_cast<char*>(
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (base_ == MAP_FAILED || mprotect(base_ + size_ - page, page, PROT_NONE) != 0) {
      throw std::runtime_error("GuardedPage: no memory");
    }
    start_ = base_ + size_ - page - bytes;
  }
  // The same, filled with exactly these elements and no terminator.
  explicit GuardedPage(const std::basic_string<Char>& content) : GuardedPage(content.size()) {
    std::memcpy(start_, content.data(), content.size() * sizeof(Char));
  }
  ~GuardedPage() { munmap(base_, size_); }
  GuardedPage(const GuardedPage&) = delete;
  GuardedPage& operator=(const GuardedPage&) = delete;

  Char* data() { return reinterpret_cast<Char*>(start_); }
  size_t size() const { return count_; }

 private:
  size_t count_;
  size_t size_ = 0;
  char* base_ = nullptr;
  char* start_ = nullptr;
};

}  // namespace kelp_test
