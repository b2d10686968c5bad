// The table in which the firmware describes the machine (System Management BIOS).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

// One structure of the table: octets at fixed offsets, from which fields are read, and texts, which fields number from
// 1. What a structure is too short for, or a text that it lacks, is 0 or empty.
class SmbiosStructure {
 public:
  SmbiosStructure(std::span<const std::byte> formatted, std::span<const std::byte> texts)
      : formatted_(formatted), texts_(texts) {}

  std::uint8_t type() const { return octet(0); }
  std::uint8_t octet(std::size_t offset) const { return static_cast<std::uint8_t>(number(offset, 1)); }
  std::uint16_t word(std::size_t offset) const { return static_cast<std::uint16_t>(number(offset, 2)); }
  std::uint32_t long_word(std::size_t offset) const { return number(offset, 4); }
  std::span<const std::byte> octets(std::size_t offset, std::size_t count) const;  // empty if they are not all there
  // The text whose number stands at `offset`, as told_text() gives it.
  std::string text(std::size_t offset) const;

 private:
  std::uint32_t number(std::size_t offset, std::size_t size) const;

  std::span<const std::byte> formatted_;
  std::span<const std::byte> texts_;
};

// The structures of a table, up to its end mark or to the first that does not fit. They refer to `table`.
std::vector<SmbiosStructure> smbios_structures(std::span<const std::byte> table);

// A slot for an adapter.
struct SystemSlot {
  std::string name;     // "PCIe Slot 3"
  std::int64_t number;  // on the board; 0: not known
  std::string address;  // of the device in it or of the bridge in front of it: "0000:00:1c.4"
};

// The slots whose address the table tells, in its order.
std::vector<SystemSlot> system_slots(std::span<const std::byte> table);

// Enters the server, its board, processors and memory modules, as far as the table tells.
void enter_smbios(Inventory &inventory, std::span<const std::byte> table);

// The whole table. Throws std::system_error if it cannot be read.
std::vector<std::byte> smbios_table(const Roots &roots);

// Reads the table once. Processors and memory modules that were there at an earlier start are missed.
class SmbiosSource : public Source {
 public:
  // `kept` outlives the source. It keeps which processors and modules there were.
  SmbiosSource(Roots roots, Register &kept) : roots_(std::move(roots)), kept_(kept) {}

  std::string_view name() const override { return "SMBIOS"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(0); }
  Finding read() override;

 private:
  const Roots roots_;
  Register &kept_;
};

}  // namespace tavo::service
