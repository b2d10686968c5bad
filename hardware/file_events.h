// Word from the kernel that one of its files reads differently now.
#pragma once

#include <filesystem>

#include "core/descriptor.h"
#include "hardware/descriptor_set.h"

namespace tavo::service {

class FileEvents {
 public:
  // A file that is not there yet is tried again each time that events are taken.
  explicit FileEvents(std::filesystem::path file);

  // Readable from a change on until the events are taken; negative: the kernel does not tell of changes of this file.
  int descriptor() const { return events_.descriptor(); }
  void take();

 private:
  const std::filesystem::path path_;
  Descriptor file_;
  DescriptorSet events_;  // such a file can be read at all times, and a change is something else
};

}  // namespace tavo::service
