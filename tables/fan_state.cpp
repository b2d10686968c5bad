#include "tables/fan_state.h"

static_assert(sizeof sys_fan_prs == 14 && sizeof sys_fan_sev == 14 && sizeof ps_fan_sev == 4);

constinit tavo::FanOctets<14> sys_fan_prs = {};
constinit tavo::FanOctets<14> sys_fan_sev = {};
constinit tavo::FanOctets<4> ps_fan_sev = {};
