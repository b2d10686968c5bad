#include "hardware/drive_reports.h"

#include <poll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace tavo::service {
namespace {

// How many drives are asked at a time. One that takes longer than the patience does not count any more.
constexpr std::ptrdiff_t at_a_time = 4;

// Fills in what a drive has left out this time, because it sleeps or is about to die, with what it told last.
void complete(SmartReport &report, const SmartReport &last) {
  const auto fill = [](auto &now, const auto &before) { now = now ? now : before; };
  fill(report.healthy, last.healthy);
  fill(report.has_bad_temperature, last.has_bad_temperature);
  fill(report.temperature, last.temperature);
  fill(report.critical_temperature, last.critical_temperature);
  if (report.firmware.empty()) {
    report.firmware = last.firmware;
  }
  if (report.model.empty()) {
    report.model = last.model;
  }
}

SmartReport silent(const std::string &why) {
  SmartReport report;
  report.why_silent = why;
  return report;
}

}  // namespace

DriveReports::DriveReports(std::string program, const Times &times)
    : program_(std::move(program)), times_(times), timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  watched_.add(timer_.get());
}

void DriveReports::ask(const std::vector<AskedDrive> &drives) {
  std::array<std::byte, sizeof(std::uint64_t)> times_fired{};
  read_some(timer_, times_fired);
  forget_all_but(drives);
  std::vector<AskedDrive> waiting = due_drives();
  const auto until = Clock::now() + times_.patience;
  while (go_on(waiting) && Clock::now() < until) {
    constexpr int step = 20;  // milliseconds; a tool's end, unlike what it prints, wakes nobody
    pollfd ready{.fd = watched_.descriptor(), .events = POLLIN, .revents = 0};
    poll(&ready, 1, step);
  }
  set_timer();
}

void DriveReports::forget_all_but(const std::vector<AskedDrive> &drives) {
  const auto is_wanted = [&](const auto &entry) { return std::ranges::find(drives, entry.first) != drives.end(); };
  for (auto &entry : known_) {
    if (entry.second.run && !is_wanted(entry)) {
      entry.second.run->kill();
      left_.push_back(std::move(entry.second.run));
    }
  }
  std::erase_if(left_, [](const auto &run) { return run->is_gone(); });
  std::erase_if(known_, [&](const auto &entry) { return !is_wanted(entry); });
  for (const AskedDrive &drive : drives) {
    known_[drive];
  }
}

// A tool that was killed and cannot end leaves its drive unanswered once more.
std::vector<AskedDrive> DriveReports::due_drives() {
  std::vector<AskedDrive> due;
  for (auto &[drive, known] : known_) {
    take_answer(known);
    if (known.due > Clock::now()) {
      continue;
    }
    if (!known.run) {
      due.push_back(drive);
    } else if (known.is_taken) {
      note_silence(known, program_ + " still hangs");
    }
  }
  std::ranges::reverse(due);  // the last one is taken first
  return due;
}

// Takes answers and asks those that wait. Whether there is anybody left to wait for.
bool DriveReports::go_on(std::vector<AskedDrive> &waiting) {
  std::ptrdiff_t young = 0;
  for (auto &[drive, known] : known_) {
    take_answer(known);
    young += known.run && !known.is_taken && Clock::now() - known.run->started() < times_.patience ? 1 : 0;
  }
  for (; young < at_a_time && !waiting.empty(); ++young) {
    begin(waiting.back());
    waiting.pop_back();
  }
  return young > 0;
}

void DriveReports::begin(const AskedDrive &drive) {
  Known &known = known_[drive];
  known.due = Clock::now() + times_.age;
  known.is_taken = false;
  known.run = std::make_unique<ToolRun>(
      std::vector<std::string>{program_, "--json", "-n", "standby", "-iHA", drive.device}, times_.limit);
  watched_.add(known.run->descriptor());
}

void DriveReports::take_answer(Known &known) {
  if (!known.run) {
    return;
  }
  const auto state = known.run->state();
  if (!known.is_taken && state == ToolRun::State::Killed) {
    note_silence(known, known.run->error());
  } else if (!known.is_taken && state == ToolRun::State::Ended) {
    // That the program could not be started says nothing of the drive.
    const bool has_started = known.run->error().empty();
    tell(known, has_started ? parse_smart(known.run->output()) : silent(known.run->error()));
    if (has_started) {
      known.report.has_answered = true;
      known.report.times_unanswered = 0;
    }
  }
  if (known.is_taken && known.run->is_gone()) {
    known.run.reset();
  }
}

void DriveReports::tell(Known &known, SmartReport smart) {
  complete(smart, known.report.smart);
  known.report.smart = std::move(smart);
  known.report.is_known = true;
  ++known.report.count;
  known.is_taken = true;
}

void DriveReports::note_silence(Known &known, const std::string &why) {
  tell(known, silent(why));
  ++known.report.times_unanswered;
  const auto longest = std::max(times_.age, times_.longest_age);
  auto pause = times_.age;
  for (int i = 1; i < known.report.times_unanswered && pause < longest; ++i) {
    pause *= 2;
  }
  known.due = Clock::now() + std::min(pause, longest);
}

// For the next one that is due, or whose time is up. What is due already is left over from this time.
void DriveReports::set_timer() {
  auto next = Clock::time_point::max();
  for (const auto &[drive, known] : known_) {
    next = std::min(next, known.run && !known.is_taken ? known.run->deadline() : known.due);
  }
  itimerspec timer{};
  if (next != Clock::time_point::max()) {
    const auto time = std::max(next.time_since_epoch(), Clock::duration(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    timer.it_value = {.tv_sec = static_cast<time_t>(seconds.count()),
                      .tv_nsec = static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
  }
  timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &timer, nullptr);
}

}  // namespace tavo::service
