"""Misbehaviour on demand.

A plan says how the next matching exchanges are answered. Plans are taken in the order in which
they were given; an exchange that no plan matches is answered normally. The keys of a plan:

  channel         helper (default), fast, rac, dap or ocsp
  times           how many exchanges it serves (default 1)
  match           only exchanges whose command contains this text
  output, message replace the texts of the answer
  generate        replaces the output by one that is made here: {"kind": ..., "count": ...}, see hostile.py
  status          the status word of a helper reply
  output_length, message_length   any 32-bit number, sent in place of the true length
  raw             hexadecimal bytes, sent in place of the whole answer
  close_after     send only so many bytes, then close
  chunk           send so many bytes at a time (1: byte by byte)
  hold            true: answer only after "release"
  delay           answer after so many seconds
  silent          true: take the request, never answer; close on "release"
  refuse          true: close without reading the request
  stranger        hexadecimal bytes that come before the answer, as a datagram from a foreign port and
                  as one from a foreign address
"""

import threading
import time

import hostile
import wire

KEYS = {
    "channel", "times", "match", "output", "message", "status", "output_length",
    "message_length", "raw", "close_after", "chunk", "hold", "delay", "silent", "refuse",
    "stranger", "generate",
}


class Faults:
    def __init__(self):
        self._plans = []
        self._held = 0
        self._generation = 0
        self._changed = threading.Condition()

    def add(self, plan):
        unknown = set(plan) - KEYS
        if unknown:
            raise ValueError("unknown keys: " + ", ".join(sorted(unknown)))
        bytes.fromhex(plan.get("raw", ""))
        bytes.fromhex(plan.get("stranger", ""))
        if "generate" in plan:
            plan = {**plan, "output": wire.text(hostile.generate(**plan["generate"]))}
        with self._changed:
            self._plans.append({"channel": "helper", "times": 1, **plan})

    def pending(self):
        with self._changed:
            return sum(plan["times"] for plan in self._plans)

    def take(self, channel, command=None, refuse=False):
        """The plan for this exchange, or {}. Refusals are asked for before the command is known."""
        with self._changed:
            for plan in self._plans:
                if plan["channel"] != channel or bool(plan.get("refuse")) != refuse:
                    continue
                if "match" in plan and plan["match"] not in (command or ""):
                    continue
                plan["times"] -= 1
                if plan["times"] <= 0:
                    self._plans.remove(plan)
                return dict(plan)
        return {}

    def wait_before_answer(self, plan):
        """Honours delay, hold and silent; False when there is to be no answer at all."""
        if plan.get("delay"):
            time.sleep(plan["delay"])
        if not (plan.get("hold") or plan.get("silent")):
            return True
        with self._changed:
            generation = self._generation
            self._held += 1
            self._changed.notify_all()
            self._changed.wait_for(lambda: self._generation != generation)
            self._held -= 1
            self._changed.notify_all()
        return not plan.get("silent")

    def release(self):
        with self._changed:
            self._generation += 1
            self._changed.notify_all()

    def reset(self):
        with self._changed:
            self._plans.clear()
        self.release()

    def wait_held(self, count, timeout):
        """True as soon as that many exchanges are being held."""
        with self._changed:
            return self._changed.wait_for(lambda: self._held >= count, timeout)
