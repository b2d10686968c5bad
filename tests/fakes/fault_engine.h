// A fake of the fault engine: records every call and answers from the test's script.
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
// "listen_to_fe_broadcaster". A listen call is listed as soon as it waits.
std::vector<std::string> fault_engine_calls();

// Waits until the thread has taken all broadcasts and listens again; false when 20 seconds pass first.
bool wait_until_listening();

// The active faults. None at first.
void set_active_faults(std::vector<FaultRecord> records);
// What get_fe_table_count says instead of the number of faults; empty: that number.
void set_active_fault_count(std::optional<int> count);

// The next connects give these results instead of 0, one each.
void refuse_connects(std::vector<int> errors);
// The value of the connection argument at the first connect.
int connection_before_the_first();
// Whether the descriptor of the `number`th successful connect, counted from 1, is still open.
bool connection_is_open(int number);

// The next results of listen_to_fe_broadcaster, in this order. It waits while there are none.
void broadcast(const FaultRecord &record);
// A result of 0 or below, with errno. An error of 0 leaves errno alone, like a read at the end of a file.
void broadcast_result(int result, int error);

// How many listen calls passed a record that was not all zero, or a connection other than the last one returned.
int careless_listens();

void reset_fault_engine();

}  // namespace tavo::fakes
