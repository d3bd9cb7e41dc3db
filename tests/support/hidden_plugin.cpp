// A host's plugin, built with hidden visibility, that asks for the process's trace log.
#include <cmntracelog.h>

extern "C" __attribute__((visibility("default"))) const void* traceLogOfPlugin() {
  return kelp_cmn_4_4::CCmnContextSingletonAllocator<kelp_cmn_4_4::CCmnTraceLog>::allocate();
}
