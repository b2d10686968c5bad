// The IPMI sensor repository as the tests want it.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tavo::fakes {

// A sensor, by its number. There is none at first, and a number without a sensor fails to be read.
struct FakeSensor {
  std::uint32_t entity;
  std::uint32_t instance;
  std::uint32_t type;
  std::string name;  // at most 20 octets; no NUL is added
};
void set_sensor(int number, FakeSensor sensor);
void remove_sensor(int number);

// What the presence calls return for the sensor; both 0 at first.
void set_discrete_presence(int number, int result);
void set_threshold_presence(int number, int result);

// Numbers that IPMI_SensorGetSensorData was asked for, oldest first, and how many of the buffers were not zeroed.
std::vector<int> sensor_reads();
int unzeroed_sensor_buffers();

// What the presence calls were given: sensor number, entity, instance.
using SensorAddress = std::array<std::uint32_t, 3>;
std::vector<SensorAddress> discrete_presence_calls();
std::vector<SensorAddress> threshold_presence_calls();

// Called at each call of any of the three functions.
void on_sensor_call(std::function<void()> observer);

void reset_sensors();

}  // namespace tavo::fakes
