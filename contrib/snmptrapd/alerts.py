"""What is wrong with the servers, as their notifications tell."""

import dataclasses
import itertools
import re
import threading
import time

from notification import (CAUSE, CLEARED, CODE, FIRST, INDEX, LAST, OBJECT_ID, OBJECTS, RAISED, SEVERITY, TEXT, TIMES,
                          Notification)

SEVERITIES = ["cleared", "info", "condition", "warning", "minor", "major", "critical"]
ROUTED_AS = {"info": "info", "condition": "info", "warning": "warning", "minor": "warning", "major": "critical",
             "critical": "critical"}
# The kind of part by its table, in the words of the rules for Prometheus.
PARTS = {"3.85": "adaptor", "9.6": "board", "9.35": "server", "15.12": "fan", "15.56": "power supply",
         "30.11": "memory module", "41.9": "processor", "45.1": "RAID controller", "45.4": "disk", "45.8": "volume",
         "45.11": "battery", "45.34": "SD card"}
FAN_IS_MISSING = 238
JOB = "tavo"  # as in the configuration of Prometheus

REPETITION = 10  # seconds: an inform is repeated for 6 s, and may arrive after its successor
BATCH = 500  # alerts in a request


def rfc3339(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds))


def without_empty(texts):
    return {name: text for name, text in texts.items() if text}


@dataclasses.dataclass
class Alert:
    """An alert, which is open while it has no end or one that is to come."""

    labels: dict
    annotations: dict
    start: int
    end: int | None = None

    @property
    def identity(self):
        return tuple(sorted(self.labels.items()))

    def is_open(self, now):
        return self.end is None or self.end > now

    def for_api(self, now, lease):
        """In the form of Alertmanager's API. The clock may have been set back: nothing may end before it starts."""
        end = now + lease if self.end is None else self.end
        return {"labels": self.labels, "annotations": self.annotations, "startsAt": rfc3339(min(self.start, now, end)),
                "endsAt": rfc3339(end)}


@dataclasses.dataclass
class Fault:
    """The last that was heard of a fault."""

    alert: tuple  # the identity of its alert; empty if it is cleared
    uptime: int  # the sender's, in hundredths of a second
    time: int
    confirm_by: int | None = None  # without a repetition it is taken for cleared then

    def is_repeated_by(self, notification):
        """Whether the notification was sent before the last one and comes late."""
        age = (self.uptime - notification.uptime) % 2**32
        return 0 < age < 100 * REPETITION and notification.time - self.time < REPETITION


class Full(Exception):
    """There is no room for another alert or fault."""


def fault_alert(notification, instance):
    """The alert for a raised fault."""
    severity = notification.number(SEVERITY)
    word = SEVERITIES[severity] if 0 < severity < len(SEVERITIES) else str(severity)
    table = re.match(r"1\.(\d+\.\d+)\.1\.", notification.oid(OBJECT_ID).removeprefix(f"{OBJECTS}."))
    part = PARTS.get(table[1], "") if table else ""
    cause = notification.number(CAUSE, 0)
    serial, name = notification.named_object()
    labels = {"alertname": "TavoFault", "severity": ROUTED_AS.get(word, "warning"), "fault_severity": word, "job": JOB,
              "instance": instance, "dn": name, "index": str(notification.number(INDEX)), "part": part,
              "code": str(notification.number(CODE, 0)),
              "cause": "missing" if part == "fan" and cause == FAN_IS_MISSING else str(cause)}
    annotations = {"summary": f"{instance}: {word} fault of {name}", "description": notification.text(TEXT),
                   "serial": serial, "first_time": notification.date(FIRST), "last_time": notification.date(LAST),
                   "occurrences": str(notification.number(TIMES, 0))}
    return Alert(without_empty(labels), without_empty(annotations), notification.time)


class Alerts:
    """All alerts that are open, or whose end some Alertmanager does not know yet."""

    def __init__(self, settings, state):
        """`state` is what an earlier run has saved()."""
        self._settings = settings
        self._instances = settings.instances
        self._alerts = {}
        self._faults = {}
        self.changed = threading.Condition()
        for fields in state.get("alerts", []):
            alert = Alert(**fields)
            self._alerts[alert.identity] = alert
        for (instance, *key), identity, *rest in state.get("faults", []):
            # An address may have got a name since.
            self._faults[self._instances.get(instance, instance), *key] = Fault(tuple(map(tuple, identity)), *rest)
        # What each Alertmanager is still to be told: {identity: version}
        self._waiting = {url: {identity: object() for identity in self._alerts} for url in settings.alertmanager}

    def saved(self):
        return {"alerts": [vars(alert) for alert in self._alerts.values()],
                "faults": [[key, *vars(fault).values()] for key, fault in self._faults.items()]}

    def apply(self, line):
        """Takes a line of the log. Raises Malformed or Full."""
        notification = Notification(line)
        instance = self._instances.get(notification.sender, notification.sender)
        with self.changed:
            if notification.is_start_up():
                self._started(notification, instance)
            elif notification.is_test():
                self._set_for_a_while(notification, instance, "TavoTestNotification", "is a test of its notifications")
            elif notification.kind in (RAISED, CLEARED):
                self._fault(notification, instance)

    def _check_room(self, known, most, what):
        if len(known) >= most:
            raise Full(f"{len(known)} {what} are known already")

    def _set(self, alert):
        earlier = self._alerts.get(alert.identity)
        if earlier is None:
            self._check_room(self._alerts, 2 * self._settings.most, "alerts")
        elif earlier.is_open(alert.start):
            alert.start = earlier.start
        self._alerts[alert.identity] = alert
        self._tell(alert.identity)

    def _end(self, identity, when):
        alert = self._alerts.get(identity)
        if alert and alert.is_open(when):
            alert.end = when
            self._tell(identity)

    def _tell(self, identity):
        for waiting in self._waiting.values():
            waiting[identity] = object()  # a version
        self.changed.notify_all()

    def _set_for_a_while(self, notification, instance, name, what):
        self._set(Alert({"alertname": name, "severity": "info", "job": JOB, "instance": instance},
                        {"summary": f"{instance} {what}"}, notification.time, notification.time + self._settings.brief))

    def _started(self, notification, instance):
        """The server was booted. It now repeats the faults that it still has; the others are over."""
        self._set_for_a_while(notification, instance, "TavoServerStarted", "was started")
        for (of_instance, *_), fault in self._faults.items():
            if of_instance == instance and fault.alert:
                fault.confirm_by = notification.time + self._settings.settle

    def _fault(self, notification, instance):
        key = instance, notification.number(INDEX), notification.named_object()[1]
        fault = self._faults.get(key)
        if fault and fault.is_repeated_by(notification):
            return
        if fault is None:
            self._check_room(self._faults, self._settings.most, "faults")
        if notification.kind == CLEARED:
            self._end(fault and fault.alert, notification.time)
            self._faults[key] = Fault((), notification.uptime, notification.time)
            return
        alert = fault_alert(notification, instance)
        self._set(alert)
        if fault and fault.alert != alert.identity:
            self._end(fault.alert, notification.time)
        self._faults[key] = Fault(alert.identity, notification.uptime, notification.time)

    def pass_time(self, now):
        """Ends what nobody has confirmed, and forgets what is over and told."""
        with self.changed:
            for key, fault in list(self._faults.items()):
                if fault.confirm_by is not None and fault.confirm_by < now:
                    self._end(fault.alert, now)
                    fault.alert = ()
                if not fault.alert and fault.time + REPETITION < now:
                    del self._faults[key]
            for identity, alert in list(self._alerts.items()):
                if alert.is_open(now):
                    continue
                if alert.end + self._settings.lease < now:  # nobody knows it any more
                    for waiting in self._waiting.values():
                        waiting.pop(identity, None)
                if not any(identity in waiting for waiting in self._waiting.values()):
                    del self._alerts[identity]

    def repeat(self, now):
        """Tells all Alertmanagers about all open alerts again: one that was restarted has forgotten them."""
        with self.changed:
            for identity, alert in self._alerts.items():
                if alert.is_open(now):
                    self._tell(identity)

    def take(self, url, stopping):
        """Waits until there is something to tell this Alertmanager, and returns it: {identity: version}, and the alerts
        in the form of its API."""
        with self.changed:
            self.changed.wait_for(lambda: self._waiting[url] or stopping.is_set())
            now = time.time()
            versions = dict(itertools.islice(self._waiting[url].items(), BATCH))
            return versions, [self._alerts[identity].for_api(now, self._settings.lease) for identity in versions]

    def told(self, url, versions):
        """The Alertmanager has what take() returned. What has changed since stays to be told."""
        with self.changed:
            for identity, version in versions.items():
                if self._waiting[url].get(identity) is version:
                    del self._waiting[url][identity]

    def waiting(self, url):
        return len(self._waiting[url])
