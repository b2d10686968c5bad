#include "hardware/sd_cards.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "core/class_number.h"
#include "hardware/drive_place.h"
#include "hardware/set_line.h"
#include "hardware/sysfs.h"
#include "platform/storage_client.h"
#include "service/affected.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// A code that the tables show as 0: not known. The codes that they know mean something, 0 included.
constexpr const char *not_known = "255";

constexpr auto codes_of_controller = std::to_array<std::string_view>({"column-6", "column-30", "column-43", "mode"});
constexpr auto codes_of_partition = std::to_array<std::string_view>({"column-21", "column-22", "column-25"});

Part part_with_unknown(const PartKind &kind, std::span<const std::string_view> codes) {
  Part part(kind);
  for (const std::string_view code : codes) {
    part.set(code, not_known);
  }
  return part;
}

// In the register. A partition's key is that of its card, and its number on it after this word.
constexpr const char *card_group = "sd-card";
constexpr const char *partition_group = "sd-partition";
constexpr std::string_view partition_word = " partition ";

Trouble missing_card(const std::string &place, const MissingPart &card) {
  const std::string slot = std::to_string(card.number);
  return missing({.key = "sd-card " + place + " gone",
                  .class_code = class_number::storage,
                  .unit = card.number,
                  .description = "SD card " + slot + " (" + card.name + ')',
                  .affected = affected_server().dn + "/board/storage-veltro/pd-SLOT-" + slot,
                  // There is no row for it: the identifier is the server's.
                  .affected_oid = affected_server().oid},
                 card);
}

// The name that the partition table has, or the kernel's.
std::string partition_name(const fs::path &partition) {
  constexpr std::string_view key = "PARTNAME=";
  const std::string facts = read_attribute(partition / "uevent").value_or("");
  const std::size_t at = facts.find(key);
  if (at == std::string::npos) {
    return partition.filename();
  }
  const std::size_t start = at + key.size();
  return facts.substr(start, facts.find('\n', start) - start);
}

}  // namespace

void SdCardSource::read_partitions(const fs::path &disk, const std::string &place, SdCards &cards, Finding &finding) {
  std::set<std::string> present;
  for (const fs::path &directory : entries(disk, disk.filename().string())) {
    const auto number_on_card = read_number(directory / "partition");
    if (!number_on_card) {
      continue;
    }
    const std::string key = place + std::string(partition_word) + std::to_string(*number_on_card);
    const std::int64_t number = numbers_.number_of(partition_group, key);
    present.insert(key);
    if (number > VELT_PARTITION_COUNT) {
      finding.unreadable.push_back(directory.filename().string() + ": there are too many partitions");
      continue;
    }
    Part &partition = cards.partitions.emplace_back(part_with_unknown(sd_partition_kind, codes_of_partition));
    partition.set_number("number", number);
    set_line(partition, "name", partition_name(directory));
  }
  free_partitions(
      [&](const std::string &key, const std::string &card) { return card == place && !present.contains(key); });
}

// There are few numbers. Those of a card that was taken out stay until it is forgotten.
void SdCardSource::free_partitions(
    const std::function<bool(const std::string &key, const std::string &place)> &is_gone) {
  for (const std::string &key : numbers_.keys(partition_group)) {
    if (is_gone(key, key.substr(0, key.rfind(partition_word)))) {
      numbers_.free(partition_group, key);
    }
  }
}

void SdCardSource::read_card(const fs::path &card, SdCards &cards, Finding &finding) {
  const std::string place = place_of(card);
  const std::int64_t slot = numbers_.number_of(card_group, place);
  if (slot > VELT_CARD_COUNT) {
    finding.unreadable.push_back(card.filename().string() + ": there are too many SD cards");
    return;
  }
  const auto text = [&](const char *file) { return read_attribute(card / file).value_or(""); };
  Part &part = cards.cards.emplace_back(sd_card_kind);
  part.set_number("slot", slot);
  set_line(part, "column-11", text("date"));
  set_line(part, "column-21", text("name"));
  set_line(part, "column-24", text("serial"));
  for (const fs::path &disk : entries(card / "block", "mmcblk")) {
    constexpr std::int64_t blocks_in_megabyte = 2048;
    const std::int64_t blocks = read_number(disk / "size").value_or(0);
    set_line(part, "column-7", read_number(disk / "ro").value_or(0) != 0 ? "Write protected" : "Write enabled");
    set_line(part, "column-13", std::to_string(blocks / blocks_in_megabyte) + " MB");
    read_partitions(disk, place, cards, finding);
  }
}

Finding SdCardSource::read() {
  events_.take();
  Finding finding;
  SdCards cards;
  cards.controller = part_with_unknown(sd_controller_kind, codes_of_controller);
  std::map<std::string, std::string> present;
  for (const fs::path &host : entries(roots_.sys / "class/mmc_host", "mmc")) {
    std::error_code error;
    const fs::path directory = fs::canonical(host, error);
    for (const fs::path &card : entries(directory, host.filename().string() + ':')) {
      if (read_attribute(card / "type") == "SD") {
        present[place_of(card)] = read_attribute(card / "name").value_or("");
        read_card(card, cards, finding);
      }
    }
  }
  for (const auto &[place, card] : missing_parts(numbers_, card_group, present)) {
    finding.troubles.push_back(missing_card(place, card));
  }
  const auto known = numbers_.parts(card_group);
  free_partitions([&](const std::string &, const std::string &place) { return !known.contains(place); });
  if (!cards.cards.empty()) {
    finding.enter = [cards](Inventory &inventory) { inventory.sd = cards; };
  }
  return finding;
}

}  // namespace tavo::service
