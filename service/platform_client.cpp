// libbmcsim.so: the platform's libraries, with the simulator behind them. Each call opens its own connection, so calls
// may come from any thread, and after a restart of the simulator the next call succeeds.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"
#include "service/completion_code.h"
#include "service/protocol.h"
#include "service/unix_socket.h"

namespace tavo::service {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds time_limit(20);  // for a simulator that hangs
constexpr int unreachable = -1;

std::optional<json> exchange(int connection, const json &request) {
  if (!send_frame(connection, request)) {
    return std::nullopt;
  }
  return receive_frame(connection, reply_limit);
}

// A request in a form that is built without allocating, so that nothing can throw before ask() is there to catch it.
struct Question {
  const char *name;
  std::initializer_list<std::pair<const char *, std::int64_t>> numbers = {};
  std::pair<const char *, std::string_view> text = {};
};

json request_of(const Question &question) {
  json request{{"call", question.name}};
  for (const auto &[key, number] : question.numbers) {
    request[key] = number;
  }
  if (question.text.first != nullptr) {
    request[question.text.first] = question.text.second;
  }
  return request;
}

int result_of(const std::optional<json> &reply) {
  return reply ? reply->value("result", unreachable) : unreachable;
}

// Asks on a connection of its own and passes it and a reply with result 0 to `use`, which may receive what follows the
// reply. Returns the result, or `unreachable` if anything fails here: no exception may reach a C caller.
template <class Use>
int converse(const Question &question, Use use) noexcept {
  try {
    const Descriptor connection = connect_to(socket_path(), time_limit);
    const auto reply = connection ? exchange(connection.get(), request_of(question)) : std::nullopt;
    const int result = result_of(reply);
    if (result == 0) {
      use(connection.get(), *reply);
    }
    return result;
  } catch (...) {
    return unreachable;
  }
}

// The same for a reply that nothing follows.
template <class Use>
int ask(const Question &question, Use use) noexcept {
  return converse(question, [&](int, const json &reply) { use(reply); });
}

// How many records `name` has. `size` is the size of *count.
int count_of(const char *name, int size, int *count) {
  if (size < static_cast<int>(sizeof *count)) {
    return unreachable;
  }
  return ask({.name = name}, [&](const json &reply) { *count = reply.at("count").get<int>(); });
}

// Copies the reply's records, or those within `range` if it is not null: as many whole ones as fit into `size` octets.
void copy_records(const json &reply, std::size_t record_size, const inventory_range *range, int size, void *records) {
  const auto &list = reply.at("records").get_binary();
  const std::size_t listed = list.size() / record_size;
  const std::size_t first = range != nullptr ? static_cast<std::size_t>(std::max(range->first, 0)) : 0;
  if (size <= 0 || first >= listed) {
    return;
  }
  std::size_t count = std::min(listed - first, static_cast<std::size_t>(size) / record_size);
  if (range != nullptr) {
    count = std::min(count, static_cast<std::size_t>(std::max(range->count, 0)));
  }
  std::memcpy(records, list.data() + first * record_size, count * record_size);
}

void copy_record(const json &reply, void *record, std::size_t size) {
  const auto &octets = reply.at("record").get_binary();
  std::memcpy(record, octets.data(), std::min(octets.size(), size));
}

// The module retries at once and without end. The pause keeps it from using a whole processor while the simulator is
// away.
void pause_after_failure() {
  constexpr timespec pause{.tv_sec = 0, .tv_nsec = 50'000'000};
  nanosleep(&pause, nullptr);
}

// Follows a stream: returns 0 and sets `followed`, or returns an error number.
int follow(const char *stream, Descriptor &followed) noexcept {
  try {
    Descriptor connection = connect_to(socket_path(), time_limit);
    if (!connection) {
      return errno != 0 ? errno : ECONNREFUSED;
    }
    const auto reply = exchange(connection.get(), {{"call", stream}});
    const int result = reply ? reply->value("result", EPROTO) : ECONNRESET;
    if (result == 0) {
      constexpr timeval no_limit{};
      setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &no_limit, sizeof no_limit);
      followed = std::move(connection);
    }
    return result;
  } catch (...) {
    return ENOMEM;
  }
}

// Receives the next record of a stream. Positive: received. 0: the stream has ended. Negative: errno says why; EINTR
// only before the record's first octet.
int next_record(int connection, std::span<std::byte> record) {
  const ssize_t received = recv(connection, record.data(), record.size(), 0);
  if (received <= 0) {
    return received < 0 && errno == ECONNRESET ? 0 : static_cast<int>(received);
  }
  // Only a stream that is about to end leaves a record incomplete.
  const bool whole = receive_all(connection, record.subspan(static_cast<std::size_t>(received)));
  return whole ? static_cast<int>(record.size()) : 0;
}

struct StorageEvents {
  Descriptor connection;
  std::array<std::byte, STORAGE_EVENT_SIZE> event{};  // the last one returned
};

// An event of type STORAGE_EVENT_NONE, which is 0.
void *no_event(StorageEvents &events) {
  events.event.fill(std::byte{0});
  return events.event.data();
}

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

int get_fe_table_count(void) {
  int count = 0;
  ask({.name = call::fault_count}, [&](const json &reply) { count = reply.at("count").get<int>(); });
  return count;
}

int get_fe_table(void *records, int start, int count) {
  const int result = converse({.name = call::faults, .numbers = {{"start", start}, {"count", count}}},
                              [&](int connection, const json &) {
                                const std::size_t size = static_cast<std::size_t>(count) * FAULT_RECORD_SIZE;
                                if (!receive_all(connection, {static_cast<std::byte *>(records), size})) {
                                  throw std::runtime_error("the records end early");
                                }
                              });
  return result == 0 ? 0 : -1;
}

int connect_to_fe_broadcaster(int *connection) {
  Descriptor followed;
  const int result = follow(call::follow_faults, followed);
  if (result == 0) {
    *connection = followed.release();
  } else {
    pause_after_failure();
  }
  return result;
}

int listen_to_fe_broadcaster(int *connection, void *record) {
  return next_record(*connection, {static_cast<std::byte *>(record), FAULT_RECORD_SIZE});
}

int GetCPUItems(void *, int size, const inventory_range *, int *count) {
  return count_of(call::processors, size, count);
}

int GetCPUInfo(void *, int size, const inventory_range *range, void *records) {
  return ask({.name = call::processors},
             [&](const json &reply) { copy_records(reply, PROCESSOR_RECORD_SIZE, range, size, records); });
}

int GetMemoryItems(void *, int size, const inventory_range *, int *count) {
  return count_of(call::dimms, size, count);
}

int GetMemoryDetail(void *, int size, const inventory_range *range, void *records) {
  return ask({.name = call::dimms},
             [&](const json &reply) { copy_records(reply, MEMORY_RECORD_SIZE, range, size, records); });
}

int GetMemorySummary(void *, int size, const inventory_range *, void *summary) {
  return ask({.name = call::dimms}, [&](const json &reply) {
    const auto count = reply.at("count").get<std::uint32_t>();
    if (size >= static_cast<int>(sizeof count)) {
      std::memcpy(summary, &count, sizeof count);
    }
  });
}

int getSensorName(const void *detail_record, int *number) {
  const auto *name = static_cast<const char *>(detail_record) + MEMORY_NAME;
  const std::string_view text(name, strnlen(name, MEMORY_NAME_SIZE));
  const int result = ask({.name = call::dimm_number, .text = {"name", text}},
                         [&](const json &reply) { *number = reply.at("number").get<int>(); });
  return result == 0 ? 1 : 0;
}

int IPMI_SensorGetSensorData(int sensor, uint32_t *output, void *record) {
  return ask({.name = call::sensor, .numbers = {{"number", sensor}}}, [&](const json &reply) {
    copy_record(reply, record, SENSOR_RECORD_SIZE);
    *output = 0;
  });
}

int IPMI_Thresh_Sensor_CheckPresence(const uint32_t sensor_entity_instance[3]) {
  int code = unspecified_error;
  ask({.name = call::presence, .numbers = {{"number", sensor_entity_instance[0]}}},
      [&](const json &reply) { code = reply.at("code").get<int>(); });
  return code;
}

int IPMI_Discrete_CheckPresence(const uint32_t sensor_entity_instance[3]) {
  return IPMI_Thresh_Sensor_CheckPresence(sensor_entity_instance);
}

int get_fru_board_area_from_id(int fru_id, void *area) {
  return ask({.name = call::fru_board, .numbers = {{"id", fru_id}}},
             [&](const json &reply) { copy_record(reply, area, FRU_BOARD_AREA_SIZE); });
}

int get_fru_product_area_from_type_instance(int type, int instance, void *area) {
  return ask({.name = call::fru_product, .numbers = {{"type", type}, {"instance", instance}}},
             [&](const json &reply) { copy_record(reply, area, FRU_PRODUCT_AREA_SIZE); });
}

void *se_open_storage_events(int, int) {
  return new (std::nothrow) StorageEvents;
}

void *se_get_next_storage_event(void *handle) {
  auto *events = static_cast<StorageEvents *>(handle);
  if (!events->connection && follow(call::follow_storage_events, events->connection) != 0) {
    constexpr timespec second{.tv_sec = 1, .tv_nsec = 0};
    nanosleep(&second, nullptr);
    return no_event(*events);
  }
  int result = 0;
  do {
    result = next_record(events->connection.get(), events->event);
  } while (result < 0 && errno == EINTR);
  if (result <= 0) {
    events->connection = Descriptor();
    return no_event(*events);
  }
  return events->event.data();
}

void se_close_storage_events(void *handle) {
  delete static_cast<StorageEvents *>(handle);
}

int veltutil_mgnt(velt_request *request) {
  const std::string_view controller(request->controller, strnlen(request->controller, sizeof request->controller));
  return ask({.name = call::sd_cards, .numbers = {{"kind", request->kind}}, .text = {"controller", controller}},
             [&](const json &reply) {
               if (reply.at("record").get_binary().size() != request->buffer_size) {
                 throw std::length_error("buffer size");
               }
               copy_record(reply, request->buffer, request->buffer_size);
             });
}

#pragma GCC visibility pop
}  // extern "C"

}  // namespace tavo::service
