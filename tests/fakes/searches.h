// Counts what the module's memmem calls have searched.
#pragma once

#include <cstddef>

namespace tavo::fakes {

// Octets from the beginning of each search to the end of its match, or to the end of the text if there is none.
std::size_t octets_searched();
void forget_octets_searched();

}  // namespace tavo::fakes
