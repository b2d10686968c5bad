// What the management controller keeps: its sensor data records, FRU areas and event log, as octets.
#pragma once

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
};

// All records, each once.
SdrRecords read_sdr(IpmiDevice &device);

// As much of the FRU area as can be read; at most some kilobytes, which is more than areas have.
IpmiOctets read_fru(IpmiDevice &device, std::uint8_t id);

// The event log, of which each entry is read once.
class SelReader {
 public:
  struct News {
    bool begins_anew = false;         // what was there before has been cleared, or is no longer known
    std::vector<IpmiOctets> records;  // of 16 octets
  };

  // What has been logged since the last call; nothing if the controller has no log.
  std::optional<News> read(IpmiDevice &device);

 private:
  struct Entry {
    unsigned next;
    IpmiOctets record;
  };

  static std::optional<Entry> entry(IpmiDevice &device, unsigned id);
  unsigned first_new(IpmiDevice &device, News &news) const;

  IpmiOctets state_;  // the log's, when it was last read to the end
  IpmiOctets last_;   // the last record that was read; empty: none
};

}  // namespace tavo::service
