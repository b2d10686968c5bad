#include "hardware/file_events.h"

#include <array>

namespace tavo::service {

FileEvents::FileEvents(std::filesystem::path file) : path_(std::move(file)) {
  take();
}

void FileEvents::take() {
  if (!file_) {
    file_ = open_for_reading(path_.c_str());
    events_.add(file_.get(), EPOLLPRI);
  }
  // Reading from the start on is what tells the kernel that the change is known.
  std::array<std::byte, 4096> content{};
  if (file_ && lseek(file_.get(), 0, SEEK_SET) == 0) {
    read_up_to(file_, content);
  }
}

}  // namespace tavo::service
