#include "sources/dump.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>

#include "core/descriptor.h"
#include "core/text.h"

namespace tavo {

Needle::Needle(const char *blank, const char *key, const char *separator) {
  for (const char *const part : {blank, key, separator}) {
    const std::size_t length = std::strlen(part);
    if (length > text_.size() - size_) {
      size_ = 0;
      return;
    }
    std::memcpy(text_.data() + size_, part, length);
    size_ += length;
  }
}

Dump::Dump(const char *path) {
  const Descriptor file = open_for_reading(path);
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) {
    return;
  }
  const std::size_t size = std::min<std::uint64_t>(static_cast<std::uint64_t>(status.st_size), largest_dump);
  octets_ = make_zeroed_octets(1, size);
  if (octets_ == nullptr) {
    return;
  }
  size_ = read_up_to(file, std::span(octets_.get(), size));
  if (static_cast<std::uint64_t>(status.st_size) > size) {
    snmp_log(LOG_DEBUG, "%s is too large: only the first %zu octets are read\n", path, size);
  }
}

int Dump::count(const Needle &needle) const {
  Search search(*this, needle);
  int occurrences = 0;
  while (search.advance_to(occurrences + 1)) {
    ++occurrences;
  }
  return occurrences;
}

int Dump::count_units(const Needle &needle) const {
  const int units = count(needle);
  if (units > most_units) {
    snmp_log(LOG_DEBUG, "a dump lists %d units: only the first %d are shown\n", units, most_units);
  }
  return std::min(units, most_units);
}

bool Dump::value(const Needle &needle, int n, char *out) const {
  return Search(*this, needle).value(n, out);
}

std::int32_t Dump::sum(const Needle &needle) const {
  const auto within_32_bits = [](std::int64_t number) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(number, INT32_MIN, INT32_MAX));
  };
  Search search(*this, needle);
  std::int32_t sum = 0;
  char value[dump_value_size];
  for (int n = 1; search.value(n, value); ++n) {
    sum = within_32_bits(std::int64_t{sum} + within_32_bits(std::strtoll(value, nullptr, 10)));
  }
  return sum;
}

Dump::Search::Search(const Dump &dump, const Needle &needle) : text_(dump.text()), needle_(needle) {
  restart();
}

Dump::Search::Search(const Dump &dump, const char *key, const char *separator) : Search(dump, Needle(key, separator)) {}

bool Dump::Search::value(int n, char *out, std::size_t size) {
  if (!advance_to(std::max(n, 0))) {
    return false;
  }
  if (newline_ < behind_) {
    newline_ = text_.find('\n', behind_);
  }
  if (newline_ == std::string_view::npos) {
    return false;
  }
  copy_text(out, size, {text_.data() + behind_, newline_ - behind_});
  return true;
}

void Dump::Search::restart() {
  current_ = 0;
  behind_ = 0;
  is_last_ = false;
  newline_ = text_.find('\n');
}

bool Dump::Search::advance_to(int n) {
  if (n < current_) {
    restart();
  }
  const std::string_view needle = needle_.text();
  while (current_ < n && !is_last_) {
    std::string_view rest = text_;
    rest.remove_prefix(behind_);
    // Not string_view::find, whose time grows with the product of both lengths on a file of blanks.
    const void *found =
        needle.empty() || rest.empty() ? nullptr : ::memmem(rest.data(), rest.size(), needle.data(), needle.size());
    if (found == nullptr) {
      is_last_ = true;
    } else {
      behind_ += static_cast<std::size_t>(static_cast<const char *>(found) - rest.data()) + needle.size();
      ++current_;
    }
  }
  return current_ >= n;
}

}  // namespace tavo
