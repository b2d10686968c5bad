#include "service/protocol.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "service/little_endian.h"
#include "service/unix_socket.h"

namespace tavo::service {
namespace {

constexpr const char *default_socket_path = "/var/bmcsim/socket";
using nlohmann::json;

constexpr std::size_t header_size = 4;  // octets of a frame before its CBOR
constexpr int deepest = 16;             // levels of lists and objects; no message needs more than three

// Whether a message may be parsed. The parser calls itself for each level, so a few thousand of them overflow the
// stack; and if a list claims to have more elements than any memory holds, it throws even when told not to.
class ShapeCheck final : public json::json_sax_t {
 public:
  // `size`: octets of the message. No list in it has more elements.
  explicit ShapeCheck(std::size_t size) : size_(size) {}

  bool start_object(std::size_t elements) override { return enter(elements); }
  bool start_array(std::size_t elements) override { return enter(elements); }
  bool end_object() override { return leave(); }
  bool end_array() override { return leave(); }

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(json::number_integer_t) override { return true; }
  bool number_unsigned(json::number_unsigned_t) override { return true; }
  bool number_float(json::number_float_t, const json::string_t &) override { return true; }
  bool string(json::string_t &) override { return true; }
  bool binary(json::binary_t &) override { return true; }
  bool key(json::string_t &) override { return true; }
  bool parse_error(std::size_t, const std::string &, const json::exception &) override { return false; }

 private:
  bool enter(std::size_t elements) {
    constexpr std::size_t until_its_end = SIZE_MAX;  // a list that does not say
    return ++depth_ <= deepest && (elements == until_its_end || elements <= size_);
  }
  bool leave() {
    --depth_;
    return true;
  }

  std::size_t size_;
  int depth_ = 0;
};

}  // namespace

std::string socket_path() {
  const char *path = std::getenv("BMCSIM_SOCKET");
  return path != nullptr && *path != '\0' ? path : default_socket_path;
}

bool send_frame(int fd, const json &message) {
  std::vector<std::uint8_t> frame(header_size);
  json::to_cbor(message, frame);
  put_little_endian(std::as_writable_bytes(std::span(frame)).first(header_size), frame.size() - header_size);
  return send_all(fd, std::as_bytes(std::span(frame)));
}

std::optional<json> receive_frame(int fd, std::size_t limit) {
  std::array<std::byte, header_size> header{};
  if (!receive_all(fd, header)) {
    return std::nullopt;
  }
  const std::uint64_t length = little_endian(header);
  if (length > limit) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> body(length);
  if (!receive_all(fd, std::as_writable_bytes(std::span(body)))) {
    return std::nullopt;
  }
  ShapeCheck shape(body.size());
  if (!json::sax_parse(body, &shape, json::input_format_t::cbor)) {
    return std::nullopt;
  }
  json message = json::from_cbor(body, /*strict=*/true, /*allow_exceptions=*/false);
  if (!message.is_object()) {
    return std::nullopt;
  }
  return message;
}

}  // namespace tavo::service
