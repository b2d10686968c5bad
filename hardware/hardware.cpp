#include "hardware/hardware.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <system_error>
#include <utility>

#include "core/class_number.h"
#include "service/causes.h"

namespace tavo::service {
namespace {

using Clock = std::chrono::steady_clock;

// Between readings, however much changes: one plug makes many events.
constexpr std::chrono::milliseconds shortest_pause(500);

// A source that takes longer has a fault.
constexpr std::chrono::seconds patience(60);

bool is_late(const std::optional<Clock::time_point> &reading_since) {
  return reading_since && Clock::now() - *reading_since > patience;
}

// Whether the platform's files hold something else now.
bool files_differ(const Inventory &left, const Inventory &right) {
  return left.supplies != right.supplies || left.controllers != right.controllers;
}

// Says why a step fails, unless that is what `failure` holds already.
void attempt(const std::function<void()> &step, std::string &failure) {
  try {
    step();
    failure.clear();
  } catch (const std::exception &error) {
    if (failure != error.what()) {
      std::cerr << "bmcsim: what has changed is not shown yet: " << error.what() << '\n';
    }
    failure = error.what();
  }
}

}  // namespace

Hardware::Hardware(std::vector<std::unique_ptr<Source>> sources, Register &kept, const Intervals &intervals)
    : register_(kept), keeper_(kept) {
  for (std::unique_ptr<Source> &source : sources) {
    auto reader = std::make_shared<Reader>();
    reader->source = std::move(source);
    const auto interval = intervals.find(std::string(reader->source->name()));
    if (interval != intervals.end()) {
      reader->interval = interval->second;
    }
    reader->wake = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!reader->wake) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    readers_.push_back(reader);
    std::thread(read_again_and_again, reader).detach();
  }
}

Hardware::~Hardware() {
  for (const auto &reader : readers_) {
    reader->stopping = true;
    wake(*reader);
  }
}

Inventory Hardware::first_inventory(std::chrono::seconds at_most) {
  const auto deadline = Clock::now() + at_most;
  for (const auto &reader : readers_) {
    std::unique_lock lock(reader->mutex);
    reader->changed.wait_until(lock, deadline, [&] { return reader->finding || !reader->failure.empty(); });
  }
  take_news();
  shown_ = assemble();
  Inventory first = *shown_;
  first.faults = keeper_.active();
  return first;
}

std::vector<std::string> Hardware::unreadable() {
  std::vector<std::string> lines;
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    const std::string name(reader->source->name());
    if (!reader->failure.empty()) {
      lines.push_back(name + ": " + reader->failure);
    }
    if (!reader->finding) {
      if (reader->failure.empty()) {
        lines.push_back(name + ": no answer yet");
      }
      continue;
    }
    for (const std::string &line : reader->finding->unreadable) {
      lines.push_back(name + ": " + line);
    }
  }
  return lines;
}

void Hardware::advance(Machine &machine) {
  attempt([&] { show_news(machine); }, show_failure_);
  tell_of_sd_cards(machine);
  attempt([&] { keeper_.settle(situation(), Clock::now(), machine); }, settle_failure_);
}

void Hardware::show_news(Machine &machine) {
  is_behind_ = take_news() || is_behind_;
  if (!is_behind_) {
    return;
  }
  const Inventory fresh = assemble();
  if (files_differ(*shown_, fresh)) {
    machine.change([&](Inventory &inventory) { inventory = fresh; });
  } else if (*shown_ != fresh) {
    machine.change_readings([&](Inventory &inventory) { inventory = fresh; });
  }
  const Inventory before = std::exchange(*shown_, fresh);
  is_behind_ = false;
  if (before.controllers != fresh.controllers) {
    machine.send_storage_event(STORAGE_EVENT_CONFIGURATION_CHANGED);
  }
  has_sd_news_ = has_sd_news_ || before.sd != fresh.sd;
}

// Nothing else can be done meanwhile, so one that is busy is told later. Who does not listen reads the cards when it
// starts.
void Hardware::tell_of_sd_cards(const Machine &machine) {
  constexpr std::chrono::milliseconds a_moment(10);
  if (has_sd_news_) {
    has_sd_news_ = !machine.announce_sd_change("SD cards changed", a_moment) && errno == EAGAIN;
  }
}

void Hardware::forget(const std::string &kind, std::int64_t number) {
  std::vector<std::string> missing;
  for (const Trouble &trouble : situation().troubles) {
    if (trouble.missing) {
      missing.push_back(trouble.missing->group + ' ' + std::to_string(trouble.missing->number));
    }
  }
  const std::string wanted = kind + ' ' + std::to_string(number);
  if (std::ranges::find(missing, wanted) == missing.end() || !register_.forget_part(kind, number)) {
    throw BadInput("'" + wanted + "' is not missing; what is: " + joined({missing.begin(), missing.end()}));
  }
  for (const auto &reader : readers_) {
    wake(*reader);  // whichever source misses it
  }
}

void Hardware::read_again_and_again(const std::shared_ptr<Reader> &reader) {
  do {
    {
      const std::lock_guard lock(reader->mutex);
      reader->reading_since = Clock::now();
    }
    read_once(*reader);
  } while (wait_until_due(*reader));
}

void Hardware::read_once(Reader &reader) {
  std::shared_ptr<const Finding> finding;
  std::string failure;
  try {
    finding = std::make_shared<Finding>(reader.source->read());
  } catch (const std::exception &error) {
    failure = error.what();
  }
  const std::lock_guard lock(reader.mutex);
  // A reading that fails says nothing of the parts: what was found before stays.
  if (finding) {
    reader.finding = std::move(finding);
    reader.has_news = true;
  }
  reader.failure = failure;
  reader.reading_since.reset();
  reader.changed.notify_all();
}

void Hardware::wake(const Reader &reader) {
  eventfd_write(reader.wake.get(), 1);
}

bool Hardware::wait_until_due(Reader &reader) {
  const auto milliseconds = [](auto duration) {
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
  };
  // Asked for each time: a source may want to be read more often once it has found something.
  const std::chrono::seconds interval = reader.interval.value_or(reader.source->interval());
  const int until_next = interval.count() == 0 ? -1 : milliseconds(interval - shortest_pause);
  std::array<pollfd, 2> watched{{{.fd = reader.wake.get(), .events = POLLIN, .revents = 0},
                                 {.fd = reader.source->watch(), .events = POLLIN, .revents = 0}}};
  const bool is_woken = poll(watched.data(), 1, milliseconds(shortest_pause)) > 0;
  if (!is_woken) {
    poll(watched.data(), watched.size(), until_next);
  }
  eventfd_t taken = 0;
  eventfd_read(reader.wake.get(), &taken);
  return !reader.stopping;
}

std::vector<Word> Hardware::words() {
  std::vector<Word> words;
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    words.push_back({.source = reader->source->name(),
                     .finding = reader->finding,
                     .is_awaited = !reader->finding && reader->failure.empty() && !is_late(reader->reading_since)});
  }
  return words;
}

Inventory Hardware::assemble() {
  Inventory inventory = unknown_server();
  enter_all(inventory, words());
  return inventory;
}

Situation Hardware::situation() {
  Situation all = situation_of(words());
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    const std::string name(reader->source->name());
    if (is_late(reader->reading_since)) {
      all.troubles.push_back({.key = "source " + name,
                              .class_code = class_number::server,
                              .unit = 1,
                              .severity = "warning",
                              .cause = cause::failed,
                              .description = name + " does not answer: what it shows may be out of date",
                              .source = name});
    }
  }
  return all;
}

bool Hardware::take_news() {
  bool any = false;
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    any = std::exchange(reader->has_news, false) || any;
  }
  return any;
}

}  // namespace tavo::service
