#include <array>

#include "platform/storage_client.h"
#include "platform/storage_snapshot.h"
#include "service/part_kinds.h"

namespace tavo::service {
namespace {

using enum FieldType;

constexpr std::size_t text_32 = STOR_TEXT_SIZE;
constexpr std::size_t text_64 = STOR_LONG_TEXT_SIZE;

constexpr auto battery_state_names =
    std::to_array<NamedNumber>({{.name = "operable", .number = 1}, {.name = "failed", .number = 0}});

constexpr auto controller_fields = std::to_array<Field>({
    {.name = "id", .type = Word, .offset = STOR_CONTROLLER_ID, .required = true},
    {.name = "mode", .type = Word, .offset = STOR_CONTROLLER_MODE, .fallback = "2"},
    {.name = "location", .offset = STOR_CONTROLLER_LOCATION, .size = text_64},  // empty: on the board
    {.name = "description", .offset = STOR_CONTROLLER_DESCRIPTION, .size = STOR_CONTROLLER_DESCRIPTION_SIZE},
    {.name = "faulty", .type = Flag, .offset = STOR_CONTROLLER_FAULTY, .fallback = "no"},
    {.name = "vendor", .offset = STOR_CONTROLLER_VENDOR, .size = text_32},
    {.name = "serial", .offset = STOR_CONTROLLER_SERIAL, .size = text_32},
    {.name = "type", .offset = STOR_CONTROLLER_TYPE, .size = text_64},
    {.name = "revision", .offset = STOR_CONTROLLER_REVISION, .size = text_32},
    {.name = "battery-type", .type = Word, .offset = STOR_BATTERY_TYPE},
    {.name = "battery-present", .type = Flag, .offset = STOR_BATTERY_PRESENT, .fallback = "no"},
    {.name = "battery-state",
     .type = Word,
     .offset = STOR_BATTERY_STATE,
     .fallback = "operable",
     .names = battery_state_names},
});

constexpr auto drive_state_names = std::to_array<NamedNumber>(
    {{.name = "good", .number = 1}, {.name = "failed", .number = 2}, {.name = "rebuilding", .number = 11}});
constexpr auto media_names = std::to_array<NamedNumber>({{.name = "HDD", .number = 1}, {.name = "SSD", .number = 2}});

constexpr auto drive_fields = std::to_array<Field>({
    {.name = "slot", .type = Word, .offset = STOR_DRIVE_SLOT, .required = true},
    {.name = "state", .type = Word, .offset = STOR_DRIVE_STATE, .fallback = "good", .names = drive_state_names},
    {.name = "connection", .type = Word, .offset = STOR_DRIVE_CONNECTION, .fallback = "2"},
    {.name = "media", .type = Word, .offset = STOR_DRIVE_MEDIA, .fallback = "HDD", .names = media_names},
    {.name = "link", .type = Word, .offset = STOR_DRIVE_LINK},
    {.name = "capacity", .type = Long, .offset = STOR_DRIVE_CAPACITY_WORD},  // octets
    {.name = "blocks", .type = Long, .offset = STOR_DRIVE_BLOCKS},
    {.name = "name", .offset = STOR_DRIVE_NAME, .size = text_32, .required = true},
    {.name = "model", .offset = STOR_DRIVE_MODEL, .size = text_32},
    {.name = "revision", .offset = STOR_DRIVE_REVISION, .size = text_32},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto volume_state_names = std::to_array<NamedNumber>({
    {.name = "none", .number = 0},
    {.name = "offline", .number = 1},
    {.name = "partly-degraded", .number = 2},
    {.name = "degraded", .number = 3},
    {.name = "optimal", .number = 4},
});

constexpr auto volume_fields = std::to_array<Field>({
    {.name = "type", .type = Word, .offset = STOR_VOLUME_TYPE, .fallback = "1"},
    {.name = "state", .type = Word, .offset = STOR_VOLUME_STATE, .fallback = "optimal", .names = volume_state_names},
    {.name = "capacity", .type = Long, .offset = STOR_VOLUME_CAPACITY_WORD},  // octets
    {.name = "blocks", .type = Long, .offset = STOR_VOLUME_BLOCKS},
});

// The SD-card service's fields are named after the table columns that show them: a card's column-22 is column 22 of the
// table of cards.
constexpr auto sd_controller_fields = std::to_array<Field>({
    {.name = "column-4", .type = Integer, .offset = VELT_CONTROLLER_COLUMN_4},
    {.name = "column-5", .type = Integer, .offset = VELT_CONTROLLER_COLUMN_5},
    {.name = "column-6", .type = Word, .offset = VELT_CONTROLLER_COLUMN_6},
    {.name = "column-8", .offset = VELT_CONTROLLER_COLUMN_8, .size = text_32},
    {.name = "column-15", .type = Word, .offset = VELT_CONTROLLER_COLUMN_15},
    {.name = "column-18", .type = Word, .offset = VELT_CONTROLLER_COLUMN_18},
    {.name = "column-19", .type = Integer, .offset = VELT_CONTROLLER_COLUMN_19},
    {.name = "column-20", .type = Word, .offset = VELT_CONTROLLER_COLUMN_20},
    {.name = "column-21", .offset = VELT_CONTROLLER_COLUMN_21, .size = text_32},
    {.name = "column-22", .offset = VELT_CONTROLLER_COLUMN_22, .size = text_32},
    {.name = "column-25", .offset = VELT_CONTROLLER_COLUMN_25, .size = text_32},
    {.name = "column-26", .type = Word, .offset = VELT_CONTROLLER_COLUMN_26},
    {.name = "column-28", .type = Word, .offset = VELT_CONTROLLER_COLUMN_28},
    {.name = "column-30", .type = Word, .offset = VELT_CONTROLLER_COLUMN_30},
    {.name = "column-31", .offset = VELT_CONTROLLER_COLUMN_31, .size = text_32},
    {.name = "column-43", .type = Word, .offset = VELT_CONTROLLER_COLUMN_43},
    {.name = "mode", .type = Word, .offset = VELT_CONTROLLER_MODE},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto sd_card_fields = std::to_array<Field>({
    {.name = "slot",
     .type = Integer,
     .offset = VELT_CARD_SLOT,
     .required = true,
     .range = Range{.least = 1, .most = VELT_CARD_COUNT}},
    {.name = "column-4", .type = Word, .offset = VELT_CARD_COLUMN_4},
    {.name = "column-5", .type = Integer, .offset = VELT_CARD_COLUMN_5},
    {.name = "column-6", .type = Integer, .offset = VELT_CARD_COLUMN_6},
    {.name = "column-7", .offset = VELT_CARD_COLUMN_7, .size = text_32},
    {.name = "column-9", .type = Word, .offset = VELT_CARD_COLUMN_9},
    {.name = "column-10", .type = Word, .offset = VELT_CARD_COLUMN_10},
    {.name = "column-11", .offset = VELT_CARD_COLUMN_11, .size = text_32},
    {.name = "column-12", .offset = VELT_CARD_COLUMN_12, .size = text_32},
    {.name = "column-13", .offset = VELT_CARD_COLUMN_13, .size = VELT_CARD_COLUMN_20 - VELT_CARD_COLUMN_13},
    {.name = "column-15", .offset = VELT_CARD_COLUMN_15, .size = text_32},
    {.name = "column-19", .type = Word, .offset = VELT_CARD_COLUMN_19},
    {.name = "column-20", .offset = VELT_CARD_COLUMN_20, .size = text_32},
    {.name = "column-21", .offset = VELT_CARD_COLUMN_21, .size = text_32},
    {.name = "column-22", .type = Long, .offset = VELT_CARD_COLUMN_22},
    {.name = "column-23", .type = Word, .offset = VELT_CARD_COLUMN_23},
    {.name = "column-24", .offset = VELT_CARD_COLUMN_24, .size = VELT_CARD_COLUMN_28 - VELT_CARD_COLUMN_24},
    {.name = "column-25", .type = Integer, .offset = VELT_CARD_COLUMN_25},
    {.name = "column-26", .type = Word, .offset = VELT_CARD_COLUMN_26},
    {.name = "column-27", .type = Integer, .offset = VELT_CARD_COLUMN_27},
    {.name = "column-28", .type = Word, .offset = VELT_CARD_COLUMN_28},
    {.name = "column-29", .offset = VELT_CARD_COLUMN_29, .size = text_32},
    {.name = "column-30", .type = Word, .offset = VELT_CARD_COLUMN_30},
    {.name = "column-31", .type = Word, .offset = VELT_CARD_COLUMN_31},
    {.name = "column-32", .offset = VELT_CARD_COLUMN_32, .size = text_64},
    {.name = "column-33", .type = Word, .offset = VELT_CARD_COLUMN_33},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

constexpr auto sd_partition_fields = std::to_array<Field>({
    {.name = "number",
     .type = Integer,
     .offset = VELT_PARTITION_NUMBER,
     .required = true,
     .range = Range{.least = 1, .most = VELT_PARTITION_COUNT}},
    {.name = "name", .offset = VELT_PARTITION_NAME, .size = text_32, .required = true},
    {.name = "column-4", .type = Word, .offset = VELT_PARTITION_COLUMN_4},
    {.name = "column-7", .type = Word, .offset = VELT_PARTITION_COLUMN_7},
    {.name = "column-12", .type = Long, .offset = VELT_PARTITION_COLUMN_12},
    {.name = "column-16", .offset = VELT_PARTITION_COLUMN_16, .size = text_32},
    {.name = "column-17", .offset = VELT_PARTITION_COLUMN_17, .size = text_32},
    {.name = "column-18", .type = Long, .offset = VELT_PARTITION_COLUMN_18},
    {.name = "column-20", .offset = VELT_PARTITION_COLUMN_20, .size = text_32},
    {.name = "column-21", .type = Word, .offset = VELT_PARTITION_COLUMN_21},
    {.name = "column-22", .type = Word, .offset = VELT_PARTITION_COLUMN_22},
    {.name = "column-23", .type = Integer, .offset = VELT_PARTITION_COLUMN_23},
    {.name = "column-24", .type = Word, .offset = VELT_PARTITION_COLUMN_24},
    {.name = "column-25", .type = Word, .offset = VELT_PARTITION_COLUMN_25},
    {.name = "present", .type = Flag, .fallback = "yes"},
});

using Identity = std::string_view;
constexpr auto controller_identity = std::to_array<Identity>({"id"});
constexpr auto drive_identity = std::to_array<Identity>({"slot"});
constexpr auto sd_card_identity = std::to_array<Identity>({"slot"});
constexpr auto sd_partition_identity = std::to_array<Identity>({"number"});

}  // namespace

constinit const PartKind controller_kind{.name = "controller",
                                         .fields = controller_fields,
                                         .record_size = STOR_CONTROLLER_SIZE,
                                         .identity = controller_identity};
constinit const PartKind drive_kind{
    .name = "drive", .fields = drive_fields, .record_size = STOR_DRIVE_SIZE, .identity = drive_identity};
constinit const PartKind volume_kind{.name = "volume", .fields = volume_fields, .record_size = STOR_VOLUME_SIZE};
constinit const PartKind sd_controller_kind{
    .name = "sd-controller", .fields = sd_controller_fields, .record_size = VELT_CONTROLLER_SIZE};
constinit const PartKind sd_card_kind{
    .name = "sd-card", .fields = sd_card_fields, .record_size = VELT_CARD_SIZE, .identity = sd_card_identity};
constinit const PartKind sd_partition_kind{.name = "sd-partition",
                                           .fields = sd_partition_fields,
                                           .record_size = VELT_PARTITION_SIZE,
                                           .identity = sd_partition_identity};

}  // namespace tavo::service
