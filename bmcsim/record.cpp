#include "bmcsim/record.h"

#include <array>
#include <map>
#include <string>
#include <string_view>

namespace tavo::service {
namespace {

// Gives each text a number of its own.
class Masks {
 public:
  void hide(Part &part) {
    constexpr auto serial_of_sd_card = "column-24";
    for (const std::string_view field : {"serial", "board-serial", serial_of_sd_card}) {
      if (find_field(part.kind(), field) != nullptr && !part.text(field).empty()) {
        part.set(field, mask_of(part.text(field)));
      }
    }
  }

  void hide(std::vector<Part> &parts) {
    for (Part &part : parts) {
      hide(part);
    }
  }

 private:
  std::string mask_of(const std::string &serial) {
    const auto [entry, is_new] = masks_.try_emplace(serial, masks_.size() + 1);
    return "SERIAL-" + std::to_string(entry->second);
  }

  std::map<std::string, std::size_t> masks_;
};

}  // namespace

void mask_serials(Inventory &inventory) {
  Masks masks;
  masks.hide(inventory.server);
  if (!inventory.server.text("uuid").empty()) {
    inventory.server.set("uuid", "00000000-0000-4000-8000-000000000001");
  }
  for (std::vector<Part> *parts : {&inventory.processors, &inventory.dimms, &inventory.supplies, &inventory.adapters}) {
    masks.hide(*parts);
  }
  masks.hide(inventory.sd.cards);
  for (RaidController &controller : inventory.controllers) {
    masks.hide(controller.part);
  }
}

}  // namespace tavo::service
