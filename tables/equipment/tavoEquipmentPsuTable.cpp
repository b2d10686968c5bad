#include "tables/equipment/tavoEquipmentPsuTable.h"

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
#include "core/record.h"
#include "core/text.h"
#include "core/zeroed.h"
#include "platform/fru.h"
#include "sources/tool_dump.h"

namespace tavo {

std::byte m_pwrsupply[most_power_supplies][power_supply_size] = {};

namespace {

using Row = EquipmentPsuRow;

constexpr auto root = table_root(15, 56);

TAVO_COLUMNS(tavoEquipmentPsuTable, Row, dn, rn, interval_counter, id, model, operability, oper_state, perf, power,
             presence, firmware_version, serial, thermal, vendor, voltage);

constexpr auto refresh_rules = std::to_array<RefreshRule>({
    {.cause = RefreshCause::PowerSupplies, .place = 1},
    {.cause = RefreshCause::Periodic, .place = 5, .only_first = 3},
});

constexpr TableDescription description = {
    .name = "tavoEquipmentPsuTable",
    .root = root,
    .lock = ev_lock<56>,
    .columns = columns,
    .row = layout_of<Row>(),
    .build = initialize_psu_table,
    .refresh = refresh_rules,
    .started = "PSU Init done\n",
    .keeps_registration = false,
};

}  // namespace

TAVO_DEFINE_TABLE(tavoEquipmentPsuTable, Row, description)

namespace {

// A larger count is garbage, and its rows would take too long.
constexpr std::int32_t most_rows = 255;

constexpr char dump_source[] = "tavPowerStates";
constinit ToolDump tool_dump("/var/getPSUInventory", platform_tools);

void set_states(Row &row, std::int32_t operability, std::int32_t oper_state, std::int32_t power) {
  row.operability = operability;
  row.oper_state = oper_state;
  row.power = power;
}

void name_row(Row &row, int supply) {
  // The lengths with a one-digit number; managers expect at most these.
  constexpr std::size_t dn_kept = 21;
  constexpr std::size_t rn_kept = 5;
  format_text(row.dn, dn_kept + 1, "sys/rack-unit-1/psu-%d", supply);
  format_text(row.rn, rn_kept + 1, "psu-%d", supply);
  row.id = static_cast<std::uint32_t>(supply);
}

using SupplyOctets = std::span<std::byte, power_supply_size>;

// One of the PMBus daemon's files about a supply. `number` counts from 0.
class SupplyFile {
 public:
  SupplyFile(const char *name, int number) { format_text(path_, "/var/pmbus/ps%d/%s", number, name); }

  bool exists() const { return ::access(path_, F_OK) == 0; }
  // See read_beginning.
  ssize_t read(std::span<std::byte> to) const { return read_beginning(path_, to); }
  // Fills `to` from the file. If the file is shorter or unreadable, sets every octet to `missing` and returns false.
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

// Reads the files of a supply that is present. 0; or if the model file is short, how many octets it has, or -1 if it
// cannot be opened.
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

// Makes the row of a supply, counted from 1. `result` becomes read_supply's if the supply is present.
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

// Prints a function's result on standard output, and returns it.
int reported(const char *function, int result) {
  std::printf("%s(%d)\n", function, result);
  return result;
}

// Has the tool write its dump, in up to three tries. The number of supplies in it, or empty.
std::optional<int> count_supplies_of_tool() {
  char count[dump_value_size];
  tool_dump.forget();
  if (!tool_dump.await([&] { return getPSU("id:", " ", count) == 1; }, 3)) {
    return std::nullopt;
  }
  return leading_number_or(0, count);
}

// The fields of the supplies in the tool's dump.
struct SupplyFields {
  explicit SupplyFields(const Dump &dump)
      : id(dump, "id:", " "),
        presence(dump, "presence:", " "),
        model(dump, "model:", " "),
        power(dump, "power:", " "),
        firmware_version(dump, "fwVersion:", " "),
        serial(dump, "serial:", " ") {}

  Dump::Search id;
  Dump::Search presence;
  Dump::Search model;
  Dump::Search power;
  Dump::Search firmware_version;
  Dump::Search serial;
};

// Fills the row of the n-th supply in the dump. `supply` becomes its number, or stays as it is if the dump has none.
// False if the supply is not equipped.
bool fill_from_tool(Row &row, SupplyFields &fields, int n, int &supply) {
  char text[dump_value_size];
  if (fields.id.value(n, text)) {
    supply = leading_number_or(supply, text);
  }
  if (!fields.presence.value(n, text) || ::strcasecmp(text, "equipped") != 0) {
    return false;
  }
  row = {};
  name_row(row, supply);
  fields.model.value(n, row.model, sizeof row.model);
  if (fields.power.value(n, text) && ::strcasecmp(text, "on") == 0) {
    set_states(row, 1, 1, 4);
  } else {
    set_states(row, 5, 3, 5);
  }
  row.presence = 10;
  fields.firmware_version.value(n, row.firmware_version, sizeof row.firmware_version);
  fields.serial.value(n, row.serial, sizeof row.serial);
  copy_text(row.vendor, "unknown");
  return true;
}

}  // namespace

int initialize_psu_table(int refresh) {
  const Rebuild rebuild(table, refresh);
  if (rebuild.error() != 0) {
    return 1;
  }
  const auto row = make_zeroed<EquipmentPsuRow>();
  if (row == nullptr) {
    return -1;
  }
  return InventoryPSUviaPMBUSDaemon(row.get(), refresh) == 0 ? 1 : -1;
}

int InventoryPSUviaPMBUSDaemon(EquipmentPsuRow *scratch, int) {
  constexpr char count_path[] = "/var/pmbus/num_psu";
  std::memset(m_pwrsupply, 0, sizeof m_pwrsupply);
  std::printf("%s\n", __func__);
  ::sleep(5);

  if (::access(count_path, F_OK) != 0) {
    std::printf("NUM_PSU_FILE not found %s\n", std::strerror(errno));
    return reported(__func__, -1);
  }
  std::int32_t count = 0;
  const ssize_t got = read_beginning(count_path, std::as_writable_bytes(std::span(&count, 1)));
  if (got != 0 && got != sizeof count) {
    return reported(__func__, static_cast<int>(got));
  }
  int result = 0;
  for (int supply = 1; supply <= std::min(count, most_rows); ++supply) {
    add_row(*scratch, supply, result);
  }
  return reported(__func__, result);
}

int InventoryPSUviaMCTools(EquipmentPsuRow *scratch) {
  const auto count = count_supplies_of_tool();
  if (!count) {
    return -1;
  }
  const Dump dump = tool_dump.read_without_tool();
  SupplyFields fields(dump);
  int supply = 0;
  std::uint32_t row_number = 1;
  for (int n = 1; n <= *count; ++n) {
    if (fill_from_tool(*scratch, fields, n, supply)) {
      tavoEquipmentPsuTable_createEntry(row_number++, scratch);
    }
  }
  return 0;
}

int getPSU(const char *key, const char *suffix, char *out) {
  return tool_dump.count(dump_source, key, suffix, out) ? 1 : 0;
}

int getPSUData(const char *key, const char *suffix, int occurrence, char *out) {
  return tool_dump.value_without_tool(key, suffix, occurrence, out) ? 1 : 0;
}

}  // namespace tavo
