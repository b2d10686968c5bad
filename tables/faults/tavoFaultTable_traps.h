// The notifications that leave the module: one for each fault record applied, a test notification, and one after the
// controller has booted.
#pragma once

#include "tables/faults/tavoFaultTable.h"

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// While it is 1, every record applied sends a notification. Only the fault event thread writes it, as an atomic,
// because the daemon looks at it meanwhile.
extern int needToSendTrapFlag;

// The enterprise of the start-up notification. net-snmp exports a variable of this name, too; -Bsymbolic makes the
// module use this one.
extern oid trap_version_id[9];

// Sends the notification of a fault: cleared if the row's column 20 is 0, otherwise raised or updated. `instance` is
// the last sub-identifier of each column's varbind. 0; -103 for a null row; -1 if memory is short, and nothing is sent.
int send_fault_trap(uint32_t instance, FaultRow *row);

// Fills a zeroed row with the fault of the test notification. 0, or -103 for a null row.
int create_dummy_trap_entry(FaultRow *row);

// Sends the start-up notification once in each boot of the controller. A marker file in the volatile /var records that
// it was sent. Without the marker: waits 60 s, so that the agent can find its masters, sends, creates the marker, sets
// needToSendTrapFlag to 1 and waits another second. With it: only sets needToSendTrapFlag to 0.
void tvmc_Startup_Trap(void);
}
#pragma GCC visibility pop

}  // namespace tavo
