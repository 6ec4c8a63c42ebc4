"""The record of what the simulated controller received: one JSON object a line."""

import json
import threading


class Traffic:
    def __init__(self, path):
        # Appending, so that a test may empty the file while it is open.
        self._file = open(path, "a", encoding="ascii")
        self._lock = threading.Lock()

    def write(self, channel, **facts):
        line = json.dumps({"channel": channel, **facts})
        with self._lock:
            self._file.write(line + "\n")
            self._file.flush()
