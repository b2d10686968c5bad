#include "host/health_mib.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string_view>

#include "host/mib_value.h"
#include "host/row_table.h"

namespace tavo {
namespace {

using Duration = std::chrono::steady_clock::duration;

MibValue milliseconds(Duration time) {
  return gauge(static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()));
}

MibValue time_ticks(Duration time) {
  using Ticks = std::chrono::duration<std::uint64_t, std::centi>;
  return {.type = ASN_TIMETICKS, .number = static_cast<std::uint32_t>(std::chrono::duration_cast<Ticks>(time).count())};
}

// A thread is a directory in /proc/self/task, and each of them is a link to it.
std::uint64_t threads() {
  constexpr unsigned own_links = 2;
  struct stat task {};
  return stat("/proc/self/task", &task) == 0 && task.st_nlink > own_links ? task.st_nlink - own_links : 0;
}

std::int32_t session_state(const HealthMib::Sources &from) {
  enum { StandAlone = 1, Connected = 2, Disconnected = 3 };
  if (from.stand_alone) {
    return StandAlone;
  }
  return from.notifications.queue().linked() ? Connected : Disconnected;
}

// The objects of each group in the order of their numbers, which begin with 1.
using Object = MibValue (*)(const HealthMib &);

constexpr auto daemon_objects = std::to_array<Object>({
    [](const HealthMib &mib) { return time_ticks(mib.uptime()); },
    [](const HealthMib &) { return gauge(threads()); },
});

constexpr auto session_objects = std::to_array<Object>({
    [](const HealthMib &mib) { return enumeration(session_state(mib.sources())); },
    [](const HealthMib &mib) { return counter(std::max(mib.sources().notifications.sessions(), 1U) - 1); },
});

constexpr auto notification_objects = std::to_array<Object>({
    [](const HealthMib &mib) { return gauge(mib.sources().notifications.queue().waiting()); },
    [](const HealthMib &mib) { return gauge(mib.sources().notifications.queue().longest()); },
    [](const HealthMib &mib) { return counter(mib.sources().notifications.queue().sent()); },
    [](const HealthMib &mib) {
      const NotificationQueue &queue = mib.sources().notifications.queue();
      return counter(queue.dropped() + queue.lost());
    },
    [](const HealthMib &mib) { return counter(mib.sources().notifications.queue().refused()); },
    [](const HealthMib &mib) { return counter(mib.sources().notifications.sinks().lost()); },
});

constexpr auto request_objects = std::to_array<Object>({
    [](const HealthMib &mib) { return gauge(mib.sources().module.requests().waiting); },
    [](const HealthMib &mib) { return counter(mib.sources().module.requests().set_aside); },
    [](const HealthMib &mib) { return milliseconds(mib.sources().module.requests().longest_wait); },
});

constexpr auto tool_objects = std::to_array<Object>({
    [](const HealthMib &mib) { return counter(mib.sources().tools.counts().started); },
    [](const HealthMib &mib) { return counter(mib.sources().tools.counts().failed); },
    [](const HealthMib &mib) { return counter(mib.sources().tools.counts().killed); },
});

constexpr auto platform_objects = std::to_array<Object>({
    [](const HealthMib &mib) { return counter(mib.sources().platform_calls.overdue_so_far()); },
    [](const HealthMib &mib) {
      const auto overdue = mib.sources().platform_calls.overdue();
      return text(overdue ? overdue->function : "");
    },
    [](const HealthMib &mib) {
      const auto overdue = mib.sources().platform_calls.overdue();
      return milliseconds(overdue ? overdue->age : Duration(0));
    },
});

struct Group {
  const char *name;
  oid number;  // under tavoSubagentObjects
  std::span<const Object> objects;
};

constexpr auto groups = std::to_array<Group>({
    {.name = "tavoSubagentDaemon", .number = 1, .objects = daemon_objects},
    {.name = "tavoSubagentSession", .number = 2, .objects = session_objects},
    {.name = "tavoSubagentNotifications", .number = 3, .objects = notification_objects},
    {.name = "tavoSubagentRequests", .number = 4, .objects = request_objects},
    {.name = "tavoSubagentTools", .number = 5, .objects = tool_objects},
    {.name = "tavoSubagentPlatform", .number = 6, .objects = platform_objects},
});

// A table of the module.
struct TableRow {
  std::uint32_t number;  // in ModuleHealth, from 1
  TableHealth health;
};

MibValue rebuild_state(const TableRow &row) {
  enum { Idle = 1, Rebuilding = 2 };
  return enumeration(row.health.began ? Rebuilding : Idle);
}

MibValue rebuild_age(const TableRow &row) {
  const auto &began = row.health.began;
  return milliseconds(began ? std::chrono::steady_clock::now() - *began : Duration(0));
}

// The table's columns, from 2 on.
using TableColumn = MibValue (*)(const TableRow &);

constexpr auto table_columns = std::to_array<TableColumn>({
    [](const TableRow &row) { return text(row.health.name); },
    [](const TableRow &row) { return gauge(*row.health.rows); },
    [](const TableRow &row) { return counter(row.health.rebuilds); },
    [](const TableRow &row) { return counter(row.health.failures); },
    [](const TableRow &row) { return date_and_time(row.health.ended); },
    [](const TableRow &row) { return milliseconds(row.health.duration); },
    rebuild_state,
    rebuild_age,
});

int answer_group(netsnmp_mib_handler * /*handler*/, netsnmp_handler_registration *registration,
                 netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
  const auto &mib = *static_cast<const HealthMib *>(registration->my_reg_void);
  for (; requests != nullptr; requests = requests->next) {
    const oid *name = requests->requestvb->name;
    const auto group = std::ranges::find(groups, name[health_object_length - 1], &Group::number);
    answer(info, requests, group->objects[name[health_object_length] - 1](mib));
  }
  return SNMP_ERR_NOERROR;
}

constexpr RowTable<ModuleHealth, std::optional<TableRow>> table_table = {
    .name = "tavoSubagentTableTable",
    .number = 7,
    .indexes = 1,
    .columns = table_columns,
    .first_row = [](const ModuleHealth &module, const RowIndex &from) -> std::optional<TableRow> {
      const std::uint32_t number = std::max(from[0], std::uint32_t{1});
      return number <= module.tables() ? std::optional(TableRow{number, module.table(number - 1)}) : std::nullopt;
    },
    .index_of = [](const TableRow &row) -> RowIndex {
      return {row.number, 0};
    },
};

}  // namespace

void HealthMib::attach() {
  for (const Group &group : groups) {
    netsnmp_handler_registration *registration = new_registration(group.name, group.number, answer_group, this);
    log_unless_registered(registration == nullptr
                              ? MIB_REGISTRATION_FAILED
                              : netsnmp_register_scalar_group(registration, 1, group.objects.size()),
                          group.name);
  }
  serve_rows<table_table>(sources_.module);
}

}  // namespace tavo
