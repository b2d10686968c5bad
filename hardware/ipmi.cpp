#include "hardware/ipmi.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <utility>

#include "core/class_number.h"
#include "hardware/decimal.h"
#include "hardware/ipmi_environment.h"
#include "hardware/ipmi_source.h"
#include "hardware/set_line.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

constexpr std::uint8_t server_fru = 0;

// A record that cannot be read so often will not be read at all.
constexpr int readings_of_definitions = 3;

constexpr int readings_of_the_log_to_one_of_sensors = 6;

// The areas of power supplies that were put in a moment ago may not be readable yet.
constexpr int readings_of_a_fru = 3;

// Fills what SMBIOS has left empty.
void enter_server(Inventory &inventory, const IpmiFru &fru) {
  Part &server = inventory.server;
  const auto fill = [&](std::string_view field, const std::string &text) {
    if (server.text(field).empty()) {
      set_line(server, field, text);
    }
  };
  fill("product-name", fru.product_name);
  fill("product-id", fru.product_part);
  fill("serial", fru.product_serial);
  if (!server.flag("board-readable") && !fru.board_product.empty()) {
    server.set("board-readable", "yes");
    fill("board-manufacturer", fru.board_manufacturer);
    fill("board-product", fru.board_product);
    fill("board-serial", fru.board_serial);
  }
}

}  // namespace

IpmiSource::IpmiSource(const Roots &roots, Register &kept)
    : IpmiSource(kept, std::make_unique<OpenIpmiDevice>(roots.dev / "ipmi0")) {}

IpmiSource::IpmiSource(Register &kept, std::unique_ptr<IpmiDevice> device, std::chrono::milliseconds for_definitions)
    : kept_(kept), device_(std::move(device)), for_definitions_(for_definitions) {}

void IpmiSource::read_definitions() {
  const auto state = sdr_state(*device_);
  if (!state) {
    ++refused_states_;
    return;
  }
  if (state == definitions_state_) {
    return;
  }
  if (state != reading_state_) {
    definitions_ = {};
    reading_state_ = state;
  }
  read_sdr(*device_, definitions_, std::chrono::steady_clock::now() + for_definitions_);
  if (!definitions_.is_at_end) {
    return;
  }
  const SdrRecords read = std::exchange(definitions_, {});
  reading_state_.reset();
  // Those that are complete, if out of date, tell more than those that break off.
  if (read.is_complete || !has_complete_definitions_) {
    take_over(decode_sdr(read.records));
  }
  has_complete_definitions_ = has_complete_definitions_ || read.is_complete;
  definitions_are_complete_ = read.is_complete;
  if (read.is_complete || ++definition_readings_ >= readings_of_definitions) {
    definitions_state_ = state;
    definition_readings_ = 0;
  }
}

void IpmiSource::take_over(IpmiInventory inventory) {
  has_definitions_ = true;
  all_sensors_ = std::move(inventory.sensors);
  sensors_of_others_ = inventory.of_others;
  sensors_.define(all_sensors_);
  fru_devices_ = std::move(inventory.frus);
  std::erase_if(frus_, [&](const auto &entry) {
    return std::ranges::find(fru_devices_, entry.first, &IpmiFruDevice::entity) == fru_devices_.end();
  });
  fru_readings_left_ = readings_of_a_fru;
}

// What a supply said of itself is out of date once it has come or gone.
void IpmiSource::drop_frus_of_changed_supplies() {
  std::map<IpmiEntity, bool> present;
  for (const IpmiSample &sample : sensors_.samples()) {
    if (sample.sensor.type == IPMI_SENSOR_TYPE_POWER_SUPPLY && sample.is_known) {
      bool &is_present = present[sample.sensor.entity];
      is_present = is_present || sample.is_in(IPMI_SENSOR_TYPE_POWER_SUPPLY_PRESENCE_DETECTED);
    }
  }
  for (const auto &[entity, is_present] : present) {
    const auto before = supplies_present_.find(entity);
    if (before == supplies_present_.end() || before->second != is_present) {
      supplies_present_[entity] = is_present;
      frus_.erase(entity);
      fru_readings_left_ = readings_of_a_fru;
    }
  }
}

// Only those that are still empty, and only for a while: an area takes many commands, and a place without a part has
// none.
void IpmiSource::read_frus() {
  drop_frus_of_changed_supplies();
  if (fru_readings_left_ == 0) {
    return;
  }
  --fru_readings_left_;
  if (server_ == IpmiFru()) {
    server_ = decode_fru(read_fru(*device_, server_fru));
  }
  for (const IpmiFruDevice &fru : fru_devices_) {
    if (fru.entity.id == IPMI_ENTITY_ID_POWER_SUPPLY && frus_[fru.entity] == IpmiFru()) {
      frus_[fru.entity] = decode_fru(read_fru(*device_, fru.id));
    }
  }
}

// A controller that is stuck may have the kernel answer for it, with a completion code. Every controller that works
// gives its number.
void IpmiSource::check_answers() {
  const IpmiOctets answer = device_->ask({.net_fn = IPMI_NET_FN_APP_RQ, .command = IPMI_CMD_GET_DEVICE_ID});
  if (answer.empty() || answer.front() != IPMI_COMP_CODE_COMMAND_SUCCESS) {
    throw IpmiSilence("the controller does not answer");
  }
}

// Returns whether there is something new. A controller that tells of its log need not be asked for its number.
bool IpmiSource::read_log() {
  const auto news = log_.read(*device_);
  if (!news) {
    check_answers();
    has_log_ = false;
    return false;
  }
  has_log_ = true;
  if (news->begins_anew) {
    log_faults_.forget_all();
  }
  for (const IpmiOctets &record : news->records) {
    if (const auto event = decode_sel(record)) {
      log_faults_.note(*event);
    }
  }
  return !news->records.empty();
}

void IpmiSource::read_sensors() {
  read_definitions();
  sensors_.read(*device_);
  read_frus();
  chassis_ = read_chassis(*device_);
  power_ = consumed_power(*device_, sensors_.samples());
}

// What the keys of troubles begin with of which only sensors can tell that are not known, or have not been read.
std::vector<std::string> IpmiSource::undecided() const {
  if (!has_complete_definitions_ && !definitions_state_ && refused_states_ < readings_of_definitions) {
    return {"ipmi sensor ", "ipmi supply "};
  }
  std::vector<std::string> keys;
  const auto add = [&](const std::string &key) {
    if (std::ranges::find(keys, key) == keys.end()) {
      keys.push_back(key);
    }
  };
  const std::vector<IpmiSample> &samples = sensors_.samples();
  for (const IpmiSample &unread : samples) {
    for (const IpmiSample &of_same_part : samples) {  // which a sensor may say to be absent
      if (may_tell_yet(unread) && of_same_part.sensor.entity == unread.sensor.entity) {
        add(sensor_key(of_same_part.sensor) + ' ');
        add(supply_key(of_same_part.sensor) + ' ');
      }
    }
  }
  return keys;
}

void IpmiSource::add_accounts(Finding &finding) {
  const std::vector<IpmiSample> &samples = sensors_.samples();
  const std::vector<Fan> fans = ipmi_fans(samples, kept_);
  if (!fans.empty()) {
    Account &account = finding.accounts[Topic::Fans] = account_of_fans(fan_places_.in_places(fans));
    account.is_vague = !is_sure_of_fans(fans, kept_);
  }
  if (knows_processor_temperatures(samples)) {
    const auto processors = processor_numbers(all_sensors_);
    finding.accounts[Topic::ProcessorTemperatures] = {
        .enter = [=](Inventory &inventory) { enter_processor_temperatures(inventory, samples, processors); }};
    finding.accounts[Topic::ProcessorHeat] = {.troubles = temperature_troubles(samples, processors, true)};
  }
  if (power_) {
    finding.accounts[Topic::Power] = {.enter = [power = *power_](Inventory &inventory) {
      inventory.environment.set("power", with_one_decimal(power));
    }};
  }
  const Supplies supplies = ipmi_supplies(samples, frus_, kept_);
  if (!supplies.supplies.empty()) {
    finding.accounts[Topic::Supplies] = account_of_supplies(supplies);
  }
}

// From what was read last, even if the controller has gone silent since.
Finding IpmiSource::finding() {
  const std::vector<IpmiSample> &samples = sensors_.samples();
  Finding finding;
  finding.enter = [samples, server = server_, chassis = chassis_](Inventory &inventory) {
    enter_server(inventory, server);
    enter_board_temperatures(inventory, samples);
    if (chassis) {
      enter_chassis(inventory, *chassis);
    }
  };
  add_accounts(finding);
  finding.troubles = temperature_troubles(samples, processor_numbers(all_sensors_), false);
  const std::vector<Trouble> from_log = log_faults_.troubles(all_sensors_);
  finding.troubles.insert(finding.troubles.end(), from_log.begin(), from_log.end());
  if (reading_state_ && !has_definitions_) {
    finding.awaited = {Topic::Fans, Topic::ProcessorTemperatures, Topic::ProcessorHeat, Topic::Power, Topic::Supplies};
  }
  finding.undecided = undecided();
  if (reading_state_) {
    finding.unreadable.emplace_back("the controller's sensor records have not all been read yet");
  } else if (has_answered_ && all_sensors_.empty()) {
    finding.unreadable.emplace_back("the controller has no sensor records");
  } else if (!definitions_are_complete_) {
    finding.unreadable.emplace_back("the controller's sensor records could not all be read");
  }
  if (sensors_of_others_ != 0) {
    finding.unreadable.push_back("sensors of other controllers behind this one: " + std::to_string(sensors_of_others_));
  }
  if (has_answered_ && !has_log_) {
    finding.unreadable.emplace_back("the controller has no event log");
  }
  return finding;
}

Finding IpmiSource::read() {
  std::string silence;
  try {
    const bool has_news = read_log();
    if (has_news || readings_until_sensors_ == 0) {
      read_sensors();
      readings_until_sensors_ = reading_state_ ? 1 : readings_of_the_log_to_one_of_sensors;
    }
    --readings_until_sensors_;
    has_answered_ = true;
  } catch (const IpmiNoPermission &why) {
    if (!has_answered_) {
      throw;
    }
    silence = why.what();
  } catch (const IpmiSilence &why) {
    if (!has_answered_ && !device_->exists()) {
      throw;
    }
    silence = why.what();
  }
  Finding found = finding();
  if (!silence.empty()) {
    if (!has_answered_) {
      found.undecided = {""};  // faults from before a restart stay
    }
    found.unreadable.push_back(silence);
    found.troubles.push_back(
        {.key = "ipmi silent",
         .class_code = class_number::server,
         .unit = 1,
         .severity = "warning",
         .cause = cause::failed,
         .description = "The management controller does not answer: what it shows is out of date"});
  }
  return found;
}

std::unique_ptr<Source> ipmi_source(const Roots &roots, Register &kept) {
  return std::make_unique<IpmiSource>(roots, kept);
}

}  // namespace tavo::service
