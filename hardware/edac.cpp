#include "hardware/edac.h"

#include "core/class_number.h"
#include "hardware/sysfs.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// Now and then an error is corrected in any memory; this many since the machine was started are a sign of wear.
constexpr std::int64_t many_corrected = 100;

Trouble trouble_of(const std::string &module, std::int64_t number, const std::string &what, const std::string &severity,
                   const std::string &sentence) {
  return {.key = "memory " + module + ' ' + what,
          .class_code = class_number::memory,
          .unit = number,
          .severity = severity,
          .cause = cause::failed,
          .description = "Memory module " + module + sentence};
}

}  // namespace

Finding EdacSource::read() {
  const fs::path directory = roots_.sys / "devices/system/edac/mc";
  Finding finding;
  std::int64_t number = 0;
  for (const fs::path &controller : entries(directory, "mc")) {
    for (const fs::path &dimm : entries(controller, "dimm")) {
      ++number;
      const std::string label = read_attribute(dimm / "dimm_label").value_or("");
      const std::string module =
          label.empty() ? controller.filename().string() + '/' + dimm.filename().string() : label;
      if (read_number(dimm / "dimm_ue_count").value_or(0) > 0) {
        finding.troubles.push_back(
            trouble_of(module, number, "uncorrected", "critical", " has had errors that cannot be corrected"));
      }
      if (read_number(dimm / "dimm_ce_count").value_or(0) >= many_corrected) {
        finding.troubles.push_back(trouble_of(module, number, "corrected", "minor", " has had many corrected errors"));
      }
    }
  }
  if (number == 0) {
    finding.unreadable.push_back(directory.string() + ": no memory controllers");
  }
  return finding;
}

}  // namespace tavo::service
