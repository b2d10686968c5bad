#include "hardware/same_error.h"

#include <gmock/gmock.h>

#include "core/class_number.h"
#include "hardware/fault_keeper.h"
#include "served_tree.h"

namespace tavo::service {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Trouble counted(const std::string &key, std::int64_t module) {
  return {.key = key,
          .class_code = module == 0 ? class_number::server : class_number::memory,
          .unit = module == 0 ? 1 : module,
          .severity = "critical",
          .cause = 2,
          .description = "counted",
          .error = uncorrected_memory_error,
          .source = "EDAC"};
}

Trouble logged() {
  return {.key = "logged",
          .class_code = class_number::server,
          .unit = 1,
          .severity = "critical",
          .cause = 2,
          .description = "logged",
          .error = uncorrected_memory_error,
          .source = "IPMI"};
}

std::map<std::string, std::string> told(const std::vector<Trouble> &troubles, const std::string &fault = "") {
  return told_by_others(troubles, [&](const std::string &key) { return key == fault; });
}

TEST(SameError, AModuleTellsMoreThanTheServer) {
  EXPECT_THAT(told({logged(), counted("A1", 1), counted("A2", 2)}), ElementsAre(Pair("logged", "A1")));
  EXPECT_THAT(told({logged(), counted("A1", 1)}, "logged"), ElementsAre(Pair("logged", "A1")));
}

TEST(SameError, OfEqualsTheOneThatIsAFaultStays) {
  EXPECT_THAT(told({logged(), counted("mc0", 0)}), ElementsAre(Pair("mc0", "logged")));
  EXPECT_THAT(told({logged(), counted("mc0", 0)}, "mc0"), ElementsAre(Pair("logged", "mc0")));
}

TEST(SameError, OtherErrorsAreOthers) {
  Trouble corrected = counted("A1", 1);
  corrected.error = corrected_memory_errors;
  EXPECT_THAT(told({logged(), corrected}), IsEmpty());
  Trouble unnamed = logged();
  unnamed.error = "";
  corrected.error = "";
  EXPECT_THAT(told({unnamed, corrected}), IsEmpty());
  EXPECT_THAT(told({counted("A1", 1), counted("A2", 2)}), IsEmpty());
}

class SameFault : public ServedTree {
 protected:
  // Which faults there are at that time, if these are the troubles.
  std::vector<std::string> faults(const std::vector<Trouble> &troubles, std::chrono::seconds at) {
    keeper_.settle({.troubles = troubles, .undecided = {}}, start_ + at, machine_);
    std::vector<std::string> keys;
    for (const auto &[key, fault] : register_.faults()) {
      keys.push_back(key);
    }
    return keys;
  }

  Machine machine_{machine(Inventory())};
  const FaultKeeper::Clock::time_point start_ = FaultKeeper::Clock::now();
  FaultKeeper keeper_{register_};
};

TEST_F(SameFault, OneFaultTakesTheOthersPlace) {
  EXPECT_THAT(faults({logged()}, 0s), IsEmpty());
  EXPECT_THAT(faults({logged()}, 3s), ElementsAre("logged"));
  EXPECT_THAT(faults({logged(), counted("A1", 1)}, 5s), ElementsAre("logged"));
  EXPECT_THAT(faults({logged(), counted("A1", 1)}, 8s), ElementsAre("A1"));
  EXPECT_THAT(faults({logged(), counted("A1", 1)}, 9s), ElementsAre("A1"));
  EXPECT_THAT(faults({logged()}, 10s), ElementsAre("A1"));
  EXPECT_THAT(faults({}, 11s), ElementsAre("A1"));
  EXPECT_THAT(faults({}, 40s), IsEmpty());
}

}  // namespace
}  // namespace tavo::service
