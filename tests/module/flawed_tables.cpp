// Lists of tables with one mistake each, for describe_tables. The environment variable FLAW names the list.
#include <array>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/table.h"

namespace tavo {
namespace {

struct Row {
  std::uint32_t index;
  std::int32_t number;
  char name[8];
  Row *next;
};

constexpr auto root = table_root(200, 1);
constexpr auto other_root = table_root(200, 2);

TAVO_COLUMNS(firstTable, Row, number, name);

namespace second {
TAVO_COLUMNS(secondTable, Row, number, name);
}  // namespace second

constexpr TableDescription first = {
    .name = "firstTable", .root = root, .lock = ev_lock<201>, .columns = columns, .row = layout_of<Row>()};

// What may be wrong with the second table.
struct Second {
  const char *name = "secondTable";
  std::span<const oid> root = other_root;
  ListLock &lock = ev_lock<202>;
  std::span<const Column> columns = second::columns;
  int (*build)(int) = nullptr;
  TableSource source = TableSource::Own;
  std::span<const RefreshRule> refresh = {};
};

int build_nothing(int) {
  return 0;
}

constexpr auto fan_rule = std::to_array<RefreshRule>({{.cause = RefreshCause::Fans, .place = 1}});
constexpr auto rule_without_place = std::to_array<RefreshRule>({{.cause = RefreshCause::Fans, .place = 0}});
constexpr auto storage_rule = std::to_array<RefreshRule>({{.cause = RefreshCause::Storage, .place = 1}});

const std::map<std::string_view, Second> second_by_flaw = {
    {"none", {}},
    {"one OID", {.root = root}},
    {"one ev lock", {.lock = ev_lock<201>}},
    {"name without columns", {.name = "thirdTable"}},
    {"columns of another count", {.columns = std::span(second::columns).first<1>()}},
    {"shared source, ev lock", {.build = build_nothing, .source = TableSource::SdCards}},
    {"shared source, fault list's lock",
     {.lock = fault_list_lock, .build = build_nothing, .source = TableSource::SdCards}},
    {"shared source, no builder", {.lock = storage_lock, .source = TableSource::StorageSnapshot}},
    {"shared source, refresh rule",
     {.lock = storage_lock, .build = build_nothing, .source = TableSource::StorageSnapshot, .refresh = fan_rule}},
    {"refresh rule, no builder", {.refresh = fan_rule}},
    {"refresh rule, subagent lock, no builder", {.lock = fault_list_lock, .refresh = fan_rule}},
    {"refresh rule without a place", {.build = build_nothing, .refresh = rule_without_place}},
    {"refresh rule for storage", {.build = build_nothing, .refresh = storage_rule}},
};

TableDescription describe_second(const Second &second) {
  return {.name = second.name,
          .root = second.root,
          .lock = second.lock,
          .columns = second.columns,
          .row = layout_of<Row>(),
          .build = second.build,
          .source = second.source,
          .refresh = second.refresh};
}

std::vector<Table *> tables_with(const std::string &flaw) {
  if (flaw == "first table undefined") {
    return {nullptr};
  }
  static Row *head = nullptr;
  static constinit Table first_table(first, {}, &head);
  if (flaw == "second table unlisted") {
    return {&first_table};
  }
  static const TableDescription description = describe_second(second_by_flaw.at(flaw));
  static Table second_table(description, {}, &head);
  return {&first_table, &second_table};
}

}  // namespace

std::span<Table *const> all_tables() {
  const char *flaw = std::getenv("FLAW");
  static const std::vector<Table *> tables = tables_with(flaw == nullptr ? "" : flaw);
  return tables;
}

}  // namespace tavo
