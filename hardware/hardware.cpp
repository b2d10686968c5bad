#include "hardware/hardware.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "service/causes.h"

namespace tavo::service {
namespace {

using Clock = std::chrono::steady_clock;

// Between readings, however much changes: one plug makes many events.
constexpr std::chrono::milliseconds shortest_pause(500);

// A source that takes longer has a fault.
constexpr std::chrono::seconds patience(60);

// A server of which nothing is known yet.
Inventory unknown_server() {
  Inventory inventory;
  for (const std::string_view field : {"description", "product-name", "product-id", "serial", "uuid"}) {
    inventory.server.set(field, "");
  }
  inventory.server.set("board-readable", "no");
  inventory.sd.controller.set("present", "no");
  return inventory;
}

// Whether the platform's files hold something else now.
bool files_differ(const Inventory &left, const Inventory &right) {
  return left.supplies != right.supplies || left.controllers != right.controllers;
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
    reader->changed.wait_until(lock, deadline, [&] { return reader->finding.has_value(); });
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
    if (!reader->finding) {
      lines.push_back(name + ": no answer yet");
      continue;
    }
    for (const std::string &line : reader->finding->unreadable) {
      lines.push_back(name + ": " + line);
    }
  }
  return lines;
}

void Hardware::advance(Machine &machine) {
  if (take_news()) {
    Inventory fresh = assemble();
    const Inventory before = std::exchange(*shown_, fresh);
    if (files_differ(before, fresh)) {
      machine.change([&](Inventory &inventory) { inventory = fresh; });
    } else if (before != fresh) {
      machine.change_readings([&](Inventory &inventory) { inventory = fresh; });
    }
    if (before.controllers != fresh.controllers) {
      machine.send_storage_event(STORAGE_EVENT_CONFIGURATION_CHANGED);
    }
    if (before.sd != fresh.sd) {
      machine.announce_sd_change("SD cards changed");
    }
  }
  keeper_.settle(troubles(), Clock::now(), machine);
}

void Hardware::forget(const std::string &kind, std::int64_t number) {
  std::vector<std::string> missing;
  for (const Trouble &trouble : troubles()) {
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
    Finding finding = read_once(*reader->source);
    {
      const std::lock_guard lock(reader->mutex);
      reader->finding = std::move(finding);
      reader->reading_since.reset();
      reader->has_news = true;
      reader->changed.notify_all();
    }
  } while (wait_until_due(*reader));
}

Finding Hardware::read_once(Source &source) {
  try {
    return source.read();
  } catch (const std::exception &error) {
    Finding nothing;
    nothing.unreadable.push_back(error.what());
    return nothing;
  }
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

Inventory Hardware::assemble() {
  Inventory inventory = unknown_server();
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    if (reader->finding) {
      reader->finding->enter(inventory);
    }
  }
  return inventory;
}

std::vector<Trouble> Hardware::troubles() {
  std::vector<Trouble> all;
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    if (reader->finding) {
      all.insert(all.end(), reader->finding->troubles.begin(), reader->finding->troubles.end());
    }
    if (reader->reading_since && Clock::now() - *reader->reading_since > patience) {
      const std::string name(reader->source->name());
      all.push_back({.key = "source " + name,
                     .class_code = server_class,
                     .unit = 1,
                     .severity = "warning",
                     .cause = cause::failed,
                     .description = name + " does not answer: what it shows may be out of date"});
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
