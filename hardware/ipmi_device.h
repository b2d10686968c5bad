// How the management controller is asked (IPMI 2.0): commands and answers as octets.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace tavo::service {

using IpmiOctets = std::vector<std::uint8_t>;

// The controller does not answer, or there is none.
class IpmiSilence : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// There may be a controller, but this program must not ask it.
class IpmiNoPermission : public IpmiSilence {
 public:
  using IpmiSilence::IpmiSilence;
};

struct IpmiCommand {
  std::uint8_t net_fn;
  std::uint8_t command;
  IpmiOctets data = {};
  std::uint8_t lun = 0;
};

class IpmiDevice {
 public:
  IpmiDevice() = default;
  IpmiDevice(const IpmiDevice &) = delete;
  IpmiDevice &operator=(const IpmiDevice &) = delete;
  virtual ~IpmiDevice() = default;

  // Whether the machine has a controller to ask, whether or not that answers. If not, ask() says why.
  virtual bool exists() const = 0;
  // The completion code and, after it, the data of the answer: at least one octet. Throws IpmiSilence.
  virtual IpmiOctets ask(const IpmiCommand &command) = 0;
};

// The data of the answer, at least `least` octets; nothing if the controller refuses or answers with less. Throws
// IpmiSilence.
std::optional<IpmiOctets> ask(IpmiDevice &device, const IpmiCommand &command, std::size_t least = 0);

// The controller behind the kernel's driver. An answer that does not come within the 60 s that libfreeipmi waits is
// silence.
class OpenIpmiDevice : public IpmiDevice {
 public:
  // `file` is the driver's: /dev/ipmi0. It is opened with the first command.
  explicit OpenIpmiDevice(std::filesystem::path file);
  ~OpenIpmiDevice() override;

  bool exists() const override;
  IpmiOctets ask(const IpmiCommand &command) override;

 private:
  struct Connection;

  const std::filesystem::path file_;
  std::unique_ptr<Connection> connection_;  // none: to be opened
};

}  // namespace tavo::service
