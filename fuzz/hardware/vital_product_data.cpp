// The vital product data of a PCI card, with resources and fields that lie about their length.
#include "hardware/vital_product_data.h"
#include "fuzz/harness/door.h"
#include "hardware/told_text.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  const service::VitalProductData data = service::parse_vital_product_data(std::as_bytes(input));
  for (const std::string &text : {data.product, data.part_number, data.serial}) {
    expect(text.size() <= input.size(), "a text is part of the input");
    expect(service::told_text(text) == text, "texts are clean");
  }
}

}  // namespace tavo::fuzz
