"""The control socket: one JSON object a line in, one JSON object a line out."""

import json

import services

WAIT_LIMIT = 30


class Control:
    def __init__(self, path, faults, configuration, helper):
        self._faults, self._configuration, self._helper = faults, configuration, helper
        self._socket = services.bind_unix(path)

    def serve(self):
        while True:
            connection, _ = self._socket.accept()
            services.in_background(self._connection, connection)

    def _connection(self, connection):
        with connection, connection.makefile("rw", encoding="utf-8") as stream:
            for line in stream:
                try:
                    answer = self._run(json.loads(line))
                except (ValueError, KeyError, TypeError) as error:
                    answer = {"error": "%s: %s" % (type(error).__name__, error)}
                stream.write(json.dumps(answer) + "\n")
                stream.flush()

    def _run(self, order):
        verb = order["verb"]
        if verb == "plan":
            self._faults.add(order["plan"])
        elif verb == "release":
            self._faults.release()
        elif verb == "reset":
            self._faults.reset()
            self._configuration.reset()
            self._helper.resume()
        elif verb == "wait-held":
            if not self._faults.wait_held(order.get("count", 1), WAIT_LIMIT):
                return {"error": "nothing is held"}
        elif verb == "pause-accept":
            self._helper.pause()
        elif verb == "resume-accept":
            self._helper.resume()
        elif verb != "pending":
            return {"error": "unknown verb: %s" % verb}
        return {"pending": self._faults.pending()}
