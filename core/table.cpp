#include "core/table.h"

#include <cstdlib>
#include <cstring>

#include "core/health.h"
#include "core/request_gate.h"
#include "core/text.h"
#include "core/trace.h"
#include "core/zeroed.h"

namespace tavo {
namespace {

void name_function(char (&to)[80], TracedFunction function, const char *table) {
  switch (function) {
    case TracedFunction::Initialize:
      format_text(to, "initialize_table_%s", table);
      break;
    case TracedFunction::CreateEntry:
      format_text(to, "%s_createEntry", table);
      break;
    case TracedFunction::RemoveEntry:
      format_text(to, "%s_removeEntry", table);
      break;
  }
}

}  // namespace

int Table::start_up(int line) {
  trace_entry(TracedFunction::Initialize, line);
  const int result = register_with_agent();
  return description_.build == nullptr ? result : build(0);
}

int Table::build(int refresh) {
  report(tavo_rebuild_begins, description_.name);
  const int result = description_.build(refresh);
  // Some builders return 1 when they have succeeded.
  report(tavo_rebuild_ends, description_.name, result == 0 || result == 1);
  return result;
}

TAVO_LOCKING(no_thread_safety_analysis)  // the count of rows needs no lock
int Table::register_with_agent() {
  netsnmp_handler_registration *registration = netsnmp_create_handler_registration(
      description_.name, entry_points_.handler, description_.root.data(), description_.root.size(), HANDLER_CAN_RONLY);
  Served *const info = served();
  netsnmp_mib_handler *scope = netsnmp_create_handler("request_scope", enter_request_scope);
  if (registration == nullptr || info == nullptr || scope == nullptr) {
    netsnmp_handler_registration_free(registration);
    netsnmp_handler_free(scope);
    return MIB_REGISTRATION_FAILED;
  }

  const int result = netsnmp_register_table_iterator(registration, &info->iterator);
  if (result != MIB_REGISTERED_OK) {  // net-snmp has freed the registration
    netsnmp_handler_free(scope);
    return result;
  }

  scope->myvoid = this;
  netsnmp_inject_handler_before(registration, scope, TABLE_ITERATOR_NAME);
  RequestGate::instance().guard(registration, lock_);
  if (description_.keeps_registration) {
    registration_ = registration;
  }
  report(tavo_table_registered, description_.name, &rows_.count());
  return result;
}

// All tables have the same index, so they share its variable, which takes 1.1 KiB. Given to net-snmp to keep, each
// table would have one, and the iterator a copy of it.
Table::Served *Table::served() {
  static constinit netsnmp_variable_list *index = nullptr;
  if (index == nullptr && snmp_varlist_add_variable(&index, nullptr, 0, ASN_UNSIGNED, nullptr, 0) == nullptr) {
    return nullptr;
  }
  if (served_ == nullptr) {
    served_ = make_zeroed<Served>().release();
  }
  if (served_ != nullptr) {
    served_->table = {.indexes = index,
                      .number_indexes = 1,
                      .min_column = first_column,
                      .max_column = first_column + static_cast<unsigned int>(description_.columns.size()) - 1,
                      .valid_columns = nullptr};
    served_->iterator.get_first_data_point = entry_points_.first_row;
    served_->iterator.get_next_data_point = entry_points_.next_row;
    served_->iterator.table_reginfo = &served_->table;
    served_->iterator.indexes = index;
  }
  return served_;
}

int Table::begin_rebuild(int refresh) TAVO_LOCKING(no_thread_safety_analysis) {
  const int error = lock_.acquire();
  if (error == 0 && refresh == 1) {
    remove_all();
  }
  return error;
}

int Table::de_register() {
  ListGuard guard(lock_);
  if (guard.error() != 0) {
    return guard.error();
  }
  if (registration_ != nullptr) {
    // Un-registering frees the registration, so what is freed afterwards is a duplicate.
    netsnmp_handler_registration *duplicate = netsnmp_handler_registration_dup(registration_);
    netsnmp_unregister_handler(registration_);
    netsnmp_handler_registration_free(duplicate);
    registration_ = nullptr;
  }
  return guard.release();
}

int Table::answer(netsnmp_agent_request_info *agent_request, netsnmp_request_info *requests) const {
  if (agent_request == nullptr || agent_request->mode != MODE_GET) {
    return SNMP_ERR_NOERROR;
  }
  for (netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
    if (request->processed == 0) {
      answer_one(agent_request, request);
    }
  }
  return SNMP_ERR_NOERROR;
}

void Table::answer_one(netsnmp_agent_request_info *agent_request, netsnmp_request_info *request) const {
  const void *row = netsnmp_extract_iterator_context(request);
  const netsnmp_table_request_info *cell = netsnmp_extract_table_info(request);
  const std::span<const Column> columns = description_.columns;
  // A wrong column counts before a missing row does. NOLINTNEXTLINE(bugprone-branch-clone)
  if (cell == nullptr) {
    netsnmp_set_request_error(agent_request, request, SNMP_NOSUCHINSTANCE);
  } else if (cell->colnum < first_column || cell->colnum - first_column >= columns.size()) {
    netsnmp_set_request_error(agent_request, request, SNMP_NOSUCHOBJECT);
  } else if (row == nullptr) {
    netsnmp_set_request_error(agent_request, request, SNMP_NOSUCHINSTANCE);
  } else if (!ColumnValue(columns[cell->colnum - first_column], row).set(request->requestvb)) {
    netsnmp_set_request_error(agent_request, request, SNMP_ERR_GENERR);
  }
}

void *Table::create(std::uint32_t index, const void *filled, int line) {
  trace_entry(TracedFunction::CreateEntry, line);
  void *row = filled == nullptr ? nullptr : allocate_zeroed(1, description_.row.size);
  if (row == nullptr) {
    return nullptr;
  }
  std::memcpy(row, filled, description_.row.size);
  std::memcpy(row, &index, sizeof index);
  for (const Column &column : description_.columns) {
    if (column.codec == Codec::Text) {
      static_cast<char *>(row)[column.offset + column.capacity - 1] = '\0';
    }
  }
  rows_.push_front(row);
  return row;
}

int Table::remove(void *row, int line) {
  trace_entry(TracedFunction::RemoveEntry, line);
  if (row == nullptr) {
    return 0;
  }
  ListGuard guard(lock_);
  if (guard.error() != 0) {
    return guard.error();
  }
  if (rows_.unlink(row)) {
    std::free(row);
  }
  return guard.release();
}

void Table::trace_entry(TracedFunction function, int line) const {
  if (!description_.traces || snmp_get_do_debugging() == 0) {
    return;
  }
  char name[80];
  name_function(name, function, description_.name);
  const Caller caller = {.function = name, .line = line};
  if (function == TracedFunction::Initialize && description_.registration_token != nullptr) {
    trace_under(description_.registration_token, caller, description_.name, "initializing table %s\n",
                description_.name);
  } else {
    trace(caller, description_.name, "%s\n", name);
  }
}

}  // namespace tavo
