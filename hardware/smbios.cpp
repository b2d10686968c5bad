#include "hardware/smbios.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <map>
#include <system_error>

#include "core/class_number.h"
#include "core/descriptor.h"
#include "hardware/set_line.h"
#include "hardware/told_text.h"

namespace tavo::service {
namespace {

// Types of structures, and the offsets of their fields.
constexpr std::uint8_t system_type = 1;
constexpr std::uint8_t board_type = 2;
constexpr std::uint8_t processor_type = 4;
constexpr std::uint8_t slot_type = 9;
constexpr std::uint8_t memory_device_type = 17;
constexpr std::uint8_t end_type = 127;

enum System { system_manufacturer = 4, system_product = 5, system_serial = 7, system_uuid = 8, system_sku = 0x19 };
enum Board { board_manufacturer = 4, board_product = 5, board_serial = 7 };
enum Processor {
  processor_socket = 4,
  processor_role = 5,  // 3: a central processor
  processor_family = 6,
  processor_manufacturer = 7,
  processor_version = 0x10,
  processor_speed = 0x16,   // MHz
  processor_status = 0x18,  // bit 6: the socket is populated; bits 0 to 2: 1 if the processor is enabled
  processor_serial = 0x20,
  processor_cores = 0x23,  // these three are 255 if the number is in the words at 0x2a, 0x2c and 0x2e
  processor_cores_enabled = 0x24,
  processor_threads = 0x25,
  processor_family_2 = 0x28,  // the family if that is 254
  processor_cores_2 = 0x2a,
  processor_cores_enabled_2 = 0x2c,
  processor_threads_2 = 0x2e
};
enum Slot {
  slot_designation = 4,
  slot_number = 9,
  slot_segment = 0x0d,  // the next three are all ones if the slot is of another kind
  slot_bus = 0x0f,
  slot_device = 0x10,  // bits 3 to 7: device; 0 to 2: function
};
enum Memory {
  memory_data_width = 0x0a,  // bits
  memory_size = 0x0c,        // MB, or KB if bit 15 is set; 0x7fff: in memory_size_2
  memory_device = 0x10,
  memory_bank = 0x11,
  memory_speed = 0x15,  // MT/s
  memory_serial = 0x18,
  memory_size_2 = 0x1c,            // MB
  memory_configured_speed = 0x20,  // MT/s
};

constexpr std::size_t header_size = 4;

// The first three fields are little-endian, as all tables of version 2.6 and later have them.
std::string uuid_text(std::span<const std::byte> octets) {
  const auto all = [&](int value) {
    return std::ranges::all_of(octets, [&](std::byte octet) { return std::to_integer<int>(octet) == value; });
  };
  if (octets.empty() || all(0) || all(0xff)) {
    return "";
  }
  constexpr auto order = std::to_array<std::size_t>({3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15});
  std::string text;
  for (std::size_t i = 0; i < order.size(); ++i) {
    text += i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "";
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", std::to_integer<unsigned>(octets[order[i]]));
    text += digits.data();
  }
  return text;
}

std::int64_t count_of(const SmbiosStructure &processor, Processor octet, Processor word) {
  constexpr std::uint8_t see_word = 255;
  const std::uint8_t count = processor.octet(octet);
  return count == see_word ? processor.word(word) : count;
}

// The families that servers have. The rest go without a name.
std::string family_name(const SmbiosStructure &processor) {
  struct Family {
    std::uint16_t code;
    std::string_view name;
  };
  constexpr auto families = std::to_array<Family>({{.code = 0x6b, .name = "Zen"},
                                                   {.code = 0xb3, .name = "Xeon"},
                                                   {.code = 0xcd, .name = "Core i5"},
                                                   {.code = 0xc6, .name = "Core i7"},
                                                   {.code = 0xcf, .name = "Core i9"},
                                                   {.code = 0xa9, .name = "Xeon"},
                                                   {.code = 0xd6, .name = "Xeon"},
                                                   {.code = 0x100, .name = "ARMv7"},
                                                   {.code = 0x101, .name = "ARMv8"},
                                                   {.code = 0x102, .name = "ARMv9"}});
  constexpr std::uint8_t see_word = 254;
  const std::uint8_t octet = processor.octet(processor_family);
  const std::uint16_t code = octet == see_word ? processor.word(processor_family_2) : octet;
  const auto found = std::ranges::find(families, code, &Family::code);
  return found != families.end() ? std::string(found->name) : "";
}

// Names tell parts apart, and firmware may give the same one twice, none, or two whose difference does not fit. The
// part comes after those of the list.
void set_name(Part &part, std::string_view field, const std::string &name, const std::vector<Part> &list) {
  const auto is_taken = [&] {
    return std::ranges::any_of(list, [&](const Part &other) { return other.text(field) == part.text(field); });
  };
  set_line(part, field, name);
  for (std::size_t number = list.size() + 1; part.text(field).empty() || is_taken(); ++number) {
    const std::string ending = (name.empty() ? "#" : " #") + std::to_string(number);
    set_line(part, field, name.substr(0, find_field(part.kind(), field)->size - ending.size()) + ending);
  }
}

void enter_system(Inventory &inventory, const SmbiosStructure &system) {
  const std::string manufacturer = system.text(system_manufacturer);
  const std::string product = system.text(system_product);
  const std::string sku = system.text(system_sku);
  Part &server = inventory.server;
  set_line(server, "description", manufacturer + (manufacturer.empty() || product.empty() ? "" : " ") + product);
  set_line(server, "product-name", product);
  set_line(server, "product-id", sku.empty() ? product : sku);
  set_line(server, "serial", system.text(system_serial));
  constexpr std::size_t uuid_size = 16;
  set_line(server, "uuid", uuid_text(system.octets(system_uuid, uuid_size)));
}

void enter_board(Inventory &inventory, const SmbiosStructure &board) {
  Part &server = inventory.server;
  server.set("board-readable", "yes");
  set_line(server, "board-manufacturer", board.text(board_manufacturer));
  set_line(server, "board-product", board.text(board_product));
  set_line(server, "board-serial", board.text(board_serial));
}

// All sockets, also the empty ones.
void enter_processor(Inventory &inventory, const SmbiosStructure &structure) {
  constexpr std::uint8_t central = 3;
  if (structure.octet(processor_role) != central) {
    return;
  }
  constexpr std::uint8_t populated = 0x40;
  constexpr std::uint8_t state = 0x07;
  constexpr std::uint8_t enabled = 1;
  const std::uint8_t status = structure.octet(processor_status);
  std::vector<Part> &list = inventory.processors;
  Part part(processor_kind);
  set_name(part, "socket", structure.text(processor_socket), list);
  set_line(part, "vendor", structure.text(processor_manufacturer));
  set_line(part, "architecture", family_name(structure));
  set_line(part, "model", structure.text(processor_version));
  set_line(part, "serial", structure.text(processor_serial));
  part.set_number("speed", structure.word(processor_speed));
  part.set_number("cores", count_of(structure, processor_cores, processor_cores_2));
  part.set_number("cores-enabled", count_of(structure, processor_cores_enabled, processor_cores_enabled_2));
  part.set_number("threads", count_of(structure, processor_threads, processor_threads_2));
  part.set("status", (status & state) == enabled ? "Enabled" : "Disabled");
  part.set_number("present", (status & populated) != 0 ? 1 : 0);
  list.push_back(std::move(part));
}

// In MB; 0 if the slot is empty or nobody knows.
std::uint32_t capacity_of(const SmbiosStructure &memory) {
  constexpr std::uint16_t not_known = 0xffff;
  constexpr std::uint16_t see_size_2 = 0x7fff;
  constexpr std::uint16_t in_kilobytes = 0x8000;
  const std::uint16_t size = memory.word(memory_size);
  if (size == not_known) {
    return 0;
  }
  if (size == see_size_2) {
    return memory.long_word(memory_size_2) & ~(1U << 31);
  }
  return (size & in_kilobytes) != 0 ? (size & ~in_kilobytes) / 1024U : size;
}

std::string capacity_text(std::uint32_t megabytes) {
  const bool whole = megabytes % 1024 == 0;
  return std::to_string(whole ? megabytes / 1024 : megabytes) + (whole ? " GB" : " MB");
}

// All slots, also the empty ones.
void enter_memory(Inventory &inventory, const SmbiosStructure &structure) {
  constexpr std::uint16_t width_not_known = 0xffff;
  const std::uint32_t capacity = capacity_of(structure);
  const std::uint16_t width = structure.word(memory_data_width);
  const std::uint16_t configured = structure.word(memory_configured_speed);
  const std::uint16_t speed = configured != 0 ? configured : structure.word(memory_speed);
  std::vector<Part> &list = inventory.dimms;
  Part part(dimm_kind);
  set_name(part, "name", structure.text(memory_device), list);
  part.set_number("number", static_cast<std::int64_t>(list.size()) + 1);
  set_line(part, "location", structure.text(memory_bank));
  part.set_number("present", capacity != 0 ? 1 : 0);
  if (capacity != 0) {
    set_line(part, "capacity", capacity_text(capacity));
    set_line(part, "serial", structure.text(memory_serial));
    set_line(part, "speed", speed != 0 ? std::to_string(speed) + " MHz" : "");
    set_line(part, "clock", speed != 0 ? std::to_string(speed) : "");
    set_line(part, "width", width != 0 && width != width_not_known ? std::to_string(width) + " bits" : "");
  }
  list.push_back(std::move(part));
}

void enter_structure(Inventory &inventory, const SmbiosStructure &structure) {
  switch (structure.type()) {
    case system_type:
      return enter_system(inventory, structure);
    case board_type:
      // The first is the one that everything else is on.
      return inventory.server.flag("board-readable") ? void() : enter_board(inventory, structure);
    case processor_type:
      return enter_processor(inventory, structure);
    case memory_device_type:
      return enter_memory(inventory, structure);
    default:
      return;
  }
}

// The whole file. Throws std::system_error if it cannot be read.
std::vector<std::byte> file_content(const std::filesystem::path &path) {
  constexpr std::size_t limit = 1 << 20;  // octets; a table has some thousands
  const Descriptor file = open_for_reading(path.c_str());
  if (!file) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
  std::vector<std::byte> content(limit);
  content.resize(read_up_to(file, content));
  return content;
}

// A kind of parts that are in sockets or slots.
struct Socketed {
  const char *group;  // in the register
  std::int64_t class_code;
  std::string_view field;  // with the name of the socket
  std::string name;        // of such a part, without its number and its socket's
};

// Keeps the parts that are there, and misses those that were there before: their socket is empty now, or the firmware
// does not list it any more.
void add_missing(const Socketed &kind, const std::vector<Part> &parts, Register &kept, std::vector<Trouble> &troubles) {
  std::map<std::string, std::string> present;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string &socket = parts[i].text(kind.field);
    const std::int64_t number = kept.number_of(kind.group, socket, static_cast<std::int64_t>(i) + 1);
    if (parts[i].flag("present")) {
      present[socket] = kind.name + std::to_string(number) + " (" + socket + ')';
    }
  }
  for (const auto &[socket, part] : missing_parts(kept, kind.group, present)) {
    const auto found = std::ranges::find_if(
        parts, [&, &wanted = socket](const Part &candidate) { return candidate.text(kind.field) == wanted; });
    const bool is_listed = found != parts.end();
    troubles.push_back(missing({.key = std::string(kind.group) + ' ' + socket + " gone",
                                .class_code = is_listed ? kind.class_code : class_number::server,
                                .unit = is_listed ? found - parts.begin() + 1 : 1,
                                .description = part.name},
                               part));
  }
}

}  // namespace

std::uint32_t SmbiosStructure::number(std::size_t offset, std::size_t size) const {
  std::uint32_t number = 0;
  const std::span<const std::byte> field = octets(offset, size);
  for (std::size_t i = field.size(); i > 0; --i) {
    number = number << 8 | std::to_integer<std::uint32_t>(field[i - 1]);
  }
  return number;
}

std::span<const std::byte> SmbiosStructure::octets(std::size_t offset, std::size_t count) const {
  return offset + count <= formatted_.size() ? formatted_.subspan(offset, count) : std::span<const std::byte>();
}

std::string SmbiosStructure::text(std::size_t offset) const {
  const std::uint8_t wanted = octet(offset);
  std::string_view rest(reinterpret_cast<const char *>(texts_.data()), texts_.size());
  for (std::uint8_t number = 1; wanted != 0 && !rest.empty(); ++number) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    if (number == wanted) {
      return told_text(rest.substr(0, end));
    }
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return "";
}

std::vector<SmbiosStructure> smbios_structures(std::span<const std::byte> table) {
  constexpr std::size_t length_offset = 1;
  std::vector<SmbiosStructure> structures;
  while (table.size() >= header_size) {
    const auto length = std::to_integer<std::size_t>(table[length_offset]);
    if (length < header_size || length > table.size()) {
      break;
    }
    // Two NULs end the texts.
    const std::span<const std::byte> texts = table.subspan(length);
    std::size_t end = 0;
    while (end + 1 < texts.size() && (texts[end] != std::byte{0} || texts[end + 1] != std::byte{0})) {
      ++end;
    }
    structures.emplace_back(table.first(length), texts.first(std::min(end + 1, texts.size())));
    if (structures.back().type() == end_type) {
      break;
    }
    table = texts.subspan(std::min(end + 2, texts.size()));
  }
  return structures;
}

std::vector<SystemSlot> system_slots(std::span<const std::byte> table) {
  constexpr std::uint8_t none = 0xff;
  std::vector<SystemSlot> slots;
  for (const SmbiosStructure &structure : smbios_structures(table)) {
    const bool has_address = structure.octets(slot_segment, slot_device + 1 - slot_segment).size() != 0;
    const std::uint8_t bus = structure.octet(slot_bus);
    const std::uint8_t device = structure.octet(slot_device);
    if (structure.type() != slot_type || !has_address || (bus == none && device == none)) {
      continue;
    }
    std::array<char, 16> address{};
    std::snprintf(address.data(), address.size(), "%04x:%02x:%02x.%x", structure.word(slot_segment), bus, device >> 3,
                  device & 7U);
    slots.push_back(
        {.name = structure.text(slot_designation), .number = structure.word(slot_number), .address = address.data()});
  }
  return slots;
}

void enter_smbios(Inventory &inventory, std::span<const std::byte> table) {
  for (const SmbiosStructure &structure : smbios_structures(table)) {
    enter_structure(inventory, structure);
  }
}

std::vector<std::byte> smbios_table(const Roots &roots) {
  return file_content(roots.sys / "firmware/dmi/tables/DMI");
}

Finding SmbiosSource::read() {
  Inventory known = unknown_server();
  enter_smbios(known, smbios_table(roots_));
  Finding finding;
  finding.enter = [server = known.server, processors = known.processors, dimms = known.dimms](Inventory &inventory) {
    inventory.server = server;
    inventory.processors = processors;
    inventory.dimms = dimms;
  };
  add_missing({.group = "processor", .class_code = class_number::processor, .field = "socket", .name = "Processor "},
              known.processors, kept_, finding.troubles);
  add_missing({.group = "module", .class_code = class_number::memory, .field = "name", .name = "Memory module "},
              known.dimms, kept_, finding.troubles);
  return finding;
}

}  // namespace tavo::service
