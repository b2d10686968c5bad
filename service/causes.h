// Causes of faults: codes of the platform.
#pragma once

namespace tavo::service::cause {

inline constexpr int failed = 2;
inline constexpr int missing = 238;

}  // namespace tavo::service::cause
