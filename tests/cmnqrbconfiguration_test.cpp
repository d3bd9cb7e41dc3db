#include "cmnqrbconfiguration.h"

#include "install_root.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>

namespace {

using kelp_cmn_4_4::CCmnQRBConfiguration;
using kelp_cmn_4_4::tstr;

constexpr int untouched = 77;

struct Outcome {
  int status;
  int level;
};

bool operator==(const Outcome& first, const Outcome& second) {
  return first.status == second.status && first.level == second.level;
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "status " << outcome.status << " level " << outcome.level;
}

constexpr int found = 0;
constexpr int notFound = 1;
constexpr int notOpened = 26;

const Outcome noLevel{notFound, untouched};
const Outcome unreadable{notOpened, untouched};

Outcome set(int level) { return {found, level}; }

class QRBConfiguration : public testing::Test {
 protected:
  Outcome levelIn(const std::string& content) {
    kelp_test::writeFile(m_scratch.path() + "rk.conf", content);
    return levelOf(m_scratch.path(), "rk.conf");
  }

  static Outcome levelOf(const std::string& dir, const std::string& file) {
    tstr dirText(dir.c_str());
    tstr fileText(file.c_str());
    int level = untouched;
    const int status = CCmnQRBConfiguration::getTraceLevel(dirText, fileText, level);
    EXPECT_EQ(dirText.c_str(), dir);
    EXPECT_EQ(fileText.c_str(), file);
    return {status, level};
  }

  kelp_test::ScratchDirectory m_scratch;
};

TEST(VerbosityStatuses, AreThoseThatHostsWereCompiledWith) {
  EXPECT_EQ(kelp_cmn_4_4::verbosityOk, 0);
  EXPECT_EQ(kelp_cmn_4_4::verbosityMissing, 1);
  EXPECT_EQ(kelp_cmn_4_4::verbosityUnreadable, 26);
}

TEST_F(QRBConfiguration, TheHostProductsFileHasAFixedPlace) {
  const kelp_test::InstallRoot root;
  tstr dir("an old directory");
  tstr file("an old file");
  EXPECT_EQ(CCmnQRBConfiguration::getTraceConfigFileInfo(dir, file), 0);
  EXPECT_STREQ(dir.c_str(), "/usr/tulsk/krellvane/");
  EXPECT_STREQ(file.c_str(), "rk.conf");
  EXPECT_FALSE(std::filesystem::exists("/usr/tulsk")) << "nothing is created on the way";
}

TEST_F(QRBConfiguration, TheFileThatItNamesIsTheOneToRead) {
  const kelp_test::InstallRoot root;
  tstr dir;
  tstr file;
  CCmnQRBConfiguration::getTraceConfigFileInfo(dir, file);
  EXPECT_EQ(levelOf(dir.c_str(), file.c_str()), unreadable);
  kelp_test::InstallRoot::makeProductTree();
  kelp_test::writeFile(kelp_test::InstallRoot::productConfig, "VERBOSE=9\n");
  EXPECT_EQ(levelOf(dir.c_str(), file.c_str()), set(9));
}

TEST_F(QRBConfiguration, TheFirstLineWithTheKeyDecides) {
  const std::pair<std::string, Outcome> rows[] = {
      // The plain cases.
      {"VERBOSE = 5\n", set(5)},
      {"VERBOSE=5\n", set(5)},
      {"VERBOSE=0\n", set(0)},
      {"VERBOSE=5", set(5)},
      {"OTHER=1\n\nMORE = 2\nVERBOSE=3\n", set(3)},
      {"=9\nVERBOSE=2\n", set(2)},
      {"VERBOSE=1\r\n", set(1)},
      // The key anywhere in the line.
      {"#VERBOSE=3\nVERBOSE=7\n", set(3)},
      {"   VERBOSE=4\n", set(4)},
      {"NOT_VERBOSE_AT_ALL=6\n", set(6)},
      {"VERBOSEVERBOSE=8\n", set(8)},
      {"; VERBOSE is not wanted = 2\n", set(2)},
      {"verbose=3\nVerbose=4\n", noLevel},
      {"VERBOS=3\nERBOSE=4\n", noLevel},
      {"", noLevel},
      {"\n\n\n", noLevel},
      // Later lines are never looked at.
      {"VERBOSE\nVERBOSE=3\n", noLevel},
      {"VERBOSE=high\nVERBOSE=3\n", noLevel},
      {"VERBOSE=1\nVERBOSE=3\n", set(1)},
      {"VERBOSE=\n5\n", noLevel},
      // The first "=" of the line, wherever the key stands.
      {"X=1 VERBOSE\n", set(1)},
      {"X=1 VERBOSE=4\n", set(1)},
      {"=2VERBOSE=4\n", set(2)},
      {"X=VERBOSE=4\n", noLevel},
      {"VERBOSE==5\n", noLevel},
      {"VERBOSE\n", noLevel},
      {"VERBOSE", noLevel},
      {"VERBOSE:5\n", noLevel},
      {"VERBOSE 5\n", noLevel},
      // What counts as the number.
      {"VERBOSE = high\n", noLevel},
      {"VERBOSE=", noLevel},
      {"VERBOSE=\n", noLevel},
      {"VERBOSE=   \n", noLevel},
      {"VERBOSE=-\n", noLevel},
      {"VERBOSE=+\n", noLevel},
      {"VERBOSE=- 1\n", noLevel},
      {"VERBOSE=\"5\"\n", noLevel},
      {"VERBOSE=.5\n", noLevel},
      {"VERBOSE= -3\n", set(-3)},
      {"VERBOSE=+4\n", set(4)},
      {"VERBOSE=\t\v\f\r 6x7\n", set(6)},
      {"VERBOSE=5 # as asked\n", set(5)},
      {"VERBOSE=5=6\n", set(5)},
      {"VERBOSE=9.7\n", set(9)},
      {"VERBOSE=010\n", set(10)},
      {"VERBOSE=0x10\n", set(0)},
  };
  for (const auto& [content, expected] : rows) {
    EXPECT_EQ(levelIn(content), expected) << testing::PrintToString(content);
  }
}

TEST_F(QRBConfiguration, OfANumberBeyondIntTheLow32BitsAreKept) {
  const std::pair<std::string, int> rows[] = {
      {"2147483647", INT_MAX},
      {"2147483648", INT_MIN},
      {"4294967295", -1},
      {"4294967296", 0},
      {"4294967305", 9},
      {"-2147483648", INT_MIN},
      {"-2147483649", INT_MAX},
      {"-4294967287", 9},
      {"9223372036854775807", -1},
      {"99999999999999999999", -1},  // the largest 64-bit number stands for it
  };
  for (const auto& [number, level] : rows) {
    EXPECT_EQ(levelIn("VERBOSE=" + number + "\n"), set(level)) << number;
  }
}

TEST_F(QRBConfiguration, ALineEndsAtItsZeroByte) {
  using namespace std::string_literals;
  EXPECT_EQ(levelIn("x\0VERBOSE=5\nVERBOSE=6\n"s), set(6));
  EXPECT_EQ(levelIn("VERBOSE\0=5\nVERBOSE=6\n"s), noLevel);
  EXPECT_EQ(levelIn("VERBOSE=1\0002\n"s), set(1));
}

TEST_F(QRBConfiguration, APieceOf255BytesIsALineOfItsOwn) {
  const auto padded = [](size_t length, const std::string& rest) {
    return std::string(length, 'x') + rest;
  };
  const std::pair<std::string, Outcome> rows[] = {
      {padded(244, "VERBOSE=512\n"), set(512)},
      {padded(245, "VERBOSE=51\n"), set(51)},
      {padded(245, "VERBOSE=512\n"), set(51)},
      {padded(246, "VERBOSE=51\n"), set(5)},
      {padded(246, "VERBOSE=5\n"), set(5)},
      {padded(247, "VERBOSE=5\n"), noLevel},  // the number lies in the next piece
      {padded(248, "VERBOSE=5\n"), noLevel},  // so does the "="
      {padded(249, "VERBOSE=5\n"), noLevel},  // the key itself is cut
      {padded(249, "VERBOSE=5\nVERBOSE=6\n"), set(6)},
      {padded(254, "VERBOSE=5\n"), noLevel},
      {padded(255, "VERBOSE=5\n"), set(5)},
      {padded(256, "VERBOSE=5\n"), set(5)},
      {padded(510, "VERBOSE=5\n"), set(5)},
      {"=1" + padded(253, "VERBOSE=5\n"), set(5)},  // the earlier "=" lies in another piece
      {"=1" + padded(246, "VERBOSE=5\n"), set(1)},
      {padded(254, "\nVERBOSE=5\n"), set(5)},
      {padded(255, "\nVERBOSE=5\n"), set(5)},
      {padded(246, "VERBOSE=5"), set(5)},
      {padded(100000, "\nVERBOSE=5\n"), set(5)},
  };
  for (size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ(levelIn(rows[i].first), rows[i].second) << "row " << i;
  }
}

// The same contract, said the slow way.
Outcome pieceByPiece(const std::string& content) {
  size_t start = 0;
  while (start < content.size()) {
    size_t end = content.find('\n', start);
    end = end == std::string::npos ? content.size() : end + 1;
    const std::string piece = content.substr(start, std::min<size_t>(end - start, 255));
    start += piece.size();
    if (piece.find("VERBOSE") == std::string::npos) {
      continue;
    }
    const size_t equals = piece.find('=');
    if (equals == std::string::npos) {
      return noLevel;
    }
    const size_t digits = piece.find_first_not_of("0123456789", equals + 1);
    const std::string number = piece.substr(equals + 1, digits - equals - 1);
    return number.empty() ? noLevel : set(std::stoi(number));
  }
  return noLevel;
}

TEST_F(QRBConfiguration, EveryPositionInALongLineAgreesWithThePlainForm) {
  for (size_t before = 0; before <= 520; ++before) {
    const std::string content = std::string(before, '-') + "VERBOSE=1234567\nVERBOSE=8\n";
    ASSERT_EQ(levelIn(content), pieceByPiece(content)) << before << " bytes before the key";
  }
}

TEST_F(QRBConfiguration, AFileThatCannotBeOpenedFailsAndLeavesTheLevel) {
  EXPECT_EQ(levelOf(m_scratch.path(), "missing.conf"), unreadable);
  EXPECT_EQ(levelOf(m_scratch.path() + "missing/", "rk.conf"), unreadable);
  EXPECT_EQ(levelOf("", ""), unreadable);
  levelIn("VERBOSE=5\n");
  EXPECT_EQ(levelOf(m_scratch.path() + "rk.conf/", "rk.conf"), unreadable);
}

TEST_F(QRBConfiguration, AFileWithoutReadPermissionFailsAndLeavesTheLevel) {
  levelIn("VERBOSE=5\n");
  const std::string path = m_scratch.path() + "rk.conf";
  std::filesystem::permissions(path, std::filesystem::perms::none);
  const bool privileged = access(path.c_str(), R_OK) == 0;
  EXPECT_EQ(levelOf(m_scratch.path(), "rk.conf"), privileged ? set(5) : unreadable);
}

TEST_F(QRBConfiguration, ADirectoryInTheFilesPlaceHasNoLines) {
  std::filesystem::create_directory(m_scratch.path() + "rk.conf");
  EXPECT_EQ(levelOf(m_scratch.path(), "rk.conf"), noLevel);
}

TEST_F(QRBConfiguration, DirectoryAndFileAreJoinedAsTheyAre) {
  kelp_test::writeFile(m_scratch.path() + "ab", "VERBOSE=4\n");
  EXPECT_EQ(levelOf(m_scratch.path() + "a", "b"), set(4));
  EXPECT_EQ(levelOf("", m_scratch.path() + "ab"), set(4));
  EXPECT_EQ(levelOf(m_scratch.path() + "ab", ""), set(4));
  std::filesystem::create_directory(m_scratch.path() + "dir");
  kelp_test::writeFile(m_scratch.path() + "dir/b", "VERBOSE=4\n");
  EXPECT_EQ(levelOf(m_scratch.path() + "dir", "b"), unreadable) << "no separator is added";
}

TEST_F(QRBConfiguration, EveryCallReadsTheFileAfresh) {
  EXPECT_EQ(levelIn("VERBOSE=1\n"), set(1));
  EXPECT_EQ(levelIn("VERBOSE=2\n"), set(2));
  std::filesystem::remove(m_scratch.path() + "rk.conf");
  EXPECT_EQ(levelOf(m_scratch.path(), "rk.conf"), unreadable);
}

}  // namespace
