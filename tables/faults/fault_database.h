// The fault database: finds the row of a fault by class code and fault index. It has 256 buckets, chosen by class code,
// each a chain of nodes, the newest first. Most faults of a storm are of one class, so a node is not searched in its
// chain but found by a hash of both numbers. Only the fault event thread touches it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tables/faults/tavoFaultTable.h"

namespace tavo {

struct EntityNode {
  FaultRow *row;  // owned by the fault table
  EntityNode *next;
  std::uint32_t class_code;
  EntityNode *previous;  // the one before it in its chain; null: it is the first
  EntityNode *neighbor;  // the next node of the same hash
};

inline constexpr std::size_t fault_bucket_count = 256;
using FaultBuckets = EntityNode *[fault_bucket_count];

// What lookup_and_modify_fault_table finds out about a record.
enum FaultLookup : int {
  FaultDropped = 0,  // no row: memory is short, or there is no database
  FaultUpdated = 1,  // an active fault, in its listed row
  FaultRaised = 2,   // a new fault
  FaultCleared = 3,  // an active fault, in its listed row
  UnknownFaultCleared = 4,
};

// Whether the record's fault has a node. `record`: FAULT_RECORD_SIZE octets.
bool has_node(const void *record);

// The row of the node before the record's in its chain, which was listed next, but for rows of other classes. Null if
// there is none.
FaultRow *row_of_node_before(const void *record);

// Frees the node of `row`, if there is one. Looks at every node: the row alone does not tell its class.
void free_node_of(const FaultRow *row);

// Frees every node, but no row. Returns how many nodes there were.
int free_entity_nodes();

#pragma GCC visibility push(default)
extern "C" {

// FaultBuckets, from calloc: the heads of the chains. Null while there is no fault event thread.
extern EntityNode **fault_database;

// Finds the row that the record is about. If there is none, makes a node and a zeroed row, which is not yet listed.
// `*row` becomes that row. Returns a FaultLookup.
int lookup_and_modify_fault_table(const void *record, FaultRow **row);

// Frees the record's node, but not the row, which must still exist. `row` is not used.
void delete_entity_node(const void *record, FaultRow *row);

// A zeroed node; null if memory is short.
void *create_entity_node(void);
}
#pragma GCC visibility pop

}  // namespace tavo
