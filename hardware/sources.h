// Every source that there is.
#pragma once

#include <memory>
#include <vector>

#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

// In the order in which they enter what they find: later ones rely on the parts that earlier ones have entered.
// `numbers` outlives the sources.
std::vector<std::unique_ptr<Source>> all_sources(const Roots &roots, Register &numbers);

}  // namespace tavo::service
