// The platform library of needs_platform.cpp.
namespace tavo {

extern "C" int tavo_test_platform_answer() {
  return 4711;
}

}  // namespace tavo
