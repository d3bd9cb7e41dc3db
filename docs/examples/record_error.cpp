// Records what went wrong and where, under the identifier of a message.
#include <cmnerror.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

constexpr int firstCode = 1000;

static CCmnError unreadable(int line) {
  return {firstCode + 7, "the list cannot be read", "targets.cpp", line, "readTargets"};
}

int main() {
  const CCmnError error = unreadable(31);
  std::printf("%s:%d, in %s: %s (%d)\n", error.getFileName(), error.getLineNumber(),
              error.getFunction(), error.what(), error.getCode());
  std::printf("%s\n", error.getMessageId("BACKUP", firstCode).c_str());

  // The base itself stays the base.
  const CCmnError first(firstCode, "", "", 0, "");
  std::printf("%s\n", first.getMessageId("BACKUP", firstCode).c_str());

  try {
    throw unreadable(54);  // by value; no std::exception
  } catch (const CCmnError& caught) {
    std::printf("caught in line %d\n", caught.getLineNumber());
  }
  return 0;
}
