// Does nothing: what a daemon takes with it is the daemon's own.
extern "C" __attribute__((visibility("default"))) int init_subagent_modules() {
  return 0;
}
