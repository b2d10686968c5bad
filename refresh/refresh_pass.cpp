#include "refresh/refresh_pass.h"

#include <unistd.h>

#include <array>

#include "core/access_lock.h"
#include "core/class_number.h"
#include "core/shortage.h"
#include "refresh/storage_reload.h"

namespace tavo {
namespace {

// How one kind of request is served.
struct Request {
  RefreshCause cause;
  int class_number;    // one that sets the cause's mark
  const char *text;    // logged; null: nothing is logged
  unsigned int pause;  // seconds, before the rebuilds
  bool pauses_before_text;
};

constexpr auto requests_in_order = std::to_array<Request>({
    {.cause = RefreshCause::Fans,
     .class_number = class_number::system_fan,
     .text = "FAN refresh requested\n",
     .pause = 10,
     .pauses_before_text = true},
    {.cause = RefreshCause::PowerSupplies,
     .class_number = class_number::power_supply_fan,
     .text = "PSU refresh requested\n",
     .pause = 10,
     .pauses_before_text = false},
    {.cause = RefreshCause::Memory,
     .class_number = class_number::memory,
     .text = "MEM refresh requested\n",
     .pause = 0,
     .pauses_before_text = false},
    {.cause = RefreshCause::Processors,
     .class_number = class_number::processor,
     .text = "CPU refresh requested\n",
     .pause = 0,
     .pauses_before_text = false},
    {.cause = RefreshCause::Storage,
     .class_number = class_number::storage,
     .text = nullptr,
     .pause = 60,
     .pauses_before_text = false},
    {.cause = RefreshCause::Adaptors,
     .class_number = class_number::adaptor,
     .text = "ADAPTOR refresh requested\n",
     .pause = 10,
     .pauses_before_text = false},
});

static_assert(requests_in_order.size() == static_cast<std::size_t>(RefreshCause::Periodic),
              "a request for each cause but Periodic");

void pause(const Request &request) {
  if (request.pause > 0) {
    ::sleep(request.pause);
  }
}

void announce(const Request &request) {
  if (request.pauses_before_text) {
    pause(request);
  }
  if (request.text != nullptr) {
    snmp_log(LOG_DEBUG, "%s", request.text);
  }
  if (!request.pauses_before_text) {
    pause(request);
  }
}

}  // namespace

RefreshRequests RefreshRequests::take() {
  RefreshRequests taken;
  acquire_inventory_lock();
  for (const Request &request : requests_in_order) {
    if (check_inventory_status(request.class_number) != 0) {
      taken.add(request.cause);
    }
  }
  release_inventory_lock();
  return taken;
}

void RefreshPass::serve(const RefreshRequests &requests) {
  for (const Request &request : requests_in_order) {
    if (!requests.has(request.cause)) {
      continue;
    }
    announce(request);
    if (request.cause == RefreshCause::Storage) {
      reinit_stor_table(1);
      look_for_shortage();
    } else {
      rebuild_for(request.cause, 0);
    }
  }
}

void RefreshPass::refresh_periodically(int passes_before) {
  rebuild_for(RefreshCause::Periodic, passes_before);
}

void RefreshPass::rebuild_for(RefreshCause cause, int passes_before) {
  bool is_last_place = false;
  for (int place = 1; !is_last_place; ++place) {
    is_last_place = true;
    for (std::size_t i = 0; i < tables_.size(); ++i) {
      for (const RefreshRule &rule : tables_[i]->description().refresh) {
        if (rule.cause != cause) {
          continue;
        }
        if (rule.place > place) {
          is_last_place = false;
        } else if (rule.place == place && (rule.only_first == 0 || passes_before < rule.only_first)) {
          rebuild(i);
        }
      }
    }
  }
}

void RefreshPass::rebuild_all() {
  for (std::size_t i = 0; i < tables_.size(); ++i) {
    if (tables_[i]->description().source == TableSource::Own && tables_[i]->description().build != nullptr) {
      rebuild(i);
    }
  }
  for (const auto reload : {reinit_stor_table, reinit_velt_table}) {
    reload(1);
    look_for_shortage();
  }
}

void RefreshPass::rebuild(std::size_t position) {
  if (!rebuilt_[position]) {
    rebuilt_[position] = true;
    tables_[position]->build(1);
    look_for_shortage();
  }
}

}  // namespace tavo
