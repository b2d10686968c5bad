// A fake of the FRU library: records every call and answers what the test has set.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tavo::fakes {

// The texts of the board area; one that fills its field has no NUL. Calls fail until the area is set.
struct BoardArea {
  std::string manufacturer;
  std::string product_name;
  std::string serial;
};
void set_board_area(BoardArea area);
// The next calls fail although the area is set.
void fail_board_area(int calls);

// The serial number in the product area of an instance of a type; without one, the call fails.
void set_product_serial(int type, int instance, std::string serial);

// The arguments of the calls, oldest first: FRU ids; types and instances. A call with an area that is not zeroed throws
// std::logic_error.
std::vector<int> board_area_calls();
std::vector<std::pair<int, int>> product_area_calls();

void reset_fru();

}  // namespace tavo::fakes
