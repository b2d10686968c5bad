#include "sources/dump.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <ctime>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/fakes/allocation.h"
#include "tests/fakes/files.h"
#include "tests/fakes/net_snmp.h"
#include "tests/fakes/searches.h"
#include "tests/fixtures/module_fixture.h"
#include "tests/harness/own_process.h"

namespace tavo {
namespace {

constexpr char path[] = "/var/dump";
const Needle id("id", ": ");
const Needle name("name", ": ");

// The expected answers, found by a plain search of the whole text.
std::vector<std::size_t> occurrences_in(std::string_view text, std::string_view needle) {
  std::vector<std::size_t> behind;
  for (std::size_t at = text.find(needle); at != std::string_view::npos; at = text.find(needle, at + needle.size())) {
    behind.push_back(at + needle.size());
  }
  return behind;
}

std::optional<std::string> value_in(std::string_view text, std::string_view needle, int n) {
  const std::vector<std::size_t> behind = occurrences_in(text, needle);
  if (n > static_cast<int>(behind.size())) {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(n <= 0 ? 0 : behind[static_cast<std::size_t>(n) - 1]);
  const std::size_t newline = rest.find('\n');
  if (newline == std::string_view::npos) {
    return std::nullopt;
  }
  return std::string(rest.substr(0, std::min<std::size_t>(newline, 127)));
}

class DumpTest : public fakes::ModuleTest {
 protected:
  // As a string of all octets written: a value may hold NULs.
  template <class Lookup>
  static std::optional<std::string> value_of(Lookup lookup) {
    std::string out(dump_value_size + 1, '\x7f');
    const std::string untouched = out;
    if (!lookup(out.data())) {
      EXPECT_EQ(out, untouched);
      return std::nullopt;
    }
    out.resize(out.find_last_not_of('\x7f') + 1);
    EXPECT_EQ(out.back(), '\0');
    out.pop_back();
    return out;
  }

  static std::optional<std::string> value(Dump::Search &search, int n) {
    return value_of([&](char *out) { return search.value(n, out); });
  }

  static std::optional<std::string> value(const Dump &dump, const Needle &needle, int n) {
    return value_of([&](char *out) { return dump.value(needle, n, out); });
  }

  std::optional<std::string> value(std::string_view content, const Needle &needle, int n) {
    files.write(path, content);
    return value(Dump(path), needle, n);
  }

  int count(std::string_view content, const Needle &needle) {
    files.write(path, content);
    return Dump(path).count(needle);
  }

  std::int32_t sum(std::string_view content, const Needle &needle) {
    files.write(path, content);
    return Dump(path).sum(needle);
  }

  // Compares every lookup with the plain search.
  void expect_as_in(const std::string &content) {
    files.write(path, content);
    const Dump dump(path);
    ASSERT_EQ(dump.opened(), !content.empty());
    for (const Needle &needle : {id, name, Needle("no such key", ": ")}) {
      const int total = static_cast<int>(occurrences_in(content, needle.text()).size());
      ASSERT_EQ(dump.count(needle), total);
      Dump::Search search(dump, needle);
      for (const int n : {1, 2, 3, 4, 5, 2, 1, total, total + 1, total, 0, -1, INT_MIN}) {
        ASSERT_EQ(value(search, n), value_in(content, needle.text(), n)) << "occurrence " << n << " in " << content;
      }
    }
  }

  fakes::FakeFiles files;
};

TEST_F(DumpTest, FindsEachUnitsValue) {
  files.write(path, " id: 1\n name: first\n id: 2\n name: second\n");
  const Dump dump(path);
  EXPECT_EQ(dump.count(id), 2);
  EXPECT_EQ(value(dump, id, 1), "1");
  EXPECT_EQ(value(dump, name, 1), "first");
  EXPECT_EQ(value(dump, id, 2), "2");
  EXPECT_EQ(value(dump, name, 2), "second");
  EXPECT_EQ(value(dump, id, 3), std::nullopt);
  EXPECT_EQ(value(dump, id, 1), "1");
}

TEST_F(DumpTest, TheBlankBeforeTheKeyIsRequired) {
  EXPECT_EQ(count("id: 1\nuuid: 2\n id: 3\n", id), 1);
  EXPECT_EQ(value("id: 1\nuuid: 2\n id: 3\n", id, 1), "3");
}

TEST_F(DumpTest, ANeedleWithoutABlankIsFoundAnywhere) {
  EXPECT_EQ(value("xhdd:12\n", Needle::without_blank("hdd:", ""), 1), "12");
}

TEST_F(DumpTest, OccurrencesDoNotOverlap) {
  EXPECT_EQ(count(" id: id: id: 1\n", id), 2);
  EXPECT_EQ(value(" id: id: id: 1\n", id, 1), "id: id: 1");
  EXPECT_EQ(value(" id: id: id: 1\n", id, 2), "1");
  EXPECT_EQ(count(" id:id: 1\n id: 2\n", Needle("id", ":")), 2);
  EXPECT_EQ(count("aaaaa", Needle::without_blank("a", "a")), 2);
}

TEST_F(DumpTest, AnOccurrenceMayStandInsideTheValueBeforeIt) {
  EXPECT_EQ(value(" id: 1 id: 2\n", id, 1), "1 id: 2");
  EXPECT_EQ(value(" id: 1 id: 2\n", id, 2), "2");
  EXPECT_EQ(sum(" id: 1 id: 2\n", id), 3);
}

TEST_F(DumpTest, AValueNeedsItsNewline) {
  EXPECT_EQ(value(" id: 1", id, 1), std::nullopt);
  EXPECT_EQ(value(" id: ", id, 1), std::nullopt);
  EXPECT_EQ(value(" id: \n", id, 1), "");
  EXPECT_EQ(count(" id: 1\n id: 2", id), 2);
  EXPECT_EQ(value(" id: 1\n id: 2", id, 2), std::nullopt);
}

TEST_F(DumpTest, AValueIsCutOffAt127Characters) {
  for (const std::size_t length : {126U, 127U, 128U, 1U << 19U}) {
    const std::string text(length, 'v');
    EXPECT_EQ(value(" id: " + text + "\n", id, 1), text.substr(0, 127));
    EXPECT_EQ(value(" id: " + text, id, 1), std::nullopt);
  }
}

TEST_F(DumpTest, Number0AndBelowIsWhatTheFileBeginsWith) {
  for (const int n : {0, -1, INT_MIN}) {
    EXPECT_EQ(value("head\n id: 1\n", id, n), "head");
    EXPECT_EQ(value("head\n", Needle("missing", ": "), n), "head");
    EXPECT_EQ(value("head", id, n), std::nullopt);
  }
}

TEST_F(DumpTest, NulsAreOrdinaryOctets) {
  const std::string content("\0\0 id: a\0b\n\0 id: c\n", 19);
  EXPECT_EQ(count(content, id), 2);
  EXPECT_EQ(value(content, id, 1), std::string("a\0b", 3));
  EXPECT_EQ(value(content, id, 2), "c");
}

TEST_F(DumpTest, AnOverlongOrEmptyNeedleIsFoundNowhere) {
  const std::string key(253, 'k');
  EXPECT_EQ(value(" " + key + ":1\n", Needle(key.c_str(), ":"), 1), "1");
  EXPECT_EQ(value(" " + key + "k:1\n", Needle((key + "k").c_str(), ":"), 1), std::nullopt);
  EXPECT_EQ(count("abc\n", Needle::without_blank("", "")), 0);
}

TEST_F(DumpTest, SumsTheNumbersOfAllUnits) {
  EXPECT_EQ(sum(" id: 8\n x\n id: 10\n", id), 18);
  EXPECT_EQ(sum(" id:  -3 cores\n id: none\n id: \n id: 0x10\n", id), -3);
  EXPECT_EQ(sum(" id: \n7\n", id), 0);
  EXPECT_EQ(sum("nothing\n", id), 0);
}

TEST_F(DumpTest, ANumberWithoutItsNewlineEndsTheSum) {
  EXPECT_EQ(sum(" id: 8\n id: 10", id), 8);
}

TEST_F(DumpTest, ASumStaysWithin32Bits) {
  EXPECT_EQ(sum(" id: 2147483647\n id: 1\n", id), INT32_MAX);
  EXPECT_EQ(sum(" id: -99999999999999999999\n id: -1\n id: 1\n", id), INT32_MIN + 1);
}

TEST_F(DumpTest, AFileThatIsNoDumpGivesNothing) {
  files.write("/var/empty", "");
  files.make_directory("/var/directory");
  ASSERT_EQ(mkfifo(fakes::FakeFiles::real_path("/var/fifo").c_str(), 0600), 0);
  for (const char *none : {"/var/missing", "/var/empty", "/var/directory", "/var/fifo", "/dev/zero", "/dev/null"}) {
    Dump dump(none);
    EXPECT_FALSE(dump.opened()) << none;
    EXPECT_EQ(dump.count(id), 0) << none;
    EXPECT_EQ(dump.sum(id), 0) << none;
    EXPECT_EQ(value(dump, id, 1), std::nullopt) << none;
    EXPECT_EQ(value(dump, id, 0), std::nullopt) << none;
  }
}

TEST_F(DumpTest, ADumpThatMustNotBeReadGivesNothing) {
  files.write(path, " id: 1\n");
  fakes::refuse_open(path, EACCES);
  EXPECT_FALSE(Dump(path).opened());
}

TEST_F(DumpTest, KeepsNoDescriptor) {
  files.write(path, " id: 1\n");
  const int next = ::dup(0);
  ::close(next);
  const Dump dump(path);
  ASSERT_TRUE(dump.opened());
  EXPECT_EQ(::fcntl(next, F_GETFD), -1);
}

TEST_F(DumpTest, WithoutMemoryThereIsNoDump) {
  files.write(path, " id: 1\n");
  fakes::fail_allocations(0);
  const Dump dump(path);
  EXPECT_FALSE(dump.opened());
  EXPECT_EQ(dump.count(id), 0);
  EXPECT_EQ(value(dump, id, 1), std::nullopt);
  EXPECT_EQ(value(dump, id, 0), std::nullopt);
}

TEST_F(DumpTest, EveryTruncationOfAGoodDumpIsReadAsFarAsItGoes) {
  const std::string good = "top\n id: 1\n name: board one\n id: 22\n name: \n  id: 3\n tail";
  for (std::size_t length = 0; length <= good.size(); ++length) {
    expect_as_in(good.substr(0, length));
  }
}

TEST_F(DumpTest, EveryFlippedOctetChangesNoMoreThanItMust) {
  const std::string good = " id: 1\n name: a\n id: 2\n name: b\n";
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const int flip : {0x01, 0x20, 0x80, static_cast<int>(good[at]), good[at] ^ '\n'}) {
      std::string damaged = good;
      damaged[at] = static_cast<char>(damaged[at] ^ flip);
      expect_as_in(damaged);
    }
  }
}

TEST_F(DumpTest, IsReadUpToItsLargestSize) {
  const std::string last = " id: 2\n";
  const std::string content = " id: 1\n" + std::string(largest_dump - 14, '.') + last;
  ASSERT_EQ(content.size(), largest_dump);
  files.write(path, content + " id: 3\n");
  EXPECT_EQ(Dump(path).count(id), 2);
  EXPECT_EQ(value(Dump(path), id, 2), "2");
  EXPECT_EQ(Dump(path).sum(id), 3);

  files.write(path, "." + content);
  EXPECT_EQ(Dump(path).count(id), 2);
  EXPECT_EQ(value(Dump(path), id, 2), std::nullopt) << "its newline lies beyond";
  EXPECT_EQ(value(Dump(path), id, 1), "1");
}

TEST_F(DumpTest, IsLoggedOnceWhenItIsTooLarge) {
  files.write(path, std::string(largest_dump, '.'));
  Dump{path};
  EXPECT_THAT(fakes::log_lines(), testing::IsEmpty());
  files.write(path, std::string(largest_dump + 1, '.'));
  Dump{path};
  EXPECT_THAT(fakes::log_lines(), testing::ElementsAre(fakes::LogLine{
                                      LOG_DEBUG, "/var/dump is too large: only the first 1048576 octets are read\n"}));
}

TEST_F(DumpTest, RandomDumpsAreReadAsByAPlainSearch) {
  std::mt19937 random(20);
  for (int round = 0; round < 200; ++round) {
    std::string content;
    while (content.size() < 40000) {
      static constexpr const char *pieces[] = {" id: ", " name: ", "\n", " ", "id: ", "value", "\0", "nnn"};
      content += pieces[random() % std::size(pieces)];
      if (random() % 50 == 0) {
        content.append(random() % 20000, 'x');
      }
    }
    expect_as_in(content);
  }
}

TEST_F(DumpTest, SearchesForSeveralKeysDoNotMeet) {
  std::string content;
  for (int unit = 1; unit <= 5; ++unit) {
    for (int key = 0; key < 20; ++key) {
      content += " key" + std::to_string(key) + ": " + std::to_string(100 * unit + key) + "\n";
    }
  }
  files.write(path, content);
  const Dump dump(path);
  std::vector<Dump::Search> searches;
  for (int key = 0; key < 20; ++key) {
    searches.emplace_back(dump, Needle(("key" + std::to_string(key)).c_str(), ": "));
  }
  for (int unit = 1; unit <= 5; ++unit) {
    for (int key = 0; key < 20; ++key) {
      EXPECT_EQ(value(searches[static_cast<std::size_t>(key)], unit), std::to_string(100 * unit + key));
    }
  }
}

TEST_F(DumpTest, StaysAsItWasReadWhenItsFileChanges) {
  const std::string content = " id: 1\n" + std::string(100000, '.') + "\n id: 2";
  files.write(path, content);
  const Dump dump(path);
  Dump::Search search(dump, id);
  EXPECT_EQ(value(search, 1), "1");
  std::ofstream(fakes::FakeFiles::real_path(path), std::ios::app) << "\n id: 3\n";
  EXPECT_EQ(dump.count(id), 2);
  EXPECT_EQ(value(search, 2), std::nullopt);
  ASSERT_EQ(::truncate(fakes::FakeFiles::real_path(path).c_str(), 0), 0);
  EXPECT_EQ(value(search, 1), "1");
  EXPECT_EQ(dump.count(id), 2);
}

TEST_F(DumpTest, IsStillSearchedAfterItHasMoved) {
  files.write(path, " id: 1\n id: 2\n");
  Dump first(path);
  Dump::Search search(first, id);
  const Dump second = std::move(first);
  EXPECT_EQ(value(search, 2), "2");
  EXPECT_EQ(value(second, id, 1), "1");
}

// If each unit's search started at the top of the dump, eight times the units would take 64 times as long.
class LinearDump : public DumpTest {
 protected:
  // AddressSanitizer checks the whole rest of the dump before each search, which alone takes quadratic time.
  static constexpr const char *unchecked_searches = "ASAN_OPTIONS=intercept_memmem=0";

  // Processor time, since other tests run at the same time.
  static double seconds_used() {
    timespec used;
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
  }

  static double seconds_for_all(int units) {
    const double begin = seconds_used();
    const Dump dump(path);
    std::vector<Dump::Search> searches;
    for (const char *key : {"id", "name", "missing", "serial", "model"}) {
      searches.emplace_back(dump, Needle(key, ": "));
    }
    char out[dump_value_size];
    for (int unit = 1; unit <= units; ++unit) {
      for (Dump::Search &search : searches) {
        search.value(unit, out);
      }
    }
    dump.count(id);
    dump.sum(id);
    return seconds_used() - begin;
  }

  void expect_linear(const std::function<std::string(int units)> &content) {
    const auto measured = [&](int units) {
      const std::string whole = content(units);
      EXPECT_LE(whole.size(), largest_dump);
      files.write(path, whole);
      double best = seconds_for_all(units);
      for (int again = 0; again < 2; ++again) {
        best = std::min(best, seconds_for_all(units));
      }
      return best;
    };
    const double small = measured(3000);
    const double large = measured(24000);
    RecordProperty("microseconds_for_3000_units", static_cast<int>(small * 1e6));
    RecordProperty("microseconds_for_24000_units", static_cast<int>(large * 1e6));
    EXPECT_LT(large, 24 * small) << "8 times the units";
  }
};

TEST_F(LinearDump, AllValuesOfAllUnits) {
  if (ran_in_a_process_of_its_own(unchecked_searches)) {
    return;
  }
  expect_linear([](int units) {
    std::string content;
    for (int unit = 1; unit <= units; ++unit) {
      content += " id: 1\n name: x\n serial: y\n model: z\n";
    }
    return content;
  });
}

TEST_F(LinearDump, UnitsOnOneLineThatDoesNotEnd) {
  if (ran_in_a_process_of_its_own(unchecked_searches)) {
    return;
  }
  expect_linear([](int units) {
    std::string content;
    for (int unit = 1; unit <= units; ++unit) {
      content += " id: 1 name: x serial: y model: z";
    }
    return content;
  });
}

TEST_F(LinearDump, OneKeyAtTheTopAnotherAtTheBottom) {
  if (ran_in_a_process_of_its_own(unchecked_searches)) {
    return;
  }
  expect_linear([](int units) {
    std::string top;
    std::string bottom;
    for (int unit = 1; unit <= units; ++unit) {
      top += " id: 1\n";
      bottom += " name: x";
    }
    return top + bottom + "\n";
  });
}

TEST_F(LinearDump, AHundredThousandOccurrencesOfOneKey) {
  std::string content;
  for (int unit = 1; unit <= 100000; ++unit) {
    content += " id: 1\n";
  }
  files.write(path, content);
  const Dump dump(path);
  ASSERT_EQ(dump.count(id), 100000);
  Dump::Search search(dump, id);
  char out[dump_value_size];
  const double begin = seconds_used();
  for (int unit = 1; unit <= 100000; ++unit) {
    ASSERT_TRUE(search.value(unit, out));
  }
  EXPECT_LT(seconds_used() - begin, 2) << "from the top each time it would take a minute";
}

TEST_F(DumpTest, AFileOf256MebibytesTakesNoMemoryOfItsSize) {
  const std::string real = fakes::FakeFiles::real_path(path);
  files.write(path, " id: 1\n");
  ASSERT_EQ(::truncate(real.c_str(), 256 << 20), 0);  // NULs, and no blocks on the disk
  std::ofstream(real, std::ios::app) << "\n id: 2\n";
  const auto heap = [] {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const std::size_t before = heap();
  const Dump dump(path);
  EXPECT_LE(heap() - before, largest_dump + 65536);
  EXPECT_EQ(value(dump, id, 1), "1");
  EXPECT_EQ(dump.count(id), 1);
  EXPECT_EQ(dump.sum(id), 1);
}

TEST_F(DumpTest, ASearchGoesOverTheDumpOnce) {
  std::string content;
  for (int i = 0; i < 2000; ++i) {
    content += " name: fan\n id: " + std::to_string(i) + '\n';
  }
  files.write(path, content);
  const Dump dump(path);
  Dump::Search search(dump, id);
  fakes::forget_octets_searched();
  for (int n = 1; n <= 2000; ++n) {
    ASSERT_EQ(value(search, n), std::to_string(n - 1));
  }
  EXPECT_LE(fakes::octets_searched(), content.size());
}

// It would read the dump's text after its end.
TEST_F(DumpTest, ASearchOfATemporaryDumpDoesNotCompile) {
  EXPECT_TRUE((std::is_constructible_v<Dump::Search, const Dump &, const Needle &>));
  EXPECT_TRUE((std::is_constructible_v<Dump::Search, const Dump &, const char *, const char *>));
  EXPECT_FALSE((std::is_constructible_v<Dump::Search, Dump, const Needle &>));
  EXPECT_FALSE((std::is_constructible_v<Dump::Search, Dump, const char *, const char *>));
}

}  // namespace
}  // namespace tavo
