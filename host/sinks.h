// The managers to which a stand-alone agent sends its notifications, watched so that one that takes nothing hurts
// nobody else.
//
// net-snmp keeps each inform until the manager acknowledges it or all retries are through, however many there are. So
// at most `window` informs to one sink are in flight. While a sink's window is full, the notifications of all sinks
// wait, for a burst must not lose anything; but not longer than `patience`: from then on the sink counts as silent, and
// what does not fit into its window is dropped, until it acknowledges an inform again.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace tavo {

// Everything here belongs to the thread of the agent's loop.
class Sinks {
 public:
  // Informs to one sink that may be unacknowledged.
  static constexpr std::size_t window = 50;
  static constexpr std::chrono::seconds patience{5};

  // net-snmp's function, and the arguments of one call of it.
  using Send = int(netsnmp_session *session, netsnmp_pdu *pdu, netsnmp_callback callback, void *magic);
  struct Call {
    Send *send;
    netsnmp_session *session;
    netsnmp_pdu *pdu;
    netsnmp_callback callback;
  };

  // `room`: called when notifications that had to wait may go on.
  explicit Sinks(std::function<void()> room);
  ~Sinks();
  Sinks(const Sinks &) = delete;
  Sinks &operator=(const Sinks &) = delete;

  // Whether the next notification may be sent. If not, `room` follows.
  bool ready();
  // Any sink that the configuration adds. Over TCP its end must be noticed: net-snmp would go on with a session that it
  // has freed.
  static void add(netsnmp_session *session);
  // Sends, or drops and counts, as snmp_async_send() would: returns the number of the request, or 0 if it failed and
  // the PDU is still the caller's. Throws std::bad_alloc.
  int send(const Call &call);
  // The configuration was read again, which has closed the sessions of all sinks.
  void forget();

  // Since the start: informs dropped, refused or given up, and traps that a sink over TCP had no room for.
  std::size_t lost() const { return lost_; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Sink {
    Sinks &sinks;
    std::string name;
    bool acknowledges;      // it gets informs
    const int *connection;  // net-snmp's TCP socket; null over UDP
    std::size_t in_flight = 0;
    bool silent = false;
    bool removed = false;                 // its connection has ended
    Clock::time_point last_acknowledged;  // or when the first of those in flight was sent
    Clock::time_point last_writable;
    std::size_t lost = 0;
    std::size_t reported = 0;
    std::optional<Clock::time_point> last_report = std::nullopt;
  };

  Sink &sink_of(const Call &call);
  static bool has_room(Sink &sink);
  static bool may_be_silent(const Sink &sink);
  static int received(int operation, netsnmp_session *session, int request, netsnmp_pdu *pdu, void *magic);
  static int informed(int operation, netsnmp_session *session, int request, netsnmp_pdu *answer, void *sink);
  void remove(const netsnmp_session *session);
  void acknowledged(Sink &sink);
  static void end_silence(Sink &sink);
  void count_lost(Sink &sink);
  static void report(Sink &sink);
  void check_later();
  static void check(unsigned int alarm, void *self);

  const std::function<void()> room_;
  std::map<const netsnmp_session *, Sink> sinks_;
  std::size_t lost_ = 0;
  bool waiting_ = false;
  unsigned int alarm_ = 0;
};

}  // namespace tavo
