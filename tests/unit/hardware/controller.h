// A made-up management controller that answers the commands of IPMI, and the records that it has.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hardware/ipmi_device.h"

namespace tavo::service {

// Appends an area's octets.
inline void append(IpmiOctets &octets, const std::string &text) {
  octets.insert(octets.end(), text.begin(), text.end());
}

// What a full sensor record says, apart from what is the same for all.
struct MadeUpSensor {
  std::uint8_t number = 1;
  std::uint8_t type = 1;  // a temperature
  std::uint8_t entity = 7;
  std::uint8_t instance = 1;
  std::string name = "Temp";
  std::uint8_t unit = 1;  // degrees
  std::uint8_t multiplier = 1;
  std::uint8_t readable = 0x12;  // a bit for each threshold: the critical ones
  std::uint8_t upper_non_recoverable = 0;
  std::uint8_t upper_critical = 0;
  std::uint8_t lower_critical = 0;
  std::uint8_t hysteresis = 0;
};

inline IpmiOctets with_header(std::uint8_t type, IpmiOctets body) {
  IpmiOctets record{0, 0, 0x51, type, static_cast<std::uint8_t>(body.size())};
  record.insert(record.end(), body.begin(), body.end());
  return record;
}

inline std::uint8_t text_length(const std::string &text) {
  return static_cast<std::uint8_t>(0xc0 | text.size());
}

// A full record of a sensor with thresholds.
inline IpmiOctets full_record(const MadeUpSensor &sensor) {
  IpmiOctets body{0x20,
                  0,
                  sensor.number,
                  sensor.entity,
                  sensor.instance,
                  0x7f,
                  0x68,
                  sensor.type,
                  1,
                  0,
                  0,
                  0,
                  0,
                  sensor.readable,
                  0,
                  0,
                  sensor.unit,
                  0,
                  0,
                  sensor.multiplier,
                  0,
                  0,
                  0,
                  0,
                  0,
                  0,
                  0,
                  0,
                  0,
                  0xff,
                  0,
                  sensor.upper_non_recoverable,
                  sensor.upper_critical,
                  0,
                  0,
                  sensor.lower_critical,
                  0,
                  sensor.hysteresis,
                  sensor.hysteresis,
                  0,
                  0,
                  0,
                  text_length(sensor.name)};
  append(body, sensor.name);
  return with_header(1, body);
}

// A compact record of a sensor of states. `sharing` is how many sensors it stands for.
inline IpmiOctets compact_record(std::uint8_t number, std::uint8_t type, std::uint8_t event_type, std::uint8_t entity,
                                 std::uint8_t instance, const std::string &name, std::uint8_t sharing = 1) {
  IpmiOctets body{0x20,    0,    number, entity, instance, 0x67, 0x40, type, event_type,
                  0,       0,    0,      0,      0,        0,    0xc0, 0,    0,
                  sharing, 0x80, 0,      0,      0,        0,    0,    0,    text_length(name)};
  append(body, name);
  return with_header(2, body);
}

inline IpmiOctets fru_record(std::uint8_t id, std::uint8_t entity, std::uint8_t instance) {
  const std::string name = "FRU";
  IpmiOctets body{0x20, id, 0x80, 0, 0, 0x10, 0, entity, instance, 0, text_length(name)};
  append(body, name);
  return with_header(0x11, body);
}

inline void add_checksum(IpmiOctets &octets) {
  std::uint8_t sum = 0;
  for (const std::uint8_t octet : octets) {
    sum = static_cast<std::uint8_t>(sum + octet);
  }
  octets.push_back(static_cast<std::uint8_t>(-sum));
}

// An information area of a FRU: `start` is what comes before the texts.
inline IpmiOctets fru_information(IpmiOctets start, const std::vector<std::string> &texts) {
  IpmiOctets area = std::move(start);
  for (const std::string &text : texts) {
    area.push_back(text_length(text));
    append(area, text);
  }
  area.push_back(0xc1);
  while (area.size() % 8 != 7) {
    area.push_back(0);
  }
  area[1] = static_cast<std::uint8_t>((area.size() + 1) / 8);
  add_checksum(area);
  return area;
}

// A FRU with a board, a product and, unless the capacity is 0, what a power supply says of itself.
inline IpmiOctets made_up_fru(const std::vector<std::string> &board, const std::vector<std::string> &product,
                              std::uint16_t capacity = 0) {
  const IpmiOctets board_area = fru_information({1, 0, 25, 0, 0, 0}, board);
  const IpmiOctets product_area = fru_information({1, 0, 25}, product);
  const auto board_at = std::uint8_t{1};
  const auto product_at = static_cast<std::uint8_t>(board_at + board_area.size() / 8);
  const auto records_at = static_cast<std::uint8_t>(product_at + product_area.size() / 8);
  IpmiOctets fru{1, 0, 0, board_at, product_at, capacity != 0 ? records_at : std::uint8_t{0}, 0};
  add_checksum(fru);
  fru.insert(fru.end(), board_area.begin(), board_area.end());
  fru.insert(fru.end(), product_area.begin(), product_area.end());
  if (capacity != 0) {
    IpmiOctets record(24);
    record[0] = static_cast<std::uint8_t>(capacity);
    record[1] = static_cast<std::uint8_t>(capacity >> 8);
    IpmiOctets sum = record;
    add_checksum(sum);
    IpmiOctets header{0, 0x82, static_cast<std::uint8_t>(record.size()), sum.back()};
    add_checksum(header);
    fru.insert(fru.end(), header.begin(), header.end());
    fru.insert(fru.end(), record.begin(), record.end());
  }
  return fru;
}

class MadeUpController : public IpmiDevice {
 public:
  bool exists() const override { return is_there; }

  IpmiOctets ask(const IpmiCommand &command) override {
    ++asked[{command.net_fn, command.command}];
    if (is_forbidden) {
      throw IpmiNoPermission("/dev/ipmi0: Permission denied");
    }
    if (!is_there || is_silent || (command.command == silent_at && --answers_left < 0)) {
      throw IpmiSilence("/dev/ipmi0: the driver timed out");
    }
    const auto answer = is_stuck ? std::nullopt : answer_to(command);
    if (command.command == refused_at && --answers_left < 0 && refusals_left-- > 0) {
      return {0xc0};  // busy
    }
    if (!answer) {
      return {0xcb};
    }
    IpmiOctets whole{0};
    whole.insert(whole.end(), answer->begin(), answer->end());
    return whole;
  }

  void reads(std::uint8_t sensor, std::uint8_t octet) { readings[sensor] = {octet, 0x40, 0, 0}; }
  void is_in(std::uint8_t sensor, std::uint16_t states) {
    readings[sensor] = {0, 0x40, static_cast<std::uint8_t>(states), static_cast<std::uint8_t>(states >> 8 | 0x80)};
  }

  bool is_there = true;
  bool is_silent = false;
  bool is_forbidden = false;       // to this program
  bool is_stuck = false;           // refuses everything, as the kernel does in its place
  std::uint8_t silent_at = 0xff;   // silent when it gets this command
  std::uint8_t refused_at = 0xff;  // too busy for this command
  int refusals_left = 0;           // before it has the time again
  int answers_left = 0;            // to either command, before that
  std::vector<IpmiOctets> sdr;
  std::uint8_t sdr_changes = 1;
  std::map<std::uint8_t, IpmiOctets> readings;    // answers, by the sensor's number
  std::map<std::uint8_t, IpmiOctets> thresholds;  // the same
  std::map<std::uint8_t, IpmiOctets> factors;     // the same, by the reading
  std::map<std::uint8_t, IpmiOctets> frus;        // areas, by their number
  std::vector<IpmiOctets> sel;
  std::uint8_t sel_changes = 1;
  std::uint8_t sel_clearings = 1;
  IpmiOctets chassis{1, 0, 0};
  IpmiOctets power;                                            // the answer to "get power reading"
  std::map<std::pair<std::uint8_t, std::uint8_t>, int> asked;  // how often, by group and command

 private:
  using Answer = std::optional<IpmiOctets>;

  static std::size_t word(const IpmiOctets &data, std::size_t offset) {
    return data.at(offset) | static_cast<std::size_t>(data.at(offset + 1)) << 8;
  }

  static IpmiOctets slice(const IpmiOctets &octets, std::size_t offset, std::size_t count) {
    const std::size_t first = std::min(offset, octets.size());
    const std::size_t last = std::min(first + count, octets.size());
    return {octets.begin() + static_cast<std::ptrdiff_t>(first), octets.begin() + static_cast<std::ptrdiff_t>(last)};
  }

  static Answer found(const std::map<std::uint8_t, IpmiOctets> &answers, std::uint8_t number) {
    const auto answer = answers.find(number);
    return answer != answers.end() ? Answer(answer->second) : std::nullopt;
  }

  // The record at the position that its number, from 1, says, after the number of the one that follows. 0 is the first.
  static Answer record(const std::vector<IpmiOctets> &records, std::size_t number, std::size_t offset,
                       std::size_t count) {
    const std::size_t position = number == 0 ? 0 : number - 1;
    if (position >= records.size()) {
      return std::nullopt;
    }
    const std::size_t next = position + 1 < records.size() ? position + 2 : 0xffff;
    IpmiOctets answer{static_cast<std::uint8_t>(next), static_cast<std::uint8_t>(next >> 8)};
    const IpmiOctets part = slice(records[position], offset, count);
    answer.insert(answer.end(), part.begin(), part.end());
    return answer;
  }

  Answer answer_to(const IpmiCommand &command) const {
    switch (command.net_fn << 8 | command.command) {
      case 0x0601:
        return IpmiOctets{0x20, 1};
      case 0x0001:
        return chassis;
      case 0x042d:
        return found(readings, command.data.at(0));
      case 0x0427:
        return found(thresholds, command.data.at(0));
      case 0x0423:
        return found(factors, command.data.at(1));
      case 0x2c02:
        return power.empty() ? std::nullopt : Answer(power);
      case 0x0a10:
        return fru_size(command.data.at(0));
      case 0x0a11:
        return fru_octets(command.data);
      case 0x0a20:
        return sdr.empty() ? std::nullopt : Answer({0x51, static_cast<std::uint8_t>(sdr.size()), sdr_changes});
      case 0x0a22:
        return IpmiOctets{1, 0};
      case 0x0a23:
        return record(sdr, word(command.data, 2), command.data.at(4), command.data.at(5));
      case 0x0a40:
        return IpmiOctets{
            0x51, static_cast<std::uint8_t>(sel.size()), 0, 0, 16, sel_changes, 0, 0, 0, sel_clearings, 0, 0, 0, 2};
      case 0x0a43:
        return record(sel, word(command.data, 2), 0, 16);
      default:
        return std::nullopt;
    }
  }

  Answer fru_size(std::uint8_t id) const {
    const auto area = frus.find(id);
    if (area == frus.end()) {
      return std::nullopt;
    }
    const std::size_t size = area->second.size();
    return IpmiOctets{static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8), 0};
  }

  Answer fru_octets(const IpmiOctets &data) const {
    const auto area = frus.find(data.at(0));
    if (area == frus.end()) {
      return std::nullopt;
    }
    const IpmiOctets part = slice(area->second, word(data, 1), data.at(3));
    IpmiOctets answer{static_cast<std::uint8_t>(part.size())};
    answer.insert(answer.end(), part.begin(), part.end());
    return answer;
  }
};

}  // namespace tavo::service
