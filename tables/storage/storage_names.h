// The distinguished names of RAID controllers and of the objects on them.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/text.h"

namespace tavo {

// The RN of a controller at `location`.
template <std::size_t N>
void write_controller_rn(char (&rn)[N], std::string_view location) {
  format_text(rn, "storage-SAS-%.*s", static_cast<int>(location.size()), location.data());
}

// The DN of a controller at `location`.
template <std::size_t N>
void write_controller_dn(char (&dn)[N], std::string_view location) {
  format_text(dn, "sys/rack-unit-1/board/storage-SAS-%.*s", static_cast<int>(location.size()), location.data());
}

// The DN of the object `rn` on that controller.
template <std::size_t N>
void write_dn_on_controller(char (&dn)[N], std::string_view location, const char *rn) {
  format_text(dn, "sys/rack-unit-1/board/storage-SAS-%.*s/%s", static_cast<int>(location.size()), location.data(), rn);
}

}  // namespace tavo
