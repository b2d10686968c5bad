// Files of the kernel that hold one value each.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavo::service {

// What the kernel counts the size of a block device in, in octets, whatever the device's own blocks are.
constexpr std::int64_t block_size = 512;

// The file's text, trimmed; nothing if it cannot be read.
std::optional<std::string> read_attribute(const std::filesystem::path &file);

// The decimal number that the file begins with; nothing if it cannot be read or begins with something else.
std::optional<std::int64_t> read_number(const std::filesystem::path &file);

// Whether the file holds a number other than 0.
bool is_set(const std::filesystem::path &file);

// The entries of a directory whose names begin with `prefix`, those with numbers in the order of the numbers. Empty if
// it cannot be read.
std::vector<std::filesystem::path> entries(const std::filesystem::path &directory, std::string_view prefix = "");

}  // namespace tavo::service
