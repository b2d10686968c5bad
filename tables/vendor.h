// Who makes the server and its adaptors.
#pragma once

#include <string_view>

namespace tavo {

inline constexpr std::string_view server_vendor = "Tavolo Systems Inc";

}  // namespace tavo
