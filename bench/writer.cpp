// writer LINE_LENGTH BYTES: writes so many bytes in lines of that length, or in one line for 0.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) {
    return 64;
  }
  const size_t lineLength = std::strtoul(argv[1], nullptr, 10);
  size_t rest = std::strtoul(argv[2], nullptr, 10);
  std::string block(64000, 'x');
  for (size_t end = lineLength; lineLength > 0 && end <= block.size(); end += lineLength) {
    block[end - 1] = '\n';
  }
  while (rest > 0) {
    const ssize_t written = write(STDOUT_FILENO, block.data(), std::min(rest, block.size()));
    if (written < 0) {
      return 1;
    }
    rest -= static_cast<size_t>(written);
  }
}
