#include "tests/fakes/fru.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>

#include "platform/fru.h"

namespace tavo::fakes {
namespace {

std::optional<BoardArea> board;
int board_failures = 0;
std::map<std::pair<int, int>, std::string> product_serials;
std::vector<int> board_calls;
std::vector<std::pair<int, int>> product_calls;

std::span<std::byte> zeroed(void *area, std::size_t size) {
  const std::span<std::byte> octets(static_cast<std::byte *>(area), size);
  if (!std::ranges::all_of(octets, [](std::byte octet) { return octet == std::byte{0}; })) {
    throw std::logic_error("a FRU area was not zeroed");
  }
  return octets;
}

void put_text(std::span<std::byte> area, std::size_t offset, const std::string &text) {
  std::memcpy(area.data() + offset, text.data(), std::min<std::size_t>(text.size(), FRU_TEXT_SIZE));
}

}  // namespace

void set_board_area(BoardArea area) {
  board = std::move(area);
}

void fail_board_area(int calls) {
  board_failures = calls;
}

void set_product_serial(int type, int instance, std::string serial) {
  product_serials.insert_or_assign({type, instance}, std::move(serial));
}

std::vector<int> board_area_calls() {
  return board_calls;
}

std::vector<std::pair<int, int>> product_area_calls() {
  return product_calls;
}

void reset_fru() {
  board.reset();
  board_failures = 0;
  product_serials.clear();
  board_calls.clear();
  product_calls.clear();
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

int get_fru_board_area_from_id(int fru_id, void *area) {
  const auto octets = zeroed(area, FRU_BOARD_AREA_SIZE);
  board_calls.push_back(fru_id);
  if (!board || board_failures > 0) {
    board_failures = std::max(board_failures - 1, 0);
    std::memset(area, 0xA5, FRU_BOARD_AREA_SIZE);  // what a failing call leaves does not count
    return -1;
  }
  put_text(octets, FRU_BOARD_MANUFACTURER, board->manufacturer);
  put_text(octets, FRU_BOARD_PRODUCT_NAME, board->product_name);
  put_text(octets, FRU_BOARD_SERIAL, board->serial);
  return 0;
}

int get_fru_product_area_from_type_instance(int type, int instance, void *area) {
  const auto octets = zeroed(area, FRU_PRODUCT_AREA_SIZE);
  product_calls.emplace_back(type, instance);
  const auto found = product_serials.find({type, instance});
  if (found == product_serials.end()) {
    std::memset(area, 0xA5, FRU_PRODUCT_AREA_SIZE);
    return -1;
  }
  put_text(octets, FRU_PRODUCT_SERIAL, found->second);
  return 0;
}
