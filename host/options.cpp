#include "host/options.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

namespace tavo {
namespace {

constexpr const char *closing_lines =
    "Log options (-L) are net-snmp's: -Le (stderr), -Lo (stdout), -Lf FILE, -Ls FACILITY, and the capitals that\n"
    "take a level first: -LO 7, -LF 0-6 FILE.\n"
    "Signals: SIGTERM and SIGINT stop, SIGHUP reads the configuration and the chassis block again,\n"
    "SIGUSR1 sends a test notification.\n"
    "Exit status: 0 stopped on request, 1 system failure, 2 bad option, 3 configuration or chassis block missing,\n"
    "4 platform library missing, 5 module missing, 6 symbol missing, 7 listening address cannot be opened.";

// CLI11 marks the start of each further -L with an empty word.
std::vector<std::vector<std::string>> split_occurrences(const std::vector<std::string> &words) {
  std::vector<std::vector<std::string>> occurrences;
  bool starts = true;
  for (const std::string &word : words) {
    if (word.empty()) {
      starts = true;
      continue;
    }
    if (starts) {
      occurrences.emplace_back();
    }
    occurrences.back().push_back(word);
    starts = false;
  }
  return occurrences;
}

// Options whose words need a second look.
struct Words {
  std::vector<std::string> log;
  std::vector<std::string> debug;
  CLI::Option *debug_option = nullptr;
};

void add_options(CLI::App &app, Options &options, Words &words) {
  app.add_flag("-f", options.foreground, "Stay in the foreground");
  CLI::Option *agentx =
      app.add_option("-x", options.agentx_address, "Address of the AgentX master")->type_name("ADDRESS");
  app.add_flag("-C", options.skip_default_configuration, "Do not read the default configuration files");
  app.add_option("-c", options.configuration_files, "Also read this configuration file")
      ->type_name("FILE")
      ->expected(1)
      ->take_all()
      ->delimiter(',');
  app.add_option("-L", words.log, "Where to log, see below")
      ->type_name("OPTION")
      ->expected(1, 3)
      ->take_all()
      ->inject_separator();
  words.debug_option = app.add_option("-D", words.debug, "Trace these tokens (all of them when none is named)")
                           ->type_name("TOKEN,...")
                           ->expected(0, 1)
                           ->take_all();
  app.add_option("-p", options.pid_file, "Write the process id to this file")->type_name("FILE");
  app.add_option("--module", options.module, "The module to load")->capture_default_str()->type_name("PATH");
  app.add_option("--platform", options.platforms, "Platform library to load before the module (repeatable)")
      ->type_name("LIB")
      ->expected(1)
      ->take_all();
  app.add_option("--listen", options.listen, "Be an agent of its own on this address (repeatable)")
      ->type_name("ADDRESS")
      ->expected(1)
      ->take_all()
      ->excludes(agentx);
  app.add_option("--notification-limit", options.notification_limit, "Notifications kept while they cannot be sent")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}));
  app.add_option("--chassis-block", options.chassis_block,
                 "Start the chassis link (TCP port 25678) and send it this file's content")
      ->type_name("FILE")
      ->check([](const std::string &file) { return std::string(file.empty() ? "a file name is needed" : ""); });
}

}  // namespace

bool Options::logs_to_output() const {
  return std::any_of(log.begin(), log.end(), [](const auto &words) {
    return std::string_view("oOeE").find(words[0][0]) != std::string_view::npos;
  });
}

CommandLine parse_command_line(int argc, const char *const *argv) {
  CommandLine result;
  Options &options = result.options;
  Words words;

  CLI::App app(
      "The SNMP subagent of the management controller: loads the extension MIB module and serves it, as an AgentX\n"
      "subagent of the system's SNMP agent or, with --listen, as an agent of its own.",
      "snmp-subagentd");
  app.footer(closing_lines);
  app.set_help_flag("-h,--help", "Print this and leave");
  app.set_version_flag("-v,--version",
                       "snmp-subagentd " SUBAGENTD_VERSION " (net-snmp " + std::string(netsnmp_get_version()) + ")",
                       "Print the version and leave");
  add_options(app, options, words);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp &) {
    result.leave = ExitStatus::ok;
    result.text = app.help();
  } catch (const CLI::CallForVersion &version) {
    result.leave = ExitStatus::ok;
    result.text = version.what() + std::string("\n");
  } catch (const CLI::ParseError &error) {
    result.leave = ExitStatus::usage;
    result.text = std::string("snmp-subagentd: ") + error.what() + "\nTry 'snmp-subagentd -h'.\n";
  }
  options.log = split_occurrences(words.log);
  if (words.debug_option->count() > 0) {
    options.debug_tokens = CLI::detail::join(words.debug, ",");
  }
  return result;
}

}  // namespace tavo
