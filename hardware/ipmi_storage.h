// What the management controller keeps: its sensor data records, FRU areas and event log, as octets.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <vector>

#include "hardware/ipmi_device.h"

namespace tavo::service {

// Everything that tells one state of the repository from another; nothing if the controller has no repository.
std::optional<IpmiOctets> sdr_state(IpmiDevice &device);

struct SdrRecords {
  std::vector<IpmiOctets> records;  // each with its header
  bool is_complete = true;          // or else a record could not be read, and those after it are not known
  bool is_at_end = false;           // or else there is more to read
  unsigned next = 0;                // the number of the record to go on with; 0 is the first
  std::set<unsigned> seen;          // numbers of records
};

// Reads on, each record once, until the end or, if that comes later, until the time is up, but at least one record.
void read_sdr(IpmiDevice &device, SdrRecords &found, std::chrono::steady_clock::time_point until);

// As much of the FRU area as can be read; at most some kilobytes, which is more than areas have.
IpmiOctets read_fru(IpmiDevice &device, std::uint8_t id);

// The event log, of which each entry is read once.
class SelReader {
 public:
  struct News {
    bool begins_anew = false;         // what was there before has been cleared, or is no longer known
    std::vector<IpmiOctets> records;  // of 16 octets
  };

  // What has been logged since the last call, as far as the controller gives it: the rest comes with the next call.
  // Nothing if the controller has no log.
  std::optional<News> read(IpmiDevice &device);

 private:
  struct Entry {
    unsigned next;
    IpmiOctets record;
  };

  // Whether the controller has an entry is one thing, and whether it gives it is another.
  struct Answer {
    bool is_refused = false;
    std::optional<Entry> entry = {};  // nothing: it is refused, or not in the log
  };

  static Answer ask_once(IpmiDevice &device, unsigned id);
  static Answer ask_for(IpmiDevice &device, unsigned id);
  // The number of the first entry that is new; nothing if that is refused.
  std::optional<unsigned> first_new(IpmiDevice &device, News &news) const;

  IpmiOctets state_;        // the log's, when it was last read
  bool is_at_end_ = false;  // it was read to the end
  IpmiOctets last_;         // the last record that was read; empty: none
};

}  // namespace tavo::service
