#include "core/heap.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <span>

namespace tavo {
namespace {

using testing::Each;

// A block of pages that are full of ones, in which each test gives something back.
class GivenPages : public testing::Test {
 protected:
  static constexpr std::size_t pages = 8;
  const std::size_t page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::span<std::byte> block_{static_cast<std::byte *>(std::aligned_alloc(page_, pages *page_)), pages *page_};

  GivenPages() { std::ranges::fill(block_, std::byte{1}); }
  ~GivenPages() override { std::free(block_.data()); }

  void expect_given(std::size_t begin, std::size_t end) const {
    EXPECT_THAT(block_.first(begin), Each(std::byte{1}));
    EXPECT_THAT(block_.subspan(begin, end - begin), Each(std::byte{0}));
    EXPECT_THAT(block_.subspan(end), Each(std::byte{1}));
  }
};

TEST_F(GivenPages, AreThoseThatTheOctetsFill) {
  give_pages_back(block_.data() + 1, 3 * page_);
  expect_given(page_, 3 * page_);
}

TEST_F(GivenPages, AreAllWhenTheEdgesArePages) {
  give_pages_back(block_.data() + page_, 2 * page_);
  expect_given(page_, 3 * page_);
}

TEST_F(GivenPages, AreNoneWithinAPage) {
  give_pages_back(block_.data() + 1, page_ - 1);
  give_pages_back(block_.data() + page_ - 1, page_);
  give_pages_back(block_.data() + 1, 2);
  give_pages_back(block_.data(), 0);
  expect_given(0, 0);
}

}  // namespace
}  // namespace tavo
