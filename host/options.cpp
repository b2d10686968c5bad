#include "host/options.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "host/name.h"

namespace tavo {
namespace {

constexpr const char *closing_lines =
    "Log options (-L) are net-snmp's: -Le (stderr), -Lo (stdout), -Lf FILE, -Ls FACILITY; capital letters take a\n"
    "level first: -LO 7, -LF 0-6 FILE.\n"
    "Signals: SIGTERM and SIGINT stop the daemon, SIGHUP reloads the configuration and the chassis block,\n"
    "SIGUSR1 sends a test notification.\n"
    "Exit status: 0 stopped on request, 1 system failure, 2 bad option, 3 configuration or chassis block unreadable,\n"
    "4 platform library missing, 5 module missing, 6 symbol missing, 7 cannot listen on an address.";

// CLI11 puts an empty word in front of each further -L.
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

// Options that need more than CLI11's own conversion.
struct RawOptions {
  std::vector<std::string> log;
  std::string debug;
  CLI::Option *debug_option = nullptr;
  long tool_timeout = Options().tool_timeout.count();
  long answer_within = Options().answer_within.count();
  long chassis_idle_limit = Options().chassis_idle_limit.count();
};

void add_options(CLI::App &app, Options &options, RawOptions &raw) {
  app.add_flag("-f", options.foreground, "Stay in the foreground");
  CLI::Option *agentx =
      app.add_option("-x", options.agentx_address, "Address of the AgentX master")->type_name("ADDRESS");
  app.add_flag("-C", options.skip_default_configuration, "Do not read the default configuration files");
  app.add_option("-c", options.configuration_files, "Also read this configuration file")
      ->type_name("FILE")
      ->expected(1)
      ->take_all()
      ->delimiter(',');
  app.add_option("-L", raw.log, "Where to log; see below")
      ->type_name("OPTION")
      ->expected(1, 3)
      ->take_all()
      ->inject_separator();
  raw.debug_option = app.add_option("-D", raw.debug, "Trace these tokens, or all without any")
                         ->type_name("TOKEN,...")
                         ->expected(0, 1)
                         ->join(',');
  app.add_option("-p", options.pid_file, "Write the process id to this file")->type_name("FILE");
  app.add_option("--module", options.module, "The module to load")->capture_default_str()->type_name("PATH");
  app.add_option("--platform", options.platforms, "Platform library to load before the module (repeatable)")
      ->type_name("LIB")
      ->expected(1)
      ->take_all();
  app.add_option("--listen", options.listen, "Run stand-alone and listen on this address (repeatable)")
      ->type_name("ADDRESS")
      ->expected(1)
      ->take_all()
      ->excludes(agentx);
  app.add_option("--notification-limit", options.notification_limit,
                 "How many notifications to keep while they cannot be sent")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}));
  app.add_option("--change-limit", options.change_limit,
                 "How many changes of faults to keep for managers that have missed notifications")
      ->capture_default_str()
      ->type_name("COUNT")
      ->check(CLI::Range(std::size_t{0}, std::size_t{1'000'000}));
  app.add_option("--tool-timeout", raw.tool_timeout, "Kill the module's tools after this many seconds, 0 for never")
      ->capture_default_str()
      ->type_name("SECONDS")
      ->take_last()
      ->check(CLI::Range(0L, 1'000'000L));
  app.add_option("--answer-within", raw.answer_within,
                 "Answer genErr to a request that has waited for its table so many milliseconds, 0 for never")
      ->capture_default_str()
      ->type_name("MILLISECONDS")
      ->take_last()
      ->check(CLI::Range(0L, 1'000'000'000L));
  CLI::Option *block =
      app.add_option("--chassis-block", options.chassis_block,
                     "Start the chassis link (TCP port 25678), which sends this file's content")
          ->type_name("FILE")
          ->check([](const std::string &file) { return std::string(file.empty() ? "a file name is needed" : ""); });
  app.add_option("--chassis-listen", options.chassis_listen, "Open the chassis link on this IPv4 address only")
      ->type_name("ADDRESS")
      ->check(CLI::ValidIPV4)
      ->needs(block);
  app.add_option("--chassis-peer", options.chassis_peers,
                 "Open the chassis link to this IPv4 address only (repeatable)")
      ->type_name("ADDRESS")
      ->expected(1)
      ->take_all()
      ->check(CLI::ValidIPV4)
      ->needs(block);
  app.add_option("--chassis-idle-limit", raw.chassis_idle_limit,
                 "Close a chassis link that has been idle for so many seconds, 0 for never")
      ->capture_default_str()
      ->type_name("SECONDS")
      ->take_last()
      ->check(CLI::Range(0L, 1'000'000L))
      ->needs(block);
}

}  // namespace

bool Options::logs_to_output() const {
  return std::any_of(log.begin(), log.end(), [](const auto &words) {
    return std::string_view("oOeE").find(words[0][0]) != std::string_view::npos;
  });
}

std::string join(const std::vector<std::string> &words, std::string_view separator) {
  std::string joined;
  for (const std::string &word : words) {
    if (!joined.empty()) {
      joined += separator;
    }
    joined += word;
  }
  return joined;
}

CommandLine parse_command_line(int argc, const char *const *argv) {
  CommandLine result;
  Options &options = result.options;
  RawOptions raw;

  CLI::App app(
      "The SNMP subagent of the management controller. Loads the extension MIB module and serves it as an AgentX\n"
      "subagent of the system's SNMP agent or, with --listen, as a stand-alone agent.",
      daemon_name);
  app.footer(closing_lines);
  app.set_help_flag("-h,--help", "Print this help");
  app.set_version_flag("-v,--version",
                       std::string(daemon_name) + " " SUBAGENTD_VERSION " (net-snmp " + netsnmp_get_version() + ")",
                       "Print the version");
  add_options(app, options, raw);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp &) {
    result.leave = ExitStatus::Ok;
    result.text = app.help();
  } catch (const CLI::CallForVersion &version) {
    result.leave = ExitStatus::Ok;
    result.text = version.what() + std::string("\n");
  } catch (const CLI::ParseError &error) {
    result.leave = ExitStatus::Usage;
    result.text = std::string(daemon_name) + ": " + error.what() + "\nTry '" + daemon_name + " -h'.\n";
  }
  options.log = split_occurrences(raw.log);
  options.tool_timeout = std::chrono::seconds(raw.tool_timeout);
  options.answer_within = std::chrono::milliseconds(raw.answer_within);
  options.chassis_idle_limit = std::chrono::seconds(raw.chassis_idle_limit);
  if (raw.debug_option->count() > 0) {
    options.debug_tokens = raw.debug;
  }
  return result;
}

}  // namespace tavo
