// What smartctl prints of a drive: JSON, or whatever a program of that name prints.
#include <string_view>

#include "fuzz/harness/door.h"
#include "hardware/smart.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  using State = service::SmartReport::State;
  const service::SmartReport report =
      service::parse_smart({reinterpret_cast<const char *>(input.data()), input.size()});
  expect(report.state == State::Answers || !report.why_silent.empty(), "silence has a reason");
  expect(!report.healthy || report.state == State::Answers, "a drive that tells of its health answers");
}

}  // namespace tavo::fuzz
