#include "hardware/register.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <system_error>

#include "service/replaced_file.h"

namespace tavo::service {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RegisteredFault, index, class_code, unit, severity, cause, description, affected,
                                   affected_oid, first_time, source)

namespace {

// Higher indexes of faults are not the server's own. Nothing else needs as many numbers.
constexpr std::int64_t highest_number = 99'999;

void check_number(std::int64_t number, const std::string &group, const std::string &key) {
  if (number < 1 || number > highest_number) {
    throw std::runtime_error(group + " '" + key + "' has the number " + std::to_string(number) +
                             ", which is not from 1 to " + std::to_string(highest_number));
  }
}

void check_numbers(const std::string &group, const std::map<std::string, std::int64_t> &numbers) {
  std::set<std::int64_t> taken;
  for (const auto &[key, number] : numbers) {
    check_number(number, group, key);
    if (!taken.insert(number).second) {
      throw std::runtime_error("two of " + group + " have the number " + std::to_string(number));
    }
  }
}

}  // namespace

Register::Register(std::filesystem::path file) : file_(std::move(file)) {
  if (!file_.empty() && std::filesystem::exists(file_)) {
    load();
  }
}

std::int64_t Register::number_of(const std::string &group, const std::string &key, std::int64_t wanted) {
  const std::lock_guard lock(mutex_);
  return number_for(group, key, wanted);
}

void Register::keep_part(const std::string &group, const std::string &place, const std::string &name) {
  const std::lock_guard lock(mutex_);
  number_for(group, place);
  std::string &known = names_[group][place];
  if (known != name) {
    known = name;
    save();
  }
}

std::map<std::string, RegisteredPart> Register::parts(const std::string &group) {
  const std::lock_guard lock(mutex_);
  std::map<std::string, RegisteredPart> parts;
  for (const auto &[place, name] : names_[group]) {
    parts[place] = {.number = number_for(group, place), .name = name};
  }
  return parts;
}

bool Register::forget_part(const std::string &group, std::int64_t number) {
  const std::lock_guard lock(mutex_);
  auto &numbers = numbers_[group];
  const auto found = std::ranges::find_if(numbers, [&](const auto &entry) { return entry.second == number; });
  if (found == numbers.end() || names_[group].erase(found->first) == 0) {
    return false;
  }
  numbers.erase(found);
  save();
  return true;
}

void Register::rename(const std::string &group, const std::string &from, const std::string &to) {
  const std::lock_guard lock(mutex_);
  auto &numbers = numbers_[group];
  auto &names = names_[group];
  auto number = numbers.extract(from);
  if (number.empty()) {
    return;
  }
  auto name = names.extract(from);
  if (!numbers.contains(to)) {
    number.key() = to;
    numbers.insert(std::move(number));
    if (!name.empty()) {
      name.key() = to;
      names.insert(std::move(name));
    }
  }
  absent_[group].erase(from);
  save();
}

void Register::free_absent(const std::string &group, const std::map<std::string, std::string> &present,
                           std::time_t now) {
  const std::lock_guard lock(mutex_);
  auto &numbers = numbers_[group];
  auto &absent = absent_[group];
  const auto before = absent;
  for (const auto &entry : numbers) {
    if (present.contains(entry.first) || names_[group].contains(entry.first)) {
      absent.erase(entry.first);
    } else {
      absent.try_emplace(entry.first, now);
    }
  }
  std::erase_if(absent, [&](const auto &entry) {
    return !numbers.contains(entry.first) || (now - entry.second >= kept_for.count() && numbers.erase(entry.first) > 0);
  });
  if (absent != before) {
    save();
  }
}

void Register::free(const std::string &group, const std::string &key) {
  const std::lock_guard lock(mutex_);
  if (!names_[group].contains(key) && numbers_[group].erase(key) > 0) {
    save();
  }
}

std::vector<std::string> Register::keys(const std::string &group) {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> keys;
  for (const auto &entry : numbers_[group]) {
    keys.push_back(entry.first);
  }
  return keys;
}

std::int64_t Register::number_for(const std::string &group, const std::string &key, std::int64_t wanted) {
  auto &numbers = numbers_[group];
  const auto known = numbers.find(key);
  if (known != numbers.end()) {
    return known->second;
  }
  std::set<std::int64_t> taken;
  for (const auto &entry : numbers) {
    taken.insert(entry.second);
  }
  std::int64_t number = wanted > 0 && !taken.contains(wanted) ? wanted : 1;
  while (taken.contains(number)) {
    ++number;
  }
  numbers[key] = number;
  save();
  return number;
}

std::map<std::string, RegisteredFault> Register::faults() {
  const std::lock_guard lock(mutex_);
  return faults_;
}

void Register::keep_fault(const std::string &key, const RegisteredFault &fault) {
  const std::lock_guard lock(mutex_);
  faults_[key] = fault;
  save();
}

void Register::drop_fault(const std::string &key) {
  const std::lock_guard lock(mutex_);
  faults_.erase(key);
  save();
}

void Register::load() {
  try {
    std::ifstream stream(file_);
    auto content = nlohmann::json::parse(stream);
    for (auto &fault : content.at("faults")) {
      fault.emplace("source", "");  // older files have none
    }
    numbers_ = content.at("numbers");
    names_ = content.value("parts", names_);     // older files have none
    absent_ = content.value("absent", absent_);  // the same
    faults_ = content.at("faults");
    for (const auto &[group, numbers] : numbers_) {
      check_numbers(group, numbers);
    }
    for (const auto &[key, fault] : faults_) {
      check_number(fault.index, "fault", key);
    }
  } catch (const std::exception &error) {
    numbers_.clear();
    names_.clear();
    absent_.clear();
    faults_.clear();
    std::error_code failure;
    std::filesystem::rename(file_, file_.string() + ".unreadable", failure);
    const std::string fate = failure ? "cannot be moved aside (" + failure.message() + ")" : "was moved aside";
    std::cerr << "bmcsim: " << file_.string() << " is no register and " << fate << ": " << error.what() << '\n';
  }
}

void Register::save() {
  if (file_.empty()) {
    return;
  }
  try {
    const nlohmann::json content{{"numbers", numbers_}, {"parts", names_}, {"absent", absent_}, {"faults", faults_}};
    // Names of the hardware need not be UTF-8.
    const std::string text = content.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
    if (file_.has_parent_path()) {
      std::filesystem::create_directories(file_.parent_path());
    }
    replace_file(file_, std::as_bytes(std::span(text)));
    save_failed_ = false;
  } catch (const std::exception &error) {
    if (!save_failed_) {
      std::cerr << "bmcsim: numbers and faults are not kept: " << error.what() << '\n';
    }
    save_failed_ = true;
  }
}

std::optional<MissingPart> missing_part(Register &kept, const std::string &group, const std::string &place,
                                        const std::string &name, std::string_view presence) {
  const std::int64_t number = kept.number_of(group, place);
  if (presence == "present") {
    kept.keep_part(group, place, name);
  }
  return presence == "absent" && kept.parts(group).contains(place)
             ? std::optional(MissingPart{.group = group, .number = number, .name = name})
             : std::nullopt;
}

std::map<std::string, MissingPart> missing_parts(Register &kept, const std::string &group,
                                                 const std::map<std::string, std::string> &present) {
  for (const auto &[place, name] : present) {
    kept.keep_part(group, place, name);
  }
  std::map<std::string, MissingPart> missing;
  for (const auto &[place, part] : kept.parts(group)) {
    if (!present.contains(place)) {
      missing[place] = {.group = group, .number = part.number, .name = part.name};
    }
  }
  return missing;
}

}  // namespace tavo::service
