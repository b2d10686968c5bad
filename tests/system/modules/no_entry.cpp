// A shared object that is no module: it lacks init_subagent_modules.
extern "C" int something_else() {
  return 0;
}
