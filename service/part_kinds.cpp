#include "service/part_kinds.h"

#include <array>
#include <limits>

#include "core/class_number.h"
#include "platform/fault_engine.h"
#include "platform/fru.h"
#include "platform/inventory.h"
#include "service/completion_code.h"

namespace tavo::service {
namespace {

using enum FieldType;

constexpr auto power_names = std::to_array<NamedNumber>({{.name = "off", .number = 0}, {.name = "on", .number = 1}});

constexpr auto server_fields = std::to_array<Field>({
    {.name = "description", .fallback = "Simulated server"},
    {.name = "product-name", .fallback = "Simulated server"},
    {.name = "product-id", .fallback = "MODEL-S"},
    {.name = "serial", .size = FRU_TEXT_SIZE - 1, .fallback = "SERIAL-0001"},
    {.name = "uuid", .fallback = "00000000-0000-4000-8000-000000000001"},
    {.name = "power", .type = Integer, .fallback = "on", .names = power_names},
    {.name = "drive-slots", .type = Integer, .fallback = "0"},
    {.name = "memory-total"},      // empty, like the next two: what the memory modules have
    {.name = "memory-effective"},  // of those that are operable
    {.name = "memory-speed"},      // of the slowest of these
    {.name = "low-voltage-memory", .type = Integer, .fallback = "2"},
    {.name = "board-manufacturer", .size = FRU_TEXT_SIZE - 1},
    {.name = "board-product", .size = FRU_TEXT_SIZE - 1},
    {.name = "board-serial", .size = FRU_TEXT_SIZE - 1},
    {.name = "board-readable", .type = Flag, .fallback = "yes"},
});

constexpr auto environment_fields = std::to_array<Field>({
    {.name = "power", .type = Decimal, .fallback = "0"},    // W
    {.name = "current", .type = Decimal, .fallback = "0"},  // A
    {.name = "voltage", .type = Decimal, .fallback = "0"},  // V
    {.name = "ambient", .type = Decimal, .fallback = "0"},  // degrees Celsius, like the rest
    {.name = "front", .type = Decimal, .fallback = "0"},
    {.name = "iohub1", .type = Decimal, .fallback = "0"},
    {.name = "iohub2", .type = Decimal, .fallback = "0"},
    {.name = "rear", .type = Decimal, .fallback = "0"},
    {.name = "drift", .type = Integer, .fallback = "0"},  // seconds between changes of the readings; 0: no changes
});

constexpr auto processor_fields = std::to_array<Field>({
    {.name = "socket", .offset = PROCESSOR_SOCKET, .required = true},
    {.name = "vendor", .offset = PROCESSOR_VENDOR},
    {.name = "architecture", .offset = PROCESSOR_ARCHITECTURE, .size = PROCESSOR_ARCHITECTURE_SIZE},
    {.name = "model", .offset = PROCESSOR_MODEL},
    {.name = "serial", .offset = PROCESSOR_SERIAL},
    {.name = "speed", .type = Integer, .offset = PROCESSOR_SPEED},
    {.name = "cores", .type = Integer, .offset = PROCESSOR_CORES},
    {.name = "cores-enabled", .type = Integer},
    {.name = "threads", .type = Integer, .offset = PROCESSOR_THREADS},
    {.name = "status", .offset = PROCESSOR_STATUS, .fallback = "Enabled"},
    {.name = "temperature", .type = Decimal, .fallback = "0"},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto dimm_fields = std::to_array<Field>({
    {.name = "name", .offset = MEMORY_NAME, .size = MEMORY_NAME_SIZE, .required = true},
    {.name = "number", .type = Integer},  // 0: the inventory library knows no number for it
    {.name = "capacity", .offset = MEMORY_CAPACITY, .size = MEMORY_CAPACITY_SIZE},
    {.name = "speed", .offset = MEMORY_SPEED, .size = MEMORY_SPEED_SIZE},
    {.name = "location", .offset = MEMORY_LOCATION, .size = MEMORY_LOCATION_SIZE},
    {.name = "serial", .offset = MEMORY_SERIAL, .size = MEMORY_SERIAL_SIZE},
    {.name = "visible", .offset = MEMORY_VISIBLE, .size = MEMORY_SHORT_TEXT_SIZE, .fallback = "Yes"},
    {.name = "status", .offset = MEMORY_STATUS, .size = MEMORY_SHORT_TEXT_SIZE, .fallback = "Operable"},
    {.name = "width", .offset = MEMORY_WIDTH, .size = MEMORY_SHORT_TEXT_SIZE, .fallback = "64 bits"},
    {.name = "clock", .offset = MEMORY_CLOCK, .size = MEMORY_SHORT_TEXT_SIZE},
    {.name = "temperature", .type = Decimal, .fallback = "0"},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto entity_names = std::to_array<NamedNumber>(
    {{.name = "power-supply", .number = ENTITY_POWER_SUPPLY}, {.name = "fan", .number = ENTITY_FAN}});
constexpr auto sensor_type_names = std::to_array<NamedNumber>(
    {{.name = "fan", .number = SENSOR_TYPE_FAN}, {.name = "presence", .number = SENSOR_TYPE_ENTITY_PRESENCE}});
// The completion code with which a sensor answers whether its entity is present.
constexpr auto presence_names = std::to_array<NamedNumber>({{.name = "present", .number = completed},
                                                            {.name = "absent", .number = entity_absent},
                                                            {.name = "unknown", .number = unspecified_error}});

constexpr auto sensor_fields = std::to_array<Field>({
    {.name = "number", .type = Octet, .required = true},
    {.name = "name", .offset = SENSOR_NAME, .size = SENSOR_NAME_SIZE, .required = true},
    {.name = "entity", .type = Word, .offset = SENSOR_ENTITY_ID, .required = true, .names = entity_names},
    {.name = "instance", .type = Word, .offset = SENSOR_ENTITY_INSTANCE, .required = true},
    {.name = "type", .type = Word, .offset = SENSOR_TYPE, .required = true, .names = sensor_type_names},
    {.name = "presence", .type = Octet, .fallback = "present", .names = presence_names},
    {.name = "readable", .type = Flag, .fallback = "yes"},
});

// What a PMBus register of two octets holds.
constexpr Range pmbus_word{.least = 0, .most = std::numeric_limits<std::uint16_t>::max()};

constexpr auto supply_fields = std::to_array<Field>({
    {.name = "model", .size = supply_model_size},
    {.name = "revision", .size = supply_revision_size},
    {.name = "serial", .size = FRU_TEXT_SIZE - 1},
    {.name = "serial-readable", .type = Flag, .fallback = "yes"},
    {.name = "status", .type = Integer, .range = pmbus_word},            // 0: no fault
    {.name = "input-power", .type = Integer, .range = pmbus_word},       // W
    {.name = "output-power-max", .type = Integer, .range = pmbus_word},  // W
    {.name = "power", .type = Integer, .fallback = "on", .names = power_names},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto adapter_fields = std::to_array<Field>({
    {.name = "slot", .type = Integer, .required = true},
    {.name = "product-id"},
    {.name = "serial"},
    {.name = "part-number"},
    {.name = "i2c-bus"},
    {.name = "over-temperature", .type = Flag, .fallback = "no"},
    {.name = "running-version"},
    {.name = "backup-version"},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto led_fields = std::to_array<Field>({
    {.name = "name", .required = true},
    {.name = "state", .fallback = "ON"},
    {.name = "color", .fallback = "GREEN"},
});

constexpr auto class_names = std::to_array<NamedNumber>({
    {.name = "processor", .number = class_number::processor},
    {.name = "memory", .number = class_number::memory},
    {.name = "supply", .number = class_number::power_supply_fan},
    {.name = "adapter", .number = class_number::adaptor},
    {.name = "fan", .number = class_number::system_fan},
});
constexpr auto severity_names = std::to_array<NamedNumber>({
    {.name = "cleared", .number = 0},
    {.name = "info", .number = 1},
    {.name = "condition", .number = 2},
    {.name = "warning", .number = 3},
    {.name = "minor", .number = 4},
    {.name = "major", .number = 5},
    {.name = "critical", .number = 6},
});

constexpr auto fault_fields = std::to_array<Field>({
    {.name = "index", .type = Word, .offset = FAULT_INDEX, .required = true},
    {.name = "class", .type = Word, .offset = FAULT_CLASS_CODE, .required = true, .names = class_names},
    {.name = "unit", .type = Word, .offset = FAULT_UNIT_POSITION},
    {.name = "severity", .type = Word, .offset = FAULT_SEVERITY, .fallback = "major", .names = severity_names},
    {.name = "previous-severity", .type = Octet, .offset = FAULT_PREVIOUS_SEVERITY, .names = severity_names},
    {.name = "occurrences", .type = Octet, .offset = FAULT_OCCURRENCES, .fallback = "1"},
    {.name = "cause", .type = Word, .offset = FAULT_CAUSE},
    {.name = "code", .type = Word, .offset = FAULT_CODE},
    {.name = "tag", .type = Word, .offset = FAULT_TAG},
    {.name = "affected", .offset = FAULT_AFFECTED_OBJECT, .size = FAULT_AFFECTED_OBJECT_SIZE},
    {.name = "dn", .offset = FAULT_DN, .size = FAULT_DN_SIZE},
    {.name = "rn", .offset = FAULT_RN, .size = FAULT_RN_SIZE},
    {.name = "affected-oid",
     .type = ObjectId,
     .offset = FAULT_AFFECTED_OID,
     .size = FAULT_AFFECTED_OID_CAPACITY * sizeof(std::uint32_t)},
    {.name = "affected-oid-count", .type = Word, .offset = FAULT_AFFECTED_OID_COUNT},
    {.name = "description", .offset = FAULT_DESCRIPTION, .size = FAULT_DESCRIPTION_SIZE},
    {.name = "first-time", .type = Integer, .offset = FAULT_FIRST_TIME},  // seconds since 1970
    {.name = "last-time", .type = Integer, .offset = FAULT_LAST_TIME},
});

using Identity = std::string_view;
constexpr auto processor_identity = std::to_array<Identity>({"socket"});
constexpr auto dimm_identity = std::to_array<Identity>({"name"});
constexpr auto sensor_identity = std::to_array<Identity>({"number"});
constexpr auto adapter_identity = std::to_array<Identity>({"slot"});
constexpr auto led_identity = std::to_array<Identity>({"name"});
constexpr auto fault_identity = std::to_array<Identity>({"class", "index"});

}  // namespace

constinit const PartKind server_kind{.name = "server", .fields = server_fields};
constinit const PartKind environment_kind{.name = "environment", .fields = environment_fields};
constinit const PartKind processor_kind{.name = "processor",
                                        .fields = processor_fields,
                                        .record_size = PROCESSOR_RECORD_SIZE,
                                        .identity = processor_identity};
constinit const PartKind dimm_kind{
    .name = "dimm", .fields = dimm_fields, .record_size = MEMORY_RECORD_SIZE, .identity = dimm_identity};
constinit const PartKind sensor_kind{
    .name = "sensor", .fields = sensor_fields, .record_size = SENSOR_RECORD_SIZE, .identity = sensor_identity};
constinit const PartKind supply_kind{.name = "supply", .fields = supply_fields};
constinit const PartKind adapter_kind{.name = "adapter", .fields = adapter_fields, .identity = adapter_identity};
constinit const PartKind led_kind{.name = "led", .fields = led_fields, .identity = led_identity};
constinit const PartKind fault_kind{
    .name = "fault", .fields = fault_fields, .record_size = FAULT_RECORD_SIZE, .identity = fault_identity};

}  // namespace tavo::service
