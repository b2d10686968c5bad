#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iostream>

#include "simulator/control.h"
#include "simulator/front_ends.h"
#include "simulator/service.h"

namespace tavo::sim {
namespace {

struct ServeOptions {
  std::string scenario;
  std::string socket = socket_path();
  std::string var = "/var";
  std::string sd_socket = "/tmp/snmp_velt_sock";
  int ready_fd = -1;
  std::int64_t drift = -1;  // below 0: what the scenario says
};

// SIGTERM and SIGINT, as a descriptor; blocked before the first thread starts.
Descriptor stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

int serve(const ServeOptions &options) {
  const Descriptor stop = stop_signals();
  Inventory inventory = load_scenario(options.scenario);
  if (options.drift >= 0) {
    inventory.environment.set_number("drift", options.drift);
  }
  Machine machine(std::move(inventory), {.var = options.var, .sd_socket = options.sd_socket});
  Service service(machine, options.socket);
  std::cout << "bmcsim: serving " << options.scenario << " on " << options.socket << std::endl;
  if (options.ready_fd >= 0) {
    const Descriptor ready(options.ready_fd);
    if (write(ready.get(), "\n", 1) != 1) {
      std::cerr << "bmcsim: nobody reads descriptor " << options.ready_fd << '\n';
    }
  }
  service.run(stop.get());
  return 0;
}

int run(int argc, char **argv) {
  CLI::App app{"A simulated rack server: its management controller's services, files and tools.", "bmcsim"};
  app.require_subcommand(1);

  ServeOptions options;
  CLI::App *serve_command = app.add_subcommand("serve", "Be the server that a scenario describes, until SIGTERM");
  serve_command->add_option("scenario", options.scenario, "a YAML file")->required();
  serve_command->add_option("--socket", options.socket, "where to listen")->capture_default_str();
  serve_command->add_option("--var", options.var, "where the platform's files go")->capture_default_str();
  serve_command->add_option("--sd-socket", options.sd_socket, "whom to tell of SD-card changes")->capture_default_str();
  serve_command->add_option("--drift", options.drift, "seconds between changes of the readings; 0: they stand still");
  serve_command->add_option("--ready-fd", options.ready_fd, "a descriptor that gets one line when all is served");

  std::string socket = socket_path();
  unsigned wait_seconds = 0;
  std::vector<std::string> words;
  CLI::App *control_command = app.add_subcommand("ctl", "Change or show the server while it runs");
  control_command->add_option("--socket", socket, "where the simulator listens")->capture_default_str();
  control_command->add_option("--wait", wait_seconds, "seconds to wait for the simulator to come up");
  control_command->add_option("command", words, "see below");
  control_command->footer("\nCommands:\n" + control_help());
  control_command->positionals_at_end();

  CLI11_PARSE(app, argc, argv);
  if (serve_command->parsed()) {
    return serve(options);
  }
  return run_control(words, socket, wait_seconds);
}

}  // namespace
}  // namespace tavo::sim

int main(int argc, char **argv) {
  try {
    const std::string name = std::filesystem::path(argv[0]).filename();
    if (std::ranges::find(tavo::sim::tool_names, name) != tavo::sim::tool_names.end()) {
      return tavo::sim::run_tool(name, {argv + 1, argv + argc});
    }
    return tavo::sim::run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "bmcsim: " << error.what() << '\n';
    return 1;
  }
}
