#include "host/daemon.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "core/heap.h"
#include "host/agent.h"
#include "host/background.h"
#include "host/chassis_link.h"
#include "host/descriptors.h"
#include "host/dump_files.h"
#include "host/fault_history.h"
#include "host/fault_mib.h"
#include "host/health_mib.h"
#include "host/master_subtrees.h"
#include "host/module.h"
#include "host/module_health.h"
#include "host/name.h"
#include "host/notification_path.h"
#include "host/platform_calls.h"
#include "host/resources.h"
#include "host/service_manager.h"
#include "host/signals.h"
#include "host/start_progress.h"
#include "host/tools.h"

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;

// How long a stop waits for the module's threads, and then for the notifications still queued. If the whole stop takes
// longer than the last limit, the loop itself is stuck, most likely in a request that waits for a table to be rebuilt.
constexpr auto threads_limit = std::chrono::seconds(5);
constexpr auto notifications_limit = std::chrono::seconds(1);
constexpr auto stop_limit = std::chrono::seconds(8);
static_assert(stop_limit > threads_limit + notifications_limit);

// Reading the active faults takes milliseconds.
constexpr auto faults_limit = std::chrono::seconds(3);

// Between two signs of life, a start runs one tool, and beside that sleeps or waits for the platform's libraries.
constexpr auto longest_silence_without_tool = std::chrono::seconds(90);

void serve_one_turn() {
  agent_check_and_process(1);
}

void wake_only(int /*descriptor*/, void *event) {
  static_cast<const EventDescriptor *>(event)->clear();
}

// agent_check_and_process() has no time limit. An alarm ends its wait ten times a second while a deadline runs.
class Ticking {
 public:
  Ticking() : alarm_(snmp_alarm_register_hr({.tv_sec = 0, .tv_usec = 100'000}, SA_REPEAT, tick, nullptr)) {}
  ~Ticking() { snmp_alarm_unregister(alarm_); }
  Ticking(const Ticking &) = delete;
  Ticking &operator=(const Ticking &) = delete;

 private:
  static void tick(unsigned int /*alarm*/, void * /*argument*/) {}
  unsigned int alarm_;
};

template <class Condition>
void serve_until(Condition reached, Clock::duration limit) {
  const auto deadline = Clock::now() + limit;
  while (!reached() && Clock::now() < deadline) {
    serve_one_turn();
  }
}

void report_status(const Options &options, bool linked) {
  const std::string master = options.agentx_address.empty() ? "the AgentX master" : options.agentx_address;
  std::string status = "STATUS=waiting for " + master;
  if (options.stand_alone()) {
    status = "STATUS=serving on " + join(options.listen, ", ");
  } else if (linked) {
    status = "STATUS=serving through " + master;
  }
  report_to_service_manager(Report::Passing, status);
}

// Called through net-snmp, which is no place for an exception.
void report_link(const Options &options, bool up) noexcept {
  try {
    report_status(options, up);
  } catch (const std::bad_alloc &) {
    snmp_log(LOG_WARNING, "out of memory: STATUS= is not up to date\n");
  }
  if (up) {
    // The session's socket is close-on-exec already, but its transport may have opened other files.
    close_descriptors_on_exec();
  }
}

void reload(const Options &options, NotificationPath &path) {
  snmp_log(LOG_INFO, "reading the configuration again\n");
  report_to_service_manager(Report::Decisive, "RELOADING=1");
  try {
    reload_agent(options);
  } catch (const std::bad_alloc &) {
    snmp_log(LOG_ERR, "out of memory while reading the configuration: send SIGHUP again\n");
  }
  path.sinks().forget();
  close_descriptors_on_exec();
  report_to_service_manager(Report::Decisive, "READY=1");
}

// Stops the module while the loop keeps turning: a thread may send a last notification before it ends, or wait for a
// lock that a request holds. True when every thread has ended.
bool stop_module(Module &module, ChassisLink *link) {
  module.ask_threads_to_stop();
  if (link != nullptr) {
    link->ask_to_stop();
  }
  // Never destroyed: shared with a thread that may never end.
  static std::atomic<bool> closed = false;
  std::thread closer;
  try {
    closer = std::thread([&module, link] {
      if (link != nullptr) {
        link->close();  // first, because the link ends soon and the module's other threads may never end
      }
      module.close();
      closed = true;
    });
  } catch (const std::exception &error) {
    snmp_log(LOG_WARNING, "cannot create the thread that joins the module's: %s\n", error.what());
    return false;
  }
  serve_until(
      [&] {
        if (link != nullptr) {
          link->wake();
        }
        return closed.load();
      },
      threads_limit);
  if (!closed) {
    closer.detach();
    return false;
  }
  closer.join();
  return true;
}

[[noreturn]] void leave_without_threads(const PidFile &pid_file, ExitStatus status = ExitStatus::Ok) {
  pid_file.remove();
  // Not exit(), which would destroy what the remaining threads still use.
  _exit(static_cast<int>(status));
}

void start_module(Module &module, const Options &options, const PidFile &pid_file) {
  const StartProgress progress(options.tool_timeout + longest_silence_without_tool);
  try {
    module.start();
  } catch (const StartFailure &failure) {
    // Some of the module's threads may run by now, and send notifications.
    leave_without_threads(pid_file, report_start_failure(failure));
  }
}

// Called on the watcher's thread when the loop is stuck. It may be stuck in the log (standard output may be a full pipe
// that nobody reads), so the last line is written by a thread of its own and gets half a second.
[[noreturn]] void leave_overdue(const PidFile &pid_file) {
  try {
    std::packaged_task<void()> log([] { snmp_log(LOG_WARNING, "still busy, leaving all the same\n"); });
    const std::future<void> logged = log.get_future();
    std::thread(std::move(log)).detach();
    logged.wait_for(std::chrono::milliseconds(500));
  } catch (const std::exception &) {
    // Without a thread or memory it leaves without the line.
  }
  leave_without_threads(pid_file);
}

void serve(const Options &options, Signals &signals, NotificationPath &path, ChassisLink *link) {
  register_readfd(signals.changed().get(), wake_only, const_cast<EventDescriptor *>(&signals.changed()));
  while (!signals.stop_requested()) {
    serve_one_turn();
    if (signals.take_reload()) {
      if (link != nullptr) {
        link->reload();
      }
      reload(options, path);
    }
  }
}

// True when every thread of the module has ended.
bool stop(Module &module, ChassisLink *link, const NotificationQueue &queue) {
  const Ticking ticking;
  const bool all_ended = stop_module(module, link);
  serve_until([&] { return queue.idle() || !queue.linked(); }, notifications_limit);
  return all_ended;
}

// The module's exports are fixed, so it takes its few settings from the environment.
void pass_settings_to_module(const Options &options) {
  const auto pass = [](const char *name, bool is_set, const std::string &value) {
    if (is_set) {
      ::setenv(name, value.c_str(), 1);
    }
  };
  pass("TAVO_ANSWER_WITHIN_MS", options.answer_within.count() > 0, std::to_string(options.answer_within.count()));
  pass("TAVO_CHASSIS_LISTEN", !options.chassis_listen.empty(), options.chassis_listen);
  pass("TAVO_CHASSIS_PEERS", !options.chassis_peers.empty(), join(options.chassis_peers, ","));
  pass("TAVO_CHASSIS_IDLE_LIMIT", options.chassis_idle_limit.count() > 0,
       std::to_string(options.chassis_idle_limit.count()));
}

}  // namespace

ExitStatus run_daemon(const Options &options) {
  share_one_heap();
  set_up_logging(options);
  std::optional<Background> background;
  if (!options.foreground) {
    background.emplace();
  }
  require_resources();
  const PidFile pid_file(options.pid_file);
  // Never destroyed: a thread of the module that cannot be joined may still wait for a tool.
  ToolRunner &tools = *new ToolRunner(options.tool_timeout, StartProgress::sign_of_life);
  // Nor is this one: the thread may be in a platform call as well.
  const PlatformCalls &platform_calls = *new PlatformCalls(options.tool_timeout);
  // The tools are killed at once and not when the loop gets to it, because the loop itself may wait for one.
  Signals signals(stop_limit, {.stop_begins = [&tools] { tools.stop(); },
                               .leave_at_once = [&pid_file] { leave_overdue(pid_file); }});

  for (const std::string &library : options.platforms) {
    load_platform_library(library);
  }
  pass_settings_to_module(options);
  FaultHistory::instance().keep(options.change_limit);
  Module module(options.module);
  std::unique_ptr<ChassisLink> link;
  if (!options.chassis_block.empty()) {
    link = std::make_unique<ChassisLink>(module.chassis_link(), options.chassis_block);
  }

  std::optional<NotificationPath> path;
  path.emplace(options.notification_limit, !options.stand_alone(), [&options](bool up) { report_link(options, up); });
  HealthMib health({.stand_alone = options.stand_alone(),
                    .notifications = *path,
                    .tools = tools,
                    .platform_calls = platform_calls,
                    .module = ModuleHealth::instance()});
  std::optional<MasterSubtrees> subtrees;
  open_agent(options, [&] {
    if (!options.stand_alone()) {
      subtrees.emplace();
    }
    path->attach();
    health.attach();
    serve_faults(FaultHistory::instance());
  });
  close_descriptors_on_exec();
  warn_of_unwritable_dumps();
  start_module(module, options, pid_file);
  // A manager that polls during the start would otherwise find an empty fault table.
  module.wait_for_faults(faults_limit);
  if (link) {
    link->start();
  }
  if (!options.stand_alone()) {
    connect_to_master();
  }

  snmp_log(LOG_INFO, "%s " SUBAGENTD_VERSION " serves\n", daemon_name);
  report_status(options, path->queue().linked());
  report_to_service_manager(Report::Decisive, "READY=1");
  if (background) {
    background->ready(options.logs_to_output());
  }
  serve(options, signals, *path, link.get());

  snmp_log(LOG_INFO, "stopping\n");
  report_to_service_manager(Report::Decisive, "STOPPING=1");
  if (!stop(module, link.get(), path->queue())) {
    snmp_log(LOG_INFO, "a thread of the module is still blocked, leaving without it\n");
    leave_without_threads(pid_file);
  }
  subtrees.reset();
  path.reset();  // before net-snmp frees the callbacks and their arguments
  snmp_shutdown(daemon_name);
  return ExitStatus::Ok;
}

}  // namespace tavo
