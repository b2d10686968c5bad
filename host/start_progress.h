// Tells systemd how the module's start goes. It builds every table, which takes minutes if the platform does not
// answer, and systemd ends a service that does not report any progress.
#pragma once

#include <chrono>

namespace tavo {

// The start lasts as long as the object, of which only one may exist at a time.
class StartProgress {
 public:
  // `longest_silence`: a start without a sign of life for that long is stuck.
  explicit StartProgress(std::chrono::seconds longest_silence);
  ~StartProgress();
  StartProgress(const StartProgress &) = delete;
  StartProgress &operator=(const StartProgress &) = delete;

  // Any thread, and at any time: does nothing when there is no start. A table that is registered is a sign of life
  // without this.
  static void sign_of_life();

 private:
  static int table_registered(int major, int minor, void *registration, void *self);
};

}  // namespace tavo
