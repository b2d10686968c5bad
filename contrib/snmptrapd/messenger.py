"""Tells an Alertmanager of alerts."""

import http.client
import json
import logging
import threading
import urllib.error
import urllib.request

LONGEST_PAUSE = 15  # seconds between tries


class Messenger(threading.Thread):
    """Tells one Alertmanager what it does not know yet, and tries again until it takes it."""

    def __init__(self, url, alerts):
        super().__init__(daemon=True)
        self._url, self._alerts = url, alerts
        self._stopping = threading.Event()
        self._pause = 0

    def stop(self):
        self._stopping.set()
        with self._alerts.changed:
            self._alerts.changed.notify_all()
        self.join(5)

    def run(self):
        while not self._stopping.wait(self._pause):
            versions, alerts = self._alerts.take(self._url, self._stopping)
            if versions and self._post(alerts):
                self._alerts.told(self._url, versions)

    def _post(self, alerts):
        """Whether the Alertmanager has seen them. What it finds wrong with them does not get better by repetition."""
        request = urllib.request.Request(f"{self._url}/api/v2/alerts", json.dumps(alerts).encode(),
                                         {"Content-Type": "application/json"})
        try:
            urllib.request.urlopen(request, timeout=10).close()
        except (OSError, http.client.HTTPException) as error:
            if isinstance(error, urllib.error.HTTPError) and error.code == 400:
                logging.error("%s refuses alerts: %s", self._url, error.read(1000).decode(errors="replace"))
                return True
            if not self._pause:
                logging.warning("%s takes no alerts (%s); %d wait", self._url, error, self._alerts.waiting(self._url))
            self._pause = min(max(1, 2 * self._pause), LONGEST_PAUSE)
            return False
        if self._pause:
            logging.warning("%s takes alerts again", self._url)
        self._pause = 0
        return True
