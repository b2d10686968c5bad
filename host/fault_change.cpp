#include "host/fault_change.h"

#include <algorithm>
#include <new>

namespace tavo {
namespace {

// `text` up to its first NUL, with one. Returns what follows it.
char *put_text(char *to, std::string_view text) {
  char *const end = std::ranges::copy(text, to).out;
  *end = '\0';
  return end + 1;
}

std::string_view until_nul(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

}  // namespace

FaultChangePtr FaultChange::create(const FaultChangeFields &fields, std::string_view affected_object,
                                   std::string_view description) {
  affected_object = until_nul(affected_object);
  description = until_nul(description);
  void *const block = ::operator new(sizeof(FaultChange) + affected_object.size() + 1 + description.size() + 1);
  const FaultChangePtr change(new (block) FaultChange(fields));
  put_text(put_text(static_cast<char *>(block) + sizeof(FaultChange), affected_object), description);
  return change;
}

FaultChangePtr::FaultChangePtr(const FaultChange *change) : change_(change) {
  if (change_ != nullptr) {
    change_->owners_.fetch_add(1, std::memory_order_relaxed);
  }
}

FaultChangePtr::FaultChangePtr(const FaultChangePtr &other) : FaultChangePtr(other.change_) {}

FaultChangePtr &FaultChangePtr::operator=(FaultChangePtr other) noexcept {
  std::swap(change_, other.change_);
  return *this;
}

FaultChangePtr::~FaultChangePtr() {
  if (change_ != nullptr && change_->owners_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    change_->~FaultChange();
    ::operator delete(const_cast<FaultChange *>(change_));
  }
}

}  // namespace tavo
