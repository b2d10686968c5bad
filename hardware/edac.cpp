#include "hardware/edac.h"

#include <algorithm>
#include <system_error>

#include "core/class_number.h"
#include "hardware/same_error.h"
#include "hardware/smbios.h"
#include "hardware/sysfs.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// Now and then an error is corrected in any memory; this many since the machine was started are a sign of wear.
constexpr std::int64_t many_corrected = 100;

// The modules in the firmware's table; none if that cannot be read.
std::vector<Part> modules_of_firmware(const Roots &roots) {
  Inventory inventory;
  try {
    enter_smbios(inventory, smbios_table(roots));
  } catch (const std::system_error &) {
    return {};
  }
  return inventory.dimms;
}

// Drivers label a module as the firmware does, with its bank before it or without. Others count channels: which module
// that is, the server does not tell, and it is at fault as a whole.
FaultyPart part_of(const std::string &label, const std::vector<Part> &modules) {
  const auto found = std::ranges::find_if(modules, [&](const Part &module) {
    const std::string &name = module.text("name");
    return label == name || label == module.text("location") + ' ' + name;
  });
  return found != modules.end() ? FaultyPart{.class_code = class_number::memory, .unit = found->number("number")}
                                : FaultyPart{.class_code = class_number::server, .unit = 1};
}

Trouble trouble_of(const std::string &module, const FaultyPart &part, const std::string &what,
                   const std::string &severity, const std::string &sentence, const std::string &error) {
  return {.key = "memory " + module + ' ' + what,
          .class_code = part.class_code,
          .unit = part.unit,
          .severity = severity,
          .cause = cause::failed,
          .description = "Memory module " + module + sentence,
          .error = error};
}

}  // namespace

Finding EdacSource::read() {
  const fs::path directory = roots_.sys / "devices/system/edac/mc";
  Finding finding;
  bool any = false;
  for (const fs::path &controller : entries(directory, "mc")) {
    for (const fs::path &dimm : entries(controller, "dimm")) {
      any = true;
      const std::string label = read_attribute(dimm / "dimm_label").value_or("");
      const std::string module =
          label.empty() ? controller.filename().string() + '/' + dimm.filename().string() : label;
      const bool uncorrected = read_number(dimm / "dimm_ue_count").value_or(0) > 0;
      const bool corrected = read_number(dimm / "dimm_ce_count").value_or(0) >= many_corrected;
      if (!uncorrected && !corrected) {
        continue;
      }
      const FaultyPart part = part_of(label, modules_of_firmware(roots_));
      if (uncorrected) {
        finding.troubles.push_back(trouble_of(module, part, "uncorrected", "critical",
                                              " has had errors that cannot be corrected", uncorrected_memory_error));
      }
      if (corrected) {
        finding.troubles.push_back(
            trouble_of(module, part, "corrected", "minor", " has had many corrected errors", corrected_memory_errors));
      }
    }
  }
  if (!any) {
    finding.unreadable.push_back(directory.string() + ": no memory controllers");
  }
  return finding;
}

}  // namespace tavo::service
