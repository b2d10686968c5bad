#include "sources/fan_state.h"

namespace tavo {

static_assert(sizeof sys_fan_prs == 14 && sizeof sys_fan_sev == 14 && sizeof ps_fan_sev == 4);

constinit FanOctets<14> sys_fan_prs = {};
constinit FanOctets<14> sys_fan_sev = {};
constinit FanOctets<4> ps_fan_sev = {};

}  // namespace tavo
