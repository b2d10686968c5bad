// The management controller (IPMI): fans, temperatures, power.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "hardware/ipmi_chassis.h"
#include "hardware/ipmi_device.h"
#include "hardware/ipmi_fans.h"
#include "hardware/ipmi_sensors.h"
#include "hardware/source.h"

namespace tavo::service {

class IpmiSource : public Source {
 public:
  explicit IpmiSource(Roots roots);
  // Asks this controller instead of the one below /dev.
  IpmiSource(Roots roots, std::unique_ptr<IpmiDevice> device);

  std::string_view name() const override { return "IPMI"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(30); }
  Finding read() override;

 private:
  void read_definitions();
  void read_controller();
  Finding finding();

  const Roots roots_;
  const std::unique_ptr<IpmiDevice> device_;
  std::optional<IpmiOctets> definitions_state_;  // of the sensor records that `sensors_` is made from
  IpmiSensors sensors_;
  std::optional<IpmiChassis> chassis_;
  std::optional<double> power_;
  SeenParts seen_;
  bool has_answered_ = false;
};

}  // namespace tavo::service
