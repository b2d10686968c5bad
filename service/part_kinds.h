// Every kind of part that the simulated server has.
#pragma once

#include "service/part.h"

namespace tavo::service {

extern const PartKind server_kind;       // the server's identity and power; exactly one
extern const PartKind environment_kind;  // board readings; exactly one
extern const PartKind processor_kind;
extern const PartKind dimm_kind;
extern const PartKind sensor_kind;
extern const PartKind supply_kind;
extern const PartKind adapter_kind;
extern const PartKind led_kind;
extern const PartKind fault_kind;

extern const PartKind controller_kind;  // a RAID controller and its battery
extern const PartKind drive_kind;
extern const PartKind volume_kind;

extern const PartKind sd_controller_kind;
extern const PartKind sd_card_kind;
extern const PartKind sd_partition_kind;

// The platform knows no more power supplies than this.
inline constexpr std::size_t supply_limit = 10;

// The sizes of a power supply's text files, in octets.
inline constexpr std::size_t supply_model_size = 32;
inline constexpr std::size_t supply_revision_size = 8;

}  // namespace tavo::service
