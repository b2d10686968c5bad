// Reader of the dumps that the platform's query tool writes to files: one field a line, as a blank, the name, a colon,
// a blank and the value; the fields of several units follow each other, unit after unit.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/zeroed.h"

namespace tavo {

// The text before a value. Field lines are indented, so it begins with a blank.
class Needle {
 public:
  // A blank, the key and the separator between key and value. A needle of more than 255 octets is never found.
  Needle(const char *key, const char *separator) : Needle(" ", key, separator) {}
  // The same without the blank, for the one dump that is not indented.
  static Needle without_blank(const char *key, const char *separator) { return {"", key, separator}; }

  std::string_view text() const { return {text_.data(), size_}; }

 private:
  Needle(const char *blank, const char *key, const char *separator);

  std::array<char, 255> text_;
  std::size_t size_ = 0;
};

// Octets of a value with its NUL: values are cut at 127.
inline constexpr std::size_t dump_value_size = 128;

// Octets that are read of a dump. A real one has a few thousand; a tool gone wrong may write more than a controller has
// memory.
inline constexpr std::size_t largest_dump = std::size_t{1} << 20;

// Units that a table shows of a dump. A server has some dozens; a tool gone wrong may print a dump full of them, and a
// row takes many times the memory of its line.
inline constexpr int most_units = 1024;

// A dump, read whole when it is opened: what happens to the file afterwards changes nothing. It is not mapped, because
// the tool may truncate the file, which would kill a process that reads the mapping.
//
// Occurrences of a needle are counted from 1 and do not overlap: each search starts right behind the match before it. A
// value is the text from behind an occurrence to the end of the line. Without a newline the tool has not finished the
// line, and there is no value. NULs are ordinary octets.
class Dump {
 public:
  class Search;

  // Holds nothing: no lookup finds anything.
  Dump() = default;
  // Reads a regular file that is not empty; anything else is no dump. A file beyond largest_dump is read up to there,
  // which is logged.
  explicit Dump(const char *path);

  // Whether something was read.
  bool opened() const { return size_ > 0; }

  // The number of occurrences, with or without a value.
  int count(const Needle &needle) const;
  // The same for a needle that stands for a unit, but not more than most_units; more are logged.
  int count_units(const Needle &needle) const;

  // The value of one occurrence; see Search::value. To step through the units of a dump, keep a Search: this reads the
  // dump from the top.
  bool value(const Needle &needle, int n, char *out) const;

  // The sum of all values read as decimal numbers; a value that is not a number counts 0. An occurrence without a
  // newline ends the sum. Numbers and sum are kept within 32 bits.
  std::int32_t sum(const Needle &needle) const;

 private:
  std::string_view text() const { return {reinterpret_cast<const char *>(octets_.get()), size_}; }

  Zeroed<std::byte[]> octets_;
  std::size_t size_ = 0;
};

// Looks up one needle's values in a dump and remembers how far it has come: who asks for occurrence 1, 2, 3, ... reads
// the dump once, not once for each unit. Must not outlive the dump's text.
class Dump::Search {
 public:
  Search(const Dump &dump, const Needle &needle);
  Search(const Dump &dump, const char *key, const char *separator);
  Search(Dump &&dump, const Needle &needle) = delete;
  Search(Dump &&dump, const char *key, const char *separator) = delete;

  // Writes the value behind occurrence `n` and a NUL to `out`, which holds `size` octets; what does not fit is cut off.
  // With `n` 0 or less the value is the dump's first line. False, and `out` left alone, when the occurrence or its
  // newline is missing.
  bool value(int n, char *out, std::size_t size = dump_value_size);

 private:
  friend class Dump;

  void restart();
  // Makes `n` the current occurrence. False when there are fewer.
  bool advance_to(int n);

  std::string_view text_;
  Needle needle_;
  int current_ = 0;         // the current occurrence; 0: the top of the dump
  std::size_t behind_ = 0;  // where it ends
  bool is_last_ = false;
  std::size_t newline_ = 0;  // the first one behind an occurrence up to the current one; npos when there is none
};

}  // namespace tavo
