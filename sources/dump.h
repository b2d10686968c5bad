// Reader of the dumps that the platform's query tool leaves in files: one field a line, as a blank, the name, a colon,
// a blank and the value; the fields of several units follow each other, unit after unit.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "core/descriptor.h"

namespace tavo {

// The text that stands before a value. Field lines are indented, so it begins with a blank.
class Needle {
 public:
  Needle() = default;
  // A blank, the key and what separates it from its value. A needle of more than 255 octets is found nowhere.
  Needle(std::string_view key, std::string_view separator) : Needle(" ", key, separator) {}
  // The same without the blank, for the one dump that is not indented.
  static Needle without_blank(std::string_view key, std::string_view separator) { return {"", key, separator}; }

  std::string_view text() const { return {text_.data(), size_}; }

 private:
  Needle(std::string_view blank, std::string_view key, std::string_view separator);

  std::array<char, 255> text_{};
  std::size_t size_ = 0;
};

// Octets of a value with its NUL: values are cut off at 127.
inline constexpr std::size_t dump_value_size = 128;

// One dump file, opened once for all lookups of a table build.
//
// Occurrences of a needle are counted from 1 and do not overlap: each search goes on right behind the match before it.
// A value is what stands behind an occurrence, up to the end of the line. A line that the tool has not ended is a line
// that it has not finished, so without a newline behind it a value is not there.
//
// The file is read through a fixed window and never mapped: the tool may truncate it meanwhile, which would kill a
// process that reads a mapping, and a tool gone wild may write more than a controller has memory. What stood in the
// file when it was opened is the most that is read of it; if it shrinks, it ends earlier. NULs are ordinary octets.
//
// For each of the last needles the reader remembers how far it has come, so that a build that asks for occurrence 1, 2,
// 3, ... of a few needles in turn reads the file once, not once for each unit.
//
// For one thread at a time.
class Dump {
 public:
  // Opens a dump. Only a regular file with something in it is one.
  explicit Dump(const char *path);
  Dump(const Dump &) = delete;
  Dump &operator=(const Dump &) = delete;

  bool opened() const { return static_cast<bool>(file_); }

  // How many occurrences there are, with values or without. 0 when nothing is opened, as for all lookups.
  int count(const Needle &needle);

  // Writes the value behind occurrence `n` and a NUL to `out`, which holds dump_value_size octets. With `n` 0 or less
  // the value is what the file begins with. False, and `out` left alone, when the occurrence or its newline is missing.
  bool value(const Needle &needle, int n, char *out);

  // The sum of all values read as decimal numbers; a value that is none counts 0. An occurrence without a newline ends
  // the sum. Numbers and sum are kept within 32 bits.
  std::int32_t sum(const Needle &needle);

 private:
  // The newline found last: at `at` (past the end when there is none), with no other between `from` and it.
  struct Line {
    std::uint64_t from = 1;
    std::uint64_t at = 0;
  };

  // How far the search for a needle has come.
  struct Cursor {
    Needle needle;
    int found = 0;
    std::uint64_t behind = 0;  // where the last occurrence ends
    bool exhausted = false;    // there are no more than `found`
    Line line;
  };

  Cursor &cursor_for(const Needle &needle);
  // Where the first occurrence at or after `from` ends.
  std::optional<std::uint64_t> find(const Needle &needle, std::uint64_t from);
  // Where the first newline at or after `from` stands.
  std::optional<std::uint64_t> find_newline(Line &line, std::uint64_t from);
  void copy_value(std::uint64_t from, std::uint64_t newline, char *out);
  // The octets from `position` on: at least `wanted`, which fits the window, unless the file ends before.
  std::string_view octets_at(std::uint64_t position, std::size_t wanted);

  Descriptor file_;
  std::uint64_t size_ = 0;
  std::array<Cursor, 8> cursors_;
  std::size_t next_cursor_ = 0;  // the one to reuse for a new needle
  std::uint64_t window_start_ = 0;
  std::size_t window_size_ = 0;
  std::array<char, 16384> window_;
};

}  // namespace tavo
