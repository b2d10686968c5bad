// What a start needs from the system. The libraries and the module do not say what they could not open or create: with
// too few descriptors net-snmp serves without its access rules, and without a thread a table stays empty.
#pragma once

#include <cstddef>

namespace tavo {

// A daemon that serves has 16 descriptors open; a tool, a chassis peer or a manager over TCP takes some for a while.
constexpr std::size_t descriptors_needed = 48;
// The daemon's and the module's take 10; each tool takes a process or two, which count like threads.
constexpr std::size_t threads_needed = 16;

// Throws StartFailure, which names what is short, unless so many descriptors and threads can be had at once. Call it
// before anything is opened or started.
void require_resources();

}  // namespace tavo
