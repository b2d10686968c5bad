#include "hardware/ipmi_source.h"

namespace tavo::service {
namespace {

// It stays a source, so that --poll takes the same words in every build.
class NoIpmiSource : public Source {
 public:
  std::string_view name() const override { return "IPMI"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(0); }
  Finding read() override { return {.troubles = {}, .unreadable = {"bmcsim was built without it"}}; }
};

}  // namespace

std::unique_ptr<Source> ipmi_source(const Roots & /*roots*/, Register & /*kept*/) {
  return std::make_unique<NoIpmiSource>();
}

}  // namespace tavo::service
