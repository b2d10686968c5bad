// The management controller (IPMI): fans, power supplies, temperatures, power, and its event log.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hardware/ipmi_chassis.h"
#include "hardware/ipmi_device.h"
#include "hardware/ipmi_fans.h"
#include "hardware/ipmi_sel.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/ipmi_storage.h"
#include "hardware/ipmi_supplies.h"
#include "hardware/source.h"

namespace tavo::service {

class IpmiSource : public Source {
 public:
  // `kept` outlives the source. It keeps which fans and supplies there were.
  IpmiSource(const Roots &roots, Register &kept);
  // Asks this controller instead of the one below /dev. One reading spends no more time than that on sensor records.
  IpmiSource(Register &kept, std::unique_ptr<IpmiDevice> device,
             std::chrono::milliseconds for_definitions = std::chrono::seconds(30));

  std::string_view name() const override { return "IPMI"; }
  // Of the event log. The sensors are read every sixth time, and at once when there is a new event. A machine without a
  // controller hardly ever gets one.
  std::chrono::seconds interval() const override { return std::chrono::seconds(has_answered_ ? 5 : 60); }
  Finding read() override;

 private:
  void read_definitions();
  void take_over(IpmiInventory inventory);
  void drop_frus_of_changed_supplies();
  void read_frus();
  void check_answers();
  bool read_log();
  void read_sensors();
  std::vector<std::string> undecided() const;
  void add_accounts(Finding &finding);
  Finding finding();

  Register &kept_;
  const std::unique_ptr<IpmiDevice> device_;
  const std::chrono::milliseconds for_definitions_;
  SdrRecords definitions_;                       // as far as they have been read
  std::optional<IpmiOctets> reading_state_;      // of the records that are being read
  std::optional<IpmiOctets> definitions_state_;  // of the sensor records that `sensors_` is made from
  int definition_readings_ = 0;                  // that were not complete
  int refused_states_ = 0;                       // the controller did not say which records it has
  bool definitions_are_complete_ = true;         // the last that were read
  bool has_definitions_ = false;                 // complete or not
  bool has_complete_definitions_ = false;
  FanPlaces fan_places_{kept_, ipmi_fan_group};
  std::vector<IpmiSensor> all_sensors_;  // also those that are not read
  int sensors_of_others_ = 0;
  IpmiSensors sensors_;
  int readings_until_sensors_ = 0;
  SelReader log_;
  SelFaults log_faults_;
  bool has_log_ = false;
  std::vector<IpmiFruDevice> fru_devices_;
  IpmiFru server_;
  std::map<IpmiEntity, IpmiFru> frus_;           // of the power supplies
  std::map<IpmiEntity, bool> supplies_present_;  // when frus_ was read
  int fru_readings_left_ = 0;
  std::optional<IpmiChassis> chassis_;
  std::optional<double> power_;
  bool has_answered_ = false;
};

}  // namespace tavo::service
