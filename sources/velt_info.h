// What the SD-card service last said of its controller, cards and partitions: the source of the three SD-card tables.
// platform/storage_client.h has the layouts.
#pragma once

#include <cstddef>

#include "core/record.h"
#include "core/text.h"
#include "platform/storage_client.h"

namespace tavo {

// Copies a text that fills its field, which is one octet shorter than `to`.
template <std::size_t N>
void copy_field(char (&to)[N], const Record &record, std::size_t offset) {
  copy_text(to, record.text(offset, N - 1));
}

// Prints the buffers' sizes to standard output, a line each, as all three builders do: it shows at once which layout
// the module was built for.
void print_velt_sizes();

#pragma GCC visibility push(default)
extern "C" {

// Guarded by subagent lock 2. All zero until the service has answered, and again when it no longer does.
extern unsigned char velt_ctlr_info[VELT_CONTROLLER_SIZE];
extern unsigned char velt_pd_info[VELT_CARDS_SIZE];
extern unsigned char velt_vd_info[VELT_PARTITIONS_SIZE];

// Asks the service anew. What it does not answer is logged and leaves its buffer zeroed. The caller holds subagent
// lock 2.
void populate_velt(void);
}
#pragma GCC visibility pop

}  // namespace tavo
