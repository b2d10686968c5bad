// Power supplies in the inventory, and what can be wrong with one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hardware/source.h"

namespace tavo::service {

struct SupplyDefect {
  std::int64_t status;  // the bits of a supply's PMBus status word that say so
  std::string_view severity;
  std::string_view sentence;
};

inline constexpr SupplyDefect failed_supply{.status = 0x0840, .severity = "major", .sentence = " has failed"};
inline constexpr SupplyDefect supply_without_input{.status = 0x2000, .severity = "major", .sentence = " has no input"};
inline constexpr SupplyDefect supply_with_doubtful_input{
    .status = 0x2000, .severity = "major", .sentence = " has no input, or one out of range"};

struct SupplyFan {
  std::int64_t supply;  // its number, from 1
  std::string_view presence;
};

// All supplies of a source.
struct Supplies {
  std::vector<Part> supplies;  // a supply's number is its position, from 1; absent ones fill the gaps
  std::vector<SupplyFan> fans;
  std::vector<Trouble> troubles;
  std::vector<std::string> unreadable;  // a line for each that is left out
  bool is_vague = false;                // nothing was seen of any of them yet
};

Account account_of_supplies(const Supplies &all);

// A supply's row. `defect` is null if it is good.
Part supply_part(bool is_present, const SupplyDefect *defect);

// Puts the part in the row of its number, from 1, after absent ones if those before it are not there yet. False if the
// platform knows no such number.
bool place_supply(std::vector<Part> &supplies, std::int64_t number, Part part);

// A trouble of the supply with this number. `sentence` goes on after its name.
Trouble supply_trouble(std::string key, std::int64_t number, std::string_view severity, int cause,
                       std::string_view sentence);

}  // namespace tavo::service
