#include "hardware/same_error.h"

#include "core/class_number.h"

namespace tavo::service {
namespace {

bool is_vague(const Trouble &trouble) {
  return trouble.class_code == class_number::server;
}

bool are_same(const Trouble &one, const Trouble &other) {
  const bool same_part = one.class_code == other.class_code && one.unit == other.unit;
  return !one.error.empty() && one.error == other.error && one.source != other.source &&
         (same_part || is_vague(one) || is_vague(other));
}

}  // namespace

std::map<std::string, std::string> told_by_others(const std::vector<Trouble> &troubles,
                                                  const std::function<bool(const std::string &key)> &is_fault) {
  std::map<std::string, std::string> told;
  for (std::size_t i = 0; i < troubles.size(); ++i) {
    for (std::size_t j = i + 1; j < troubles.size(); ++j) {
      const Trouble *counts = &troubles[i];
      const Trouble *other = &troubles[j];
      if (!are_same(*counts, *other)) {
        continue;
      }
      const bool other_tells_more = is_vague(*counts) && !is_vague(*other);
      const bool is_equal = is_vague(*counts) == is_vague(*other);
      if (other_tells_more || (is_equal && !is_fault(counts->key) && is_fault(other->key))) {
        std::swap(counts, other);
      }
      if (!told.contains(counts->key)) {
        told.emplace(other->key, counts->key);
      }
    }
  }
  return told;
}

}  // namespace tavo::service
