// The bounded routines, called by several threads at once.
#include "Q_strings.h"
#include "cmnstringtool.h"
#include "in_threads.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::Call;
using kelp_test::call;
using kelp_test::inThreads;
using kelp_test::wrongCalls;

// What a routine gives, and leaves of a buffer for seven characters that held "one".
template <class Char, class Routine>
auto inBuffer(Routine routine) {
  return [routine] {
    Char text[8] = {'o', 'n', 'e'};
    const auto result = static_cast<long>(routine(text, std::size(text)));
    return std::pair(result, std::basic_string<Char>(text));
  };
}

template <class Char>
auto with(long result, const Char* text) {
  return std::pair(result, std::basic_string<Char>(text));
}

TEST(ThreadsWithBuffers, CopyAppendAndFormatText) {
  const std::vector<Call> calls = {
      call("Q_strlcpy",
           inBuffer<char>([](char* dst, size_t size) { return Q_strlcpy(dst, "two words", size); }),
           with(7, "two wor")),
      call("Q_strlncpy", inBuffer<char>([](char* dst, size_t size) {
             return Q_strlncpy(dst, "two words", 3, size);
           }),
           with(3, "two")),
      call("Q_strlncpy beyond the text's end",
           inBuffer<char>([](char* dst, size_t size) { return Q_strlncpy(dst, "to", 5, size); }),
           with(5, "to")),
      call("Q_strlcat",
           inBuffer<char>([](char* dst, size_t size) { return Q_strlcat(dst, " and two", size); }),
           with(4, "one and")),
      call("Q_strlncat",
           inBuffer<char>([](char* dst, size_t size) { return Q_strlncat(dst, "self", 1, size); }),
           with(1, "ones")),
      call("Q_snprintf", inBuffer<char>([](char* dst, size_t size) {
             return Q_snprintf(dst, size, "%d %s", -17, "words");
           }),
           with(7, "-17 wor")),
  };
  inThreads([&calls](size_t) { return wrongCalls(calls, 300); });
}

TEST(ThreadsWithBuffers, CopyAppendAndFormatWideText) {
  const std::vector<Call> calls = {
      call("Q_wcslcpy", inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_wcslcpy(dst, L"two words", size);
           }),
           with(7, L"two wor")),
      call("Q_wcslncpy", inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_wcslncpy(dst, L"two words", 3, size);
           }),
           with(3, L"two")),
      call("Q_wcslncpy beyond the text's end", inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_wcslncpy(dst, L"to", 5, size);
           }),
           with(5, L"to")),
      call("Q_wcslcat", inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_wcslcat(dst, L" and two", size);
           }),
           with(4, L"one and")),
      call("Q_wcslncat", inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_wcslncat(dst, L"self", 1, size);
           }),
           with(1, L"ones")),
      call("Q_snwprintf", inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_snwprintf(dst, size, L"%d %ls", -17, L"two");
           }),
           with(7, L"-17 two")),
      call("Q_snwprintf of a text that does not fit",
           inBuffer<wchar_t>([](wchar_t* dst, size_t size) {
             return Q_snwprintf(dst, size, L"%d %ls", -17, L"words");
           }),
           with(-1, L"-17 wor")),
  };
  inThreads([&calls](size_t) { return wrongCalls(calls, 300); });
}

template <class Char>
std::pair<int, size_t> verified(int (*verify)(const Char*, size_t, size_t*), const Char* text,
                                size_t size) {
  size_t length = 77;
  const int status = verify(text, size, &length);
  return {status, length};
}

std::string resized(size_t size) {
  void* block = CCmnStringTool::strdup("one", nullptr);
  void* const given = Q_dumb_realloc(&block, size);
  std::string text = given == block ? static_cast<char*>(block) : "another block";
  std::free(block);
  return text;
}

TEST(ThreadsWithBuffers, VerifyAndResizeThem) {
  const std::pair<int, size_t> none(-1, 0);
  const std::pair<int, size_t> three(0, 3);
  const std::vector<Call> calls = {
      call(
          "Q_strverify", [] { return verified(Q_strverify, "one", 4); }, three),
      call(
          "Q_strverify without an end", [] { return verified(Q_strverify, "one", 3); }, none),
      call(
          "Q_wstrverify", [] { return verified(Q_wstrverify, L"one", 4); }, three),
      call(
          "Q_wstrverify without an end", [] { return verified(Q_wstrverify, L"one", 3); }, none),
      call(
          "Q_dumb_realloc", [] { return resized(5000); }, "one"),
  };
  inThreads([&calls](size_t) { return wrongCalls(calls, 300); });
}

}  // namespace
