#include "service/replaced_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "core/descriptor.h"

namespace tavo::service {

void replace_file(const std::filesystem::path &path, std::span<const std::byte> content) {
  const std::filesystem::path fresh = path.string() + ".new";
  const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  while (file && !content.empty()) {
    const ssize_t written = write(file.get(), content.data(), content.size());
    if (written < 0) {
      throw std::system_error(errno, std::generic_category(), fresh.string());
    }
    content = content.subspan(static_cast<std::size_t>(written));
  }
  if (!file || rename(fresh.c_str(), path.c_str()) != 0) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
}

}  // namespace tavo::service
