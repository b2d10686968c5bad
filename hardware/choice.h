// Whose word counts where several sources tell of the same things.
//
// A fan that the management controller and a driver of the kernel both know is one fan, and no source can tell which of
// the other's it is. So all that is shown of a topic comes from one source. As long as a source that goes before others
// may still tell of a topic, nobody is chosen: what the next one says would be taken back a moment later.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "hardware/fault_keeper.h"
#include "hardware/source.h"

namespace tavo::service {

// A source, and what it has found.
struct Word {
  std::string_view source;
  std::shared_ptr<const Finding> finding = {};  // null: nothing
  bool is_awaited = false;                      // its first reading goes on
};

// Enters everything that the sources have found, in their order, and one account of each topic.
void enter_all(Inventory &inventory, const std::vector<Word> &words);

// What is wrong by the findings and the accounts that count. The faults of sources whose turn may come are undecided.
Situation situation_of(const std::vector<Word> &words);

}  // namespace tavo::service
