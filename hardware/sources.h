// Every source that there is.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hardware/hardware.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

// In the order in which they enter what they find: later ones rely on the parts that earlier ones have entered.
// `numbers` outlives the sources.
std::vector<std::unique_ptr<Source>> all_sources(const Roots &roots, Register &numbers);

// The names of all sources, in the same order.
std::vector<std::string_view> source_names();

// Adds an interval that a user wrote as SOURCE=SECONDS. Throws BadInput, which lists the sources or the seconds that
// there may be.
void add_interval(const std::string &word, Intervals &intervals);

}  // namespace tavo::service
