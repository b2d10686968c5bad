#include "simulator/numbering.h"

#include <gmock/gmock.h>

#include <set>

#include "served_scenario.h"
#include "simulator/scenario.h"

namespace tavo::service {
namespace {

// Every serial number of a server, and its UUID.
std::vector<std::string> identities(const Inventory &inventory) {
  std::vector<std::string> found{inventory.server.text("uuid"), inventory.server.text("serial"),
                                 inventory.server.text("board-serial"), inventory.sd.controller.text("column-25")};
  for (const auto *parts : {&inventory.processors, &inventory.dimms, &inventory.supplies, &inventory.adapters}) {
    for (const Part &part : *parts) {
      if (!part.text("serial").empty()) {
        found.push_back(part.text("serial"));
      }
    }
  }
  for (const RaidController &controller : inventory.controllers) {
    found.push_back(controller.part.text("serial"));
  }
  for (const Part &card : inventory.sd.cards) {
    found.push_back(card.text("column-24"));
  }
  return found;
}

std::vector<std::string> identities_of_server(unsigned number) {
  Inventory inventory = load_scenario(RACK_SERVER);
  number_server(inventory, number);
  return identities(inventory);
}

TEST(Numbering, ServersShareNoSerialNumber) {
  const auto seventh = identities_of_server(7);
  EXPECT_EQ(seventh[0], "6f1c9e0a-52d7-4b3e-9a10-5c8d2e7f0007");
  EXPECT_EQ(seventh[1], "SERIAL-0001-007");
  EXPECT_EQ(identities_of_server(1234)[1], "SERIAL-0001-1234");
  std::set<std::string> all(seventh.begin(), seventh.end());
  for (const std::string &identity : identities_of_server(8)) {
    EXPECT_FALSE(all.contains(identity)) << identity;
  }
}

TEST(Numbering, LongSerialNumberKeepsItsFront) {
  Inventory inventory;
  inventory.server.set("serial", std::string(31, 'x'));
  inventory.server.set("uuid", "7");
  number_server(inventory, 12);
  EXPECT_EQ(inventory.server.text("serial"), std::string(27, 'x') + "-012");
  EXPECT_EQ(inventory.server.text("uuid"), "000c");
}

}  // namespace
}  // namespace tavo::service
