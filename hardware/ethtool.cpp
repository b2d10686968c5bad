#include "hardware/ethtool.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "core/descriptor.h"

namespace tavo::service {

std::string interface_firmware(const std::string &interface) {
  ethtool_drvinfo driver{};
  driver.cmd = ETHTOOL_GDRVINFO;
  ifreq request{};
  interface.copy(static_cast<char *>(request.ifr_name), sizeof request.ifr_name - 1);
  request.ifr_data = reinterpret_cast<char *>(&driver);
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket || ioctl(socket.get(), SIOCETHTOOL, &request) != 0) {
    return "";
  }
  const auto *version = static_cast<const char *>(driver.fw_version);
  const std::string text(version, strnlen(version, sizeof driver.fw_version));
  return text == "N/A" ? "" : text;
}

}  // namespace tavo::service
