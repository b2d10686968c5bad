// Errors of which several sources tell, such as one of memory that the kernel counts and the management controller
// logs.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hardware/source.h"

namespace tavo::service {

inline constexpr const char *uncorrected_memory_error = "uncorrected memory error";
inline constexpr const char *corrected_memory_errors = "corrected memory errors";

// The keys of troubles that tell of the same error as another one, each with the key of that other one. Of two troubles
// of the same part, the one counts that `is_fault` already or, if neither is, comes first. A trouble of the whole
// server is the same as that of any part, which tells more.
std::map<std::string, std::string> told_by_others(const std::vector<Trouble> &troubles,
                                                  const std::function<bool(const std::string &key)> &is_fault);

}  // namespace tavo::service
