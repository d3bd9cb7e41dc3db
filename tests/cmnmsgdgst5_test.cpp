#include "cmnmsgdgst5.h"

#include "guarded_page.h"
#include "plain_digest.h"

#include <gtest/gtest.h>

#include <setjmp.h>
#include <signal.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnMessageDigest5;
using kelp_test::GuardedPage;
using kelp_test::PlainDigest;
using Bytes = std::vector<unsigned char>;

// What a derived class sees.
struct OpenDigest : CCmnMessageDigest5 {
  using CCmnMessageDigest5::CCmnMessageDigest5;
  using CCmnMessageDigest5::m_ansiDigest;
  using CCmnMessageDigest5::m_bitCount;
  using CCmnMessageDigest5::m_buffer;
  using CCmnMessageDigest5::m_bufferCount;
  using CCmnMessageDigest5::m_digest;
  using CCmnMessageDigest5::m_state;
  using CCmnMessageDigest5::m_unicodeDigest;
  using CCmnMessageDigest5::Transform;
  using CCmnMessageDigest5::Transform_Round1;
  using CCmnMessageDigest5::Transform_Round2;
  using CCmnMessageDigest5::Transform_Round3;
  using CCmnMessageDigest5::Transform_Round4;
};

using Step = decltype(&OpenDigest::Transform_Round1);

std::string expectedDigest(const Bytes& message) {
  return PlainDigest<uint64_t>().digestOf(message);
}
std::string md5Digest(const Bytes& message) { return PlainDigest<uint32_t>().digestOf(message); }
std::string digestWithoutHighHalvesInTheChain(const Bytes& message) {
  PlainDigest<uint64_t> plain;
  plain.kept = 0xffffffff;
  return plain.digestOf(message);
}

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes randomBytes(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(count);
  std::generate(bytes.begin(), bytes.end(),
                [&] { return static_cast<unsigned char>(random() & 0xff); });
  return bytes;
}

std::string digestOf(const Bytes& message) {
  return CCmnMessageDigest5(static_cast<const void*>(message.data()), message.size())
      .GetAnsiMessageDigest();
}

// What the members must be when exactly these bytes were fed and the digest is still open.
void expectOpenAfter(const OpenDigest& digest, const Bytes& fed) {
  PlainDigest<uint64_t> plain;
  const size_t whole = fed.size() / 64;
  for (size_t i = 0; i < whole; ++i) {
    plain.transform(&fed[64 * i]);
  }
  EXPECT_TRUE(std::equal(plain.state, plain.state + 4, digest.m_state));
  EXPECT_EQ(digest.m_bitCount, 512 * whole);
  EXPECT_EQ(digest.m_bufferCount, fed.size() % 64);
  EXPECT_TRUE(std::equal(fed.begin() + static_cast<std::ptrdiff_t>(64 * whole), fed.end(),
                         digest.m_buffer));
  EXPECT_STREQ(digest.GetAnsiMessageDigest(), "");
  EXPECT_EQ(digest[0], 0);
}

bool isZero(const void* memory, size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(memory);
  return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

void expectFresh(const OpenDigest& digest) {
  EXPECT_TRUE(isZero(digest.m_buffer, sizeof digest.m_buffer));
  EXPECT_EQ(digest.m_bufferCount, 0UL);
  EXPECT_EQ(digest.m_state[0], 0x67452301UL);
  EXPECT_EQ(digest.m_state[1], 0xefcdab89UL);
  EXPECT_EQ(digest.m_state[2], 0x98badcfeUL);
  EXPECT_EQ(digest.m_state[3], 0x10325476UL);
  EXPECT_EQ(digest.m_bitCount, 0UL);
  EXPECT_TRUE(isZero(digest.m_digest, sizeof digest.m_digest));
  EXPECT_TRUE(isZero(digest.m_ansiDigest, sizeof digest.m_ansiDigest));
  EXPECT_TRUE(isZero(digest.m_unicodeDigest, sizeof digest.m_unicodeDigest));
}

void expectSameMembers(const OpenDigest& first, const OpenDigest& second) {
  EXPECT_EQ(memcmp(first.m_buffer, second.m_buffer, sizeof first.m_buffer), 0);
  EXPECT_EQ(first.m_bufferCount, second.m_bufferCount);
  EXPECT_EQ(memcmp(first.m_state, second.m_state, sizeof first.m_state), 0);
  EXPECT_EQ(first.m_bitCount, second.m_bitCount);
  EXPECT_EQ(memcmp(first.m_digest, second.m_digest, sizeof first.m_digest), 0);
  EXPECT_EQ(memcmp(first.m_ansiDigest, second.m_ansiDigest, sizeof first.m_ansiDigest), 0);
  EXPECT_EQ(memcmp(first.m_unicodeDigest, second.m_unicodeDigest, sizeof first.m_unicodeDigest), 0);
}

struct Known {
  const char* text;
  const char* digest;
  const char* md5;
};
constexpr Known known[] = {
    {"", "e4c23762ed2823a27e62a64b95c024e7", "d41d8cd98f00b204e9800998ecf8427e"},
    {"a", "793a9bc07e209b286fa416d6ee29a85d", "0cc175b9c0f1b6a831c399e269772661"},
    {"abc", "7999dc75e8da648c6727e137c5b77803", "900150983cd24fb0d6963f7d28e17f72"},
    {"message digest", "840793371ec58a6cc84896a5153095de", "f96b697d7cb7938d525a2f31aaf161d0"}};

TEST(MessageDigest5, OfKnownTextsIsTheKnownOne) {
  for (const Known& each : known) {
    SCOPED_TRACE(each.text);
    EXPECT_STREQ(CCmnMessageDigest5(each.text).GetAnsiMessageDigest(), each.digest);
    EXPECT_EQ(digestOf(bytesOf(each.text)), each.digest);
    CCmnMessageDigest5 fed;
    fed.Update(reinterpret_cast<const unsigned char*>(each.text), strlen(each.text));
    fed.Finalize();
    EXPECT_STREQ(fed.GetAnsiMessageDigest(), each.digest);
  }
}

TEST(MessageDigest5, OnWordsReducedTo32BitsWouldBeMd5AndIsNot) {
  for (const Known& each : known) {
    SCOPED_TRACE(each.text);
    EXPECT_EQ(expectedDigest(bytesOf(each.text)), each.digest);
    EXPECT_EQ(md5Digest(bytesOf(each.text)), each.md5);
    EXPECT_STRNE(CCmnMessageDigest5(each.text).GetAnsiMessageDigest(), each.md5);
  }
}

TEST(MessageDigest5, EqualsThePlainFormForEveryLength) {
  for (size_t length = 0; length <= 300; ++length) {
    SCOPED_TRACE(length);
    const Bytes message = randomBytes(length, 501 + static_cast<unsigned>(length));
    EXPECT_EQ(digestOf(message), expectedDigest(message));
    EXPECT_NE(digestOf(message), md5Digest(message));
  }
}

TEST(MessageDigest5, EqualsThePlainFormForExtremeBytes) {
  const Bytes extremes = {0x00, 0x01, 0x7f, 0x80, 0xff};
  for (const unsigned char byte : extremes) {
    for (size_t length = 1; length <= 200; ++length) {
      SCOPED_TRACE(testing::Message() << length << " bytes of " << int{byte});
      const Bytes message(length, byte);
      EXPECT_EQ(digestOf(message), expectedDigest(message));
    }
  }
}

TEST(MessageDigest5, CarriesTheHighHalvesOfItsWordsIntoTheNextBlock) {
  for (size_t length = 56; length <= 300; ++length) {
    SCOPED_TRACE(length);
    const Bytes message = randomBytes(length, 1501 + static_cast<unsigned>(length));
    const std::string reduced = digestWithoutHighHalvesInTheChain(message);
    EXPECT_NE(expectedDigest(message), reduced);
    EXPECT_EQ(digestOf(message), expectedDigest(message));
  }
  // One block has nothing to carry.
  const Bytes oneBlock = randomBytes(55, 1500);
  EXPECT_EQ(digestOf(oneBlock), digestWithoutHighHalvesInTheChain(oneBlock));

  OpenDigest digest;
  const Bytes block = randomBytes(64, 2000);
  digest.Update(block.data(), block.size());
  for (const unsigned long word : digest.m_state) {
    EXPECT_NE(word >> 32, 0UL);
  }
}

TEST(MessageDigest5, NeedsASecondFinalBlockFrom56BytesOn) {
  struct {
    size_t length;
    size_t blocks;
  } const cases[] = {{0, 1},  {1, 1},  {54, 1},  {55, 1},  {56, 2},  {57, 2}, {63, 2},
                     {64, 2}, {65, 2}, {119, 2}, {120, 3}, {127, 3}, {128, 3}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.length);
    Bytes padded = randomBytes(each.length, 77);
    OpenDigest digest(static_cast<const void*>(padded.data()), padded.size());
    padded.push_back(0x80);
    padded.resize(64 * each.blocks);
    padded[padded.size() - 8] = static_cast<unsigned char>(each.length * 8 & 0xff);
    padded[padded.size() - 7] = static_cast<unsigned char>(each.length * 8 >> 8);
    PlainDigest<uint64_t> plain;
    for (size_t i = 0; i < each.blocks; ++i) {
      plain.transform(&padded[64 * i]);
    }
    EXPECT_TRUE(std::equal(plain.state, plain.state + 4, digest.m_state));
    EXPECT_EQ(digest.GetAnsiMessageDigest(), plain.hexadecimal());
    EXPECT_EQ(memcmp(digest.m_buffer, &padded[padded.size() - 64], 64), 0);
  }
}

TEST(MessageDigest5, OfALargeInputEqualsThePlainForm) {
  const Bytes message = randomBytes((1 << 18) + 7, 3);
  EXPECT_EQ(digestOf(message), expectedDigest(message));
}

TEST(MessageDigest5, DoesNotDependOnASplitInTwo) {
  const Bytes message = randomBytes(200, 4);
  const std::string expected = expectedDigest(message);
  for (size_t first = 0; first <= message.size(); ++first) {
    SCOPED_TRACE(first);
    OpenDigest digest;
    digest.Update(message.data(), first);
    expectOpenAfter(digest, Bytes(message.begin(), message.begin() + static_cast<long>(first)));
    digest.Update(message.data() + first, message.size() - first);
    expectOpenAfter(digest, message);
    digest.Finalize();
    EXPECT_EQ(digest.GetAnsiMessageDigest(), expected);
  }
}

TEST(MessageDigest5, DoesNotDependOnThePiecesItIsFedIn) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const size_t longest = std::vector<size_t>{3, 20, 64, 150}[random() % 4];
    const Bytes message = randomBytes(random() % 500, seed);
    OpenDigest digest;
    Bytes fed;
    while (fed.size() < message.size()) {
      const size_t piece = std::min(random() % (longest + 1), message.size() - fed.size());
      digest.Update(message.data() + fed.size(), piece);
      fed.insert(fed.end(), message.begin() + static_cast<long>(fed.size()),
                 message.begin() + static_cast<long>(fed.size() + piece));
      expectOpenAfter(digest, fed);
    }
    digest.Finalize();
    EXPECT_EQ(digest.GetAnsiMessageDigest(), expectedDigest(message));
  }
}

TEST(MessageDigest5, IsNotChangedByAnEmptyUpdate) {
  for (const size_t length : {0UL, 1UL, 55UL, 63UL, 64UL, 65UL, 128UL}) {
    SCOPED_TRACE(length);
    const Bytes message = randomBytes(length, 6);
    OpenDigest digest;
    digest.Update(message.data(), message.size());
    const OpenDigest before = digest;
    const unsigned char byte = 'x';
    digest.Update(&byte, 0);
    digest.Update(nullptr, 0);
    digest.Update(nullptr, 100);
    digest.Update(nullptr, ULONG_MAX);
    expectSameMembers(digest, before);
    digest.Finalize();
    EXPECT_EQ(digest.GetAnsiMessageDigest(), expectedDigest(message));
  }
}

TEST(MessageDigest5, LeavesWhatIsBehindTheWaitingBytesAlone) {
  OpenDigest digest;
  const Bytes block = randomBytes(64, 8);
  digest.Update(block.data(), 60);
  digest.Update(block.data() + 60, 4);
  EXPECT_EQ(digest.m_bufferCount, 0UL);
  digest.Update(block.data(), 3);
  EXPECT_EQ(digest.m_bufferCount, 3UL);
  // Finalize() has to clear this.
  EXPECT_EQ(memcmp(digest.m_buffer, block.data(), 64), 0);
}

TEST(MessageDigest5, TransformsWholeBlocksWithoutBufferingThem) {
  OpenDigest digest;
  const Bytes message = randomBytes(size_t{64} * 3, 9);
  digest.Update(message.data(), message.size());
  EXPECT_TRUE(isZero(digest.m_buffer, sizeof digest.m_buffer));
  expectOpenAfter(digest, message);
}

TEST(MessageDigest5, CountsBitsInSixtyFourBits) {
  OpenDigest digest;
  digest.m_bitCount = 0xfffffe00;
  const Bytes block(64, 'x');
  digest.Update(block.data(), block.size());
  EXPECT_EQ(digest.m_bitCount, 0x100000000UL);
  digest.m_bitCount = 0x0123456789abcd00;
  digest.Update(block.data(), 10);
  EXPECT_EQ(digest.m_bitCount, 0x0123456789abcd00UL);
  digest.Finalize();
  EXPECT_EQ(digest.m_bitCount, 0x0123456789abcd50UL);
  const unsigned char length[] = {0x50, 0xcd, 0xab, 0x89, 0x67, 0x45, 0x23, 0x01};
  EXPECT_EQ(memcmp(digest.m_buffer + 56, length, sizeof length), 0);
}

sigjmp_buf outOfBounds;

// Whether a length of little more than 32 bits makes the digest read on to where memory ends.
bool readsToTheEndOfMemory(CCmnMessageDigest5& digest) {
  GuardedPage<unsigned char> page(100);
  struct sigaction jump = {};
  struct sigaction old[2];
  jump.sa_handler = [](int) { siglongjmp(outOfBounds, 1); };
  sigaction(SIGSEGV, &jump, &old[0]);
  sigaction(SIGBUS, &jump, &old[1]);
  const bool arrived = sigsetjmp(outOfBounds, 1) != 0;
  if (!arrived) {
    digest.Update(page.data(), 0x100000020UL);
  }
  sigaction(SIGSEGV, &old[0], nullptr);
  sigaction(SIGBUS, &old[1], nullptr);
  return arrived;
}

TEST(MessageDigest5, TakesLengthsBeyondThirtyTwoBits) {
  CCmnMessageDigest5 empty;
  EXPECT_TRUE(readsToTheEndOfMemory(empty));
  CCmnMessageDigest5 waiting;
  waiting.Update(reinterpret_cast<const unsigned char*>("x"), 1);
  EXPECT_TRUE(readsToTheEndOfMemory(waiting));
}

TEST(MessageDigest5, HasEveryMemberResetAtFirst) { expectFresh(OpenDigest()); }

TEST(MessageDigest5, FinalizesOnlyOnce) {
  for (const size_t length : {0UL, 3UL, 55UL, 56UL, 64UL, 100UL}) {
    SCOPED_TRACE(length);
    const Bytes message = randomBytes(length, 10);
    OpenDigest digest;
    digest.Update(message.data(), message.size());
    digest.Finalize();
    const OpenDigest before = digest;
    digest.Finalize();
    expectSameMembers(digest, before);
  }
}

TEST(MessageDigest5, IgnoresUpdatesOnceItIsFinal) {
  const Bytes message = randomBytes(100, 11);
  for (const size_t length : {0UL, 1UL, 64UL, 100UL}) {
    SCOPED_TRACE(length);
    OpenDigest digest("abc");
    const OpenDigest before = digest;
    digest.Update(message.data(), length);
    expectSameMembers(digest, before);
    digest.Finalize();
    EXPECT_STREQ(digest.GetAnsiMessageDigest(), "7999dc75e8da648c6727e137c5b77803");
  }
}

TEST(MessageDigest5, IsFinalOnceItsHexadecimalTextBegins) {
  OpenDigest digest;
  digest.Update(reinterpret_cast<const unsigned char*>("ab"), 2);
  digest.m_ansiDigest[0] = '0';
  const OpenDigest before = digest;
  digest.Update(reinterpret_cast<const unsigned char*>("c"), 1);
  digest.Finalize();
  expectSameMembers(digest, before);
  digest.m_ansiDigest[0] = '\0';
  digest.m_digest[0] = 'x';  // marks nothing
  digest.Update(reinterpret_cast<const unsigned char*>("c"), 1);
  digest.Finalize();
  EXPECT_STREQ(digest.GetAnsiMessageDigest(), "7999dc75e8da648c6727e137c5b77803");
}

TEST(MessageDigest5, KeepsTheMembersThatFinalizingDoesNotName) {
  OpenDigest digest;
  const Bytes message = randomBytes(64 + 60, 12);
  digest.Update(message.data(), message.size());
  digest.Finalize();
  EXPECT_EQ(digest.m_bufferCount, 60UL);
  EXPECT_EQ(digest.m_bitCount, (64 + 60) * 8UL);
  EXPECT_TRUE(isZero(digest.m_buffer, 56));
  EXPECT_TRUE(isZero(digest.m_unicodeDigest, sizeof digest.m_unicodeDigest));
}

TEST(MessageDigest5, BeginsAnewWhenInitialized) {
  OpenDigest digest("message digest");
  digest.Initialize();
  expectFresh(digest);
  digest.Update(reinterpret_cast<const unsigned char*>("abc"), 3);
  digest.Initialize();  // in the middle, too
  expectFresh(digest);
  digest.Update(reinterpret_cast<const unsigned char*>("a"), 1);
  digest.Finalize();
  EXPECT_STREQ(digest.GetAnsiMessageDigest(), "793a9bc07e209b286fa416d6ee29a85d");
}

TEST(MessageDigest5, ResetsEveryByteOfEveryMember) {
  OpenDigest digest;
  std::fill_n(digest.m_buffer, 64, static_cast<unsigned char>(0xff));
  digest.m_bufferCount = 63;
  std::fill_n(digest.m_state, 4, ULONG_MAX);
  digest.m_bitCount = ULONG_MAX;
  std::fill_n(digest.m_digest, 16, static_cast<unsigned char>(0xff));
  std::fill_n(digest.m_ansiDigest, 33, 'x');
  std::fill_n(digest.m_unicodeDigest, 33, L'x');
  digest.Initialize();
  expectFresh(digest);
}

TEST(MessageDigest5, GivesTheBytesOfItsHexadecimalText) {
  CCmnMessageDigest5 digest;
  EXPECT_STREQ(digest.GetAnsiMessageDigest(), "");
  for (unsigned long i = 0; i < 16; ++i) {
    EXPECT_EQ(digest[i], 0) << i;
  }
  digest.Finalize();
  const unsigned char expected[] = {0xe4, 0xc2, 0x37, 0x62, 0xed, 0x28, 0x23, 0xa2,
                                    0x7e, 0x62, 0xa6, 0x4b, 0x95, 0xc0, 0x24, 0xe7};
  for (unsigned long i = 0; i < 16; ++i) {
    EXPECT_EQ(digest[i], expected[i]) << i;
  }
}

TEST(MessageDigest5, GivesZeroForABytePastItsEnd) {
  const CCmnMessageDigest5 digest("abc");
  const unsigned long past[] = {16, 17, 32, UINT_MAX, 1UL << 32, ULONG_MAX - 15, ULONG_MAX};
  for (const unsigned long index : past) {
    EXPECT_EQ(digest[index], 0) << index;
  }
}

TEST(MessageDigest5, NeverFillsItsWideText) {
  const unsigned short wide[] = {'a', 0};
  OpenDigest fed;
  EXPECT_STREQ(fed.GetUnicodeMessageDigest(), L"");
  fed.Update(reinterpret_cast<const unsigned char*>("abc"), 3);
  EXPECT_STREQ(fed.GetUnicodeMessageDigest(), L"");
  fed.Finalize();
  for (const OpenDigest& digest : {fed, OpenDigest("text"), OpenDigest(wide)}) {
    EXPECT_STREQ(digest.GetUnicodeMessageDigest(), L"");
    EXPECT_EQ(digest.GetUnicodeMessageDigest(), digest.m_unicodeDigest);
    EXPECT_EQ(digest.GetAnsiMessageDigest(), digest.m_ansiDigest);
    EXPECT_TRUE(isZero(digest.m_unicodeDigest, sizeof digest.m_unicodeDigest));
  }
}

TEST(MessageDigest5, OfANarrowTextEndsAtItsTerminator) {
  const char text[] = "abc\0def";
  EXPECT_STREQ(CCmnMessageDigest5(text).GetAnsiMessageDigest(), "7999dc75e8da648c6727e137c5b77803");
  EXPECT_EQ(CCmnMessageDigest5("\xe9\xff").GetAnsiMessageDigest(), expectedDigest({0xe9, 0xff}));
  EXPECT_EQ(digestOf({'a', 'b', 'c', 0}), expectedDigest({'a', 'b', 'c', 0}));
}

TEST(MessageDigest5, OfAWideTextIsThatOfItsUnitsInMemory) {
  const unsigned short abc[] = {'a', 'b', 'c', 0, 'd', 0};
  EXPECT_EQ(CCmnMessageDigest5(abc).GetAnsiMessageDigest(),
            expectedDigest({0x61, 0x00, 0x62, 0x00, 0x63, 0x00}));
  // Units with a zero byte at either end, and halves of a surrogate pair, are taken as they are.
  const unsigned short units[] = {0x0100, 0x0001, 0xff00, 0xd83d, 0x00e9, 0};
  EXPECT_EQ(CCmnMessageDigest5(units).GetAnsiMessageDigest(),
            expectedDigest({0x00, 0x01, 0x01, 0x00, 0x00, 0xff, 0x3d, 0xd8, 0xe9, 0x00}));
  const unsigned short empty[] = {0, 'a', 0};
  EXPECT_EQ(CCmnMessageDigest5(empty).GetAnsiMessageDigest(), expectedDigest({}));
}

TEST(MessageDigest5, OfALongWideTextTakesBothBytesOfEveryUnit) {
  std::vector<unsigned short> units;
  Bytes bytes;
  for (unsigned i = 1; i <= 100; ++i) {
    const unsigned unit = (i * 2654435761U >> 8 & 0xffff) | 1;
    units.push_back(static_cast<unsigned short>(unit));
    bytes.push_back(static_cast<unsigned char>(unit & 0xff));
    bytes.push_back(static_cast<unsigned char>(unit >> 8));
  }
  units.push_back(0);
  EXPECT_EQ(CCmnMessageDigest5(units.data()).GetAnsiMessageDigest(), expectedDigest(bytes));
}

TEST(MessageDigest5, OfNullIsThatOfNothing) {
  const char* empty = "e4c23762ed2823a27e62a64b95c024e7";
  EXPECT_STREQ(CCmnMessageDigest5(static_cast<const char*>(nullptr)).GetAnsiMessageDigest(), empty);
  EXPECT_STREQ(
      CCmnMessageDigest5(static_cast<const unsigned short*>(nullptr)).GetAnsiMessageDigest(),
      empty);
  for (const unsigned long length : {0UL, 5UL, 64UL, ULONG_MAX}) {
    EXPECT_STREQ(CCmnMessageDigest5(nullptr, length).GetAnsiMessageDigest(), empty) << length;
  }
}

TEST(MessageDigest5, TakesZeroBytesFromMemory) {
  EXPECT_EQ(digestOf({0}), expectedDigest({0}));
  EXPECT_NE(digestOf({0}), digestOf({}));
  EXPECT_EQ(digestOf({'a', 0, 'b'}), expectedDigest({'a', 0, 'b'}));
}

TEST(MessageDigest5, ReadsNothingBehindItsInput) {
  for (size_t length = 0; length <= 130; ++length) {
    SCOPED_TRACE(length);
    GuardedPage<unsigned char> page(length);
    std::fill_n(page.data(), length, static_cast<unsigned char>('x'));
    const Bytes message(length, 'x');
    EXPECT_EQ(
        CCmnMessageDigest5(static_cast<const void*>(page.data()), length).GetAnsiMessageDigest(),
        expectedDigest(message));
    CCmnMessageDigest5 digest("reused");
    digest.Initialize();
    digest.Update(page.data() + length / 3, length - length / 3);
    digest.Finalize();
    EXPECT_EQ(digest.GetAnsiMessageDigest(), expectedDigest(Bytes(length - length / 3, 'x')));
  }
  GuardedPage<char> narrow(std::string("abc\0", 4));
  EXPECT_EQ(CCmnMessageDigest5(narrow.data()).GetAnsiMessageDigest(), digestOf({'a', 'b', 'c'}));
  GuardedPage<unsigned short> wide(2);
  wide.data()[0] = 'a';
  wide.data()[1] = 0;
  EXPECT_EQ(CCmnMessageDigest5(wide.data()).GetAnsiMessageDigest(), digestOf({'a', 0}));
}

TEST(MessageDigest5, ReadsFromAnyAddress) {
  const Bytes message = randomBytes(100, 14);
  for (size_t offset = 0; offset < 8; ++offset) {
    Bytes shifted(offset);
    shifted.insert(shifted.end(), message.begin(), message.end());
    EXPECT_EQ(CCmnMessageDigest5(static_cast<const void*>(&shifted[offset]), message.size())
                  .GetAnsiMessageDigest(),
              expectedDigest(message));
  }
}

TEST(MessageDigest5, MayBeCopiedInTheMiddle) {
  const Bytes message = randomBytes(150, 15);
  OpenDigest original;
  original.Update(message.data(), 100);
  OpenDigest copy = original;
  OpenDigest assigned("something else");
  assigned = original;
  expectSameMembers(assigned, original);
  original.Finalize();
  copy.Update(message.data() + 100, 50);
  copy.Finalize();
  assigned.Update(message.data() + 100, 50);
  assigned.Finalize();
  EXPECT_EQ(original.GetAnsiMessageDigest(),
            expectedDigest(Bytes(message.begin(), message.begin() + 100)));
  EXPECT_EQ(copy.GetAnsiMessageDigest(), expectedDigest(message));
  EXPECT_EQ(assigned.GetAnsiMessageDigest(), expectedDigest(message));
  EXPECT_NE(copy.GetAnsiMessageDigest(), original.GetAnsiMessageDigest());
}

TEST(MessageDigest5, TransformChangesNothingButTheState) {
  const Bytes blocks = randomBytes(size_t{64} * 4, 16);
  OpenDigest digest;
  digest.Update(reinterpret_cast<const unsigned char*>("waiting"), 7);
  OpenDigest expected = digest;
  PlainDigest<uint64_t> plain;
  for (size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    digest.Transform(&blocks[64 * i]);
    plain.transform(&blocks[64 * i]);
    std::copy(plain.state, plain.state + 4, expected.m_state);
    expectSameMembers(digest, expected);
  }
}

TEST(MessageDigest5, TransformEqualsThePlainFormFromAnyState) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    OpenDigest digest;
    PlainDigest<uint64_t> plain;
    for (int i = 0; i < 4; ++i) {
      digest.m_state[i] = plain.state[i] = random();
    }
    const Bytes block = randomBytes(64, seed);
    digest.Transform(block.data());
    plain.transform(block.data());
    EXPECT_TRUE(std::equal(plain.state, plain.state + 4, digest.m_state));
  }
}

struct StepCase {
  const char* what;
  Step step;
  unsigned long w, b, c, d, x, s, t, result;
};

constexpr unsigned long ones = ULONG_MAX;
constexpr Step round1 = &OpenDigest::Transform_Round1;
constexpr Step round2 = &OpenDigest::Transform_Round2;
constexpr Step round3 = &OpenDigest::Transform_Round3;
constexpr Step round4 = &OpenDigest::Transform_Round4;

// Worked out by hand: f, then v = w + f + x + t, then (v >> (32 - s) | v << s) + b.
const StepCase stepCases[] = {
    // f = 1100 & 1010 | 0011 & 0110 = 1010, shifted left by 4
    {"1: f", round1, 0, 0xc, 0xa, 0x6, 0, 4, 0, 0xa0 + 0xc},
    {"1: f takes d where b is 0, in the high half too", round1, 0, 0, 0, 0xffUL << 56, 0, 4, 0,
     0xff0000000 | 0xfUL << 60},
    {"1: sum of w, f, x and t", round1, 0x1000, 0, 0x5555, 0x200, 0x30, 4, 0x4, 0x12340},
    // f = 1100 & 0110 | 1010 & 1001 = 1100
    {"2: f", round2, 0, 0xc, 0xa, 0x6, 0, 5, 0, (0xc << 5) + 0xc},
    {"2: f takes c where d is 0, in the high half too", round2, 0, 0, 0xffUL << 56, 0, 0, 4, 0,
     0xff0000000 | 0xfUL << 60},
    {"2: sum of w, f, x and t", round2, 0x1000, 0, 0x200, 0x5055, 0x30, 4, 0x4, 0x12340},
    // f = 1100 ^ 1010 ^ 0111 = 0001
    {"3: f", round3, 0, 0xc, 0xa, 0x7, 0, 11, 0, 0x800 + 0xc},
    {"3: sum of w, f, x and t", round3, 0x1000, 0, 0x300, 0x100, 0x30, 4, 0x4, 0x12340},
    // f = 1010 ^ (1100 | ~1110) = 1010 ^ ...11101 = ...10111, so v = f - ...1110000 = 111
    {"4: f", round4, 0x10, 0xc, 0xa, 0xe, 0, 6, 0, (7 << 6) + 0xc},
    {"4: the complement has 64 bits", round4, 0, 0, 0, 0, 0, 6, 0, ones},
    {"4: and wraps to 0 with 1 added", round4, 0, 0, 0, 0, 1, 6, 0, 0},
    {"4: sum of w, f, x and t", round4, 0x1000, 0, 0x200, ones, 0x30, 4, 0x4, 0x12340},
    {"what is above 32 bits stays and comes down", round3, 1UL << 32, 0, 0, 0, 0, 7, 0,
     1UL << 39 | 1UL << 7},
    {"what leaves at the top is lost", round3, 1UL << 63 | 1, 0, 0, 0, 0, 4, 0, 1UL << 35 | 0x10},
    {"both parts are joined by or", round3, 0x100000010, 0, 0, 0, 0, 16, 0,
     0x1000000100000 | 0x10000},
    {"parts that overlap are not added", round3, 1UL << 32 | 1, 0, 0, 0, 0, 16, 0,
     1UL << 48 | 1UL << 16},
    {"the sum is taken modulo 2 to the 64", round3, ones, 0, 0, 0, 1, 4, 2, 0x20},
    {"b is added last, modulo 2 to the 64", round3, 0x1, ones, ones, 0, 0, 4, 0, 0xf},
    {"the constant and the word may have high halves", round3, 0, 0, 0, 0, 1UL << 40, 4, 1UL << 41,
     3UL << 44 | 3UL << 12},
};

TEST(MessageDigest5, StepsGiveTheValuesWorkedOutByHand) {
  for (const StepCase& each : stepCases) {
    SCOPED_TRACE(each.what);
    OpenDigest digest;
    unsigned long w = each.w;
    (digest.*each.step)(w, each.b, each.c, each.d, each.x, each.s, each.t);
    EXPECT_EQ(w, each.result) << std::hex << w;
    expectFresh(digest);
  }
}

TEST(MessageDigest5, StepsEqualTheWrittenFormula) {
  const Step steps[] = {round1, round2, round3, round4};
  for (unsigned seed = 1; seed <= 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    const unsigned long w = random();
    const unsigned long b = random();
    const unsigned long c = random();
    const unsigned long d = random();
    const unsigned long x = random();
    const unsigned long t = random();
    const unsigned long s = 1 + random() % 31;
    for (int round = 0; round < 4; ++round) {
      const unsigned long v = w + PlainDigest<uint64_t>::function(16 * round, b, c, d) + x + t;
      OpenDigest digest;
      unsigned long result = w;
      (digest.*steps[round])(result, b, c, d, x, s, t);
      EXPECT_EQ(result, ((v >> (32 - s)) | (v << s)) + b) << round;
    }
  }
}

}  // namespace
