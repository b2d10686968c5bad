// Writes a table's C entry points. They only forward; what they do is told at the table's functions in core/table.h.
#pragma once

#include "core/table.h"

// Creating a row and removing all of them happens under the list lock, which C callers hold where no analysis sees it.
//
// `T`: the table's MIB name, `Row`: its row record, `table`: its tavo::Table.
//
// NOLINTBEGIN(bugprone-macro-parentheses): a type takes none.
#define TAVO_TABLE_ENTRY_POINTS(T, Row, table)                \
  TAVO_AGENT_ENTRY_POINTS(T, table)                           \
  TAVO_LOCKING(no_thread_safety_analysis)                     \
  Row *T##_createEntry(uint32_t index, const Row *filled) {   \
    (table).trace_entry(__func__, __LINE__);                  \
    return static_cast<Row *>((table).create(index, filled)); \
  }                                                           \
  int T##_removeEntry(Row *row) {                             \
    (table).trace_entry(__func__, __LINE__);                  \
    return (table).remove(row);                               \
  }                                                           \
  TAVO_LOCKING(no_thread_safety_analysis)                     \
  void T##_removeAllEntries(void) {                           \
    (table).remove_all();                                     \
  }
// NOLINTEND(bugprone-macro-parentheses)

// What the agent and the start-up call: for a table that makes and removes its rows in a way of its own.
#define TAVO_AGENT_ENTRY_POINTS(T, table) \
  TAVO_REQUEST_ENTRY_POINTS(T, table)     \
  int init_##T(void) {                    \
    return initialize_table_##T();        \
  }

// What the agent calls for a request: for a table that, besides, has a start-up of its own.
#define TAVO_REQUEST_ENTRY_POINTS(T, table)                                                                      \
  int T##_handler(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *request,    \
                  netsnmp_request_info *requests) {                                                              \
    return (table).answer(request, requests);                                                                    \
  }                                                                                                              \
  netsnmp_variable_list *T##_get_first_data_point(void **loop_context, void **row, netsnmp_variable_list *index, \
                                                  netsnmp_iterator_info *) {                                     \
    return (table).first_row(loop_context, row, index);                                                          \
  }                                                                                                              \
  netsnmp_variable_list *T##_get_next_data_point(void **loop_context, void **row, netsnmp_variable_list *index,  \
                                                 netsnmp_iterator_info *) {                                      \
    return (table).next_row(loop_context, row, index);                                                           \
  }
