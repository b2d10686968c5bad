// What only the shared object can show: loading, and symbols that the program does not define.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<std::string> logged;

class ModuleLibrary : public testing::Test {
 protected:
  // With the simulator's library, because all that the module needs is looked up when it is loaded. Once: the module
  // stays loaded when the tests are repeated.
  static void SetUpTestSuite() {
    if (module_ != nullptr) {
      return;
    }
    ASSERT_NE(dlopen(PLATFORM_PATH, RTLD_NOW | RTLD_GLOBAL), nullptr) << dlerror();
    module_ = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module_, nullptr) << dlerror();
    logged_while_loading = std::exchange(logged, {});
  }

  void SetUp() override { logged.clear(); }

  template <class Function>
  Function *symbol(const char *name) {
    void *found = dlsym(module_, name);
    EXPECT_NE(found, nullptr) << name;
    return reinterpret_cast<Function *>(found);
  }

  static inline void *module_ = nullptr;
  static inline std::vector<std::string> logged_while_loading;
};

// Some columns pass a Counter64 as four octets. Each time net-snmp refuses one it logs a line, so the module tries
// once, when it is loaded. test_walk.py counts the lines after whole walks.
TEST_F(ModuleLibrary, LoadingAsksOnceWhetherACounter64MayHaveFourOctets) {
  EXPECT_THAT(logged_while_loading, testing::ElementsAre("bad size for counter 64 (4)\n"));
}

TEST_F(ModuleLibrary, WithoutATestTrapThreadThereIsNothingToJoin) {
  EXPECT_EQ(symbol<int()>("join_test_trap_thread")(), 1);
  EXPECT_THAT(logged, testing::ElementsAre("TestThread exited\n"));
}

TEST_F(ModuleLibrary, LocksWorkAsSoonAsItIsLoaded) {
  EXPECT_EQ(symbol<int(int)>("get_ev_lock")(41), 0);
  EXPECT_EQ(symbol<int(int)>("release_ev_lock")(41), 0);
  EXPECT_EQ(symbol<int(int)>("acquire_sa_lock")(2), 0);
  EXPECT_EQ(symbol<int(int)>("release_sa_lock")(2), 0);
}

}  // namespace

// The program's definition wins over net-snmp's.
extern "C" int snmp_log(int, const char *format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  logged.emplace_back(text);
  return 0;
}
