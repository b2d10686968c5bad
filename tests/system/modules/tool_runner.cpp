// Runs shell commands from a thread, as the real module does. Control line: the command, or "read" and a command whose
// output is read. With TEST_MODULE_START_COMMAND in the environment, the start runs that command.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstdio>
#include <cstdlib>

#include "control.h"

namespace tavo {
namespace {

void run(const std::string &command) {
  const int status = std::system(command.c_str());
  snmp_log(LOG_INFO, "tool ended with %d\n", status);
}

void read_output(const std::string &command) {
  FILE *output = popen(command.c_str(), "re");
  if (output == nullptr) {
    snmp_log(LOG_INFO, "tool not started\n");
    return;
  }
  std::size_t octets = 0;
  while (std::fgetc(output) != EOF) {
    ++octets;
  }
  const int status = pclose(output);
  snmp_log(LOG_INFO, "tool printed %zu octets and ended with %d\n", octets, status);
}

}  // namespace

extern "C" int init_subagent_modules() {
  if (const char *command = std::getenv("TEST_MODULE_START_COMMAND")) {
    snmp_log(LOG_INFO, "starting\n");
    run(command);
  }
  obey_control_lines([](const std::string &line) {
    if (line.starts_with("read ")) {
      read_output(line.substr(5));
    } else {
      run(line);
    }
  });
  return 0;
}

}  // namespace tavo
