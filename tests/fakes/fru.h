// The FRU library as the tests want it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tavo::fakes {

// The board area: its texts, and no NUL behind one that fills its field. The calls fail until it is set.
struct BoardArea {
  std::string manufacturer;
  std::string product_name;
  std::string serial;
};
void set_board_area(BoardArea area);
// The next calls fail, however the area is set.
void fail_board_area(int calls);

// The serial number in the product area of an instance of a type; without one, the call fails.
void set_product_serial(int type, int instance, std::string serial);

// What the calls were asked for, oldest first: FRU ids; types and instances. A call whose area was not zeroed throws
// std::logic_error.
std::vector<int> board_area_calls();
std::vector<std::pair<int, int>> product_area_calls();

void reset_fru();

}  // namespace tavo::fakes
