#include "host/sinks.h"

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "host/stream_output.h"

namespace tavo {
namespace {

// Between two log lines on what one sink has lost.
constexpr std::chrono::minutes report_interval{1};

netsnmp_callback net_snmps_callback = nullptr;
Sinks *existing = nullptr;
// The inform that net-snmp is sending just now. It may report a failure before it returns.
const netsnmp_pdu *being_sent = nullptr;

struct Free {
  void operator()(char *text) const { std::free(text); }
};

netsnmp_transport *transport_of(netsnmp_session *session) {
  return snmp_sess_transport(snmp_sess_pointer(session));
}

std::string address_of(netsnmp_session *session) {
  const std::unique_ptr<char, Free> text(netsnmp_transport_peer_string(transport_of(session), nullptr, 0));
  return text != nullptr ? text.get() : "a manager";
}

bool is_stream(const netsnmp_transport *transport) {
  return transport != nullptr && (transport->flags & NETSNMP_TRANSPORT_FLAG_STREAM) != 0;
}

}  // namespace

Sinks::Sinks(std::function<void()> room) : room_(std::move(room)) {
  existing = this;
}

Sinks::~Sinks() {
  existing = nullptr;
  forget();
  if (alarm_ != 0) {
    snmp_alarm_unregister(alarm_);
  }
}

bool Sinks::ready() {
  waiting_ = false;
  for (auto &[session, sink] : sinks_) {
    if (sink.removed) {
      continue;
    }
    if (has_room(sink)) {
      if (!sink.acknowledges) {
        end_silence(sink);
      }
    } else if (!sink.silent && !may_be_silent(sink)) {
      waiting_ = true;
    } else if (!std::exchange(sink.silent, true)) {
      snmp_log(LOG_WARNING, "%s %s: what it has no room for is dropped\n", sink.name.c_str(),
               sink.in_flight >= window ? "does not acknowledge informs" : "does not read");
    }
  }
  if (waiting_) {
    check_later();
  }
  return !waiting_;
}

bool Sinks::has_room(Sink &sink) {
  if (sink.connection == nullptr || writable(*sink.connection)) {
    sink.last_writable = Clock::now();
    return sink.in_flight < window;
  }
  return false;
}

bool Sinks::may_be_silent(const Sink &sink) {
  const auto since = sink.in_flight >= window ? sink.last_acknowledged : sink.last_writable;
  return Clock::now() - since >= patience;
}

void Sinks::add(netsnmp_session *session) {
  if (is_stream(transport_of(session))) {
    session->callback = received;
  }
}

int Sinks::send(const Call &call) {
  Sink &sink = sink_of(call);
  if (!has_room(sink)) {
    const auto request = static_cast<int>(call.pdu->reqid);
    snmp_free_pdu(call.pdu);
    count_lost(sink);
    return request;
  }
  if (!sink.acknowledges) {
    return call.send(call.session, call.pdu, call.callback, nullptr);
  }
  net_snmps_callback = call.callback;
  being_sent = call.pdu;
  const int sent = call.send(call.session, call.pdu, informed, &sink);
  being_sent = nullptr;
  if (sent == 0) {
    count_lost(sink);
  } else if (sink.in_flight++ == 0) {
    sink.last_acknowledged = Clock::now();
  }
  return sent;
}

void Sinks::forget() {
  for (auto &[session, sink] : sinks_) {
    if (sink.lost != sink.reported) {
      report(sink);
    }
  }
  std::erase_if(sinks_, [](const auto &entry) { return entry.second.in_flight == 0; });
}

Sinks::Sink &Sinks::sink_of(const Call &call) {
  const auto found = sinks_.find(call.session);
  if (found != sinks_.end()) {
    return found->second;
  }
  const netsnmp_transport *transport = transport_of(call.session);
  const auto now = Clock::now();
  return sinks_
      .try_emplace(call.session, Sink{.sinks = *this,
                                      .name = address_of(call.session),
                                      .acknowledges = call.pdu->command == SNMP_MSG_INFORM,
                                      .connection = is_stream(transport) ? &transport->sock : nullptr,
                                      .last_acknowledged = now,
                                      .last_writable = now})
      .first->second;
}

// What arrives unasked from a sink over TCP.
int Sinks::received(int operation, netsnmp_session *session, int /*request*/, netsnmp_pdu * /*pdu*/, void * /*magic*/) {
  if (operation == NETSNMP_CALLBACK_OP_DISCONNECT) {
    const std::unique_ptr<char, Free> name(netsnmp_transport_peer_string(transport_of(session), nullptr, 0));
    snmp_log(LOG_WARNING, "the connection to %s has ended: it gets no notifications until SIGHUP\n",
             name != nullptr ? name.get() : "a manager");
    remove_trap_session(session);
    if (existing != nullptr) {
      existing->remove(session);
    }
  }
  return 1;
}

void Sinks::remove(const netsnmp_session *session) {
  const auto found = sinks_.find(session);
  if (found == sinks_.end()) {
    return;
  }
  Sink &sink = found->second;
  sink.removed = true;
  // net-snmp still calls back for what is in flight.
  if (sink.in_flight == 0) {
    sinks_.erase(found);
  }
}

int Sinks::informed(int operation, netsnmp_session *session, int request, netsnmp_pdu *answer, void *magic) {
  // A stop ends while informs are in flight.
  if (existing != nullptr && answer != being_sent) {
    auto &sink = *static_cast<Sink *>(magic);
    if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) {
      --sink.in_flight;
      sink.sinks.acknowledged(sink);
      if (answer->command == SNMP_MSG_REPORT) {
        sink.sinks.count_lost(sink);
      }
    } else if (operation == NETSNMP_CALLBACK_OP_TIMED_OUT || operation == NETSNMP_CALLBACK_OP_SEND_FAILED) {
      --sink.in_flight;
      sink.sinks.count_lost(sink);
    }
    if (sink.removed) {
      sink.sinks.remove(session);
    }
  }
  return net_snmps_callback(operation, session, request, answer, nullptr);
}

void Sinks::acknowledged(Sink &sink) {
  sink.last_acknowledged = Clock::now();
  end_silence(sink);
  if (std::exchange(waiting_, false)) {
    room_();
  }
}

void Sinks::end_silence(Sink &sink) {
  if (std::exchange(sink.silent, false)) {
    snmp_log(LOG_WARNING, "%s takes notifications again: %zu were lost\n", sink.name.c_str(),
             sink.lost - sink.reported);
    sink.reported = sink.lost;
  }
}

void Sinks::count_lost(Sink &sink) {
  ++lost_;
  ++sink.lost;
  if (!sink.last_report || Clock::now() - *sink.last_report >= report_interval) {
    report(sink);
  }
}

void Sinks::report(Sink &sink) {
  snmp_log(LOG_WARNING, "%zu notifications to %s lost, %zu since it was configured\n", sink.lost - sink.reported,
           sink.name.c_str(), sink.lost);
  sink.reported = sink.lost;
  sink.last_report = Clock::now();
}

void Sinks::check_later() {
  if (alarm_ == 0) {
    alarm_ = snmp_alarm_register_hr({.tv_sec = 0, .tv_usec = 100'000}, 0, check, this);
  }
}

void Sinks::check(unsigned int /*alarm*/, void *self) {
  auto *sinks = static_cast<Sinks *>(self);
  sinks->alarm_ = 0;
  sinks->room_();
}

}  // namespace tavo
