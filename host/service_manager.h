// Reports to systemd, or to what has its place: the protocol of sd_notify(3). libsystemd's own function waits without
// limit while nobody reads the socket, and the agent's loop with it.
#pragma once

#include <chrono>
#include <string_view>

namespace tavo {

enum class Report {
  Decisive,  // the service manager acts on it
  Passing,   // for people, or soon followed by another
};

// The longest wait for room in the service manager's socket.
constexpr std::chrono::seconds longest_report{1};

// Sends assignments such as "READY=1", separated by newlines, to the socket that NOTIFY_SOCKET names; without one, does
// nothing. What finds no room in time is given up. Logs that if it was decisive, or the first; while nobody reads,
// passing reports do not wait. Any thread.
void report_to_service_manager(Report kind, std::string_view state);

}  // namespace tavo
