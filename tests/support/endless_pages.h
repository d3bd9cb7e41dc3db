// Gigabytes of address space that are the same few pages again and again, so that a text of any
// size costs next to no memory.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace kelp_test {

// `size` bytes that repeat `unit`, whose size is a power of 2, and pages of zeros behind them. To
// write a byte is to write it wherever the same few pages come again.
class EndlessPages {
 public:
  // Further flags for mmap: MAP_POPULATE where all of it will be written.
  EndlessPages(size_t size, const std::string& unit, int flags = 0)
      : size_((size / pieceSize + 1) * pieceSize) {
    const int fd = memfd_create("pages", MFD_CLOEXEC);
    base_ = static_cast<char*>(mmap(nullptr, size_ + pieceSize, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    usable_ = base_ != MAP_FAILED && ftruncate(fd, pieceSize) == 0 && mapAll(fd, flags);
    close(fd);
    if (usable_) {
      fill(unit);
    }
    start_ = usable_ ? base_ + size_ - size : nullptr;
  }
  ~EndlessPages() {
    if (base_ != MAP_FAILED) {
      munmap(base_, size_ + pieceSize);
    }
  }
  EndlessPages(const EndlessPages&) = delete;
  EndlessPages& operator=(const EndlessPages&) = delete;

  // Null where so much address space cannot be had.
  char* data() const { return start_; }

 private:
  static constexpr size_t pieceSize = size_t{1} << 21;

  bool mapAll(int fd, int flags) {
    for (size_t offset = 0; offset < size_; offset += pieceSize) {
      if (mmap(base_ + offset, pieceSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | flags,
               fd, 0) == MAP_FAILED) {
        return false;
      }
    }
    return true;
  }

  void fill(const std::string& unit) {
    for (size_t offset = 0; offset < pieceSize; offset += unit.size()) {
      std::memcpy(base_ + offset, unit.data(), unit.size());
    }
  }

  size_t size_;
  char* base_ = nullptr;
  char* start_ = nullptr;
  bool usable_ = false;
};

// A std::string that says it holds these bytes, without a copy of them. It must not be changed.
class TextOver {
 public:
  TextOver(const char* data, size_t length) {
    const struct {
      const char* data;
      size_t length;
      size_t capacity;
    } claimed = {data, length, length};
    std::memcpy(kept_, static_cast<void*>(&text_), sizeof kept_);
    std::memcpy(static_cast<void*>(&text_), &claimed, sizeof claimed);
  }
  ~TextOver() { std::memcpy(static_cast<void*>(&text_), kept_, sizeof kept_); }
  TextOver(const TextOver&) = delete;
  TextOver& operator=(const TextOver&) = delete;

  std::string& text() { return text_; }

 private:
  std::string text_;
  char kept_[sizeof(std::string)];
};

}  // namespace kelp_test
