"""OIDs of the module's objects."""

BASE = "1.3.6.1.4.1.61453.4.207"
OBJECTS = f"{BASE}.1"
# The daemon's own.
DAEMON_BASE = "1.3.6.1.4.1.61453.4.208"
# The notifications: a fault was raised or has changed; a fault was cleared.
RAISED = f"{BASE}.0.1"
CLEARED = f"{BASE}.0.2"

FAULT_TABLE = f"{OBJECTS}.1.1"
PROCESSOR_TABLE = f"{OBJECTS}.41.9"
PROCESSOR_DN = f"{PROCESSOR_TABLE}.1.2"

# Columns that several tests read.
FAN_OPERABILITY = f"{OBJECTS}.15.12.1.10"
MEMORY_STATUS = f"{OBJECTS}.30.11.1.29"
MEMORY_TEMPERATURE = f"{OBJECTS}.30.12.1.6"
BOARD_POWER = f"{OBJECTS}.9.14.1.4"
DISK_PRESENCE = f"{OBJECTS}.45.4.1.10"
