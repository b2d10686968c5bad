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
  // Takes over `descriptor`; a negative one stands for none.
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
  // Hands the descriptor over to the caller.
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

// Opens a file for reading: closed in every tool that the module starts, and without waiting for the writer of a pipe.
inline Descriptor open_for_reading(const char *path) {
  return Descriptor(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

// read(), which a signal does not interrupt.
inline ssize_t read_some(const Descriptor &file, std::span<std::byte> to) {
  ssize_t got;
  do {
    got = ::read(file.get(), to.data(), to.size());
  } while (got < 0 && errno == EINTR);
  return got;
}

// Reads on until `to` is full, the file ends or a read fails. How many octets were read.
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

// Reads the octets that a file begins with, as many as `to` holds. How many there were; -1 when the file cannot be
// opened or read.
inline ssize_t read_beginning(const char *path, std::span<std::byte> to) {
  const Descriptor file = open_for_reading(path);
  return file ? read_some(file, to) : -1;
}

}  // namespace tavo
