// JSON that a tool has printed. It may be anything.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tavo::service {

// No object if the text is no JSON. What is nested more deeply than any tool does is left out.
nlohmann::json parse_printed(std::string_view text);

// What is in an object in an object, by these names; null if it is not there, or something on the way is no object.
const nlohmann::json *find_printed(const nlohmann::json &object, std::initializer_list<const char *> path);

// The text there; empty if there is none.
std::string printed_text(const nlohmann::json &object, std::initializer_list<const char *> path);

}  // namespace tavo::service
