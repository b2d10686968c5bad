#include "service/control.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <fstream>
#include <iterator>

#include "platform/storage_snapshot.h"
#include "served_scenario.h"
#include "simulator/scenario.h"
#include "tests/harness/threaded.h"

namespace tavo::service {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::ThrowsMessage;

class Control : public ServedScenario {
 protected:
  auto running(const std::string &words) {
    return [this, words] { control_words(words); };
  }

  std::string file(const std::string &name) const {
    std::ifstream stream(directory_ / "var" / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  bool file_exists(const std::string &name) const { return std::filesystem::exists(directory_ / "var" / name); }

  // The second controller's drive at a position, within the snapshot.
  static const char *drive(const std::string &snapshot, std::size_t position) {
    return snapshot.data() + STOR_CONTROLLER_RECORDS + STOR_CONTROLLER_SIZE + STOR_CONTROLLER_DRIVES +
           position * STOR_DRIVE_SIZE;
  }
};

TEST_F(Control, ErrorsQuoteTheWrongWordAndListTheRightOnes) {
  EXPECT_THAT(running("falt list"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("'falt'"), HasSubstr("ping, show, tool, forget, fault"))));
  EXPECT_THAT(running("fault lst"),
              ThrowsMessage<BadInput>(AllOf(HasSubstr("'lst' after 'fault'"), HasSubstr("raise, update"))));
  EXPECT_THAT(running("fault"), ThrowsMessage<BadInput>(HasSubstr("'fault' needs one of raise")));
  EXPECT_THAT(running("fault storm"), ThrowsMessage<BadInput>(HasSubstr("fault storm RECORDS [INDEXES]")));
  EXPECT_THAT(running("fault list all"), ThrowsMessage<BadInput>(HasSubstr("unexpected word 'all'")));
  EXPECT_THAT(running("processor remove 3"), ThrowsMessage<BadInput>(HasSubstr("'3' is not a number from 1 to 2")));
  EXPECT_THAT(running("dimm remove DIMM_Z9"), ThrowsMessage<BadInput>(HasSubstr("no 'DIMM_Z9'; there are DIMM_A1")));
  EXPECT_THAT(running("drive pull 9 1"), ThrowsMessage<BadInput>(HasSubstr("no controller '9'; there are 0, 4")));
  control_words("controller remove 0");
  control_words("controller remove 4");
  EXPECT_THAT(running("drive pull 9 1"), ThrowsMessage<BadInput>(HasSubstr("'9'; there are none")));
  EXPECT_THAT(running("show prozessors"), ThrowsMessage<BadInput>(HasSubstr("'prozessors' after 'show'")));
  EXPECT_THAT(running("tool awk ok"), ThrowsMessage<BadInput>(HasSubstr("unknown tool 'awk'")));
  EXPECT_THAT(running("tool datactl broken"), ThrowsMessage<BadInput>(HasSubstr("'broken' after the tool")));
  EXPECT_THAT(running("tool datactl slow"), ThrowsMessage<BadInput>(HasSubstr("'slow' takes SECONDS")));
  EXPECT_THAT(running("tool datactl silent 3"), ThrowsMessage<BadInput>(HasSubstr("'silent' takes no argument")));
  EXPECT_THAT(running(""), ThrowsMessage<BadInput>(HasSubstr("a command is missing")));
}

TEST_F(Control, HelpHasALineForEveryCommand) {
  const std::string help = control_help();
  for (const auto commands : {machine_commands(), fault_commands(), inventory_commands(), storage_commands()}) {
    for (const Command &command : commands) {
      EXPECT_THAT(help, AllOf(HasSubstr(command.object), HasSubstr(command.verb), HasSubstr(command.help)));
    }
  }
  EXPECT_THAT(help, HasSubstr("\n  sd-mode N                                 change the SD-card controller's mode\n"));
}

TEST_F(Control, ShowPrintsChangedFields) {
  control_words("processor set 1 speed=1200");
  EXPECT_THAT(control_words("show processors"), AllOf(HasSubstr("processor 1: socket=CPU1"), HasSubstr("speed=1200")));
  EXPECT_THAT(control_words("show"),
              AllOf(HasSubstr("power=on"), HasSubstr("fault: index=11"), HasSubstr("sd-card 2:")));
}

TEST_F(Control, ShownJsonIsTheScenarioOfTheSameServer) {
  control_words("drive pull 4 2");
  control_words("fault raise 7 class=fan unit=2 severity=minor");
  control_words("led set LED_FANS color=RED");
  const std::string shown = control_words("show --json");
  const std::string file = directory_ / "shown.json";
  std::ofstream(file) << shown;
  Machine copy(load_scenario(file), Surroundings{.var = directory_ / "copy", .sd_socket = directory_ / "none"});
  EXPECT_EQ(control(copy, {"show", "--json"}), shown);
}

TEST_F(Control, ShowsOneGroupAsJson) {
  EXPECT_THAT(control_words("show --json environment"), AllOf(HasSubstr("\"ambient\": 23.4"), Not(HasSubstr("leds"))));
  EXPECT_THAT(control_words("show --json faults"), HasSubstr("\"class\": \"fan\""));
  EXPECT_THAT(control_words("show --json dimms"), AllOf(HasSubstr("\"present\": true"), HasSubstr("\"number\": 1,")));
  EXPECT_THAT(running("show --json fans"), ThrowsMessage<BadInput>(HasSubstr("'fans' after 'show'")));
  EXPECT_THAT(running("show leds dimms"), ThrowsMessage<BadInput>(HasSubstr("unexpected word 'dimms'")));
}

TEST_F(Control, EveryCommandHasHelpOfItsOwn) {
  for (const auto commands : {machine_commands(), fault_commands(), inventory_commands(), storage_commands()}) {
    for (const Command &command : commands) {
      std::vector<std::string> words{std::string(command.object)};
      if (!command.verb.empty()) {
        words.emplace_back(command.verb);
      }
      const std::string help = command_help(words);
      EXPECT_THAT(help, AllOf(HasSubstr(command.arguments), HasSubstr(command.help)));
      EXPECT_EQ(command.kind != nullptr, command.arguments.find("FIELD=VALUE") != std::string_view::npos);
      EXPECT_EQ(command.kind != nullptr, help.find("Each FIELD is one of") != std::string::npos) << words[0];
    }
  }
  EXPECT_THAT(command_help({"dimm"}), AllOf(HasSubstr("dimm remove NAME\n"), HasSubstr("dimm repair NAME\n")));
  EXPECT_THAT(command_help({"led", "set"}),
              HasSubstr("  color                 a text of at most 64 octets; default: GREEN\n"));
  EXPECT_THAT([] { command_help({"falt"}); }, ThrowsMessage<BadInput>(HasSubstr("unknown word 'falt'")));
  EXPECT_THAT([] { command_help({"led", "get"}); }, ThrowsMessage<BadInput>(HasSubstr("unknown word 'get'")));
}

TEST_F(Control, FailedChangeChangesNothing) {
  EXPECT_THROW(control_words("drive set 4 1 state=good blocks=many"), BadInput);
  EXPECT_THROW(control_words("controller add 0"), BadInput);
  EXPECT_EQ(integer_at<std::int32_t>(file("stor_info_data").data(), 0), 2);
}

TEST_F(Control, SetRefusesTheIdentityOfAnotherPart) {
  const std::string before = control_words("show");
  const auto refused = [](const char *words) { return ThrowsMessage<BadInput>(HasSubstr(words)); };
  EXPECT_THAT(running("processor set 1 socket=CPU2"), refused("another processor with socket CPU2"));
  EXPECT_THAT(running("dimm set DIMM_A1 name=DIMM_A2"), refused("another dimm with name DIMM_A2"));
  EXPECT_THAT(running("sensor set 0 number=1"), refused("another sensor with number 1"));
  EXPECT_THAT(running("adapter set 2 slot=4"), refused("another adapter with slot 4"));
  EXPECT_THAT(running("led set LED_POWER name=LED_FANS"), refused("another led with name LED_FANS"));
  EXPECT_THAT(running("controller set 0 id=4"), refused("another controller with id 4"));
  EXPECT_THAT(running("controller add 4"), refused("another controller with id 4"));
  EXPECT_THAT(running("drive set 4 1 slot=2"), refused("another drive with slot 2"));
  EXPECT_THAT(running("sd-card set 1 slot=2"), refused("another sd-card with slot 2"));
  EXPECT_THAT(running("sd-card set 1 slot=3"), refused("slot: '3' is not a number from 1 to 2"));
  EXPECT_THAT(running("sd-partition set 1 number=4"), refused("another sd-partition with number 4"));
  EXPECT_EQ(control_words("show"), before);
  control_words("controller set 4 id=5");
  EXPECT_THAT(control_words("drive set 5 1 slot=4"), HasSubstr("drive 1 of controller 5 changed"));
}

TEST_F(Control, PowerSuppliesHaveTheirFiles) {
  EXPECT_EQ(file("pmbus/num_psu"), std::string("\x02\x00\x00\x00", 4));
  EXPECT_EQ(file("pmbus/ps0/status"), std::string(2, '\0'));
  EXPECT_EQ(file("pmbus/ps0/pin"), std::string("\x68\x00", 2));
  EXPECT_EQ(file("pmbus/ps1/poutmax"), std::string("\x20\x03", 2));
  EXPECT_EQ(file("pmbus/ps1/rev"), "01.02.03");
  EXPECT_EQ(file("pmbus/ps1/model"), "SUPPLY-800" + std::string(22, '\0'));
  control_words("supply fail 1");
  EXPECT_NE(file("pmbus/ps0/status"), std::string(2, '\0'));
  control_words("supply remove 2");
  EXPECT_FALSE(file_exists("pmbus/ps1/status"));
  EXPECT_EQ(file("pmbus/num_psu"), std::string("\x02\x00\x00\x00", 4));
  control_words("supply insert 2");
  EXPECT_TRUE(file_exists("pmbus/ps1/status"));
}

TEST_F(Control, MemoryVoltageFileFollowsTheServer) {
  EXPECT_EQ(file("vessa/dimms/low_voltage_support"), "1\n");
  control_words("server set low-voltage-memory=3");
  EXPECT_EQ(file("vessa/dimms/low_voltage_support"), "3\n");
}

TEST_F(Control, SnapshotHoldsControllersDrivesAndVolumes) {
  const std::string snapshot = file("stor_info_data");
  ASSERT_EQ(snapshot.size(), 4U + 2 * STOR_CONTROLLER_SIZE);
  const char *second = snapshot.data() + STOR_CONTROLLER_RECORDS + STOR_CONTROLLER_SIZE;
  EXPECT_EQ(text_at(second, STOR_CONTROLLER_LOCATION, STOR_CONTROLLER_LOCATION_SIZE), "SLOT-4");
  EXPECT_EQ(integer_at<std::uint32_t>(second, STOR_CONTROLLER_ID), 4U);
  EXPECT_EQ(integer_at<std::int32_t>(second, STOR_CONTROLLER_DRIVE_COUNT), 5);
  EXPECT_EQ(integer_at<std::int32_t>(second, STOR_CONTROLLER_VOLUME_COUNT), 3);
  EXPECT_EQ(integer_at<std::uint32_t>(second, STOR_BATTERY_PRESENT), 1U);
  EXPECT_EQ(integer_at<std::uint32_t>(second, STOR_BATTERY_TYPE), 8U);
  EXPECT_EQ(text_at(drive(snapshot, 3), STOR_DRIVE_NAME, STOR_TEXT_SIZE), "DISK-C");
  EXPECT_EQ(integer_at<std::uint32_t>(drive(snapshot, 3), STOR_DRIVE_SLOT), 5U);
  EXPECT_EQ(integer_at<std::uint64_t>(drive(snapshot, 3), STOR_DRIVE_CAPACITY_WORD), 480'103'981'056U);
  EXPECT_EQ(integer_at<std::uint64_t>(drive(snapshot, 3), STOR_DRIVE_BLOCKS), 937703088U);
  const char *volume = second + STOR_CONTROLLER_VOLUMES + 2 * STOR_VOLUME_SIZE;
  EXPECT_EQ(integer_at<std::uint32_t>(volume, STOR_VOLUME_STATE), 4U);
  EXPECT_EQ(integer_at<std::uint64_t>(volume, STOR_VOLUME_BLOCKS), 936640512U);
  EXPECT_EQ(integer_at<std::uint64_t>(volume, STOR_VOLUME_CAPACITY_WORD), 479'559'942'144U);
}

TEST_F(Control, StorageChangesReachTheSnapshot) {
  control_words("drive pull 4 1");
  control_words("volume degrade 4 2");
  control_words("battery fail 4");
  const std::string snapshot = file("stor_info_data");
  const char *second = snapshot.data() + STOR_CONTROLLER_RECORDS + STOR_CONTROLLER_SIZE;
  EXPECT_EQ(integer_at<std::int32_t>(second, STOR_CONTROLLER_DRIVE_COUNT), 4);
  EXPECT_EQ(integer_at<std::uint32_t>(drive(snapshot, 0), STOR_DRIVE_SLOT), 2U);
  EXPECT_EQ(integer_at<std::uint32_t>(second + STOR_CONTROLLER_VOLUMES + 2 * STOR_VOLUME_SIZE, STOR_VOLUME_STATE), 3U);
  EXPECT_EQ(integer_at<std::uint32_t>(second, STOR_BATTERY_STATE), 0U);
  control_words("battery repair 4");
  control_words("battery remove 4");
  const std::string without_battery = file("stor_info_data");
  EXPECT_EQ(integer_at<std::uint32_t>(without_battery.data() + (second - snapshot.data()), STOR_BATTERY_STATE), 0U);
  control_words("controller add 7 location=SLOT-5");
  EXPECT_EQ(file("stor_info_data").size(), 4U + 3 * STOR_CONTROLLER_SIZE);
  control_words("controller remove 7");
  EXPECT_EQ(file("stor_info_data").size(), 4U + 2 * STOR_CONTROLLER_SIZE);
}

TEST_F(Control, SnapshotCanBeDamagedAndRepaired) {
  control_words("snapshot missing");
  EXPECT_FALSE(file_exists("stor_info_data"));
  control_words("snapshot empty");
  EXPECT_TRUE(file_exists("stor_info_data"));
  EXPECT_EQ(file("stor_info_data").size(), 0U);
  control_words("snapshot truncate 5000");
  EXPECT_EQ(file("stor_info_data").size(), 5000U);
  control_words("snapshot count -1");
  EXPECT_EQ(integer_at<std::int32_t>(file("stor_info_data").data(), 0), -1);
  control_words("snapshot ok");
  EXPECT_EQ(integer_at<std::int32_t>(file("stor_info_data").data(), 0), 2);
}

// The number is the partition's place in the service's answer.
TEST_F(Control, SdPartitionKeepsANumberFromOneToFive) {
  for (const char *number : {"9", "0", "-1", ""}) {
    EXPECT_THAT(running(std::string("sd-partition set 1 number=") + number),
                ThrowsMessage<BadInput>(HasSubstr("is not a number from 1 to 5")));
  }
  EXPECT_THAT(control_words("show sd-cards"), HasSubstr("sd-partition 1: number=1"));
}

TEST_F(Control, SdCardChangeIsAnnouncedOnTheSocket) {
  EXPECT_THAT(control_words("sd-card pull 1"), HasSubstr("nobody listens"));
  const std::string path = directory_ / "sd-socket";
  const Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 20), 0);

  EXPECT_THAT(control_words("sd-card insert 1"), HasSubstr("announced at"));
  const Descriptor announced(accept(listener.get(), nullptr, nullptr));
  std::array<char, 64> text{};
  EXPECT_GT(recv(announced.get(), text.data(), text.size() - 1, 0), 0);
  EXPECT_STREQ(text.data(), "SD card 1 inserted");

  EXPECT_THAT(control_words("sd-trigger 3"), HasSubstr("3 of 3 connections"));
  const Descriptor silent(accept(listener.get(), nullptr, nullptr));
  EXPECT_EQ(recv(silent.get(), text.data(), text.size(), 0), 0);
}

TEST_F(Control, ReadingsDriftOnlyAtTheGivenInterval) {
  Drift drift;
  const std::string still = control_words("show environment");
  drift.advance(*machine_, 2000);
  EXPECT_EQ(control_words("show environment"), still);
  control_words("environment set drift=1000");
  const std::string before = control_words("show environment") + control_words("show processors");
  drift.advance(*machine_, 900);
  EXPECT_EQ(control_words("show environment") + control_words("show processors"), before);
  drift.advance(*machine_, 200);
  EXPECT_NE(control_words("show environment") + control_words("show processors"), before);
}

}  // namespace
}  // namespace tavo::service
