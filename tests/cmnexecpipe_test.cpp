#include "cmnexecpipe.h"

#include "all_texts.h"
#include "another_process.h"
#include "exec_fixture.h"
#include "guarded_page.h"
#include "heap.h"
#include "interposed_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <utility>

namespace {

using namespace kelp_cmn_4_4;
using namespace kelp_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

void expectFresh(const ProbedPipe& pipe) {
  EXPECT_EQ(pipe.m_childPid, -1);
  EXPECT_EQ(pipe.m_bufferCount, 0);
  EXPECT_EQ(pipe.m_bufferPos, 0);
  EXPECT_EQ(pipe.m_readFd, -1);
  EXPECT_EQ(pipe.m_argc, 0);
  EXPECT_EQ(pipe.m_argCapacity, 0);
  EXPECT_EQ(pipe.m_argv, nullptr);
}

TEST(ExecPipeObject, StartsWithoutChild) {
  const ProbedPipe pipe;
  expectFresh(pipe);
  EXPECT_EQ(pipe.m_commandLine, "");
  EXPECT_TRUE(pipe.m_hostList.empty());
}

TEST(ExecPipeObject, KeepsTheHostsList) {
  Lines list{"a", "b"};
  const ProbedPipe pipe(list);
  EXPECT_THAT(list, ElementsAre("a", "b"));
  EXPECT_THAT(pipe.m_hostList, ElementsAre("a", "b"));
  expectFresh(pipe);
}

TEST(ExecPipeObject, InitForgetsWithoutReleasing) {
  ProbedPipe pipe;
  ASSERT_TRUE(pipe.ParseCommand("one two"));
  char** const arguments = pipe.m_argv;
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  pipe.m_readFd = ends[0];
  pipe.m_childPid = 4711;
  pipe.m_bufferCount = 3;
  pipe.m_bufferPos = 2;
  pipe.m_commandLine = "kept";
  pipe.Init();
  expectFresh(pipe);
  EXPECT_EQ(pipe.m_commandLine, "kept");
  EXPECT_STREQ("two", arguments[1]);
  EXPECT_EQ(close(ends[0]), 0) << "was still open";
  close(ends[1]);
  delete[] arguments[0];
  delete[] arguments[1];
  free(arguments);
}

// --- splitting a command line

struct Split {
  bool ok = false;
  Lines words;  // those stored, also before a failure
};

// The rules in one plain pass.
Split plainSplit(const std::string& line) {
  Split result;
  std::string word;
  bool inWord = false;
  char quote = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quote != 0) {
      c == quote ? void(quote = 0) : word.push_back(c);
    } else if (c == ' ' || c == '\t') {
      if (inWord) {
        result.words.push_back(word);
      }
      word.clear();
      inWord = false;
    } else {
      inWord = true;
      if (c == '\'' || c == '"') {
        quote = c;
      } else if (c != '\\') {
        word.push_back(c);
      } else if (++i < line.size()) {
        word.push_back(line[i]);
      } else {
        return result;
      }
    }
  }
  if (quote != 0) {
    return result;
  }
  if (inWord) {
    result.words.push_back(word);
  }
  result.ok = !result.words.empty();
  return result;
}

TEST(ExecPipeParse, FollowsTheQuotingRules) {
  const struct {
    const char* line;
    Lines words;  // none: cannot be split
  } cases[] = {
      {"", {}},
      {" ", {}},
      {" \t \t", {}},
      {"prog", {"prog"}},
      {"  prog\t\ta \t b  ", {"prog", "a", "b"}},
      {"prog 'a b' c", {"prog", "a b", "c"}},
      {"prog \"a b\" c", {"prog", "a b", "c"}},
      {"prog a\\ b", {"prog", "a b"}},
      {"prog a\\\tb", {"prog", "a\tb"}},
      {"prog \"it's\"", {"prog", "it's"}},
      {"prog 'say \"x\"'", {"prog", "say \"x\""}},
      {"prog pre'in ner'post", {"prog", "prein nerpost"}},
      {"prog 'a'\"b\"c", {"prog", "abc"}},
      {"''", {""}},
      {"prog '' \"\" x", {"prog", "", "", "x"}},
      {"prog \\'a\\\"", {"prog", "'a\""}},
      {"prog \\\\", {"prog", "\\"}},
      {"prog \\n\\0\\$", {"prog", "n0$"}},
      {"prog 'a\\b'", {"prog", "a\\b"}},
      {"prog \"a\\\\b\"", {"prog", "a\\\\b"}},
      {"prog 'a\\' b", {"prog", "a\\", "b"}},  // a backslash protects no closing quote
      {"prog \"a\\\" b", {"prog", "a\\", "b"}},
      {"prog \"a\\\" b\"", {}},
      {"prog a\nb", {"prog", "a\nb"}},    // only blanks and tabs separate
      {"prog a\\\nb", {"prog", "a\nb"}},  // a shell drops both
      {"prog # a", {"prog", "#", "a"}},   // no comment
      {"prog\ra", {"prog\ra"}},
      {"prog $HOME * ~ `x` | > < & ; #",
       {"prog", "$HOME", "*", "~", "`x`", "|", ">", "<", "&", ";", "#"}},
      {"prog \xc3\xa4\xff", {"prog", "\xc3\xa4\xff"}},
      {"prog 'open", {}},
      {"prog \"open", {}},
      {"prog 'open\"", {}},
      {"prog \\", {}},
      {"\\", {}},
      {"prog a\\", {}},
      {"prog 'a\\", {}},
      {"'", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    ProbedPipe pipe;
    ASSERT_EQ(pipe.ParseCommand(c.line), !c.words.empty());
    if (!c.words.empty()) {
      EXPECT_EQ(pipe.arguments(), c.words);
      EXPECT_EQ(pipe.m_argv[pipe.m_argc], nullptr);
    }
    EXPECT_EQ(!plainSplit(c.line).ok, c.words.empty()) << "the plain form errs";
  }
}

TEST(ExecPipeParse, AgreesWithThePlainFormOnAllShortLines) {
  ProbedPipe pipe;
  forEachText("a \t'\"\\", 6, [&pipe](const std::string& line) {
    pipe.ClearArgsList();
    const bool ok = pipe.ParseCommand(line.c_str());
    const Split expected = plainSplit(line);
    ASSERT_EQ(ok, expected.ok) << "[" << line << "]";
    ASSERT_EQ(pipe.arguments(), expected.words) << "[" << line << "]";
  });
}

// What the description recommends for words of any kind.
std::string inSingleQuotes(const std::string& word) {
  std::string result = "'";
  for (const char c : word) {
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return result + "'";
}

TEST(ExecPipeParse, GivesBackAnyWordsThatStandInSingleQuotes) {
  const std::string common = " \t\n'\"\\#$*a";
  for (unsigned int seed = 1; seed <= 5000; ++seed) {
    std::mt19937 random(seed);
    Lines words(1 + random() % 12);
    std::string line;
    for (std::string& word : words) {
      for (size_t length = random() % 8; length > 0; --length) {
        word += random() % 4 == 0 ? static_cast<char>(1 + random() % 255)
                                  : common[random() % common.size()];
      }
      line += (random() % 2 == 0 ? " " : "\t") + inSingleQuotes(word);
    }
    ProbedPipe pipe;
    ASSERT_TRUE(pipe.ParseCommand(line.c_str())) << "[" << line << "] of seed " << seed;
    ASSERT_EQ(pipe.arguments(), words) << "[" << line << "] of seed " << seed;
  }
}

TEST(ExecPipeParse, ReadsNothingBehindTheLine) {
  for (const char* line : {"a", "a ", "'a b'", "a\\ b", "a\\", "'a", "", " "}) {
    GuardedPage<char> page(std::string(line, std::strlen(line) + 1));
    ProbedPipe pipe;
    EXPECT_EQ(pipe.ParseCommand(page.data()), plainSplit(line).ok);
  }
}

TEST(ExecPipeParse, GrowsByTenSlotsTheClosingNullIncluded) {
  for (int count = 1; count <= 31; ++count) {
    SCOPED_TRACE(count);
    std::string line;
    for (int i = 0; i < count; ++i) {
      line += "w" + std::to_string(i) + " ";
    }
    ProbedPipe pipe;
    ASSERT_TRUE(pipe.ParseCommand(line.c_str()));
    EXPECT_EQ(pipe.m_argc, count);
    EXPECT_EQ(pipe.m_argCapacity, (count / 10 + 1) * 10);
    EXPECT_EQ(pipe.arguments().back(), "w" + std::to_string(count - 1));
    EXPECT_EQ(pipe.m_argv[count], nullptr);
  }
}

TEST(ExecPipeParse, TheEleventhArgumentGrowsTheVector) {
  ProbedPipe pipe;
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(pipe.AddArgument("x", 1));
    EXPECT_EQ(pipe.m_argCapacity, 10);
  }
  ASSERT_TRUE(pipe.AddArgument("y", 1));
  EXPECT_EQ(pipe.m_argCapacity, 20);
  EXPECT_EQ(pipe.m_argc, 11);
  EXPECT_STREQ("y", pipe.m_argv[10]);
}

TEST(ExecPipeAddArgument, LengthZeroStoresTheClosingNullWithoutCounting) {
  ProbedPipe pipe;
  EXPECT_TRUE(pipe.AddArgument(nullptr, 0));
  EXPECT_EQ(pipe.m_argc, 0);
  EXPECT_EQ(pipe.m_argCapacity, 10);
  EXPECT_EQ(pipe.m_argv[0], nullptr);
  EXPECT_TRUE(pipe.AddArgument("text", 0));
  EXPECT_EQ(pipe.m_argc, 0);
  EXPECT_TRUE(pipe.AddArgument("text", 4));
  EXPECT_THAT(pipe.arguments(), ElementsAre("text"));
}

TEST(ExecPipeAddArgument, DecodesJustTheBytesItIsGiven) {
  const struct {
    const char* text;
    int length;
    const char* stored;
  } cases[] = {{"abc", 2, "ab"},      {"a b\t", 4, "a b\t"}, {"'a", 2, "a"},
               {"a'", 2, "a"},        {"\"'\"", 3, "'"},     {"'\"'", 3, "\""},
               {"\\\\\\'", 4, "\\'"}, {"'\\'", 3, "\\"},     {"'\\'\\x", 5, "\\x"},
               {"''", 2, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    GuardedPage<char> page(std::string(c.text, static_cast<size_t>(c.length)));
    ProbedPipe pipe;
    EXPECT_TRUE(pipe.AddArgument(page.data(), c.length));
    EXPECT_THAT(pipe.arguments(), ElementsAre(c.stored));
  }
}

TEST(ExecPipeAddArgument, KeepsAZeroByteLikeAnyOther) {
  ProbedPipe pipe;
  EXPECT_TRUE(pipe.AddArgument("a\0b\0'\0'c", 8));
  EXPECT_EQ(std::string(pipe.argument(0), 7), std::string("a\0b\0\0c\0", 7));
}

TEST(ExecPipeAddArgument, AllocatesAByteMoreThanTheUndecodedText) {
  ProbedPipe pipe;
  pipe.AddArgument(nullptr, 0);
  HeapWatch watch;
  const bool added = pipe.AddArgument("'abc'", 5);
  watch.end();
  EXPECT_TRUE(added);
  EXPECT_EQ(watch.requests(), 1);
  EXPECT_EQ(watch.request(0).size, 6U);
}

// Stored, counted and not terminated on purpose.
TEST(ExecPipeAddArgument, KeepsAnUnterminatedArgumentThatEndsInABackslash) {
  ProbedPipe pipe;
  EXPECT_FALSE(pipe.AddArgument("ab\\", 3));
  ASSERT_EQ(pipe.m_argc, 1);
  EXPECT_EQ(pipe.m_argv[0][0], 'a');
  EXPECT_EQ(pipe.m_argv[0][1], 'b');
  EXPECT_EQ(static_cast<unsigned char>(pipe.m_argv[0][2]), freshByte);
  EXPECT_EQ(static_cast<unsigned char>(pipe.m_argv[0][3]), freshByte);
  EXPECT_FALSE(pipe.AddArgument("x\\y", 2)) << "the byte behind does not count";
}

TEST(ExecPipeClearArgsList, GivesBackWhatTheArgumentsTookAndSoDoesTheDestructor) {
  for (const bool cleared : {true, false}) {
    HeapWatch watch;
    {
      ProbedPipe pipe;
      for (int i = 0; i < 20; ++i) {
        pipe.AddArgument("argument", 8);
      }
      if (cleared) {
        pipe.ClearArgsList();
      }
    }
    watch.end();
    EXPECT_EQ(watch.blocks(), 0) << cleared;
    EXPECT_GT(watch.requests(), 20);
  }
}

TEST(ExecPipeClearArgsList, ReleasesAndResets) {
  ProbedPipe pipe;
  pipe.ClearArgsList();
  expectFresh(pipe);
  for (int run = 0; run < 2; ++run) {
    ASSERT_TRUE(pipe.ParseCommand("a b c d e f g h i j k"));
    pipe.ClearArgsList();
    expectFresh(pipe);
  }
  pipe.m_argc = 3;  // without a vector nothing is touched
  pipe.ClearArgsList();
  EXPECT_EQ(pipe.m_argc, 3);
  pipe.m_argc = 0;
}

// --- the host's hooks

struct Hook {
  std::string command;
  std::vector<char> text;
  bool withoutBuffer = false;
  int length = 0;
  int result = 0;
  int context = 0;
  int freed = 0;
  char* freedText = nullptr;
  int freedLength = 0;
} hook;

int tellContext() { return hook.context; }

int execInHook(const char* command, char** output, int* length) {
  EXPECT_EQ(*output, nullptr);
  EXPECT_EQ(*length, 0);
  hook.command = command;
  *output = hook.withoutBuffer ? nullptr : hook.text.data();
  *length = hook.length;
  return hook.result;
}

void freeInHook(char* output, int length) {
  ++hook.freed;
  hook.freedText = output;
  hook.freedLength = length;
}

// A pipe whose hook gives a text of that length.
class HookedPipe : public ProbedPipe {
 public:
  explicit HookedPipe(const std::string& text) : HookedPipe(text, static_cast<int>(text.size())) {}
  HookedPipe(const std::string& text, int length) {
    hook = Hook();
    hook.text.assign(text.begin(), text.end());
    hook.text.push_back('\0');
    hook.length = length;
    m_pfnIsChildContext = tellContext;
    m_pfnExecInChild = execInHook;
    m_pfnFreeOutput = freeInHook;
  }
};

TEST(ExecPipeHooks, ChildContextIsTheHooksAnswerOrZero) {
  ProbedPipe pipe;
  EXPECT_EQ(pipe.IsChildContext(), 0);
  pipe.m_pfnIsChildContext = tellContext;
  for (const int answer : {0, 1, -5}) {
    hook.context = answer;
    EXPECT_EQ(pipe.IsChildContext(), answer);
  }
}

TEST(ExecPipeHooks, WithoutARunnerNothingRuns) {
  ProbedPipe pipe;
  pipe.m_pfnFreeOutput = freeInHook;
  hook = Hook();
  Lines output{"kept"};
  EXPECT_EQ(pipe.ExecCommandInChildContext("cmd", output), 1);
  EXPECT_THAT(output, ElementsAre("kept"));
  EXPECT_EQ(hook.freed, 0);
}

TEST(ExecPipeHooks, GetTheirOutputBackWhereThereIsNoMemoryForItsLines) {
  HookedPipe pipe("one\na line that is too long for a short string\n");
  Lines output;
  output.reserve(2);
  bool threw = false;
  try {
    const ScopedFailure failure(Call::throwingNew, ENOMEM, 1, Times::onwards);
    pipe.ExecCommandInChildContext(std::string(), output);
  } catch (const std::bad_alloc&) {
    threw = true;
  }
  EXPECT_TRUE(threw);
  EXPECT_EQ(hook.freed, 1);
  EXPECT_EQ(hook.freedLength, hook.length);
  EXPECT_THAT(output, ElementsAre("one"));
}

TEST(ExecPipeHooks, SplitIntoLinesAndDropWhatFollowsTheLastLineEnd) {
  const struct {
    const char* text;
    Lines lines;
  } cases[] = {{"one\n", {"one"}},
               {"one\ntwo\n", {"one", "two"}},
               {"one\ntwo\nrest", {"one", "two"}},
               {"rest", {}},
               {"\n", {""}},
               {"\n\n", {"", ""}},
               {"a\r\n\tb \n", {"a\r", "\tb "}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    HookedPipe pipe(c.text);
    hook.result = 42;
    Lines output{"kept"};
    EXPECT_EQ(pipe.ExecCommandInChildContext("the command", output), 42);
    EXPECT_EQ(hook.command, "the command");
    Lines expected{"kept"};
    expected.insert(expected.end(), c.lines.begin(), c.lines.end());
    EXPECT_EQ(output, expected);
    EXPECT_EQ(hook.freed, 1);
    EXPECT_EQ(hook.freedText, hook.text.data());
    EXPECT_EQ(hook.freedLength, static_cast<int>(std::strlen(c.text)));
  }
}

TEST(ExecPipeHooks, StopWhenTheCountReachesTheLength) {
  const struct {
    int length;
    Lines lines;
  } cases[] = {{1, {"ab"}},
               {2, {"ab"}},
               {3, {"ab"}},
               {4, {"ab", "cd"}},
               {6, {"ab", "cd"}},
               {7, {"ab", "cd", "ef"}},
               {9, {"ab", "cd", "ef"}},
               {100, {"ab", "cd", "ef"}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.length);
    HookedPipe pipe("ab\ncd\nef\n", c.length);
    Lines output;
    EXPECT_EQ(pipe.ExecCommandInChildContext("c", output), 0);
    EXPECT_EQ(output, c.lines);
    EXPECT_EQ(hook.freed, 1);
    EXPECT_EQ(hook.freedLength, c.length);
  }
}

TEST(ExecPipeHooks, SplitTheBufferInPlace) {
  HookedPipe pipe("ab\ncd\nef");
  Lines output;
  pipe.ExecCommandInChildContext("c", output);
  EXPECT_EQ(std::string(hook.text.data(), 8), std::string("ab\0cd\0ef", 8));
}

TEST(ExecPipeHooks, LengthZeroFreesNothing) {
  HookedPipe pipe("one\n", 0);
  hook.result = 5;
  Lines output;
  EXPECT_EQ(pipe.ExecCommandInChildContext("c", output), 5);
  EXPECT_THAT(output, IsEmpty());
  EXPECT_EQ(hook.freed, 0);
}

TEST(ExecPipeHooks, NegativeLengthOnlyFrees) {
  HookedPipe pipe("one\n", -1);
  hook.result = 5;
  Lines output;
  EXPECT_EQ(pipe.ExecCommandInChildContext("c", output), 5);
  EXPECT_THAT(output, IsEmpty());
  EXPECT_EQ(hook.freed, 1);
  EXPECT_EQ(hook.freedText, hook.text.data());
  EXPECT_EQ(hook.freedLength, -1);
  EXPECT_STREQ("one\n", hook.text.data());
}

TEST(ExecPipeHooks, NullBufferIsNoTextAndIsFreedAsAnyOther) {
  HookedPipe pipe("", 7);
  hook.withoutBuffer = true;
  Lines output;
  EXPECT_EQ(pipe.ExecCommandInChildContext("c", output), 0);
  EXPECT_THAT(output, IsEmpty());
  EXPECT_EQ(hook.freed, 1);
  EXPECT_EQ(hook.freedText, nullptr);
  EXPECT_EQ(hook.freedLength, 7);
}

TEST(ExecPipeHooks, WithoutAFreeHookNothingIsFreed) {
  for (const int length : {-1, 4}) {
    HookedPipe pipe("one\n", length);
    pipe.m_pfnFreeOutput = nullptr;
    Lines output;
    EXPECT_EQ(pipe.ExecCommandInChildContext("c", output), 0);
    EXPECT_EQ(output.size(), length < 0 ? 0U : 1U);
    EXPECT_EQ(hook.freed, 0);
  }
}

TEST(ExecPipeHooks, RunTheCommandInsteadOfAProcess) {
  HookedPipe pipe("line\n");
  hook.context = 1;
  hook.result = 9;
  Lines output{"kept"};
  EXPECT_EQ(pipe.Exec("whatever 'it is", output, "in", 1, "", "", ""), 9);
  EXPECT_EQ(hook.command, "whatever 'it is");
  EXPECT_THAT(output, ElementsAre("kept", "line"));
  expectFresh(pipe);
  EXPECT_EQ(pipe.getLastError().m_code, execPipeOk);
}

// --- reading lines

// A pipe object that reads from a pipe of the test's own.
class FedPipe : public ProbedPipe {
 public:
  FedPipe() {
    int ends[2];
    if (::pipe(ends) == 0) {
      m_readFd = ends[0];
      m_writeEnd = ends[1];
    }
  }
  explicit FedPipe(const std::string& text) : FedPipe() {
    feed(text);
    end();
  }
  ~FedPipe() override { end(); }
  FedPipe(const FedPipe&) = delete;
  FedPipe& operator=(const FedPipe&) = delete;

  void feed(const std::string& text) const {
    EXPECT_EQ(write(m_writeEnd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  // Moves the read end to another number.
  void moveTo(int fd) {
    EXPECT_EQ(dup2(m_readFd, fd), fd);
    close(std::exchange(m_readFd, fd));
  }
  void end() {
    if (m_writeEnd >= 0) {
      close(m_writeEnd);
    }
    m_writeEnd = -1;
  }

 private:
  int m_writeEnd = -1;
};

bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

TEST(ExecPipeReadLine, KeepsLineEndsAndGivesTheLastFragment) {
  FedPipe pipe("one\n\ntwo");
  const int fd = pipe.m_readFd;
  EXPECT_EQ(pipe.next(100), "one\n");
  EXPECT_EQ(pipe.timedOut, 0);
  EXPECT_EQ(pipe.next(100), "\n");
  EXPECT_TRUE(isOpen(fd));
  EXPECT_EQ(pipe.next(100), "two");
  EXPECT_EQ(pipe.timedOut, 0);
  EXPECT_FALSE(isOpen(fd));
  EXPECT_EQ(pipe.m_readFd, -1);
  EXPECT_EQ(pipe.next(100), std::nullopt);
  EXPECT_EQ(pipe.timedOut, 0);
}

TEST(ExecPipeReadLine, EndsAfterALineEnd) {
  FedPipe pipe("one\n");
  EXPECT_EQ(pipe.next(100), "one\n");
  EXPECT_EQ(pipe.next(100), std::nullopt);
  EXPECT_TRUE(pipe.untouched);
  EXPECT_EQ(pipe.timedOut, 0);
  EXPECT_EQ(pipe.m_readFd, -1);
}

TEST(ExecPipeReadLine, EmptyOutputIsTheEndAtOnce) {
  FedPipe pipe("");
  EXPECT_EQ(pipe.next(100), std::nullopt);
  EXPECT_EQ(pipe.timedOut, 0);
  EXPECT_EQ(pipe.m_readFd, -1);
}

TEST(ExecPipeReadLine, SizesBelowTwoReadNothing) {
  FedPipe pipe("one\n");
  for (const int size : {1, 0, -1, INT_MIN}) {
    char buffer = '#';
    unsigned char timedOut = 77;
    EXPECT_FALSE(pipe.ReadLine(&buffer, size, &timedOut, 60)) << size;
    EXPECT_EQ(buffer, '#');
    EXPECT_EQ(timedOut, 0);
    EXPECT_NE(pipe.m_readFd, -1);
  }
  EXPECT_EQ(pipe.next(100), "one\n") << "nothing was lost";
}

size_t mostBytes = 0;

ssize_t readPiece(int fd, void* buffer, size_t size) {
  EXPECT_EQ(size, 512U);
  return realCalls().read(fd, buffer, std::min(size, mostBytes));
}

// What the text gives when it is cut into lines, and those into pieces of `size` - 1 bytes.
Lines plainPieces(const std::string& text, size_t size) {
  Lines result;
  for (size_t start = 0; start < text.size();) {
    size_t length = 0;
    while (start + length < text.size() && length < size - 1) {
      ++length;
      if (text[start + length - 1] == '\n') {
        break;
      }
    }
    result.push_back(text.substr(start, length));
    start += length;
  }
  return result;
}

TEST(ExecPipeReadLine, PiecesDoNotDependOnHowTheOutputArrives) {
  std::string text = "\n\nab\nabc\nabcd\n" + std::string(1500, 'x') + "\n" + std::string(511, 'y') +
                     "\n" + std::string(512, 'z') + "\nend";
  Replacements replacements;
  replacements.read = readPiece;
  const ScopedReplacements scope(replacements);
  for (const int size : {2, 3, 4, 5, 511, 512, 513, 514, 4096}) {
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{3}, size_t{5}, size_t{512}}) {
      SCOPED_TRACE(std::to_string(size) + "/" + std::to_string(piece));
      mostBytes = piece;
      FedPipe pipe(text);
      Lines lines;
      while (const auto line = pipe.next(size)) {
        lines.push_back(*line);
      }
      EXPECT_EQ(lines, plainPieces(text, static_cast<size_t>(size)));
    }
  }
}

TEST(ExecPipeReadLine, ZeroBytesAreBytes) {
  FedPipe pipe(std::string("a\0b\nc\0", 6));
  char buffer[16];
  unsigned char timedOut = 0;
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_TRUE(pipe.ReadLine(buffer, sizeof buffer, &timedOut, 60));
  EXPECT_EQ(std::string(buffer, 6), std::string("a\0b\n\0#", 6));
  EXPECT_TRUE(pipe.ReadLine(buffer, sizeof buffer, &timedOut, 60));
  EXPECT_EQ(std::string(buffer, 3), std::string("c\0\0", 3));
}

TEST(ExecPipeReadLine, ReadsAheadBlocksOf512) {
  FedPipe pipe(std::string(10, 'a') + "\n" + std::string(1000, 'b'));
  pipe.next(4096);
  EXPECT_EQ(pipe.m_bufferCount, 512);
  EXPECT_EQ(pipe.m_bufferPos, 11);
}

// The rest of a line that fits exactly comes with no further read.
TEST(ExecPipeReadLine, AFullBufferIsHandedOutWithoutReadingOn) {
  FedPipe pipe;
  pipe.feed("abc");
  EXPECT_EQ(pipe.next(4, 0), "abc");
  EXPECT_EQ(pipe.timedOut, 0);
  EXPECT_NE(pipe.m_readFd, -1);
}

TEST(ExecPipeReadLine, TimeOutEndsTheReadingForGood) {
  for (const long limit : {0L, -1L, static_cast<long>(LONG_MIN)}) {
    FedPipe pipe;
    const int fd = pipe.m_readFd;
    EXPECT_EQ(pipe.next(100, limit), std::nullopt);
    EXPECT_EQ(pipe.timedOut, 1);
    EXPECT_TRUE(pipe.untouched);
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(pipe.m_readFd, -1);
    EXPECT_EQ(pipe.next(100, 60), std::nullopt);
    EXPECT_EQ(pipe.timedOut, 0);
  }
}

TEST(ExecPipeReadLine, TimeOutHandsOutWhatCameOfTheLine) {
  FedPipe pipe;
  pipe.feed("one\npart");
  EXPECT_EQ(pipe.next(100, 0), "one\n");
  EXPECT_EQ(pipe.timedOut, 0);
  EXPECT_EQ(pipe.next(100, 0), "part");
  EXPECT_EQ(pipe.timedOut, 1);
  EXPECT_EQ(pipe.m_readFd, -1);
}

TEST(ExecPipeReadLine, WaitsForTheWholeTimeOut) {
  FedPipe pipe;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(pipe.next(100, 1), std::nullopt);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(pipe.timedOut, 1);
}

// A select that looks at its arguments and follows a script.
struct Wait {
  int result;    // below 0: fails with that errno
  time_t lasts;  // by the test's clock
};
std::vector<Wait> waits;
std::vector<long> limits;
int expectedFd = -1;
time_t clockNow = 0;

int scriptedSelect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                   timeval* limit) {
  EXPECT_EQ(count, expectedFd + 1);
  EXPECT_EQ(writable, nullptr);
  EXPECT_EQ(exceptional, nullptr);
  EXPECT_EQ(limit->tv_usec, 0);
  limits.push_back(limit->tv_sec);
  unsigned char set[1024];
  std::memcpy(set, readable, sizeof set);
  for (int bit = 0; bit < 8192; ++bit) {
    EXPECT_EQ((set[bit / 8] >> (bit % 8) & 1) == 1, bit == expectedFd) << bit;
  }
  std::memset(static_cast<void*>(readable), 0xff, sizeof set);
  limit->tv_sec = 12345;
  if (limits.size() > waits.size()) {
    ADD_FAILURE() << "one wait too many";
    return 0;
  }
  const Wait& wait = waits[limits.size() - 1];
  clockNow += wait.lasts;
  if (wait.result < 0) {
    errno = -wait.result;
    return -1;
  }
  return wait.result;
}

class ExecPipeWaiting : public testing::Test {
 protected:
  ExecPipeWaiting() : m_scope(replacements()) {
    clockNow = 1000;
    limits.clear();
    expectedFd = m_pipe.m_readFd;
  }
  static Replacements replacements() {
    Replacements result;
    result.select = scriptedSelect;
    result.time = [](time_t*) { return clockNow; };
    return result;
  }
  FedPipe m_pipe;

 private:
  ScopedReplacements m_scope;
};

TEST_F(ExecPipeWaiting, AsksForTheDescriptorAlone) {
  waits = {{1, 0}};
  m_pipe.feed("x\n");
  EXPECT_EQ(m_pipe.next(10, 42), "x\n");
  EXPECT_THAT(limits, ElementsAre(42));
}

TEST_F(ExecPipeWaiting, InterruptionsGoOnWithTheRemainingTime) {
  for (const int error : {EINTR, EBADF, EINVAL, ENOMEM}) {
    limits.clear();
    waits = {{-error, 3}, {-error, 0}, {-error, 6}, {1, 0}};
    m_pipe.feed("x\n");
    EXPECT_EQ(m_pipe.next(10, 10), "x\n");
    EXPECT_THAT(limits, ElementsAre(10, 7, 7, 1));
    EXPECT_EQ(m_pipe.timedOut, 0);
  }
}

TEST_F(ExecPipeWaiting, FailingUntilTheTimeIsSpentIsATimeOut) {
  waits = {{-EINTR, 4}, {-EINTR, 6}};
  EXPECT_EQ(m_pipe.next(10, 10), std::nullopt);
  EXPECT_EQ(m_pipe.timedOut, 1);
  EXPECT_THAT(limits, ElementsAre(10, 6));
  EXPECT_EQ(m_pipe.m_readFd, -1);
}

TEST_F(ExecPipeWaiting, FailingWithNoTimeGivenIsATimeOutAtOnce) {
  waits = {{-EINTR, 0}};
  EXPECT_EQ(m_pipe.next(10, 0), std::nullopt);
  EXPECT_EQ(m_pipe.timedOut, 1);
}

TEST_F(ExecPipeWaiting, AnythingButOneReadyDescriptorIsATimeOut) {
  for (const int ready : {0, 2}) {
    FedPipe other;
    expectedFd = other.m_readFd;
    limits.clear();
    waits = {{ready, 0}};
    other.feed("x\n");
    EXPECT_EQ(other.next(10, 10), std::nullopt);
    EXPECT_EQ(other.timedOut, 1);
  }
}

// The time already spent counts for one block only.
TEST_F(ExecPipeWaiting, EachBlockHasItsOwnTime) {
  Replacements replacements = ExecPipeWaiting::replacements();
  replacements.read = readPiece;
  mostBytes = 1;
  const ScopedReplacements scope(replacements);
  waits = {{1, 9}, {1, 9}, {1, 9}};
  m_pipe.feed("ab\n");
  EXPECT_EQ(m_pipe.next(10, 10), "ab\n");
  EXPECT_THAT(limits, ElementsAre(10, 10, 10));
}

TEST(ExecPipeReadLine, WorksWithHighDescriptors) {
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
  rlimit raised = old;
  raised.rlim_cur = std::min<rlim_t>(old.rlim_max, 16385);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
  std::string beyond;
  for (const int high : {1023, 1024, 4095, 8191, 8192, 8255, 8256, 16384}) {
    if (static_cast<rlim_t>(high) >= raised.rlim_cur) {
      beyond += " " + std::to_string(high);
      continue;
    }
    SCOPED_TRACE(high);
    FedPipe pipe("x\n");
    pipe.moveTo(high);
    EXPECT_EQ(pipe.next(10), "x\n");
    EXPECT_EQ(pipe.next(10), std::nullopt);
    EXPECT_FALSE(isOpen(high));
    FedPipe silent;
    silent.moveTo(high);
    EXPECT_EQ(silent.next(10, 0), std::nullopt);
    EXPECT_EQ(silent.timedOut, 1);
  }
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
  if (!beyond.empty()) {
    GTEST_SKIP() << "this process may not have the descriptors" << beyond;
  }
}

// --- running commands

class ExecPipeRun : public ExecTest {
 protected:
  // Runs a command with the library's own waitpid as the only reaper.
  int run(const std::string& command, const std::string& stdinFile = "",
          unsigned long timeoutSeconds = 60) {
    const BlockedChildSignal blocked;
    return m_pipe.run(command, m_output, stdinFile, timeoutSeconds);
  }
  ProbedPipe m_pipe;
  Lines m_output;
};

TEST_F(ExecPipeRun, PassesTheArguments) {
  EXPECT_EQ(run(hostile("args 'a b' c \"d'e\" '' \\  $HOME *")), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("a b\n", "c\n", "d'e\n", "\n", " \n", "$HOME\n", "*\n"));
  EXPECT_EQ(m_pipe.m_commandLine, hostile("args 'a b' c \"d'e\" '' \\  $HOME *"));
}

TEST_F(ExecPipeRun, TheFirstWordIsThePathAndTheZerothArgument) {
  EXPECT_EQ(run("/bin/sh -c 'echo \"$0\"'"), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("/bin/sh\n"));
}

TEST_F(ExecPipeRun, SearchesNoPath) {
  EXPECT_EQ(run("sh -c true"), execPipeNotExecutable);
  EXPECT_EQ(m_pipe.getLastError().m_code, execPipeNotExecutable);
}

TEST_F(ExecPipeRun, JoinsBothOutputsInTheirOrder) {
  EXPECT_EQ(run(hostile("both")), execPipeOk);
  EXPECT_THAT(m_output,
              ElementsAre("out 0\n", "err 0\n", "out 1\n", "err 1\n", "out 2\n", "err 2\n"));
}

TEST_F(ExecPipeRun, ReportsTheExitStatusWhenWaitpidReaps) {
  for (const int status : {1, 2, 126, 127, 128, 255}) {
    EXPECT_EQ(run(hostile("exit " + std::to_string(status))), execPipeExitStatus) << status;
    EXPECT_EQ(m_pipe.getLastError().m_code, execPipeExitStatus);
    EXPECT_EQ(m_pipe.getLastError().m_command, hostile("exit " + std::to_string(status)));
  }
  EXPECT_EQ(run(hostile("die 15")), execPipeSignalled);
}

TEST_F(ExecPipeRun, DeliversLongLinesInPieces) {
  const auto line = [](size_t length) {
    std::string result(length, '\0');
    for (size_t i = 0; i < length; ++i) {
      result[i] = static_cast<char>('a' + i % 26);
    }
    return result;
  };
  EXPECT_EQ(run(hostile("lines 8188 8189 8190 8191 20000")), execPipeOk);
  Lines expected;
  for (const size_t length :
       {size_t{8188}, size_t{8189}, size_t{8190}, size_t{8191}, size_t{20000}}) {
    for (const std::string& piece : plainPieces(line(length) + "\n", 8191)) {
      expected.push_back(piece);
    }
  }
  EXPECT_EQ(m_output, expected);
  EXPECT_EQ(m_output[1].size(), 8190U) << "with its line end it just fits";
  EXPECT_EQ(m_output[3], "\n");
}

TEST_F(ExecPipeRun, TakesAMegabyteWithoutALineEnd) {
  EXPECT_EQ(run(hostile("bytes 1048576")), execPipeOk);
  ASSERT_EQ(m_output.size(), 1048576U / 8190 + 1);
  std::string all;
  for (const std::string& piece : m_output) {
    all += piece;
  }
  ASSERT_EQ(all.size(), 1048576U);
  for (size_t i = 0; i < all.size(); ++i) {
    ASSERT_EQ(all[i], 'a' + static_cast<int>(i % 26)) << i;
  }
}

TEST_F(ExecPipeRun, TakesExactlyOneBlock) {
  for (const size_t count : {size_t{511}, size_t{512}, size_t{513}}) {
    EXPECT_EQ(run(hostile("bytes " + std::to_string(count))), execPipeOk);
    ASSERT_EQ(m_output.size(), 1U);
    EXPECT_EQ(m_output[0].size(), count);
  }
}

TEST_F(ExecPipeRun, GivesALastLineWithoutLineEnd) {
  EXPECT_EQ(run(hostile("say x")), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("x"));
  EXPECT_EQ(run(hostile("say 'a\\nb'")), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("a\n", "b"));
  EXPECT_EQ(run(hostile("say ''")), execPipeOk);
  EXPECT_THAT(m_output, IsEmpty());
}

TEST_F(ExecPipeRun, AZeroByteEndsAnElement) {
  EXPECT_EQ(run(hostile("say 'a\\0b\\n\\0\\nc'")), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("a", "", "c"));
}

class Fifo {
 public:
  Fifo() : m_path(m_directory.path() + "fifo") {
    EXPECT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    m_fd = open(m_path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(m_fd, 0);
  }
  ~Fifo() { close(m_fd); }
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;
  const std::string& path() const { return m_path; }
  void give() const { EXPECT_EQ(write(m_fd, "x", 1), 1); }

 private:
  ScratchDirectory m_directory;
  std::string m_path;
  int m_fd;
};

const Fifo* fifoToFeed = nullptr;
int bytesSeen = 0;

TEST_F(ExecPipeRun, TakesAByteAtATime) {
  const Fifo fifo;
  fifoToFeed = &fifo;
  bytesSeen = 0;
  Replacements replacements;
  replacements.read = [](int fd, void* buffer, size_t size) {
    const ssize_t count = realCalls().read(fd, buffer, size);
    EXPECT_LE(count, 1);
    if (count == 1) {
      ++bytesSeen;
      fifoToFeed->give();
    }
    return count;
  };
  const ScopedReplacements scope(replacements);
  EXPECT_EQ(run(hostile("dribble 'ab\\nc'"), fifo.path()), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("ab\n", "c"));
  EXPECT_EQ(bytesSeen, 4);
}

ProbedPipe* reading = nullptr;

// As a handler of the host's sees it that comes meanwhile.
TEST_F(ExecPipeRun, HoldsNothingReadAheadWhileItWaitsForMore) {
  reading = &m_pipe;
  Replacements replacements;
  replacements.select = [](int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                           timeval* limit) {
    EXPECT_EQ(reading->m_bufferCount, 0);
    EXPECT_EQ(reading->m_bufferPos, 0);
    return realCalls().select(count, readable, writable, exceptional, limit);
  };
  const ScopedReplacements scope(replacements);
  EXPECT_EQ(run(hostile("say 'one\ntwo\npart'")), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("one\n", "two\n", "part"));
}

TEST_F(ExecPipeRun, ReadsStandardInputFromTheFileOrFromNothing) {
  const ScratchDirectory scratch;
  const std::string file = scratch.path() + "in put";
  writeFile(file, "from the file\nrest");
  EXPECT_EQ(run(hostile("echo"), file), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("from the file\n", "rest"));
  EXPECT_EQ(m_pipe.m_stdinFile, file);
  EXPECT_EQ(run(hostile("echo")), execPipeOk);
  EXPECT_THAT(m_output, IsEmpty());
  EXPECT_EQ(m_pipe.m_stdinFile, "");
}

TEST_F(ExecPipeRun, AnUnreadableInputFileEndsTheChildWithStatusOne) {
  m_pipe.registerTraceLog(m_log);
  EXPECT_EQ(run(hostile("say x"), "/no/such/file"), execPipeExitStatus);
  EXPECT_THAT(m_output, IsEmpty());
  EXPECT_THAT(traced(), Contains("CCmnExecPipePosix::ExecPipe ERROR: Could not open '/no/such/file'"
                                 " for reading, errno 2"));
}

TEST_F(ExecPipeRun, ResetsLocaleAndShellVariablesAndInheritsTheRest) {
  const ScopedVariable lang("LANG", "de_DE.UTF-8");
  const ScopedVariable all("LC_ALL", "");
  const ScopedVariable paper("LC_PAPER", "kept");
  const ScopedVariable editor("EDITOR", "vi");
  const ScopedVariable separators("IFS", "x");
  const ScopedVariable own("KELP_TEST_OWN", "a=b c");
  std::map<std::string, std::string> expected;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    expected[text.substr(0, text.find('='))] = text;
  }
  for (const char* name : {"LANG", "LC_ALL", "LC_COLLATE", "LC_CTYPE", "LC_MESSAGES", "LC_MONETARY",
                           "LC_NUMERIC", "LC_TIME"}) {
    expected[name] = std::string(name) + "=C";
  }
  for (const char* name : {"CDPATH", "EDITOR", "ENV", "FPATH", "IFS"}) {
    expected[name] = std::string(name) + "=";
  }
  EXPECT_EQ(run(hostile("env")), execPipeOk);
  Lines sorted;
  for (const auto& variable : expected) {
    if (variable.second.size() < 8190 && variable.second.find('\n') == std::string::npos) {
      sorted.push_back(variable.second + "\n");
    }
  }
  std::sort(sorted.begin(), sorted.end());
  std::sort(m_output.begin(), m_output.end());
  EXPECT_EQ(m_output, sorted);
}

TEST_F(ExecPipeRun, TheChildHasThePipeAndEveryOtherDescriptor) {
  const ScratchDirectory scratch;
  const std::string path = scratch.path() + "shared";
  const int shared = open(path.c_str(), O_CREAT | O_RDWR, 0600);
  ASSERT_GE(shared, 0);
  std::map<int, std::string> expected;
  for (const auto& [fd, target] : ProcessState::capture().descriptors) {
    if ((fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
      expected[fd] = target;
    }
  }
  EXPECT_EQ(run(hostile("fds")), execPipeOk);
  close(shared);
  std::map<int, std::string> seen;
  for (const std::string& line : m_output) {
    seen[std::stoi(line)] = line.substr(line.find(' ') + 1, line.size() - line.find(' ') - 2);
  }
  EXPECT_EQ(seen[0], "/dev/null");
  EXPECT_EQ(seen[1].find("pipe:"), 0U);
  EXPECT_EQ(seen[2], seen[1]);
  EXPECT_EQ(seen[shared], path);
  for (int fd = 0; fd < 3; ++fd) {
    seen.erase(fd);
    expected.erase(fd);
  }
  EXPECT_EQ(seen, expected);
}

TEST_F(ExecPipeRun, TheChildKeepsTheHostsSignalMaskAndIgnoredSignals) {
  const auto old = signal(SIGUSR2, SIG_IGN);
  EXPECT_EQ(run(hostile("signals")), execPipeOk);
  signal(SIGUSR2, old);
  EXPECT_THAT(m_output, Contains("blocked " + std::to_string(SIGCHLD) + "\n"));
  EXPECT_THAT(m_output, Contains("ignored " + std::to_string(SIGUSR2) + "\n"));
  EXPECT_THAT(m_output, Not(Contains("ignored " + std::to_string(SIGCHLD) + "\n")));
}

// --- standard descriptors that the host has closed

// Those above the standard ones that a child inherits.
size_t inheritedDescriptors() {
  const auto descriptors = ProcessState::capture().descriptors;
  return static_cast<size_t>(
      std::count_if(descriptors.begin(), descriptors.end(), [](const auto& entry) {
        return entry.first > STDERR_FILENO && (fcntl(entry.first, F_GETFD) & FD_CLOEXEC) == 0;
      }));
}

// In a process whose standard descriptors are closed.
void expectNothingLost(const std::string& inputFile) {
  const auto before = ProcessState::capture().descriptors;
  const size_t inherited = inheritedDescriptors();
  {
    const BlockedChildSignal blocked;
    ProbedPipe pipe;
    Lines output;
    EXPECT_EQ(pipe.run(hostile("both"), output), execPipeOk);
    EXPECT_THAT(output,
                ElementsAre("out 0\n", "err 0\n", "out 1\n", "err 1\n", "out 2\n", "err 2\n"));
    EXPECT_EQ(pipe.run(hostile("echo"), output, inputFile), execPipeOk);
    EXPECT_THAT(output, ElementsAre("input\n"));
    EXPECT_EQ(pipe.run(hostile("fds"), output), execPipeOk);
    ASSERT_EQ(output.size(), 3 + inherited) << "or an end of the pipe is open twice";
    EXPECT_EQ(output[0], "0 /dev/null\n");
    EXPECT_EQ(output[1].substr(0, 7), "1 pipe:");
    EXPECT_EQ(output[2].substr(2), output[1].substr(2));
  }
  EXPECT_EQ(ProcessState::capture().descriptors, before);
}

TEST_F(ExecPipeRun, LosesNothingWhenTheHostHasClosedStandardDescriptors) {
  const ScratchDirectory scratch;
  const std::string file = scratch.path() + "in";
  writeFile(file, "input\n");
  for (int closed = 0; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    inAnotherProcess([&] {
      closeStandardDescriptors(closed);
      expectNothingLost(file);
    });
  }
}

// The host has no more descriptors than its two outputs, one of its own and the pipe need.
TEST_F(ExecPipeRun, FindsRoomForTheInputWhereTheHostHasClosedItsOwn) {
  inAnotherProcess([this] {
    for (const auto& [fd, target] : ProcessState::capture().descriptors) {
      if (fd == STDIN_FILENO || fd > STDERR_FILENO) {
        close(fd);
      }
    }
    const rlimit few{5, 5};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(m_pipe.run(hostile("fds"), m_output), execPipeOk);
    ASSERT_EQ(m_output.size(), 3U);
    EXPECT_EQ(m_output[0], "0 /dev/null\n");
  });
}

// --- many runs, one object

TEST_F(ExecPipeRun, LeavesNothingBehindInAHundredRuns) {
  const auto before = ProcessState::capture();
  for (int i = 0; i < 100; ++i) {
    const std::string text = "run " + std::to_string(i);
    ASSERT_EQ(m_pipe.run(hostile("say '" + text + "'"), m_output), execPipeOk) << i;
    ASSERT_THAT(m_output, ElementsAre(text));
    ASSERT_EQ(m_pipe.m_readFd, -1);
    ASSERT_EQ(m_pipe.m_childPid, -1);
  }
  const BlockedChildSignal blocked;
  const auto after = ProcessState::capture();
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_FALSE(after.hasChildren);
}

TEST_F(ExecPipeRun, TwoObjectsRunAtTheSameTime) {
  const BlockedChildSignal blocked;  // one signal may stand for both ends, and lose a status
  ProbedPipe other;
  const Fifo fifo;
  other.m_stdinFile = m_pipe.m_stdinFile = fifo.path();
  ASSERT_EQ(m_pipe.ExecPipe(hostile("waitbyte 0"), ""), execPipeOk);
  ASSERT_EQ(other.ExecPipe(hostile("waitbyte 0"), ""), execPipeOk);
  ASSERT_EQ(m_pipe.next(), "waiting\n");
  ASSERT_EQ(other.next(), "waiting\n");
  fifo.give();
  fifo.give();
  // The first child's write end is inherited by nobody: both outputs end.
  EXPECT_EQ(m_pipe.next(), std::nullopt);
  EXPECT_EQ(other.next(), std::nullopt);
  EXPECT_EQ(other.Close(10), execPipeOk);
  EXPECT_EQ(m_pipe.Close(10), execPipeOk);
}

TEST_F(ExecPipeRun, KeepsTheArgumentsUntilTheNextRun) {
  EXPECT_EQ(run(hostile("args first second")), execPipeOk);
  EXPECT_THAT(m_pipe.arguments(), ElementsAre(HOSTILE_CHILD_PATH, "args", "first", "second"));
  EXPECT_EQ(run(hostile("args third")), execPipeOk);
  EXPECT_THAT(m_pipe.arguments(), ElementsAre(HOSTILE_CHILD_PATH, "args", "third"));
}

TEST_F(ExecPipeRun, ReservedIsNotUsed) {
  const BlockedChildSignal blocked;
  EXPECT_EQ(m_pipe.Exec(hostile("args x"), m_output, "", 60, "reserved", "one", "two"), 0);
  EXPECT_THAT(m_output, ElementsAre("x\n"));
  EXPECT_EQ(m_pipe.m_hostString1, "one");
  EXPECT_EQ(m_pipe.m_hostString2, "two");
}

// --- the child-exit handler's installation

TEST_F(ExecPipeRun, InstallsTheHandlerWithItsFlags) {
  signal(SIGCHLD, SIG_DFL);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(run(hostile("exit 0")), execPipeOk);
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGCHLD, nullptr, &action), 0);
    EXPECT_EQ(action.sa_sigaction, &CCmnExecPipePosix::GetChildStatus);
    constexpr auto known = static_cast<int>(SA_SIGINFO | SA_NOCLDSTOP | SA_NOCLDWAIT | SA_NODEFER |
                                            SA_ONSTACK | SA_RESETHAND | SA_RESTART);
    EXPECT_EQ(action.sa_flags & known, SA_SIGINFO | SA_NOCLDSTOP);
    for (int number = 1; number < SIGRTMIN; ++number) {
      EXPECT_EQ(sigismember(&action.sa_mask, number), 0) << number;
    }
    EXPECT_EQ(ProbedPipe::m_act.sa_sigaction, &CCmnExecPipePosix::GetChildStatus);
    EXPECT_EQ(ProbedPipe::m_act.sa_flags, SA_SIGINFO | SA_NOCLDSTOP);
    EXPECT_EQ(ProbedPipe::m_act.sa_restorer, nullptr) << "cleared first";
    std::memset(static_cast<void*>(&ProbedPipe::m_act), 0x5a, sizeof ProbedPipe::m_act);
  }
}

std::string bytesOf(const struct sigaction& action) {
  return {reinterpret_cast<const char*>(&action), sizeof action};
}

std::string sharedRecord;  // what it should be
int installed = 0;
int installationResult = 0;

// Other threads may be installing theirs at the same time.
TEST_F(ExecPipeRun, ChangesTheSharedHandlerRecordOnlyWhenItIsInstalledAndThenWhole) {
  for (const int result : {0, -1}) {
    std::memset(static_cast<void*>(&ProbedPipe::m_act), 0x5a, sizeof ProbedPipe::m_act);
    sharedRecord = bytesOf(ProbedPipe::m_act);
    installed = 0;
    installationResult = result;
    Replacements replacements;
    replacements.sigaction = [](int number, const struct sigaction* action, struct sigaction* old) {
      ++installed;
      EXPECT_EQ(number, SIGCHLD);
      EXPECT_EQ(old, nullptr);
      EXPECT_NE(action, &ProbedPipe::m_act);
      EXPECT_TRUE(sharedRecord == bytesOf(ProbedPipe::m_act));
      sharedRecord = bytesOf(*action);
      return installationResult;
    };
    {
      const ScopedReplacements scope(replacements);
      EXPECT_EQ(run(""), execPipeParseFailed);
    }
    EXPECT_EQ(installed, 1);
    EXPECT_TRUE(sharedRecord == bytesOf(ProbedPipe::m_act));
    EXPECT_EQ(ProbedPipe::m_act.sa_sigaction, &CCmnExecPipePosix::GetChildStatus);
  }
}

TEST_F(ExecPipeRun, InstallsTheHandlerEvenWhenNothingIsStarted) {
  for (const char* command : {"", "/no/such/program"}) {
    signal(SIGCHLD, SIG_DFL);
    EXPECT_NE(run(command), execPipeOk);
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGCHLD, nullptr, &action), 0);
    EXPECT_EQ(action.sa_sigaction, &CCmnExecPipePosix::GetChildStatus);
  }
}

// --- hostile commands

TEST_F(ExecPipeRun, TimesOutAndLeavesTheChildToClose) {
  const Fifo fifo;
  EXPECT_EQ(run(hostile("waitbyte 0"), fifo.path(), 1), execPipeReadTimedOut);
  EXPECT_EQ(m_pipe.m_readFd, -1);
  ASSERT_GT(m_pipe.m_childPid, 0);
  EXPECT_EQ(kill(m_pipe.m_childPid, 0), 0) << "neither waited for nor ended";
  EXPECT_EQ(m_pipe.getLastError().m_code, execPipeReadTimedOut);
  EXPECT_EQ(m_pipe.getLastError().m_command, hostile("waitbyte 0"));
  EXPECT_EQ(m_pipe.getLastError().m_message, L"");
  fifo.give();
  EXPECT_EQ(m_pipe.Close(60), execPipeOk);
  EXPECT_EQ(m_pipe.m_childPid, -1);
  EXPECT_EQ(m_pipe.getLastError().m_code, execPipeReadTimedOut) << "a success does not clear it";
}

// Calls back after each line.
class WatchingPipe : public ProbedPipe {
 public:
  std::function<void(const std::string& line)> onLine;
  bool ReadLine(char* buffer, int size, unsigned char* mark, long timeoutSeconds) override {
    const bool stored = ProbedPipe::ReadLine(buffer, size, mark, timeoutSeconds);
    if (stored) {
      onLine(buffer);
    }
    return stored;
  }
};

TEST_F(ExecPipeRun, AGrandchildThatHoldsThePipeKeepsTheReadingAlive) {
  WatchingPipe watching;
  watching.onLine = [&watching](const std::string& line) {
    // The child itself is gone; only then does the grandchild end.
    EXPECT_TRUE(ProbedPipe::awaitRecord(watching.m_childPid));
    EXPECT_EQ(kill(std::stoi(line), SIGKILL), 0);
  };
  EXPECT_EQ(watching.run(hostile("grandchild"), m_output), execPipeOk);
  EXPECT_EQ(m_output.size(), 1U);
}

bool isStopped(pid_t pid) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid;
}

TEST_F(ExecPipeRun, AStoppedChildIsNoEndedChild) {
  WatchingPipe watching;
  watching.onLine = [&watching](const std::string& line) {
    if (line == "stopping\n") {
      const pid_t child = watching.m_childPid;
      EXPECT_TRUE(eventually([child] { return isStopped(child); }));
      EXPECT_FALSE(ProbedPipe::hasRecord(child));
      kill(child, SIGCONT);
    }
  };
  EXPECT_EQ(watching.run(hostile("stop"), m_output), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("stopping\n", "woken\n"));
}

TEST_F(ExecPipeRun, AnAbortEndsTheReadingAndLeavesTheRestForTheNextRun) {
  WatchingPipe watching;
  watching.onLine = [&watching](const std::string&) { watching.Abort(); };
  EXPECT_EQ(watching.run(hostile("say 'one\\ntwo\\nthr'"), m_output), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("one\n"));
  EXPECT_EQ(watching.m_readFd, -1);
  EXPECT_EQ(watching.run(hostile("exit 0"), m_output), execPipeOk) << "the abort lasts";
  EXPECT_THAT(m_output, IsEmpty());
  watching.m_abortRequested = false;
  watching.onLine = [](const std::string&) {};
  EXPECT_EQ(watching.run(hostile("say 'ee\\nnext'"), m_output), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("two\n", "three\n", "next"));
}

TEST_F(ExecPipeRun, ClosingBeforeTheEndOfTheOutputLeavesTheRestToo) {
  const BlockedChildSignal blocked;
  ASSERT_EQ(m_pipe.ExecPipe(hostile("say 'a\\nb\\n'"), ""), execPipeOk);
  ASSERT_EQ(m_pipe.next(), "a\n");
  EXPECT_EQ(m_pipe.Close(60), execPipeOk);
  EXPECT_EQ(run(hostile("say c")), execPipeOk);
  EXPECT_THAT(m_output, ElementsAre("b\n", "c"));
}

TEST_F(ExecPipeRun, AnAbortBeforehandStillStartsAndReapsTheCommand) {
  m_pipe.Abort();
  m_output = {"old"};
  EXPECT_EQ(run(hostile("exit 3")), execPipeExitStatus);
  EXPECT_THAT(m_output, IsEmpty());
  EXPECT_EQ(m_pipe.m_childPid, -1);
}

TEST_F(ExecPipeRun, TheDestructorReapsALiveChild) {
  const BlockedChildSignal blocked;
  pid_t child = -1;
  {
    const Fifo fifo;
    ProbedPipe other;
    other.m_stdinFile = fifo.path();
    ASSERT_EQ(other.ExecPipe(hostile("waitbyte 0"), ""), execPipeOk);
    child = other.m_childPid;
    fifo.give();
  }
  EXPECT_EQ(kill(child, 0), -1);
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
}

}  // namespace
