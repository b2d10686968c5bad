// Word from the kernel that a device has come, gone or changed.
#pragma once

#include <libudev.h>

#include <initializer_list>
#include <memory>

namespace tavo::service {

// Only whether there was an event counts: what has changed is read anew.
class KernelEvents {
 public:
  // Of devices in these subsystems: "block", "net". Where the events cannot be had, there are none.
  explicit KernelEvents(std::initializer_list<const char *> subsystems);

  // Readable while there are events that have not been taken; negative: there never are any.
  int descriptor() const;
  // Takes all that are there.
  void take();

 private:
  struct Release {
    void operator()(udev *context) const { udev_unref(context); }
    void operator()(udev_monitor *monitor) const { udev_monitor_unref(monitor); }
    void operator()(udev_device *device) const { udev_device_unref(device); }
  };

  std::unique_ptr<udev, Release> context_;
  std::unique_ptr<udev_monitor, Release> monitor_;  // null: none
};

}  // namespace tavo::service
