// A management controller that answers what the fuzzer says.
#pragma once

#include <vector>

#include "fuzz/harness/door.h"
#include "hardware/ipmi_device.h"
#include "hardware/source.h"

namespace tavo::fuzz {

// Each answer is an octet with the length, and as many octets. After the last one, it refuses everything.
class LyingController : public service::IpmiDevice {
 public:
  explicit LyingController(Octets input) : input_(input) {}

  bool exists() const override { return true; }
  service::IpmiOctets ask(const service::IpmiCommand &command) override;

 private:
  Octets input_;
};

// What every finding must hold to: the service can enter it and raise its troubles.
void check_finding(const service::Finding &finding);

}  // namespace tavo::fuzz
