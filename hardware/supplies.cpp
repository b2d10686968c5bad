#include "hardware/supplies.h"

#include <utility>

#include "core/class_number.h"
#include "hardware/fans.h"

namespace tavo::service {

Account account_of_supplies(const Supplies &all) {
  return {.enter =
              [supplies = all.supplies, fans = all.fans](Inventory &inventory) {
                inventory.supplies = supplies;
                for (const SupplyFan &fan : fans) {
                  enter_supply_fan(inventory, fan.supply, fan.presence);
                }
              },
          .troubles = all.troubles,
          .is_vague = all.is_vague};
}

Part supply_part(bool is_present, const SupplyDefect *defect) {
  Part part(supply_kind);
  part.set("present", is_present ? "yes" : "no");
  part.set_number("status", is_present && defect != nullptr ? defect->status : 0);
  return part;
}

bool place_supply(std::vector<Part> &supplies, std::int64_t number, Part part) {
  const auto row = static_cast<std::size_t>(number);
  if (number < 1 || row > supply_limit) {
    return false;
  }
  if (supplies.size() < row) {
    supplies.resize(row, supply_part(false, nullptr));
  }
  supplies[row - 1] = std::move(part);
  return true;
}

Trouble supply_trouble(std::string key, std::int64_t number, std::string_view severity, int cause,
                       std::string_view sentence) {
  return {.key = std::move(key),
          .class_code = class_number::power_supply_fan,
          .unit = number,
          .severity = std::string(severity),
          .cause = cause,
          .description = "Power supply " + std::to_string(number) + std::string(sentence)};
}

}  // namespace tavo::service
