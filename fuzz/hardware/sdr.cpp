// Sensor data records and readings of a management controller. The first octet says whether the rest is records and
// then readings, or any answers.
#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "fuzz/harness/door.h"
#include "fuzz/harness/lying_controller.h"
#include "hardware/ipmi.h"
#include "hardware/register.h"

namespace tavo::fuzz {
namespace {

// Cuts `length` octets off the front, or as many as there are.
Octets take(Octets &input, std::size_t length) {
  const Octets taken = input.first(std::min(length, input.size()));
  input = input.subspan(taken.size());
  return taken;
}

// Each record has an octet before it with its length; 0 ends them.
std::vector<service::IpmiOctets> take_records(Octets &input) {
  std::vector<service::IpmiOctets> records;
  while (!input.empty()) {
    const std::size_t length = take(input, 1).front();
    if (length == 0) {
      break;
    }
    const Octets record = take(input, length);
    records.emplace_back(record.begin(), record.end());
  }
  return records;
}

void try_records(Octets input) {
  constexpr std::size_t reading_size = 4;
  const service::IpmiInventory inventory = service::decode_sdr(take_records(input));
  std::vector<service::IpmiSample> samples;
  for (const service::IpmiSensor &sensor : inventory.sensors) {
    expect(!sensor.name.empty(), "a sensor has a name");
    samples.push_back({.sensor = sensor});
  }
  // Each sensor reads twice, so that it comes from one level into another.
  for (int reading = 0; reading < 2; ++reading) {
    for (service::IpmiSample &sample : samples) {
      const Octets octets = take(input, reading_size);
      service::enter_reading(sample, service::IpmiOctets(octets.begin(), octets.end()));
      expect(!sample.value || std::isfinite(*sample.value), "a reading is a number");
    }
  }
}

}  // namespace

void try_input(Octets input) {
  if (input.empty()) {
    return;
  }
  constexpr std::uint8_t any_answers = 1;
  const Octets rest = input.subspan(1);
  if ((input.front() & any_answers) == 0) {
    try_records(rest);
    return;
  }
  service::Register nothing_kept("");
  service::IpmiSource source(nothing_kept, std::make_unique<LyingController>(rest));
  for (int reading = 0; reading < 3; ++reading) {
    check_finding(source.read());
  }
}

}  // namespace tavo::fuzz
