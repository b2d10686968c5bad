// The machine that all tables share: registration with the agent, the walk over the rows, the answer to GET, and the
// list of rows itself. A table's unit holds its row record, its columns, its description and its builder.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/access_lock.h"
#include "core/column.h"
#include "core/row_list.h"

namespace tavo {

// What one table is. The index is one Unsigned32, column 1, which is not readable.
struct TableDescription {
  const char *name;  // of the MIB object; also the source that traces name
  std::span<const oid> root;
  ListLock lock;  // guards the rows
  std::span<const Column> columns;
  RowLayout row;
  bool traces = true;              // registration, creation and removal of a row leave a trace when debugging is on
  bool keeps_registration = true;  // so that it can be de-registered
};

// The table's functions that net-snmp calls.
struct TableHandlers {
  Netsnmp_Node_Handler *handler;
  Netsnmp_First_Data_Point *first_row;
  Netsnmp_Next_Data_Point *next_row;
};

// A table. Statically initialised, one for each unit, and never destroyed.
//
// A request passes through three handlers: request scope, net-snmp's iterator, the table's handler. The iterator may
// leave a walk early, and the table's handler reads rows after the walk, so inside a request scope the list lock that
// the walk took is kept until the request leaves the table, however it leaves. There, too, the walk offers only the
// row that can answer the request instead of the whole list. Called without a scope around them, first_row and
// next_row walk the whole list, holding the lock from the first row to the end of the list.
//
// Requests come from the agent's thread alone.
class Table {
 public:
  // `head`: the table's exported list head.
  constexpr Table(const TableDescription &description, void *head)
      : description_(description), lock_(description.lock), rows_(description.row, head) {}
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  const ListLock &lock() const TAVO_LOCKING(lock_returned(lock_)) { return lock_; }

  // Registers the table, read-only. Returns net-snmp's result: MIB_REGISTERED_OK, or a failure after which the table
  // is not served.
  int register_with(const TableHandlers &handlers);
  // Takes the table away from the agent, under the lock. 0, or the lock's error, after which nothing has changed.
  int de_register();

  // The iterator's loop functions. The loop context is private to them; `*row` becomes the row found and `index` gets
  // its index. Null at the end of the walk.
  netsnmp_variable_list *first_row(void **loop_context, void **row, netsnmp_variable_list *index)
      TAVO_LOCKING(no_thread_safety_analysis);
  netsnmp_variable_list *next_row(void **loop_context, void **row, netsnmp_variable_list *index)
      TAVO_LOCKING(no_thread_safety_analysis);

  // Answers a GET for each request in the list: the column's value, noSuchObject for a column that the table does not
  // have, noSuchInstance for a row that it does not have. Always SNMP_ERR_NOERROR: errors belong to their requests.
  int answer(netsnmp_agent_request_info *agent_request, netsnmp_request_info *requests) const;

  // Copies a filled row, gives it `index` and puts it in front of the list. Null when there is no memory.
  void *create(std::uint32_t index, const void *filled) TAVO_LOCKING(requires_capability(lock_));
  // Unlinks and frees a row, taking the lock itself. 0, or the lock's error. A null row, or one that is not listed, is
  // left alone.
  int remove(void *row);
  void remove_all() TAVO_LOCKING(requires_capability(lock_)) { rows_.clear(); }
  RowList &rows() TAVO_LOCKING(requires_capability(lock_)) { return rows_; }

  // The trace that opens the table's entry points, for tables that trace.
  void trace_entry(const char *function, int line) const;

 private:
  class RequestScope;

  static Netsnmp_Node_Handler enter_request_scope;

  // Takes the list lock for a walk. False when the walk cannot go on without it: only an ev lock is asked how it went.
  bool lock_for_walk() const TAVO_LOCKING(no_thread_safety_analysis) { return lock_.acquire() == 0 || !lock_.is_ev(); }

  void answer_one(netsnmp_agent_request_info *agent_request, netsnmp_request_info *request) const;

  const TableDescription &description_;
  const ListLock lock_;
  RowList rows_ TAVO_LOCKING(guarded_by(lock_));

  // Touched by the agent's thread only.
  netsnmp_handler_registration *registration_ = nullptr;
  RequestScope *scope_ = nullptr;  // the requests being answered
  bool walking_ = false;           // a walk outside a scope holds the lock
};

}  // namespace tavo
