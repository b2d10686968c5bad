#include "tables/faults/fault_database.h"

#include <cstdlib>

#include "core/record.h"
#include "core/zeroed.h"
#include "platform/fault_engine.h"

namespace tavo {

EntityNode **fault_database = nullptr;

namespace {

// The link that leads to the record's node, or the null link at the end of the chain if there is no such node.
EntityNode **find_link(const Record &fault) {
  const std::uint32_t class_code = fault.u32(FAULT_CLASS_CODE);
  const std::uint32_t index = fault.u32(FAULT_INDEX);
  EntityNode **link = &fault_database[class_code % fault_bucket_count];
  while (*link != nullptr && ((*link)->row->index != index || (*link)->class_fold != class_code / fault_bucket_count)) {
    link = &(*link)->next;
  }
  return link;
}

}  // namespace

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
  return freed;
}

int lookup_and_modify_fault_table(const void *record, FaultRow **row) {
  *row = nullptr;
  if (record == nullptr || fault_database == nullptr) {
    return FaultDropped;
  }
  const Record fault(record, FAULT_RECORD_SIZE);
  const bool clears = fault.u32(FAULT_SEVERITY) == 0;
  if (const EntityNode *known = *find_link(fault); known != nullptr) {
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
  const std::uint32_t class_code = fault.u32(FAULT_CLASS_CODE);
  EntityNode *&bucket = fault_database[class_code % fault_bucket_count];
  node->class_fold = class_code / fault_bucket_count;
  node->row = *row = fresh.release();
  node->next = bucket;
  bucket = node.release();
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
  EntityNode *doomed = *link;
  *link = doomed->next;
  std::free(doomed);
  snmp_log(LOG_DEBUG, "Deleted\n");
}

void *create_entity_node(void) {
  return make_zeroed<EntityNode>().release();
}

}  // namespace tavo
