#include "sources/velt_info.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "tests/fakes/net_snmp.h"
#include "tests/fakes/storage_client.h"
#include "tests/fixtures/module_fixture.h"

namespace tavo {
namespace {

using fakes::LogLine;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class VeltInfoTest : public fakes::ModuleTest {
 protected:
  VeltInfoTest() {
    std::ranges::fill(velt_ctlr_info, 0xAA);
    std::ranges::fill(velt_pd_info, 0xAA);
    std::ranges::fill(velt_vd_info, 0xAA);
  }
};

TEST_F(VeltInfoTest, AsksForControllerCardsAndPartitionsInTurn) {
  populate_velt();
  const auto requests = fakes::velt_requests();
  ASSERT_EQ(requests.size(), 3U);
  const std::array<const void *, 3> buffers = {velt_ctlr_info, velt_pd_info, velt_vd_info};
  const std::array<std::uint32_t, 3> sizes = {216, 1008, 940};
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(requests[i].kind, i + 1);
    EXPECT_EQ(requests[i].count, 1U);
    EXPECT_THAT(requests[i].words, Each(0U));
    EXPECT_EQ(requests[i].controller, "Veltro-0");
    EXPECT_EQ(requests[i].buffer, buffers[i]);
    EXPECT_EQ(requests[i].buffer_size, sizes[i]);
  }
  EXPECT_THAT(fakes::log_lines(), IsEmpty());
}

// A service that fills a part of its answer leaves the rest as it is.
TEST_F(VeltInfoTest, TheServiceGetsEmptyBuffers) {
  populate_velt();
  EXPECT_THAT(fakes::velt_requests(), Each(testing::Field(&fakes::VeltRequest::buffer_was_zero, true)));
}

TEST_F(VeltInfoTest, KeepsWhatTheServiceAnswers) {
  const auto controller = fakes::VeltController().text(VELT_CONTROLLER_COLUMN_8, "sd");
  fakes::set_velt_controller(controller);
  populate_velt();
  EXPECT_EQ(std::memcmp(velt_ctlr_info, controller.octets.data(), sizeof velt_ctlr_info), 0);
  EXPECT_THAT(velt_pd_info, Each(0));
  EXPECT_THAT(velt_vd_info, Each(0));
}

TEST_F(VeltInfoTest, AFailureIsLoggedLeavesZerosAndDoesNotStopTheOthers) {
  fakes::set_velt_controller(fakes::VeltController().number(0, 1));
  fakes::set_velt_cards({fakes::VeltCard().number(VELT_CARD_SLOT, 1), fakes::VeltCard()});
  fakes::set_velt_result(VELT_REQUEST_CARDS, -1);
  populate_velt();
  EXPECT_EQ(fakes::velt_requests().size(), 3U);
  EXPECT_EQ(velt_ctlr_info[0], 1);
  EXPECT_THAT(velt_pd_info, Each(0)) << "the half that the service had filled is not kept";
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_ERR, "Failed to get physical drive info from velt\n"}));
}

TEST_F(VeltInfoTest, EveryFailureHasItsMessage) {
  for (const std::uint32_t kind : {VELT_REQUEST_CONTROLLER, VELT_REQUEST_CARDS, VELT_REQUEST_PARTITIONS}) {
    fakes::set_velt_result(kind, 1);
  }
  populate_velt();
  EXPECT_THAT(fakes::log_lines(), ElementsAre(LogLine{LOG_ERR, "Failed to get controller info from velt\n"},
                                              LogLine{LOG_ERR, "Failed to get physical drive info from velt\n"},
                                              LogLine{LOG_ERR, "Failed to get virtual drive info from velt\n"}));
}

}  // namespace
}  // namespace tavo
