"""Waiting on a real desktop: for a condition, with a time limit, never for a fixed time."""
import time


class Failure(Exception):
    """A check of a desktop test that did not hold."""


def wait_for(condition, limit, what):
    """Polls `condition` until it returns something true (returned), for at most `limit` seconds."""
    deadline = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Failure(f"gave up after {limit} s waiting for {what}")
        time.sleep(0.05)
