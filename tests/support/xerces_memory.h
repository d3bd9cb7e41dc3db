// Memory for Xerces-C that is counted.
#pragma once

#include <gtest/gtest.h>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <algorithm>
#include <cstddef>
#include <unordered_set>

namespace kelp_test {

// Gives memory for as long as Xerces-C is initialised, and frees in the end what nobody gave back.
class XercesMemory : public xercesc::MemoryManager {
 public:
  ~XercesMemory() override {
    for (void* const block : m_blocks) {
      ::operator delete(block);
    }
  }

  xercesc::MemoryManager* getExceptionMemoryManager() override { return this; }

  void* allocate(XMLSize_t size) override {
    m_lateCalls += m_ended ? 1 : 0;
    if (failAfter == 0) {
      throw xercesc::OutOfMemoryException();
    }
    failAfter -= failAfter == never ? 0 : 1;
    m_largest = std::max<size_t>(m_largest, size);
    return *m_blocks.insert(::operator new(size)).first;
  }

  void deallocate(void* block) override {
    m_lateCalls += m_ended ? 1 : 0;
    EXPECT_TRUE(block == nullptr || m_blocks.erase(block) == 1) << "a block of another manager";
    ::operator delete(block);
  }

  // Tells that Xerces-C is terminated; what it asks for from now on is late.
  void end() { m_ended = true; }

  static constexpr size_t never = static_cast<size_t>(-1);
  size_t failAfter = never;  // after so many blocks there are no more

  size_t blocks() const { return m_blocks.size(); }  // in use
  size_t largest() const { return m_largest; }       // that was asked for at once
  int lateCalls() const { return m_lateCalls; }

 private:
  std::unordered_set<void*> m_blocks;
  size_t m_largest = 0;
  bool m_ended = false;
  int m_lateCalls = 0;
};

// Xerces-C initialised with such memory.
class CountedXerces {
 public:
  CountedXerces() {
    EXPECT_EQ(xercesc::XMLPlatformUtils::fgMemoryManager, nullptr)
        << "somebody has initialised Xerces-C";
    xercesc::XMLPlatformUtils::Initialize(xercesc::XMLUni::fgXercescDefaultLocale, nullptr, nullptr,
                                          &m_memory);
  }
  ~CountedXerces() {
    xercesc::XMLPlatformUtils::Terminate();
    EXPECT_EQ(xercesc::XMLPlatformUtils::fgMemoryManager, nullptr)
        << "somebody still uses Xerces-C";
  }
  CountedXerces(const CountedXerces&) = delete;
  CountedXerces& operator=(const CountedXerces&) = delete;

  size_t blocks() const { return m_memory.blocks(); }

 private:
  XercesMemory m_memory;
};

}  // namespace kelp_test
