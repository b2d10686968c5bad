// A change of a fault, in as little memory as it takes: one block, which all who keep the change share. With thousands
// of faults, strings and pointers of their own would take three times as much.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

namespace tavo {

struct FaultKey {
  std::uint32_t class_code;
  std::uint32_t index;
  auto operator<=>(const FaultKey &) const = default;
};

// One change, and how the fault was afterwards. Times are seconds since 1970.
struct FaultChangeFields {
  enum Kind : std::uint8_t {
    Raised = 1,
    Updated = 2,
    Cleared = 3,
    Vanished = 4,  // was not in the fault engine's list when that was loaded again
  };
  std::uint32_t number;
  std::uint32_t time;  // until 2106
  FaultKey fault;
  std::uint32_t severity;  // 0 if the fault is not active any more
  std::int32_t code;
  std::int32_t cause;
  std::int32_t first_time;
  std::int32_t last_time;
  Kind kind;
  bool notified;  // a notification tells of it
  std::uint8_t occurrences;
};

class FaultChangePtr;

// Its texts follow it in its block, each with a NUL.
class FaultChange : public FaultChangeFields {
 public:
  // Throws std::bad_alloc. A NUL ends a text.
  static FaultChangePtr create(const FaultChangeFields &fields, std::string_view affected_object,
                               std::string_view description);
  FaultChange(const FaultChange &) = delete;
  FaultChange &operator=(const FaultChange &) = delete;

  std::string_view affected_object() const {
    return texts();
  }  // without the serial number that notifications may carry
  std::string_view description() const { return texts() + affected_object().size() + 1; }

 private:
  friend class FaultChangePtr;

  explicit FaultChange(const FaultChangeFields &fields) : FaultChangeFields(fields) {}
  ~FaultChange() = default;
  const char *texts() const { return reinterpret_cast<const char *>(this + 1); }

  mutable std::atomic<std::uint32_t> owners_ = 0;
};

// Shares a change, which goes with the last pointer to it. Any thread may copy and drop its own.
class FaultChangePtr {
 public:
  FaultChangePtr() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): as null pointers are
  FaultChangePtr(std::nullptr_t) {}
  FaultChangePtr(const FaultChangePtr &other);
  FaultChangePtr(FaultChangePtr &&other) noexcept : change_(std::exchange(other.change_, nullptr)) {}
  FaultChangePtr &operator=(FaultChangePtr other) noexcept;
  ~FaultChangePtr();

  explicit operator bool() const { return change_ != nullptr; }
  const FaultChange &operator*() const { return *change_; }
  const FaultChange *operator->() const { return change_; }
  bool operator==(const FaultChangePtr &) const = default;

 private:
  friend class FaultChange;
  explicit FaultChangePtr(const FaultChange *change);

  const FaultChange *change_ = nullptr;
};

}  // namespace tavo
