// A table's exported C names: declared by one line in its header, defined by one line in its unit. The functions only
// forward; core/table.h says what they do.
//
// `T` is the table's MIB name, `Row` its row record, `description` its tavo::TableDescription. Both lines stand inside
// namespace tavo. The second also defines `T_table`, the tavo::Table, and `table`, the unit's short name for it.
//
// Creating a row and removing all of them happens under the list lock, which callers from C hold where no analysis sees
// it.
#pragma once

#include "core/table.h"

// NOLINTBEGIN(bugprone-macro-parentheses): a type cannot be parenthesised.

#define TAVO_DECLARE_TABLE(T, Row)                                                                          \
  TAVO_DECLARE_TABLE_WITH_OWN_ROWS(T, Row)                                                                  \
  /* Copies `filled` into a new row with this index. The caller holds the lock. Null for want of memory. */ \
  extern "C" [[gnu::visibility("default")]] Row *T##_createEntry(uint32_t index, const Row *filled);

// For a table whose rows are created in a way of their own: its header declares T_createEntry.
#define TAVO_DECLARE_TABLE_WITH_OWN_ROWS(T, Row)                                                      \
  extern Table T##_table;                                                                             \
  _Pragma("GCC visibility push(default)") extern "C" {                                                \
    /* The rows, newest first; null when there is none. Guarded by the table's lock. */               \
    extern Row *T##_head;                                                                             \
    int init_##T(void);                                                                               \
    /* Registers the table and builds its rows. The builder's result. */                              \
    int initialize_table_##T(void);                                                                   \
    Netsnmp_Node_Handler T##_handler;                                                                 \
    Netsnmp_First_Data_Point T##_get_first_data_point;                                                \
    Netsnmp_Next_Data_Point T##_get_next_data_point;                                                  \
    /* Takes the lock. 0, or the lock's error; a null row or one that is not listed is left alone. */ \
    int T##_removeEntry(Row *row);                                                                    \
    /* The caller holds the lock. */                                                                  \
    void T##_removeAllEntries(void);                                                                  \
  }                                                                                                   \
  _Pragma("GCC visibility pop")

#define TAVO_DEFINE_TABLE(T, Row, description)                  \
  TAVO_DEFINE_TABLE_WITH_OWN_ROWS(T, Row, description)          \
  TAVO_LOCKING(no_thread_safety_analysis)                       \
  Row *T##_createEntry(uint32_t index, const Row *filled) {     \
    return static_cast<Row *>(T##_table.create(index, filled)); \
  }                                                             \
  int T##_removeEntry(Row *row) {                               \
    return T##_table.remove(row);                               \
  }                                                             \
  TAVO_LOCKING(no_thread_safety_analysis)                       \
  void T##_removeAllEntries(void) {                             \
    T##_table.remove_all();                                     \
  }

// For a table whose rows are created in a way of their own: its unit defines T_createEntry, T_removeEntry and
// T_removeAllEntries.
#define TAVO_DEFINE_TABLE_WITH_OWN_ROWS(T, Row, description)                                                     \
  Row *T##_head = nullptr;                                                                                       \
  constinit Table T##_table(description,                                                                         \
                            {.init = init_##T,                                                                   \
                             .handler = T##_handler,                                                             \
                             .first_row = T##_get_first_data_point,                                              \
                             .next_row = T##_get_next_data_point},                                               \
                            &T##_head);                                                                          \
  namespace {                                                                                                    \
  [[maybe_unused]] constexpr Table &table = T##_table;                                                           \
  }                                                                                                              \
  int init_##T(void) {                                                                                           \
    if ((description).prepare != nullptr) {                                                                      \
      (description).prepare();                                                                                   \
    }                                                                                                            \
    return initialize_table_##T();                                                                               \
  }                                                                                                              \
  int initialize_table_##T(void) {                                                                               \
    return T##_table.start_up();                                                                                 \
  }                                                                                                              \
  int T##_handler(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *request,    \
                  netsnmp_request_info *requests) {                                                              \
    return T##_table.answer(request, requests);                                                                  \
  }                                                                                                              \
  netsnmp_variable_list *T##_get_first_data_point(void **loop_context, void **row, netsnmp_variable_list *index, \
                                                  netsnmp_iterator_info *) {                                     \
    return T##_table.first_row(loop_context, row, index);                                                        \
  }                                                                                                              \
  netsnmp_variable_list *T##_get_next_data_point(void **loop_context, void **row, netsnmp_variable_list *index,  \
                                                 netsnmp_iterator_info *) {                                      \
    return T##_table.next_row(loop_context, row, index);                                                         \
  }

// NOLINTEND(bugprone-macro-parentheses)
