#include "tables/faults/fault_database.h"

#include <algorithm>
#include <cstdlib>

#include "core/record.h"
#include "core/zeroed.h"
#include "platform/fault_engine.h"

namespace tavo {

EntityNode **fault_database = nullptr;

namespace {

// Heads of the chains of nodes with the same hash: one page of them. Ten thousand faults still make short chains.
constexpr unsigned hash_bits = 9;
constinit EntityNode *nodes_by_hash[1U << hash_bits] = {};

// The link among the nodes of the same hash that leads to the record's node, or the null link behind them if there is
// no such node.
EntityNode **find_link(const Record &fault) {
  const std::uint32_t class_code = fault.u32(FAULT_CLASS_CODE);
  const std::uint32_t index = fault.u32(FAULT_INDEX);
  constexpr std::uint32_t golden_ratio = 0x9E3779B9;  // its multiples spread numbers that follow each other
  EntityNode **link = &nodes_by_hash[(index + class_code * golden_ratio) * golden_ratio >> (32 - hash_bits)];
  while (*link != nullptr && ((*link)->row->index != index || (*link)->class_code != class_code)) {
    link = &(*link)->neighbor;
  }
  return link;
}

EntityNode *&bucket_of(const EntityNode &node) {
  return fault_database[node.class_code % fault_bucket_count];
}

void push_front(EntityNode *node) {
  EntityNode *&bucket = bucket_of(*node);
  node->next = bucket;
  if (bucket != nullptr) {
    bucket->previous = node;
  }
  bucket = node;
}

void unlink(const EntityNode &node) {
  (node.previous != nullptr ? node.previous->next : bucket_of(node)) = node.next;
  if (node.next != nullptr) {
    node.next->previous = node.previous;
  }
}

// `link`: leads to a node.
void free_node(EntityNode **link) {
  EntityNode *const doomed = *link;
  *link = doomed->neighbor;
  unlink(*doomed);
  std::free(doomed);
}

}  // namespace

bool has_node(const void *record) {
  return *find_link(Record(record, FAULT_RECORD_SIZE)) != nullptr;
}

FaultRow *row_of_node_before(const void *record) {
  const EntityNode *const node = *find_link(Record(record, FAULT_RECORD_SIZE));
  return node == nullptr || node->previous == nullptr ? nullptr : node->previous->row;
}

void free_node_of(const FaultRow *row) {
  for (EntityNode *&head : nodes_by_hash) {
    EntityNode **link = &head;
    while (*link != nullptr && (*link)->row != row) {
      link = &(*link)->neighbor;
    }
    if (*link != nullptr) {
      free_node(link);
      return;
    }
  }
}

int free_entity_nodes() {
  int freed = 0;
  for (std::size_t bucket = 0; fault_database != nullptr && bucket < fault_bucket_count; ++bucket) {
    EntityNode *node = fault_database[bucket];
    while (node != nullptr) {
      EntityNode *following = node->next;
      std::free(node);
      node = following;
      ++freed;
    }
    fault_database[bucket] = nullptr;
  }
  std::ranges::fill(nodes_by_hash, nullptr);
  return freed;
}

int lookup_and_modify_fault_table(const void *record, FaultRow **row) {
  *row = nullptr;
  if (record == nullptr || fault_database == nullptr) {
    return FaultDropped;
  }
  const Record fault(record, FAULT_RECORD_SIZE);
  const bool clears = fault.u32(FAULT_SEVERITY) == 0;
  EntityNode **const link = find_link(fault);
  if (const EntityNode *known = *link; known != nullptr) {
    *row = known->row;
    return clears ? FaultCleared : FaultUpdated;
  }

  Zeroed<EntityNode> node(static_cast<EntityNode *>(create_entity_node()));
  Zeroed<FaultRow> fresh = make_zeroed<FaultRow>();
  if (node == nullptr || fresh == nullptr) {
    return FaultDropped;
  }
  // A node is found by its row's index, so the row needs its index from the start.
  fresh->index = fault.u32(FAULT_INDEX);
  node->class_code = fault.u32(FAULT_CLASS_CODE);
  node->row = *row = fresh.release();
  push_front(node.get());
  *link = node.release();
  return clears ? UnknownFaultCleared : FaultRaised;
}

void delete_entity_node(const void *record, FaultRow *) {
  if (record == nullptr || fault_database == nullptr) {
    return;
  }
  const Record fault(record, FAULT_RECORD_SIZE);
  snmp_log(LOG_DEBUG, "Deleting FaultIndex %d: ", fault.i32(FAULT_INDEX));
  EntityNode **link = find_link(fault);
  if (*link == nullptr) {
    snmp_log(LOG_DEBUG, "Not found\n");
    return;
  }
  free_node(link);
  snmp_log(LOG_DEBUG, "Deleted\n");
}

void *create_entity_node(void) {
  return make_zeroed<EntityNode>().release();
}

}  // namespace tavo
