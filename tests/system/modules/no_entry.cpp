// A shared object that is not a module: it has no init_subagent_modules.
namespace tavo {

extern "C" int something_else() {
  return 0;
}

}  // namespace tavo
