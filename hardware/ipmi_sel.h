// What the event log of the management controller says of faults that last.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "hardware/ipmi_sdr.h"
#include "hardware/source.h"

namespace tavo::service {

// An event of a sensor: it has entered a state, or left it.
struct SelEvent {
  std::uint8_t generator = 0;  // who has seen it: 0x20 is the controller itself
  std::uint8_t sensor = 0;     // its number
  std::uint8_t type = 0;       // IPMI_SENSOR_TYPE_...
  std::uint8_t state = 0;      // of those of this type
  bool is_entered = false;

  bool operator==(const SelEvent &) const = default;
};

// Nothing if the record is cut short or is no event of a state that depends on the sensor's type.
std::optional<SelEvent> decode_sel(const IpmiOctets &record);

// Faults that the log has told of. They last until the log says that they are over, or is cleared.
class SelFaults {
 public:
  void forget_all() { active_.clear(); }
  // To be called with the log's records in their order.
  void note(const SelEvent &event);

  // `sensors` are those of the controller, which tell the names and the parts that the sensors belong to.
  std::vector<Trouble> troubles(const std::vector<IpmiSensor> &sensors) const;

 private:
  struct Active {
    std::uint8_t type;
    std::uint8_t state;
    std::uint8_t generator;
    std::uint8_t sensor;

    auto operator<=>(const Active &) const = default;
  };

  std::set<Active> active_;
};

}  // namespace tavo::service
