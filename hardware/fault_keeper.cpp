#include "hardware/fault_keeper.h"

#include <algorithm>
#include <ctime>
#include <set>

namespace tavo::service {
namespace {

std::vector<std::string> settings_of(const RegisteredFault &fault) {
  std::vector<std::string> settings{"class=" + std::to_string(fault.class_code),
                                    "unit=" + std::to_string(fault.unit),
                                    "severity=" + fault.severity,
                                    "cause=" + std::to_string(fault.cause),
                                    "description=" + fault.description,
                                    "first-time=" + std::to_string(fault.first_time)};
  if (!fault.affected.empty()) {
    settings.push_back("affected=" + fault.affected);
    settings.push_back("affected-oid=" + fault.affected_oid);
  }
  return settings;
}

// A description that is too long for its field loses its end.
RegisteredFault fault_of(const Trouble &trouble) {
  const std::size_t most = find_field(fault_kind, "description")->size;
  return {.index = 0,
          .class_code = trouble.class_code,
          .unit = trouble.unit,
          .severity = trouble.severity,
          .cause = trouble.cause,
          .description = trouble.description.substr(0, most),
          .affected = trouble.affected,
          .affected_oid = trouble.affected_oid,
          .first_time = 0};
}

}  // namespace

FaultKeeper::FaultKeeper(Register &kept) : register_(kept) {
  for (const auto &[key, fault] : register_.faults()) {
    known_[key] = {.is_fault = true, .is_there = true, .since = Clock::now(), .fault = fault};
  }
}

std::vector<Part> FaultKeeper::active() const {
  std::vector<Part> faults;
  for (const auto &[key, known] : known_) {
    if (known.is_fault) {
      Part fault(fault_kind);
      fault.set_number("index", known.fault.index);
      apply_settings(fault, settings_of(known.fault));
      faults.push_back(std::move(fault));
    }
  }
  return faults;
}

void FaultKeeper::settle(const std::vector<Trouble> &troubles, Clock::time_point now, Machine &machine) {
  std::set<std::string> there;
  for (const Trouble &trouble : troubles) {
    there.insert(trouble.key);
    note(trouble, now, machine);
  }
  for (auto &[key, known] : known_) {
    if (known.is_there && !there.contains(key)) {
      known.is_there = false;
      known.since = now;
    }
    if (known.is_there && !known.is_fault && now - known.since >= raised_after) {
      raise(key, known, machine);
    }
    if (!known.is_there && known.is_fault && now - known.since >= cleared_after) {
      machine.faults().clear(static_cast<std::uint32_t>(known.fault.index), known.fault.class_code);
      register_.drop_fault(key);
      known.is_fault = false;
    }
  }
  std::erase_if(known_, [](const auto &entry) { return !entry.second.is_there && !entry.second.is_fault; });
}

void FaultKeeper::note(const Trouble &trouble, Clock::time_point now, Machine &machine) {
  Known &known = known_[trouble.key];
  if (!known.is_there) {
    known.is_there = true;
    known.since = now;
  }
  RegisteredFault fault = fault_of(trouble);
  fault.index = known.fault.index;
  fault.first_time = known.fault.first_time;
  const bool changed = fault.severity != known.fault.severity || fault.description != known.fault.description;
  if (changed || !known.is_fault) {
    known.fault = fault;
  }
  if (changed && known.is_fault) {
    raise(trouble.key, known, machine);
  }
}

// A fault that is active is updated.
void FaultKeeper::raise(const std::string &key, Known &known, Machine &machine) {
  if (known.fault.first_time == 0) {
    known.fault.first_time = std::time(nullptr);
  }
  known.fault.index = register_.number_of("fault", key);
  machine.raise_fault(static_cast<std::uint32_t>(known.fault.index), settings_of(known.fault));
  register_.keep_fault(key, known.fault);
  known.is_fault = true;
}

}  // namespace tavo::service
