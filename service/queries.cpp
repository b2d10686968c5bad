#include "service/queries.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <nlohmann/json.hpp>

#include "service/affected.h"

namespace tavo::service {
namespace {

using nlohmann::ordered_json;  // readers rely on the order of the fields

std::string time_collected() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local);
  return {text.data(), length};
}

// One object for each part that is present. `fill` makes it from the part and its position, from 0.
template <class Fill>
ordered_json list_present(const std::vector<Part> &parts, Fill fill) {
  ordered_json list = ordered_json::array();
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (parts[i].flag("present")) {
      list.push_back(fill(parts[i], i));
    }
  }
  return list;
}

ordered_json processors(const Inventory &inventory) {
  return list_present(inventory.processors, [&](const Part &part, std::size_t position) {
    return ordered_json{{"id", row_of(inventory.processors, position)},
                        {"SocketDesignation", part.text("socket")},
                        {"Model", part.text("model")},
                        {"CoreCount", part.number("cores")},
                        {"CoreEnabled", part.number("cores-enabled")},
                        {"ThreadCount", part.number("threads")},
                        {"Status", part.text("status")}};
  });
}

// The number at the front of a text like "16 GB" or "2133 MHz"; 0 without one.
std::int64_t leading_number(const std::string &text) {
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

bool is_operable(const Part &dimm) {
  return dimm.flag("present") && dimm.text("status") == "Operable";
}

// The capacity of all modules that `counts`, as a text.
template <class Counts>
std::string capacity(const std::vector<Part> &dimms, Counts counts) {
  std::int64_t megabytes = 0;
  for (const Part &dimm : dimms) {
    if (counts(dimm)) {
      const std::string &text = dimm.text("capacity");
      megabytes += leading_number(text) * (text.ends_with("GB") ? 1024 : 1);
    }
  }
  return std::to_string(megabytes) + " MB";
}

std::string speed_of_slowest(const std::vector<Part> &dimms) {
  std::int64_t slowest = 0;
  for (const Part &dimm : dimms) {
    const std::int64_t speed = is_operable(dimm) ? leading_number(dimm.text("speed")) : 0;
    slowest = slowest == 0 || (speed != 0 && speed < slowest) ? speed : slowest;
  }
  return std::to_string(slowest) + " MHz";
}

ordered_json memory_summary(const Inventory &inventory) {
  const auto given_or = [&](std::string_view field, const std::string &otherwise) {
    const std::string &given = inventory.server.text(field);
    return given.empty() ? otherwise : given;
  };
  const auto is_present = [](const Part &dimm) { return dimm.flag("present"); };
  return {{"MemorySpeed", given_or("memory-speed", speed_of_slowest(inventory.dimms))},
          {"EffectiveMemory", given_or("memory-effective", capacity(inventory.dimms, is_operable))},
          {"TotalMemory", given_or("memory-total", capacity(inventory.dimms, is_present))}};
}

ordered_json supplies(const Inventory &inventory) {
  ordered_json list = ordered_json::array();
  for (std::size_t i = 0; i < inventory.supplies.size(); ++i) {
    const Part &part = inventory.supplies[i];
    ordered_json unit{{"id", i + 1}, {"presence", part.flag("present") ? "equipped" : "missing"}};
    if (part.flag("present")) {
      unit["model"] = part.text("model");
      unit["power"] = part.number("power") != 0 ? "on" : "off";
      unit["fwVersion"] = part.text("revision");
      unit["serial"] = part.text("serial");
    }
    list.push_back(unit);
  }
  return list;
}

ordered_json adapters(const Inventory &inventory) {
  return list_present(inventory.adapters, [](const Part &part, std::size_t) {
    return ordered_json{
        {"slot-number", part.number("slot")},     {"product-id", part.text("product-id")},
        {"i2cLogicalBus", part.text("i2c-bus")},  {"serial-number", part.text("serial")},
        {"hw-part-no", part.text("part-number")}, {"overtemp-condition", part.flag("over-temperature") ? "yes" : "no"}};
  });
}

// The firmware images of the card in this slot; nothing if the slot is empty.
std::optional<ordered_json> adapter_firmware(const Inventory &inventory, std::string_view slot) {
  for (const Part &part : inventory.adapters) {
    if (part.flag("present") && std::to_string(part.number("slot")) == slot) {
      ordered_json images = ordered_json::array();
      images.push_back({{"image-version", part.text("running-version")}, {"image-state", "STARTUP, RUNNING"}});
      images.push_back({{"image-version", part.text("backup-version")}, {"image-state", "BACKUP"}});
      return images;
    }
  }
  return std::nullopt;
}

ordered_json leds(const Inventory &inventory) {
  ordered_json list = ordered_json::array();
  for (std::size_t i = 0; i < inventory.leds.size(); ++i) {
    const Part &part = inventory.leds[i];
    list.push_back({{"id", i + 1},
                    {"ledName", part.text("name")},
                    {"ledState", part.text("state")},
                    {"ledColor", part.text("color")}});
  }
  return list;
}

// `number_of` gives a part's id from its position: the number by which the module's tables know the part.
template <class NumberOf>
ordered_json temperatures(const std::vector<Part> &parts, NumberOf number_of) {
  const std::string now = time_collected();
  return list_present(parts, [&](const Part &part, std::size_t position) {
    return ordered_json{
        {"id", number_of(parts, position)}, {"temperature", part.text("temperature")}, {"timeCollected", now}};
  });
}

ordered_json processor_temperatures(const Inventory &inventory) {
  return temperatures(inventory.processors, row_of);
}

ordered_json memory_temperatures(const Inventory &inventory) {
  return temperatures(inventory.dimms, dimm_number);
}

ordered_json board_readings(const Inventory &inventory) {
  const Part &readings = inventory.environment;
  return {{"consumedPower", readings.text("power")},  {"inputCurrent", readings.text("current")},
          {"inputVoltage", readings.text("voltage")}, {"ambientTemp", readings.text("ambient")},
          {"frontTemp", readings.text("front")},      {"iohub1Temp", readings.text("iohub1")},
          {"iohub2Temp", readings.text("iohub2")},    {"rearTemp", readings.text("rear")},
          {"timeCollected", time_collected()}};
}

struct Query {
  std::string_view key;
  ordered_json (*answer)(const Inventory &);
};

constexpr auto queries = std::to_array<Query>({
    {.key = "inventoryCPU", .answer = processors},
    {.key = "inventoryMemorySummary", .answer = memory_summary},
    {.key = "description",
     .answer = [](const Inventory &i) -> ordered_json {
       return {{"description", i.server.text("description")}};
     }},
    {.key = "sysProductName",
     .answer = [](const Inventory &i) -> ordered_json {
       return {{"sysProductName", i.server.text("product-name")}};
     }},
    {.key = "sysProductID",
     .answer = [](const Inventory &i) -> ordered_json {
       return {{"sysProductID", i.server.text("product-id")}};
     }},
    {.key = "UUID",
     .answer = [](const Inventory &i) -> ordered_json {
       return {{"UUID", i.server.text("uuid")}};
     }},
    {.key = "pwState",
     .answer = [](const Inventory &i) -> ordered_json {
       return {{"pwState", i.server.number("power")}};
     }},
    {.key = "tavPowerStates", .answer = supplies},
    {.key = "adapter", .answer = adapters},
    {.key = "externalLEDs", .answer = leds},
    {.key = "memoryStats", .answer = memory_temperatures},
    {.key = "processorStats", .answer = processor_temperatures},
    {.key = "motherboardStats", .answer = board_readings},
    {.key = "platformSkuType",
     .answer = [](const Inventory &i) -> ordered_json {
       return {{"sku", i.server.text("product-id")}, {"hdd", i.server.number("drive-slots")}};
     }},
});

constexpr std::string_view firmware_key = "adapterFW[";  // then a slot and "]"

// Appends a line for each field of `value`. An element of a list goes by the list's name.
void flatten(const ordered_json &value, const std::string &name, std::string &lines) {
  if (value.is_object()) {
    for (const auto &[key, member] : value.items()) {
      flatten(member, key, lines);
    }
  } else if (value.is_array()) {
    for (const ordered_json &element : value) {
      flatten(element, name, lines);
    }
  } else if (!name.empty()) {
    lines += ' ' + name + ": " + (value.is_string() ? value.get<std::string>() : value.dump()) + '\n';
  }
}

// Texts may hold octets that are not UTF-8.
std::string printed(const ordered_json &value) {
  return value.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace

std::optional<std::string> query(const Inventory &inventory, std::string_view key) {
  if (key.starts_with(firmware_key) && key.ends_with(']')) {
    const auto images =
        adapter_firmware(inventory, key.substr(firmware_key.size(), key.size() - firmware_key.size() - 1));
    return images ? std::optional(printed(*images)) : std::nullopt;
  }
  const auto found = std::ranges::find(queries, key, &Query::key);
  if (found == queries.end()) {
    return std::nullopt;
  }
  const ordered_json answer = found->answer(inventory);
  // The readers take a dump without any line for a tool that failed, and try it again for half a minute.
  return printed(answer.is_array() && answer.empty() ? ordered_json{{"count", 0}} : answer);
}

std::vector<std::string_view> query_keys() {
  std::vector<std::string_view> keys(queries.size());
  std::ranges::transform(queries, keys.begin(), &Query::key);
  keys.push_back("adapterFW[SLOT]");
  return keys;
}

std::optional<std::string> flattened(std::string_view json) {
  // flatten() calls itself for each level.
  constexpr int deepest = 64;
  const auto is_within = [](int depth, ordered_json::parse_event_t, const ordered_json &) { return depth <= deepest; };
  const ordered_json value = ordered_json::parse(json, is_within, false);
  if (value.is_discarded()) {
    return std::nullopt;
  }
  std::string lines;
  flatten(value, "", lines);
  return lines;
}

std::string adapter_list(const Inventory &inventory) {
  std::string text;
  for (const Part &part : inventory.adapters) {
    if (part.flag("present")) {
      text += "slot-number: " + std::to_string(part.number("slot")) + '\n';
      text += "  product-id: " + part.text("product-id") + '\n';
      text += "  serial: " + part.text("serial") + '\n';
    }
  }
  return text;
}

std::string fru_list(const Inventory &inventory) {
  const Part &server = inventory.server;
  return "FRU Device Description : Builtin FRU Device (ID 0)\n"
         " Board Mfg             : " +
         server.text("board-manufacturer") +
         "\n"
         " Board Product         : " +
         server.text("board-product") +
         "\n"
         " Board Serial          : " +
         server.text("board-serial") +
         "\n"
         " Product Name          : " +
         server.text("product-name") +
         "\n"
         " Product Part Number   : " +
         server.text("product-id") +
         "\n"
         " Product Serial        : " +
         server.text("serial") + "\n";
}

}  // namespace tavo::service
