#include "threads/cmc_settings.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/text.h"

namespace tavo {
namespace {

bool take_address(std::string_view text, in_addr &address) {
  return inet_pton(AF_INET, std::string(text).c_str(), &address) == 1;
}

bool take_peers(std::string_view list, CmcSettings &settings) {
  while (true) {
    const std::size_t comma = list.find(',');
    in_addr peer = {};
    if (!take_address(list.substr(0, comma), peer)) {
      return false;
    }
    settings.peers.push_back(peer.s_addr);
    if (comma == std::string_view::npos) {
      return true;
    }
    list.remove_prefix(comma + 1);
  }
}

bool take_idle_limit(std::string_view text, CmcSettings &settings) {
  const auto seconds = take_number(text);
  settings.idle_limit = seconds.value_or(-1);
  return settings.idle_limit >= 0 && text.empty();
}

struct Setting {
  const char *name;
  bool (*take)(std::string_view text, CmcSettings &settings);
};

constexpr Setting known_settings[] = {
    {.name = "TAVO_CHASSIS_LISTEN",
     .take = [](std::string_view text, CmcSettings &settings) { return take_address(text, settings.address); }},
    {.name = "TAVO_CHASSIS_PEERS", .take = take_peers},
    {.name = "TAVO_CHASSIS_IDLE_LIMIT", .take = take_idle_limit},
};

}  // namespace

bool CmcSettings::admits(in_addr peer) const {
  return peers.empty() || std::ranges::count(peers, peer.s_addr) > 0;
}

std::optional<CmcSettings> read_cmc_settings() {
  CmcSettings settings;
  for (const Setting &setting : known_settings) {
    const char *text = std::getenv(setting.name);
    if (text != nullptr && !setting.take(text, settings)) {
      snmp_log(LOG_ERR, "the chassis link stays closed: %s cannot be understood: %s\n", setting.name, text);
      return std::nullopt;
    }
  }
  return settings;
}

}  // namespace tavo
