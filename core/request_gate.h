// Keeps a slow table from stopping the whole agent.
//
// A rebuild may hold its table's lock for 25 s and more. A request that waited for the lock in its handler would stop
// the agent's only thread, and with it every other request. So the gate stands in front of each table's handlers:
//
// - If the table's lock is free, the gate takes it and holds it until the request has left the table.
// - If it is busy, the gate sets the request aside (net-snmp calls it "delegated") and takes a reservation in the
//   lock's queue. The agent goes on with other requests.
// - When the lock is free and the reservation's turn has come, whoever released the lock writes an eventfd, which
//   net-snmp's own loop watches. The agent's thread takes the lock, lets the waiting requests through to their table
//   and releases it. net-snmp then finishes them, which may lead a GETNEXT or GETBULK to the gate of the next table.
//
// Nothing polls, there is no thread beside the agent's, and any program that runs net-snmp's loop will do. If net-snmp
// cannot watch the eventfd, or the request cannot be set aside, the gate waits for the lock.
//
// A request waits for one lock or, with varbinds of several tables, for several. Varbinds of other tables get their
// values at once, but the response leaves with the last value. So does a GETBULK's that runs from a free table into a
// busy one.
//
// net-snmp knows the end of a request in many ways: it is answered, its session closes, the agent stops. So each
// waiting request is noted on its request info, and net-snmp frees that note exactly when it frees the request.
//
// Everything here runs on the agent's thread. The locks' queues alone are shared with other threads.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <chrono>
#include <cstddef>

#include "core/access_lock.h"
#include "core/array.h"

namespace tavo {

class RequestGate {
 public:
  // So many requests may wait; more get genErr. net-snmp sets no limit of its own.
  static constexpr std::size_t most_waiting = 256;

  // The one gate. Never destroyed: the agent frees its requests after static objects.
  static RequestGate &instance();

  // Puts the gate in front of all handlers of a registration. Without memory the registration stays without one.
  void guard(netsnmp_handler_registration *registration, ListLock &lock);

  // Whether the gate holds this lock, for a request that is in a table now.
  static bool holds(const ListLock &lock) { return lock_held == &lock; }

  // How long a request may wait before it gets genErr. 0, the default: as long as it takes. At start-up the environment
  // variable TAVO_ANSWER_WITHIN_MS sets it.
  void set_answer_limit(std::chrono::milliseconds limit) { answer_limit_ = limit; }

  std::size_t waiting() const { return waiting_.size(); }

 private:
  struct Group;
  struct Waiting;

  constexpr RequestGate() = default;
  void start();

  static Netsnmp_Node_Handler enter;
  // False if memory is short.
  bool set_aside(const Group &group, netsnmp_agent_request_info *info);
  // Too many wait. One that has waited before keeps its note, and is not refused half-way.
  bool is_full(netsnmp_agent_request_info *info) const;
  // Null if memory is short.
  Waiting *note_of(netsnmp_agent_request_info *info);
  bool drop_earlier_copy_of(netsnmp_agent_request_info *info);
  // Called when net-snmp frees the request.
  void forget(Waiting *request);

  void wake();
  void serve(ListLock &lock);
  void tidy_up();
  // Answers those that have waited since `latest` or longer with genErr.
  void refuse(std::chrono::steady_clock::time_point latest);
  void refuse_all() { refuse(std::chrono::steady_clock::time_point::max()); }
  void start_alarm();

  int pass(const Group &group, netsnmp_agent_request_info *info, int error);
  bool is_awaited(const ListLock &lock) const;
  void leave_queue_unless_awaited(ListLock &lock);
  void wake_later() const;

  bool started_ = false;
  int event_ = -1;            // -1: net-snmp cannot watch it, and requests wait in their handlers
  Array<ListLock *> locks_;   // of all guarded tables
  Array<Waiting *> waiting_;  // in the order in which they came
  Array<Waiting *> dropped_;  // repeated since, to be freed without an answer
  std::size_t notes_ = 0;     // of requests that wait, have waited or are dropped
  static constinit inline const ListLock *lock_held = nullptr;
  std::chrono::milliseconds answer_limit_{0};
  unsigned alarm_ = 0;  // of the answer limit; 0: not running
};

}  // namespace tavo
