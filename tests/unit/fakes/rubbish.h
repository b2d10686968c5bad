// What a platform tool gone wrong prints.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace fakes {

struct Rubbish {
  const char *name;
  std::string (*output)();  // made only by the test that wants it: every test's process has them all
};

inline void PrintTo(const Rubbish &rubbish, std::ostream *out) {
  *out << rubbish.name;
}

// For testing::ValuesIn; rubbish_name makes the tests' names.
inline std::vector<Rubbish> every_rubbish() {
  return {{.name = "Nothing", .output = [] { return std::string(); }},
          {.name = "ALineWithoutItsNewline", .output = [] { return std::string("77"); }},
          {.name = "AMebibyteInOneLine", .output = [] { return std::string(std::size_t{1} << 20, '7') + '\n'; }},
          {.name = "Nuls", .output = [] { return std::string(4096, '\0') + '\n'; }}};
}

template <class TestInfo>
std::string rubbish_name(const TestInfo &test) {
  return test.param.name;
}

}  // namespace fakes
