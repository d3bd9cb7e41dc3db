// Bytes become hexadecimal digits and back as in the plain forms, with memory for not a byte more;
// so do identifiers.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"
#include "wide_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::atEdge;
using kelp_fuzz::expect;
using kelp_fuzz::Input;
using kelp_test::BinaryRead;
using kelp_test::Bytes;
using kelp_test::widened;
using ByteText = std::basic_string<unsigned char>;

ByteText copyOf(const std::string& text) { return ByteText(text.begin(), text.end()); }

// ---- writing

void checkWritten(unsigned int type, const std::string& bytes) {
  static kelp_fuzz::EdgeBuffer<unsigned char> buffer;
  unsigned char* const data = buffer.holding(copyOf(bytes));
  const int count = static_cast<int>(bytes.size());
  const std::string expected = kelp_test::plainHexadecimal(Bytes(bytes.begin(), bytes.end()));
  expect(Tool::binary2str(data, count) == expected, "two digits for each byte");
  expect(Tool::binary2wstr(data, count) == widened(expected), "the same in wide characters");

  expect(Tool::str2uid(type, atEdge(bytes).text()) == kelp_test::plainIdentifier(type, bytes),
         "an identifier of signed bytes");
  expect(Tool::binary2uid(type, data, count) ==
             widened(kelp_test::plainIdentifier(type, "") + expected),
         "an identifier of unsigned bytes");

  BinaryRead read = {kelp_test::refused, count, Bytes(bytes.size() + 1)};
  if (count > 0) {
    read.status = Tool::str2binary(read.out.data(), &read.size, expected);
    expect(read.status == kelp_test::done && read.size == count, "as many bytes back");
    expect(std::equal(data, data + count, read.out.begin()), "and the same");
  }
}

// ---- reading

// Into memory of the size that is passed.
template <class Call>
BinaryRead readInto(size_t room, int size, Call call) {
  static kelp_fuzz::EdgeBuffer<unsigned char> buffer;
  unsigned char* const out = buffer.holding(ByteText(room, kelp_test::untouched));
  BinaryRead read = {kelp_test::done, size, {}};
  read.status = call(out, &read.size);
  const ByteText stored = buffer.content();
  read.out.assign(stored.begin(), stored.end());
  return read;
}

template <class Call>
void checkEmptyThrows(int size, Call call) {
  unsigned char byte = kelp_test::untouched;
  int stored = size;
  try {
    call(&byte, &stored);
    expect(false, "an exception for an empty text");
  } catch (const std::out_of_range&) {
    expect(byte == 0 && stored == size, "one zero byte, and the size as it was");
  }
}

template <class Call>
void checkRead(const std::string& hex, int size, Call call) {
  if (hex.empty() && size >= 0) {
    return checkEmptyThrows(size, call);
  }
  const auto room = static_cast<size_t>(std::max(size, 0));
  expect(readInto(room, size, call) == kelp_test::plainlyRead(hex, size, room),
         "what the plain form reads");
}

void checkRead(const std::string& hex, int size) {
  checkRead(hex, size, [&hex](unsigned char* out, int* stored) {
    return Tool::str2binary(out, stored, atEdge(hex).text());
  });
}

void checkReadWide(const std::wstring& hex, int size, bool ignored) {
  checkRead(kelp_test::plainlyEncoded(hex), size, [&](unsigned char* out, int* stored) {
    return Tool::wstr2binary(out, stored, hex, ignored);
  });
}

// Room for as many bytes as the text has, or a few more or fewer.
int sizeFor(size_t length, size_t change) {
  return static_cast<int>(length / 2) + static_cast<int>(change) - 2;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput / 2) {
    return 0;
  }
  Input input(data, size);
  const auto type = input.number<unsigned int>() >> input.upTo(31);
  const size_t change = input.upTo(4);
  const bool ignored = input.choice();
  const std::string text = Input(input).rest();
  checkWritten(type, text);
  checkRead(text, sizeFor(text.size(), change));
  const std::wstring wide = kelp_fuzz::wideText(input);
  checkReadWide(wide, sizeFor(kelp_test::plainlyEncoded(wide).size(), change), ignored);
  expect(Tool::wstr2uid(type, atEdge(wide).text()) ==
             kelp_test::plainIdentifier(type, kelp_test::plainlyEncoded(wide)),
         "an identifier of what the text is encoded to");
  return 0;
}
