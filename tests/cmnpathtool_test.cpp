#include "cmnpathtool.h"

#include "install_root.h"
#include "next_symbol.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

bool recording = false;
std::vector<std::pair<std::string, mode_t>> createdDirectories;

}  // namespace

// Stands in front of the platform's mkdir, to see what it is asked for.
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  static const auto platforms = kelp_test::nextSymbol<decltype(mkdir)>("mkdir");
  if (recording) {
    createdDirectories.emplace_back(path, mode);
  }
  return platforms(path, mode);
}

namespace {

namespace fs = std::filesystem;
using kelp_cmn_4_4::CCmnPathTool;
using kelp_cmn_4_4::tstr;
using kelp_test::InstallRoot;

struct Place {
  const char* name;
  int (*get)(const tstr&, tstr&, tstr&);
  std::string prefix;
  std::string suffix;
  std::string dir;
  std::string parent;
};

const Place places[] = {
    {"messages", CCmnPathTool::getMessageFileInfo, "lib", "", "/usr/tulsk/resources/",
     "/usr/tulsk"},
    {"traces", CCmnPathTool::getTraceFileInfo, "", ".log", "/usr/tulsk/krellvane/logs/zorvt/",
     "/usr/tulsk/krellvane/logs"},
    {"configuration", CCmnPathTool::getConfigFileInfo, "", ".conf",
     "/usr/tulsk/lib/kelp/configfiles/", "/usr/tulsk/lib/kelp"},
};

class PathTool : public testing::Test {
 protected:
  ~PathTool() override { recording = false; }

  // The directories asked for while a place is looked up.
  static std::vector<std::pair<std::string, mode_t>> directoriesAskedFor(const Place& place) {
    tstr dir;
    tstr file;
    createdDirectories.clear();
    recording = true;
    EXPECT_EQ(place.get("vault", dir, file), 0);
    recording = false;
    EXPECT_EQ(dir.c_str(), place.dir);
    EXPECT_EQ(file.c_str(), place.prefix + "vault" + place.suffix);
    return createdDirectories;
  }

  InstallRoot m_root;
};

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : m_old(::umask(mask)) {}
  ~ScopedUmask() { ::umask(m_old); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t m_old;
};

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(PathToolVerify, SucceedsForWhatExists) {
  const kelp_test::ScratchDirectory scratch;
  const std::string file = scratch.path() + "file";
  kelp_test::writeFile(file, "");
  ASSERT_EQ(chmod(file.c_str(), 0), 0);
  EXPECT_EQ(CCmnPathTool::verify(file.c_str()), 0) << "existence is asked for, not a permission";
  EXPECT_EQ(CCmnPathTool::verify(scratch.path().c_str()), 0) << "a directory with its slash";
  EXPECT_EQ(CCmnPathTool::verify("/"), 0);
  EXPECT_EQ(CCmnPathTool::verify("/dev/null"), 0);
}

TEST(PathToolVerify, FailsWithErrnoForWhatDoesNotExist) {
  const kelp_test::ScratchDirectory scratch;
  const std::string file = scratch.path() + "file";
  kelp_test::writeFile(file, "");
  fs::create_symlink("nowhere", scratch.path() + "dangling");
  const std::pair<std::string, int> rows[] = {
      {"", ENOENT},
      {scratch.path() + "missing", ENOENT},
      {scratch.path() + "missing/file", ENOENT},
      {scratch.path() + "dangling", ENOENT},
      {file + "/", ENOTDIR},
      {file + "/below", ENOTDIR},
      {"/" + std::string(5000, 'x'), ENAMETOOLONG},
  };
  for (const auto& [path, error] : rows) {
    SCOPED_TRACE(path.substr(0, 80));
    errno = 0;
    EXPECT_EQ(CCmnPathTool::verify(path.c_str()), -1);
    EXPECT_EQ(errno, error);
  }
}

TEST_F(PathTool, TheInstallRootIsFixedAndNotCreated) {
  tstr path("whatever was there before, and longer than the root");
  EXPECT_EQ(CCmnPathTool::getInstallPath(path), 0);
  EXPECT_STREQ(path.c_str(), "/usr/tulsk");
  EXPECT_FALSE(fs::exists("/usr/tulsk"));
}

TEST_F(PathTool, NamesAreTheComponentUnchangedBetweenPrefixAndSuffix) {
  const std::string components[] = {
      "vault", "",         "MiXed Case", "a/../b", "dots.and.conf",
      "%s%n",  "\xc3\xa4", "lib",        " ",      std::string(3000, 'x')};
  for (const Place& place : places) {
    for (const std::string& component : components) {
      SCOPED_TRACE(std::string(place.name) + " of " + component.substr(0, 40));
      const tstr given(component.c_str());
      tstr dir("old directory");
      tstr file("old file");
      EXPECT_EQ(place.get(given, dir, file), 0);
      EXPECT_EQ(dir.c_str(), place.dir);
      EXPECT_EQ(file.c_str(), place.prefix + component + place.suffix);
      EXPECT_EQ(given.c_str(), component);
    }
  }
}

TEST_F(PathTool, AComponentEndsAtItsFirstZeroByte) {
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    tstr dir;
    tstr file;
    EXPECT_EQ(place.get(tstr("ab\0cd", 5), dir, file), 0);
    EXPECT_EQ(file.c_str(), place.prefix + "ab" + place.suffix);
    EXPECT_EQ(file.length(), std::strlen(file.c_str()));
  }
}

TEST_F(PathTool, TheComponentMayBeOneOfTheResults) {
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    tstr dir("vault");
    tstr file;
    EXPECT_EQ(place.get(dir, dir, file), 0);
    EXPECT_EQ(dir.c_str(), place.dir);
    EXPECT_EQ(file.c_str(), place.prefix + "vault" + place.suffix);
    tstr name("vault");
    EXPECT_EQ(place.get(name, dir, name), 0);
    EXPECT_EQ(dir.c_str(), place.dir);
    EXPECT_EQ(name.c_str(), place.prefix + "vault" + place.suffix);
  }
}

TEST_F(PathTool, AMissingDirectoryIsAskedForOnceWithMode0755) {
  InstallRoot::makeProductTree();
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    const std::vector<std::pair<std::string, mode_t>> expected{{place.dir, 0755}};
    EXPECT_EQ(directoriesAskedFor(place), expected);
    EXPECT_TRUE(fs::is_directory(place.dir));
  }
}

TEST_F(PathTool, AnExistingDirectoryIsLeftAsItIs) {
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    fs::create_directories(place.dir);
    ASSERT_EQ(chmod(place.dir.c_str(), 0700), 0);
    kelp_test::writeFile(place.dir + "kept", "content");
    EXPECT_TRUE(directoriesAskedFor(place).empty());
    EXPECT_EQ(modeOf(place.dir), 0700U);
    EXPECT_EQ(kelp_test::readFile(place.dir + "kept"), "content");
  }
}

TEST_F(PathTool, TheUmaskCutsTheModeOfCreatedDirectories) {
  const std::pair<mode_t, mode_t> rows[] = {{0, 0755}, {022, 0755}, {027, 0750}, {077, 0700}};
  for (const auto& [mask, mode] : rows) {
    for (const Place& place : places) {
      SCOPED_TRACE(std::string(place.name) + " with umask " + std::to_string(mask));
      fs::remove_all(InstallRoot::path);
      InstallRoot::makeProductTree();
      const ScopedUmask umask(mask);
      directoriesAskedFor(place);
      EXPECT_EQ(modeOf(place.dir), mode);
    }
  }
}

TEST_F(PathTool, ParentsAreNotCreatedAndTheFailureIsNotReported) {
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    const std::vector<std::pair<std::string, mode_t>> expected{{place.dir, 0755}};
    EXPECT_EQ(directoriesAskedFor(place), expected) << "one attempt, at the last level only";
    EXPECT_FALSE(fs::exists("/usr/tulsk"));
    fs::create_directories(fs::path(place.parent).parent_path());
    if (place.parent != InstallRoot::path) {
      directoriesAskedFor(place);
      EXPECT_FALSE(fs::exists(place.parent));
    }
    fs::remove_all(InstallRoot::path);
  }
}

TEST_F(PathTool, AFileInTheDirectorysPlaceStaysAndIsNotReported) {
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    fs::create_directories(place.parent);
    const std::string obstacle = place.dir.substr(0, place.dir.size() - 1);
    kelp_test::writeFile(obstacle, "in the way");
    EXPECT_EQ(directoriesAskedFor(place).size(), 1U);
    EXPECT_EQ(kelp_test::readFile(obstacle), "in the way");
    fs::remove_all(InstallRoot::path);
  }
}

TEST_F(PathTool, EachPlaceCreatesItsOwnDirectoryOnly) {
  for (const Place& place : places) {
    SCOPED_TRACE(place.name);
    fs::remove_all(InstallRoot::path);
    InstallRoot::makeProductTree();
    directoriesAskedFor(place);
    for (const Place& other : places) {
      EXPECT_EQ(fs::exists(other.dir), other.dir == place.dir) << other.name;
    }
  }
}

}  // namespace
