"""What happens to the network of network.py, step by step, and what hosts receive meanwhile.

A real product is tried so with a traffic generator on its ports.
"""

import time
from dataclasses import dataclass, field

from network import BEHIND, EDGES, ELECTION, HOLD, HOSTS, Failed, until

AT_REST = 10_000  # frames
RATE = 2500  # a second, of all hosts
RATE_MEANWHILE = 1000
SETTLED = 0.5  # seconds in which nothing more comes
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
    where: dict = field(default_factory=dict)  # by receiver and sender, what has come of those

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
        counted = self._settled(run, hosts)
        pairs = [(host, sender) for host in hosts for sender in hosts if host != sender]
        lost = sum(sent[sender] - counted[host, sender][0] for host, sender in pairs)
        doubled = sum(counted[pair][1] - counted[pair][0] for pair in pairs)
        where = {pair: counted[pair] for pair in pairs if counted[pair] != 2 * (sent[pair[1]],)}
        return Row(name, sum(sent.values()), sum(sent[sender] for _, sender in pairs), lost, doubled,
                   sum(counted[host, host][1] for host in hosts), time.monotonic() - began, why, where)

    def _settled(self, run, hosts):
        """What is counted when nothing more comes."""
        counted, before = self._network.counted(run, hosts), None
        while counted != before:
            time.sleep(SETTLED)
            counted, before = self._network.counted(run, hosts), counted
        return counted

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
        # A bond waits before it uses links that have come up.
        until(lambda: self._network.ping("host4", "host3", 1) == 0, 10,
              lambda: "host4 does not reach host3")

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
            f"lost to host4 for {ELECTION} s: b ends as it hears of a, who waits so long\n"
            "before it forwards, so that nothing is doubled")

    def core_fails(self):
        hosts = [host for host in HOSTS if BEHIND[host] != ("a",)]

        def event():
            self._segment = ("b",)
            self._network.fail_core("a")
        return self.meanwhile(
            "core link of the forwarder fails", event,
            f"of the others' hosts; lost to host4 for {HOLD} s, as BGP waits for who is silent", hosts)

    def core_returns(self):
        hosts = [host for host in HOSTS if BEHIND[host] != ("a",)]

        def event():
            self._segment = ("a", "b")
            self._network.return_core("a")
        return self.meanwhile("core link returns", event, "as when a link returns", hosts)

    def edge_fails(self):
        hosts = [host for host in HOSTS if BEHIND[host] != ("a",)]

        def event():
            self._segment = ("b",)
            self._network.fail_edge("a")
        return self.meanwhile(
            "edge of the forwarder fails", event,
            f"of the others' hosts; lost to host4 for {HOLD} s, as BGP waits for who is silent", hosts)

    def edge_returns(self):
        hosts = [host for host in HOSTS if BEHIND[host] != ("a",)]

        def event():
            self._segment = ("a", "b")
            self._network.return_edge("a")
        return self.meanwhile(
            "edge returns", event,
            "of the others' hosts; as when a link returns", hosts)


    def restarts(self):
        """Each edge's machines in turn, under 1,000 broadcasts a second and as many frames to host4."""
        run, began = self._next_run(), time.monotonic()
        senders = [host for host in HOSTS if host != "host1"]
        unicast = self._next_run()
        self._network.send(run, senders, FOREVER, RATE_MEANWHILE / len(senders))
        self._network.send(unicast, ["host1"], FOREVER, RATE_MEANWHILE, to="host4")
        for edge in EDGES:
            time.sleep(1)
            self._restart(edge)
        time.sleep(1)
        broadcasts = self._network.stop(senders)
        to_one = self._network.stop(["host1"])["host1"]
        row = self._row("hitless restart of each edge", run, HOSTS, {"host1": 0, **broadcasts}, began)
        came, copies = self._network.counted(unicast)["host4", "host1"]
        return Row(row.name, row.sent + to_one, row.copies + to_one, row.lost + to_one - came,
                   row.doubled + copies - came, row.to_own_segment, row.seconds,
                   "the switch forwards while its machines start anew")

    def _restart(self, edge):
        self._network.tell(edge, "restart hitless")
        until(lambda: self._network.holds(edge, "takeover.state ended"), 10,
              lambda: f"the takeover of {edge} does not end")
        if not self._network.holds(edge, "takeover.replaced 0", "takeover.removed 0"):
            raise Failed(f"{edge}: expected nothing replaced nor removed, found "
                         f"{self._network.ask(edge, 'show takeover')}")


def expect_exact(network, row):
    if not row.is_exact:
        counters = {edge: network.counters(edge) for edge in sorted(network.up)}
        raise Failed(f"{row.name}: expected each frame once, found {row}; {counters}")
