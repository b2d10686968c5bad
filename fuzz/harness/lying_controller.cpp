#include "fuzz/harness/lying_controller.h"

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hardware/choice.h"

namespace tavo::fuzz {

service::IpmiOctets LyingController::ask(const service::IpmiCommand &) {
  constexpr std::uint8_t silent = 0xff;
  constexpr std::uint8_t refusal = 0xc1;
  if (input_.empty()) {
    return {refusal};
  }
  if (input_.front() == silent) {
    input_ = input_.subspan(1);
    throw service::IpmiSilence("no answer");
  }
  const std::size_t length = std::min<std::size_t>(input_.front(), input_.size() - 1);
  const Octets answer = input_.subspan(1, length);
  input_ = input_.subspan(1 + length);
  return answer.empty() ? service::IpmiOctets{refusal} : service::IpmiOctets(answer.begin(), answer.end());
}

void check_finding(const service::Finding &finding) {
  const std::vector<service::Word> words{
      {.source = "IPMI", .finding = std::make_shared<const service::Finding>(finding)}};
  service::Inventory inventory;
  inventory.processors.resize(2, service::Part(service::processor_kind));
  service::enter_all(inventory, words);
  for (std::size_t i = 0; i < inventory.sensors.size(); ++i) {
    expect(inventory.sensors[i].number("number") == static_cast<std::int64_t>(i), "sensors have no gap");
  }
  expect(inventory.sensors.size() <= 256, "the platform numbers sensors with an octet");
  expect(inventory.supplies.size() <= service::supply_limit, "the platform knows no more supplies");
  std::set<std::string> keys;
  for (const service::Trouble &trouble : service::situation_of(words).troubles) {
    expect(keys.insert(trouble.key).second, "a key names one trouble");
    service::Part fault(service::fault_kind);
    fault.set("description", trouble.description.substr(0, service::find_field(fault.kind(), "description")->size));
    fault.set("severity", trouble.severity);
    fault.set("unit", std::to_string(trouble.unit));
    fault.set("class", std::to_string(trouble.class_code));
  }
}

}  // namespace tavo::fuzz
