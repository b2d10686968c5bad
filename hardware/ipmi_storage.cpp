#include "hardware/ipmi_storage.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>

#include "hardware/ipmi_sdr.h"

namespace tavo::service {
namespace {

constexpr std::uint8_t chunk = 16;  // octets of one answer that every controller manages

std::uint8_t low(unsigned word) {
  return static_cast<std::uint8_t>(word & 0xff);
}

std::uint8_t high(unsigned word) {
  return static_cast<std::uint8_t>(word >> 8 & 0xff);
}

unsigned word_at(const IpmiOctets &octets, std::size_t offset) {
  return octets[offset] | static_cast<unsigned>(octets[offset + 1]) << 8;
}

IpmiCommand storage(std::uint8_t command, IpmiOctets data = {}) {
  return {.net_fn = IPMI_NET_FN_STORAGE_RQ, .command = command, .data = std::move(data)};
}

unsigned reservation(IpmiDevice &device) {
  const auto answer = ask(device, storage(IPMI_CMD_RESERVE_SDR_REPOSITORY), 2);
  return answer ? word_at(*answer, 0) : 0;
}

struct SdrPart {
  unsigned next;  // the record after this one
  IpmiOctets octets;
};

// `count` octets of the record at most.
std::optional<SdrPart> sdr_part(IpmiDevice &device, unsigned reserved, unsigned id, std::size_t offset,
                                std::size_t count) {
  const auto answer =
      ask(device,
          storage(IPMI_CMD_GET_SDR, {low(reserved), high(reserved), low(id), high(id),
                                     static_cast<std::uint8_t>(offset), static_cast<std::uint8_t>(count)}),
          3);
  if (!answer) {
    return std::nullopt;
  }
  const auto end = answer->begin() + static_cast<std::ptrdiff_t>(std::min(answer->size(), 2 + count));
  return SdrPart{.next = word_at(*answer, 0), .octets = {answer->begin() + 2, end}};
}

// The record of this number; nothing if it cannot be read as a whole.
std::optional<SdrPart> sdr_record(IpmiDevice &device, unsigned reserved, unsigned id) {
  auto record = sdr_part(device, reserved, id, 0, sdr_header);
  if (!record || record->octets.size() < sdr_header) {
    return std::nullopt;
  }
  const std::size_t size = sdr_header + record->octets[sdr_header - 1];
  while (record->octets.size() < size) {
    const std::size_t offset = record->octets.size();
    // An offset is an octet.
    const auto part = offset > UINT8_MAX
                          ? std::nullopt
                          : sdr_part(device, reserved, id, offset, std::min<std::size_t>(size - offset, chunk));
    if (!part || part->octets.empty()) {
      return std::nullopt;
    }
    record->octets.insert(record->octets.end(), part->octets.begin(), part->octets.end());
  }
  return record;
}

}  // namespace

std::optional<IpmiOctets> sdr_state(IpmiDevice &device) {
  return ask(device, storage(IPMI_CMD_GET_SDR_REPOSITORY_INFO), 1);
}

void read_sdr(IpmiDevice &device, SdrRecords &found, std::chrono::steady_clock::time_point until) {
  constexpr unsigned last = IPMI_SDR_RECORD_ID_LAST;
  constexpr int attempts = 3;  // someone else's reservation cancels ours
  unsigned reserved = reservation(device);
  do {
    const unsigned id = found.next;
    if (id == last || !found.seen.insert(id).second) {
      found.is_at_end = true;
      break;
    }
    auto record = sdr_record(device, reserved, id);
    for (int attempt = 1; !record && attempt < attempts; ++attempt) {
      reserved = reservation(device);
      record = sdr_record(device, reserved, id);
    }
    if (!record) {
      found.is_complete = false;
      found.is_at_end = true;
      break;
    }
    found.records.push_back(std::move(record->octets));
    found.next = record->next;
  } while (std::chrono::steady_clock::now() < until);
  found.is_at_end = found.is_at_end || found.next == last;
}

IpmiOctets read_fru(IpmiDevice &device, std::uint8_t id) {
  constexpr std::size_t limit = 8192;
  constexpr std::uint8_t in_words = 1;
  const auto info = ask(device, storage(IPMI_CMD_GET_FRU_INVENTORY_AREA_INFO, {id}), 3);
  if (!info) {
    return {};
  }
  const unsigned unit = (info->at(2) & in_words) != 0 ? 2 : 1;  // in what offsets and counts are given
  const std::size_t size = std::min<std::size_t>(word_at(*info, 0), limit);
  IpmiOctets area;
  while (area.size() < size) {
    const auto offset = static_cast<unsigned>(area.size() / unit);
    const std::size_t wanted = std::min<std::size_t>(size - area.size(), chunk);
    const auto count = static_cast<std::uint8_t>((wanted + unit - 1) / unit);
    const auto answer = ask(device, storage(IPMI_CMD_READ_FRU_DATA, {id, low(offset), high(offset), count}), 1);
    const std::size_t got =
        answer ? std::min<std::size_t>({static_cast<std::size_t>(answer->front()) * unit, answer->size() - 1, wanted})
               : 0;
    if (got == 0 || got % unit != 0) {
      break;
    }
    area.insert(area.end(), answer->begin() + 1, answer->begin() + 1 + static_cast<std::ptrdiff_t>(got));
  }
  return area;
}

SelReader::Answer SelReader::ask_once(IpmiDevice &device, unsigned id) {
  constexpr std::size_t record_size = 16;
  constexpr std::size_t start_of_record = 3;  // after the completion code and the number of the next entry
  constexpr std::uint8_t whole = 0xff;
  const IpmiOctets answer = device.ask(storage(IPMI_CMD_GET_SEL_ENTRY, {0, 0, low(id), high(id), 0, whole}));
  if (!answer.empty() && answer.front() == IPMI_COMP_CODE_REQUESTED_SENSOR_DATA_OR_RECORD_NOT_PRESENT) {
    return {};
  }
  if (answer.size() < start_of_record + record_size || answer.front() != IPMI_COMP_CODE_COMMAND_SUCCESS) {
    return {.is_refused = true};
  }
  const auto start = answer.begin() + static_cast<std::ptrdiff_t>(start_of_record);
  return {.entry =
              Entry{.next = word_at(answer, 1), .record = {start, start + static_cast<std::ptrdiff_t>(record_size)}}};
}

// A controller that is busy has the time a moment later.
SelReader::Answer SelReader::ask_for(IpmiDevice &device, unsigned id) {
  constexpr int attempts = 3;
  Answer answer = ask_once(device, id);
  for (int attempt = 1; answer.is_refused && attempt < attempts; ++attempt) {
    answer = ask_once(device, id);
  }
  return answer;
}

// A log that was cleared begins anew, and so does one in which the last known entry is another or has gone: it has
// been written over.
std::optional<unsigned> SelReader::first_new(IpmiDevice &device, News &news) const {
  if (!last_.empty() && !news.begins_anew) {
    const Answer known = ask_for(device, word_at(last_, 0));
    if (known.is_refused) {
      return std::nullopt;
    }
    if (known.entry && known.entry->record == last_) {
      return known.entry->next;
    }
  }
  news.begins_anew = true;
  return IPMI_SEL_GET_RECORD_ID_FIRST_ENTRY;
}

std::optional<SelReader::News> SelReader::read(IpmiDevice &device) {
  constexpr std::size_t state_size = 14;  // version, number of entries, free octets, times of adding and erasing, flags
  constexpr std::size_t count = 1;
  constexpr auto erased_at = std::make_pair(9, 13);
  constexpr unsigned last = IPMI_SEL_GET_RECORD_ID_LAST_ENTRY;
  const auto state = ask(device, storage(IPMI_CMD_GET_SEL_INFO), state_size);
  if (!state) {
    return std::nullopt;
  }
  News news;
  if (*state == state_ && is_at_end_) {
    return news;
  }
  news.begins_anew = state_.empty() || word_at(*state, count) < word_at(state_, count) ||
                     !std::equal(state->begin() + erased_at.first, state->begin() + erased_at.second,
                                 state_.begin() + erased_at.first);
  const auto first = word_at(*state, count) != 0 ? first_new(device, news) : last;
  if (!first) {
    return News();
  }
  unsigned next = *first;
  bool is_refused = false;
  std::set<unsigned> seen;
  while (next != last && seen.insert(next).second) {
    Answer answer = ask_for(device, next);
    is_refused = answer.is_refused;
    if (!answer.entry) {
      break;
    }
    next = answer.entry->next;
    news.records.push_back(std::move(answer.entry->record));
  }
  // Not before everything has been read: if the controller falls silent meanwhile, the caller gets nothing.
  if (news.begins_anew) {
    last_.clear();
  }
  if (!news.records.empty()) {
    last_ = news.records.back();
  }
  state_ = *state;
  is_at_end_ = !is_refused;
  return news;
}

}  // namespace tavo::service
