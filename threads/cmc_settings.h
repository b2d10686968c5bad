// How the daemon narrows the chassis link. The module's exports are fixed, so the settings come from the environment:
//
//   TAVO_CHASSIS_LISTEN      the one IPv4 address to listen on; unset: all addresses
//   TAVO_CHASSIS_PEERS       the IPv4 addresses that may connect, separated by commas; unset: all
//   TAVO_CHASSIS_IDLE_LIMIT  seconds after which a peer that neither asks nor reads is closed; unset or 0: never
#pragma once

#include <netinet/in.h>

#include "core/array.h"

namespace tavo {

struct CmcSettings {
  in_addr address = {.s_addr = htonl(INADDR_ANY)};
  Array<in_addr_t> peers;  // in network byte order; empty: anybody
  int idle_limit = 0;      // seconds; 0: none

  CmcSettings() = default;
  CmcSettings(const CmcSettings &) = delete;
  CmcSettings &operator=(const CmcSettings &) = delete;
  ~CmcSettings() { peers.release(); }

  // False, and the reason logged, if a setting cannot be used: then the link must stay closed.
  bool read();

  bool admits(in_addr peer) const;
};

}  // namespace tavo
