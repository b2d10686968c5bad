// Compares the ordered view with the list itself: for any rows and any PDU, every answer equals that of a walk of the
// full list.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "core/table.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/fixtures/sample_table.h"
#include "tests/harness/manager.h"
#include "tests/harness/threaded.h"

namespace tavo {
namespace {

using fakes::Answer;
using fakes::cell;
using fakes::ev_root;
using fakes::ev_sample;
using fakes::integer;
using fakes::Oid;
using fakes::SampleRow;
using fakes::SampleTable;
using fakes::text;

class Oracle {
 public:
  // Of several rows with one index, the first counts.
  explicit Oracle(const SampleTable &sample) {
    for (const SampleRow *row = sample.head; row != nullptr; row = row->next) {
      if (std::ranges::count(rows_, row->index, &SampleRow::index) == 0) {
        rows_.push_back(*row);
      }
    }
    std::ranges::sort(rows_, {}, &SampleRow::index);
  }

  Answer get(const Oid &name) const {
    const std::size_t root = ev_root.size();
    if (name.size() <= root || !std::ranges::equal(ev_root, std::span(name).first(root)) || name[root] != 1 ||
        name.size() < root + 2 || name[root + 1] < 2 || name[root + 1] > 11) {
      return {name, fakes::no_such_object};
    }
    for (const SampleRow &row : rows_) {
      if (name.size() == root + 3 && row.index == name[root + 2]) {
        return {name, value(row, name[root + 1])};
      }
    }
    return {name, fakes::no_such_instance};
  }

  Answer get_next(const Oid &name) const {
    for (oid column = 2; column <= 11; ++column) {
      for (const SampleRow &row : rows_) {
        Oid candidate = cell(ev_root, column, row.index);
        if (name < candidate) {
          return {std::move(candidate), value(row, column)};
        }
      }
    }
    return {name, fakes::end_of_mib_view};
  }

 private:
  static fakes::Value value(const SampleRow &row, oid column) {
    switch (column) {
      case fakes::sample_column::name:
        return text(row.name);
      case fakes::sample_column::flags:
        return text(std::string(1, '\0'));
      case fakes::sample_column::level:
        return integer(row.level);
      case fakes::sample_column::size:
        return fakes::gauge(0);
      case fakes::sample_column::events:
        return fakes::counter(0);
      case fakes::sample_column::total:
      case fakes::sample_column::sequence:
      case fakes::sample_column::uptime:
        return fakes::counter64(0);
      case fakes::sample_column::object:
        return fakes::object_identifier({});
      default:
        return text("");
    }
  }

  std::vector<SampleRow> rows_;
};

class RandomRequests {
 public:
  explicit RandomRequests(std::uint32_t seed) : random_(seed) {}

  // Rows with gaps and duplicates; `level` tells rows of one index apart.
  void fill_list() {
    remove_rows(ev_sample);
    const std::uint32_t highest = pick({3, 10, 60, 0xFFFFFFFF});
    highest_ = highest;
    const std::uint32_t rows = up_to(pick({0, 1, 5, 40}));
    for (std::uint32_t i = 0; i < rows; ++i) {
      add_row(ev_sample, up_to(highest), static_cast<std::int32_t>(i));
    }
  }

  std::vector<Oid> names() {
    std::vector<Oid> names;
    const std::uint32_t count = 1 + up_to(pick({0, 3, 20}));
    for (std::uint32_t i = 0; i < count; ++i) {
      names.push_back(!names.empty() && up_to(4) == 0 ? names[up_to(static_cast<std::uint32_t>(names.size() - 1))]
                                                      : name());
    }
    return names;
  }

  bool coin() { return up_to(1) == 0; }

 private:
  std::uint32_t up_to(std::uint32_t highest) {
    return std::uniform_int_distribution<std::uint32_t>(0, highest)(random_);
  }
  std::uint32_t pick(std::initializer_list<std::uint32_t> choices) {
    return choices.begin()[up_to(static_cast<std::uint32_t>(choices.size() - 1))];
  }

  // Mostly a cell of a row that may exist; sometimes a name that is shorter, longer or outside the table.
  Oid name() {
    Oid name(ev_root.begin(), ev_root.end());
    name.push_back(up_to(15) == 0 ? pick({0, 2, 0xFFFFFFFF}) : 1);
    name.push_back(up_to(7) == 0 ? pick({0, 1, 12, 13, 0xFFFFFFFF}) : 2 + up_to(9));
    name.push_back(up_to(7) == 0 ? pick({0, 1, 0xFFFFFFFE, 0xFFFFFFFF}) : index());
    switch (up_to(11)) {
      case 0:
        name.resize(ev_root.size() + up_to(2));
        break;
      case 1:
        name.push_back(up_to(3));
        break;
      case 2:
        name.insert(name.end(), {index(), index()});
        break;
      default:
        break;
    }
    return name;
  }

  oid index() {
    if (ev_sample.head == nullptr || coin()) {
      return up_to(highest_);
    }
    std::uint32_t steps = up_to(40);
    const SampleRow *row = ev_sample.head;
    while (steps-- > 0 && row->next != nullptr) {
      row = row->next;
    }
    return row->index;
  }

  std::mt19937 random_;
  std::uint32_t highest_ = 0;
};

std::string listed_indexes() {
  std::string indexes;
  for (const SampleRow *row = ev_sample.head; row != nullptr; row = row->next) {
    indexes += ' ' + std::to_string(row->index);
  }
  return indexes;
}

class OrderedViewTest : public fakes::ModuleTest {
 protected:
  OrderedViewTest() { ev_sample.table.register_with_agent(); }
  ~OrderedViewTest() override {
    remove_rows(ev_sample);
    ev_sample.table.de_register();
  }
};

TEST_F(OrderedViewTest, AnyRequestIsAnsweredAsByAWalkOfTheFullList) {
  const std::uint32_t first_seed = std::random_device()();
  constexpr std::uint32_t lists = 300;
  constexpr int requests_to_each_list = 25;
  for (std::uint32_t seed = first_seed; seed != first_seed + lists && !HasFailure(); ++seed) {
    RandomRequests requests(seed);
    requests.fill_list();
    const Oracle oracle(ev_sample);
    for (int i = 0; i < requests_to_each_list && !HasFailure(); ++i) {
      const std::vector<Oid> names = requests.names();
      const bool next = requests.coin();
      std::vector<Answer> wanted;
      for (const Oid &name : names) {
        wanted.push_back(next ? oracle.get_next(name) : oracle.get(name));
      }
      const fakes::Response response = next ? fakes::get_next(names) : fakes::get(names);
      EXPECT_EQ(response.error_status, SNMP_ERR_NOERROR);
      EXPECT_THAT(response.answers, testing::ElementsAreArray(wanted))
          << "seed " << seed << ", " << (next ? "GETNEXT" : "GET") << " number " << i << ", rows" << listed_indexes();
    }
    EXPECT_FALSE(fakes::is_locked(ev_sample)) << "seed " << seed;
  }
}

}  // namespace
}  // namespace tavo
