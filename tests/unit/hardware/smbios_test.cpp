#include "hardware/smbios.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <system_error>

#include "core/class_number.h"
#include "structure.h"
#include "tree.h"

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string server() {
  Structure system(1, 0x1b);
  for (int i = 0; i < 16; ++i) {
    system.octet(8 + static_cast<std::size_t>(i), i + 1);
  }
  return system.text(4, "Maker").text(5, "Server 1").text(7, "SERIAL-1").text(0x19, "SKU-1").octets();
}

std::string board() {
  return Structure(2, 8).text(4, "Maker").text(5, "Board 1").text(7, "SERIAL-2").octets();
}

Structure processor(int status) {
  return Structure(4, 0x30)
      .octet(5, 3)
      .octet(6, 0xb3)
      .word(0x16, 2600)
      .octet(0x18, status)
      .octet(0x23, 8)
      .octet(0x24, 6)
      .octet(0x25, 16)
      .text(4, "CPU1")
      .text(7, "Vendor")
      .text(0x10, "Model 1");
}

Structure memory(int size) {
  return Structure(17, 0x22).word(0x0a, 64).word(0x0c, size).word(0x15, 3200).word(0x20, 2933);
}

class Smbios : public Tree {
 protected:
  // What a server is like of which nothing was known before.
  Inventory found(const std::string &table) {
    write("firmware/dmi/tables/DMI", table);
    Inventory inventory;
    inventory.server.set("board-readable", "no");
    SmbiosSource(roots(), register_).read().enter(inventory);
    return inventory;
  }

  // What is wrong at the next start, with this table.
  std::vector<Trouble> troubles(const std::string &table) {
    write("firmware/dmi/tables/DMI", table);
    return SmbiosSource(roots(), register_).read().troubles;
  }

  Register register_{directory_ / "register.json"};
};

TEST_F(Smbios, TheServerAndItsBoardAreNamed) {
  const Inventory inventory = found(server() + board());
  EXPECT_EQ(inventory.server.text("description"), "Maker Server 1");
  EXPECT_EQ(inventory.server.text("product-name"), "Server 1");
  EXPECT_EQ(inventory.server.text("product-id"), "SKU-1");
  EXPECT_EQ(inventory.server.text("serial"), "SERIAL-1");
  EXPECT_EQ(inventory.server.text("uuid"), "04030201-0605-0807-090a-0b0c0d0e0f10");
  EXPECT_EQ(inventory.server.text("board-manufacturer"), "Maker");
  EXPECT_EQ(inventory.server.text("board-product"), "Board 1");
  EXPECT_EQ(inventory.server.text("board-serial"), "SERIAL-2");
}

TEST_F(Smbios, TheFirstBoardCounts) {
  EXPECT_EQ(found(board() + Structure(2, 8).text(5, "Riser").octets()).server.text("board-product"), "Board 1");
}

TEST_F(Smbios, ATextThatSaysNothingIsEmpty) {
  const Inventory inventory =
      found(Structure(1, 0x1b).text(4, "To Be Filled By O.E.M.").text(5, " Not Specified ").octets());
  EXPECT_EQ(inventory.server.text("description"), "");
  EXPECT_EQ(inventory.server.text("uuid"), "");
}

TEST_F(Smbios, AProcessorHasItsFigures) {
  const Inventory inventory = found(processor(0x41).octets());
  ASSERT_THAT(inventory.processors, SizeIs(1));
  const Part &part = inventory.processors[0];
  EXPECT_EQ(part.text("socket"), "CPU1");
  EXPECT_EQ(part.text("vendor"), "Vendor");
  EXPECT_EQ(part.text("architecture"), "Xeon");
  EXPECT_EQ(part.text("model"), "Model 1");
  EXPECT_EQ(part.number("speed"), 2600);
  EXPECT_EQ(part.number("cores"), 8);
  EXPECT_EQ(part.number("cores-enabled"), 6);
  EXPECT_EQ(part.number("threads"), 16);
  EXPECT_EQ(part.text("status"), "Enabled");
  EXPECT_TRUE(part.flag("present"));
}

TEST_F(Smbios, AProcessorWithManyCoresHasThemElsewhere) {
  const std::string table = processor(0x41).octet(0x23, 255).word(0x2a, 288).octets();
  EXPECT_EQ(found(table).processors.at(0).number("cores"), 288);
}

TEST_F(Smbios, AnEmptyOrDisabledSocketIsTold) {
  const Inventory inventory = found(processor(0x00).octets() + processor(0x42).octets());
  ASSERT_THAT(inventory.processors, SizeIs(2));
  EXPECT_FALSE(inventory.processors[0].flag("present"));
  EXPECT_EQ(inventory.processors[1].text("status"), "Disabled");
  EXPECT_EQ(inventory.processors[1].text("socket"), "CPU1 #2") << "names tell parts apart";
}

TEST_F(Smbios, NamesDifferEvenWhereTheTextsDoNotFit) {
  const auto cpu = [](const std::string &socket) { return Structure(4, 0x30).octet(5, 3).text(4, socket).octets(); };
  const std::string text(80, 'x');
  const Inventory inventory = found(cpu("A\1B") + cpu("A\2B") + cpu(text + '1') + cpu(text + '2') + cpu("A?B #2"));
  ASSERT_THAT(inventory.processors, SizeIs(5));
  EXPECT_EQ(inventory.processors[0].text("socket"), "A?B");
  EXPECT_EQ(inventory.processors[1].text("socket"), "A?B #2");
  EXPECT_EQ(inventory.processors[2].text("socket"), std::string(64, 'x'));
  EXPECT_EQ(inventory.processors[3].text("socket"), std::string(61, 'x') + " #4");
  EXPECT_EQ(inventory.processors[4].text("socket"), "A?B #2 #5");
}

TEST_F(Smbios, AProcessorOfAnotherKindIsLeftOut) {
  EXPECT_THAT(found(processor(0x41).octet(5, 6).octets()).processors, SizeIs(0));
}

TEST_F(Smbios, AMemoryModuleHasItsFigures) {
  const Inventory inventory = found(memory(16384).text(0x10, "DIMM_A1").text(0x11, "NODE 0").text(0x18, "S1").octets());
  ASSERT_THAT(inventory.dimms, SizeIs(1));
  const Part &part = inventory.dimms[0];
  EXPECT_EQ(part.text("name"), "DIMM_A1");
  EXPECT_EQ(part.number("number"), 1);
  EXPECT_EQ(part.text("capacity"), "16 GB");
  EXPECT_EQ(part.text("speed"), "2933 MHz");
  EXPECT_EQ(part.text("clock"), "2933");
  EXPECT_EQ(part.text("width"), "64 bits");
  EXPECT_EQ(part.text("location"), "NODE 0");
  EXPECT_EQ(part.text("serial"), "S1");
  EXPECT_TRUE(part.flag("present"));
}

TEST_F(Smbios, SizesOfMemoryAreReadInEachForm) {
  std::string table = memory(0).octets() + memory(0xffff).octets() + memory(512).octets();
  table += memory(0x8000 | 2048).octets();                       // KB
  table += memory(0x7fff).word(0x1c, 0).word(0x1e, 1).octets();  // 65,536 MB in the second field
  std::vector<std::string> capacities;
  for (const Part &dimm : found(table).dimms) {
    capacities.push_back(dimm.flag("present") ? dimm.text("capacity") : "empty");
  }
  EXPECT_THAT(capacities, ElementsAre("empty", "empty", "512 MB", "2 MB", "64 GB"));
}

TEST_F(Smbios, ATableThatIsCutShortTellsTheRest) {
  const std::string table = server() + board() + processor(0x41).octets() + memory(16384).octets();
  for (std::size_t length = 0; length <= table.size(); ++length) {
    const Inventory inventory = found(table.substr(0, length));
    EXPECT_LE(inventory.processors.size() + inventory.dimms.size(), 2U);
  }
}

TEST_F(Smbios, AStructureThatIsTooShortEndsTheTable) {
  const std::string table = server() + std::string("\x04\x00\x00\x00\x00\x00", 6) + processor(0x41).octets();
  EXPECT_THAT(found(table).processors, SizeIs(0));
}

TEST_F(Smbios, NothingAfterTheEndMarkCounts) {
  EXPECT_THAT(found(Structure(127, 4).octets() + processor(0x41).octets()).processors, SizeIs(0));
}

TEST_F(Smbios, ASlotHasItsAddress) {
  const std::string table =
      Structure(9, 0x11).text(4, "PCIe 3").word(9, 3).word(0x0d, 1).octet(0x0f, 0x82).octet(0x10, 0x19).octets() +
      Structure(9, 0x11).text(4, "Elsewhere").word(0x0d, 0xffff).octet(0x0f, 0xff).octet(0x10, 0xff).octets() +
      Structure(9, 0x0d).text(4, "Old").octets();
  const auto slots = system_slots(std::as_bytes(std::span(table)));
  ASSERT_THAT(slots, SizeIs(1));
  EXPECT_EQ(slots[0].name, "PCIe 3");
  EXPECT_EQ(slots[0].number, 3);
  EXPECT_EQ(slots[0].address, "0001:82:03.1");
}

TEST_F(Smbios, AModuleThatIsGoneAfterARestartIsMissed) {
  const auto slot = [](int size, const std::string &name) { return memory(size).text(0x10, name).octets(); };
  const std::string before = slot(0, "A1") + slot(8192, "A2") + slot(8192, "A3");
  EXPECT_THAT(troubles(before), IsEmpty()) << "a slot may be meant to be empty";
  EXPECT_THAT(troubles(before), IsEmpty());
  const std::vector<Trouble> found = troubles(slot(0, "A1") + slot(8192, "A2") + slot(0, "A3"));
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found[0].description, "Memory module 3 (A3) is missing");
  EXPECT_EQ(found[0].class_code, class_number::memory);
  EXPECT_EQ(found[0].unit, 3);
  EXPECT_EQ(found[0].cause, 238);
  EXPECT_EQ(found[0].missing->group, "module");
  EXPECT_EQ(found[0].missing->number, 3);
  EXPECT_THAT(troubles(before), IsEmpty()) << "it is back";
  EXPECT_THAT(troubles(slot(8192, "A2") + slot(8192, "A3")), IsEmpty()) << "slots are known by their names";
  const std::vector<Trouble> unlisted = troubles(slot(8192, "A3"));
  ASSERT_THAT(unlisted, SizeIs(1)) << "the firmware does not list its slot";
  EXPECT_EQ(unlisted[0].class_code, class_number::server);
  EXPECT_TRUE(register_.forget_part("module", unlisted[0].missing->number));
  EXPECT_THAT(troubles(slot(8192, "A3")), IsEmpty());
}

TEST_F(Smbios, AProcessorThatIsGoneAfterARestartIsMissed) {
  EXPECT_THAT(troubles(processor(0x41).octets() + processor(0x41).octets()), IsEmpty());
  const std::vector<Trouble> found = troubles(processor(0x41).octets() + processor(0).octets());
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found[0].description, "Processor 2 (CPU1 #2) is missing");
  EXPECT_EQ(found[0].class_code, class_number::processor);
  EXPECT_EQ(found[0].unit, 2);
}

TEST_F(Smbios, AMissingTableIsNamed) {
  SmbiosSource source(roots(), register_);
  EXPECT_THAT([&] { source.read(); },
              testing::ThrowsMessage<std::system_error>(testing::HasSubstr("firmware/dmi/tables/DMI: No such file")));
}

}  // namespace
}  // namespace tavo::service
