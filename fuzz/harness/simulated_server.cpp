#include "fuzz/harness/simulated_server.h"

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/harness/door.h"
#include "service/protocol.h"
#include "service/queries.h"
#include "service/requests.h"
#include "simulator/drift.h"
#include "simulator/scenario.h"

namespace tavo::service {
namespace {

using nlohmann::json;

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = std::filesystem::temp_directory_path() / "fuzz-XXXXXX";
    fuzz::expect(mkdtemp(pattern.data()) != nullptr, "there is room for a directory");
    path_ = pattern;
  }
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path &path() const { return path_; }

 private:
  std::filesystem::path path_;
};

void ask(Machine &machine, const json &request) {
  const json reply = answer(machine, request);
  fuzz::expect(!reply.contains("error"), "a request that makes sense gets no error");
}

}  // namespace

const Inventory &small_inventory() {
  static const Inventory inventory = load_scenario(SCENARIO);
  return inventory;
}

const Surroundings &temporary_surroundings() {
  static const TemporaryDirectory directory;
  static const Surroundings surroundings = {.var = directory.path() / "var", .sd_socket = directory.path() / "sd"};
  return surroundings;
}

void ask_for_everything(Machine &machine) {
  for (const char *name : {call::processors, call::dimms, call::fault_count}) {
    ask(machine, {{"call", name}});
  }
  ask(machine, {{"call", call::faults}, {"start", 0}, {"count", machine.faults().count()}});
  ask(machine, {{"call", call::fru_board}, {"id", 0}});
  for (int number = 0; number < 4; ++number) {
    ask(machine, {{"call", call::sensor}, {"number", number}});
    ask(machine, {{"call", call::presence}, {"number", number}});
    ask(machine, {{"call", call::fru_product}, {"type", 10}, {"instance", number}});
    ask(machine, {{"call", call::sd_cards}, {"controller", "Veltro-0"}, {"kind", number}});
  }
  machine.read([](const Inventory &inventory) {
    for (const std::string_view key : query_keys()) {
      query(inventory, key);
    }
    for (const Part &adapter : inventory.adapters) {
      query(inventory, "adapterFW[" + std::to_string(adapter.number("slot")) + "]");
    }
    adapter_list(inventory);
    fru_list(inventory);
    return 0;
  });
  Drift().advance(machine, 1);
}

}  // namespace tavo::service
