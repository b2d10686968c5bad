// libbmcsim.so, called as the module calls it, with a simulator served in this process.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "platform/storage_client.h"
#include "served_scenario.h"
#include "service/protocol.h"
#include "service/unix_socket.h"
#include "tests/harness/threaded.h"

namespace tavo::service {
namespace {

class PlatformClient : public ServedScenario {
 protected:
  static int processor_count() {
    std::uint32_t status = 0;
    int count = -1;
    return GetCPUItems(&status, sizeof count, nullptr, &count) == 0 ? count : -1;
  }

  static int connect_broadcaster() {
    int connection = -1;
    EXPECT_EQ(connect_to_fe_broadcaster(&connection), 0);
    return connection;
  }

  // Enough of a record to recognise it. Both are -1 if nothing was received.
  struct Change {
    std::int64_t index = -1;
    std::int64_t severity = -1;
  };
  static Change next_change(int connection) {
    std::array<char, FAULT_RECORD_SIZE> record{};
    if (listen_to_fe_broadcaster(&connection, record.data()) <= 0) {
      return {};
    }
    return {.index = integer_at<std::uint32_t>(record.data(), FAULT_INDEX),
            .severity = integer_at<std::uint32_t>(record.data(), FAULT_SEVERITY)};
  }
};

TEST_F(PlatformClient, ProcessorRecordsMatchTheScenario) {
  std::uint32_t status = 0;
  ASSERT_EQ(processor_count(), 2);
  std::array<char, 2 * PROCESSOR_RECORD_SIZE> records{};
  ASSERT_EQ(GetCPUInfo(&status, records.size(), nullptr, records.data()), 0);
  const char *second = records.data() + PROCESSOR_RECORD_SIZE;
  EXPECT_EQ(text_at(second, PROCESSOR_SOCKET, PROCESSOR_TEXT_SIZE), "CPU2");
  EXPECT_EQ(text_at(second, PROCESSOR_VENDOR, PROCESSOR_TEXT_SIZE), "Processor maker A");
  EXPECT_EQ(text_at(second, PROCESSOR_ARCHITECTURE, PROCESSOR_ARCHITECTURE_SIZE), "Xeon");
  EXPECT_EQ(text_at(second, PROCESSOR_SERIAL, PROCESSOR_TEXT_SIZE), "SERIAL-0012");
  EXPECT_EQ(text_at(second, PROCESSOR_MODEL, PROCESSOR_TEXT_SIZE), "Processor model A");
  EXPECT_EQ(text_at(second, PROCESSOR_STATUS, PROCESSOR_TEXT_SIZE), "Enabled");
  EXPECT_EQ(integer_at<std::int32_t>(second, PROCESSOR_THREADS), 12);
  EXPECT_EQ(integer_at<std::int32_t>(second, PROCESSOR_SPEED), 2600);
  EXPECT_EQ(integer_at<std::int32_t>(second, PROCESSOR_CORES), 8);
}

TEST_F(PlatformClient, NeverWritesBeyondTheCallersBuffer) {
  std::uint32_t status = 0;
  std::array<char, 2 * PROCESSOR_RECORD_SIZE> records;
  records.fill('#');
  ASSERT_EQ(GetCPUInfo(&status, PROCESSOR_RECORD_SIZE + 7, nullptr, records.data()), 0);
  EXPECT_EQ(text_at(records.data(), PROCESSOR_SOCKET, PROCESSOR_TEXT_SIZE), "CPU1");
  EXPECT_TRUE(std::all_of(records.begin() + PROCESSOR_RECORD_SIZE, records.end(), [](char c) { return c == '#'; }));
}

TEST_F(PlatformClient, ALargerBufferGetsTheRecordsThatThereAre) {
  std::uint32_t status = 0;
  std::array<char, 3 * PROCESSOR_RECORD_SIZE> records;
  records.fill('#');
  ASSERT_EQ(GetCPUInfo(&status, records.size(), nullptr, records.data()), 0);
  EXPECT_TRUE(std::all_of(records.begin() + 2 * PROCESSOR_RECORD_SIZE, records.end(), [](char c) { return c == '#'; }));
}

TEST_F(PlatformClient, RangeSelectsMemoryModules) {
  std::uint32_t request = MEMORY_REQUEST_SUMMARY;
  int count = 0;
  ASSERT_EQ(GetMemoryItems(&request, sizeof count, nullptr, &count), 0);
  EXPECT_EQ(count, 12);
  request = MEMORY_REQUEST_DETAIL;
  const inventory_range range{.first = 2, .count = 1};
  std::array<char, 2 * MEMORY_RECORD_SIZE> records{};
  ASSERT_EQ(GetMemoryDetail(&request, records.size(), &range, records.data()), 0);
  EXPECT_EQ(text_at(records.data(), MEMORY_NAME, MEMORY_NAME_SIZE), "DIMM_B1");
  EXPECT_EQ(records[MEMORY_RECORD_SIZE], 0);
  int number = 0;
  EXPECT_NE(getSensorName(records.data(), &number), 0);
  EXPECT_EQ(number, 4);
  control_words("dimm set DIMM_B1 number=0");
  EXPECT_EQ(getSensorName(records.data(), &number), 0);
}

TEST_F(PlatformClient, FailedMemoryModuleIsInoperable) {
  std::uint32_t request = MEMORY_REQUEST_DETAIL;
  std::array<char, 12 * MEMORY_RECORD_SIZE> records{};
  ASSERT_EQ(GetMemoryDetail(&request, records.size(), nullptr, records.data()), 0);
  const char *g1 = records.data() + 10 * MEMORY_RECORD_SIZE;
  EXPECT_EQ(text_at(g1, MEMORY_NAME, MEMORY_NAME_SIZE), "DIMM_G1");
  EXPECT_EQ(text_at(g1, MEMORY_STATUS, MEMORY_SHORT_TEXT_SIZE), "Inoperable");
  EXPECT_EQ(text_at(g1, MEMORY_CAPACITY, MEMORY_CAPACITY_SIZE), "16 GB");
  EXPECT_EQ(text_at(g1, MEMORY_WIDTH, MEMORY_SHORT_TEXT_SIZE), "64 bits");
  std::array<char, MEMORY_SUMMARY_SIZE> summary{};
  request = MEMORY_REQUEST_SUMMARY;
  EXPECT_EQ(GetMemorySummary(&request, summary.size(), nullptr, summary.data()), 0);
}

TEST_F(PlatformClient, SensorsReportTheirPresence) {
  std::uint32_t output = 7;
  std::array<char, SENSOR_RECORD_SIZE> record{};
  ASSERT_EQ(IPMI_SensorGetSensorData(4, &output, record.data()), 0);
  EXPECT_EQ(text_at(record.data(), SENSOR_NAME, SENSOR_NAME_SIZE), "FAN3_TACH1");
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), SENSOR_ENTITY_ID), std::uint32_t{ENTITY_FAN});
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), SENSOR_ENTITY_INSTANCE), 5U);
  EXPECT_EQ(integer_at<std::uint32_t>(record.data(), SENSOR_TYPE), std::uint32_t{SENSOR_TYPE_FAN});
  EXPECT_NE(IPMI_SensorGetSensorData(200, &output, record.data()), 0);
  EXPECT_NE(IPMI_SensorGetSensorData(-1, &output, record.data()), 0);

  const std::array<std::uint32_t, 3> tachometer{4, ENTITY_FAN, 5};
  const std::array<std::uint32_t, 3> presence{19, ENTITY_FAN, 5};
  EXPECT_EQ(IPMI_Thresh_Sensor_CheckPresence(tachometer.data()), 0);
  EXPECT_EQ(IPMI_Discrete_CheckPresence(presence.data()), 0);
  control_words("fan remove FAN3_TACH1");
  EXPECT_EQ(IPMI_Thresh_Sensor_CheckPresence(tachometer.data()), 0xE0);
  EXPECT_NE(IPMI_Discrete_CheckPresence(presence.data()), 0);
  control_words("fan insert FAN3_TACH1");
  EXPECT_EQ(IPMI_Thresh_Sensor_CheckPresence(tachometer.data()), 0);
}

TEST_F(PlatformClient, FruAreasMatchTheScenario) {
  std::array<char, FRU_BOARD_AREA_SIZE> board{};
  ASSERT_EQ(get_fru_board_area_from_id(FRU_ID_BOARD, board.data()), 0);
  EXPECT_EQ(text_at(board.data(), FRU_BOARD_MANUFACTURER, FRU_TEXT_SIZE), "Tavolo Systems Inc");
  EXPECT_EQ(text_at(board.data(), FRU_BOARD_PRODUCT_NAME, FRU_TEXT_SIZE), "BOARD-A");
  EXPECT_EQ(text_at(board.data(), FRU_BOARD_SERIAL, FRU_TEXT_SIZE), "SERIAL-0002");
  EXPECT_NE(get_fru_board_area_from_id(1, board.data()), 0);
  std::array<char, FRU_PRODUCT_AREA_SIZE> product{};
  ASSERT_EQ(get_fru_product_area_from_type_instance(FRU_TYPE_POWER_SUPPLY, 2, product.data()), 0);
  EXPECT_EQ(text_at(product.data(), FRU_PRODUCT_SERIAL, FRU_TEXT_SIZE), "SERIAL-0022");
  EXPECT_NE(get_fru_product_area_from_type_instance(FRU_TYPE_POWER_SUPPLY, 3, product.data()), 0);
  EXPECT_NE(get_fru_product_area_from_type_instance(FRU_TYPE_POWER_SUPPLY, 0, product.data()), 0);
  control_words("supply set 2 serial-readable=no");
  EXPECT_NE(get_fru_product_area_from_type_instance(FRU_TYPE_POWER_SUPPLY, 2, product.data()), 0);
  control_words("server set board-readable=no");
  EXPECT_NE(get_fru_board_area_from_id(FRU_ID_BOARD, board.data()), 0);
}

TEST_F(PlatformClient, FruTextsFillTheirFields) {
  const std::string longest(FRU_TEXT_SIZE - 1, 'x');
  control_words("server set board-serial=" + longest);
  std::array<char, FRU_BOARD_AREA_SIZE> board{};
  ASSERT_EQ(get_fru_board_area_from_id(FRU_ID_BOARD, board.data()), 0);
  EXPECT_EQ(text_at(board.data(), FRU_BOARD_SERIAL, FRU_TEXT_SIZE), longest);
}

TEST_F(PlatformClient, SdBuffersMatchTheScenario) {
  velt_request request{.kind = VELT_REQUEST_CARDS,
                       .count = 1,
                       .words = {},
                       .controller = "Veltro-0",
                       .buffer = nullptr,
                       .buffer_size = VELT_CARDS_SIZE};
  std::array<char, VELT_CARDS_SIZE> cards{};
  request.buffer = cards.data();
  ASSERT_EQ(veltutil_mgnt(&request), 0);
  EXPECT_EQ(integer_at<std::int32_t>(cards.data() + VELT_CARD_SIZE, VELT_CARD_SLOT), 2);
  EXPECT_EQ(integer_at<std::uint64_t>(cards.data(), VELT_CARD_COLUMN_22), 61071360U);
  control_words("sd-card pull 2");
  ASSERT_EQ(veltutil_mgnt(&request), 0);
  EXPECT_EQ(integer_at<std::int32_t>(cards.data() + VELT_CARD_SIZE, VELT_CARD_SLOT), 0);
  // The slot decides where a card is, not its place in the scenario.
  machine_->change([](Inventory &inventory) { std::ranges::reverse(inventory.sd.cards); });
  ASSERT_EQ(veltutil_mgnt(&request), 0);
  EXPECT_EQ(integer_at<std::int32_t>(cards.data(), VELT_CARD_SLOT), 1);
  EXPECT_EQ(integer_at<std::int32_t>(cards.data() + VELT_CARD_SIZE, VELT_CARD_SLOT), 0);

  std::array<char, VELT_PARTITIONS_SIZE> partitions{};
  request.kind = VELT_REQUEST_PARTITIONS;
  EXPECT_NE(veltutil_mgnt(&request), 0) << "buffer of the wrong size";
  request.buffer = partitions.data();
  request.buffer_size = partitions.size();
  ASSERT_EQ(veltutil_mgnt(&request), 0);
  EXPECT_EQ(text_at(partitions.data() + 3 * VELT_PARTITION_SIZE, VELT_PARTITION_NAME, 32), "Drivers");
  EXPECT_EQ(integer_at<std::int32_t>(partitions.data() + 2 * VELT_PARTITION_SIZE, VELT_PARTITION_NUMBER), 0);

  std::strcpy(request.controller, "Veltro-1");
  EXPECT_NE(veltutil_mgnt(&request), 0);
}

TEST_F(PlatformClient, FaultTableMatchesTheScenario) {
  ASSERT_EQ(get_fe_table_count(), 4);
  std::array<char, 4 * FAULT_RECORD_SIZE> records{};
  ASSERT_EQ(get_fe_table(records.data(), 0, 4), 0);
  EXPECT_EQ(integer_at<std::uint32_t>(records.data(), FAULT_INDEX), 11U);
  EXPECT_EQ(text_at(records.data(), FAULT_RN, FAULT_RN_SIZE), "fault-1002");
  EXPECT_EQ(integer_at<std::uint32_t>(records.data(), FAULT_AFFECTED_OID_COUNT), 15U);
  EXPECT_EQ(integer_at<std::uint32_t>(records.data(), FAULT_AFFECTED_OID + 14 * 4), 5U);
  EXPECT_EQ(get_fe_table(records.data(), 3, 1), 0);
  EXPECT_EQ(integer_at<std::uint32_t>(records.data(), FAULT_INDEX), 31U);
  EXPECT_EQ(get_fe_table(records.data(), 0, 5), -1);
  EXPECT_EQ(get_fe_table(records.data(), 4, 0), 0) << "nothing, at the end";
  EXPECT_EQ(get_fe_table(records.data(), 5, 0), -1);
  EXPECT_EQ(get_fe_table(records.data(), -1, 1), -1);
}

TEST_F(PlatformClient, BroadcasterSendsEveryChangeInOrder) {
  const int connection = connect_broadcaster();
  EXPECT_NE(fcntl(connection, F_GETFD) & FD_CLOEXEC, 0);
  control_words("fault raise 7 class=fan unit=3 severity=3");
  control_words("fault update 7 severity=critical");
  control_words("fault clear 7");
  for (const std::int64_t severity : {3, 6, 0}) {
    const Change change = next_change(connection);
    EXPECT_EQ(change.index, 7);
    EXPECT_EQ(change.severity, severity);
  }
  EXPECT_EQ(get_fe_table_count(), 4);
  close(connection);
}

TEST_F(PlatformClient, ClosedBroadcasterReturnsZero) {
  int connection = connect_broadcaster();
  std::array<char, FAULT_RECORD_SIZE> record{};
  EXPECT_EQ(control_words("broadcaster close"), "1 connections closed\n");
  EXPECT_EQ(listen_to_fe_broadcaster(&connection, record.data()), 0);
  close(connection);
}

TEST_F(PlatformClient, AResetConnectionCountsAsClosed) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  ASSERT_EQ(write(ends[0], "x", 1), 1);
  close(ends[1]);  // with something unread, which resets the connection
  std::array<char, FAULT_RECORD_SIZE> record{};
  EXPECT_EQ(listen_to_fe_broadcaster(ends.data(), record.data()), 0);
  close(ends[0]);
}

TEST_F(PlatformClient, RefusedConnectionReturnsAnErrorNumber) {
  int connection = -5;
  control_words("broadcaster fail 2");
  EXPECT_EQ(connect_to_fe_broadcaster(&connection), ECONNREFUSED);
  EXPECT_EQ(connect_to_fe_broadcaster(&connection), ECONNREFUSED);
  EXPECT_EQ(connection, -5);
  close(connect_broadcaster());
  control_words("broadcaster refuse");
  EXPECT_EQ(connect_to_fe_broadcaster(&connection), ECONNREFUSED);
  control_words("broadcaster accept");
  close(connect_broadcaster());
}

TEST_F(PlatformClient, SignalInterruptsListening) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR2, &action, nullptr);
  int connection = connect_broadcaster();
  std::atomic<bool> done = false;
  int result = 1;
  int reason = 0;
  std::thread listener([&] {
    std::array<char, FAULT_RECORD_SIZE> record{};
    result = listen_to_fe_broadcaster(&connection, record.data());
    reason = errno;
    done = true;
  });
  EXPECT_TRUE(eventually([&] {
    if (!done) {
      pthread_kill(listener.native_handle(), SIGUSR2);
    }
    return done.load();
  }));
  listener.join();
  EXPECT_LT(result, 0);
  EXPECT_EQ(reason, EINTR);
  close(connection);
}

TEST_F(PlatformClient, StorageEventsArriveWithTheirType) {
  void *events = se_open_storage_events(0, 0);
  std::thread sender([&] {
    EXPECT_TRUE(eventually([&] { return machine_->storage_events().followers() == 1; }));
    control_words("drive pull 4 2");
    control_words("storage-event 12");
  });
  EXPECT_EQ(integer_at<std::uint32_t>(se_get_next_storage_event(events), STORAGE_EVENT_TYPE), 7U);
  EXPECT_EQ(integer_at<std::uint32_t>(se_get_next_storage_event(events), STORAGE_EVENT_TYPE), 12U);
  sender.join();
  se_close_storage_events(events);
  EXPECT_TRUE(eventually([&] { return machine_->storage_events().followers() == 0; }));
}

TEST_F(PlatformClient, AbsentStorageServiceGivesEmptyEvents) {
  void *events = se_open_storage_events(0, 0);
  stop();
  EXPECT_EQ(integer_at<std::uint32_t>(se_get_next_storage_event(events), STORAGE_EVENT_TYPE), 0U);
  start();
  std::thread sender([&] {
    EXPECT_TRUE(eventually([&] { return machine_->storage_events().followers() == 1; }));
    control_words("storage-event 7");
  });
  EXPECT_EQ(integer_at<std::uint32_t>(se_get_next_storage_event(events), STORAGE_EVENT_TYPE), 7U);
  sender.join();
  se_close_storage_events(events);
}

TEST_F(PlatformClient, CallsFailOnlyWhileTheSimulatorIsAway) {
  int connection = connect_broadcaster();
  stop();
  std::array<char, FAULT_RECORD_SIZE> record{};
  EXPECT_EQ(listen_to_fe_broadcaster(&connection, record.data()), 0);
  close(connection);
  std::uint32_t word = 0;
  int number = 0;
  velt_request request{.kind = VELT_REQUEST_CONTROLLER,
                       .count = 1,
                       .words = {},
                       .controller = "Veltro-0",
                       .buffer = record.data(),
                       .buffer_size = VELT_CONTROLLER_SIZE};
  const std::array<std::uint32_t, 3> sensor{0, ENTITY_FAN, 1};
  EXPECT_EQ(processor_count(), -1);
  EXPECT_NE(GetCPUInfo(&word, PROCESSOR_RECORD_SIZE, nullptr, record.data()), 0);
  EXPECT_NE(GetMemoryItems(&word, 4, nullptr, &number), 0);
  EXPECT_NE(GetMemoryDetail(&word, MEMORY_RECORD_SIZE, nullptr, record.data()), 0);
  EXPECT_NE(GetMemorySummary(&word, MEMORY_SUMMARY_SIZE, nullptr, record.data()), 0);
  EXPECT_EQ(getSensorName(record.data(), &number), 0);
  EXPECT_NE(IPMI_SensorGetSensorData(0, &word, record.data()), 0);
  EXPECT_EQ(IPMI_Thresh_Sensor_CheckPresence(sensor.data()), 0xFF);
  EXPECT_NE(IPMI_Discrete_CheckPresence(sensor.data()), 0);
  EXPECT_NE(get_fru_board_area_from_id(FRU_ID_BOARD, record.data()), 0);
  EXPECT_NE(get_fru_product_area_from_type_instance(FRU_TYPE_POWER_SUPPLY, 1, record.data()), 0);
  EXPECT_NE(veltutil_mgnt(&request), 0);
  EXPECT_EQ(get_fe_table_count(), 0);
  EXPECT_EQ(get_fe_table(record.data(), 0, 1), -1);
  EXPECT_NE(connect_to_fe_broadcaster(&connection), 0);
  start();
  EXPECT_EQ(processor_count(), 2);
}

// A socket that accepts and never answers.
TEST_F(PlatformClient, HangingSimulatorFailsTheCallInTime) {
  const std::string path = directory_ / "hangs";
  const Descriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 5), 0);
  setenv("BMCSIM_SOCKET", path.c_str(), 1);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(processor_count(), -1);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(60));
}

// A simulator that is killed between its reply and the records that follow it.
TEST_F(PlatformClient, FaultRecordsThatEndEarlyAreRefused) {
  const std::string path = directory_ / "ends-early";
  const Descriptor listener = listen_at(path);
  ASSERT_TRUE(listener);
  setenv("BMCSIM_SOCKET", path.c_str(), 1);
  for (const std::size_t sent : {std::size_t{0}, std::size_t{FAULT_RECORD_SIZE}, 2 * std::size_t{FAULT_RECORD_SIZE}}) {
    const std::jthread peer([&] {
      pollfd ready{.fd = listener.get(), .events = POLLIN, .revents = 0};
      poll(&ready, 1, -1);
      const Descriptor connection(accept(listener.get(), nullptr, nullptr));
      receive_frame(connection.get(), request_limit);
      send_frame(connection.get(), {{"result", 0}});
      send_all(connection.get(), std::vector<std::byte>(sent));
    });
    std::array<char, 2 * FAULT_RECORD_SIZE> records{};
    EXPECT_EQ(get_fe_table(records.data(), 0, 2), sent == records.size() ? 0 : -1) << sent;
  }
}

TEST_F(PlatformClient, ServesManyThreadsAtOnce) {
  std::atomic<int> right = 0;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        for (int call = 0; call < 50; ++call) {
          right += processor_count() == 2 && get_fe_table_count() == 4 ? 1 : 0;
        }
      });
    }
  }
  EXPECT_EQ(right, 8 * 50);
}

}  // namespace
}  // namespace tavo::service
