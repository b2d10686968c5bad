// What the framework's walk costs beside net-snmp's own sorted container (netsnmp_tdata), which serves the same rows by
// the same codecs from the same process. Both tables are asked in turns, and each pair of turns gives a ratio: what
// disturbs the machine disturbs both. Times are processor time of the one thread that asks and answers; requests reach
// the agent over net-snmp's in-process transport, so neither encoding nor a socket dilutes the ratio.
//
// Prints a line for each way of reading and each number of rows: nanoseconds for a varbind, medians over all rounds.
// Beside the large table a small one of 32 rows is read in the same turns, which gives the growth from 32 rows on.
// Exit status 1 when the framework takes more than 1.1 times the container's time at 1,024 rows, or when a varbind at
// 4,096 rows takes more than 1.3 times what it takes at 32.
//
// With other arguments it reads a table on the framework once, and prints how many varbinds it got. gate_cost.py counts
// the instructions of that:
//   table_walk_bench bulk|next|get ROWS [without-gate]
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/table.h"
#include "core/text.h"
#include "tests/harness/manager.h"

namespace {

constexpr std::array<oid, 12> framework_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 2, 1};
constexpr std::array<oid, 12> container_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 2, 2};
constexpr std::array<oid, 12> small_root = {1, 3, 6, 1, 4, 1, 61453, 4, 207, 99, 2, 3};
constexpr std::uint32_t small_rows = 32;

// A row of 21 columns, texts and numbers in turns, as large as the larger of the module's rows.
struct Row {
  std::uint32_t index;
  char text_1[64];
  std::int32_t number_1;
  std::uint32_t size_1;
  char text_2[64];
  std::int32_t number_2;
  std::uint32_t size_2;
  char text_3[64];
  std::int32_t number_3;
  std::uint32_t size_3;
  char text_4[64];
  std::int32_t number_4;
  std::uint32_t size_4;
  char text_5[64];
  std::int32_t number_5;
  std::uint32_t size_5;
  char text_6[64];
  std::int32_t number_6;
  std::uint32_t size_6;
  char text_7[64];
  std::int32_t number_7;
  std::uint32_t size_7;
  Row *next;
};

TAVO_COLUMNS(benchTable, Row, text_1, number_1, size_1, text_2, number_2, size_2, text_3, number_3, size_3, text_4,
             number_4, size_4, text_5, number_5, size_5, text_6, number_6, size_6, text_7, number_7, size_7);
constexpr std::size_t column_count = columns.size();

bool tables_have_a_gate = true;

constexpr tavo::TableDescription description = {
    .name = "benchTable",
    .root = framework_root,
    .lock = tavo::ev_lock<41>,
    .columns = columns,
    .row = tavo::layout_of<Row>(),
};
constexpr tavo::TableDescription small_description = {
    .name = "smallBenchTable",
    .root = small_root,
    .lock = tavo::ev_lock<2>,
    .columns = columns,
    .row = tavo::layout_of<Row>(),
};

Row *head = nullptr;
Row *small_head = nullptr;
extern tavo::Table large_table;
extern tavo::Table small_table;

template <tavo::Table &table>
constexpr tavo::TableEntryPoints entry_points = {
    .init = nullptr,
    .handler = [](netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *agent_request,
                  netsnmp_request_info *requests) { return table.answer(agent_request, requests); },
    .first_row = [](void **loop, void **row, netsnmp_variable_list *index,
                    netsnmp_iterator_info *) { return table.first_row(loop, row, index); },
    .next_row = [](void **loop, void **row, netsnmp_variable_list *index,
                   netsnmp_iterator_info *) { return table.next_row(loop, row, index); },
};

constinit tavo::Table large_table(description, entry_points<large_table>, &head);
constinit tavo::Table small_table(small_description, entry_points<small_table>, &small_head);

Row row_with(std::uint32_t index) {
  Row row = {};
  row.index = index;
  const auto fill = [index](char(&text)[64], std::int32_t &number, std::uint32_t &size) {
    tavo::format_text(text, "sys/rack-unit-1/board/part-%u", index);
    number = static_cast<std::int32_t>(index);
    size = index;
  };
  fill(row.text_1, row.number_1, row.size_1);
  fill(row.text_2, row.number_2, row.size_2);
  fill(row.text_3, row.number_3, row.size_3);
  fill(row.text_4, row.number_4, row.size_4);
  fill(row.text_5, row.number_5, row.size_5);
  fill(row.text_6, row.number_6, row.size_6);
  fill(row.text_7, row.number_7, row.size_7);
  return row;
}

void add_row(tavo::Table &table, std::uint32_t index) {
  const Row row = row_with(index);
  const tavo::ListGuard guard(table.lock());
  table.create(index, &row);
}

int answer_from_container(netsnmp_mib_handler *, netsnmp_handler_registration *,
                          netsnmp_agent_request_info *agent_request, netsnmp_request_info *requests) {
  for (netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
    const netsnmp_tdata_row *row = netsnmp_tdata_extract_row(request);
    const netsnmp_table_request_info *cell = netsnmp_extract_table_info(request);
    if (row == nullptr || cell == nullptr ||
        !tavo::ColumnValue(columns[cell->colnum - 2], row->data).set(request->requestvb)) {
      netsnmp_set_request_error(agent_request, request, SNMP_NOSUCHINSTANCE);
    }
  }
  return SNMP_ERR_NOERROR;
}

netsnmp_tdata *serve_by_container() {
  netsnmp_tdata *container = netsnmp_tdata_create_table("benchContainer", 0);
  auto *table_info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  netsnmp_table_helper_add_indexes(table_info, ASN_UNSIGNED, 0);
  table_info->min_column = 2;
  table_info->max_column = 1 + column_count;
  netsnmp_tdata_register(
      netsnmp_create_handler_registration("benchContainer", answer_from_container, container_root.data(),
                                          container_root.size(), HANDLER_CAN_RONLY),
      container, table_info);
  return container;
}

void add_row(netsnmp_tdata *container, std::uint32_t index) {
  auto *row = static_cast<Row *>(std::malloc(sizeof(Row)));
  *row = row_with(index);
  netsnmp_tdata_row *entry = netsnmp_tdata_create_row();
  entry->data = row;
  netsnmp_tdata_row_add_index(entry, ASN_UNSIGNED, &index, sizeof index);
  netsnmp_tdata_add_row(container, entry);
}

// Sends a PDU and hands each varbind of the response to `take`. Throws when there is no good response.
template <class Take>
void ask(netsnmp_pdu *pdu, Take take) {
  pdu->version = SNMP_VERSION_2c;
  pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
  netsnmp_pdu *response = nullptr;
  if (snmp_synch_response(tavo::fakes::session_to_agent(), pdu, &response) != STAT_SUCCESS ||
      response->errstat != SNMP_ERR_NOERROR) {
    throw std::runtime_error("no good response");
  }
  for (const netsnmp_variable_list *varbind = response->variables; varbind != nullptr;
       varbind = varbind->next_variable) {
    take(*varbind);
  }
  snmp_free_pdu(response);
}

// Each way of reading reads the whole table and returns how many cells it has got.
using Reading = std::size_t (*)(std::span<const oid> root, std::uint32_t rows);

std::size_t walk(std::span<const oid> root, int type, long repetitions) {
  std::array<oid, MAX_OID_LEN> last = {};
  std::ranges::copy(root, last.begin());
  std::size_t length = root.size();
  std::size_t cells = 0;
  bool inside = true;
  while (inside) {
    netsnmp_pdu *pdu = snmp_pdu_create(type);
    if (type == SNMP_MSG_GETBULK) {
      pdu->non_repeaters = 0;
      pdu->max_repetitions = repetitions;
    }
    snmp_add_null_var(pdu, last.data(), length);
    ask(pdu, [&](const netsnmp_variable_list &varbind) {
      inside =
          inside && varbind.type != SNMP_ENDOFMIBVIEW &&
          snmp_oidtree_compare(varbind.name, std::min(varbind.name_length, root.size()), root.data(), root.size()) == 0;
      if (inside) {
        ++cells;
        length = varbind.name_length;
        std::copy_n(varbind.name, length, last.begin());
      }
    });
  }
  return cells;
}

std::size_t bulk_walk(std::span<const oid> root, std::uint32_t) {
  return walk(root, SNMP_MSG_GETBULK, 10);  // as many as snmpbulkwalk asks for
}

std::size_t get_next_walk(std::span<const oid> root, std::uint32_t) {
  return walk(root, SNMP_MSG_GETNEXT, 0);
}

std::size_t gets_of_twenty(std::span<const oid> root, std::uint32_t rows) {
  std::size_t cells = 0;
  const std::size_t all = rows * column_count;
  for (std::size_t cell = 0; cell < all;) {
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
    for (int varbind = 0; varbind < 20 && cell < all; ++varbind, ++cell) {
      const tavo::fakes::Oid name = tavo::fakes::cell(root, 2 + cell / rows, 1 + cell % rows);
      snmp_add_null_var(pdu, name.data(), name.size());
    }
    ask(pdu, [&](const netsnmp_variable_list &varbind) { cells += varbind.type < SNMP_NOSUCHOBJECT ? 1 : 0; });
  }
  return cells;
}

// Nanoseconds of processor time for a varbind.
double time_of(Reading reading, std::span<const oid> root, std::uint32_t rows) {
  timespec begin;
  timespec end;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
  const std::size_t cells = reading(root, rows);
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
  if (cells != rows * column_count) {
    throw std::runtime_error(std::to_string(cells) + " cells of " + std::to_string(rows * column_count));
  }
  const auto nanoseconds =
      static_cast<double>(end.tv_sec - begin.tv_sec) * 1e9 + static_cast<double>(end.tv_nsec - begin.tv_nsec);
  return nanoseconds / static_cast<double>(cells);
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

struct Result {
  double framework;  // ns
  double container;  // ns
  double ratio;
  double growth;
};

Result compare(Reading reading, std::uint32_t rows, int rounds) {
  std::vector<double> framework;
  std::vector<double> container;
  std::vector<double> ratios;
  std::vector<double> growths;
  for (int round = -1; round < rounds; ++round) {
    const double small = time_of(reading, small_root, small_rows);
    const double ours = time_of(reading, framework_root, rows);
    const double theirs = time_of(reading, container_root, rows);
    if (round >= 0) {  // the first warms up
      framework.push_back(ours);
      container.push_back(theirs);
      ratios.push_back(ours / theirs);
      growths.push_back(ours / small);
    }
  }
  return {.framework = median(framework),
          .container = median(container),
          .ratio = median(ratios),
          .growth = median(growths)};
}

struct NamedReading {
  std::string_view word;
  const char *name;
  Reading reading;
};
constexpr auto readings =
    std::to_array<NamedReading>({{.word = "bulk", .name = "GETBULK of 10, whole table", .reading = bulk_walk},
                                 {.word = "next", .name = "GETNEXT, whole table", .reading = get_next_walk},
                                 {.word = "get", .name = "GET of 20 varbinds", .reading = gets_of_twenty}});

int read_once(std::string_view word, std::uint32_t rows) {
  const auto *const named = std::ranges::find(readings, word, &NamedReading::word);
  if (named == readings.end()) {
    throw std::runtime_error("unknown way of reading");
  }
  tavo::fakes::session_to_agent();
  large_table.register_with_agent();
  for (std::uint32_t index = 1; index <= rows; ++index) {
    add_row(large_table, index);
  }
  std::printf("%zu\n", named->reading(framework_root, rows));
  return EXIT_SUCCESS;
}

int run(int rounds) {
  tavo::fakes::session_to_agent();
  large_table.register_with_agent();
  small_table.register_with_agent();
  netsnmp_tdata *container = serve_by_container();
  for (std::uint32_t index = 1; index <= small_rows; ++index) {
    add_row(small_table, index);
  }
  std::uint32_t rows_now = 0;
  bool met = true;

  std::printf("%-28s %6s %14s %14s %7s %13s\n", "", "rows", "framework/ns", "container/ns", "ratio", "to 32 rows");
  for (const std::uint32_t rows : {32U, 256U, 1024U, 4096U}) {
    while (rows_now < rows) {
      add_row(large_table, ++rows_now);
      add_row(container, rows_now);
    }
    for (const NamedReading &reading : readings) {
      const Result result = compare(reading.reading, rows, rounds);
      std::printf("%-28s %6u %14.0f %14.0f %7.2f %13.2f\n", reading.name, rows, result.framework, result.container,
                  result.ratio, result.growth);
      std::fflush(stdout);
      met = met && (rows != 1024 || result.ratio <= 1.1) && (rows != 4096 || result.growth <= 1.3);
    }
  }
  std::puts(met ? "within the limits" : "beyond the limits");
  return met ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

// The lists' locks are found through the list of tables.
std::span<tavo::Table *const> tavo::all_tables() {
  static constexpr Table *tables[] = {&large_table, &small_table};
  return tables;
}

// The gate's handler is left out of the chain; the tables then take their locks themselves. The linker determines the
// names. NOLINTBEGIN(readability-identifier-naming)
extern "C" int __real_netsnmp_inject_handler(netsnmp_handler_registration *registration, netsnmp_mib_handler *handler);
extern "C" int __wrap_netsnmp_inject_handler(netsnmp_handler_registration *registration, netsnmp_mib_handler *handler) {
  if (!tables_have_a_gate && std::string_view(handler->handler_name) == "request_gate") {
    netsnmp_handler_free(handler);
    return SNMPERR_SUCCESS;
  }
  return __real_netsnmp_inject_handler(registration, handler);
}
// NOLINTEND(readability-identifier-naming)

int main(int argc, char **argv) {
  try {
    if (argc > 2) {
      tables_have_a_gate = argc == 3;
      return read_once(argv[1], static_cast<std::uint32_t>(std::stoul(argv[2])));
    }
    return run(argc > 1 ? std::stoi(argv[1]) : 7);
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "table_walk_bench: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
