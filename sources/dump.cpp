#include "sources/dump.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace tavo {

Needle::Needle(std::string_view blank, std::string_view key, std::string_view separator) {
  if (blank.size() + key.size() + separator.size() > text_.size()) {
    return;
  }
  for (const std::string_view part : {blank, key, separator}) {
    part.copy(text_.data() + size_, part.size());
    size_ += part.size();
  }
}

Dump::Dump(const char *path) {
  Descriptor file = open_for_reading(path);
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size <= 0) {
    return;
  }
  file_ = std::move(file);
  size_ = static_cast<std::uint64_t>(status.st_size);
}

int Dump::count(const Needle &needle) {
  int occurrences = 0;
  std::uint64_t behind = 0;
  while (const auto found = find(needle, behind)) {
    behind = *found;
    if (++occurrences == INT_MAX) {
      break;
    }
  }
  return occurrences;
}

bool Dump::value(const Needle &needle, int n, char *out) {
  Cursor &cursor = cursor_for(needle);
  const int wanted = std::max(n, 0);
  if (wanted < cursor.found) {
    cursor.found = 0;
    cursor.behind = 0;
    cursor.exhausted = false;
  }
  while (cursor.found < wanted && !cursor.exhausted) {
    if (const auto found = find(needle, cursor.behind)) {
      cursor.behind = *found;
      ++cursor.found;
    } else {
      cursor.exhausted = true;
    }
  }
  if (cursor.found < wanted) {
    return false;
  }
  const auto newline = find_newline(cursor.line, cursor.behind);
  if (!newline) {
    return false;
  }
  copy_value(cursor.behind, *newline, out);
  return true;
}

std::int32_t Dump::sum(const Needle &needle) {
  const auto within_32_bits = [](auto number) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(number, INT32_MIN, INT32_MAX));
  };
  std::int32_t sum = 0;
  std::uint64_t behind = 0;
  Line line;
  while (const auto found = find(needle, behind)) {
    behind = *found;
    const auto newline = find_newline(line, behind);
    if (!newline) {
      break;
    }
    char value[dump_value_size];
    copy_value(behind, *newline, value);
    sum = within_32_bits(std::int64_t{sum} + within_32_bits(std::strtol(value, nullptr, 10)));
  }
  return sum;
}

Dump::Cursor &Dump::cursor_for(const Needle &needle) {
  for (Cursor &cursor : cursors_) {
    if (cursor.needle.text() == needle.text()) {
      return cursor;
    }
  }
  Cursor &reused = cursors_[next_cursor_];
  next_cursor_ = (next_cursor_ + 1) % cursors_.size();
  reused = {};
  reused.needle = needle;
  return reused;
}

std::optional<std::uint64_t> Dump::find(const Needle &needle, std::uint64_t from) {
  const std::string_view text = needle.text();
  if (text.empty()) {
    return std::nullopt;
  }
  while (true) {
    const std::string_view octets = octets_at(from, text.size());
    if (octets.size() < text.size()) {
      return std::nullopt;
    }
    // Not string_view::find, which takes the product of both lengths for a file of blanks.
    if (const void *found = ::memmem(octets.data(), octets.size(), text.data(), text.size())) {
      return from + static_cast<std::uint64_t>(static_cast<const char *>(found) - octets.data()) + text.size();
    }
    from += octets.size() - (text.size() - 1);
  }
}

std::optional<std::uint64_t> Dump::find_newline(Line &line, std::uint64_t from) {
  if (from < line.from || from > line.at) {
    std::uint64_t at = from;
    while (true) {
      const std::string_view octets = octets_at(at, 1);
      if (octets.empty()) {
        at = size_;
        break;
      }
      if (const std::size_t newline = octets.find('\n'); newline != std::string_view::npos) {
        at += newline;
        break;
      }
      at += octets.size();
    }
    line = {.from = from, .at = at};
  }
  return line.at < size_ ? std::optional(line.at) : std::nullopt;
}

void Dump::copy_value(std::uint64_t from, std::uint64_t newline, char *out) {
  const std::size_t length = std::min<std::uint64_t>(newline - from, dump_value_size - 1);
  const std::size_t copied = octets_at(from, length).copy(out, length);
  out[copied] = '\0';
}

std::string_view Dump::octets_at(std::uint64_t position, std::size_t wanted) {
  if (position >= size_) {
    return {};
  }
  const std::size_t available = std::min<std::uint64_t>(wanted, size_ - position);
  if (position < window_start_ || position + available > window_start_ + window_size_) {
    window_start_ = position;
    window_size_ = 0;
    const std::size_t most = std::min<std::uint64_t>(window_.size(), size_ - position);
    while (window_size_ < most) {
      const ssize_t got = ::pread(file_.get(), window_.data() + window_size_, most - window_size_,
                                  static_cast<off_t>(position + window_size_));
      if (got < 0 && errno == EINTR) {
        continue;
      }
      if (got <= 0) {  // truncated since it was opened, or unreadable
        size_ = position + window_size_;
        break;
      }
      window_size_ += static_cast<std::size_t>(got);
    }
  }
  return std::string_view(window_.data(), window_size_).substr(position - window_start_);
}

}  // namespace tavo
