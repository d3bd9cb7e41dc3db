#include "cmntraceable.h"

namespace kelp_cmn_4_4 {

CCmnTraceable::~CCmnTraceable() = default;

void CCmnTraceable::registerTraceLog(const CCmnTraceLogPtr& log) { m_traceLog = log; }

}  // namespace kelp_cmn_4_4
