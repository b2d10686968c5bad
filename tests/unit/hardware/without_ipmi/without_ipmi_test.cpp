// What stands for the management controller in a build without libfreeipmi.
#include "hardware/ipmi_source.h"

#include <gmock/gmock.h>

namespace tavo::service {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(WithoutIpmi, TheSourceSaysThatItWasLeftOut) {
  Register nothing_kept("");
  const auto source = ipmi_source(Roots(), nothing_kept);
  EXPECT_EQ(source->name(), "IPMI");
  const Finding found = source->read();
  EXPECT_THAT(found.unreadable, ElementsAre("bmcsim was built without it"));
  EXPECT_THAT(found.troubles, IsEmpty());
}

}  // namespace
}  // namespace tavo::service
