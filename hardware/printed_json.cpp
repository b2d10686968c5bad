#include "hardware/printed_json.h"

namespace tavo::service {

using nlohmann::json;

json parse_printed(std::string_view text) {
  constexpr int deepest = 32;
  const auto is_within = [](int depth, json::parse_event_t, const json &) { return depth <= deepest; };
  return json::parse(text, is_within, false);
}

const json *find_printed(const json &object, std::initializer_list<const char *> path) {
  const json *at = &object;
  for (const char *name : path) {
    if (!at->is_object() || !at->contains(name)) {
      return nullptr;
    }
    at = &at->at(name);
  }
  return at;
}

std::string printed_text(const json &object, std::initializer_list<const char *> path) {
  const json *found = find_printed(object, path);
  return found != nullptr && found->is_string() ? found->get<std::string>() : "";
}

}  // namespace tavo::service
