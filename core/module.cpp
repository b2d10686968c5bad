#include "core/module.h"

int init_subagent_modules(void) {
  return 0;
}
