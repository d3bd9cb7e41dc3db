// A host's plugin, built with hidden visibility, that asks for the process's instance of a class,
// told by its name.
#include "cmnicumessage.h"
#include "cmnmsgcatalogmgr.h"
#include "cmntracelog.h"
#include "host_instances.h"

#include <string_view>
#include <typeinfo>

namespace {

template <class... Classes>
const void* instanceAmong(std::string_view name) {
  const void* instance = nullptr;
  ((name == typeid(Classes).name() &&
    (instance = kelp_cmn_4_4::CCmnContextSingletonAllocator<Classes>::allocate())),
   ...);
  return instance;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const void* instanceOfPlugin(const char* name) {
  using namespace kelp_cmn_4_4;
  return instanceAmong<CCmnTraceLog, CCmnMessageCatalogManager, CCmnIcuMessage, CCmnRefCount,
                       HostRegistry, HostSettings>(name);
}
