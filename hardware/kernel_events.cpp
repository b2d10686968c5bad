#include "hardware/kernel_events.h"

#include <poll.h>

#include <filesystem>

namespace tavo::service {
namespace {

// udevd passes events on once it has made the devices' files. Where it does not run, nobody passes on any, and the
// kernel's own must do.
const char *sender() {
  std::error_code ignored;
  return std::filesystem::exists("/run/udev/control", ignored) ? "udev" : "kernel";
}

}  // namespace

KernelEvents::KernelEvents(std::initializer_list<const char *> subsystems)
    : context_(udev_new()), monitor_(context_ ? udev_monitor_new_from_netlink(context_.get(), sender()) : nullptr) {
  if (!monitor_) {
    return;
  }
  for (const char *subsystem : subsystems) {
    udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), subsystem, nullptr);
  }
  if (udev_monitor_enable_receiving(monitor_.get()) < 0) {
    monitor_.reset();
  }
}

int KernelEvents::descriptor() const {
  return monitor_ ? udev_monitor_get_fd(monitor_.get()) : -1;
}

void KernelEvents::take() {
  constexpr int at_once = 10'000;  // what is left is taken next time
  pollfd events{.fd = descriptor(), .events = POLLIN, .revents = 0};
  for (int i = 0; i < at_once && events.fd >= 0 && poll(&events, 1, 0) > 0; ++i) {
    // There is no device if the event is another subsystem's, or if there were more than the socket holds.
    const std::unique_ptr<udev_device, Release> device(udev_monitor_receive_device(monitor_.get()));
  }
}

}  // namespace tavo::service
