// Every kind of part of the simulated server.
#pragma once

#include "simulator/part.h"

namespace tavo::sim {

extern const PartKind server_kind;       // the server's identity and power; exactly one
extern const PartKind environment_kind;  // board readings; exactly one
extern const PartKind processor_kind;
extern const PartKind dimm_kind;
extern const PartKind sensor_kind;
extern const PartKind supply_kind;
extern const PartKind adapter_kind;
extern const PartKind led_kind;
extern const PartKind fault_kind;

extern const PartKind controller_kind;  // RAID controller with its battery
extern const PartKind drive_kind;
extern const PartKind volume_kind;

extern const PartKind sd_controller_kind;
extern const PartKind sd_card_kind;
extern const PartKind sd_partition_kind;

// Class codes of the fault engine that the simulator itself uses.
inline constexpr std::int64_t class_processor = 3;
inline constexpr std::int64_t class_memory = 8;
inline constexpr std::int64_t class_supply = 10;
inline constexpr std::int64_t class_adapter = 11;
inline constexpr std::int64_t class_fan = 29;

}  // namespace tavo::sim
