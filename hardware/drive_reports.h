// What drives say of themselves. They are asked beside everything else, so one that does not answer holds up nobody.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hardware/descriptor_set.h"
#include "hardware/smart.h"
#include "hardware/tool_run.h"

namespace tavo::service {

struct AskedDrive {
  std::string device;  // "/dev/sda"
  std::string number;  // that the kernel gives each drive that is plugged in; empty: an old kernel

  auto operator<=>(const AskedDrive &) const = default;
};

struct DriveReport {
  SmartReport smart = {};     // what it said last, completed by what it said before
  bool is_known = false;      // it has answered, could not be asked, or its time was up
  bool has_answered = false;  // at any time, be it only that it sleeps
  int times_unanswered = 0;   // in a row; could not be asked: the same as before
  int count = 0;              // how many reports there were
};

class DriveReports {
 public:
  struct Times {
    std::chrono::milliseconds age = std::chrono::minutes(5);       // for which a report is believed
    std::chrono::milliseconds limit = std::chrono::seconds(30);    // after which smartctl is killed
    std::chrono::milliseconds patience = std::chrono::seconds(3);  // for which ask() waits
    std::chrono::milliseconds longest_age = std::chrono::hours(1);
  };

  // `program` is searched in PATH.
  DriveReports(std::string program, const Times &times);

  // Has those drives asked whose report is due, a few at a time, and forgets all others. Returns when they have
  // answered or the patience is over. Who has not answered by then may do so before the next call. A drive that has
  // not answered at all is asked less and less often, and not while the kernel does not let go of smartctl.
  void ask(const std::vector<AskedDrive> &drives);

  // Of a drive that was among those of the last call.
  const DriveReport &of(const AskedDrive &drive) const { return known_.at(drive).report; }

  // Readable when there is something to do for ask().
  int descriptor() const { return watched_.descriptor(); }

 private:
  using Clock = ToolRun::Clock;

  struct Known {
    DriveReport report = {};
    Clock::time_point due = {};
    std::unique_ptr<ToolRun> run = {};  // null: none is left
    bool is_taken = true;               // the report tells of this run
  };

  void forget_all_but(const std::vector<AskedDrive> &drives);
  std::vector<AskedDrive> due_drives();
  bool go_on(std::vector<AskedDrive> &waiting);
  void begin(const AskedDrive &drive);
  void take_answer(Known &known);
  static void tell(Known &known, SmartReport smart);
  void note_silence(Known &known, const std::string &why);
  void set_timer();

  const std::string program_;
  const Times times_;
  std::map<AskedDrive, Known> known_;
  std::vector<std::unique_ptr<ToolRun>> left_;  // of drives that are gone
  Descriptor timer_;
  DescriptorSet watched_;
};

}  // namespace tavo::service
