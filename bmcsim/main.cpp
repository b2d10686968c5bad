#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <optional>

#include "service/control.h"
#include "service/front_ends.h"
#include "service/protocol.h"
#include "service/service.h"
#include "simulator/drift.h"
#include "simulator/numbering.h"
#include "simulator/scenario.h"

namespace tavo::service {
namespace {

struct ServeOptions {
  std::string scenario;
  std::string socket = socket_path();
  Surroundings surroundings;
  int ready_fd = -1;               // negative: none
  std::optional<unsigned> drift;   // seconds; nothing: what the scenario says
  std::optional<unsigned> number;  // nothing: the scenario's own serial numbers
};

// A descriptor for SIGTERM and SIGINT. Blocks both, so it must be called before the first thread starts.
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
  if (options.drift) {
    inventory.environment.set_number("drift", *options.drift);
  }
  if (options.number) {
    number_server(inventory, *options.number);
  }
  Machine machine(std::move(inventory), options.surroundings);
  Service service(machine, options.socket);
  std::cout << "bmcsim: serving " << options.scenario << " on " << options.socket << std::endl;
  if (options.ready_fd >= 0) {
    const Descriptor ready(options.ready_fd);
    if (write(ready.get(), "\n", 1) != 1) {
      std::cerr << "bmcsim: cannot write to descriptor " << options.ready_fd << '\n';
    }
  }
  Drift drift;
  service.run(stop.get(), [&](unsigned seconds) { drift.advance(machine, seconds); });
  return 0;
}

int run_bmcsim(int argc, char **argv) {
  CLI::App app{"Simulates a rack server's management controller: its services, files and tools.", "bmcsim"};
  app.require_subcommand(1);

  ServeOptions options;
  CLI::App *serve_command =
      app.add_subcommand("serve", "Simulate the server that a scenario describes, until SIGTERM or SIGINT");
  serve_command->add_option("scenario", options.scenario, "a YAML file")->required();
  serve_command->add_option("--socket", options.socket, "Unix socket to listen on")->capture_default_str();
  serve_command->add_option("--var", options.surroundings.var, "directory for the platform's files")
      ->capture_default_str();
  serve_command
      ->add_option("--sd-socket", options.surroundings.sd_socket, "socket on which to announce SD-card changes")
      ->capture_default_str();
  serve_command->add_option("--drift", options.drift, "seconds between changes of the readings; 0: no changes");
  serve_command
      ->add_option("--number", options.number, "be this one of several servers, with serial numbers of its own")
      ->check(CLI::Range(1U, 65'535U));
  serve_command->add_option("--ready-fd", options.ready_fd, "descriptor to write a line to when the server is up");

  std::string socket = socket_path();
  unsigned wait_seconds = 0;
  std::vector<std::string> words;
  CLI::App *control_command = app.add_subcommand("ctl", "Show or change the running server");
  control_command->add_option("--socket", socket, "Unix socket of the simulator")->capture_default_str();
  control_command->add_option("--wait", wait_seconds, "how many seconds to wait for the simulator to come up");
  control_command->add_option("command", words, "one of the commands below");
  control_command->footer("Commands:\n" + control_help() + "\n'bmcsim ctl COMMAND --help' tells more about one.");
  control_command->positionals_at_end();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? 0 : wrong_usage;
  }
  if (serve_command->parsed()) {
    return serve(options);
  }
  return run_control(words, socket, wait_seconds);
}

int run_program(int argc, char **argv) {
  try {
    const std::string name = std::filesystem::path(argv[0]).filename();
    if (std::ranges::find(tool_names, name) != tool_names.end()) {
      return run_tool(name, {argv + 1, argv + argc});
    }
    return run_bmcsim(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "bmcsim: " << error.what() << '\n';
    return 1;
  }
}

}  // namespace
}  // namespace tavo::service

int main(int argc, char **argv) {
  return tavo::service::run_program(argc, argv);
}
