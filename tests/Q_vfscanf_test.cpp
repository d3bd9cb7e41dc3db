#include "Q_vfscanf.h"

#include "guarded_page.h"
#include "scan.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using kelp_test::GuardedPage;
using kelp_test::scan;

ScanSource sourceOf(const char* text, int length) {
  return {text, length, Q_SCAN_EOF, text, length, eofread, nullptr};
}

ScanSource sourceOf(FILE* stream) { return {nullptr, 0, 0, nullptr, 0, nullptr, stream}; }

struct Close {
  void operator()(FILE* stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, Close>;

// --- a source that is a text

TEST(Vfscanf, LeavesTheSourceAfterWhatWasConsumed) {
  const struct {
    const char* text;
    const char* format;
    int result;
    int consumed;
  } cases[] = {
      {"12 34", "%d", 1, 2},
      {"12 34", "%d ", 1, 3},
      {"  ", "%d", -1, 2},
      {"  x", "%d", 0, 2},
      {"12", "%*d%d", 0, 2},
      {"abc", "abx", 0, 2},
      {"abc", "ab", 0, 2},
      {"", "%d", -1, 0},
      {"a", "", 0, 0},
      // What was collected of a number that came to nothing is consumed.
      {"-x", "%d", 0, 1},
      {"-", "%d", 0, 1},
      {"+", "%x", 0, 1},
      {".e5", "%f", 0, 1},
      {"-.x", "%f", 0, 2},
      {"-.", "%f", 0, 2},
      {"0xg", "%x", 1, 2},
      {"0x", "%i", 1, 2},
      {"1e+x", "%f", 1, 3},
      {"1e", "%f", 1, 2},
      {"-5", "%1d", 0, 1},
      {"inf", "%f", 0, 0},
      {"xyz", "%[a]", 0, 0},
      {"  xyz", "%[a]", 0, 0},
      {"xyz", "%2s", 1, 2},
      {"xyz", "%3c", 1, 1},
      {"xyz", "%*2c", 0, 2},
      {"xyz", "%*9c", 0, 3},
      // A format that is cut off consumes nothing more.
      {"  5", "%", -1, 0},
      {"  5", "%*5l", -1, 0},
      {"  5", "%[5", -1, 0},
      {"5 %", "%d%%", 1, 3},
      {"5 x", "%d%%", 1, 2},
      {"  5", "%n", 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.format) + " on \"" + c.text + '"');
    const int length = static_cast<int>(std::strlen(c.text));
    ScanSource source = sourceOf(c.text, length);
    alignas(16) char destination[64];
    EXPECT_EQ(scan(&source, c.format, destination, 64), c.result);
    EXPECT_EQ(source.position, c.text + c.consumed);
    EXPECT_EQ(source.unread, length - c.consumed);
    EXPECT_EQ(source.flags, Q_SCAN_EOF);
    EXPECT_EQ(source.base, c.text);
    EXPECT_EQ(source.size, length);
  }
}

TEST(Vfscanf, GoesOnWhereTheLastCallStopped) {
  const char text[] = "1 2 3";
  ScanSource source = sourceOf(text, 5);
  for (const int expected : {1, 2, 3}) {
    int value = 0;
    int consumed = 0;
    EXPECT_EQ(scan(&source, "%d%n", &value, 4, &consumed, 4), 1);
    EXPECT_EQ(value, expected);
    EXPECT_EQ(consumed, expected == 1 ? 1 : 2);  // counted from the call's start
  }
  int value = 0;
  EXPECT_EQ(scan(&source, "%d", &value, 4), -1);
}

TEST(Vfscanf, IsBoundedByTheCountNotByATerminator) {
  for (const char* format :
       {"%d", "%i", "%x", "%f", "%s", "%[0-9]", "%*9c", "%9d", "12%n", "%*d "}) {
    SCOPED_TRACE(format);
    GuardedPage<char> text(std::string("12"));
    ScanSource source = sourceOf(text.data(), 2);
    alignas(16) char destination[64];
    EXPECT_GE(scan(&source, format, destination, 64), 0);
    EXPECT_EQ(source.unread, 0);
  }
  int value = 0;
  ScanSource source = sourceOf("1234", 2);
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  EXPECT_EQ(value, 12);
}

TEST(Vfscanf, ReadsZeroBytesLikeAnyOther) {
  const char text[] = "a\0b 1\0002";
  char word[8] = "#######";
  ScanSource source = sourceOf(text, 7);
  EXPECT_EQ(scan(&source, "%s", word, 8), 1);
  EXPECT_EQ(std::string(word, 5), std::string("a\0b\0#", 5));

  int value = 0;
  char zero = '#';
  int next = 0;
  EXPECT_EQ(scan(&source, "%d%c%d", &value, 4, &zero, 1, &next, 4), 3);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(zero, '\0');
  EXPECT_EQ(next, 2);

  char run[8] = "#######";
  source = sourceOf(text, 7);
  EXPECT_EQ(scan(&source, "%[^ ]", run, 8), 1);
  EXPECT_EQ(std::string(run, 5), std::string("a\0b\0#", 5));
  source = sourceOf(text, 7);
  EXPECT_EQ(scan(&source, "%[a-z]", run, 8), 1);
  EXPECT_STREQ(run, "a");
}

TEST(Vfscanf, TheFormatEndsThoughAZeroByteFollowsInTheText) {
  const char text[] = "ab\0cd";
  ScanSource source = sourceOf(text, 5);
  EXPECT_EQ(scan(&source, "ab\0cd"), 0);
  EXPECT_EQ(source.position, text + 2);
}

TEST(Vfscanf, AZeroByteBelongsToNoNumber) {
  for (const char* format : {"%d", "%i", "%x", "%f"}) {
    for (const std::string text : {"", "-", "1", "0", "0x", "1.", "1e", "1e+", "0x1"}) {
      SCOPED_TRACE(std::string(format) + " on \"" + text + "\\0\"");
      alignas(16) char destination[64];
      ScanSource whole = sourceOf(text.data(), static_cast<int>(text.size()));
      const int expected = text.empty() ? 0 : scan(&whole, format, destination, 64);
      const std::string zeroed = text + std::string("\0", 1) + "5";
      ScanSource source = sourceOf(zeroed.data(), static_cast<int>(zeroed.size()));
      EXPECT_EQ(scan(&source, format, destination, 64), expected);
      EXPECT_EQ(source.unread - 2, whole.unread);
    }
  }
}

TEST(Vfscanf, TakesASourceWithoutAnything) {
  ScanSource source{};
  int value = 0;
  EXPECT_EQ(scan(&source, "%d", &value, 4), -1);
  EXPECT_EQ(source.flags, Q_SCAN_EOF);
  EXPECT_EQ(source.position, nullptr);
}

// --- a source that is fed in pieces

// Gives a text out in pieces; what it gives out ends at a page that nobody may touch.
struct PieceSource {
  PieceSource(std::string whole, size_t pieceSize)
      : record{nullptr, 0, 0, nullptr, static_cast<int>(pieceSize), give, nullptr},
        text(std::move(whole)),
        buffer(pieceSize) {
    record.base = buffer.data();
  }

  static int give(void* cookie, char* to, int size) {
    auto* const self = reinterpret_cast<PieceSource*>(cookie);  // the record is its first member
    EXPECT_EQ(to, self->record.base);
    EXPECT_EQ(size, self->record.size);
    EXPECT_EQ(self->record.unread, 0);
    ++self->calls;
    const size_t count = std::min(static_cast<size_t>(size), self->text.size() - self->given);
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): a source gives bytes, not a text
    std::memcpy(to, self->text.data() + self->given, count);
    self->given += count;
    return static_cast<int>(count);
  }

  size_t consumed() const { return given - static_cast<size_t>(record.unread); }

  ScanSource record;
  std::string text;
  GuardedPage<char> buffer;
  size_t given = 0;
  int calls = 0;
};

struct Values {
  alignas(16) std::array<std::array<char, 64>, 4> slots{};
};

int scanInto(ScanSource* source, const char* format, Values& values) {
  return scan(source, format, values.slots[0].data(), 64, values.slots[1].data(), 64,
              values.slots[2].data(), 64, values.slots[3].data(), 64);
}

const struct {
  const char* text;
  const char* format;
} pieceCases[] = {
    {"12345 -678 word", "%d%d%s%n"},
    {"0x1fg 017 99999999999999999999", "%i%*c%i%ld"},
    {"  1.5e+10x -.25 1e+", "%lf%*c%f%f%n"},
    {"key=value;other", "%[^=]=%[a-z];%3s%n"},
    {"a b\tc\nd", "%c%c%*3c%c%n"},
    {"100%  200 %", "%d%%%d%%%n"},
    {"-", "%d"},
    {"  ", "%d"},
    {"", "%d"},
    {"12x", "%2d%d"},
    {"1234567890", "%3d%3d%3d%d"},
    {"abc", "abd%n"},
};

TEST(Vfscanf, ReadsAlikeInPiecesOfAnySize) {
  for (const auto& c : pieceCases) {
    Values expected;
    const std::string text = c.text;
    ScanSource whole = sourceOf(text.data(), static_cast<int>(text.size()));
    const int result = scanInto(&whole, c.format, expected);
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{3}, size_t{5}, text.size() + 1}) {
      SCOPED_TRACE(std::string(c.format) + " on \"" + text + "\" in pieces of " +
                   std::to_string(piece));
      PieceSource source(text, piece);
      Values actual;
      EXPECT_EQ(scanInto(&source.record, c.format, actual), result);
      EXPECT_EQ(actual.slots, expected.slots);
      EXPECT_EQ(source.consumed(), static_cast<size_t>(whole.position - text.data()));
    }
  }
}

TEST(Vfscanf, AsksForNoMoreThanItNeeds) {
  PieceSource source("12345", 1);
  int value = 0;
  EXPECT_EQ(scan(&source.record, "%2d", &value, 4), 1);
  EXPECT_EQ(source.calls, 2);  // a full width asks for no third character
  char c = 0;
  EXPECT_EQ(scan(&source.record, "%c", &c, 1), 1);
  EXPECT_EQ(source.calls, 3);
  EXPECT_EQ(scan(&source.record, "%*1c%*1[5]"), 0);
  EXPECT_EQ(source.calls, 5);
}

TEST(Vfscanf, AsksAnEndedSourceOnce) {
  PieceSource source("12", 2);
  int value = 0;
  EXPECT_EQ(scan(&source.record, "%d%d", &value, 4, &value, 4), 1);
  EXPECT_EQ(source.calls, 2);
  EXPECT_EQ(source.record.flags, Q_SCAN_EOF);
  EXPECT_EQ(scan(&source.record, "%d", &value, 4), -1);
  EXPECT_EQ(source.calls, 2);
}

TEST(Vfscanf, ReadsWhatIsUnreadBeforeItAsks) {
  PieceSource source("34", 2);
  source.record.position = "12";
  source.record.unread = 2;
  int value = 0;
  EXPECT_EQ(scan(&source.record, "%d", &value, 4), 1);
  EXPECT_EQ(value, 1234);
}

// --- refilling

TEST(Refill, FailsAtOnceWhenTheInputHasEnded) {
  PieceSource source("12", 2);
  source.record.flags = Q_SCAN_EOF | 1;
  EXPECT_EQ(__Qrefill(&source.record), -1);
  EXPECT_EQ(source.calls, 0);
  EXPECT_EQ(source.record.position, nullptr);

  const Stream stream(tmpfile());
  fputs("12", stream.get());
  rewind(stream.get());
  ScanSource ended = sourceOf(stream.get());
  ended.flags = Q_SCAN_EOF;
  EXPECT_EQ(__Qrefill(&ended), -1);
  EXPECT_EQ(fgetc(stream.get()), '1');
}

TEST(Refill, TakesWhatTheCallbackStored) {
  PieceSource source("12345", 3);
  EXPECT_EQ(__Qrefill(&source.record), 0);
  EXPECT_EQ(source.record.position, source.buffer.data());
  EXPECT_EQ(source.record.unread, 3);
  EXPECT_EQ(source.record.flags, 0);
}

TEST(Refill, MarksTheEndWhenTheCallbackHasNothing) {
  for (const int count : {0, -1}) {
    SCOPED_TRACE(count);
    char buffer[4] = {};
    ScanSource source{nullptr, 0, 1, buffer, 4, nullptr, nullptr};
    source.read =
        count == 0 ? [](void*, char*, int) { return 0; } : [](void*, char*, int) { return -1; };
    EXPECT_EQ(__Qrefill(&source), -1);
    EXPECT_EQ(source.flags, Q_SCAN_EOF | 1);  // other flags stay
    EXPECT_EQ(source.unread, 0);
  }
}

TEST(Refill, MarksTheEndWhereThereIsNoCallbackOrNoBuffer) {
  char buffer[4] = {};
  ScanSource withoutCallback{nullptr, 0, 0, buffer, 4, nullptr, nullptr};
  EXPECT_EQ(__Qrefill(&withoutCallback), -1);
  EXPECT_EQ(withoutCallback.flags, Q_SCAN_EOF);
  ScanSource withoutBuffer{nullptr,
                           0,
                           0,
                           nullptr,
                           4,
                           [](void*, char*, int) -> int {
                             ADD_FAILURE() << "called";
                             return 1;
                           },
                           nullptr};
  EXPECT_EQ(__Qrefill(&withoutBuffer), -1);
  EXPECT_EQ(withoutBuffer.flags, Q_SCAN_EOF);
}

TEST(Eofread, HasNothing) {
  char untouched = '#';
  EXPECT_EQ(eofread(nullptr, &untouched, 1), 0);
  EXPECT_EQ(untouched, '#');
}

// --- streams

enum class Buffering { usual, small, none };

// A stream to read the text from: of a file, or of a pipe.
Stream streamOf(const std::string& text, bool pipe, Buffering buffering) {
  FILE* stream = nullptr;
  if (pipe) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends[1]);
    stream = fdopen(ends[0], "r");
  } else {
    stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
  }
  static char smallBuffer[3];
  if (buffering == Buffering::small) {
    setvbuf(stream, smallBuffer, _IOFBF, sizeof smallBuffer);
  } else if (buffering == Buffering::none) {
    setvbuf(stream, nullptr, _IONBF, 0);
  }
  return Stream(stream);
}

std::string restOf(FILE* stream) {
  std::string rest;
  for (int c = fgetc(stream); c != EOF; c = fgetc(stream)) {
    rest += static_cast<char>(c);
  }
  return rest;
}

class AnyStream : public testing::TestWithParam<std::tuple<bool, Buffering>> {
 protected:
  static Stream open(const std::string& text) {
    return streamOf(text, std::get<0>(GetParam()), std::get<1>(GetParam()));
  }
};
const auto nameOfStream = [](const auto& stream) {
  const char* const bufferings[] = {"WithTheUsualBuffer", "WithASmallBuffer", "Unbuffered"};
  return std::string(std::get<0>(stream.param) ? "Pipe" : "File") +
         bufferings[static_cast<int>(std::get<1>(stream.param))];
};

INSTANTIATE_TEST_SUITE_P(Streams, AnyStream,
                         testing::Combine(testing::Bool(),
                                          testing::Values(Buffering::usual, Buffering::small,
                                                          Buffering::none)),
                         nameOfStream);

TEST_P(AnyStream, ReadsLikeAText) {
  for (const auto& c : pieceCases) {
    SCOPED_TRACE(std::string(c.format) + " on \"" + c.text + '"');
    const std::string text = c.text;
    Values expected;
    ScanSource whole = sourceOf(text.data(), static_cast<int>(text.size()));
    const int result = scanInto(&whole, c.format, expected);

    const Stream stream = open(text);
    ScanSource source = sourceOf(stream.get());
    Values actual;
    EXPECT_EQ(scanInto(&source, c.format, actual), result);
    EXPECT_EQ(actual.slots, expected.slots);
    updateFILE(&source);
    EXPECT_EQ(restOf(stream.get()), whole.position);
  }
}

TEST_P(AnyStream, BeginsWhereTheStreamStands) {
  const Stream stream = open("xy12 34z");
  EXPECT_EQ(fgetc(stream.get()), 'x');
  EXPECT_EQ(fgetc(stream.get()), 'y');
  ScanSource source = sourceOf(stream.get());
  int a = 0;
  int b = 0;
  EXPECT_EQ(scan(&source, "%d%d", &a, 4, &b, 4), 2);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 34);
  updateFILE(&source);
  EXPECT_EQ(restOf(stream.get()), "z");
}

TEST_P(AnyStream, GoesOnAfterTheHostHasReadAndTheSourceHasAdoptedTheRest) {
  const Stream stream = open("12;34;56");
  ScanSource source = sourceOf(stream.get());
  int value = 0;
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  updateFILE(&source);
  EXPECT_EQ(fgetc(stream.get()), ';');
  updateVFILE(&source);
  EXPECT_EQ(scan(&source, "%d;", &value, 4), 1);
  EXPECT_EQ(value, 34);
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  EXPECT_EQ(value, 56);
  EXPECT_EQ(scan(&source, "%d", &value, 4), -1);
  updateFILE(&source);
  EXPECT_EQ(fgetc(stream.get()), EOF);
}

TEST_P(AnyStream, ReadsATextLongerThanEveryBuffer) {
  constexpr int count = 5000;
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += std::to_string(i) + " ";
  }
  const Stream stream = open(text);
  ScanSource source = sourceOf(stream.get());
  int value = 0;
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(scan(&source, "%d", &value, 4), 1) << i;
    ASSERT_EQ(value, i);
  }
  EXPECT_EQ(scan(&source, "%d", &value, 4), -1);
}

TEST(StreamSource, LeavesAFileWhereTheScanStopped) {
  const Stream stream = streamOf("12 34 56", false, Buffering::usual);
  ScanSource source = sourceOf(stream.get());
  int value = 0;
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  updateFILE(&source);
  EXPECT_EQ(ftell(stream.get()), 2);
  EXPECT_EQ(scan(&source, "%d%d%d", &value, 4, &value, 4, &value, 4), 2);
  updateFILE(&source);
  EXPECT_EQ(ftell(stream.get()), 8);  // also at the end, where the stream has emptied its buffer
  EXPECT_EQ(fseek(stream.get(), 3, SEEK_SET), 0);
  EXPECT_EQ(restOf(stream.get()), "34 56");
}

TEST(StreamSource, SeesInputThatIsAppendedAfterTheEnd) {
  const Stream stream = streamOf("12", false, Buffering::usual);
  ScanSource source = sourceOf(stream.get());
  int value = 0;
  EXPECT_EQ(scan(&source, "%d%d", &value, 4, &value, 4), 1);
  EXPECT_EQ(source.flags, 0);
  EXPECT_EQ(pwrite(fileno(stream.get()), " 34", 3, 2), 3);
  clearerr(stream.get());
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  EXPECT_EQ(value, 34);
}

TEST(StreamSource, GoesBeforeTheCallback) {
  const Stream stream = streamOf("12", false, Buffering::usual);
  ScanSource source = sourceOf(stream.get());
  char buffer[4] = {};
  source.base = buffer;
  source.size = 4;
  source.read = [](void*, char*, int) -> int {
    ADD_FAILURE() << "called";
    return 0;
  };
  int value = 0;
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  EXPECT_EQ(value, 12);
}

TEST(StreamSource, LeavesTheStreamAloneWhileAForeignTextIsRead) {
  const Stream stream = streamOf("x34y", false, Buffering::usual);
  EXPECT_EQ(fgetc(stream.get()), 'x');
  ScanSource source = sourceOf(stream.get());
  source.position = source.base = "12";
  source.unread = source.size = 2;
  int value = 0;
  EXPECT_EQ(scan(&source, "%d", &value, 4), 1);
  EXPECT_EQ(value, 1234);
  updateFILE(&source);
  EXPECT_EQ(fgetc(stream.get()), 'y');
}

// The stream's position is not moved there.
TEST(StreamSource, ATextBehindWhatTheStreamHasReadIsAForeignText) {
  const Stream stream(tmpfile());
  char buffer[64] = {};
  ASSERT_EQ(setvbuf(stream.get(), buffer, _IOFBF, sizeof buffer), 0);
  ASSERT_EQ(fputs("34y", stream.get()), 1);
  rewind(stream.get());
  EXPECT_EQ(fgetc(stream.get()), '3');
  ScanSource source = sourceOf(stream.get());
  source.position = buffer + 60;
  EXPECT_EQ(__Qrefill(&source), 0);
  EXPECT_EQ(source.position, buffer + 1);
  EXPECT_EQ(source.unread, 2);
}

TEST(StreamSource, RefillAdoptsTheStreamsBuffer) {
  const Stream stream = streamOf("12345", false, Buffering::usual);
  ScanSource source = sourceOf(stream.get());
  EXPECT_EQ(__Qrefill(&source), 0);
  EXPECT_EQ(source.unread, 5);
  EXPECT_EQ(std::string(source.position, 5), "12345");
  EXPECT_EQ(fgetc(stream.get()), '1');  // pushed back, not consumed
  updateVFILE(&source);
  EXPECT_EQ(source.unread, 4);
  EXPECT_EQ(*source.position, '2');
  source.position += 2;
  source.unread -= 2;
  updateFILE(&source);
  EXPECT_EQ(fgetc(stream.get()), '4');
}

TEST(StreamSource, AdoptsItsStreamWhenTheScanLooksForACharacter) {
  const struct {
    const char* format;
    bool adopts;
  } cases[] = {{"", false}, {"%n", false}, {"%", false}, {" ", true}, {"x", true}, {"%*d", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    const Stream stream = streamOf("12", false, Buffering::usual);
    ScanSource source = sourceOf(stream.get());
    int consumed = 0;
    scan(&source, c.format, &consumed, 4);
    EXPECT_EQ(source.position != nullptr, c.adopts);
  }
}

TEST(StreamSource, RefillPushesHighAndZeroBytesBack) {
  const Stream stream = streamOf(std::string("\xff\0z", 3), false, Buffering::none);
  ScanSource source = sourceOf(stream.get());
  for (const char expected : {'\xff', '\0', 'z'}) {
    char c = '#';
    EXPECT_EQ(scan(&source, "%c", &c, 1), 1);
    EXPECT_EQ(c, expected);
  }
}

TEST(StreamSource, RefillFlushesWhatOtherStreamsHold) {
  const Stream output(tmpfile());
  fputs("prompt", output.get());
  struct stat status {};
  ASSERT_EQ(fstat(fileno(output.get()), &status), 0);
  ASSERT_EQ(status.st_size, 0);
  const Stream stream = streamOf("12", false, Buffering::usual);
  ScanSource source = sourceOf(stream.get());
  EXPECT_EQ(__Qrefill(&source), 0);
  ASSERT_EQ(fstat(fileno(output.get()), &status), 0);
  EXPECT_EQ(status.st_size, 6);
}

TEST(StreamSource, RefillFailsOnAStreamThatCannotBeRead) {
  const Stream stream(fopen("/dev/null", "w"));
  ASSERT_NE(stream, nullptr);
  ScanSource source = sourceOf(stream.get());
  EXPECT_EQ(__Qrefill(&source), -1);
  EXPECT_EQ(source.unread, 0);
}

}  // namespace
