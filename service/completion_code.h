// The IPMI completion codes that the simulator answers with.
#pragma once

namespace tavo::service {

inline constexpr int completed = 0;
inline constexpr int no_such_record = 0xCB;     // requested sensor, data or record not present
inline constexpr int entity_absent = 0xE0;      // from a presence check
inline constexpr int unspecified_error = 0xFF;  // from a presence check that cannot tell

}  // namespace tavo::service
