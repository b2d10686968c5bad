// A file descriptor that closes itself.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <span>
#include <utility>

namespace tavo {

class Descriptor {
 public:
  Descriptor() = default;
  // Takes ownership of `descriptor`; a negative one means none.
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() {
    if (descriptor_ >= 0) {
      ::close(descriptor_);
    }
  }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  // Gives up ownership.
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

// Opens a file for reading, close-on-exec, without waiting for the writer of a FIFO.
inline Descriptor open_for_reading(const char *path) {
  return Descriptor(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

// read(), repeated if a signal interrupts it.
inline ssize_t read_some(const Descriptor &file, std::span<std::byte> to) {
  ssize_t got;
  do {
    got = ::read(file.get(), to.data(), to.size());
  } while (got < 0 && errno == EINTR);
  return got;
}

// Reads until `to` is full, the file ends or a read fails. The number of octets read.
inline std::size_t read_up_to(const Descriptor &file, std::span<std::byte> to) {
  std::size_t filled = 0;
  while (filled < to.size()) {
    const ssize_t got = read_some(file, to.subspan(filled));
    if (got <= 0) {
      break;
    }
    filled += static_cast<std::size_t>(got);
  }
  return filled;
}

// Reads the beginning of a file into `to`. The number of octets read; -1 if the file cannot be opened or read.
inline ssize_t read_beginning(const char *path, std::span<std::byte> to) {
  const Descriptor file = open_for_reading(path);
  return file ? read_some(file, to) : -1;
}

}  // namespace tavo
