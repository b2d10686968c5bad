#include "tests/harness/golden.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace tavo::fakes {
namespace {

using testing::ElementsAreArray;

constexpr std::size_t varbinds_in_one_pdu = 20;

void expect_answers_to_get(std::span<const Answer> wanted) {
  std::vector<Oid> names;
  for (const Answer &answer : wanted) {
    names.push_back(answer.name);
  }
  const Response response = get(names);
  EXPECT_EQ(response.error_status, SNMP_ERR_NOERROR);
  EXPECT_THAT(response.answers, ElementsAreArray(wanted.begin(), wanted.end()));
}

void expect_gets(std::span<const Answer> wanted, std::size_t varbinds) {
  SCOPED_TRACE("GET of " + std::to_string(varbinds) + " varbinds");
  for (std::size_t i = 0; i < wanted.size(); i += varbinds) {
    expect_answers_to_get(wanted.subspan(i, std::min(varbinds, wanted.size() - i)));
  }
}

}  // namespace

void expect_table(std::span<const oid> table, const std::vector<Cell> &cells) {
  std::vector<Answer> wanted;
  for (const Cell &served : cells) {
    wanted.push_back({.name = cell(table, served.column, served.index), .value = served.value});
  }
  std::ranges::sort(wanted, std::ranges::lexicographical_compare, &Answer::name);

  expect_gets(wanted, 1);
  expect_gets(wanted, varbinds_in_one_pdu);
  {
    SCOPED_TRACE("GETNEXT");
    EXPECT_THAT(walk(table), ElementsAreArray(wanted));
  }
  for (const int repetitions : {1, 2, 10, 50}) {
    SCOPED_TRACE("GETBULK, " + std::to_string(repetitions) + " repetitions");
    EXPECT_THAT(bulk_walk(table, repetitions), ElementsAreArray(wanted));
  }
}

}  // namespace tavo::fakes
