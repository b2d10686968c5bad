#include "service/requests.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"
#include "service/completion_code.h"
#include "service/control.h"
#include "service/protocol.h"
#include "service/queries.h"

namespace tavo::service {
namespace {

using nlohmann::json;

json refused() {
  return {{"result", no_such_record}};
}

// A number of the request. Not get<>() alone, which also converts what is not a whole number, however large.
std::int64_t integer(const json &request, const char *name) {
  const json &number = request.at(name);
  if (!number.is_number_integer()) {
    throw BadInput(std::string(name) + ": a whole number is expected");
  }
  return number.get<std::int64_t>();
}

json binary(const Record &record) {
  const auto *octets = reinterpret_cast<const std::uint8_t *>(record.data());
  return json::binary(std::vector<std::uint8_t>(octets, octets + record.size()));
}

json present_records(const std::vector<Part> &parts) {
  Record records;
  std::size_t count = 0;
  for (const Part &part : parts) {
    if (part.flag("present")) {
      const Record record = part.encoded();
      records.insert(records.end(), record.begin(), record.end());
      ++count;
    }
  }
  return {{"result", 0}, {"count", count}, {"records", binary(records)}};
}

json dimm_number(Machine &machine, const json &request) {
  const auto name = request.at("name").get<std::string>();
  return machine.read([&](const Inventory &inventory) -> json {
    for (const Part &dimm : inventory.dimms) {
      if (dimm.text("name") == name && dimm.number("number") != 0) {
        return {{"result", 0}, {"number", dimm.number("number")}};
      }
    }
    return refused();
  });
}

// Null if there is no such sensor or it cannot be read.
const Part *find_sensor(const Inventory &inventory, std::int64_t number) {
  const auto found =
      std::ranges::find_if(inventory.sensors, [&](const Part &s) { return s.number("number") == number; });
  return found != inventory.sensors.end() && found->flag("readable") ? &*found : nullptr;
}

json sensor(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    const Part *found = find_sensor(inventory, integer(request, "number"));
    if (found == nullptr) {
      return refused();
    }
    return {{"result", 0}, {"record", binary(found->encoded())}};
  });
}

json presence(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    const Part *found = find_sensor(inventory, integer(request, "number"));
    return {{"result", 0}, {"code", found != nullptr ? found->number("presence") : unspecified_error}};
  });
}

void put_text(Record &area, std::size_t offset, const std::string &text) {
  std::ranges::copy(std::as_bytes(std::span(text)).first(std::min<std::size_t>(text.size(), FRU_TEXT_SIZE)),
                    area.begin() + static_cast<std::ptrdiff_t>(offset));
}

json fru_board(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    if (request.at("id") != FRU_ID_BOARD || !inventory.server.flag("board-readable")) {
      return refused();
    }
    Record area(FRU_BOARD_AREA_SIZE);
    put_text(area, FRU_BOARD_MANUFACTURER, inventory.server.text("board-manufacturer"));
    put_text(area, FRU_BOARD_PRODUCT_NAME, inventory.server.text("board-product"));
    put_text(area, FRU_BOARD_SERIAL, inventory.server.text("board-serial"));
    return {{"result", 0}, {"record", binary(area)}};
  });
}

json fru_product(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    const auto instance = integer(request, "instance");
    if (request.at("type") != FRU_TYPE_POWER_SUPPLY || instance < 1 ||
        instance > static_cast<std::int64_t>(inventory.supplies.size())) {
      return refused();
    }
    const Part &supply = inventory.supplies[static_cast<std::size_t>(instance - 1)];
    if (!supply.flag("present") || !supply.flag("serial-readable")) {
      return refused();
    }
    Record area(FRU_PRODUCT_AREA_SIZE);
    put_text(area, FRU_PRODUCT_SERIAL, supply.text("serial"));
    return {{"result", 0}, {"record", binary(area)}};
  });
}

json fault_records(Machine &machine, const json &request) {
  const auto start = integer(request, "start");
  const auto count = integer(request, "count");
  if (start < 0 || count < 0) {
    return refused();
  }
  const auto records = machine.faults().records(static_cast<std::size_t>(start), static_cast<std::size_t>(count));
  if (!records) {
    return refused();
  }
  return {{"result", 0}, {"records", binary(*records)}};
}

// `octets` with every part that is present at the place that its number, from 1, gives it.
Record numbered_records(const std::vector<Part> &parts, std::string_view number, std::size_t octets) {
  Record records(octets);
  for (const Part &part : parts) {
    if (part.flag("present")) {
      const std::size_t size = part.kind().record_size;
      part.encode(std::span(records).subspan(static_cast<std::size_t>(part.number(number) - 1) * size, size));
    }
  }
  return records;
}

// The buffer that a request of this kind asks for; nothing if the kind is unknown.
std::optional<Record> sd_buffer(const SdCards &sd, std::uint32_t kind) {
  switch (kind) {
    case VELT_REQUEST_CONTROLLER:
      return sd.controller.encoded();
    case VELT_REQUEST_CARDS:
      return numbered_records(sd.cards, "slot", VELT_CARDS_SIZE);
    case VELT_REQUEST_PARTITIONS:
      return numbered_records(sd.partitions, "number", VELT_PARTITIONS_SIZE);
    default:
      return std::nullopt;
  }
}

json sd_cards(Machine &machine, const json &request) {
  constexpr const char *only_controller = "Veltro-0";
  const auto kind = static_cast<std::uint32_t>(integer(request, "kind"));
  return machine.read([&](const Inventory &inventory) -> json {
    if (request.at("controller") != only_controller || !inventory.sd.controller.flag("present")) {
      return refused();
    }
    const auto buffer = sd_buffer(inventory.sd, kind);
    if (!buffer) {
      return refused();
    }
    return {{"result", 0}, {"record", binary(*buffer)}};
  });
}

// What a query tool prints; nothing if it does not know the words. flatkv reads its own standard input and needs
// nothing from the simulator.
std::optional<std::string> tool_output(const Inventory &inventory, const std::string &name,
                                       const std::vector<std::string> &words) {
  constexpr std::string_view get = "get=";
  if (name == "datactl" && words.size() == 1 && words[0].starts_with(get)) {
    return query(inventory, std::string_view(words[0]).substr(get.size()));
  }
  if (name == "slotutil" && words == std::vector<std::string>{"-L"}) {
    return adapter_list(inventory);
  }
  if (name == "ipmitool" && words == std::vector<std::string>{"-I", "bmc", "fru"}) {
    return fru_list(inventory);
  }
  return name == "flatkv" ? std::optional<std::string>("") : std::nullopt;
}

std::string tool_usage(const std::string &name) {
  if (name == "datactl") {
    return "usage: datactl get=KEY, where KEY is " + joined(query_keys());
  }
  return name == "slotutil" ? "usage: slotutil -L" : "usage: ipmitool -I bmc fru";
}

// What a query tool has to do: behave as `mode` says, with `delay` or `file`, print `output` and `diagnostic`, and exit
// with `exit`.
json tool(Machine &machine, const json &request) {
  const auto name = request.at("name").get<std::string>();
  const auto words = request.at("words").get<std::vector<std::string>>();
  const ToolMode mode = machine.tool(name);
  const auto output = machine.read([&](const Inventory &inventory) { return tool_output(inventory, name, words); });
  return {
      {"result", 0},           {"mode", static_cast<int>(mode.kind)}, {"delay", mode.seconds},
      {"file", mode.file},     {"output", output.value_or("")},       {"diagnostic", output ? "" : tool_usage(name)},
      {"exit", output ? 0 : 1}};
}

struct Request {
  std::string_view name;
  json (*answer)(Machine &, const json &);
};

constexpr auto requests = std::to_array<Request>({
    {.name = call::ping,
     .answer = [](Machine &, const json &) -> json {
       return {{"result", 0}};
     }},
    {.name = call::processors,
     .answer =
         [](Machine &machine, const json &) {
           return machine.read([](const Inventory &inventory) { return present_records(inventory.processors); });
         }},
    {.name = call::dimms,
     .answer =
         [](Machine &machine, const json &) {
           return machine.read([](const Inventory &inventory) { return present_records(inventory.dimms); });
         }},
    {.name = call::dimm_number, .answer = dimm_number},
    {.name = call::sensor, .answer = sensor},
    {.name = call::presence, .answer = presence},
    {.name = call::fru_board, .answer = fru_board},
    {.name = call::fru_product, .answer = fru_product},
    {.name = call::fault_count,
     .answer = [](Machine &machine, const json &) -> json {
       return {{"result", 0}, {"count", machine.faults().count()}};
     }},
    {.name = call::faults, .answer = fault_records},
    {.name = call::sd_cards, .answer = sd_cards},
    {.name = call::tool, .answer = tool},
    {.name = call::control,
     .answer = [](Machine &machine, const json &request) -> json {
       return {{"result", 0}, {"output", control(machine, request.at("words").get<std::vector<std::string>>())}};
     }},
});

}  // namespace

json answer(Machine &machine, const json &request) {
  try {
    const auto &name = request.at("call").get_ref<const std::string &>();
    const auto found = std::ranges::find(requests, name, &Request::name);
    if (found == requests.end()) {
      return {{"error", "unknown call '" + name + "'"}};
    }
    return found->answer(machine, request);
  } catch (const std::exception &error) {
    return {{"error", error.what()}};
  }
}

}  // namespace tavo::service
