// describe_tables FILE: refuses tables with mistakes that no compiler sees, and describes the tables to FILE as JSON.
//
// {"tables": [{"name": ..., "oid": ..., "lock": ..., "source": ..., "refresh": [...], "builds_at_start": ...,
//              "columns": [{"number": ..., "name": ..., "codec": ..., "capacity": ...}, ...]}, ...]}
//
// Tables are in the order of start-up. A refresh rule is {"cause": ..., "only_first": ...}. A column has its field's
// name. A capacity is in octets for a text, and in sub-identifiers for an object identifier.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/table.h"

// The section in which TAVO_COLUMNS leaves a text "TABLE:COLUMN, COLUMN..." for each table, with NULs between them. The
// linker defines both symbols. NOLINTBEGIN(readability-identifier-naming)
extern "C" const char __start_tavo_columns[];
extern "C" const char __stop_tavo_columns[];
// NOLINTEND(readability-identifier-naming)

namespace tavo {
namespace {

using Names = std::vector<std::string>;

// The names of the columns of each table.
std::map<std::string, Names, std::less<>> names_by_table() {
  std::map<std::string, Names, std::less<>> names;
  std::string_view section(__start_tavo_columns, static_cast<std::size_t>(__stop_tavo_columns - __start_tavo_columns));
  while (!section.empty()) {
    const std::string_view entry = section.substr(0, section.find('\0'));
    section.remove_prefix(std::min(entry.size() + 1, section.size()));
    const std::size_t colon = entry.find(':');
    if (colon == std::string_view::npos) {
      continue;
    }
    Names &columns = names[std::string(entry.substr(0, colon))];
    std::string_view rest = entry.substr(colon + 1);
    while (!rest.empty()) {
      const std::string_view name = rest.substr(0, rest.find(','));
      rest.remove_prefix(std::min(name.size() + 1, rest.size()));
      columns.emplace_back(name.substr(std::min(name.find_first_not_of(" \n"), name.size())));
    }
  }
  return names;
}

const char *name_of(Codec codec) {
  switch (codec) {
    case Codec::Integer:
      return "Integer";
    case Codec::Gauge32:
      return "Gauge32";
    case Codec::Counter32:
      return "Counter32";
    case Codec::Counter64:
      return "Counter64";
    case Codec::CounterWords:
      return "CounterWords";
    case Codec::FourOctetCounter64:
      return "FourOctetCounter64";
    case Codec::Text:
      return "Text";
    case Codec::CountedText:
      return "CountedText";
    case Codec::Octet:
      return "Octet";
    case Codec::ObjectIdentifier:
      return "ObjectIdentifier";
  }
  return "";
}

const char *name_of(TableSource source) {
  switch (source) {
    case TableSource::Own:
      return "own";
    case TableSource::StorageSnapshot:
      return "storage snapshot";
    case TableSource::SdCards:
      return "SD cards";
  }
  return "";
}

const char *name_of(RefreshCause cause) {
  switch (cause) {
    case RefreshCause::Fans:
      return "fans";
    case RefreshCause::PowerSupplies:
      return "power supplies";
    case RefreshCause::Memory:
      return "memory";
    case RefreshCause::Processors:
      return "processors";
    case RefreshCause::Storage:
      return "storage";
    case RefreshCause::Adaptors:
      return "adaptors";
    case RefreshCause::Periodic:
      return "periodic";
  }
  return "";
}

std::string dotted(std::span<const oid> name) {
  std::string text;
  for (const oid arc : name) {
    text += (text.empty() ? "" : ".") + std::to_string(arc);
  }
  return text;
}

// Ends the build. `fault` says what to do.
[[noreturn]] void refuse(const std::string &table, const std::string &fault) {
  throw std::runtime_error(table + ": " + fault);
}

// The names in module/start_up.def, in its order.
constexpr const char *start_up_names[] = {
#define TAVO_TABLE(name) #name,
#define TAVO_STEP(call, text)
#include "module/start_up.def"
#undef TAVO_TABLE
#undef TAVO_STEP
};

// This program links without the platform, so the linker accepts undefined names and gives them address 0.
void check_definitions() {
  for (std::size_t i = 0; i < all_tables().size(); ++i) {
    if (all_tables()[i] == nullptr) {
      refuse(start_up_names[i], "has a line in module/start_up.def, but no unit defines it with TAVO_DEFINE_TABLE");
    }
  }
}

void check_root(std::map<std::string, std::string> &table_by_oid, const TableDescription &table) {
  if (const auto [other, is_new] = table_by_oid.emplace(dotted(table.root), table.name); !is_new) {
    refuse(table.name, "has the OID of " + other->second + "; give it one of its own in its description");
  }
}

void check_lock(std::map<int, std::string> &table_by_ev_lock, const TableDescription &table) {
  if (!table.lock.is_ev()) {
    return;
  }
  if (const auto [other, is_new] = table_by_ev_lock.emplace(table.lock.number(), table.name); !is_new) {
    refuse(table.name, "has the ev lock of " + other->second + "; name another class number in its description");
  }
}

void check_source(const TableDescription &table) {
  if (table.source == TableSource::Own) {
    return;
  }
  if (&table.lock != &storage_lock) {
    refuse(table.name, "shares its source with other tables, so storage_lock has to guard it");
  }
  if (table.build == nullptr) {
    refuse(table.name, "shares its source with other tables, so it needs a builder");
  }
  if (!table.refresh.empty()) {
    refuse(table.name, "is rebuilt together with the tables that share its source, so it can have no refresh rule");
  }
}

void check_refresh(const TableDescription &table) {
  for (const RefreshRule &rule : table.refresh) {
    if (table.build == nullptr) {
      refuse(table.name, "has a refresh rule but no builder");
    }
    if (rule.cause == RefreshCause::Storage) {
      refuse(table.name, "has a refresh rule for storage; name the storage snapshot as its source instead");
    }
    if (rule.place < 1) {
      refuse(table.name, "has a refresh rule whose place is below 1");
    }
  }
}

void check() {
  std::map<std::string, std::string> table_by_oid;
  std::map<int, std::string> table_by_ev_lock;
  for (const Table *table : all_tables()) {
    check_root(table_by_oid, table->description());
    check_lock(table_by_ev_lock, table->description());
    check_source(table->description());
    check_refresh(table->description());
  }
}

void write_columns(std::ostream &out, std::span<const Column> columns, const Names &names) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    out << (i == 0 ? "\n" : ",\n") << R"(      {"number": )" << first_column + i << R"(, "name": ")" << names[i]
        << R"(", "codec": ")" << name_of(columns[i].codec) << R"(", "capacity": )" << columns[i].capacity << "}";
  }
}

void write_table(std::ostream &out, const TableDescription &table, const Names &names) {
  const std::string lock = (table.lock.is_ev() ? "ev " : "subagent ") + std::to_string(table.lock.number());
  out << R"(    {"name": ")" << table.name << R"(", "oid": ")" << dotted(table.root) << R"(", "lock": ")" << lock
      << R"(", "source": ")" << name_of(table.source) << R"(", "builds_at_start": )"
      << (table.build != nullptr ? "true" : "false") << R"(, "refresh": [)";
  for (const RefreshRule &rule : table.refresh) {
    out << (&rule == table.refresh.data() ? "" : ", ") << R"({"cause": ")" << name_of(rule.cause)
        << R"(", "only_first": )" << rule.only_first << '}';
  }
  out << R"(], "columns": [)";
  write_columns(out, table.columns, names);
  out << "\n    ]}";
}

void describe(const char *path) {
  check_definitions();
  check();
  auto names = names_by_table();
  std::ofstream out(path);
  out << "{\"tables\": [";
  for (const Table *table : all_tables()) {
    const TableDescription &description = table->description();
    out << (table == all_tables().front() ? "\n" : ",\n");
    const auto found = names.find(std::string_view(description.name));
    if (found == names.end() || found->second.size() != description.columns.size()) {
      refuse(description.name, "TAVO_COLUMNS names another table, or the description has other columns");
    }
    write_table(out, description, found->second);
    names.erase(found);
  }
  out << "\n]}\n";
  if (!names.empty()) {
    refuse(names.begin()->first, "has columns but no line in module/start_up.def, so it would never be served");
  }
  if (!out.flush()) {
    refuse(path, "cannot be written");
  }
}

}  // namespace
}  // namespace tavo

int main(int argc, char **argv) {
  if (argc != 2) {
    std::cerr << "usage: describe_tables FILE\n";
    return 2;
  }
  try {
    tavo::describe(argv[1]);
  } catch (const std::exception &fault) {
    std::remove(argv[1]);
    std::cerr << "describe_tables: " << fault.what() << '\n';
    return 1;
  }
  return 0;
}
