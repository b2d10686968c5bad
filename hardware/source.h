// What there is to know of the machine that this program runs on, and where it comes from.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "hardware/register.h"
#include "service/causes.h"
#include "service/inventory.h"

namespace tavo::service {

// A condition that is a fault for as long as it lasts.
struct Trouble {
  std::string key;                // names the condition for ever: "dimm DIMM_A1 uncorrected"
  std::int64_t class_code;        // of the part: core/class_number.h
  std::int64_t unit;              // the number by which the fault's class knows the part
  std::string severity = {};      // as a scenario writes it
  int cause = cause::failed;      // service/causes.h
  std::string description = {};   // a sentence for the operator
  std::string affected = {};      // the part's distinguished name; empty: what the class and unit stand for
  std::string affected_oid = {};  // the object identifier that goes with it
  std::optional<MissingPart> missing = {};
  // What has happened, in words that all sources use which may tell of it: "uncorrected memory error". Empty: only this
  // source can know. Of several troubles with the same words, one is a fault: see hardware/same_error.h.
  std::string error = {};
  std::string source = {};  // which has found it; filled in by whoever asks the source
};

// A part as its faults know it.
struct FaultyPart {
  std::int64_t class_code;  // core/class_number.h
  std::int64_t unit;
};

// The trouble that a part is missing. `part` has a key and a description, which name the part.
Trouble missing(Trouble part, const MissingPart &missing);

// What several sources may tell of, and the tables show once. They are entered in this order.
// `ProcessorHeat`: which processors are too hot, by limits that the source knows. Who measures best may know none.
enum class Topic { Fans, ProcessorTemperatures, ProcessorHeat, Power, Supplies };

// What one source says of a topic.
struct Account {
  std::function<void(Inventory &)> enter = [](Inventory &) {};
  std::vector<Trouble> troubles = {};
  bool is_vague = false;  // it says that there is something, but has seen nothing of it yet
};

// What one reading of a source has found.
struct Finding {
  // Enters it into an inventory that already holds what the sources before this one have found.
  std::function<void(Inventory &)> enter = [](Inventory &) {};
  std::vector<Trouble> troubles;
  // What could not be read and why, a line each: "/dev/ipmi0: no such file".
  std::vector<std::string> unreadable;
  // What the keys of troubles begin with of which the reading cannot say whether they are there. Their faults stay as
  // they are. "": all.
  std::vector<std::string> undecided = {};
  // On the topics of which the source knows something. Whose account counts is chosen in choice.h.
  std::map<Topic, Account> accounts = {};
  // Topics of which it cannot say yet whether it knows something.
  std::set<Topic> awaited = {};
};

// One way of getting to know the machine. A source is used by one thread at a time.
class Source {
 public:
  Source() = default;
  Source(const Source &) = delete;
  Source &operator=(const Source &) = delete;
  virtual ~Source() = default;

  // The text outlives the source.
  virtual std::string_view name() const = 0;
  // How long after a reading the next one is due, which may depend on what the reading found. Zero: what it reads never
  // changes.
  virtual std::chrono::seconds interval() const = 0;
  // A descriptor that is readable once something has changed, so that the next reading is due at once; negative: none.
  // Each reading takes what there is to read.
  virtual int watch() const { return -1; }

  // May take as long as the hardware does. Throws std::exception if nothing can be read at all.
  virtual Finding read() = 0;
};

// A server of which nothing is known yet.
Inventory unknown_server();

// Where the kernel shows the machine; other directories in tests.
struct Roots {
  std::filesystem::path sys = "/sys";
  std::filesystem::path dev = "/dev";
  std::filesystem::path proc = "/proc";
};

}  // namespace tavo::service
