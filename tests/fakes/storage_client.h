// A fake of the storage client library: delivers the storage events that the test sends and answers SD-card requests
// with what the test has set.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/storage_client.h"
#include "tests/harness/record_writer.h"

namespace tavo::fakes {

// Calls of se_open_storage_events and se_close_storage_events: "open 0 0", "close". Oldest first.
std::vector<std::string> storage_stream_calls();

// Adds an event of this type to the stream; se_get_next_storage_event waits while there is none.
void send_storage_event(std::uint32_t type);

// The next call of se_get_next_storage_event returns null.
void send_no_storage_event();

// Waits until the module waits for an event and all that were sent are taken.
void wait_until_storage_events_are_taken();

struct VeltRequest {
  std::uint32_t kind;
  std::uint32_t count;
  std::array<std::uint32_t, 4> words;
  std::string controller;
  const void *buffer;
  std::uint32_t buffer_size;
  bool buffer_was_zero;
};

// Oldest first.
std::vector<VeltRequest> velt_requests();

// Parts that the SD-card service reports.
using VeltController = PlatformRecord<VELT_CONTROLLER_SIZE>;
using VeltCard = PlatformRecord<VELT_CARD_SIZE>;
using VeltPartition = PlatformRecord<VELT_PARTITION_SIZE>;

// What the service answers. All zero at first.
void set_velt_controller(const VeltController &controller);
void set_velt_cards(const std::array<VeltCard, VELT_CARD_COUNT> &cards);
void set_velt_partitions(const std::array<VeltPartition, VELT_PARTITION_COUNT> &partitions);

// The result of every request of this kind; with a nonzero one the buffer is filled half before the request fails.
void set_velt_result(std::uint32_t kind, int result);

void reset_storage_client();

}  // namespace tavo::fakes
