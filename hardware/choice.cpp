#include "hardware/choice.h"

#include <algorithm>
#include <array>
#include <string>

namespace tavo::service {
namespace {

// Who tells of a topic, the best first. Unused places are empty.
struct Preference {
  Topic topic;
  std::array<std::string_view, 3> sources;
};

// The controller names fans and supplies as the chassis does, and knows their limits. The kernel's drivers read a
// processor and the server's power meter themselves, and more often.
constexpr auto preferences =
    std::to_array<Preference>({{.topic = Topic::Fans, .sources = {"IPMI", "hwmon"}},
                               {.topic = Topic::ProcessorTemperatures, .sources = {"hwmon", "IPMI", "thermal"}},
                               {.topic = Topic::ProcessorHeat, .sources = {"hwmon", "IPMI"}},
                               {.topic = Topic::Power, .sources = {"hwmon", "IPMI"}},
                               {.topic = Topic::Supplies, .sources = {"IPMI", "hwmon"}}});

struct Chosen {
  std::string_view source;
  const Account *account = nullptr;         // null: nobody's
  std::vector<std::string_view> waiting{};  // sources whose turn it may be
};

const Account *account_of(const Word &word, Topic topic) {
  if (!word.finding) {
    return nullptr;
  }
  const auto found = word.finding->accounts.find(topic);
  return found != word.finding->accounts.end() ? &found->second : nullptr;
}

bool is_awaited(const Word &word, Topic topic) {
  return word.finding ? word.finding->awaited.contains(topic) : word.is_awaited;
}

// A vague account counts if there is no better one.
Chosen choose(const Preference &preference, const std::vector<Word> &words) {
  Chosen chosen;
  bool is_open = false;
  for (const std::string_view source : preference.sources) {
    const auto word = std::ranges::find(words, source, &Word::source);
    if (word == words.end()) {
      continue;
    }
    if (is_open) {
      chosen.waiting.push_back(source);
      continue;
    }
    is_open = is_awaited(*word, preference.topic);
    const Account *account = account_of(*word, preference.topic);
    if (account != nullptr && (chosen.account == nullptr || (chosen.account->is_vague && !account->is_vague))) {
      chosen.source = source;
      chosen.account = account;
    }
    // What the rest may still say changes nothing.
    if (!is_open && chosen.account != nullptr && !chosen.account->is_vague) {
      break;
    }
  }
  if (is_open) {
    chosen.account = nullptr;
  }
  return chosen;
}

void add_troubles(const std::vector<Trouble> &troubles, std::string_view source, Situation &situation) {
  for (Trouble trouble : troubles) {
    trouble.source = source;
    situation.troubles.push_back(std::move(trouble));
  }
}

}  // namespace

void enter_all(Inventory &inventory, const std::vector<Word> &words) {
  for (const Word &word : words) {
    if (word.finding) {
      word.finding->enter(inventory);
    }
  }
  for (const Preference &preference : preferences) {
    if (const Account *account = choose(preference, words).account) {
      account->enter(inventory);
    }
  }
}

Situation situation_of(const std::vector<Word> &words) {
  Situation all;
  for (const Word &word : words) {
    const std::string name(word.source);
    all.undecided[name] = word.finding ? word.finding->undecided : std::vector<std::string>{""};
    if (word.finding) {
      add_troubles(word.finding->troubles, word.source, all);
    }
  }
  for (const Preference &preference : preferences) {
    const Chosen chosen = choose(preference, words);
    if (chosen.account != nullptr) {
      add_troubles(chosen.account->troubles, chosen.source, all);
    }
    for (const std::string_view source : chosen.waiting) {
      all.undecided[std::string(source)] = {""};
    }
  }
  return all;
}

}  // namespace tavo::service
