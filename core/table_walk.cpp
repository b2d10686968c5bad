// The walk over a table's rows, inside and outside a request scope.
#include <algorithm>
#include <utility>

#include "core/request_gate.h"
#include "core/table.h"

namespace tavo {
namespace {

// The row that a GET of `name` asks for, null when there is none. `index_at`: where in the name the index stands.
void *exact_row(std::span<void *const> ordered, std::span<const oid> name, std::size_t index_at) {
  if (name.size() != index_at + 1) {
    return nullptr;
  }
  const auto at = std::ranges::lower_bound(ordered, name[index_at], {}, RowList::index_of);
  return at != ordered.end() && RowList::index_of(*at) == name[index_at] ? *at : nullptr;
}

// The row that follows `name` within a column, null when there is none.
void *successor_row(std::span<void *const> ordered, std::span<const oid> name, std::size_t index_at) {
  if (name.size() <= index_at) {
    return nullptr;
  }
  const auto at = std::ranges::upper_bound(ordered, name[index_at], {}, RowList::index_of);
  return at != ordered.end() ? *at : nullptr;
}

void give_index(netsnmp_variable_list *index, const void *row) {
  const std::uint32_t value = RowList::index_of(row);
  snmp_set_var_value(index, &value, sizeof value);
}

}  // namespace

// A group of requests' stay in the table. It owns the list lock from the first walk's first row until the group leaves.
//
// The requests go through the iterator one by one: together, each would be compared with every row that any of them
// needs, which made a GET of twenty varbinds a third slower.
class Table::RequestScope {
 public:
  RequestScope(Table &table, int mode) : table_(table), mode_(mode) { table_.scope_ = this; }
  RequestScope(const RequestScope &) = delete;
  RequestScope &operator=(const RequestScope &) = delete;
  ~RequestScope() TAVO_LOCKING(no_thread_safety_analysis) {
    table_.scope_ = nullptr;
    if (holds_lock_) {
      table_.lock_.release();
    }
  }

  // `serve` passes the request on to the iterator.
  template <class Serve>
  int serve_one_by_one(netsnmp_request_info *requests, Serve serve) {
    for (netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
      if (request->processed != 0) {
        continue;
      }
      request_ = request;
      netsnmp_request_info *const following = std::exchange(request->next, nullptr);
      const int result = serve(request);
      request->next = following;
      if (result != SNMP_ERR_NOERROR) {
        return result;
      }
    }
    return SNMP_ERR_NOERROR;
  }

  // Keeps the lock.
  netsnmp_variable_list *first_row(void **loop_context, void **row, netsnmp_variable_list *index)
      TAVO_LOCKING(no_thread_safety_analysis) {
    if (!holds_lock_ && !RequestGate::holds(table_.lock_)) {
      if (!table_.lock_for_walk()) {
        return nullptr;
      }
      holds_lock_ = true;
    }
    const RowPointers *rows_by_index = table_.rows_.ordered();
    offers_one_row_ = rows_by_index != nullptr && (mode_ == MODE_GET || mode_ == MODE_GETNEXT);
    *loop_context = offers_one_row_ ? answering_row(rows_by_index->items()) : table_.rows_.first();
    return next_row(loop_context, row, index);
  }

  netsnmp_variable_list *next_row(void **loop_context, void **row, netsnmp_variable_list *index) const
      TAVO_LOCKING(requires_capability(table_.lock_)) {
    if (index == nullptr || *loop_context == nullptr) {
      return nullptr;
    }
    *row = *loop_context;
    *loop_context = offers_one_row_ ? nullptr : table_.rows_.next(*row);
    give_index(index, *row);
    return index;
  }

 private:
  // The one row that can answer the request: for GET the exact one; for GETNEXT the one that follows in the column or,
  // when none does, the one with the lowest index, with which the iterator goes on in the next column.
  void *answering_row(std::span<void *const> ordered) const {
    const std::span<const oid> name(request_->requestvb->name, request_->requestvb->name_length);
    const std::size_t index_at = table_.description_.root.size() + 2;  // behind the entry and the column
    if (mode_ == MODE_GET) {
      return exact_row(ordered, name, index_at);
    }
    void *const successor = successor_row(ordered, name, index_at);
    return successor != nullptr || ordered.empty() ? successor : ordered.front();
  }

  Table &table_;
  const int mode_;
  const netsnmp_request_info *request_ = nullptr;  // the one that is being served
  bool holds_lock_ = false;
  bool offers_one_row_ = false;
};

int Table::enter_request_scope(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration,
                               netsnmp_agent_request_info *agent_request, netsnmp_request_info *requests) {
  RequestScope scope(*static_cast<Table *>(handler->myvoid), agent_request->mode);
  return scope.serve_one_by_one(requests, [&](netsnmp_request_info *request) {
    return netsnmp_call_next_handler(handler, registration, agent_request, request);
  });
}

netsnmp_variable_list *Table::first_row(void **loop_context, void **row, netsnmp_variable_list *index) {
  if (scope_ != nullptr) {
    return scope_->first_row(loop_context, row, index);
  }
  if (!lock_for_walk()) {
    return nullptr;
  }
  walking_ = true;
  *loop_context = rows_.first();
  return next_row(loop_context, row, index);
}

netsnmp_variable_list *Table::next_row(void **loop_context, void **row, netsnmp_variable_list *index) {
  if (scope_ != nullptr) {
    return scope_->next_row(loop_context, row, index);
  }
  if (!walking_) {
    if (!lock_for_walk()) {
      return index;  // unfilled: the historical result without the lock
    }
    walking_ = true;
  }
  if (rows_.first() == nullptr || index == nullptr || *loop_context == nullptr) {
    walking_ = false;
    lock_.release();
    return nullptr;
  }
  *row = *loop_context;
  give_index(index, *row);
  *loop_context = rows_.next(*row);
  return index;
}

}  // namespace tavo
