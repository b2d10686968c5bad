#include "hardware/fault_keeper.h"

#include <algorithm>
#include <ctime>
#include <iostream>
#include <set>

#include "hardware/same_error.h"
#include "hardware/set_line.h"

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

RegisteredFault fault_of(const Trouble &trouble) {
  const std::size_t most = find_field(fault_kind, "description")->size;
  return {.index = 0,
          .class_code = trouble.class_code,
          .unit = trouble.unit,
          .severity = trouble.severity,
          .cause = trouble.cause,
          .description = one_line(trouble.description, most),
          .affected = trouble.affected,
          .affected_oid = trouble.affected_oid,
          .first_time = 0,
          .source = trouble.source};
}

Part part_of(const RegisteredFault &fault) {
  Part part(fault_kind);
  part.set_number("index", fault.index);
  apply_settings(part, settings_of(fault));
  return part;
}

// Why a fault cannot be active: somebody may have edited the register. Empty if it can; its index is then taken.
std::string trouble_with(const RegisteredFault &fault, std::set<std::int64_t> &indexes) {
  try {
    part_of(fault);
  } catch (const BadInput &error) {
    return error.what();
  }
  return indexes.insert(fault.index).second ? "" : "another one has its index";
}

bool is_undecided(const Situation &situation, const std::string &key, const std::string &source) {
  const auto found = situation.undecided.find(source);
  return found != situation.undecided.end() &&
         std::ranges::any_of(found->second, [&](const std::string &beginning) { return key.starts_with(beginning); });
}

}  // namespace

FaultKeeper::FaultKeeper(Register &kept) : register_(kept) {
  std::set<std::int64_t> indexes;
  for (const auto &[key, fault] : register_.faults()) {
    const std::string trouble = trouble_with(fault, indexes);
    if (!trouble.empty()) {
      std::cerr << "bmcsim: the fault '" << key << "' in the register is dropped: " << trouble << '\n';
      register_.drop_fault(key);
      continue;
    }
    known_[key] = {.is_fault = true, .is_there = true, .since = Clock::now(), .fault = fault};
  }
}

std::vector<Part> FaultKeeper::active() const {
  std::vector<Part> faults;
  for (const auto &[key, known] : known_) {
    if (known.is_fault) {
      faults.push_back(part_of(known.fault));
    }
  }
  return faults;
}

void FaultKeeper::settle(const Situation &situation, Clock::time_point now, Machine &machine) {
  const auto is_fault = [&](const std::string &key) { return known_.contains(key) && known_.at(key).is_fault; };
  const auto told = told_by_others(situation.troubles, is_fault);
  std::set<std::string> there;
  for (const Trouble &trouble : situation.troubles) {
    // A fault stays until the one that says the same has become one.
    const bool counts = !told.contains(trouble.key) || is_fault(trouble.key);
    if (counts && there.insert(trouble.key).second) {
      note(trouble, now, machine);
    }
  }
  for (auto &[key, known] : known_) {
    const bool stays = known.is_fault && is_undecided(situation, key, known.fault.source);
    if (known.is_there && !there.contains(key) && !stays) {
      known.is_there = false;
      known.since = now;
    }
    if (known.is_there && !known.is_fault && now - known.since >= raised_after) {
      raise(key, known, machine);
    }
    if (!known.is_there && known.is_fault && now - known.since >= cleared_after) {
      clear(key, known, machine);
    }
  }
  for (const auto &[key, by] : told) {
    if (is_fault(key) && is_fault(by)) {
      known_[key].is_there = false;
      clear(key, known_[key], machine);
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
  if (!known.is_fault) {
    known.fault = fault;
  } else if (fault.class_code != known.fault.class_code || fault.unit != known.fault.unit) {
    // Whoever follows the faults knows one by its class and index, and would keep the old one for ever.
    clear(trouble.key, known, machine);
    known.fault = fault;
    raise(trouble.key, known, machine);
  } else if (fault.severity != known.fault.severity || fault.description != known.fault.description) {
    fault.first_time = known.fault.first_time;
    known.fault = fault;
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

void FaultKeeper::clear(const std::string &key, Known &known, Machine &machine) {
  machine.faults().clear(static_cast<std::uint32_t>(known.fault.index), known.fault.class_code);
  register_.drop_fault(key);
  known.is_fault = false;
}

}  // namespace tavo::service
