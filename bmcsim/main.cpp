#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>

#include "bmcsim/record.h"
#include "hardware/hardware.h"
#include "hardware/sources.h"
#include "service/control.h"
#include "service/front_ends.h"
#include "service/protocol.h"
#include "service/replaced_file.h"
#include "service/service.h"
#include "simulator/drift.h"
#include "simulator/numbering.h"
#include "simulator/scenario.h"

namespace tavo::service {
namespace {

struct ServeOptions {
  std::string scenario;
  bool hardware = false;  // serve this machine; there is no scenario then
  std::string kept = "/var/lib/bmcsim/register.json";
  Intervals intervals;  // of the hardware's sources
  std::string socket = socket_path();
  Surroundings surroundings;
  int ready_fd = -1;               // negative: none
  std::optional<unsigned> drift;   // seconds; nothing: what the scenario says
  std::optional<unsigned> number;  // nothing: the scenario's own serial numbers
};

struct RecordOptions {
  bool mask = false;
  std::string file;  // empty: standard output
};

// How long the hardware may take until the server is served without what has not answered yet.
constexpr std::chrono::seconds patience(30);

// A descriptor for SIGTERM and SIGINT. Blocks both, so it must be called before the first thread starts.
Descriptor stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

void say_ready(const ServeOptions &options, const std::string &what) {
  std::cout << "bmcsim: serving " << what << " on " << options.socket << std::endl;
  if (options.ready_fd >= 0) {
    const Descriptor ready(options.ready_fd);
    if (write(ready.get(), "\n", 1) != 1) {
      std::cerr << "bmcsim: cannot write to descriptor " << options.ready_fd << '\n';
    }
  }
}

void say_unreadable(Hardware &hardware) {
  for (const std::string &line : hardware.unreadable()) {
    std::cerr << "bmcsim: not read: " << line << '\n';
  }
}

void serve_scenario(const ServeOptions &options, int stop) {
  Inventory inventory = load_scenario(options.scenario);
  if (options.drift) {
    inventory.environment.set_number("drift", *options.drift);
  }
  if (options.number) {
    number_server(inventory, *options.number);
  }
  Machine machine(std::move(inventory), options.surroundings);
  Service service(machine, options.socket);
  say_ready(options, options.scenario);
  Drift drift;
  service.run(stop, [&](unsigned seconds) { drift.advance(machine, seconds); });
}

void serve_hardware(const ServeOptions &options, int stop, Register &kept) {
  Hardware hardware(all_sources(Roots(), kept), kept, options.intervals);
  Machine machine(hardware.first_inventory(patience), options.surroundings, &hardware);
  say_unreadable(hardware);
  Service service(machine, options.socket);
  say_ready(options, "this machine");
  service.run(stop, [&](unsigned) { hardware.advance(machine); });
}

// Ends the program once `use` returns or throws, and destroys nothing: the thread of a source that hangs is still
// there, and uses the register.
[[noreturn]] void use_hardware(const std::string &register_file, const std::function<void(Register &)> &use) {
  Register kept(register_file);
  try {
    use(kept);
  } catch (const std::exception &error) {
    std::cerr << "bmcsim: " << error.what() << '\n';
    std::_Exit(1);
  }
  std::_Exit(std::cout.flush() ? 0 : 1);
}

int serve(const ServeOptions &options) {
  const Descriptor stop = stop_signals();
  if (options.hardware) {
    use_hardware(options.kept, [&](Register &kept) { serve_hardware(options, stop.get(), kept); });
  }
  serve_scenario(options, stop.get());
  return 0;
}

void record_hardware(const RecordOptions &options, Register &nothing_kept) {
  Hardware hardware(all_sources(Roots(), nothing_kept), nothing_kept);
  Inventory inventory = hardware.first_inventory(patience);
  say_unreadable(hardware);
  if (options.mask) {
    mask_serials(inventory);
  }
  const std::string scenario = scenario_of(inventory, {});
  if (options.file.empty()) {
    std::cout << scenario << std::flush;
  } else {
    replace_file(options.file, std::as_bytes(std::span(scenario)));
  }
}

int run_bmcsim(int argc, char **argv) {
  CLI::App app{"Stands for a rack server's management controller: its services, files and tools.", "bmcsim"};
  app.require_subcommand(1);

  ServeOptions options;
  CLI::App *serve_command =
      app.add_subcommand("serve", "Serve a simulated server, or this machine, until SIGTERM or SIGINT");
  CLI::Option *scenario =
      serve_command->add_option("scenario", options.scenario, "a YAML file that describes a server");
  CLI::Option *hardware =
      serve_command->add_flag("--hardware", options.hardware, "serve this machine instead")->excludes(scenario);
  serve_command
      ->add_option("--register", options.kept,
                   "with --hardware: where numbers and active faults are kept over restarts")
      ->capture_default_str()
      ->needs(hardware);
  std::vector<std::string> polls;
  serve_command->add_option("--poll", polls, "with --hardware: how often to read a source; may be repeated")
      ->type_name("SOURCE=SECONDS")
      ->allow_extra_args(false)
      ->needs(hardware);
  serve_command->add_option("--socket", options.socket, "Unix socket to listen on")->capture_default_str();
  serve_command->add_option("--var", options.surroundings.var, "directory for the platform's files")
      ->capture_default_str();
  serve_command
      ->add_option("--sd-socket", options.surroundings.sd_socket, "socket on which to announce SD-card changes")
      ->capture_default_str();
  serve_command->add_option("--drift", options.drift, "seconds between changes of the readings; 0: no changes")
      ->excludes(hardware);
  serve_command
      ->add_option("--number", options.number, "be this one of several servers, with serial numbers of its own")
      ->check(CLI::Range(1U, 65'535U))
      ->excludes(hardware);
  serve_command->add_option("--ready-fd", options.ready_fd, "descriptor to write a line to when the server is up");
  serve_command->footer([] { return "Sources of --poll: " + joined(source_names()); });

  RecordOptions record_options;
  CLI::App *record_command = app.add_subcommand("record", "Write this machine as a scenario");
  record_command->add_flag("--mask-serials", record_options.mask,
                           "replace serial numbers and the UUID by made-up ones");
  record_command->add_option("--output", record_options.file, "the file to write (default: standard output)");

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
    if (serve_command->parsed() && !options.hardware && options.scenario.empty()) {
      throw CLI::RequiredError("scenario or --hardware");
    }
    for (const std::string &poll : polls) {
      add_interval(poll, options.intervals);
    }
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? 0 : wrong_usage;
  } catch (const BadInput &error) {
    std::cerr << "bmcsim: --poll: " << error.what() << '\n';
    return wrong_usage;
  }
  if (serve_command->parsed()) {
    return serve(options);
  }
  if (record_command->parsed()) {
    use_hardware("", [&](Register &nothing_kept) { record_hardware(record_options, nothing_kept); });
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
