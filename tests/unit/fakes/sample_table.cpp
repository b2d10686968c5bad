#include "tests/unit/fakes/sample_table.h"

#include <cstddef>
#include <cstdio>
#include <thread>

#include "core/access_lock.h"

namespace fakes {
namespace {

using tavo::Codec;
using tavo::field;
using Row = SampleRow;

// clang-format off
constexpr auto columns = tavo::checked(std::to_array<tavo::Column>({
    {.number = sample_column::name, .codec = Codec::text, .field = field<decltype(Row::name)>(offsetof(Row, name))},
    {.number = sample_column::code, .codec = Codec::counted_text, .field = field<decltype(Row::code)>(offsetof(Row, code)),
     .length_offset = offsetof(Row, code_length)},
    {.number = sample_column::flags, .codec = Codec::octet, .field = field<decltype(Row::flags)>(offsetof(Row, flags))},
    {.number = sample_column::level, .codec = Codec::integer, .field = field<decltype(Row::level)>(offsetof(Row, level))},
    {.number = sample_column::size, .codec = Codec::gauge, .field = field<decltype(Row::size)>(offsetof(Row, size))},
    {.number = sample_column::events, .codec = Codec::counter, .field = field<decltype(Row::events)>(offsetof(Row, events))},
    {.number = sample_column::total, .codec = Codec::counter64, .field = field<decltype(Row::total)>(offsetof(Row, total))},
    {.number = sample_column::sequence, .codec = Codec::counter64,
     .field = field<decltype(Row::sequence)>(offsetof(Row, sequence))},
    {.number = sample_column::uptime, .codec = Codec::counter64_of_four_octets,
     .field = field<decltype(Row::uptime)>(offsetof(Row, uptime))},
    {.number = sample_column::object, .codec = Codec::object_identifier,
     .field = field<decltype(Row::object)>(offsetof(Row, object)), .length_offset = offsetof(Row, object_length)},
}));
// clang-format on

constexpr tavo::TableDescription ev_description = {
    .name = "evSampleTable",
    .root = ev_root,
    .lock = tavo::ListLock::ev(ev_class),
    .columns = columns,
    .row = tavo::layout_of<Row>(),
};

constexpr tavo::TableDescription subagent_description = {
    .name = "subagentSampleTable",
    .root = subagent_root,
    .lock = tavo::ListLock::subagent(subagent_lock),
    .columns = columns,
    .row = tavo::layout_of<Row>(),
    .traces = false,
    .keeps_registration = false,
};

SampleRow *ev_head = nullptr;
SampleRow *subagent_head = nullptr;
constinit tavo::Table ev_table(ev_description, &ev_head);
constinit tavo::Table subagent_table(subagent_description, &subagent_head);

template <tavo::Table &table>
constexpr tavo::TableHandlers handlers = {
    .handler =
        [](netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *agent_request,
           netsnmp_request_info *requests) {
          if (before_rows_are_read) {
            before_rows_are_read();
          }
          return table.answer(agent_request, requests);
        },
    .first_row = [](void **loop_context, void **row, netsnmp_variable_list *index,
                    netsnmp_iterator_info *) { return table.first_row(loop_context, row, index); },
    .next_row = [](void **loop_context, void **row, netsnmp_variable_list *index,
                   netsnmp_iterator_info *) { return table.next_row(loop_context, row, index); },
};

}  // namespace

constinit const std::span<const tavo::Column> sample_columns = columns;
constinit const SampleTable ev_sample = {.table = ev_table, .head = ev_head, .handlers = handlers<ev_table>};
constinit const SampleTable subagent_sample = {
    .table = subagent_table, .head = subagent_head, .handlers = handlers<subagent_table>};

std::function<void()> before_rows_are_read;

SampleRow *add_row(const SampleTable &sample, std::uint32_t index, std::int32_t level) {
  SampleRow row = {};
  std::snprintf(row.name, sizeof row.name, "row-%u", index);
  row.level = level;
  const tavo::ListGuard guard(sample.table.lock());
  return static_cast<SampleRow *>(sample.table.create(index, &row));
}

void remove_rows(const SampleTable &sample) {
  const tavo::ListGuard guard(sample.table.lock());
  sample.table.remove_all();
}

bool is_locked(const SampleTable &sample) {
  bool locked = false;
  on_another_thread([&] {
    if (sample.table.lock().is_ev()) {
      locked = get_ev_try_lock(ev_class) != 0;
      if (!locked) {
        release_ev_lock(ev_class);
      }
    } else {
      locked = try_sa_lock(subagent_lock) != 0;
      if (!locked) {
        release_sa_lock(subagent_lock);
      }
    }
  });
  return locked;
}

void on_another_thread(const std::function<void()> &call) {
  std::thread(call).join();
}

}  // namespace fakes
