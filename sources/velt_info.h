// The SD-card service's last answers about its controller, cards and partitions: the source of the three SD-card
// tables. platform/storage_client.h describes the layouts.
#pragma once

#include <cstddef>

#include "core/record.h"
#include "core/text.h"
#include "platform/storage_client.h"

namespace tavo {

// Copies the text of a field that is one octet shorter than `to` and need not end with a NUL.
template <std::size_t N>
void copy_field(char (&to)[N], const Record &record, std::size_t offset) {
  copy_text(to, record.text(offset, N - 1));
}

// Prints the buffers' sizes to standard output, a line each. All three builders do so: the sizes show which layouts the
// module was built for.
void print_velt_sizes();

#pragma GCC visibility push(default)
extern "C" {

// All zeros until the service answers, and again when it stops answering. Guarded by the storage lock.
extern unsigned char velt_ctlr_info[VELT_CONTROLLER_SIZE];
extern unsigned char velt_pd_info[VELT_CARDS_SIZE];
extern unsigned char velt_vd_info[VELT_PARTITIONS_SIZE];

// Asks the service again. A question that it does not answer is logged and leaves its buffer zeroed. The caller holds
// the storage lock.
void populate_velt(void);
}
#pragma GCC visibility pop

}  // namespace tavo
