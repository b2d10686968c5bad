// The fixture of the three SD-card tables.
#pragma once

#include <string>

#include "tables/velt_info.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/storage_client.h"
#include "threads/velt_event_thread.h"

namespace fakes {

// Builds the tables from what the test's SD-card service answers, and takes their prints off the test's output.
class SdCardTableTest : public ModuleTest {
 protected:
  ~SdCardTableTest() override {
    reset_storage_client();
    rebuild();
  }

  // What the builders have printed.
  static std::string rebuild() {
    testing::internal::CaptureStdout();
    reinit_velt_table(1);
    return testing::internal::GetCapturedStdout();
  }
};

inline constexpr const char *printed_velt_sizes = "sizeof ctlr = 216\nsizeof pd = 1008\nsizeof vd = 940\n";

}  // namespace fakes
