// The event log of a management controller, as it is read several times.
#include "fuzz/harness/door.h"
#include "fuzz/harness/lying_controller.h"
#include "hardware/ipmi_sel.h"
#include "hardware/ipmi_storage.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  LyingController controller(input);
  service::SelReader log;
  service::SelFaults faults;
  for (int reading = 0; reading < 3; ++reading) {
    try {
      const auto news = log.read(controller);
      if (!news) {
        continue;
      }
      if (news->begins_anew) {
        faults.forget_all();
      }
      for (const service::IpmiOctets &record : news->records) {
        if (const auto event = service::decode_sel(record)) {
          faults.note(*event);
        }
      }
    } catch (const service::IpmiSilence &) {
    }
    service::Finding finding;
    finding.troubles = faults.troubles({});
    check_finding(finding);
  }
}

}  // namespace tavo::fuzz
