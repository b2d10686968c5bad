// The notifications that leave the module: one for each fault record applied, a test notification, and one when the
// controller has booted.
#pragma once

#include "tables/faults/tavoFaultTable.h"

namespace tavo {

#pragma GCC visibility push(default)
extern "C" {

// While it is 1, every record that is applied sends a notification. The fault event thread's own.
extern int needToSendTrapFlag;

// Enterprise of the start-up notification. net-snmp has a variable of this name too; the module is linked so that it
// finds its own.
extern oid trap_version_id[9];

// Sends the notification of a fault: raised or updated, or cleared when the row's column 20 is 0. `instance`: the last
// sub-identifier of each column's varbind. 0; -103 for a null row; -1 when there is no memory for it, and nothing is
// sent.
int send_fault_trap(uint32_t instance, FaultRow *row);

// Fills a zeroed row with the fault of the test notification. 0, or -103 for a null row.
int create_dummy_trap_entry(FaultRow *row);

// The start-up notification. Once in a controller's boot, which a marker file in its volatile /var tells: waits 60 s
// for the agent to find its masters, sends, makes the marker, turns needToSendTrapFlag on and waits another second.
// With the marker there it only turns needToSendTrapFlag off.
void tvmc_Startup_Trap(void);
}
#pragma GCC visibility pop

}  // namespace tavo
