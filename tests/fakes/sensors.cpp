#include "tests/fakes/sensors.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <span>
#include <utility>

#include "platform/inventory.h"

namespace tavo::fakes {
namespace {

std::map<int, FakeSensor> sensors;
std::map<std::uint32_t, int> discrete_results;
std::map<std::uint32_t, int> threshold_results;
std::vector<int> reads;
int unzeroed = 0;
std::vector<SensorAddress> discrete_calls;
std::vector<SensorAddress> threshold_calls;
std::function<void()> observer;

void observe() {
  if (observer) {
    observer();
  }
}

void put_word(std::span<std::byte> record, std::size_t offset, std::uint32_t word) {
  for (std::size_t i = 0; i < 4; ++i) {
    record[offset + i] = static_cast<std::byte>(word >> (8 * i));
  }
}

int presence(std::vector<SensorAddress> &calls, const std::map<std::uint32_t, int> &results,
             const std::uint32_t *words) {
  observe();
  calls.push_back({words[0], words[1], words[2]});
  const auto found = results.find(words[0]);
  return found == results.end() ? 0 : found->second;
}

}  // namespace

void set_sensor(int number, FakeSensor sensor) {
  sensors.insert_or_assign(number, std::move(sensor));
}

void remove_sensor(int number) {
  sensors.erase(number);
}

void set_discrete_presence(int number, int result) {
  discrete_results.insert_or_assign(static_cast<std::uint32_t>(number), result);
}

void set_threshold_presence(int number, int result) {
  threshold_results.insert_or_assign(static_cast<std::uint32_t>(number), result);
}

std::vector<int> sensor_reads() {
  return reads;
}

int unzeroed_sensor_buffers() {
  return unzeroed;
}

std::vector<SensorAddress> discrete_presence_calls() {
  return discrete_calls;
}

std::vector<SensorAddress> threshold_presence_calls() {
  return threshold_calls;
}

void on_sensor_call(std::function<void()> called) {
  observer = std::move(called);
}

void reset_sensors() {
  observer = nullptr;
  sensors.clear();
  discrete_results.clear();
  threshold_results.clear();
  reads.clear();
  unzeroed = 0;
  discrete_calls.clear();
  threshold_calls.clear();
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

int IPMI_SensorGetSensorData(int sensor, std::uint32_t *output, void *record) {
  const std::span<std::byte> octets(static_cast<std::byte *>(record), SENSOR_RECORD_SIZE);
  observe();
  reads.push_back(sensor);
  unzeroed += std::ranges::all_of(octets, [](std::byte octet) { return octet == std::byte{0}; }) ? 0 : 1;
  const auto found = sensors.find(sensor);
  if (found == sensors.end()) {
    return -1;
  }
  *output = 0xA5A5A5A5;
  put_word(octets, SENSOR_ENTITY_ID, found->second.entity);
  put_word(octets, SENSOR_ENTITY_INSTANCE, found->second.instance);
  put_word(octets, SENSOR_TYPE, found->second.type);
  const std::string &name = found->second.name;
  std::memcpy(octets.data() + SENSOR_NAME, name.data(), std::min<std::size_t>(name.size(), SENSOR_NAME_SIZE));
  return 0;
}

int IPMI_Discrete_CheckPresence(const std::uint32_t sensor_entity_instance[3]) {
  return presence(discrete_calls, discrete_results, sensor_entity_instance);
}

int IPMI_Thresh_Sensor_CheckPresence(const std::uint32_t sensor_entity_instance[3]) {
  return presence(threshold_calls, threshold_results, sensor_entity_instance);
}
