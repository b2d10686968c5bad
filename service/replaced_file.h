// Files that are replaced as a whole: a reader sees the old one or the new one, and never a part of either.
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>

namespace tavo::service {

// Throws std::system_error, which names the file.
void replace_file(const std::filesystem::path &path, std::span<const std::byte> content);

}  // namespace tavo::service
