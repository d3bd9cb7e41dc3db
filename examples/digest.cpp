// Prints the digest of each file, or of standard input for "-", as "digest  name".
#include <cmnmsgdgst5.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>

bool isStandardInput(const char* name) { return std::strcmp(name, "-") == 0; }

struct CloseFile {
  void operator()(std::FILE* file) const {
    if (file != stdin) {
      std::fclose(file);
    }
  }
};

bool printDigestOf(const char* name) {
  const std::unique_ptr<std::FILE, CloseFile> file(isStandardInput(name) ? stdin
                                                                         : std::fopen(name, "rb"));
  kelp_cmn_4_4::CCmnMessageDigest5 digest;
  if (file != nullptr) {
    unsigned char buffer[65536];
    for (size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;) {
      digest.Update(buffer, count);
    }
  }
  if (file == nullptr || std::ferror(file.get()) != 0) {
    std::fprintf(stderr, "digest: %s: %s\n", name, std::strerror(errno));
    return false;
  }
  digest.Finalize();
  std::printf("%s  %s\n", digest.GetAnsiMessageDigest(), name);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: digest FILE …\n", stderr);
    return wrongUsage;
  }
  int result = 0;
  for (int i = 1; i < argc; ++i) {
    if (!printDigestOf(argv[i])) {
      result = 1;
    }
  }
  if (std::fflush(stdout) != 0) {
    std::perror("digest: standard output");
    return 1;
  }
  return result;
}
