// What must stay the same from one start to the next: which number a place has, which parts should be there, and which
// faults are active.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::service {

// A fault that is active, or was when the service ended.
struct RegisteredFault {
  std::int64_t index;
  std::int64_t class_code;
  std::int64_t unit;
  std::string severity;
  std::int64_t cause;
  std::string description;
  std::string affected;
  std::string affected_oid;
  std::int64_t first_time;  // seconds since 1970
  std::string source;       // which has found it; empty: not known
};

// A part that was there once. It should be there until it is forgotten.
struct RegisteredPart {
  std::int64_t number;  // of its place, within the group
  std::string name;     // for the operator
};

// A part that should be there and is not.
struct MissingPart {
  std::string group;  // "drive"
  std::int64_t number;
  std::string name = {};

  bool operator==(const MissingPart &) const = default;
};

// A JSON file, replaced as a whole at each change. Thread safe.
class Register {
 public:
  // An empty path keeps nothing. A file that cannot be read or is no register is moved aside, with a line on standard
  // error: the numbers begin anew.
  explicit Register(std::filesystem::path file);

  // The number that the key has within its group: the one it had before or, if it is new, `wanted` or, if that is taken
  // or 0, the lowest that is free, from 1 on.
  std::int64_t number_of(const std::string &group, const std::string &key, std::int64_t wanted = 0);

  // Notes that a part was there, by its place.
  void keep_part(const std::string &group, const std::string &place, const std::string &name);
  // The parts of the group that were there, by their places.
  std::map<std::string, RegisteredPart> parts(const std::string &group);
  // Forgets the part with this number, so that the number is free again. False if there is none.
  bool forget_part(const std::string &group, std::int64_t number);

  // Gives what was known as `from` another key. If that is known already, it stays as it is, and `from` is forgotten.
  void rename(const std::string &group, const std::string &from, const std::string &to);

  // How long the number is kept of what nobody misses.
  static constexpr std::chrono::seconds kept_for = std::chrono::hours(24 * 30);
  // Frees the numbers of keys that are neither parts nor `present`, and have not been for `kept_for`. What is present
  // is given by its key; the rest of it does not matter.
  void free_absent(const std::string &group, const std::map<std::string, std::string> &present,
                   std::time_t now = std::time(nullptr));
  // Frees the number of this key at once, unless it is a part's.
  void free(const std::string &group, const std::string &key);
  // All keys of the group that have a number.
  std::vector<std::string> keys(const std::string &group);

  std::map<std::string, RegisteredFault> faults();
  void keep_fault(const std::string &key, const RegisteredFault &fault);
  void drop_fault(const std::string &key);

 private:
  std::int64_t number_for(const std::string &group, const std::string &key,
                          std::int64_t wanted = 0);  // with mutex_ held
  void load();
  void save();  // with mutex_ held

  const std::filesystem::path file_;
  std::mutex mutex_;
  // Guarded by mutex_.
  std::map<std::string, std::map<std::string, std::int64_t>> numbers_;  // by group and key
  std::map<std::string, std::map<std::string, std::string>> names_;     // of parts, by group and place
  // Since when what nobody misses is not there, in seconds since 1970, by group and key.
  std::map<std::string, std::map<std::string, std::int64_t>> absent_;
  std::map<std::string, RegisteredFault> faults_;  // by the trouble's key
  bool save_failed_ = false;                       // said once
};

// Keeps a part that is there in the register. If it is absent, but was there once, returns it: only such a part is
// missing, since a place may be meant to be empty. `presence` is "present", "absent" or "unknown".
std::optional<MissingPart> missing_part(Register &kept, const std::string &group, const std::string &place,
                                        const std::string &name, std::string_view presence);

// The same for a whole group: keeps the parts that are there, whose names are given by their places, and returns those
// that were there once and are not among them, by their places.
std::map<std::string, MissingPart> missing_parts(Register &kept, const std::string &group,
                                                 const std::map<std::string, std::string> &present);

}  // namespace tavo::service
