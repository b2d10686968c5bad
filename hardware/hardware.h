// The server that this program runs on, as its sources find it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/descriptor.h"
#include "hardware/choice.h"
#include "hardware/fault_keeper.h"
#include "hardware/register.h"
#include "hardware/source.h"
#include "service/machine.h"

namespace tavo::service {

// How often to read sources, by their names, where that is not as often as they say themselves.
using Intervals = std::map<std::string, std::chrono::seconds>;

// Each source is read on a thread of its own, so one that hangs stalls nobody else; after a while it is a fault.
class Hardware : public RealServer {
 public:
  // `kept` outlives this object.
  Hardware(std::vector<std::unique_ptr<Source>> sources, Register &kept, const Intervals &intervals = {});
  // Waits for no source: the thread of one that hangs is left behind.
  ~Hardware() override;

  // The server once every source has been read, or as far as it is known when the time is up.
  Inventory first_inventory(std::chrono::seconds at_most);

  // What could not be read and why, a line each.
  std::vector<std::string> unreadable();

  // Brings the machine up to date and raises and clears faults. Called about once a second. What fails is said once,
  // and tried again at the next call.
  void advance(Machine &machine);

  void forget(const std::string &kind, std::int64_t number) override;

 private:
  // What a source's thread shares with the rest. The thread may outlive the Hardware.
  struct Reader {
    std::unique_ptr<Source> source;
    std::optional<std::chrono::seconds> interval;  // nothing: what the source says
    Descriptor wake;                               // readable once the next reading is due, or the thread is to end
    std::atomic<bool> stopping = false;
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::shared_ptr<const Finding> finding;                              // of the last reading that has not failed
    std::string failure;                                                 // why the last reading has; empty: it has not
    std::optional<std::chrono::steady_clock::time_point> reading_since;  // nothing: it is not being read
    bool has_news = false;
  };

  static void read_again_and_again(const std::shared_ptr<Reader> &reader);
  static void read_once(Reader &reader);
  static void wake(const Reader &reader);
  // False if the thread is to end.
  static bool wait_until_due(Reader &reader);

  std::vector<Word> words();
  Inventory assemble();
  Situation situation();
  bool take_news();
  void show_news(Machine &machine);
  void tell_of_sd_cards(const Machine &machine);

  std::vector<std::shared_ptr<Reader>> readers_;  // in the order in which they enter what they find
  Register &register_;
  FaultKeeper keeper_;
  std::optional<Inventory> shown_;  // what the machine has
  bool is_behind_ = false;          // there is news that the machine does not have yet
  bool has_sd_news_ = false;        // the machine has news of SD cards, of which nobody has been told yet
  // Why the last attempt has failed; empty: it has not.
  std::string show_failure_;
  std::string settle_failure_;
};

}  // namespace tavo::service
