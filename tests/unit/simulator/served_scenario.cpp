#include "served_scenario.h"

#include <sys/eventfd.h>

#include <cstdlib>
#include <sstream>

#include "service/control.h"
#include "simulator/scenario.h"

namespace tavo::service {

std::filesystem::path make_directory() {
  std::string pattern = std::filesystem::temp_directory_path() / "bmcsim-XXXXXX";
  EXPECT_NE(mkdtemp(pattern.data()), nullptr);
  return pattern;
}

ServedScenario::ServedScenario() : directory_(make_directory()) {
  setenv("BMCSIM_SOCKET", socket_.c_str(), 1);
  start();
}

ServedScenario::~ServedScenario() {
  stop();
  std::filesystem::remove_all(directory_);
}

void ServedScenario::start() {
  Inventory inventory = load_scenario(RACK_SERVER);
  inventory.environment.set_number("drift", 0);
  machine_ = std::make_unique<Machine>(std::move(inventory),
                                       Surroundings{.var = directory_ / "var", .sd_socket = directory_ / "sd-socket"});
  service_ = std::make_unique<Service>(*machine_, socket_);
  stop_ = Descriptor(eventfd(0, EFD_CLOEXEC));
  thread_ = std::thread(
      [this] { service_->run(stop_.get(), [this](unsigned seconds) { drift_.advance(*machine_, seconds); }); });
}

void ServedScenario::stop() {
  if (!service_) {
    return;
  }
  eventfd_write(stop_.get(), 1);
  thread_.join();
  service_.reset();
  machine_.reset();
}

std::string ServedScenario::control_words(const std::string &words) {
  std::istringstream stream(words);
  std::vector<std::string> list;
  for (std::string word; stream >> word;) {
    list.push_back(word);
  }
  return control(*machine_, list);
}

}  // namespace tavo::service
