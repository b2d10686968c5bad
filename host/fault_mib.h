// Serves the history of faults in TAVO-SUBAGENT-MIB: which changes there were, and which faults are active.
#pragma once

#include "host/fault_history.h"

namespace tavo {

// Registers the objects. Call it on the loop's thread, after init_agent() and before an AgentX session is opened. What
// cannot be registered is logged and not served. `history` must outlive the agent.
void serve_faults(const FaultHistory &history);

}  // namespace tavo
