#include "simulator/requests.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"
#include "simulator/control.h"
#include "simulator/queries.h"

namespace tavo::sim {
namespace {

using nlohmann::json;

constexpr int no_such_thing = 0xCB;  // IPMI: requested sensor, data or record not present
constexpr int cannot_tell = 0xFF;    // IPMI: unspecified error

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
    return {{"result", no_such_thing}};
  });
}

const Part *find_sensor(const Inventory &inventory, std::int64_t number) {
  const auto found =
      std::ranges::find_if(inventory.sensors, [&](const Part &s) { return s.number("number") == number; });
  return found != inventory.sensors.end() && found->flag("readable") ? &*found : nullptr;
}

json sensor(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    const Part *found = find_sensor(inventory, request.at("number").get<std::int64_t>());
    if (found == nullptr) {
      return {{"result", no_such_thing}};
    }
    return {{"result", 0}, {"record", binary(found->encoded())}};
  });
}

json presence(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    const Part *found = find_sensor(inventory, request.at("number").get<std::int64_t>());
    return {{"result", 0}, {"code", found != nullptr ? found->number("presence") : cannot_tell}};
  });
}

void put_text(Record &area, std::size_t offset, const std::string &text) {
  std::ranges::copy(std::as_bytes(std::span(text)).first(std::min<std::size_t>(text.size(), FRU_TEXT_SIZE)),
                    area.begin() + static_cast<std::ptrdiff_t>(offset));
}

json fru_board(Machine &machine, const json &request) {
  return machine.read([&](const Inventory &inventory) -> json {
    if (request.at("id") != FRU_ID_BOARD || !inventory.server.flag("board-readable")) {
      return {{"result", no_such_thing}};
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
    const auto instance = request.at("instance").get<std::int64_t>();
    if (request.at("type") != FRU_TYPE_POWER_SUPPLY || instance < 1 ||
        instance > static_cast<std::int64_t>(inventory.supplies.size())) {
      return {{"result", no_such_thing}};
    }
    const Part &supply = inventory.supplies[static_cast<std::size_t>(instance - 1)];
    if (!supply.flag("present") || !supply.flag("serial-readable")) {
      return {{"result", no_such_thing}};
    }
    Record area(FRU_PRODUCT_AREA_SIZE);
    put_text(area, FRU_PRODUCT_SERIAL, supply.text("serial"));
    return {{"result", 0}, {"record", binary(area)}};
  });
}

json fault_records(Machine &machine, const json &request) {
  const auto start = request.at("start").get<std::int64_t>();
  const auto count = request.at("count").get<std::int64_t>();
  if (start < 0 || count < 0) {
    return {{"result", no_such_thing}};
  }
  const auto records = machine.faults().records(static_cast<std::size_t>(start), static_cast<std::size_t>(count));
  if (!records) {
    return {{"result", no_such_thing}};
  }
  return {{"result", 0}, {"records", binary(*records)}};
}

// Entry i of the buffer is the part whose place() is i + 1.
Record buffer_of(const std::vector<Part> &parts, std::size_t size, auto place) {
  Record buffer(size);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const PartKind &kind = parts[i].kind();
    if (parts[i].flag("present")) {
      parts[i].encode(std::span(buffer).subspan((place(parts[i], i) - 1) * kind.record_size, kind.record_size));
    }
  }
  return buffer;
}

json velt(Machine &machine, const json &request) {
  const auto kind = request.at("kind").get<std::uint32_t>();
  return machine.read([&](const Inventory &inventory) -> json {
    const SdCards &sd = inventory.sd;
    if (request.at("controller") != "Veltro-0" || !sd.controller.flag("present")) {
      return {{"result", no_such_thing}};
    }
    switch (kind) {
      case VELT_REQUEST_CONTROLLER:
        return {{"result", 0}, {"record", binary(sd.controller.encoded())}};
      case VELT_REQUEST_CARDS:
        return {{"result", 0},
                {"record",
                 binary(buffer_of(sd.cards, VELT_CARDS_SIZE, [](const Part &, std::size_t i) { return i + 1; }))}};
      case VELT_REQUEST_PARTITIONS:
        return {{"result", 0},
                {"record", binary(buffer_of(sd.partitions, VELT_PARTITIONS_SIZE, [](const Part &part, auto) {
                   return static_cast<std::size_t>(part.number("number"));
                 }))}};
      default:
        return {{"result", no_such_thing}};
    }
  });
}

// What a front end has to do: print `output` and `diagnostic` after `delay` seconds, and exit with `exit`.
json tool(Machine &machine, const json &request) {
  const auto name = request.at("name").get<std::string>();
  const auto words = request.at("words").get<std::vector<std::string>>();
  const ToolMode mode = machine.tool(name);
  json reply{{"result", 0}, {"mode", static_cast<int>(mode.kind)}, {"delay", mode.seconds}, {"file", mode.file}};
  reply["exit"] = 0;
  machine.read([&](const Inventory &inventory) {
    if (name == "datactl") {
      constexpr std::string_view get = "get=";
      const bool asks = words.size() == 1 && words[0].starts_with(get);
      const auto output = asks ? query(inventory, std::string_view(words[0]).substr(get.size())) : std::nullopt;
      reply["output"] = output.value_or("");
      if (!output) {
        reply["exit"] = 1;
        reply["diagnostic"] = "usage: datactl get=KEY, where KEY is " + listed(query_keys());
      }
    } else if (name == "slotutil" && words == std::vector<std::string>{"-L"}) {
      reply["output"] = adapter_list(inventory);
    } else if (name == "ipmitool" && words == std::vector<std::string>{"-I", "bmc", "fru"}) {
      reply["output"] = fru_list(inventory);
    } else if (name != "flatkv") {
      reply["exit"] = 1;
      reply["diagnostic"] = name == "slotutil" ? "usage: slotutil -L" : "usage: ipmitool -I bmc fru";
    }
  });
  return reply;
}

struct Request {
  std::string_view call;
  json (*answer)(Machine &, const json &);
};

constexpr auto requests = std::to_array<Request>({
    {.call = "ping",
     .answer = [](Machine &, const json &) -> json {
       return {{"result", 0}};
     }},
    {.call = "processors",
     .answer =
         [](Machine &machine, const json &) {
           return machine.read([](const Inventory &inventory) { return present_records(inventory.processors); });
         }},
    {.call = "dimms",
     .answer =
         [](Machine &machine, const json &) {
           return machine.read([](const Inventory &inventory) { return present_records(inventory.dimms); });
         }},
    {.call = "dimm-number", .answer = dimm_number},
    {.call = "sensor", .answer = sensor},
    {.call = "presence", .answer = presence},
    {.call = "fru-board", .answer = fru_board},
    {.call = "fru-product", .answer = fru_product},
    {.call = "fault-count",
     .answer = [](Machine &machine, const json &) -> json {
       return {{"result", 0}, {"count", machine.faults().count()}};
     }},
    {.call = "faults", .answer = fault_records},
    {.call = "velt", .answer = velt},
    {.call = "tool", .answer = tool},
    {.call = "control",
     .answer = [](Machine &machine, const json &request) -> json {
       return {{"result", 0}, {"output", control(machine, request.at("words").get<std::vector<std::string>>())}};
     }},
});

}  // namespace

json answer(Machine &machine, const json &request) {
  try {
    const auto &call = request.at("call").get_ref<const std::string &>();
    const auto found = std::ranges::find(requests, call, &Request::call);
    if (found == requests.end()) {
      return {{"error", "unknown call '" + call + "'"}};
    }
    return found->answer(machine, request);
  } catch (const std::exception &error) {
    return {{"error", error.what()}};
  }
}

}  // namespace tavo::sim
