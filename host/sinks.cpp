#include "host/sinks.h"

#include <cstdlib>
#include <memory>
#include <utility>

namespace tavo {
namespace {

// Between two log lines on what one sink has lost.
constexpr std::chrono::minutes report_interval{1};

netsnmp_callback net_snmps_callback = nullptr;
const Sinks *existing = nullptr;
// The inform that net-snmp is sending just now. It may report a failure before it returns.
const netsnmp_pdu *being_sent = nullptr;

struct Free {
  void operator()(char *text) const { std::free(text); }
};

std::string address_of(netsnmp_session *session) {
  netsnmp_transport *transport = snmp_sess_transport(snmp_sess_pointer(session));
  const std::unique_ptr<char, Free> text(transport != nullptr ? netsnmp_transport_peer_string(transport, nullptr, 0)
                                                              : nullptr);
  return text != nullptr ? text.get() : "an unknown address";
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
    if (sink.in_flight < window || sink.silent) {
      continue;
    }
    if (Clock::now() - sink.last_progress < patience) {
      waiting_ = true;
    } else {
      sink.silent = true;
      snmp_log(LOG_WARNING, "%s does not acknowledge informs: those beyond %zu in flight are dropped\n",
               sink.name.c_str(), window);
    }
  }
  if (waiting_) {
    check_later();
  }
  return !waiting_;
}

int Sinks::send(const Call &call) {
  if (call.pdu->command != SNMP_MSG_INFORM) {
    return call.send(call.session, call.pdu, call.callback, nullptr);
  }
  net_snmps_callback = call.callback;
  Sink &sink = sink_of(call.session);
  const auto request = static_cast<int>(call.pdu->reqid);
  if (sink.in_flight >= window) {
    snmp_free_pdu(call.pdu);
    count_lost(sink);
    return request;
  }
  being_sent = call.pdu;
  const int sent = call.send(call.session, call.pdu, informed, &sink);
  being_sent = nullptr;
  if (sent == 0) {
    count_lost(sink);
  } else if (sink.in_flight++ == 0) {
    sink.last_progress = Clock::now();
  }
  return sent;
}

void Sinks::forget() {
  for (auto &[session, sink] : sinks_) {
    if (sink.lost != sink.reported) {
      report(sink);
    }
  }
  // net-snmp still calls back for what is in flight.
  std::erase_if(sinks_, [](const auto &entry) { return entry.second.in_flight == 0; });
}

Sinks::Sink &Sinks::sink_of(netsnmp_session *session) {
  const auto found = sinks_.find(session);
  if (found != sinks_.end()) {
    return found->second;
  }
  return sinks_.try_emplace(session, Sink{.sinks = *this, .name = address_of(session), .last_progress = Clock::now()})
      .first->second;
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
  }
  return net_snmps_callback(operation, session, request, answer, nullptr);
}

void Sinks::acknowledged(Sink &sink) {
  sink.last_progress = Clock::now();
  if (std::exchange(sink.silent, false)) {
    snmp_log(LOG_WARNING, "%s acknowledges informs again: %zu were lost\n", sink.name.c_str(),
             sink.lost - sink.reported);
    sink.reported = sink.lost;
  }
  if (std::exchange(waiting_, false)) {
    room_();
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
  snmp_log(LOG_WARNING, "%zu informs to %s lost, %zu since it was configured\n", sink.lost - sink.reported,
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
