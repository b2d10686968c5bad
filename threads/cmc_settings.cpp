#include "threads/cmc_settings.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "core/text.h"

namespace tavo {
namespace {

// `text`: an address, which may have a comma behind it.
bool take_address(std::string_view text, in_addr &address) {
  char alone[INET_ADDRSTRLEN];
  const std::size_t length = std::min(text.find(','), text.size());
  return copy_text(alone, {text.data(), length}) == length && inet_pton(AF_INET, alone, &address) == 1;
}

// What keeps a setting from being used, as the log says it. Null if nothing does.
using Obstacle = const char *;
constexpr Obstacle not_understood = "cannot be understood";
constexpr Obstacle no_memory = "finds no memory";

Obstacle take_one_address(std::string_view text, CmcSettings &settings) {
  const bool is_one = text.find(',') == std::string_view::npos && take_address(text, settings.address);
  return is_one ? nullptr : not_understood;
}

Obstacle take_peers(std::string_view list, CmcSettings &settings) {
  while (true) {
    in_addr peer = {};
    if (!take_address(list, peer)) {
      return not_understood;
    }
    if (!settings.peers.push(peer.s_addr)) {
      return no_memory;
    }
    const std::size_t comma = list.find(',');
    if (comma == std::string_view::npos) {
      return nullptr;
    }
    list.remove_prefix(comma + 1);
  }
}

Obstacle take_idle_limit(std::string_view text, CmcSettings &settings) {
  const auto seconds = take_number(text);
  settings.idle_limit = seconds.value_or(-1);
  return settings.idle_limit >= 0 && text.empty() ? nullptr : not_understood;
}

struct Setting {
  const char *name;
  Obstacle (*take)(std::string_view text, CmcSettings &settings);
};

constexpr Setting known_settings[] = {
    {.name = "TAVO_CHASSIS_LISTEN", .take = take_one_address},
    {.name = "TAVO_CHASSIS_PEERS", .take = take_peers},
    {.name = "TAVO_CHASSIS_IDLE_LIMIT", .take = take_idle_limit},
};

}  // namespace

bool CmcSettings::admits(in_addr peer) const {
  return peers.empty() || std::ranges::count(peers.items(), peer.s_addr) > 0;
}

bool CmcSettings::read() {
  for (const Setting &setting : known_settings) {
    const char *text = std::getenv(setting.name);
    const Obstacle obstacle = text == nullptr ? nullptr : setting.take(text, *this);
    if (obstacle != nullptr) {
      snmp_log(LOG_ERR, "the chassis link stays closed: %s %s: %s\n", setting.name, obstacle, text);
      return false;
    }
  }
  return true;
}

}  // namespace tavo
