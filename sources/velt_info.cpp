#include "sources/velt_info.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <span>

namespace tavo {

unsigned char velt_ctlr_info[VELT_CONTROLLER_SIZE] = {};
unsigned char velt_pd_info[VELT_CARDS_SIZE] = {};
unsigned char velt_vd_info[VELT_PARTITIONS_SIZE] = {};

namespace {

struct Question {
  std::uint32_t kind;
  std::span<unsigned char> answer;
  const char *failure;
};

constexpr std::array<Question, 3> questions = {{
    {.kind = VELT_REQUEST_CONTROLLER, .answer = velt_ctlr_info, .failure = "Failed to get controller info from velt\n"},
    {.kind = VELT_REQUEST_CARDS, .answer = velt_pd_info, .failure = "Failed to get physical drive info from velt\n"},
    {.kind = VELT_REQUEST_PARTITIONS,
     .answer = velt_vd_info,
     .failure = "Failed to get virtual drive info from velt\n"},
}};

}  // namespace

void print_velt_sizes() {
  std::printf("sizeof ctlr = %d\n", static_cast<int>(sizeof velt_ctlr_info));
  std::printf("sizeof pd = %d\n", static_cast<int>(sizeof velt_pd_info));
  std::printf("sizeof vd = %d\n", static_cast<int>(sizeof velt_vd_info));
}

void populate_velt(void) {
  for (const Question &question : questions) {
    std::ranges::fill(question.answer, static_cast<unsigned char>(0));
  }
  for (const Question &question : questions) {
    velt_request request = {.kind = question.kind,
                            .count = 1,
                            .words = {},
                            .controller = "Veltro-0",
                            .buffer = question.answer.data(),
                            .buffer_size = static_cast<std::uint32_t>(question.answer.size())};
    if (veltutil_mgnt(&request) != 0) {
      snmp_log(LOG_ERR, "%s", question.failure);
      std::ranges::fill(question.answer, static_cast<unsigned char>(0));  // half an answer is not shown
    }
  }
}

}  // namespace tavo
