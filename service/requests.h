// Replies to every call but those that follow a stream.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "service/machine.h"

namespace tavo::service {

// {"result": 0, ...} if the request succeeded, {"result": N} with another number if the platform refuses it, and
// {"error": "..."} if it makes no sense.
nlohmann::json answer(Machine &machine, const nlohmann::json &request);

}  // namespace tavo::service
