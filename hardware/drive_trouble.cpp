#include "hardware/drive_trouble.h"

#include "core/class_number.h"
#include "hardware/system_controller.h"
#include "service/affected.h"

namespace tavo::service {

std::string drive_trouble_key(const std::string &place, const std::string &what) {
  return "drive " + place + ' ' + what;
}

Trouble drive_trouble(const std::string &place, const RegisteredPart &drive, const std::string &what) {
  const std::string slot = std::to_string(drive.number);
  return {.key = drive_trouble_key(place, what),
          .class_code = class_number::drive,
          .unit = drive.number,
          .description = "Drive " + drive.name + " in slot " + slot,
          .affected = system_dn + "/pd-" + slot,
          .affected_oid = dn_oid(dn_column::drive, drive.number)};
}

}  // namespace tavo::service
