#include "simulator/scenario.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "platform/storage_client.h"
#include "platform/storage_snapshot.h"

namespace tavo::service {
namespace {

// What is being read, for error messages.
struct Place {
  std::string file;
  std::string part;  // "processors[1]"; empty: the whole scenario

  Place within(std::string_view key) const {
    return {.file = file, .part = part.empty() ? std::string(key) : part + '.' + std::string(key)};
  }
  Place item(std::size_t position) const { return {.file = file, .part = part + '[' + std::to_string(position) + ']'}; }
};

[[noreturn]] void fail(const Place &place, const YAML::Mark &mark, const std::string &what) {
  const std::string line = mark.is_null() ? "" : ':' + std::to_string(mark.line + 1);
  throw BadInput(place.file + line + ": " + (place.part.empty() ? "" : place.part + ": ") + what);
}

using ReadKey = std::function<void(const YAML::Node &value, const Place &place)>;
struct KeyReader {
  std::string_view key;
  ReadKey read;
};

// Calls each key's reader; a key without one goes to `otherwise`. Refuses anything but a mapping, keys that nobody
// reads and keys given twice.
void read_mapping(const YAML::Node &node, const Place &place, const std::vector<KeyReader> &readers,
                  const std::function<bool(const std::string &key, const YAML::Node &value)> &otherwise = nullptr) {
  if (node.IsNull() && !place.part.empty()) {
    return;  // a key without a value stands for an empty mapping
  }
  if (!node.IsMap()) {
    fail(place, node.Mark(), "expected a mapping (key: value)");
  }
  std::set<std::string> seen;
  for (const auto &entry : node) {
    if (!entry.first.IsScalar()) {
      fail(place, entry.first.Mark(), "a key must be a plain word");
    }
    const std::string key = entry.first.Scalar();
    if (!seen.insert(key).second) {
      fail(place, entry.first.Mark(), "key '" + key + "' is given twice");
    }
    const auto reader = std::ranges::find(readers, key, &KeyReader::key);
    if (reader != readers.end()) {
      reader->read(entry.second, place.within(key));
    } else if (!otherwise || !otherwise(key, entry.second)) {
      std::vector<std::string_view> known(readers.size());
      std::ranges::transform(readers, known.begin(), &KeyReader::key);
      fail(place, entry.first.Mark(), "unknown key '" + key + "'; expected one of " + joined(known));
    }
  }
}

// Reads a part from a mapping of its fields. `readers` read the keys that are not fields.
void read_part(Part &part, const YAML::Node &node, const Place &place, const std::vector<KeyReader> &readers = {}) {
  std::set<std::string> given;
  read_mapping(node, place, readers, [&](const std::string &key, const YAML::Node &value) {
    if (!value.IsScalar()) {
      fail(place, value.Mark(), "'" + key + "' must be a single value");
    }
    try {
      part.set(key, value.Scalar());
    } catch (const BadInput &error) {
      fail(place, value.Mark(), error.what());
    }
    given.insert(key);
    return true;
  });
  for (const Field &field : part.kind().fields) {
    if (field.required && !given.contains(std::string(field.name))) {
      fail(place, node.Mark(), "'" + std::string(field.name) + "' is missing");
    }
  }
}

void read_sequence(const YAML::Node &node, const Place &place,
                   const std::function<void(const YAML::Node &item, const Place &place)> &read) {
  if (node.IsNull()) {
    return;  // a key without a value stands for an empty list
  }
  if (!node.IsSequence()) {
    fail(place, node.Mark(), "expected a list (- ...)");
  }
  std::size_t position = 0;
  for (const YAML::Node &item : node) {
    read(item, place.item(position++));
  }
}

void check_identity(const Part &part, const std::vector<Part> &list, const YAML::Node &node, const Place &place) {
  try {
    check_identity(part, list);
  } catch (const BadInput &error) {
    fail(place, node.Mark(), error.what());
  }
}

// Reads a list of at most `most` parts, each with an identity of its own.
void read_parts(std::vector<Part> &parts, const PartKind &kind, const YAML::Node &node, const Place &place,
                std::size_t most) {
  read_sequence(node, place, [&](const YAML::Node &item, const Place &where) {
    if (parts.size() == most) {
      fail(where, item.Mark(), "no more than " + std::to_string(most) + " fit");
    }
    Part part(kind);
    read_part(part, item, where);
    check_identity(part, parts, item, where);
    parts.push_back(std::move(part));
  });
}

constexpr std::size_t no_limit = SIZE_MAX;
constexpr std::size_t sensor_limit = 256;  // a sensor number is an octet

KeyReader part_reader(std::string_view key, Part &part) {
  return {.key = key, .read = [&part](const auto &node, const auto &place) { read_part(part, node, place); }};
}

KeyReader parts_reader(std::string_view key, std::vector<Part> &parts, const PartKind &kind,
                       std::size_t most = no_limit) {
  return {.key = key, .read = [&parts, &kind, most](const auto &node, const auto &place) {
            read_parts(parts, kind, node, place, most);
          }};
}

void read_controllers(std::vector<RaidController> &controllers, const YAML::Node &node, const Place &place) {
  read_sequence(node, place, [&](const YAML::Node &item, const Place &where) {
    RaidController controller;
    read_part(controller.part, item, where,
              {parts_reader("drives", controller.drives, drive_kind, STOR_DRIVE_CAPACITY),
               parts_reader("volumes", controller.volumes, volume_kind, STOR_VOLUME_CAPACITY)});
    check_identity(controller.part, parts_of(controllers), item, where);
    controllers.push_back(std::move(controller));
  });
}

void read_sd_cards(SdCards &sd, const YAML::Node &node, const Place &place) {
  sd.controller.set_number("present", 1);
  read_mapping(
      node, place,
      {part_reader("controller", sd.controller), parts_reader("cards", sd.cards, sd_card_kind, VELT_CARD_COUNT),
       parts_reader("partitions", sd.partitions, sd_partition_kind, VELT_PARTITION_COUNT)});
}

Inventory read_inventory(const YAML::Node &root, const Place &place) {
  Inventory inventory;
  inventory.sd.controller.set_number("present", 0);  // until the scenario has SD cards
  read_mapping(
      root, place,
      {part_reader("server", inventory.server),
       part_reader("environment", inventory.environment),
       parts_reader("processors", inventory.processors, processor_kind),
       parts_reader("dimms", inventory.dimms, dimm_kind),
       parts_reader("sensors", inventory.sensors, sensor_kind, sensor_limit),
       parts_reader("supplies", inventory.supplies, supply_kind, supply_limit),
       parts_reader("adapters", inventory.adapters, adapter_kind),
       parts_reader("leds", inventory.leds, led_kind),
       parts_reader("faults", inventory.faults, fault_kind),
       {.key = "raid-controllers",
        .read = [&](const auto &node, const auto &where) { read_controllers(inventory.controllers, node, where); }},
       {.key = "sd-cards",
        .read = [&](const auto &node, const auto &where) { read_sd_cards(inventory.sd, node, where); }}});
  if (!root["server"]) {
    fail(place, root.Mark(), "'server' is missing");
  }
  return inventory;
}

// Where each document of a text begins.
class DocumentStarts : public YAML::EventHandler {
 public:
  const std::vector<YAML::Mark> &marks() const { return marks_; }

  void OnDocumentStart(const YAML::Mark &mark) override { marks_.push_back(mark); }
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark & /*mark*/, YAML::anchor_t /*anchor*/) override {}
  void OnAlias(const YAML::Mark & /*mark*/, YAML::anchor_t /*anchor*/) override {}
  void OnScalar(const YAML::Mark & /*mark*/, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                const std::string & /*value*/) override {}
  void OnSequenceStart(const YAML::Mark & /*mark*/, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                       YAML::EmitterStyle::value /*style*/) override {}
  void OnSequenceEnd() override {}
  void OnMapStart(const YAML::Mark & /*mark*/, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                  YAML::EmitterStyle::value /*style*/) override {}
  void OnMapEnd() override {}

 private:
  std::vector<YAML::Mark> marks_;
};

// Stops at the second: at a comma outside of a list, yaml-cpp finds empty documents without end.
void expect_one_document(const std::string &text, const Place &place) {
  std::istringstream stream(text);
  YAML::Parser parser(stream);
  DocumentStarts starts;
  while (parser.HandleNextDocument(starts)) {
    if (starts.marks().size() > 1) {
      fail(place, starts.marks()[1], "a scenario is one document, but another begins here");
    }
  }
}

YAML::Node read_document(const Place &place) {
  std::error_code ignored;
  if (std::filesystem::is_directory(place.file, ignored)) {
    throw BadInput(place.file + ": is a directory");
  }
  std::ifstream stream(place.file);
  if (!stream) {
    throw BadInput(place.file + ": cannot be read");
  }
  try {
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    expect_one_document(text, place);
    return YAML::Load(text);
  } catch (const BadInput &) {
    throw;
  } catch (const YAML::ParserException &error) {
    fail(place, error.mark, error.msg);
  } catch (const std::exception &error) {  // the disk fails, for example
    throw BadInput(place.file + ": " + error.what());
  }
}

}  // namespace

Inventory load_scenario(const std::filesystem::path &file) {
  const Place place{.file = file.string(), .part = ""};
  return read_inventory(read_document(place), place);
}

}  // namespace tavo::service
