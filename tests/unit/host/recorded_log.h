// Records what is logged while it exists.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <mutex>
#include <string>
#include <vector>

namespace tavo {

class RecordedLog {
 public:
  RecordedLog() {
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, take, this);
  }
  ~RecordedLog() {
    snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, take, this, 1);
    snmp_disable_log();
  }
  RecordedLog(const RecordedLog &) = delete;
  RecordedLog &operator=(const RecordedLog &) = delete;

  // One element a line, with its level and a blank in front.
  std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  static int take(int /*major*/, int /*minor*/, void *message, void *self) {
    const auto *line = static_cast<const snmp_log_message *>(message);
    auto *log = static_cast<RecordedLog *>(self);
    const std::lock_guard lock(log->mutex_);
    log->lines_.push_back(std::to_string(line->priority) + " " + line->msg);
    return 0;
  }

  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace tavo
