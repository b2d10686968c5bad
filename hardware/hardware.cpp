#include "hardware/hardware.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "service/causes.h"

namespace tavo::service {
namespace {

using Clock = std::chrono::steady_clock;

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

Hardware::Hardware(std::vector<std::unique_ptr<Source>> sources, Register &kept) : register_(kept), keeper_(kept) {
  for (std::unique_ptr<Source> &source : sources) {
    auto reader = std::make_shared<Reader>();
    reader->source = std::move(source);
    readers_.push_back(reader);
    std::thread(read_again_and_again, reader).detach();
  }
}

Hardware::~Hardware() {
  for (const auto &reader : readers_) {
    const std::lock_guard lock(reader->mutex);
    reader->stopping = true;
    reader->changed.notify_all();
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
}

void Hardware::read_again_and_again(const std::shared_ptr<Reader> &reader) {
  for (;;) {
    {
      const std::lock_guard lock(reader->mutex);
      if (reader->stopping) {
        return;
      }
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
    wait_until_due(*reader);
  }
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

void Hardware::wait_until_due(Reader &reader) {
  const auto interval = reader.source->interval();
  const int watched = reader.source->watch();
  if (watched >= 0) {
    pollfd change{.fd = watched, .events = POLLIN | POLLPRI, .revents = 0};
    poll(&change, 1, interval.count() == 0 ? -1 : static_cast<int>(interval / std::chrono::milliseconds(1)));
    return;
  }
  std::unique_lock lock(reader.mutex);
  const auto is_stopping = [&] { return reader.stopping; };
  if (interval.count() == 0) {
    reader.changed.wait(lock, is_stopping);
  } else {
    reader.changed.wait_for(lock, interval, is_stopping);
  }
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
