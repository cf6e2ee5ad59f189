"""A network of provider edges in network namespaces, for the demonstration and for tests.

    host1 ----------- Ethernet1 [a] core ----.
               .----- Ethernet2 [a]          |
    host4 ----<                              |
               '----- Ethernet2 [b] core ----+-- bridge
    host2 ----------- Ethernet1 [b]          |
    host3 ----------- Ethernet1 [c] core ----'

All is in VLAN 10. Each edge is a gobgpd, a linux-pe and a route adapter. host4 has a bond of two links,
which is an Ethernet segment.

A real product's network is cables, and a controller or its people configure it.
"""

import ctypes
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE / "routes"))
import door  # noqa: E402

PYTHON = "/usr/bin/python3"
EDGES = ("a", "b", "c")
PORTS = {"a": ("Ethernet1", "Ethernet2"), "b": ("Ethernet1", "Ethernet2"), "c": ("Ethernet1",)}
HOSTS = ("host1", "host2", "host3", "host4")
BEHIND = {"host1": ("a",), "host2": ("b",), "host3": ("c",), "host4": ("a", "b")}
VLAN, TAG = 10, 110
SEGMENT = "lacp 02:00:00:00:0e:51 100"
ELECTION = 1  # seconds for which a new forwarder waits
HOLD = 3  # seconds after which a BGP peer that says nothing is given up

MTU_OF_CORE = 1600


class Refused(Exception):
    """The kernel, or what is installed, lacks what this takes."""


class Failed(Exception):
    """Something is not as it must be."""


def number_of(name):
    return (HOSTS.index(name) if name in HOSTS else EDGES.index(name)) + 1


def address_of(edge):
    return f"192.0.2.{number_of(edge)}"


def mac_of(host):
    return f"02:00:00:00:00:0{number_of(host)}"


def ip_of(host):
    return f"10.0.0.{number_of(host)}"


def label_of(edge, kind):
    return 10000 * number_of(edge) + {"flood": 0, "host": 1, "esi": 900}[kind]


def _end_with_parent():
    """Nothing is left running when whoever started it is killed."""
    pr_set_pdeathsig = 1
    ctypes.CDLL(None).prctl(pr_set_pdeathsig, signal.SIGTERM)


class Network:
    """Made when it is entered, and taken away when it is left, whatever happens meanwhile."""

    def __init__(self, linux_pe):
        self._linux_pe = linux_pe
        self._name = f"pe{os.getpid()}"
        self._spaces = []
        self._processes = []
        self._of_edge = {}
        self._stations = {}
        self.up = set()

    def __enter__(self):
        self._work = tempfile.TemporaryDirectory(prefix="linux-pe-")
        self.work = pathlib.Path(self._work.name)
        try:
            self._check()
            self._build()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        # Who has come so far is not stopped in the middle by another Ctrl-C.
        for ending in (signal.SIGINT, signal.SIGTERM):
            signal.signal(ending, signal.SIG_IGN)
        for process in self._processes:
            process.kill()
        for process in self._processes:
            process.wait()
        for space in self._spaces:
            subprocess.run(["ip", "netns", "del", space], check=False, capture_output=True)
        self._work.cleanup()

    # --- Namespaces and cables

    @staticmethod
    def _check():
        if os.geteuid() != 0:
            raise Refused("network namespaces take root")
        for program in ("ip", "ping", "gobgp", "gobgpd"):
            if not shutil.which(program):
                raise Refused(f"there is no {program}; scripts/setup --linux-pe installs it")

    def _ip(self, *words):
        done = subprocess.run(["ip", *words], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Refused(f"ip {' '.join(words)}: {done.stderr.strip()}")

    def inside(self, place, *command):
        return ["ip", "netns", "exec", f"{self._name}-{place}", *command]

    def run(self, place, *command):
        return subprocess.run(self.inside(place, *command), capture_output=True, text=True,
                              check=False)

    def space(self, place):
        return f"{self._name}-{place}"

    def _start(self, place, command, log, **pipes):
        process = subprocess.Popen(self.inside(place, *map(str, command)), stderr=log,
                                   preexec_fn=_end_with_parent, start_new_session=True,
                                   **{"stdin": subprocess.DEVNULL, "stdout": log, **pipes})
        self._processes.append(process)
        return process

    def _space(self, place):
        self._ip("netns", "add", self.space(place))
        self._spaces.append(self.space(place))
        self.run(place, "sysctl", "-qw", "net.ipv6.conf.all.disable_ipv6=1",
                 "net.ipv6.conf.default.disable_ipv6=1")
        self._ip("-n", self.space(place), "link", "set", "lo", "up")

    def _cable(self, place, interface, other, its_interface):
        self._ip("link", "add", interface, "netns", self.space(place), "type", "veth",
                 "peer", "name", its_interface, "netns", self.space(other))
        for end, name in ((place, interface), (other, its_interface)):
            self.link(end, name, "up")

    def link(self, place, interface, *state):
        self._ip("-n", self.space(place), "link", "set", interface, *state)

    def _build(self):
        for place in ("core", *EDGES, *HOSTS):
            self._space(place)
        self.bridge("core")
        self.link("core", "bridge", "mtu", str(MTU_OF_CORE))
        for edge in EDGES:
            self._cable(edge, "core", "core", f"to-{edge}")
            self.link(edge, "core", "mtu", str(MTU_OF_CORE))
            self.link("core", f"to-{edge}", "mtu", str(MTU_OF_CORE), "master", "bridge")
            self._ip("-n", self.space(edge), "address", "add", f"{address_of(edge)}/24",
                     "dev", "core")
        for host in ("host1", "host2", "host3"):
            self._cable(host, "eth", BEHIND[host][0], "port1")
        self._cable("host4", "up1", "a", "port2")
        self._cable("host4", "up2", "b", "port2")
        self._ip("-n", self.space("host4"), "link", "add", "eth", "type", "veth", "peer", "name",
                 "bond")
        self.link("host4", "bond", "up")
        for part_of_bond in ("up1", "up2", "bond"):
            self.link("host4", part_of_bond, "arp", "off")  # it is eth that has the address
        for host in HOSTS:
            self.link(host, "eth", "address", mac_of(host), "up")
            self._ip("-n", self.space(host), "address", "add", f"{ip_of(host)}/24", "dev", "eth")
        self._await_ready(self._start("host4", [PYTHON, HERE / "bond.py", "bond", "up1", "up2"],
                                      self._log("bond"), stdout=subprocess.PIPE))
        for host in HOSTS:
            station = self._start(host, [PYTHON, HERE / "frames.py", "station", self.space(host),
                                         "eth"], self._log(f"station-{host}"),
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self._await_ready(station)
            self._stations[host] = station

    @staticmethod
    def _await_ready(process):
        said = process.stdout.readline()
        if said != b"ready\n":
            raise Refused(f"{process.args}: expected ready, found {said}")

    def _log(self, name):
        return open(self.work / f"{name}.log", "a", encoding="utf-8")

    def logs(self):
        """What all have said, for who looks for what was wrong."""
        return "".join(f"--- {log.name}\n{log.read_text()}" for log in
                       sorted(self.work.glob("*.log")))

    def listen(self, place, interface, what):
        """Frames that pass, as frames.py tells of them, in a file."""
        path = self.work / f"{what}-{place}-{interface}"
        with open(path, "w", encoding="utf-8") as out:
            process = self._start(place, [PYTHON, HERE / "frames.py", what, self.space(place),
                                          interface], out)
        until(lambda: path.stat().st_size > 0, 10, lambda: f"nothing is heard at {interface}")
        return process, path

    # --- Edges

    def socket(self, edge):
        return str(self.work / f"{edge}.socket")

    def gobgpd(self, edge):
        return f"unix://{self.work}/{edge}.bgp"

    def _write_configurations(self, edge):
        peers = "".join(f"""
[[neighbors]]
  [neighbors.config]
    neighbor-address = "{address_of(other)}"
    peer-as = 65000
  [neighbors.timers.config]
    hold-time = {HOLD}
    keepalive-interval = 1
    connect-retry = 1
    idle-hold-time-after-reset = 1
  [[neighbors.afi-safis]]
    [neighbors.afi-safis.config]
      afi-safi-name = "l2vpn-evpn"
""" for other in EDGES if other != edge)
        (self.work / f"{edge}.gobgpd").write_text(f"""[global.config]
  as = 65000
  router-id = "{address_of(edge)}"
{peers}""")
        ports = "".join(f"""
[ports.{port}]
interface = "port{port[-1]}"
vlans = [ {VLAN} ]
{f'esi = "{SEGMENT}"' if port == "Ethernet2" else ""}
{f'esi-label = {label_of(edge, "esi")}' if port == "Ethernet2" else ""}
""" for port in PORTS[edge])
        (self.work / f"{edge}.routes").write_text(f"""address = "{address_of(edge)}"
as = 65000
core = "core"
edges = [ {", ".join(f'"{address_of(each)}"' for each in EDGES)} ]

[vlans.{VLAN}]
tag = {TAG}
flood-label = {label_of(edge, "flood")}
host-label = {label_of(edge, "host")}
{ports}""")

    def start_daemon(self, edge):
        bgp_socket = self.work / f"{edge}.bgp"
        bgp_socket.unlink(missing_ok=True)
        self._of_edge[edge, "gobgpd"] = self._start(
            edge, ["gobgpd", "-f", self.work / f"{edge}.gobgpd", "--pprof-disable",
                   "--api-hosts", self.gobgpd(edge)], self._log(f"{edge}.gobgpd"))

    def start_switch(self, edge):
        ports = [f"--port={port}=port{port[-1]}/{TAG}" for port in PORTS[edge]]
        process = self._start(
            edge, [self._linux_pe, "--socket", self.socket(edge), "--core", "core"] +
            [word for port in ports for word in port.split("=", 1)], self._log(f"{edge}.linux-pe"))
        self._of_edge[edge, "linux-pe"] = process
        until(lambda: self._serves(edge) or process.poll() is not None, 10,
              lambda: f"linux-pe of {edge} does not serve")
        if process.poll() is not None:
            said = (self.work / f"{edge}.linux-pe.log").read_text()
            if "not permitted" in said or "not available" in said:
                raise Refused(said.strip())
            raise Failed(f"linux-pe of {edge}: {said}")

    def _serves(self, edge):
        try:
            door.Session(self.socket(edge)).close()
        except door.DoorLost:
            return False
        return True

    def start_adapter(self, edge):
        self._of_edge[edge, "adapter"] = self._start(
            edge, [PYTHON, HERE / "routes" / "route-adapter", "--config",
                   self.work / f"{edge}.routes", "--socket", self.socket(edge),
                   "--gobgpd", self.gobgpd(edge), "--election", ELECTION],
            self._log(f"{edge}.adapter"))

    def start_edge(self, edge):
        self._write_configurations(edge)
        self.start_daemon(edge)
        self.start_switch(edge)
        self.start_adapter(edge)
        self.up.add(edge)

    def kill(self, edge, part):
        process = self._of_edge[edge, part]
        process.kill()
        process.wait()
        self._processes.remove(process)

    def _wires_of(self, edge):
        return ["core", *(f"port{port[-1]}" for port in PORTS[edge])]

    def end_edge(self, edge):
        self.up.discard(edge)
        for part in ("adapter", "linux-pe", "gobgpd"):
            self.kill(edge, part)

    def bridge(self, place, *interfaces):
        """A plain bridge between them."""
        self._ip("-n", self.space(place), "link", "add", "bridge", "type", "bridge")
        self.link(place, "bridge", "up")
        for interface in interfaces:
            self.link(place, interface, "master", "bridge")

    def fail_edge(self, edge):
        """As when its power goes."""
        for wire in self._wires_of(edge):
            self.link(edge, wire, "down")
        self.end_edge(edge)

    def fail_core(self, edge):
        self.up.discard(edge)
        self.link("core", f"to-{edge}", "down")

    def return_core(self, edge):
        self.link("core", f"to-{edge}", "up")
        self.up.add(edge)

    def return_edge(self, edge):
        """The link to its segment comes last; its adapter sees to that."""
        for wire in self._wires_of(edge):
            if wire != "port2":
                self.link(edge, wire, "up")
        self.start_edge(edge)

    # --- What edges are asked

    def ask(self, edge, *lines):
        try:
            session = door.Session(self.socket(edge))
        except door.DoorLost as error:
            raise Failed(f"{edge}: {error}") from error
        try:
            return session.ask(list(lines))
        finally:
            session.close()

    def tell(self, edge, *lines):
        wrong = [each for each in self.ask(edge, *lines) if each.get("status", "ok") != "ok"]
        if wrong:
            raise Failed(f"{edge} does not take {lines}: {wrong}")

    def holds(self, edge, *expectations):
        answers = self.ask(edge, *(f"expect {each}" for each in expectations))
        return all(each.get("status", "ok") == "ok" for each in answers)

    def forwarders(self):
        """The edges that flood to the segment."""
        return [edge for edge in self.up if "Ethernet2" in PORTS[edge]
                and self.holds(edge, "switch.dot1qMapping[Ethernet2,Ethernet2,10]",
                               "no switch.nonDfPort[Ethernet2,Ethernet2,10]")]

    def counters(self, edge):
        """What became of the edge's frames, where that was anything."""
        told = self.ask(edge, "show softSwitch")
        return {each["path"].split(".")[1]: each["value"] for each in told
                if each.get("value") and "key" not in each}

    def state(self, segment=("a", "b")):
        """How far the network is: what there is of each, and how much there must be."""
        up = sorted(self.up)
        others = len(up) - 1
        on_segment = [edge for edge in segment if edge in self.up]
        return {
            "next hops": (sum(self.holds(edge, f"coreConfig.nextHop count {others}")
                              for edge in up), len(up)),
            "flood sets": (sum(self.holds(edge, f"switch.floodSetDest count {others}",
                                          "lateCalls.pending 0") for edge in up), len(up)),
            "segments": (sum(self.holds(edge, "evpnStatus.ethernetSegmentStatus[Ethernet2]"
                                        f".remoteEsiLabel count {len(on_segment) - 1}")
                             for edge in on_segment), len(on_segment)),
            "ports": (sum(self.holds(edge, "switch.dot1qMapping count "
                                     f"{len(PORTS[edge]) - (self._is_off(edge, segment))}")
                          for edge in up), len(up)),
            "forwarders": (len([edge for edge in self.forwarders() if edge in segment]), 1),
        }

    @staticmethod
    def _is_off(edge, segment):
        return "Ethernet2" in PORTS[edge] and edge not in segment

    def converge(self, segment=("a", "b"), tell=lambda state: None, seconds=60):
        """Waits until all stands, with a forwarder among the edges that have a link to the segment."""
        state = {}

        def stands():
            state.update(self.state(segment))
            tell(state)
            return all(there == must for there, must in state.values())

        until(stands, seconds, lambda: f"not converged: {state}")

    # --- What hosts do

    def ping(self, host, to, count=3, interval=0.2):
        """How many of the answers did not come."""
        done = self.run(host, "ping", "-q", "-c", str(count), "-i", str(interval), "-W", "1",
                        ip_of(to))
        received = [line for line in done.stdout.splitlines() if " received" in line]
        return count - int(received[0].split()[3]) if received else count

    def _order(self, host, line):
        station = self._stations[host]
        station.stdin.write(f"{line}\n".encode())
        station.stdin.flush()

    def _answer(self, host):
        return json.loads(self._stations[host].stdout.readline())

    def send(self, run, hosts, count, rate, to=None):
        """Has hosts begin to send so many frames each, at so many a second; to one, or to all."""
        for host in hosts:
            self._order(host, f"send {run} {count} {rate}" + (f" {mac_of(to)}" if to else ""))

    def await_sent(self, hosts):
        """Until all is sent; how many each has sent."""
        return self._ask_all(hosts, "sent")

    def stop(self, hosts):
        """At once; how many each has sent."""
        return self._ask_all(hosts, "stop")

    def _ask_all(self, hosts, line):
        for host in hosts:
            self._order(host, line)
        return {host: self._answer(host) for host in hosts}

    def counted(self, run, hosts=HOSTS):
        """By receiver and sender, how many frames have come, and how many copies of them."""
        by_mac = self._ask_all(hosts, f"count {run}")
        return {(host, sender): tuple(by_mac[host].get(mac_of(sender), (0, 0)))
                for host in hosts for sender in HOSTS}


def until(holds, seconds, what):
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            raise Failed(what())
        time.sleep(0.1)
