#include "tests/fakes/storage_client.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <span>

namespace tavo::fakes {
namespace {

std::mutex mutex;
std::condition_variable changed;
std::vector<std::string> calls;
std::deque<std::optional<std::uint32_t>> events;
bool waiting = false;

std::vector<VeltRequest> requests;
std::map<std::uint32_t, std::vector<std::byte>> answers;
std::map<std::uint32_t, int> results;

char stream;  // its address is the handle

template <class Records>
void set_answer(std::uint32_t kind, const Records &records) {
  std::vector<std::byte> octets;
  for (const auto &record : records) {
    octets.insert(octets.end(), record.octets.begin(), record.octets.end());
  }
  const std::scoped_lock lock(mutex);
  answers[kind] = std::move(octets);
}

void send(std::optional<std::uint32_t> event) {
  {
    const std::scoped_lock lock(mutex);
    events.push_back(event);
  }
  changed.notify_all();
}

}  // namespace

std::vector<std::string> storage_stream_calls() {
  const std::scoped_lock lock(mutex);
  return calls;
}

void send_storage_event(std::uint32_t type) {
  send(type);
}

void send_no_storage_event() {
  send(std::nullopt);
}

void wait_until_storage_events_are_taken() {
  std::unique_lock lock(mutex);
  changed.wait(lock, [] { return events.empty() && waiting; });
}

std::vector<VeltRequest> velt_requests() {
  const std::scoped_lock lock(mutex);
  return requests;
}

void set_velt_controller(const VeltController &controller) {
  set_answer(VELT_REQUEST_CONTROLLER, std::array{controller});
}

void set_velt_cards(const std::array<VeltCard, VELT_CARD_COUNT> &cards) {
  set_answer(VELT_REQUEST_CARDS, cards);
}

void set_velt_partitions(const std::array<VeltPartition, VELT_PARTITION_COUNT> &partitions) {
  set_answer(VELT_REQUEST_PARTITIONS, partitions);
}

void set_velt_result(std::uint32_t kind, int result) {
  const std::scoped_lock lock(mutex);
  results[kind] = result;
}

void reset_storage_client() {
  const std::scoped_lock lock(mutex);
  calls.clear();
  events.clear();
  waiting = false;
  requests.clear();
  answers.clear();
  results.clear();
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

void *se_open_storage_events(int first, int second) {
  const std::scoped_lock lock(mutex);
  calls.push_back("open " + std::to_string(first) + " " + std::to_string(second));
  return &stream;
}

void *se_get_next_storage_event(void *handle) {
  // Valid until the next call, as in the library; one reader only.
  static std::array<std::byte, STORAGE_EVENT_SIZE> record;
  std::unique_lock lock(mutex);
  if (handle != &stream) {
    calls.push_back("next of another stream");
  }
  waiting = true;
  changed.notify_all();
  changed.wait(lock, [] { return !events.empty(); });
  waiting = false;
  const std::optional<std::uint32_t> type = events.front();
  events.pop_front();
  if (!type.has_value()) {
    return nullptr;
  }
  std::memcpy(record.data() + STORAGE_EVENT_TYPE, &*type, sizeof *type);
  return record.data();
}

void se_close_storage_events(void *handle) {
  const std::scoped_lock lock(mutex);
  calls.emplace_back(handle == &stream ? "close" : "close of another stream");
}

int veltutil_mgnt(velt_request *request) {
  const std::scoped_lock lock(mutex);
  VeltRequest copy = {.kind = request->kind,
                      .count = request->count,
                      .words = {},
                      .controller = std::string(request->controller, strnlen(request->controller, 32)),
                      .buffer = request->buffer,
                      .buffer_size = request->buffer_size,
                      .buffer_was_zero = std::ranges::all_of(
                          std::span(static_cast<const unsigned char *>(request->buffer), request->buffer_size),
                          [](unsigned char octet) { return octet == 0; })};
  std::ranges::copy(request->words, copy.words.begin());
  requests.push_back(std::move(copy));
  const int result = results[request->kind];
  std::vector<std::byte> answer = answers[request->kind];
  answer.resize(request->buffer_size);
  std::memcpy(request->buffer, answer.data(), result == 0 ? answer.size() : answer.size() / 2);
  return result;
}
