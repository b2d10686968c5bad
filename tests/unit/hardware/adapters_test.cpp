#include "hardware/adapters.h"

#include <gmock/gmock.h>

#include "structure.h"
#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A large resource of vital product data.
std::string resource(char tag, const std::string &content) {
  return tag + std::string(1, static_cast<char>(content.size())) + '\0' + content;
}
std::string field(const std::string &keyword, const std::string &text) {
  return keyword + static_cast<char>(text.size()) + text;
}
const std::string product_data = resource('\x82', "Two-port card ") +
                                 resource('\x90', field("PN", "PART-1") + field("EC", "A") + field("SN", "S1  ")) +
                                 '\x78';

VitalProductData parsed(const std::string &octets) {
  return parse_vital_product_data(std::as_bytes(std::span(octets)));
}

TEST(VitalProductData, ACardNamesItself) {
  const VitalProductData data = parsed(product_data);
  EXPECT_EQ(data.product, "Two-port card");
  EXPECT_EQ(data.part_number, "PART-1");
  EXPECT_EQ(data.serial, "S1");
}

TEST(VitalProductData, WhatIsCutOffTellsTheRest) {
  for (std::size_t length = 0; length < product_data.size(); ++length) {
    EXPECT_THAT(parsed(product_data.substr(0, length)).serial, length + 1 < product_data.size() ? "" : "S1");
  }
}

TEST(VitalProductData, NothingAfterTheEndCounts) {
  EXPECT_EQ(parsed('\x78' + product_data).product, "");
  EXPECT_EQ(parsed(std::string(64, '\xff')).product, "");
}

TEST(VitalProductData, AFieldThatIsTooLongEndsTheFields) {
  EXPECT_EQ(parsed(resource('\x90', "SN\x09XY")).serial, "");
}

class Adapters : public Tree {
 protected:
  // A function of a device, below the bridges that lead to it.
  void add_function(const std::string &below, const std::string &address, const std::string &device_class) {
    const std::string device = "devices/pci0000:00/" + below + address;
    write(device + "/class", device_class + "\n");
    write(device + "/vendor", "0xfff1\n");
    write(device + "/device", "0xfff2\n");
    link("bus/pci/devices/" + address, device);
  }

  // The numbers of the cards' slots.
  std::vector<std::int64_t> slots() {
    std::vector<std::int64_t> all;
    for (const Part &card : found_by(source_).adapters) {
      all.push_back(card.number("slot"));
    }
    return all;
  }

  std::string device_path(const std::string &address) const { return "bus/pci/devices/" + address; }
  void pull(const std::string &address) { std::filesystem::remove(sys() / device_path(address)); }

  Register register_{""};
  AdapterSource source_{roots(), register_,
                        [](const std::string &interface) { return interface == "eth7" ? "1.2.3" : ""; }};
};

constexpr const char *network = "0x020000";

TEST_F(Adapters, ACardInASlotOfTheKernels) {
  write("bus/pci/slots/4/address", "0000:01:00\n");
  add_function("0000:00:01.0/", "0000:01:00.0", network);
  write(device_path("0000:01:00.0") + "/vpd", product_data);
  write(device_path("0000:01:00.0") + "/net/eth7/mtu", "1500\n");
  const Inventory inventory = found_by(source_);
  ASSERT_THAT(inventory.adapters, SizeIs(1));
  const Part &card = inventory.adapters[0];
  EXPECT_EQ(card.number("slot"), 4);
  EXPECT_EQ(card.text("product-id"), "Two-port card");
  EXPECT_EQ(card.text("part-number"), "PART-1");
  EXPECT_EQ(card.text("serial"), "S1");
  EXPECT_EQ(card.text("running-version"), "1.2.3");
  EXPECT_FALSE(card.flag("over-temperature"));
  EXPECT_EQ(card.text("i2c-bus"), "");
}

TEST_F(Adapters, ASlotOfTheFirmwareIsBehindItsBridge) {
  write("firmware/dmi/tables/DMI",
        Structure(9, 0x11).text(4, "PCIe 6").word(9, 6).octet(0x0f, 0).octet(0x10, 0x08).octets());
  add_function("", "0000:00:01.0", "0x060400");
  add_function("0000:00:01.0/", "0000:01:00.0", network);
  add_function("0000:00:01.0/", "0000:01:00.1", network);
  add_function("", "0000:00:1f.6", network);
  EXPECT_THAT(slots(), ElementsAre(6)) << "two functions are one card, and what is on the board is none";
}

TEST_F(Adapters, EachPortOfABridgeHasASlotOfItsOwn) {
  const auto slot = [](const std::string &name, int number, int function) {
    return Structure(9, 0x11).text(4, name).word(9, number).octet(0x0f, 0).octet(0x10, 0x1c << 3 | function).octets();
  };
  write("firmware/dmi/tables/DMI", slot("PCIe 1", 1, 0) + slot("PCIe 2", 2, 4));
  add_function("0000:00:1c.0/", "0000:01:00.0", network);
  add_function("0000:00:1c.4/", "0000:02:00.0", network);
  add_function("0000:00:1c.5/", "0000:03:00.0", network);
  EXPECT_THAT(slots(), ElementsAre(1, 2)) << "no slot is known behind the third port";
}

TEST_F(Adapters, TheFunctionsOfACardShareItsSlot) {
  write("firmware/dmi/tables/DMI",
        Structure(9, 0x11).text(4, "PCIe 6").word(9, 6).octet(0x0f, 1).octet(0x10, 0).octets());
  write("bus/pci/slots/9/address", "0000:01:00\n");
  add_function("0000:00:01.0/", "0000:01:00.0", network);
  add_function("0000:00:01.0/", "0000:01:00.1", network);
  write(device_path("0000:01:00.1") + "/net/eth7/mtu", "1500\n");
  EXPECT_THAT(slots(), ElementsAre(6));
  EXPECT_EQ(found_by(source_).adapters.at(0).text("running-version"), "1.2.3") << "the second function's";
}

TEST_F(Adapters, ASlotsNameDoesNotDependOnOtherCards) {
  const auto slot = [](int bus) { return Structure(9, 0x11).text(4, "SLOT").octet(0x0f, bus).octet(0x10, 0).octets(); };
  write("firmware/dmi/tables/DMI", slot(1) + slot(2));
  write("bus/pci/slots/SLOT/address", "0000:03:00\n");
  for (const char *address : {"0000:01:00.0", "0000:02:00.0", "0000:03:00.0"}) {
    add_function("", address, network);
  }
  EXPECT_THAT(found_by(source_).adapters, SizeIs(3));
  pull("0000:01:00.0");
  EXPECT_EQ(only_trouble(source_).description, "Adapter 1 (Device fff2, slot SLOT) is missing");
  pull("0000:02:00.0");
  EXPECT_THAT(source_.read().troubles, SizeIs(2));
}

TEST_F(Adapters, SlotsWithoutANumberGetOne) {
  write("bus/pci/slots/riser/address", "0000:01:00\n");
  write("bus/pci/slots/1/address", "0000:02:00\n");
  write("bus/pci/slots/1-1/address", "0000:03:00\n");
  for (const char *address : {"0000:01:00.0", "0000:02:00.0", "0000:03:00.0"}) {
    add_function("", address, network);
  }
  EXPECT_THAT(found_by(source_).adapters, SizeIs(3));
  EXPECT_EQ(register_.number_of("adapter", "1"), 1);
  EXPECT_EQ(register_.number_of("adapter", "riser"), 2);
  EXPECT_EQ(register_.number_of("adapter", "1-1"), 3);
}

TEST_F(Adapters, ADriveInASlotIsNoAdapter) {
  write("bus/pci/slots/4/address", "0000:01:00\n");
  add_function("", "0000:01:00.0", "0x010802");
  EXPECT_THAT(found_by(source_).adapters, IsEmpty());
}

TEST_F(Adapters, AStorageAdaptersFirmwareIsItsDrivers) {
  write("bus/pci/slots/4/address", "0000:01:00\n");
  add_function("", "0000:01:00.0", "0x010700");
  write(device_path("0000:01:00.0") + "/host3/scsi_host/host3/version_fw", "16.00.01.00\n");
  EXPECT_EQ(found_by(source_).adapters.at(0).text("running-version"), "16.00.01.00");
}

TEST_F(Adapters, ACardThatIsTooHotIsATrouble) {
  write("bus/pci/slots/4/address", "0000:01:00\n");
  add_function("", "0000:01:00.0", network);
  write(device_path("0000:01:00.0") + "/hwmon/hwmon3/temp1_input", "104999\n");
  write(device_path("0000:01:00.0") + "/hwmon/hwmon3/temp1_crit", "105000\n");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
  write(device_path("0000:01:00.0") + "/hwmon/hwmon3/temp1_input", "105000\n");
  const Trouble trouble = only_trouble(source_);
  EXPECT_EQ(trouble.description, "Adapter 4 (Device fff2, slot 4) is at its critical temperature");
  EXPECT_EQ(trouble.unit, 4);
  EXPECT_TRUE(found_by(source_).adapters.at(0).flag("over-temperature"));
  write(device_path("0000:01:00.0") + "/hwmon/hwmon3/temp1_input", "103000\n");
  EXPECT_THAT(source_.read().troubles, SizeIs(1)) << "within the hysteresis";
  write(device_path("0000:01:00.0") + "/hwmon/hwmon3/temp1_input", "102000\n");
  EXPECT_THAT(source_.read().troubles, IsEmpty());
}

TEST_F(Adapters, ACardThatIsGoneIsMissed) {
  write("bus/pci/slots/4/address", "0000:01:00\n");
  add_function("", "0000:01:00.0", network);
  source_.read();
  pull("0000:01:00.0");
  AdapterSource later(roots(), register_);
  const Trouble trouble = only_trouble(later);
  EXPECT_EQ(trouble.description, "Adapter 4 (Device fff2, slot 4) is missing");
  EXPECT_EQ(trouble.affected, "sys/rack-unit-1/adaptor-4");
  EXPECT_EQ(trouble.missing.value().group, "adapter");
}

}  // namespace
}  // namespace tavo::service
