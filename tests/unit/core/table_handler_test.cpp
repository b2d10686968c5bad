// The handler with requests that no agent sends.
#include "core/table.h"

#include <gmock/gmock.h>

#include <array>

#include "tests/fakes/net_snmp.h"
#include "tests/fixtures/sample_table.h"
#include "tests/fixtures/sample_table_fixture.h"
#include "tests/harness/value.h"

namespace tavo {
namespace {

using fakes::add_row;
using fakes::ev_sample;
using fakes::SampleRow;
using fakes::text;

class HandlerTest : public fakes::SampleTableTest {
 protected:
  HandlerTest() { agent_request_.mode = MODE_GET; }
  ~HandlerTest() override {
    for (netsnmp_request_info &request : requests_) {
      netsnmp_free_request_data_sets(&request);
    }
    for (netsnmp_variable_list &varbind : varbinds_) {
      snmp_free_var_internals(&varbind);
    }
  }

  // The next request of the list: for a row, null for none, and a column, 0 for no table info at all.
  void ask(SampleRow *row, unsigned int column) {
    netsnmp_request_info &request = requests_[count_];
    request.requestvb = &varbinds_[count_];
    request.requestvb->type = ASN_NULL;
    if (row != nullptr) {
      netsnmp_request_add_list_data(&request, netsnmp_create_data_list(TABLE_ITERATOR_NAME, row, nullptr));
    }
    if (column != 0) {
      cells_[count_].colnum = column;
      netsnmp_request_add_list_data(&request, netsnmp_create_data_list(TABLE_HANDLER_NAME, &cells_[count_], nullptr));
    }
    if (count_ > 0) {
      requests_[count_ - 1].next = &request;
    }
    ++count_;
  }

  int answer() { return ev_sample.table.answer(&agent_request_, requests_.data()); }
  fakes::Value value(std::size_t i) const { return fakes::value_of(varbinds_[i]); }

  netsnmp_agent_request_info agent_request_ = {};
  std::array<netsnmp_request_info, 8> requests_ = {};
  std::array<netsnmp_variable_list, 8> varbinds_ = {};
  std::array<netsnmp_table_request_info, 8> cells_ = {};
  std::size_t count_ = 0;
};

TEST_F(HandlerTest, AnswersEveryRequestOfTheList) {
  SampleRow *one = add_row(ev_sample, 1, 11);
  SampleRow *two = add_row(ev_sample, 2, 22);
  ask(one, 2);
  ask(two, 5);
  ask(one, 5);
  EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
  EXPECT_EQ(value(0), text("row-1"));
  EXPECT_EQ(value(1), fakes::integer(22));
  EXPECT_EQ(value(2), fakes::integer(11));
}

TEST_F(HandlerTest, ARequestWithoutARowOrInfoIsNoSuchInstanceAlone) {
  SampleRow *one = add_row(ev_sample, 1);
  ask(nullptr, 2);
  ask(one, 0);
  ask(nullptr, 0);
  ask(one, 2);
  EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
  EXPECT_EQ(value(0), fakes::no_such_instance);
  EXPECT_EQ(value(1), fakes::no_such_instance);
  EXPECT_EQ(value(2), fakes::no_such_instance);
  EXPECT_EQ(value(3), text("row-1"));
}

TEST_F(HandlerTest, AColumnOutOfRangeIsNoSuchObjectWithOrWithoutARow) {
  SampleRow *one = add_row(ev_sample, 1);
  ask(one, 1);
  ask(one, 12);
  ask(nullptr, 12);
  ask(one, 0xFFFFFFFF);
  ask(one, 2);
  EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
  for (const std::size_t i : {0U, 1U, 2U, 3U}) {
    EXPECT_EQ(value(i), fakes::no_such_object) << i;
  }
  EXPECT_EQ(value(4), text("row-1"));
}

TEST_F(HandlerTest, ARefusedValueIsAGenErrAndTheOthersAreAnswered) {
  SampleRow *one = add_row(ev_sample, 1, 11);
  ask(one, 2);
  ask(one, 2);
  ask(one, 5);
  fakes::refuse_value(1);
  EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
  EXPECT_EQ(value(0), text("row-1"));
  EXPECT_EQ(value(1).type, ASN_NULL);
  EXPECT_EQ(value(2), fakes::integer(11));
  EXPECT_EQ(requests_[0].status, SNMP_ERR_NOERROR);
  EXPECT_EQ(requests_[1].status, SNMP_ERR_GENERR);
  EXPECT_EQ(requests_[2].status, SNMP_ERR_NOERROR);
}

TEST_F(HandlerTest, ARequestThatWasProcessedIsLeftAlone) {
  SampleRow *one = add_row(ev_sample, 1);
  ask(one, 2);
  ask(one, 2);
  requests_[0].processed = 1;
  EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
  EXPECT_EQ(value(0).type, ASN_NULL);
  EXPECT_EQ(value(1), text("row-1"));
}

TEST_F(HandlerTest, OnlyGetIsAnswered) {
  ask(add_row(ev_sample, 1), 2);
  for (const int mode :
       std::initializer_list<int>{MODE_GETNEXT, MODE_GETBULK, MODE_SET_RESERVE1, MODE_SET_ACTION, -1}) {
    agent_request_.mode = mode;
    EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
    EXPECT_EQ(value(0).type, ASN_NULL) << mode;
  }
}

TEST_F(HandlerTest, WithoutARequestThereIsNothingToAnswer) {
  ask(add_row(ev_sample, 1), 2);
  EXPECT_EQ(ev_sample.table.answer(nullptr, requests_.data()), SNMP_ERR_NOERROR);
  EXPECT_EQ(value(0).type, ASN_NULL);
  EXPECT_EQ(ev_sample.table.answer(&agent_request_, nullptr), SNMP_ERR_NOERROR);
}

TEST_F(HandlerTest, TakesNoLock) {
  ask(add_row(ev_sample, 1), 2);
  const ListGuard guard(ev_sample.table.lock());
  EXPECT_EQ(answer(), SNMP_ERR_NOERROR);
  EXPECT_EQ(value(0), text("row-1"));
}

}  // namespace
}  // namespace tavo
