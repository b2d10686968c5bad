// The module's sigwait, counted.
#pragma once

#include <chrono>

namespace tavo::fakes {

// Waits until the module has gone to sigwait `times` times since the test began; false when `limit` passes first. A
// signal that is sent now, and that all threads block, is taken there.
bool wait_for_sigwait(int times, std::chrono::seconds limit = std::chrono::seconds(20));

void reset_signals();

}  // namespace tavo::fakes
