// The fault engine as the tests want it: every call is recorded, what it answers is the test's own script.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/fault_engine.h"
#include "tests/harness/record_writer.h"

namespace tavo::fakes {

// One record, zeroed at first. Texts and integers stand at the offsets of platform/fault_engine.h.
struct FaultRecord : RecordOctets<FaultRecord, FAULT_RECORD_SIZE> {
  FaultRecord &identifier(const std::vector<std::uint32_t> &sub_identifiers);

  const void *data() const { return octets.data(); }
};

// A record with something in every field that is shown.
FaultRecord fault(std::uint32_t class_code, std::uint32_t index, std::uint32_t severity);

// Every call so far, oldest first: "get_fe_table_count", "get_fe_table 0 3", "connect_to_fe_broadcaster",
// "listen_to_fe_broadcaster". A listen call stands there as soon as it waits.
std::vector<std::string> fault_engine_calls();

// Waits until the thread listens with nothing left to hear; false when 20 seconds pass first.
bool wait_until_listening();

// The active faults. None at first.
void set_active_faults(std::vector<FaultRecord> records);
// What get_fe_table_count says instead of the number of faults; empty: that number.
void set_active_fault_count(std::optional<int> count);

// The next connects give these results instead of 0, one each.
void refuse_connects(std::vector<int> errors);
// What the connection held when the first connect was tried.
int connection_before_the_first();
// Whether the descriptor that the `number`th successful connect gave, from 1, is still open.
bool connection_is_open(int number);

// What listen_to_fe_broadcaster tells next, in turn. Without anything to tell it waits.
void broadcast(const FaultRecord &record);
// A result of 0 or below, with errno; 0 leaves errno as it is, as a read does that finds the end.
void broadcast_result(int result, int error);

// Listen calls that were handed a record that was not all zero, or a connection that was not the last one given.
int careless_listens();

void reset_fault_engine();

}  // namespace tavo::fakes
