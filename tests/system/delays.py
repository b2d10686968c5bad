"""How long GETs wait that are sent all the time, while something else keeps the agent busy."""

import threading
import time

from udp_manager import GET, UdpManager


def percentile(values, part):
    return sorted(values)[min(len(values) - 1, int(part * len(values)))]


class Delays:
    """How long each answer took, in seconds, and the objects that got none."""

    def __init__(self, seconds, unanswered, errors):
        self.seconds = seconds
        self.unanswered = unanswered
        self.errors = errors  # answers with an error status or without a value

    def __add__(self, other):
        return Delays(self.seconds + other.seconds, self.unanswered + other.unanswered, self.errors + other.errors)

    def percentile(self, part):
        return percentile(self.seconds, part)

    def __str__(self):
        if not self.seconds:
            return f"no answers, {len(self.unanswered)} unanswered"
        return (f"{len(self.seconds)} answers, {len(self.unanswered)} unanswered: median "
                f"{self.percentile(.5) * 1e3:.1f} ms, p99 {self.percentile(.99) * 1e3:.1f} ms, maximum "
                f"{max(self.seconds) * 1e3:.1f} ms")


NO_VALUE = (0x80, 0x81, 0x82)


class Poll:
    """Sends a GET for each of the objects every `pause` seconds, on a thread of its own, until stop()."""

    def __init__(self, address, objects, pause=0.02):
        self._manager = UdpManager(address)
        self._objects = objects
        self._step = pause / len(objects)
        self._sent = {}
        self._stopping = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        due = time.monotonic()
        number = 0
        while not self._stopping.is_set():
            name = self._objects[number % len(self._objects)]
            self._sent[self._manager.send(GET, name)] = name
            number += 1
            # One that falls behind does not catch up with a burst.
            due = max(due + self._step, time.monotonic() - self._step)
            self._manager.receive(max(0, due - time.monotonic()), all_of_it=True)

    def stop(self, patience=2):
        """Waits up to `patience` seconds for the answers that are due. Returns the Delays."""
        self._stopping.set()
        self._thread.join()
        self._manager.receive(patience)
        responses = self._manager.responses
        errors = [self._sent[number] for number, response in responses.items()
                  if response.error or response.varbinds[0][1] in NO_VALUE]
        return Delays([response.seconds for response in responses.values()],
                      [self._sent[number] for number in self._manager.unanswered()], errors)
