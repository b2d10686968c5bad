// The walk over a table's rows, inside and outside a request scope.
#include <algorithm>

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

// One request's stay in the table. It owns the list lock from the walk's first row until it ends.
class Table::RequestScope {
 public:
  RequestScope(Table &table, const netsnmp_agent_request_info &agent_request, netsnmp_request_info *requests)
      : table_(table), mode_(agent_request.mode), requests_(requests) {
    table_.scope_ = this;
  }
  RequestScope(const RequestScope &) = delete;
  RequestScope &operator=(const RequestScope &) = delete;
  ~RequestScope() TAVO_LOCKING(no_thread_safety_analysis) {
    table_.scope_ = nullptr;
    if (holds_lock_) {
      table_.lock_.release();
    }
  }

  // Keeps the lock.
  netsnmp_variable_list *first_row(void **loop_context, void **row, netsnmp_variable_list *index)
      TAVO_LOCKING(no_thread_safety_analysis) {
    if (!holds_lock_) {
      if (table_.lock_.acquire() != 0 && table_.lock_.is_ev()) {
        return nullptr;
      }
      holds_lock_ = true;
      offers_chosen_rows_ = choose_rows();
    }
    *loop_context = offers_chosen_rows_ ? static_cast<void *>(table_.chosen_.rows().data()) : table_.rows_.first();
    return next_row(loop_context, row, index);
  }

  netsnmp_variable_list *next_row(void **loop_context, void **row, netsnmp_variable_list *index) const
      TAVO_LOCKING(requires_capability(table_.lock_)) {
    if (index == nullptr || *loop_context == nullptr) {
      return nullptr;
    }
    if (offers_chosen_rows_) {
      auto *chosen = static_cast<void **>(*loop_context);
      *row = *chosen;
      *loop_context = chosen + 1;
    } else {
      *row = *loop_context;
      *loop_context = table_.rows_.next(*row);
    }
    if (*row == nullptr) {
      return nullptr;
    }
    give_index(index, *row);
    return index;
  }

 private:
  // Collects the rows that can answer the request: for GET the exact rows; for GETNEXT the successors and, because the
  // iterator goes on to the next column when one is exhausted, the row with the lowest index. False when the whole
  // list must be offered instead: for other requests, or without memory.
  bool choose_rows() TAVO_LOCKING(requires_capability(table_.lock_)) {
    RowPointers &chosen = table_.chosen_;
    chosen.clear();
    const RowPointers *rows_by_index = table_.rows_.ordered();
    if (rows_by_index == nullptr || (mode_ != MODE_GET && mode_ != MODE_GETNEXT)) {
      return false;
    }
    const std::span<void *const> ordered = rows_by_index->rows();
    if (mode_ == MODE_GETNEXT && !ordered.empty() && !chosen.push(ordered.front())) {
      return false;
    }
    const std::size_t index_at = table_.description_.root.size() + 2;  // behind the entry and the column
    for (const netsnmp_request_info *request = requests_; request != nullptr; request = request->next) {
      const std::span<const oid> name(request->requestvb->name, request->requestvb->name_length);
      void *row = mode_ == MODE_GET ? exact_row(ordered, name, index_at) : successor_row(ordered, name, index_at);
      if (request->processed == 0 && row != nullptr && !chosen.push(row)) {
        return false;
      }
    }
    const auto rows = chosen.rows();
    std::ranges::sort(rows, {}, RowList::index_of);
    const auto end = std::unique(rows.begin(), rows.end());
    chosen.shrink(static_cast<std::size_t>(end - rows.begin()));
    return chosen.push(nullptr);
  }

  Table &table_;
  const int mode_;
  netsnmp_request_info *const requests_;
  bool holds_lock_ = false;
  bool offers_chosen_rows_ = false;
};

int Table::enter_request_scope(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration,
                               netsnmp_agent_request_info *agent_request, netsnmp_request_info *requests) {
  const RequestScope scope(*static_cast<Table *>(handler->myvoid), *agent_request, requests);
  return netsnmp_call_next_handler(handler, registration, agent_request, requests);
}

netsnmp_variable_list *Table::first_row(void **loop_context, void **row, netsnmp_variable_list *index) {
  if (scope_ != nullptr) {
    return scope_->first_row(loop_context, row, index);
  }
  if (lock_.acquire() != 0 && lock_.is_ev()) {
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
    if (lock_.acquire() != 0 && lock_.is_ev()) {
      return index;  // unfilled: what a walk that lost its lock has always got
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
