// The management controller (IPMI) as a source. A build without TAVO_IPMI has one that only says so.
#pragma once

#include <memory>

#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

// `kept` outlives the source.
std::unique_ptr<Source> ipmi_source(const Roots &roots, Register &kept);

}  // namespace tavo::service
