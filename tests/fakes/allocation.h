// Makes the module's own calloc and reallocarray calls fail. Allocations inside the C, C++ and net-snmp libraries
// always succeed.
#pragma once

#include <functional>
#include <limits>

namespace tavo::fakes {

// The next `successes` allocations succeed, the `failures` after them return null with ENOMEM, then all succeed again.
void fail_allocations(int successes, int failures = std::numeric_limits<int>::max());

// Called by the next allocation that fails, before it returns.
void on_next_failed_allocation(std::function<void()> call);

// Allocations that have failed since the last reset.
int failed_allocations();

void reset_allocations();

}  // namespace tavo::fakes
