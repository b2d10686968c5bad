// The fault database: finds the row of a fault by class code and fault index. 256 buckets, one for a class code, each a
// chain of nodes. The fault event thread alone touches it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tables/faults/tavoFaultTable.h"

namespace tavo {

struct EntityNode {
  FaultRow *row;  // owned by the fault table
  EntityNode *next;
  // Class codes above 255 share the buckets of those below; this is what tells them apart, the code divided by 256.
  std::uint32_t class_fold;
};

inline constexpr std::size_t fault_bucket_count = 256;
using FaultBuckets = EntityNode *[fault_bucket_count];

// Frees every node, not the rows. Returns how many there were.
int free_entity_nodes();

#pragma GCC visibility push(default)
extern "C" {

// FaultBuckets, from calloc: the heads of the chains. Null while the fault event thread does not exist.
extern EntityNode **fault_database;

// Finds the row for a record, or makes a zeroed one, not yet listed, and its node. `*row` becomes that row.
// 1: the row of an active fault that the record updates; 3: that it clears. 2: a new row for a new fault; 4: a new row
// for a clear of a fault that nobody knows. 0: no row, for want of memory or of a database.
int lookup_and_modify_fault_table(const void *record, FaultRow **row);

// Frees the record's node, not its row, which must still be there. `row` is not used.
void delete_entity_node(const void *record, FaultRow *row);

// A zeroed node; null when there is no memory.
void *create_entity_node(void);
}
#pragma GCC visibility pop

}  // namespace tavo
