// The platform library that needs_platform.cpp asks for.
extern "C" int tavo_test_platform_answer() {
  return 4711;
}
