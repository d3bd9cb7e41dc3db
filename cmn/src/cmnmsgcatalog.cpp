#include "cmnmsgcatalog.h"

namespace kelp_cmn_4_4 {

int CCmnMessageCatalog::init() { return catalogOk; }

CCmnMessageCatalog::~CCmnMessageCatalog() = default;

}  // namespace kelp_cmn_4_4
