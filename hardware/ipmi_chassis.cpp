#include "hardware/ipmi_chassis.h"

#include <freeipmi/freeipmi.h>

namespace tavo::service {
namespace {

constexpr std::size_t status_size = 3;  // power, last power event, other states

}  // namespace

std::optional<IpmiChassis> decode_chassis(const IpmiOctets &answer) {
  constexpr std::uint8_t power_is_on = 0x01;
  constexpr std::uint8_t identify_is_told = 0x40;
  constexpr std::uint8_t identify = 0x30;  // for a while, or until it is switched off
  if (answer.size() < status_size) {
    return std::nullopt;
  }
  const bool is_told = (answer[2] & identify_is_told) != 0;
  const Locator told = (answer[2] & identify) != 0 ? Locator::Lit : Locator::Off;
  return IpmiChassis{.is_on = (answer[0] & power_is_on) != 0, .locator = is_told ? told : Locator::NotTold};
}

std::optional<IpmiChassis> read_chassis(IpmiDevice &device) {
  const auto answer =
      ask(device, {.net_fn = IPMI_NET_FN_CHASSIS_RQ, .command = IPMI_CMD_GET_CHASSIS_STATUS}, status_size);
  return answer ? decode_chassis(*answer) : std::nullopt;
}

void enter_chassis(Inventory &inventory, const IpmiChassis &chassis) {
  inventory.server.set("power", chassis.is_on ? "on" : "off");
  if (chassis.locator != Locator::NotTold) {
    Part &led = inventory.leds.emplace_back(led_kind);
    led.set("name", "LED_LOCATE");
    led.set("state", chassis.locator == Locator::Lit ? "ON" : "OFF");
    led.set("color", "");
  }
}

}  // namespace tavo::service
