// The management controller (IPMI): fans, power supplies, temperatures, power.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "hardware/ipmi_chassis.h"
#include "hardware/ipmi_device.h"
#include "hardware/ipmi_fans.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/ipmi_supplies.h"
#include "hardware/source.h"

namespace tavo::service {

class IpmiSource : public Source {
 public:
  // `kept` outlives the source. It keeps which fans and supplies there were.
  IpmiSource(const Roots &roots, Register &kept);
  // Asks this controller instead of the one below /dev.
  IpmiSource(Roots roots, Register &kept, std::unique_ptr<IpmiDevice> device);

  std::string_view name() const override { return "IPMI"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(30); }
  Finding read() override;

 private:
  void read_definitions();
  void read_supply_frus();
  void read_controller();
  Finding finding();

  const Roots roots_;
  Register &kept_;
  const std::unique_ptr<IpmiDevice> device_;
  std::optional<IpmiOctets> definitions_state_;  // of the sensor records that `sensors_` is made from
  IpmiSensors sensors_;
  std::vector<IpmiFruDevice> fru_devices_;
  IpmiFru server_;
  std::map<IpmiEntity, IpmiFru> frus_;  // of the power supplies
  std::vector<bool> supplies_present_;  // when frus_ was read
  int fru_readings_left_ = 0;
  std::optional<IpmiChassis> chassis_;
  std::optional<double> power_;
  bool has_answered_ = false;
};

}  // namespace tavo::service
