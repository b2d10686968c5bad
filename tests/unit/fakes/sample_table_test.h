// The fixture of those who test with the sample tables: both are empty, and neither is registered any more, afterwards.
#pragma once

#include "tests/unit/fakes/allocation.h"
#include "tests/unit/fakes/module_test.h"
#include "tests/unit/fakes/mutexes.h"
#include "tests/unit/fakes/sample_table.h"

namespace fakes {

class SampleTableTest : public ModuleTest {
 protected:
  ~SampleTableTest() override {
    reset_allocations();
    fail_next_mutex_call(0);
    before_rows_are_read = nullptr;
    remove_rows(ev_sample);
    remove_rows(subagent_sample);
    ev_sample.table.de_register();
  }
};

}  // namespace fakes
