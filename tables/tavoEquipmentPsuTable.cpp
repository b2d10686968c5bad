#include "tables/tavoEquipmentPsuTable.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>

#include "core/descriptor.h"
#include "core/dump.h"
#include "core/record.h"
#include "core/shell.h"
#include "core/table.h"
#include "core/table_entry_points.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/fru.h"

tavo::EquipmentPsuRow *tavoEquipmentPsuTable_head = nullptr;
std::byte m_pwrsupply[tavo::most_power_supplies][tavo::power_supply_size] = {};

namespace tavo {
namespace {

using Row = EquipmentPsuRow;

constexpr std::array<oid, 12> root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 1, 15, 56};

// clang-format off
constexpr auto columns = checked(std::to_array<Column>({
    {.number = 2, .codec = Codec::text, .field = field<decltype(Row::dn)>(offsetof(Row, dn))},
    {.number = 3, .codec = Codec::text, .field = field<decltype(Row::rn)>(offsetof(Row, rn))},
    {.number = 4, .codec = Codec::counter64, .field = field<decltype(Row::interval_counter)>(offsetof(Row, interval_counter))},
    {.number = 5, .codec = Codec::gauge, .field = field<decltype(Row::id)>(offsetof(Row, id))},
    {.number = 6, .codec = Codec::text, .field = field<decltype(Row::model)>(offsetof(Row, model))},
    {.number = 7, .codec = Codec::integer, .field = field<decltype(Row::operability)>(offsetof(Row, operability))},
    {.number = 8, .codec = Codec::integer, .field = field<decltype(Row::oper_state)>(offsetof(Row, oper_state))},
    {.number = 9, .codec = Codec::integer, .field = field<decltype(Row::zero_9)>(offsetof(Row, zero_9))},
    {.number = 10, .codec = Codec::integer, .field = field<decltype(Row::power)>(offsetof(Row, power))},
    {.number = 11, .codec = Codec::integer, .field = field<decltype(Row::presence)>(offsetof(Row, presence))},
    {.number = 12, .codec = Codec::text, .field = field<decltype(Row::firmware_version)>(offsetof(Row, firmware_version))},
    {.number = 13, .codec = Codec::text, .field = field<decltype(Row::serial)>(offsetof(Row, serial))},
    {.number = 14, .codec = Codec::integer, .field = field<decltype(Row::zero_14)>(offsetof(Row, zero_14))},
    {.number = 15, .codec = Codec::text, .field = field<decltype(Row::vendor)>(offsetof(Row, vendor))},
    {.number = 16, .codec = Codec::integer, .field = field<decltype(Row::zero_16)>(offsetof(Row, zero_16))},
}));
// clang-format on

constexpr TableDescription description = {
    .name = "tavoEquipmentPsuTable",
    .root = root,
    .lock = ListLock::ev(56),
    .columns = columns,
    .row = layout_of<Row>(),
    .keeps_registration = false,
};

constinit Table table(description, &tavoEquipmentPsuTable_head);

// A count beyond this is not one; nobody would wait for the rows.
constexpr std::int32_t most_rows = 255;

// The query tool's dump, and what writes it.
constexpr char dump_path[] = "/var/getPSUInventory";
constexpr char dump_command[] =
    "/usr/local/bin/datactl get=tavPowerStates | /usr/local/bin/flatkv > /var/getPSUInventory";
bool dump_is_fresh = false;  // the command has run since the last time that it was found to have failed

void set_states(Row &row, std::int32_t operability, std::int32_t oper_state, std::int32_t power) {
  row.operability = operability;
  row.oper_state = oper_state;
  row.power = power;
}

void name_row(Row &row, int supply) {
  // The lengths with a number of one digit; managers know no longer names.
  constexpr std::size_t dn_kept = 21;
  constexpr std::size_t rn_kept = 5;
  format_text(row.dn, dn_kept + 1, "sys/rack-unit-1/psu-%d", supply);
  format_text(row.rn, rn_kept + 1, "psu-%d", supply);
  row.id = static_cast<std::uint32_t>(supply);
}

using SupplyOctets = std::span<std::byte, power_supply_size>;

// One file of the PMBus daemon for one supply. `number` counts from 0.
class SupplyFile {
 public:
  SupplyFile(const char *name, int number) { format_text(path_, "/var/pmbus/ps%d/%s", number, name); }

  bool exists() const { return ::access(path_, F_OK) == 0; }
  // As read_beginning.
  ssize_t read(std::span<std::byte> to) const { return read_beginning(path_, to); }
  // Nothing less than all octets of `to`; otherwise each of them becomes `missing`.
  bool read_whole(std::span<std::byte> to, std::byte missing) const {
    const bool whole = read(to) == std::ssize(to);
    if (!whole) {
      std::ranges::fill(to, missing);
    }
    return whole;
  }

 private:
  char path_[64];
};

// Reads the files of a supply that is there. 0, or what a read of its model brought that was too short.
int read_supply(SupplyOctets supply, int number) {
  char name[64];
  format_text(name, "PSU%d", number);
  std::memcpy(supply.data() + power_supply_name, name, std::strlen(name) + 1);

  std::array<std::byte, 2> status;
  const bool good = SupplyFile("status", number).read_whole(status, std::byte{0xFF}) && status[0] == std::byte{0} &&
                    status[1] == std::byte{0};
  supply[power_supply_fault] = good ? std::byte{0} : std::byte{1};
  if (good) {
    SupplyFile("pin", number).read_whole(supply.subspan<power_supply_input, 2>(), std::byte{0});
    SupplyFile("poutmax", number).read_whole(supply.subspan<power_supply_max_power, 2>(), std::byte{0xFF});
  }
  const auto revision = supply.subspan<power_supply_revision, 8>();
  if (!SupplyFile("rev", number).read_whole(revision, std::byte{0})) {
    std::memcpy(revision.data(), "00.00.00", revision.size());
  }
  const auto model = supply.subspan<power_supply_model, 32>();
  const ssize_t got = SupplyFile("model", number).read(model);
  return got == std::ssize(model) ? 0 : static_cast<int>(got);
}

void copy_serial(Row &row, int supply) {
  std::array<std::byte, FRU_PRODUCT_AREA_SIZE> area = {};
  if (get_fru_product_area_from_type_instance(FRU_TYPE_POWER_SUPPLY, supply, area.data()) == 0) {
    copy_text(row.serial, Record(area).text(FRU_PRODUCT_SERIAL, FRU_TEXT_SIZE - 1));
  } else {
    copy_text(row.serial, "UNKNOWN");
  }
}

// Makes a supply's row, counted from 1. `result` changes with a supply that is there, as read_supply tells.
void add_row(Row &row, int supply, int &result) {
  const int number = supply - 1;
  std::array<std::byte, power_supply_size> unkept = {};
  const bool is_kept = supply <= static_cast<int>(most_power_supplies);
  const SupplyOctets octets = is_kept ? SupplyOctets(m_pwrsupply[number]) : SupplyOctets(unkept);

  row = {};
  name_row(row, supply);
  if (SupplyFile("status", number).exists()) {
    result = read_supply(octets, number);
    if (octets[power_supply_fault] == std::byte{0}) {
      set_states(row, 1, 1, 4);
    } else {
      set_states(row, 5, 3, 5);
    }
    row.presence = 10;
  } else {
    set_states(row, 6, 6, 6);
    row.presence = 11;
  }
  const Record record(octets);
  copy_text(row.model, record.text(power_supply_model, 32));
  copy_text(row.firmware_version, record.text(power_supply_revision, 8));
  copy_serial(row, supply);
  copy_text(row.vendor, "unknown");
  tavoEquipmentPsuTable_createEntry(static_cast<std::uint32_t>(supply), &row);
}

// The result of a function that tells it on standard output.
int reported(const char *function, int result) {
  std::printf("%s(%d)\n", function, result);
  return result;
}

// Fetches the dump, trying again while the tool brings none. The number of supplies, or empty.
std::optional<int> count_supplies_of_tool() {
  dump_is_fresh = false;
  for (int attempt = 0; attempt < 3; ++attempt) {
    char count[dump_value_size] = {};
    if (getPSU("id:", " ", count) == 1) {
      return leading_number(count).value_or(0);
    }
    ::sleep(5);
    dump_is_fresh = false;
  }
  return std::nullopt;
}

// Fills the row of the supply that stands at place `n` of the dump. `supply` keeps its number when the dump has none.
// False when it is not equipped.
bool fill_from_tool(Row &row, Dump &dump, int n, int &supply) {
  char text[dump_value_size] = {};
  const auto read = [&](const char *key) { return dump.value(Needle(key, " "), n, text); };
  if (read("id:")) {
    supply = leading_number(text).value_or(supply);
  }
  if (!read("presence:") || ::strcasecmp(text, "equipped") != 0) {
    return false;
  }
  row = {};
  name_row(row, supply);
  if (read("model:")) {
    copy_text(row.model, text);
  }
  if (read("power:") && ::strcasecmp(text, "on") == 0) {
    set_states(row, 1, 1, 4);
  } else {
    set_states(row, 5, 3, 5);
  }
  row.presence = 10;
  if (read("fwVersion:")) {
    copy_text(row.firmware_version, text);
  }
  if (read("serial:")) {
    copy_text(row.serial, text);
  }
  copy_text(row.vendor, "unknown");
  return true;
}

}  // namespace
}  // namespace tavo

TAVO_TABLE_ENTRY_POINTS(tavoEquipmentPsuTable, tavo::EquipmentPsuRow, tavo::table)

int initialize_table_tavoEquipmentPsuTable(void) {
  tavo::table.trace_entry(__func__, __LINE__);
  tavo::table.register_with({.handler = tavoEquipmentPsuTable_handler,
                             .first_row = tavoEquipmentPsuTable_get_first_data_point,
                             .next_row = tavoEquipmentPsuTable_get_next_data_point});
  return initialize_psu_table(0);
}

int initialize_psu_table(int mode) {
  const tavo::ListGuard guard(tavo::table.lock());
  if (guard.error() != 0) {
    return 1;
  }
  if (mode == 1) {
    tavoEquipmentPsuTable_removeAllEntries();
  }
  const auto row = tavo::make_zeroed<tavo::EquipmentPsuRow>();
  if (row == nullptr) {
    return -1;
  }
  return InventoryPSUviaPMBUSDaemon(row.get(), mode) == 0 ? 1 : -1;
}

int InventoryPSUviaPMBUSDaemon(tavo::EquipmentPsuRow *scratch, int) {
  constexpr char count_path[] = "/var/pmbus/num_psu";
  std::memset(m_pwrsupply, 0, sizeof m_pwrsupply);
  std::printf("%s\n", __func__);
  ::sleep(5);

  if (::access(count_path, F_OK) != 0) {
    std::printf("NUM_PSU_FILE not found %s\n", std::strerror(errno));
    return tavo::reported(__func__, -1);
  }
  std::int32_t count = 0;
  const ssize_t got = tavo::read_beginning(count_path, std::as_writable_bytes(std::span(&count, 1)));
  if (got != 0 && got != sizeof count) {
    return tavo::reported(__func__, static_cast<int>(got));
  }
  int result = 0;
  for (int supply = 1; supply <= std::min(count, tavo::most_rows); ++supply) {
    tavo::add_row(*scratch, supply, result);
  }
  return tavo::reported(__func__, result);
}

int InventoryPSUviaMCTools(tavo::EquipmentPsuRow *scratch) {
  const auto count = tavo::count_supplies_of_tool();
  if (!count) {
    return -1;
  }
  tavo::Dump dump(tavo::dump_path);
  int supply = 0;
  std::uint32_t row_number = 1;
  for (int n = 1; n <= *count; ++n) {
    if (tavo::fill_from_tool(*scratch, dump, n, supply)) {
      tavoEquipmentPsuTable_createEntry(row_number++, scratch);
    }
  }
  return 0;
}

int getPSU(const char *key, const char *suffix, char *out) {
  if (!tavo::dump_is_fresh) {
    tavo::run_in_shell(tavo::dump_command);
    tavo::dump_is_fresh = true;
  }
  tavo::Dump dump(tavo::dump_path);
  if (!dump.opened()) {
    return 0;
  }
  tavo::format_text(out, tavo::dump_value_size, "%d", dump.count(tavo::Needle(key, suffix)));
  return 1;
}

int getPSUData(const char *key, const char *suffix, int occurrence, char *out) {
  tavo::Dump dump(tavo::dump_path);
  return dump.value(tavo::Needle(key, suffix), occurrence, out) ? 1 : 0;
}
