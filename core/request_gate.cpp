#include "core/request_gate.h"

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/fd_event_manager.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/descriptor.h"
#include "core/health.h"
#include "core/zeroed.h"

// Exported by net-snmp's agent library, but declared in none of its headers.
extern "C" {
// The session through which a subagent asks itself. Null in an agent of its own.
extern netsnmp_session *agentx_callback_sess [[gnu::weak]];
// Lists a delegated request, if it is not listed yet.
int netsnmp_check_for_delegated_and_add(netsnmp_agent_session *asp);
}

namespace tavo {
namespace {

using Clock = std::chrono::steady_clock;

// Under this name the note of a waiting request hangs on its request info.
constexpr const char *note_name = "tavo_request_gate";

// As many requests go through in one turn of the agent's loop: hundreds would keep all others out for seconds.
constexpr int most_in_one_turn = 8;

// Under AgentX the GETNEXT of a range with an inclusive start first runs as a GET for the start itself.
bool looks_for_inclusive_starts(const netsnmp_agent_request_info *info) {
  return info->mode == MODE_GET && info->asp->pdu->command != SNMP_MSG_GET;
}

bool may_start_with_an_instance(const netsnmp_handler_registration *registration,
                                const netsnmp_request_info *requests) {
  const std::size_t instance_length = registration->rootoid_len + 3;  // entry, column, index
  for (const netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
    if (request->inclusive != 0 && request->requestvb->name_length == instance_length) {
      return true;
    }
  }
  return false;
}

bool have_equal_names(const netsnmp_variable_list *one, const netsnmp_variable_list *other) {
  for (; one != nullptr && other != nullptr; one = one->next_variable, other = other->next_variable) {
    if (netsnmp_oid_equals(one->name, one->name_length, other->name, other->name_length) != 0) {
      return false;
    }
  }
  return one == other;
}

// Whether one PDU is the other, sent again. A repeated SNMPv3 message has a new message id and the old request id; one
// that came by AgentX gets a new request id here and keeps its transaction id, which other PDUs for the same
// transaction have too.
bool is_repeated(const netsnmp_agent_session &earlier, const netsnmp_agent_session &later) {
  const netsnmp_pdu &one = *earlier.orig_pdu;
  const netsnmp_pdu &other = *later.orig_pdu;
  const bool by_agentx = (one.flags & UCD_MSG_FLAG_ALWAYS_IN_VIEW) != 0;
  const bool same_number = by_agentx ? one.transid != 0 && one.transid == other.transid && one.sessid == other.sessid
                                     : one.reqid == other.reqid;
  return same_number && earlier.session == later.session && one.version == other.version &&
         one.command == other.command && one.transport_data_length == other.transport_data_length &&
         (one.transport_data_length == 0 || std::memcmp(one.transport_data, other.transport_data,
                                                        static_cast<std::size_t>(one.transport_data_length)) == 0) &&
         have_equal_names(one.variables, other.variables);
}

void mark(netsnmp_request_info *requests, bool delegated) {
  for (; requests != nullptr; requests = requests->next) {
    requests->delegated = delegated ? REQUEST_IS_DELEGATED : REQUEST_IS_NOT_DELEGATED;
  }
}

// At the end of the first pass of a GET net-snmp makes each varbind without a value noSuchInstance, also one that
// waits.
void take_back_missing_values(const netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
  for (; info->mode == MODE_GET && requests != nullptr; requests = requests->next) {
    if (requests->requestvb->type == SNMP_NOSUCHINSTANCE) {
      requests->requestvb->type = ASN_NULL;
    }
  }
}

}  // namespace

// Varbinds of one PDU that belong to one registration, as net-snmp handed them over.
struct RequestGate::Group {
  netsnmp_mib_handler *gate;
  netsnmp_handler_registration *registration;
  netsnmp_request_info *requests;

  ListLock &lock() const { return *static_cast<ListLock *>(gate->myvoid); }
};

// A PDU that waits or has waited.
struct RequestGate::Waiting {
  netsnmp_agent_request_info *info;
  netsnmp_session *session;
  Array<Group> groups;  // that wait
  Clock::time_point since;

  bool waits_for(const ListLock &lock) const {
    return std::ranges::any_of(groups.items(), [&](const Group &group) { return &group.lock() == &lock; });
  }
};

RequestGate &RequestGate::instance() {
  static constinit RequestGate gate;
  if (!gate.started_) {
    gate.started_ = true;
    gate.start();
  }
  return gate;
}

void RequestGate::start() {
  Descriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!event || register_readfd(
                    event.get(), [](int, void *) { instance().wake(); }, nullptr) != FD_REGISTERED_OK) {
    return;
  }
  event_ = event.release();
  // While a request is delegated net-snmp lets a SET wait, and every other request behind the SET. Access control,
  // which comes last before that, lets the gate know: called last, it sees whether the SET goes on.
  netsnmp_register_callback(
      SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL,
      [](int, int, void *check, void *) {
        const auto *access = static_cast<view_parameters *>(check);
        if (access->pdu->command == SNMP_MSG_SET && access->errorcode == 0) {
          instance().refuse_all();
        }
        return SNMPERR_SUCCESS;
      },
      nullptr, NETSNMP_CALLBACK_LOWEST_PRIORITY);
  // A request points to every subtree that it has asked or will ask, not only to the one that it waits for.
  snmp_register_callback(
      SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_UNREGISTER_OID,
      [](int, int, void *, void *) {
        instance().refuse_all();
        return SNMPERR_SUCCESS;
      },
      nullptr);
  // An AgentX master that starts anew counts its requests from 1 again. net-snmp takes those that waited before for the
  // new ones of the same number, and sends the new master their values or nothing at all.
  snmp_register_callback(
      SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP,
      [](int, int, void *, void *) {
        instance().refuse_all();
        return SNMPERR_SUCCESS;
      },
      nullptr);
  if (const char *limit = std::getenv("TAVO_ANSWER_WITHIN_MS"); limit != nullptr) {
    answer_limit_ = std::chrono::milliseconds(std::max(0L, std::strtol(limit, nullptr, 10)));
  }
}

void RequestGate::guard(netsnmp_handler_registration *registration, ListLock &lock) {
  netsnmp_mib_handler *gate = netsnmp_create_handler("request_gate", enter);
  if (gate == nullptr) {
    return;
  }
  if (std::ranges::count(locks_.items(), &lock) == 0 && !locks_.push(&lock)) {
    netsnmp_handler_free(gate);
    return;
  }
  gate->myvoid = &lock;
  netsnmp_inject_handler(registration, gate);
  // After 30 s, its default, the subagent would give up on a request that still waits here, and never answer it.
  constexpr long longest_wait = 1'800'000'000;  // microseconds
  if (&agentx_callback_sess != nullptr && agentx_callback_sess != nullptr) {
    agentx_callback_sess->timeout = longest_wait;
  }
}

TAVO_LOCKING(no_thread_safety_analysis)
int RequestGate::enter(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration,
                       netsnmp_agent_request_info *info, netsnmp_request_info *requests) {
  RequestGate &gate = instance();
  const Group group = {.gate = handler, .registration = registration, .requests = requests};
  ListLock &lock = group.lock();
  if (gate.event_ < 0 || info->asp == nullptr) {
    return gate.pass(group, info, lock.acquire());
  }
  if (looks_for_inclusive_starts(info)) {
    // net-snmp would forget that this is no GET if it were set aside now. What finds nothing is asked again as GETNEXT.
    return may_start_with_an_instance(registration, requests) ? gate.pass(group, info, lock.acquire())
                                                              : SNMP_ERR_NOERROR;
  }
  // One that has waited comes back for its next row or table: it does not queue up again.
  if (!gate.is_awaited(lock) || netsnmp_agent_get_list_data(info, note_name) != nullptr) {
    const int error = lock.acquire_or_reserve(gate.event_);
    if (error != EBUSY) {
      return gate.pass(group, info, error);
    }
  }
  if (gate.set_aside(group, info)) {
    return SNMP_ERR_NOERROR;
  }
  gate.leave_queue_unless_awaited(lock);
  return gate.pass(group, info, lock.acquire());
}

// Lets the group through to its table. `error`: of the attempt to lock; without the lock the walk tries for itself.
TAVO_LOCKING(no_thread_safety_analysis)
int RequestGate::pass(const Group &group, netsnmp_agent_request_info *info, int error) {
  if (error != 0) {
    return netsnmp_call_next_handler(group.gate, group.registration, info, group.requests);
  }
  ListLock &lock = group.lock();
  const ListLock *const held_before = std::exchange(lock_held, &lock);
  const int result = netsnmp_call_next_handler(group.gate, group.registration, info, group.requests);
  lock_held = held_before;
  lock.release();
  if (is_awaited(lock)) {  // its reservation was used
    wake_later();
  }
  return result;
}

bool RequestGate::set_aside(const Group &group, netsnmp_agent_request_info *info) {
  if (!drop_earlier_copy_of(info)) {
    return false;
  }
  if (is_full(info)) {
    leave_queue_unless_awaited(group.lock());
    netsnmp_request_set_error_all(group.requests, SNMP_ERR_GENERR);
    return true;
  }
  Waiting *const request = note_of(info);
  if (request == nullptr) {
    return false;
  }
  const bool waits_already = !request->groups.empty();
  if (!request->groups.push(group)) {
    return false;
  }
  if (!waits_already && !waiting_.push(request)) {
    request->groups.clear();
    return false;
  }
  mark(group.requests, true);
  start_alarm();
  return true;
}

bool RequestGate::is_full(netsnmp_agent_request_info *info) const {
  return notes_ - dropped_.size() >= most_waiting && netsnmp_agent_get_list_data(info, note_name) == nullptr;
}

RequestGate::Waiting *RequestGate::note_of(netsnmp_agent_request_info *info) {
  if (void *const noted = netsnmp_agent_get_list_data(info, note_name); noted != nullptr) {
    return static_cast<Waiting *>(noted);
  }
  auto request = make_zeroed<Waiting>();
  if (request == nullptr) {
    return nullptr;
  }
  netsnmp_data_list *const node = netsnmp_create_data_list(note_name, request.get(), [](void *freed) {
    const Zeroed<Waiting> ended(static_cast<Waiting *>(freed));
    instance().forget(ended.get());
    ended->groups.release();
  });
  if (node == nullptr) {
    return nullptr;
  }
  request->info = info;
  request->session = info->asp->session;
  request->since = Clock::now();
  netsnmp_agent_add_list_data(info, node);
  ++notes_;
  report(tavo_request_set_aside, info);
  return request.release();
}

// Managers that get no answer ask again. Only the last copy is answered: its predecessors are the same question, and an
// SNMPv3 manager listens for the newest message id alone. The copy is freed later, as net-snmp may be walking through
// its requests now.
bool RequestGate::drop_earlier_copy_of(netsnmp_agent_request_info *info) {
  for (Waiting *request : waiting_.items()) {
    if (request->info == info || !is_repeated(*request->info->asp, *info->asp)) {
      continue;
    }
    if (!dropped_.push(request)) {
      return false;
    }
    waiting_.remove(request);
    wake_later();
    break;
  }
  return true;
}

void RequestGate::forget(Waiting *request) {
  --notes_;
  report(tavo_request_ended, request->info);
  waiting_.remove(request);
  dropped_.remove(request);
  for (const Group &group : request->groups.items()) {
    leave_queue_unless_awaited(group.lock());
  }
}

void RequestGate::wake() {
  std::uint64_t count;
  [[maybe_unused]] const ssize_t got = ::read(event_, &count, sizeof count);
  tidy_up();
  for (ListLock *lock : locks_.items()) {
    if (is_awaited(*lock)) {
      serve(*lock);
    }
  }
  netsnmp_check_outstanding_agent_requests();
}

// Lets the requests that wait for a lock through to their tables.
TAVO_LOCKING(no_thread_safety_analysis)
void RequestGate::serve(ListLock &lock) {
  const int error = lock.acquire_or_reserve(event_);
  if (error == EBUSY) {
    return;
  }
  lock_held = error == 0 ? &lock : nullptr;
  int left = most_in_one_turn;
  for (Waiting *request : waiting_.items()) {
    if (!request->waits_for(lock)) {
      continue;
    }
    if (left-- == 0) {
      wake_later();
      break;
    }
    request->groups.remove_if([&](const Group &group) {
      if (&group.lock() != &lock) {
        return false;
      }
      mark(group.requests, false);
      take_back_missing_values(request->info, group.requests);
      netsnmp_call_next_handler(group.gate, group.registration, request->info, group.requests);
      return true;
    });
  }
  if (lock_held != nullptr) {
    lock_held = nullptr;
    lock.release();
  }
  waiting_.remove_if([](const Waiting *request) { return request->groups.empty(); });
}

// Frees the requests that nobody waits for: earlier copies, and those of TCP clients that have left, whose session
// net-snmp has freed. And has net-snmp know all others: one that is set aside for a second time it does not list again
// while it lists another with the same transaction id, as when one PDU at an AgentX master becomes several here.
void RequestGate::tidy_up() {
  while (!dropped_.empty()) {
    netsnmp_remove_and_free_agent_snmp_session(dropped_.items().back()->info->asp);  // forgets it, too
  }
  for (std::size_t i = 0; i < waiting_.size();) {
    const Waiting *const request = waiting_.items()[i];
    if (snmp_sess_pointer(request->session) == nullptr) {
      netsnmp_remove_and_free_agent_snmp_session(request->info->asp);  // likewise, and so moves the others
      i = 0;
    } else {
      ++i;
    }
  }
  for (const Waiting *request : waiting_.items()) {
    netsnmp_check_for_delegated_and_add(request->info->asp);
  }
}

void RequestGate::refuse(Clock::time_point latest) {
  tidy_up();
  for (Waiting *request : waiting_.items()) {
    if (request->since > latest) {
      continue;
    }
    for (const Group &group : request->groups.items()) {
      take_back_missing_values(request->info, group.requests);
      netsnmp_request_set_error_all(group.requests, SNMP_ERR_GENERR);
    }
    request->info->asp->flags |= SNMP_AGENT_FLAGS_CANCEL_IN_PROGRESS;  // no next table is asked
  }
  netsnmp_check_outstanding_agent_requests();
}

void RequestGate::start_alarm() {
  if (answer_limit_.count() == 0 || alarm_ != 0 || waiting_.empty()) {
    return;
  }
  Clock::time_point oldest = Clock::time_point::max();
  for (const Waiting *request : waiting_.items()) {
    oldest = std::min(oldest, request->since);
  }
  const auto left = std::max(std::chrono::milliseconds(1),
                             std::chrono::ceil<std::chrono::milliseconds>(oldest + answer_limit_ - Clock::now()));
  const timeval delay = {.tv_sec = static_cast<time_t>(left.count() / 1000),
                         .tv_usec = static_cast<suseconds_t>(left.count() % 1000 * 1000)};
  alarm_ = snmp_alarm_register_hr(
      delay, 0,
      [](unsigned, void *) {
        RequestGate &gate = instance();
        gate.alarm_ = 0;
        gate.refuse(Clock::now() - gate.answer_limit_);
        gate.start_alarm();
      },
      nullptr);
}

bool RequestGate::is_awaited(const ListLock &lock) const {
  return std::ranges::any_of(waiting_.items(), [&](const Waiting *request) { return request->waits_for(lock); });
}

void RequestGate::leave_queue_unless_awaited(ListLock &lock) {
  if (!is_awaited(lock)) {
    lock.give_up_place();
  }
}

void RequestGate::wake_later() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(event_, &one, sizeof one);
}

}  // namespace tavo
