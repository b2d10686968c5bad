// A FRU area. The first octet says whether the rest is the area, or the answers from which it is read.
#include <algorithm>
#include <string>

#include "fuzz/harness/door.h"
#include "fuzz/harness/lying_controller.h"
#include "hardware/ipmi_fru.h"
#include "hardware/ipmi_storage.h"

namespace tavo::fuzz {
namespace {

bool is_line(const std::string &text) {
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c < 0x7f; });
}

}  // namespace

void try_input(Octets input) {
  if (input.empty()) {
    return;
  }
  constexpr std::uint8_t answers = 1;
  const Octets rest = input.subspan(1);
  service::IpmiOctets area(rest.begin(), rest.end());
  if ((input.front() & answers) != 0) {
    LyingController controller(rest);
    try {
      area = service::read_fru(controller, 0);
    } catch (const service::IpmiSilence &) {
      return;
    }
  }
  const service::IpmiFru fru = service::decode_fru(area);
  expect(is_line(fru.board_manufacturer) && is_line(fru.board_product) && is_line(fru.board_serial), "texts are lines");
  expect(is_line(fru.product_name) && is_line(fru.product_part), "texts are lines");
  expect(is_line(fru.product_version) && is_line(fru.product_serial), "texts are lines");
}

}  // namespace tavo::fuzz
