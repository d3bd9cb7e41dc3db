// replay FILE …: gives the fuzzer each file once, as the fuzzing engine would, and ends with how
// many there were.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    const std::vector<char> text(std::istreambuf_iterator<char>(file), {});
    if (!file) {
      std::fprintf(stderr, "replay: cannot read %s\n", argv[i]);
      return 1;
    }
    std::fprintf(stderr, "%s\n", argv[i]);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  }
  std::printf("%d replayed\n", argc - 1);
  return argc > 1 ? 0 : 1;
}
