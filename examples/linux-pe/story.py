"""What happens to the network of network.py, step by step, and what hosts receive meanwhile.

A real product is tried so with a traffic generator on its ports.
"""

import time
from dataclasses import dataclass

from network import BEHIND, EDGES, ELECTION, HOLD, HOSTS, Failed

AT_REST = 10_000  # frames
RATE = 2500  # a second, of all hosts
RATE_MEANWHILE = 1000
SETTLED = 0.5  # seconds after which what was sent has come
FOREVER = 10**9


@dataclass
class Row:
    """What has become of frames. Each is to arrive once at each other host."""
    name: str
    sent: int
    copies: int  # that were to arrive
    lost: int
    doubled: int
    to_own_segment: int
    seconds: float
    why: str = ""

    @property
    def is_exact(self):
        return (self.lost, self.doubled, self.to_own_segment) == (0, 0, 0)


class Story:
    def __init__(self, network, tell):
        self._network = network
        self._tell = tell
        self._runs = 0
        self._segment = ("a", "b")

    def _hosts(self):
        """Those that an edge is there for."""
        return [host for host in HOSTS if self._network.up.intersection(BEHIND[host])]

    def _row(self, name, run, hosts, sent, began, why=""):
        time.sleep(SETTLED)
        counted = self._network.counted(run, hosts)
        pairs = [(host, sender) for host in hosts for sender in hosts if host != sender]
        lost = sum(sent[sender] - counted[host, sender][0] for host, sender in pairs)
        doubled = sum(counted[pair][1] - counted[pair][0] for pair in pairs)
        return Row(name, sum(sent.values()), sum(sent[sender] for _, sender in pairs), lost, doubled,
                   sum(counted[host, host][1] for host in hosts), time.monotonic() - began, why)

    def _next_run(self):
        self._runs += 1
        return self._runs

    # --- Steps

    def converge(self):
        self._network.converge(self._segment, self._tell)

    def begin(self):
        for edge in EDGES:
            self._network.start_edge(edge)
        self.converge()

    def pings(self):
        """How many answers are missing, for each pair of hosts."""
        hosts = self._hosts()
        return {(host, to): self._network.ping(host, to)
                for host in hosts for to in hosts if host < to}

    def broadcasts(self, name):
        """10,000 frames of all hosts, while nothing happens."""
        hosts, run, began = self._hosts(), self._next_run(), time.monotonic()
        self._network.send(run, hosts, -(-AT_REST // len(hosts)), RATE / len(hosts))
        return self._row(name, run, hosts, self._network.await_sent(hosts), began)

    def meanwhile(self, name, event, why, hosts=HOSTS):
        """What is lost and doubled from an event on until all stands again."""
        run, began = self._next_run(), time.monotonic()
        self._network.send(run, hosts, FOREVER, RATE_MEANWHILE / len(hosts))
        time.sleep(1)
        event()
        self.converge()
        time.sleep(1)
        return self._row(name, run, hosts, self._network.stop(hosts), began, why)

    def link_fails(self):
        def event():
            self._segment = ("b",)
            self._network.link("host4", "up1", "down")
        return self.meanwhile(
            "link of the forwarder fails", event,
            "lost to host4 until b has heard from BGP that it is the forwarder")

    def link_returns(self):
        def event():
            self._segment = ("a", "b")
            self._network.link("host4", "up1", "up")
        return self.meanwhile(
            "link returns", event,
            f"lost to host4 for {ELECTION} s: b ends as it hears of a, who waits so long before it "
            "forwards, so that nothing is doubled")

    def edge_fails(self):
        hosts = [host for host in HOSTS if BEHIND[host] != ("a",)]

        def event():
            self._segment = ("b",)
            self._network.fail_edge("a")
        return self.meanwhile(
            "edge of the forwarder fails", event,
            f"lost to host4 for {HOLD} s: so long BGP waits for who says nothing", hosts)

    def edge_returns(self):
        hosts = [host for host in HOSTS if BEHIND[host] != ("a",)]

        def event():
            self._segment = ("a", "b")
            self._network.return_edge("a")
        return self.meanwhile(
            "edge returns", event,
            "between hosts of the others; as when a link returns", hosts)


def expect_exact(row):
    if not row.is_exact:
        raise Failed(f"{row.name}: expected each frame once, found {row}")
