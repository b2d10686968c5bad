"""What the server's tables tell about its health: columns, states, and which state is how bad.

OIDs, names and words are those of the MIB modules.
"""

from typing import NamedTuple

OK, WARNING, CRITICAL, UNKNOWN = range(4)
ENTERPRISE = "1.3.6.1.4.1.61453.4"
TEXTS = ["AffectedObject", "Description", "Dn", "Name"]  # columns; all others are numbers


class Table(NamedTuple):
    """Columns that are asked for together. `single`: there is one row, as for scalars."""
    name: str  # what the columns' names begin with in the MIB
    oid: str  # of the columns' parent, below ENTERPRISE
    columns: dict  # {name: OID below the parent}
    single: bool = False


class Parts(NamedTuple):
    """A component of parts, each of which has a state. The table's columns: the part, its state, what is wrong."""
    table: Table
    states: dict  # {value: (the MIB's word, status)}
    empty: int  # the status if there are no parts
    nobody: tuple = ()  # words for a place without a part


class Reading(NamedTuple):
    table: Table
    column: str
    metric: str
    unit: str
    warning: str = ""
    critical: str = ""
    part: str = ""  # where the row does not name it
    each: bool = True  # each row has performance data, or only the one with the highest value


OPERABILITY = {0: ("unknown", UNKNOWN), 1: ("operable", OK), 2: ("inoperable", CRITICAL), 8: ("tooHot", CRITICAL)}
PARTS = {
    # unknown: a fan of another entity, about which the controller knows nothing.
    "fan": Parts(Table("tavoEquipmentFan", "207.1.15.12.1", {"Dn": "2", "Operability": "10"}),
                 {0: ("unknown", OK), 1: ("operable", OK), 3: ("faulty", WARNING), 6: ("absent", WARNING)},
                 UNKNOWN, ("absent",)),
    "psu": Parts(Table("tavoEquipmentPsu", "207.1.15.56.1", {"Dn": "2", "Operability": "7"}),
                 {1: ("operable", OK), 5: ("faultyOrOff", WARNING), 6: ("absent", WARNING)}, UNKNOWN, ("absent",)),
    "memory": Parts(Table("tavoMemoryUnit", "207.1.30.11.1", {"Dn": "2", "Operability": "14"}),
                    {0: ("inoperable", WARNING), 1: ("operable", OK)}, UNKNOWN),
    "processor": Parts(Table("tavoProcessorUnit", "207.1.41.9.1", {"Dn": "2", "Operability": "10"}), OPERABILITY,
                       UNKNOWN),
    "adaptor": Parts(Table("tavoAdaptorUnit", "207.1.3.85.1", {"Dn": "2", "Operability": "13"}), OPERABILITY, OK),
    "controller": Parts(Table("tavoStorageController", "207.1.45.1.1", {"Dn": "2", "Operability": "7"}), OPERABILITY,
                        OK),
    "battery": Parts(Table("tavoStorageRaidBattery", "207.1.45.11.1", {"Dn": "2", "Operability": "9"}),
                     {1: ("inoperable", WARNING), 3: ("operable", OK)}, OK),
    "disk": Parts(Table("tavoStorageLocalDisk", "207.1.45.4.1", {"Dn": "2", "Operability": "9"}),
                  {1: ("operable", OK), 2: ("inoperable", WARNING), 3: ("rebuilding", OK), 6: ("emptySlot", OK)}, OK,
                  ("emptySlot",)),
    "volume": Parts(Table("tavoStorageLocalLun", "207.1.45.8.1", {"Dn": "2", "Operability": "9"}),
                    {0: ("unknown", UNKNOWN), 1: ("optimal", OK), 2: ("offline", CRITICAL), 3: ("degraded", WARNING)},
                    OK),
    "led": Parts(Table("tavoEquipmentHealthLed", "207.1.15.114.1", {"Dn": "2", "ColorCode": "5"}),
                 {0: ("greenOrUnknown", OK), 1: ("steadyAmber", WARNING), 2: ("blinkingAmberOrRed", CRITICAL)}, OK),
    "fault": Parts(Table("tavoFault", "207.1.1.1.1", {"AffectedObject": "5", "Severity": "17", "Description": "11"}),
                   {0: ("cleared", OK), 1: ("info", OK), 2: ("condition", OK), 3: ("warning", WARNING),
                    4: ("minor", WARNING), 5: ("major", CRITICAL), 6: ("critical", CRITICAL)}, OK),
}

BOARD_TEMPERATURES = Table("tavoComputeRackUnitMbTempStats", "207.1.9.44.1", {
    "Ambient": "4", "Front": "8", "Iohub1": "13", "Iohub2": "17", "Rear": "21"}, single=True)
PROCESSOR_TEMPERATURES = Table("tavoProcessorEnvStats", "207.1.41.2.1", {"Dn": "2", "Temperature": "10"})
MEMORY_TEMPERATURES = Table("tavoMemoryUnitEnvStats", "207.1.30.12.1", {"Dn": "2", "Temperature": "6"})
POWER = Table("tavoComputeMbPowerStats", "207.1.9.14.1", {
    "ConsumedPower": "4", "InputCurrent": "8", "InputVoltage": "12"}, single=True)
AGENT = Table("tavoSubagent", "208.1", {
    "Uptime": "1.1", "Threads": "1.2", "SessionReconnects": "2.2", "NotificationsQueued": "3.1",
    "NotificationsDropped": "3.4", "NotificationsRefused": "3.5", "NotificationsUndelivered": "3.6",
    "RequestsWaiting": "4.1", "RequestsLongestWait": "4.3", "ToolsKilled": "5.3", "PlatformOverdueAge": "6.3",
    "FaultsComplete": "8.6"}, single=True)
AGENT_TABLES = Table("tavoSubagentTable", "208.1.7.1", {
    "Name": "2", "Rows": "3", "Failures": "5", "RebuildAge": "9"})
# The platform states no limits for temperatures: these are ours.
READINGS = {
    "temperature": [
        Reading(BOARD_TEMPERATURES, "Ambient", "temperature_air", "C", "35", "45", "ambient"),
        Reading(BOARD_TEMPERATURES, "Front", "temperature_air", "C", "35", "45", "front"),
        Reading(BOARD_TEMPERATURES, "Iohub1", "temperature_board", "C", "80", "95", "iohub1"),
        Reading(BOARD_TEMPERATURES, "Iohub2", "temperature_board", "C", "80", "95", "iohub2"),
        Reading(BOARD_TEMPERATURES, "Rear", "temperature_board", "C", "80", "95", "rear"),
        Reading(PROCESSOR_TEMPERATURES, "Temperature", "temperature_processor", "C", "85", "95"),
        Reading(MEMORY_TEMPERATURES, "Temperature", "temperature_memory", "C", "85", "95"),
    ],
    "power": [
        Reading(POWER, "ConsumedPower", "power_consumed", "W"),
        Reading(POWER, "InputCurrent", "power_current", "A"),
        Reading(POWER, "InputVoltage", "power_voltage", "V"),
    ],
    "agent": [
        Reading(AGENT, "Uptime", "agent_uptime", "s"),
        Reading(AGENT, "Threads", "agent_threads", ""),
        Reading(AGENT, "SessionReconnects", "agent_session_reconnects", "c"),
        Reading(AGENT, "NotificationsQueued", "agent_notifications_queued", ""),
        Reading(AGENT, "NotificationsDropped", "agent_notifications_dropped", "c"),
        Reading(AGENT, "NotificationsRefused", "agent_notifications_refused", "c"),
        Reading(AGENT, "NotificationsUndelivered", "agent_notifications_undelivered", "c"),
        Reading(AGENT, "RequestsWaiting", "agent_requests_waiting", ""),
        Reading(AGENT, "RequestsLongestWait", "agent_requests_longest_wait", "ms"),
        Reading(AGENT, "ToolsKilled", "agent_tools_killed", "c"),
        Reading(AGENT, "PlatformOverdueAge", "agent_platform_overdue", "ms", "120000"),
        Reading(AGENT, "FaultsComplete", "agent_faults_complete", "", "1"),  # 1: yes, 2: no
        Reading(AGENT_TABLES, "Failures", "agent_failed_rebuilds", "c", each=False),
        Reading(AGENT_TABLES, "RebuildAge", "agent_rebuild_age", "ms", "300000", each=False),
    ],
}
COMPONENTS = [*PARTS, *READINGS]
METRICS = [*(f"{component}_{count}" for component in PARTS for count in ("present", "failed")),
           *dict.fromkeys(reading.metric for readings in READINGS.values() for reading in readings)]
