#include "hardware/ipmi_device.h"

#include <freeipmi/freeipmi.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>

namespace tavo::service {

struct OpenIpmiDevice::Connection {
  struct Destroy {
    void operator()(ipmi_ctx_t created) const {
      ipmi_ctx_close(created);
      ipmi_ctx_destroy(created);
    }
  };

  explicit Connection(const std::filesystem::path &file) : context(ipmi_ctx_create()) {
    constexpr int no_probing = 1;
    if (access(file.c_str(), R_OK | W_OK) != 0) {
      const int error = errno;
      const std::string why = file.string() + ": " + std::generic_category().message(error);
      if (error == EACCES || error == EPERM) {
        throw IpmiNoPermission(why);
      }
      throw IpmiSilence(why);
    }
    if (!context || ipmi_ctx_open_inband(context.get(), IPMI_DEVICE_OPENIPMI, no_probing, 0, 0, file.c_str(),
                                         IPMI_WORKAROUND_FLAGS_DEFAULT, IPMI_FLAGS_DEFAULT) < 0) {
      throw IpmiSilence(file.string() + ": " + error_text());
    }
  }

  std::string error_text() const { return context ? ipmi_ctx_errormsg(context.get()) : "no memory"; }

  const std::unique_ptr<ipmi_ctx, Destroy> context;
};

OpenIpmiDevice::OpenIpmiDevice(std::filesystem::path file) : file_(std::move(file)) {}

OpenIpmiDevice::~OpenIpmiDevice() = default;

bool OpenIpmiDevice::exists() const {
  return access(file_.c_str(), F_OK) == 0;
}

IpmiOctets OpenIpmiDevice::ask(const IpmiCommand &command) {
  constexpr std::size_t most = 512;  // octets of an answer; the driver's own limit is 272
  if (!connection_) {
    connection_ = std::make_unique<Connection>(file_);
  }
  IpmiOctets request{command.command};
  request.insert(request.end(), command.data.begin(), command.data.end());
  std::array<std::uint8_t, most> answer{};
  const int length =
      ipmi_cmd_raw(connection_->context.get(), command.lun, command.net_fn, request.data(),
                   static_cast<unsigned>(request.size()), answer.data(), static_cast<unsigned>(answer.size()));
  constexpr int echo = 1;  // the command, before the completion code
  if (length <= echo) {
    const std::string why = connection_->error_text();
    // Opened anew, so that an answer that comes late is not taken for that to the next command.
    connection_.reset();
    throw IpmiSilence(file_.string() + ": " + why);
  }
  return {answer.begin() + echo, answer.begin() + length};
}

std::optional<IpmiOctets> ask(IpmiDevice &device, const IpmiCommand &command, std::size_t least) {
  IpmiOctets answer = device.ask(command);
  if (answer.empty() || answer.front() != IPMI_COMP_CODE_COMMAND_SUCCESS || answer.size() - 1 < least) {
    return std::nullopt;
  }
  answer.erase(answer.begin());
  return answer;
}

}  // namespace tavo::service
