#include "hardware/drive_trouble.h"

#include "hardware/system_controller.h"

namespace tavo::service {

std::string drive_trouble_key(const std::string &place, const std::string &what) {
  return "drive " + place + ' ' + what;
}

Trouble drive_trouble(const std::string &place, const RegisteredPart &drive, const std::string &what) {
  constexpr int drive_class = 209;
  const std::string slot = std::to_string(drive.number);
  return {.key = drive_trouble_key(place, what),
          .class_code = drive_class,
          .unit = drive.number,
          .description = "Drive " + drive.name + " in slot " + slot,
          .affected = system_dn + "/pd-" + slot,
          .affected_oid = "1.3.6.1.4.1.61453.4.207.1.45.4.1.2." + slot};
}

}  // namespace tavo::service
