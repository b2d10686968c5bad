// What a command may ask of a server that is real.
#pragma once

#include <cstdint>
#include <string>

namespace tavo::service {

class RealServer {
 public:
  RealServer() = default;
  RealServer(const RealServer &) = delete;
  RealServer &operator=(const RealServer &) = delete;
  virtual ~RealServer() = default;

  // Misses a part no longer that was taken out for good: the "drive" of slot 3. Throws BadInput, which lists the parts
  // that are missing, if this one is not. Thread safe.
  virtual void forget(const std::string &kind, std::int64_t number) = 0;
};

}  // namespace tavo::service
