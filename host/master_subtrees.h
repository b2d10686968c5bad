// Registers the daemon's subtrees with an AgentX master, each as a whole.
//
// net-snmp registers every table of a subagent by itself, with a request of its own, and the master may ask for tables
// between two of these requests. A manager's walk would then go through those tables that are registered by now, and
// end without an error. So the daemon registers a subtree with one request, for all that is in it, and keeps net-snmp's
// own requests for that from the master. Registrations outside of these subtrees are net-snmp's, as usual.
#pragma once

#include <bitset>
#include <cstddef>

namespace tavo {

// At most one exists at a time. Everything belongs to the loop's thread.
class MasterSubtrees {
 public:
  // The subtrees: the module's and the daemon's own.
  static constexpr std::size_t count = 2;

  // Registers the subtrees in each session from now on, as soon as it is open. Their objects should be there by then.
  // While the master refuses one (another subagent has it), logs that and tries again every few seconds. What is
  // registered stays so until the session ends: snmpd keeps pointers to the subtrees that waiting requests ask.
  MasterSubtrees();
  ~MasterSubtrees();
  MasterSubtrees(const MasterSubtrees &) = delete;
  MasterSubtrees &operator=(const MasterSubtrees &) = delete;

 private:
  static int session_opened(int major, int minor, void *session, void *self);
  static int session_ended(int major, int minor, void *session, void *self);
  void register_missing();
  void stop_alarm();

  void *session_ = nullptr;  // null while there is none
  std::bitset<count> registered_;
  unsigned int alarm_ = 0;  // of the next try; 0: not running
};

}  // namespace tavo
