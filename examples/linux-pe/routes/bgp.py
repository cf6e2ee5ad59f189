"""The routes of a gobgpd, followed and announced through its command; I/O alone.

A real product speaks to its BGP daemon by that one's programming interface.
"""

import json
import os
import subprocess

import evpn


class DaemonLost(Exception):
    """The daemon has ended, or cannot be asked."""


class Daemon:
    """The routes of others as they stand, and of the edge's own those that the daemon has."""

    def __init__(self, target, edge):
        self._command = ["gobgp", "--target", target]
        self._edge = edge
        self._table = evpn.Table(edge.address, edge.asn)
        self._rest = b""
        self._monitor = subprocess.Popen(
            [*self._command, "monitor", "global", "rib", "-a", "evpn", "--json", "--current"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        os.set_blocking(self._monitor.stdout.fileno(), False)

    def fileno(self):
        return self._monitor.stdout.fileno()

    @property
    def is_known(self):
        return self._table.own is not None

    @property
    def received(self):
        return self._table.received

    def take(self):
        """Takes what the daemon has to tell. What stands is told first, in one line."""
        try:
            read = os.read(self.fileno(), 1 << 16)
        except BlockingIOError:
            return
        if not read:
            raise DaemonLost("gobgpd does not tell of its routes")
        *lines, self._rest = (self._rest + read).split(b"\n")
        for line in lines:
            if not line.startswith(b"["):
                raise DaemonLost(line.decode(errors="replace"))
            self._table.take(json.loads(line))

    def announce(self, routes):
        """Has the daemon announce these and none besides; returns what was done about it."""
        own = self._table.own
        done = [("del", route) for route in self._in_order(own) if route not in routes]
        done += [("add", route) for route in routes if route not in own]
        for verb, route in done:
            self._run([*self._command, "global", "rib", verb, "-a", "evpn",
                       *evpn.words_of(route, self._edge.asn)])
            (own.discard if verb == "del" else own.add)(route)
        return done

    @staticmethod
    def _in_order(routes):
        """Segments first: with a segment's routes all that is behind it goes at once."""
        kinds = (evpn.Segment, evpn.SegmentDiscovery, evpn.VlanDiscovery, evpn.Multicast, evpn.Host)
        return sorted(routes, key=lambda route: kinds.index(type(route)))

    @staticmethod
    def _run(command):
        try:
            done = subprocess.run(command, timeout=10, capture_output=True, text=True, check=False)
        except subprocess.TimeoutExpired as error:
            raise DaemonLost(str(error)) from error
        # What is wrong it says as it ends with 0, too.
        if done.returncode != 0 or done.stderr or "rror" in done.stdout:
            raise DaemonLost(f"{' '.join(command)}: {done.stderr or done.stdout}".strip())

    def close(self):
        self._monitor.kill()
        self._monitor.wait()
        self._monitor.stdout.close()
