// Answers to what libbmcsim.so, the front ends and `bmcsim ctl` ask.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "simulator/machine.h"

namespace tavo::sim {

// Requests that turn their connection into a stream of records.
inline constexpr const char *follow_faults = "follow-faults";
inline constexpr const char *follow_storage_events = "follow-storage-events";

// {"result": 0, ...} for a request that succeeded, {"result": n} with a nonzero number for one that the platform
// refuses, {"error": "..."} for one that makes no sense.
nlohmann::json answer(Machine &machine, const nlohmann::json &request);

}  // namespace tavo::sim
