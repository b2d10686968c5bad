#include "hardware/leds.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "hardware/set_line.h"
#include "hardware/sysfs.h"

namespace tavo::service {
namespace {

namespace fs = std::filesystem;

// The last word of an LED's name in the kernel, and the name by which the tables and others know it.
struct Function {
  std::string_view word;
  std::string_view led;
};
constexpr auto functions = std::to_array<Function>({{.word = "identify", .led = "LED_LOCATE"},
                                                    {.word = "locate", .led = "LED_LOCATE"},
                                                    {.word = "health", .led = "LED_HLTH_STATUS"},
                                                    {.word = "fault", .led = "LED_HLTH_STATUS"}});

constexpr auto colors =
    std::to_array<std::string_view>({"red", "green", "amber", "blue", "white", "yellow", "orange", "violet"});

// "chassis:amber:fault", "amber:fault" or "fault".
std::vector<std::string> words_of(const std::string &name) {
  std::vector<std::string> words(1);
  for (const char c : name) {
    if (c == ':') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

std::string color_of(const std::vector<std::string> &words) {
  for (std::string word : words) {
    if (std::ranges::find(colors, word) != colors.end()) {
      std::ranges::transform(word, word.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
      return word;
    }
  }
  return "";
}

// The kernel marks the trigger that is in use with brackets. Two of them make an LED blink.
std::string state_of(const fs::path &led) {
  const std::string triggers = read_attribute(led / "trigger").value_or("");
  if (triggers.find("[timer]") != std::string::npos || triggers.find("[pattern]") != std::string::npos) {
    constexpr std::int64_t slow = 500;  // ms
    return read_number(led / "delay_on").value_or(slow) >= slow ? "SLOW BLINK" : "FAST BLINK";
  }
  return read_number(led / "brightness").value_or(0) > 0 ? "ON" : "OFF";
}

bool is_known(const std::vector<Part> &leds, std::string_view name) {
  return std::ranges::any_of(leds, [&](const Part &led) { return led.text("name") == name; });
}

}  // namespace

Finding LedSource::read() {
  std::vector<Part> leds;
  const std::vector<fs::path> all = entries(roots_.sys / "class/leds");
  // In the order of the functions: the health LED must not come first, because its reader looks one further.
  for (const Function &function : functions) {
    for (const fs::path &led : all) {
      const std::vector<std::string> words = words_of(led.filename());
      if (words.back() == function.word && !is_known(leds, function.led)) {
        Part &part = leds.emplace_back(led_kind);
        set_line(part, "name", function.led);
        set_line(part, "state", state_of(led));
        set_line(part, "color", color_of(words));
      }
    }
  }
  Finding finding;
  finding.enter = [leds](Inventory &inventory) {
    for (const Part &led : leds) {
      // The management controller may have told of the same one.
      if (!is_known(inventory.leds, led.text("name"))) {
        inventory.leds.push_back(led);
      }
    }
  };
  return finding;
}

}  // namespace tavo::service
