#include "hardware/ipmi_fru.h"

#include <freeipmi/freeipmi.h>

#include <array>
#include <iterator>
#include <memory>
#include <span>

#include "hardware/told_text.h"

namespace tavo::service {
namespace {

struct Destroy {
  void operator()(ipmi_fru_ctx_t context) const {
    ipmi_fru_close_device_id(context);
    ipmi_fru_ctx_destroy(context);
  }
};

using Part = std::span<const std::uint8_t>;

std::string text_of(ipmi_fru_ctx_t context, std::uint8_t language, const ipmi_fru_field_t &field) {
  std::array<char, IPMI_FRU_AREA_STRING_MAX + 1> text{};
  unsigned length = IPMI_FRU_AREA_STRING_MAX;
  if (field.type_length_field_length == 0 ||
      ipmi_fru_type_length_field_to_string(context, std::data(field.type_length_field), field.type_length_field_length,
                                           language, text.data(), &length) < 0) {
    return "";
  }
  return told_text(text.data());
}

void add_board(ipmi_fru_ctx_t context, Part part, IpmiFru &fru) {
  std::uint8_t language = 0;
  ipmi_fru_field_t manufacturer{};
  ipmi_fru_field_t product{};
  ipmi_fru_field_t serial{};
  if (ipmi_fru_board_info_area(context, part.data(), static_cast<unsigned>(part.size()), &language, nullptr,
                               &manufacturer, &product, &serial, nullptr, nullptr, nullptr, 0) == 0) {
    fru.board_manufacturer = text_of(context, language, manufacturer);
    fru.board_product = text_of(context, language, product);
    fru.board_serial = text_of(context, language, serial);
  }
}

void add_product(ipmi_fru_ctx_t context, Part part, IpmiFru &fru) {
  std::uint8_t language = 0;
  ipmi_fru_field_t name{};
  ipmi_fru_field_t model{};
  ipmi_fru_field_t version{};
  ipmi_fru_field_t serial{};
  if (ipmi_fru_product_info_area(context, part.data(), static_cast<unsigned>(part.size()), &language, nullptr, &name,
                                 &model, &version, &serial, nullptr, nullptr, nullptr, 0) == 0) {
    fru.product_name = text_of(context, language, name);
    fru.product_part = text_of(context, language, model);
    fru.product_version = text_of(context, language, version);
    fru.product_serial = text_of(context, language, serial);
  }
}

void add_supply(ipmi_fru_ctx_t context, Part part, IpmiFru &fru) {
  // libfreeipmi fills all or nothing.
  unsigned capacity = 0;
  std::array<unsigned, 16> numbers{};
  std::array<int, 4> volts{};
  if (ipmi_fru_multirecord_power_supply_information(
          context, part.data(), static_cast<unsigned>(part.size()), &capacity, &numbers[0], &numbers[1], &numbers[2],
          &volts[0], &volts[1], &volts[2], &volts[3], &numbers[3], &numbers[4], &numbers[5], &numbers[6], &numbers[7],
          &numbers[8], &numbers[9], &numbers[10], &numbers[11], &numbers[12], &numbers[13], &numbers[14], &numbers[15],
          &numbers[0]) == 0) {
    fru.supply_capacity = capacity;
  }
}

void add(ipmi_fru_ctx_t context, unsigned type, Part part, IpmiFru &fru) {
  switch (type) {
    case IPMI_FRU_AREA_TYPE_BOARD_INFO_AREA:
      return add_board(context, part, fru);
    case IPMI_FRU_AREA_TYPE_PRODUCT_INFO_AREA:
      return add_product(context, part, fru);
    case IPMI_FRU_AREA_TYPE_MULTIRECORD_POWER_SUPPLY_INFORMATION:
      return add_supply(context, part, fru);
    default:
      return;
  }
}

}  // namespace

IpmiFru decode_fru(const IpmiOctets &area) {
  constexpr int most_parts = 64;  // more than an area holds that makes sense
  const std::unique_ptr<ipmi_fru_ctx, Destroy> context(ipmi_fru_ctx_create(nullptr));
  IpmiFru fru;
  if (!context || area.empty() ||
      ipmi_fru_open_device_id_with_buffer(context.get(), area.data(), static_cast<unsigned>(area.size())) < 0) {
    return fru;
  }
  std::vector<std::uint8_t> part(IPMI_FRU_AREA_SIZE_MAX + 1);
  for (int i = 0; i < most_parts; ++i) {
    unsigned type = 0;
    unsigned length = 0;
    if (ipmi_fru_read_data_area(context.get(), &type, &length, part.data(), IPMI_FRU_AREA_SIZE_MAX) == 0 &&
        length != 0) {
      add(context.get(), type, Part(part).first(length), fru);
    }
    if (ipmi_fru_next(context.get()) != 1) {
      break;
    }
  }
  return fru;
}

}  // namespace tavo::service
