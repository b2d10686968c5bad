#include "hardware/hardware.h"

#include <gmock/gmock.h>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <atomic>
#include <future>
#include <optional>
#include <thread>

#include "hardware/sources.h"
#include "service/control.h"
#include "tests/harness/threaded.h"

#include "served_tree.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

// A source that finds what the test says.
class Told : public Source {
 public:
  explicit Told(std::function<Finding()> tell, std::chrono::seconds interval)
      : tell_(std::move(tell)), interval_(interval) {}
  std::string_view name() const override { return "told"; }
  std::chrono::seconds interval() const override { return interval_; }
  Finding read() override { return tell_(); }

 private:
  const std::function<Finding()> tell_;
  const std::chrono::seconds interval_;
};

class HardwareTest : public ServedTree {
 protected:
  static std::vector<std::unique_ptr<Source>> one(std::function<Finding()> tell, std::chrono::seconds interval = 0s) {
    std::vector<std::unique_ptr<Source>> sources;
    sources.push_back(std::make_unique<Told>(std::move(tell), interval));
    return sources;
  }

  static bool eventually(const std::function<bool()> &is_so) {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!is_so() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(1ms);
    }
    return is_so();
  }
};

TEST_F(HardwareTest, WhatASourceFindsIsServed) {
  Hardware hardware(one([] {
                      Finding finding;
                      finding.enter = [](Inventory &inventory) { inventory.server.set("serial", "S1"); };
                      return finding;
                    }),
                    register_);
  const Inventory inventory = hardware.first_inventory(30s);
  EXPECT_EQ(inventory.server.text("serial"), "S1");
  EXPECT_EQ(inventory.server.text("product-name"), "") << "what nobody knows is not invented";
  EXPECT_THAT(hardware.unreadable(), IsEmpty());
}

TEST_F(HardwareTest, ASourceThatFailsIsNamed) {
  Hardware hardware(one([]() -> Finding { throw std::runtime_error("/dev/ipmi0: no such device"); }), register_);
  hardware.first_inventory(30s);
  EXPECT_THAT(hardware.unreadable(), ElementsAre("told: /dev/ipmi0: no such device"));
}

// Finds a serial number and a trouble once, and fails from then on.
Finding found_once(std::atomic<int> &readings) {
  if (readings++ > 0) {
    throw std::runtime_error("/sys/class/block: gone");
  }
  Finding finding;
  finding.enter = [](Inventory &inventory) { inventory.server.set("serial", "S1"); };
  finding.troubles = {trouble};
  return finding;
}

TEST_F(HardwareTest, WhatWasFoundOutlivesAReadingThatFails) {
  auto readings = std::make_shared<std::atomic<int>>(0);
  Hardware hardware(one([readings] { return found_once(*readings); }, 1s), register_);
  Machine served = machine(hardware.first_inventory(30s));
  ASSERT_TRUE(eventually([&] { return *readings >= 3; }));
  hardware.advance(served);
  EXPECT_THAT(hardware.unreadable(), ElementsAre("told: /sys/class/block: gone"));
  EXPECT_EQ(served.read([](const Inventory &inventory) { return inventory.server.text("serial"); }), "S1");
}

TEST_F(HardwareTest, AChangeIsShownOnceItsFilesCanBeWritten) {
  auto model = std::make_shared<std::atomic<char>>('1');
  Hardware hardware(one(
                        [model] {
                          Finding finding;
                          finding.enter = [model = std::string(1, *model)](Inventory &inventory) {
                            inventory.supplies.emplace_back(supply_kind);
                            inventory.supplies.back().set("model", model);
                          };
                          return finding;
                        },
                        1s),
                    register_);
  Machine served = machine(hardware.first_inventory(30s));
  const auto var = directory_ / "var";
  const auto kept = directory_ / "kept";
  std::filesystem::rename(var, kept);
  std::ofstream(var) << "no directory";
  *model = '2';
  std::this_thread::sleep_for(3s);
  EXPECT_NO_THROW(hardware.advance(served));
  std::filesystem::remove(var);
  std::filesystem::rename(kept, var);
  const auto files = [&] {
    std::map<std::filesystem::path, std::string> contents;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(var)) {
      if (entry.is_regular_file()) {
        std::ifstream stream(entry.path(), std::ios::binary);
        contents[entry.path()] = std::string(std::istreambuf_iterator<char>(stream), {});
      }
    }
    return contents;
  };
  const auto before = files();
  hardware.advance(served);
  EXPECT_NE(files(), before);
}

// A listener that takes nothing: as many connections wait as there may be.
class BusyListener {
 public:
  explicit BusyListener(const std::string &path) {
    path.copy(address_.sun_path, sizeof address_.sun_path - 1);
    EXPECT_EQ(bind(listener_.get(), generic(), sizeof address_), 0);
    EXPECT_EQ(listen(listener_.get(), 0), 0);
    while (fill()) {
    }
  }

  // Takes all connections. What the last one that said something said.
  std::string last_word() {
    std::string said;
    for (;;) {
      const Descriptor peer(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK));
      if (!peer) {
        return said;
      }
      std::array<std::byte, 64> octets{};
      const ssize_t got = read_some(peer, octets);
      if (got > 0) {
        said.assign(reinterpret_cast<const char *>(octets.data()), static_cast<std::size_t>(got));
      }
    }
  }

 private:
  const sockaddr *generic() const { return reinterpret_cast<const sockaddr *>(&address_); }
  bool fill() {
    Descriptor &peer = peers_.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    return connect(peer.get(), generic(), sizeof address_) == 0;
  }

  sockaddr_un address_{.sun_family = AF_UNIX, .sun_path = {}};
  const Descriptor listener_{socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)};
  std::vector<Descriptor> peers_;
};

TEST_F(HardwareTest, ABusyListenerHoldsUpNoChange) {
  auto column = std::make_shared<std::atomic<int>>(1);
  Hardware hardware(one(
                        [column] {
                          Finding finding;
                          finding.enter = [value = column->load()](Inventory &inventory) {
                            inventory.sd.controller.set_number("column-4", value);
                          };
                          return finding;
                        },
                        1s),
                    register_);
  Machine served = machine(hardware.first_inventory(30s));
  BusyListener listener(served.sd_socket());
  *column = 2;
  const auto column_shown = [&] {
    const auto begin = std::chrono::steady_clock::now();
    hardware.advance(served);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    return served.read([](const Inventory &inventory) { return inventory.sd.controller.number("column-4"); });
  };
  EXPECT_TRUE(eventually([&] { return column_shown() == 2; }));
  EXPECT_EQ(listener.last_word(), "");
  hardware.advance(served);
  EXPECT_EQ(listener.last_word(), "SD cards changed");
  hardware.advance(served);
  EXPECT_EQ(listener.last_word(), "") << "once is enough";
}

TEST_F(HardwareTest, ASourceThatHangsHoldsUpNobody) {
  auto released = std::make_shared<std::promise<void>>();
  {
    Hardware hardware(one([waits = released->get_future().share()] {
                        waits.wait();
                        return Finding();
                      }),
                      register_);
    hardware.first_inventory(0s);
    EXPECT_THAT(hardware.unreadable(), ElementsAre("told: no answer yet"));
  }
  released->set_value();
}

// A source that counts its readings, and is told by the test when there is something new.
class Woken : public Source {
 public:
  Woken(std::atomic<int> &readings, std::chrono::seconds first_interval)
      : readings_(readings), first_interval_(first_interval) {}
  ~Woken() override { readings_ = ended; }
  std::string_view name() const override { return "woken"; }
  std::chrono::seconds interval() const override { return readings_ == 1 ? first_interval_ : 3600s; }
  int watch() const override { return news_.get(); }
  Finding read() override {
    eventfd_t taken = 0;
    eventfd_read(news_.get(), &taken);
    ++readings_;
    return {};
  }

  int news() const { return news_.get(); }
  static constexpr int ended = -1;

 private:
  std::atomic<int> &readings_;
  const std::chrono::seconds first_interval_;  // after the first reading; 3600 s before it and later
  const Descriptor news_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

class WokenTest : public HardwareTest {
 protected:
  WokenTest() { start({}); }

  void start(const Intervals &intervals, std::chrono::seconds first_interval = 3600s) {
    auto source = std::make_unique<Woken>(readings_, first_interval);
    news_ = source->news();
    std::vector<std::unique_ptr<Source>> sources;
    sources.push_back(std::move(source));
    hardware_.emplace(std::move(sources), register_, intervals);
    hardware_->first_inventory(30s);
  }
  // The source is not to outlive what it counts in.
  ~WokenTest() override {
    hardware_.reset();
    EXPECT_TRUE(eventually([&] { return readings_ == Woken::ended; }));
  }

  void start_anew(const Intervals &intervals, std::chrono::seconds first_interval = 3600s) {
    hardware_.reset();
    ASSERT_TRUE(eventually([&] { return readings_ == Woken::ended; }));
    readings_ = 0;
    start(intervals, first_interval);
  }

  std::atomic<int> readings_ = 0;
  int news_ = -1;
  std::optional<Hardware> hardware_;
};

TEST_F(WokenTest, AChangeIsReadAtOnce) {
  EXPECT_EQ(readings_, 1);
  eventfd_write(news_, 1);
  EXPECT_TRUE(eventually([&] { return readings_ == 2; }));
}

TEST_F(WokenTest, ManyChangesAreFewReadings) {
  const auto start = std::chrono::steady_clock::now();
  auto passed = 0ns;
  while (passed < 1200ms) {
    eventfd_write(news_, 1);
    std::this_thread::sleep_for(1ms);
    passed = std::chrono::steady_clock::now() - start;
  }
  EXPECT_LE(readings_, 2 + passed / 500ms);
}

TEST_F(WokenTest, ASourceIsReadAsOftenAsTheUserSays) {
  start_anew({{"woken", 1s}, {"other", 3600s}});
  EXPECT_TRUE(eventually([&] { return readings_ == 2; }));
}

TEST_F(WokenTest, ASourceMayWantToBeReadMoreOften) {
  start_anew({}, 1s);
  EXPECT_TRUE(eventually([&] { return readings_ == 2; }));
}

TEST(IntervalsTest, AWrongOneIsRefused) {
  Intervals intervals;
  const auto refusal = [&](const char *word, const char *message) {
    EXPECT_THAT([&] { add_interval(word, intervals); }, ThrowsMessage<BadInput>(HasSubstr(message))) << word;
  };
  refusal("disk=5", "unknown source 'disk'; expected one of SMBIOS, hwmon, ");
  refusal("", "unknown source ''");
  refusal("disks", "'disks' is not of the form SOURCE=SECONDS");
  for (const char *word : {"disks=", "disks=0", "disks=-1", "disks=5s", "disks=86401", "disks=99999999999999999999"}) {
    refusal(word, "is not a number from 1 to 86400");
  }
  EXPECT_THAT(intervals, IsEmpty());
  add_interval("disks=5", intervals);
  add_interval("disks=7", intervals);
  EXPECT_EQ(intervals, Intervals({{"disks", 7s}})) << "the last one counts";
}

class RealServerTest : public HardwareTest {
 protected:
  RealServerTest() { register_.keep_part("drive", "a place", "sda"); }

  static Finding missing_drive() {
    Finding finding;
    finding.troubles = {trouble};
    finding.troubles[0].missing = {.group = "drive", .number = 1};
    return finding;
  }

  auto running(std::vector<std::string> words) {
    return [this, words] { control(machine_, words); };
  }

  Hardware hardware_{one(missing_drive), register_};
  Machine machine_{hardware_.first_inventory(30s), surroundings(), &hardware_};
};

TEST_F(RealServerTest, CommandsThatWouldChangeItAreRefused) {
  const auto refusal = ThrowsMessage<BadInput>(HasSubstr("this one is real"));
  EXPECT_THAT(running({"power", "off"}), refusal);
  EXPECT_THAT(running({"drive", "pull", "0", "1"}), refusal);
  EXPECT_THAT(running({"tool", "datactl", "hangs"}), refusal);
  EXPECT_THAT(running({"snapshot", "empty"}), refusal);
  EXPECT_THAT(running({"fault", "storm", "10"}), refusal);
  EXPECT_NO_THROW(running({"ping"})());
  EXPECT_NO_THROW(running({"show", "server"})());
  EXPECT_NO_THROW(running({"storage-event", "7"})());
}

TEST_F(RealServerTest, ATesterRaisesFaultsAboveItsOwn) {
  EXPECT_THAT(running({"fault", "raise", "99999", "class=fan"}), ThrowsMessage<BadInput>(HasSubstr("from 100000 to")));
  EXPECT_THAT(running({"fault", "clear", "1"}), ThrowsMessage<BadInput>(HasSubstr("a real server's own are lower")));
  running({"fault", "raise", "100000", "class=fan"})();
  EXPECT_EQ(machine_.faults().count(), 1U);
  running({"fault", "clear", "100000"})();
  EXPECT_EQ(machine_.faults().count(), 0U);
}

TEST_F(RealServerTest, APartThatIsMissingCanBeForgotten) {
  EXPECT_THAT(running({"forget", "drive", "2"}), ThrowsMessage<BadInput>(HasSubstr("what is: drive 1")));
  EXPECT_THAT(running({"forget", "fan", "1"}), ThrowsMessage<BadInput>(HasSubstr("what is: drive 1")));
  EXPECT_THAT(register_.parts("drive"), SizeIs(1));
  running({"forget", "drive", "1"})();
  EXPECT_THAT(register_.parts("drive"), IsEmpty());
}

TEST_F(RealServerTest, ItsSourcesAreReadAtOnceWithoutThePart) {
  Hardware hardware(one([this] { return register_.parts("drive").empty() ? Finding() : missing_drive(); }), register_);
  hardware.first_inventory(30s);
  hardware.forget("drive", 1);
  const auto what_is_missing = [&]() -> std::string {
    try {
      hardware.forget("drive", 1);
    } catch (const BadInput &error) {
      return error.what();
    }
    return "";
  };
  EXPECT_TRUE(eventually([&] { return what_is_missing() == "'drive 1' is not missing; what is: none"; }));
}

TEST_F(RealServerTest, ASimulatedServerForgetsNothing) {
  Machine simulated = machine(Inventory());
  EXPECT_THAT(
      [&] {
        control(simulated, {"forget", "drive", "1"});
      },
      ThrowsMessage<BadInput>(HasSubstr("this one is simulated")));
}

TEST_F(HardwareTest, AFaultStaysUntilItsSourceAnswers) {
  register_.keep_fault(trouble.key, kept_fault);
  Hardware hardware(one([]() -> Finding { throw std::runtime_error("busy"); }), register_);
  Machine served = machine(hardware.first_inventory(30s));
  const auto deadline = std::chrono::steady_clock::now() + FaultKeeper::cleared_after + 2s;
  while (std::chrono::steady_clock::now() < deadline) {
    hardware.advance(served);
    std::this_thread::sleep_for(500ms);
  }
  EXPECT_EQ(served.faults().count(), 1U);
}

}  // namespace
}  // namespace tavo::service
