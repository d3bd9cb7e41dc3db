#include "cmnqrbconfiguration.h"

#include "Q_sscanf.h"
#include "Q_strings.h"
#include "cmnacestring.h"
#include "cmnfile.h"

#include <cstdio>
#include <cstring>

namespace kelp_cmn_4_4 {
namespace {

constexpr char productDirectory[] = "/usr/tulsk/krellvane";
constexpr char configFile[] = "rk.conf";
constexpr char verbosityKey[] = "VERBOSE";
constexpr size_t pathSize = 1025;
constexpr int lineSize = 256;

// Deliberate: the first "=" of the whole line, also where the key stands behind it. A line is one
// key with one value.
int parseLevel(const char* line, int& level) {
  const char* equals = std::strchr(line, '=');
  if (equals == nullptr) {
    return verbosityMissing;
  }
  const int converted = Q_sscanf(equals + 1, "%d", &level, static_cast<int>(sizeof level));
  return converted == 1 ? verbosityOk : verbosityMissing;
}

}  // namespace

int CCmnQRBConfiguration::getTraceConfigFileInfo(tstr& dir, tstr& file) {
  char dirText[pathSize];
  char fileText[pathSize];
  Q_snprintf(dirText, sizeof dirText, "%s%s", productDirectory, "/");
  Q_snprintf(fileText, sizeof fileText, "%s", configFile);
  tstr newDir = copied(dirText);
  tstr newFile = copied(fileText);
  dir.swap(newDir);
  file.swap(newFile);
  return 0;
}

int CCmnQRBConfiguration::getTraceLevel(tstr& dir, tstr& file, int& level) {
  const tstr path = joined(whole(dir).c_str(), whole(file).c_str());
  const BriefFile stream(path.c_str(), "r");
  if (!stream) {
    return verbosityUnreadable;
  }
  char line[lineSize];
  while (std::fgets(line, lineSize, stream.get()) != nullptr) {
    // Deliberate: anywhere in the line, and the first such line alone. A commented-out line sets
    // our verbosity without the host product's own seeing it. A piece of a long line counts as a
    // line, since no setting is that long.
    if (std::strstr(line, verbosityKey) != nullptr) {
      return parseLevel(line, level);
    }
  }
  return verbosityMissing;
}

}  // namespace kelp_cmn_4_4
