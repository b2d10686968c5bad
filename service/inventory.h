// Everything that a server consists of.
#pragma once

#include <vector>

#include "service/part.h"
#include "service/part_kinds.h"

namespace tavo::service {

struct RaidController {
  Part part{controller_kind};
  std::vector<Part> drives;   // at most STOR_DRIVE_CAPACITY, in snapshot order
  std::vector<Part> volumes;  // at most STOR_VOLUME_CAPACITY; a volume's number is its position, from 0

  bool operator==(const RaidController &) const = default;
};

// The controllers themselves, without what is on them.
inline std::vector<Part> parts_of(const std::vector<RaidController> &controllers) {
  std::vector<Part> parts;
  parts.reserve(controllers.size());
  for (const RaidController &controller : controllers) {
    parts.push_back(controller.part);
  }
  return parts;
}

struct SdCards {
  Part controller{sd_controller_kind};
  std::vector<Part> cards;       // at most VELT_CARD_COUNT
  std::vector<Part> partitions;  // at most VELT_PARTITION_COUNT, in any order

  bool operator==(const SdCards &) const = default;
};

struct Inventory {
  Part server{server_kind};
  Part environment{environment_kind};
  std::vector<Part> processors;  // in socket order
  std::vector<Part> dimms;       // in the inventory library's order
  std::vector<Part> sensors;
  std::vector<Part> supplies;  // a supply's number is its position, from 1
  std::vector<Part> adapters;
  std::vector<Part> leds;
  std::vector<Part> faults;  // those that are active when the server starts
  std::vector<RaidController> controllers;
  SdCards sd;

  bool operator==(const Inventory &) const = default;
};

}  // namespace tavo::service
