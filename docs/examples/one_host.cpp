// Says whether names and addresses denote one host.
#include <cmnnetwork.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

int main() {
  // Resolved once, compared often: every question takes as long as the resolver does.
  const CCmnHostInfo files = CCmnNetwork::resolve("files");
  for (const char* other : {"9.1.1.1", "FILES", "print"}) {
    const bool isSame = CCmnNetwork::compare(files, CCmnNetwork::resolve(other));
    std::printf("files and %s: %s\n", other, isSame ? "one host" : "two hosts");
  }

  // A text is compared with a record as it is, and not resolved.
  for (const char* text : {"ten.example", "10.0.0.9", "10.0.0.09"}) {
    std::printf("%s: %s\n", text, CCmnNetwork::compare(text, files) ? "of files" : "not of files");
  }
  return 0;
}
