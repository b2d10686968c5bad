// Conversions of single texts and numbers.
#include <array>
#include <cstring>
#include <ctime>
#include <string>

#include "core/conversions.h"
#include "core/shell.h"
#include "core/text.h"
#include "fuzz/harness/platform.h"
#include "sources/data_query.h"
#include "sources/readings.h"

namespace tavo::fuzz {
namespace {

void take_apart(std::string_view text) {
  for (std::size_t before = text.size() + 1; text.size() < before && !text.empty();) {
    before = text.size();
    take_number(text);
    take_word(text);
  }
}

void convert_time(std::time_t seconds, std::size_t room) {
  std::array<unsigned char, 16> octets = {};
  std::size_t length = room;
  if (convert_evsd_sel_time_to_snmp_time(&seconds, octets.data(), &length) == 0 && room >= 8) {
    expect(length == 8, "a time has 8 octets");
  }
}

}  // namespace

void try_input(Octets input) {
  Platform platform(input);
  FuzzedDataProvider &answers = platform.answers;
  convert_time(answers.ConsumeIntegral<std::time_t>(), answers.ConsumeIntegralInRange<std::size_t>(0, 16));
  const auto number = answers.ConsumeIntegral<std::uint64_t>();
  expect(htonll(number) == htonll(number & 0xFFFFFFFFF), "only the low 36 bits count");
  const EnumText names[] = {{.text = "one", .value = 1}, {.text = nullptr, .value = 0}};
  enum_value(answers.ConsumeIntegral<int>(), names);

  const std::string text = answers.ConsumeRandomLengthString();
  take_apart(text);
  whole_reading(text.c_str());
  CollectionTime collected = {};
  take_collection_time(text.c_str(), collected);
  expect(memchr(collected, 0, sizeof collected) != nullptr, "a collection time ends");

  platform.printed = {text, answers.ConsumeRemainingBytesAsString()};
  char line[longest_query_line];
  query_value("fru", "Product Serial", ": ", line);
  query_counted_value(text.c_str(), "key", ": ", line);
  query_value(text.c_str(), text.c_str(), " ", line);
  expect(format_text(line, "%s", text.c_str()) == (std::strlen(text.c_str()) < sizeof line), "a cut text is reported");
}

}  // namespace tavo::fuzz
