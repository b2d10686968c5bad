#include "simulator/numbering.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace tavo::service {
namespace {

void number_field(Part &part, std::string_view field, const std::string &ending) {
  const std::string &serial = part.text(field);
  if (!serial.empty()) {
    const std::size_t kept = find_field(part.kind(), field)->size - ending.size();
    part.set(field, serial.substr(0, kept) + ending);
  }
}

void number_parts(std::vector<Part> &parts, std::string_view field, const std::string &ending) {
  std::ranges::for_each(parts, [&](Part &part) { number_field(part, field, ending); });
}

}  // namespace

void number_server(Inventory &inventory, unsigned number) {
  std::array<char, 16> digits{};
  std::snprintf(digits.data(), digits.size(), "-%03u", number);
  const std::string ending = digits.data();
  number_field(inventory.server, "serial", ending);
  number_field(inventory.server, "board-serial", ending);
  for (auto *parts : {&inventory.processors, &inventory.dimms, &inventory.supplies, &inventory.adapters}) {
    number_parts(*parts, "serial", ending);
  }
  for (RaidController &controller : inventory.controllers) {
    number_field(controller.part, "serial", ending);
  }
  number_field(inventory.sd.controller, "column-25", ending);
  number_parts(inventory.sd.cards, "column-24", ending);

  std::snprintf(digits.data(), digits.size(), "%04x", number);
  const std::string &uuid = inventory.server.text("uuid");
  const std::string end_of_uuid = digits.data();
  inventory.server.set("uuid", uuid.substr(0, uuid.size() - std::min(uuid.size(), end_of_uuid.size())) + end_of_uuid);
}

}  // namespace tavo::service
