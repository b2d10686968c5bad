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
#include "core/oids.h"
#include "core/row_list.h"

namespace tavo {

// What makes the inventory refresh thread rebuild tables. All but Periodic are requests of other threads, which name
// them by class number.
enum class RefreshCause : std::uint8_t {
  Fans,
  PowerSupplies,
  Memory,
  Processors,
  Storage,  // rebuilds the tables whose source is the storage snapshot; no rule names it
  Adaptors,
  Periodic,  // every 100 seconds
};

struct RefreshRule {
  RefreshCause cause;
  int place;           // among the tables that the cause rebuilds; those of one place follow the order of start-up
  int only_first = 0;  // of Periodic: how many of its passes rebuild the table; 0: all of them
};

// What a table is built from.
enum class TableSource : std::uint8_t {
  Own,              // what its builder asks
  StorageSnapshot,  // the storage snapshot, together with the other tables of this source, under the storage lock
  SdCards,          // the SD-card service's answers, likewise
};

// What one table is: everything about it that the other tables do not share. The index is one Unsigned32, column 1,
// which is not readable.
struct TableDescription {
  const char *name;  // of the MIB object; also the source that traces name
  std::span<const oid> root;
  ListLock &lock;                   // guards the rows
  std::span<const Column> columns;  // from first_column on
  RowLayout row;

  // Builds the rows, with `refresh` 1 in place of those that stand. Its result is start-up's. Null for a table that
  // stays empty at start-up.
  int (*build)(int refresh) = nullptr;
  TableSource source = TableSource::Own;
  std::span<const RefreshRule> refresh = {};
  const char *started = nullptr;  // logged once start-up has set the table up
  void (*prepare)() = nullptr;    // runs before registration

  bool traces = true;              // registration, creation and removal of a row leave a trace when debugging is on
  bool keeps_registration = true;  // so that it can be de-registered
  // The token under which registration is traced in a sentence instead of as the others'. Null: as the others'.
  const char *registration_token = nullptr;
};

// The table's functions that start-up and net-snmp call.
struct TableEntryPoints {
  int (*init)();
  Netsnmp_Node_Handler *handler;
  Netsnmp_First_Data_Point *first_row;
  Netsnmp_Next_Data_Point *next_row;
};

// The exported functions of a table that leave a trace. The trace makes their names from the table's.
enum class TracedFunction : std::uint8_t {
  Initialize,   // initialize_table_T
  CreateEntry,  // T_createEntry
  RemoveEntry,  // T_removeEntry
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
  constexpr Table(const TableDescription &description, const TableEntryPoints &entry_points, void *head)
      : description_(description), entry_points_(entry_points), lock_(description.lock), rows_(description.row, head) {}
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  const TableDescription &description() const { return description_; }
  const TableEntryPoints &entry_points() const { return entry_points_; }
  ListLock &lock() const TAVO_LOCKING(lock_returned(lock_)) { return lock_; }

  // The exported function that does no more than call one of start_up, create and remove is the one that they trace:
  // `line` is where it calls.

  // Registers the table, read-only, and builds its rows. The builder's result; without a builder net-snmp's for the
  // registration: MIB_REGISTERED_OK, or a failure after which the table is not served.
  int start_up(int line = __builtin_LINE());
  int register_with_agent();
  // Rebuilds the rows with the description's builder, which must exist. The builder's result.
  int build(int refresh);
  // Takes the lock, and with `refresh` 1 removes the rows. 0, or the lock's error, after which nothing has changed.
  int begin_rebuild(int refresh) TAVO_LOCKING(acquire_capability(lock_));
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
  void *create(std::uint32_t index, const void *filled, int line = __builtin_LINE())
      TAVO_LOCKING(requires_capability(lock_));
  // Unlinks and frees a row, taking the lock itself. 0, or the lock's error. A null row, or one that is not listed, is
  // left alone.
  int remove(void *row, int line = __builtin_LINE());
  void remove_all() TAVO_LOCKING(requires_capability(lock_)) { rows_.clear(); }
  RowList &rows() TAVO_LOCKING(requires_capability(lock_)) { return rows_; }

  // The trace that opens an exported function, for tables that trace.
  void trace_entry(TracedFunction function, int line = __builtin_LINE()) const;

 private:
  class RequestScope;

  // What net-snmp reads to serve a table.
  struct Served {
    netsnmp_table_registration_info table;
    netsnmp_iterator_info iterator;
  };

  static Netsnmp_Node_Handler enter_request_scope;

  // Null if memory is short.
  Served *served();

  // Takes the list lock for a walk. False when the walk cannot go on without it: only ev locks' results are checked.
  bool lock_for_walk() const TAVO_LOCKING(no_thread_safety_analysis) { return lock_.acquire() == 0 || !lock_.is_ev(); }

  void answer_one(netsnmp_agent_request_info *agent_request, netsnmp_request_info *request) const;

  const TableDescription &description_;
  const TableEntryPoints entry_points_;
  ListLock &lock_;
  RowList rows_ TAVO_LOCKING(guarded_by(lock_));

  // Touched by the agent's thread only.
  netsnmp_handler_registration *registration_ = nullptr;
  Served *served_ = nullptr;       // from the first registration on; the next ones use it again
  RequestScope *scope_ = nullptr;  // the requests being answered
  bool walking_ = false;           // a walk outside a scope holds the lock
};

// Holds a table's lock while its builder runs, and first removes the rows when `refresh` is 1.
class TAVO_LOCKING(scoped_lockable) Rebuild {
 public:
  Rebuild(Table &table, int refresh) TAVO_LOCKING(acquire_capability(table.lock()))
      : table_(table), error_(table.begin_rebuild(refresh)) {}
  Rebuild(const Rebuild &) = delete;
  Rebuild &operator=(const Rebuild &) = delete;
  ~Rebuild() TAVO_LOCKING(release_capability()) {
    if (error_ == 0) {
      table_.lock().release();
    }
  }

  // 0, or why the lock could not be had, and then nothing was removed.
  int error() const { return error_; }

 private:
  Table &table_;
  const int error_;
};

// Every table of the module, in the order of start-up (module/start_up.def).
std::span<Table *const> all_tables();

}  // namespace tavo
