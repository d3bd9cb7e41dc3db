// Takes the settings of a line apart.
#include <cmnstringtool.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

int main() {
  const std::string line = "title = Kelp, dulse; Copies=3;; ratio = 0.25 \n";
  for (const std::string& setting : CCmnStringTool::tokenize(line, ";")) {
    const std::vector<std::string> pair = CCmnStringTool::tokenize(setting, "=");
    const std::string name = CCmnStringTool::trim(pair[0]);
    const std::string value = CCmnStringTool::trim(pair[1]);
    std::printf("%s: \"%s\"%s\n", name.c_str(), value.c_str(),
                CCmnStringTool::CompareNoCase(name, "copies") ? ", the copies" : "");
  }

  std::printf("%s\n", CCmnStringTool::searchreplace("a, b, c", ", ", "/").c_str());

  const std::vector<std::string> lines = {"kelp", "dulse", "sugar kelp"};
  for (unsigned long index = 0; index < lines.size(); ++index) {
    const unsigned long position = CCmnStringTool::find(lines, "kelp", index, true);
    if (position != std::string::npos) {
      std::printf("line %lu, byte %lu\n", index, position);
    }
  }
  return 0;
}
