#include "host/platform_calls.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <new>
#include <type_traits>
#include <vector>

#include "host/interposed.h"
#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"

namespace tavo {
namespace {

std::atomic<PlatformCalls *> current_calls = nullptr;

double in_seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

PlatformCalls::Call::Call(const char *function) noexcept : calls_(current_calls) {
  if (calls_ == nullptr) {
    return;
  }
  try {
    entry_ = calls_->begin(function);
  } catch (const std::bad_alloc &) {
    calls_ = nullptr;
  }
}

PlatformCalls::Call::~Call() {
  if (calls_ != nullptr) {
    calls_->end(entry_);
  }
}

PlatformCalls::PlatformCalls(std::chrono::milliseconds limit) : limit_(limit) {
  if (limit_.count() == 0) {
    return;
  }
  watcher_.start([this] { return report_overdue(); });
  current_calls = this;
}

PlatformCalls::~PlatformCalls() {
  current_calls = nullptr;
}

std::optional<PlatformCalls::Overdue> PlatformCalls::overdue() const {
  const auto now = Clock::now();
  const std::lock_guard lock(mutex_);
  if (under_way_.empty() || now - under_way_.front().started < limit_) {
    return std::nullopt;
  }
  const Entry &oldest = under_way_.front();
  return Overdue{.function = oldest.function, .age = now - oldest.started};
}

std::list<PlatformCalls::Entry>::iterator PlatformCalls::begin(const char *function) {
  std::list<Entry> call(1, Entry{.function = function, .started = {}});
  const std::lock_guard lock(mutex_);
  call.front().started = Clock::now();
  under_way_.splice(under_way_.end(), call);
  if (watcher_rests_) {
    watcher_rests_ = false;
    watcher_.wake();
  }
  return std::prev(under_way_.end());
}

void PlatformCalls::end(std::list<Entry>::iterator call) {
  std::list<Entry> ended;
  {
    const std::lock_guard lock(mutex_);
    ended.splice(ended.end(), under_way_, call);
  }
  if (const Entry &entry = ended.front(); entry.reported) {
    snmp_log(LOG_WARNING, "platform call back after %.1f s: %s\n", in_seconds(Clock::now() - entry.started),
             entry.function);
  }
}

std::optional<PlatformCalls::Clock::time_point> PlatformCalls::report_overdue() {
  std::vector<Overdue> lines;  // logged without the lock: the log may be slow
  std::optional<Clock::time_point> next;
  {
    const auto now = Clock::now();
    const std::lock_guard lock(mutex_);
    for (Entry &call : under_way_) {
      if (call.reported) {
        continue;
      }
      if (now - call.started < limit_) {
        next = call.started + limit_;
        break;
      }
      call.reported = true;
      ++overdue_so_far_;
      lines.push_back({.function = call.function, .age = now - call.started});
    }
    watcher_rests_ = !next;
  }
  for (const Overdue &line : lines) {
    snmp_log(LOG_WARNING, "platform call not back after %.1f s: %s\n", in_seconds(line.age), line.function);
  }
  return next;
}

namespace {

// Calls the platform's function that `wrapper`, the daemon's function of the same name, stands in front of.
template <auto *wrapper, class... Arguments>
auto call(const char *name, Arguments... arguments) {
  static auto *const original = next_definition<std::remove_pointer_t<decltype(wrapper)>>(name);
  const PlatformCalls::Call watched(name);
  return original(arguments...);
}

}  // namespace

std::span<const char *const> watched_platform_functions() {
  static constexpr auto names = std::to_array<const char *>({
      "get_fe_table_count",
      "get_fe_table",
      "connect_to_fe_broadcaster",
      "get_fru_board_area_from_id",
      "get_fru_product_area_from_type_instance",
      "GetCPUItems",
      "GetCPUInfo",
      "GetMemoryItems",
      "GetMemoryDetail",
      "GetMemorySummary",
      "getSensorName",
      "IPMI_SensorGetSensorData",
      "IPMI_Discrete_CheckPresence",
      "IPMI_Thresh_Sensor_CheckPresence",
      "se_open_storage_events",
      "se_close_storage_events",
      "veltutil_mgnt",
  });
  return names;
}

extern "C" {

int get_fe_table_count(void) {
  return call<&get_fe_table_count>(__func__);
}

int get_fe_table(void *records, int start, int count) {
  return call<&get_fe_table>(__func__, records, start, count);
}

int connect_to_fe_broadcaster(int *connection) {
  return call<&connect_to_fe_broadcaster>(__func__, connection);
}

int get_fru_board_area_from_id(int fru_id, void *area) {
  return call<&get_fru_board_area_from_id>(__func__, fru_id, area);
}

int get_fru_product_area_from_type_instance(int type, int instance, void *area) {
  return call<&get_fru_product_area_from_type_instance>(__func__, type, instance, area);
}

int GetCPUItems(void *status, int size, const inventory_range *range, int *count) {
  return call<&GetCPUItems>(__func__, status, size, range, count);
}

int GetCPUInfo(void *status, int size, const inventory_range *range, void *records) {
  return call<&GetCPUInfo>(__func__, status, size, range, records);
}

int GetMemoryItems(void *request, int size, const inventory_range *range, int *count) {
  return call<&GetMemoryItems>(__func__, request, size, range, count);
}

int GetMemoryDetail(void *request, int size, const inventory_range *range, void *records) {
  return call<&GetMemoryDetail>(__func__, request, size, range, records);
}

int GetMemorySummary(void *request, int size, const inventory_range *range, void *summary) {
  return call<&GetMemorySummary>(__func__, request, size, range, summary);
}

int getSensorName(const void *detail_record, int *number) {
  return call<&getSensorName>(__func__, detail_record, number);
}

int IPMI_SensorGetSensorData(int sensor, std::uint32_t *output, void *record) {
  return call<&IPMI_SensorGetSensorData>(__func__, sensor, output, record);
}

int IPMI_Discrete_CheckPresence(const std::uint32_t sensor_entity_instance[3]) {
  return call<&IPMI_Discrete_CheckPresence>(__func__, sensor_entity_instance);
}

int IPMI_Thresh_Sensor_CheckPresence(const std::uint32_t sensor_entity_instance[3]) {
  return call<&IPMI_Thresh_Sensor_CheckPresence>(__func__, sensor_entity_instance);
}

void *se_open_storage_events(int first, int second) {
  return call<&se_open_storage_events>(__func__, first, second);
}

void se_close_storage_events(void *handle) {
  call<&se_close_storage_events>(__func__, handle);
}

int veltutil_mgnt(velt_request *request) {
  return call<&veltutil_mgnt>(__func__, request);
}
}

}  // namespace tavo
