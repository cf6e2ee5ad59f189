"""What an edge announces by what it sees itself, and what its inputs are by that and by the routes of
others, as RFC 7432 has it; no I/O. The fabric's reference control plane says the same of its switches,
and tests compare the two.

A real product has this in its EVPN agent, which writes the inputs' entities without a text between.
"""

import hashlib
import ipaddress
import re
from dataclasses import dataclass, field

from evpn import (SINGLE_HOMED, Host, Multicast, Segment, SegmentDiscovery, VlanDiscovery, esi_of)


@dataclass(frozen=True)
class Vlan:
    tag: int
    flood_label: int
    host_label: int


@dataclass(frozen=True)
class Port:
    vlans: tuple
    interface: str = ""  # its wire
    esi: str = SINGLE_HOMED
    esi_label: int = 0

    @property
    def is_multihomed(self):
        return self.esi != SINGLE_HOMED


@dataclass(frozen=True)
class Edge:
    """What is configured. The tunnel to an edge has the number of its place among `edges`, from 1."""
    address: str
    asn: int
    edges: tuple
    vlans: dict
    ports: dict
    core: str = ""  # the interface to the provider's network

    def tunnel_to(self, edge):
        return self.edges.index(edge) + 1


def edge_of(config):
    """Of the contents of a configuration file."""
    vlans = {int(vlan): Vlan(each["tag"], each["flood-label"], each["host-label"])
             for vlan, each in config["vlans"].items()}
    ports = {name: Port(tuple(each["vlans"]), each.get("interface", ""),
                        esi_of(each["esi"]) if "esi" in each else SINGLE_HOMED,
                        each["esi-label"] if "esi" in each else 0)
             for name, each in config["ports"].items()}
    _expect_sound(config["as"], vlans, ports)
    return Edge(config["address"], config["as"], tuple(config["edges"]), vlans, ports,
                config["core"])


def _expect_sound(asn, vlans, ports):
    """What gobgp and the switch would take, and mean something else by. Raises ValueError."""
    if not 0 < asn < 1 << 16:
        raise ValueError(f"as: expected 1 to 65535, found {asn}")
    for name, port in ports.items():
        unknown = set(port.vlans) - set(vlans)
        if unknown:
            raise ValueError(f"ports.{name}: expected VLANs of [vlans], found {sorted(unknown)}")
    labels = [label for each in vlans.values() for label in (each.flood_label, each.host_label)]
    labels += [port.esi_label for port in ports.values() if port.is_multihomed]
    for label in labels:
        if not 16 <= label < 1 << 20 or labels.count(label) > 1:
            raise ValueError(f"expected labels of 16 to 1048575, each once, found {label}")


@dataclass(frozen=True)
class View:
    """What an edge sees by itself: the ports that are up, and the port that a host was heard on, by MAC
    address and VLAN."""
    up: frozenset = frozenset()
    hosts: dict = field(default_factory=dict)


def routes_of(edge, view):
    """The routes that the edge announces, segments first: with these all that is behind goes at once."""
    routes = []
    for name, port in edge.ports.items():
        if port.is_multihomed and name in view.up:
            routes.append(Segment(edge.address, port.esi))
            routes.append(SegmentDiscovery(edge.address, port.esi, port.esi_label,
                                           frozenset(port.vlans)))
            routes += [VlanDiscovery(edge.address, port.esi, vlan, edge.vlans[vlan].host_label)
                       for vlan in port.vlans]
    routes += [Multicast(edge.address, vlan, each.flood_label) for vlan, each in edge.vlans.items()]
    for (mac, vlan), port in view.hosts.items():
        if port in view.up and vlan in edge.vlans:
            routes.append(Host(edge.address, vlan, mac, edge.vlans[vlan].host_label,
                               edge.ports[port].esi))
    return routes


def has_heard_of_all(edge, received):
    """Whether all others have told where floods are to go."""
    return {edge.address, *(each.edge for each in received if isinstance(each, Multicast))
            } >= set(edge.edges)


# --- Designated forwarders

def candidates_of(edge, view, received, esi):
    """Who stands for election on one of the edge's segments."""
    candidates = {each.edge for each in received
                  if isinstance(each, Segment) and each.esi == esi and each.edge in edge.edges}
    if any(port.esi == esi and name in view.up for name, port in edge.ports.items()):
        candidates.add(edge.address)
    return frozenset(candidates)


def forwarder(candidates, vlan):
    """By the VLAN's number modulo that of the candidates, in the order of their addresses."""
    ordered = sorted(candidates, key=ipaddress.ip_address)
    return ordered[vlan % len(ordered)] if ordered else None


class Elections:
    """Who is elected waits before it forwards, so that all have heard of each other; who is not any more
    stops at once, and who follows one that has left begins at once."""

    def __init__(self, delay):
        self._delay = delay
        self._candidates = {}
        self._waits_until = {}
        self._forwards = set()  # of (segment, VLAN)

    def take_over(self, forwarding):
        """For what the edge forwards already it does not wait."""
        self._forwards |= forwarding

    def waiting(self, edge, view, received, now):
        """The segments and VLANs for which the edge is elected and does not forward yet."""
        waiting = set()
        for port in edge.ports.values():
            if not port.is_multihomed:
                continue
            candidates = candidates_of(edge, view, received, port.esi)
            before = self._candidates.get(port.esi, frozenset())
            self._candidates[port.esi] = candidates
            for vlan in port.vlans:
                key = port.esi, vlan
                former = forwarder(before, vlan)
                if candidates - before or former in candidates - {forwarder(candidates, vlan)}:
                    self._waits_until[key] = now + self._delay
                if forwarder(candidates, vlan) != edge.address:
                    self._forwards.discard(key)
                elif key not in self._forwards and now < self._waits_until[key]:
                    waiting.add(key)
                else:
                    self._forwards.add(key)
        return waiting

    def next_look(self, now):
        return min((at for at in self._waits_until.values() if at > now), default=None)


def forwarding_in(edge, there):
    """The segments and VLANs to which the edge floods by inputs that stand."""
    return {(port.esi, vlan) for name, port in edge.ports.items() if port.is_multihomed
            for vlan in port.vlans
            if f"vlanStatusDir.vlanStatus[{vlan}].vlanPortStatus[{name}]" in there
            and f"evpnStatus.evpnVlanFloodStatus[{vlan}].floodFilter[{name}]" not in there}


# --- Inputs

def _label(number):
    return f"2:{number}"


def _tep(edge, other):
    return f"DynamicTunnel0.{edge.tunnel_to(other)}"


def _destination(edge, other, label):
    return f"mpls(,{label},{edge.tunnel_to(other)})"


def inputs_of(edge, view, received, waiting=frozenset()):
    """The edge's inputs: attribute paths to values, which are empty for members of sets."""
    received = sorted((each for each in received
                       if each.edge in edge.edges and each.edge != edge.address),
                      key=lambda route: ipaddress.ip_address(route.edge))
    inputs = {}
    for vlan, each in edge.vlans.items():
        inputs[f"evpnStatus.vlanToDot1q[{vlan}]"] = str(each.tag)
        inputs[f"forwardingInput.serviceLabel[{each.flood_label}]"] = f"{vlan},flood"
        inputs[f"forwardingInput.serviceLabel[{each.host_label}]"] = f"{vlan},unicast"
    for name, port in edge.ports.items():
        if port.is_multihomed:
            _add_segment(inputs, edge, view, received, waiting, name)
        if name in view.up:
            for vlan in port.vlans:
                inputs[f"vlanStatusDir.vlanStatus[{vlan}].vlanPortStatus[{name}]"] = "forwarding"
    for each in received:
        if isinstance(each, Multicast) and each.vlan in edge.vlans:
            inputs[f"floodSetOutput.vlanFloodSet[{each.vlan}].floodSet[ff:ff:ff:ff:ff:ff]"
                   f".destSet[{_destination(edge, each.edge, each.label)}]"] = ""
    _add_hosts(inputs, edge, view, received)
    return inputs


def _add_segment(inputs, edge, view, received, waiting, name):
    port = edge.ports[name]
    label = port.esi_label
    segment = f"evpnStatus.ethernetSegmentStatus[{name}]"
    via = f"evpnEthernetSegmentFilter:{label}"
    inputs[f"evpnStatus.localEsiLabel[{name}]"] = _label(label)
    inputs[f"lfibStatus.evpnEthernetSegmentFilterVia[{via}]"] = f"{via},{label},{name}"
    inputs[f"lfibStatus.viaSet[{label}]"] = f"{label},{via}"
    inputs[f"lfibStatus.route[{label}]"] = f"{label},{label}"
    for each in received:
        if isinstance(each, SegmentDiscovery) and each.esi == port.esi:
            inputs[f"{segment}.remoteEsiLabel[{_tep(edge, each.edge)}]"] = _label(each.label)
    candidates = candidates_of(edge, view, received, port.esi)
    for vlan in port.vlans:
        elected = forwarder(candidates, vlan)
        if (port.esi, vlan) in waiting:
            elected = forwarder(candidates - {edge.address}, vlan)
        if elected != edge.address:
            inputs[f"evpnStatus.evpnVlanFloodStatus[{vlan}].floodFilter[{name}]"] = ""
            if elected:
                inputs[f"{segment}.designatedForwarderTep[{vlan}]"] = _tep(edge, elected)


def _add_hosts(inputs, edge, view, received):
    """Where a host was heard counts, then its route with the highest sequence, of several the one from
    the lowest address."""
    local = {host: port for host, port in view.hosts.items() if port in view.up}
    last = {}
    for each in received:
        if isinstance(each, Host) and each.vlan in edge.vlans:
            host = each.mac, each.vlan
            last[host] = max(last.get(host, each), each, key=lambda route: route.sequence)
    for host, route in last.items():
        own = [name for name, port in edge.ports.items()
               if port.esi == route.esi != SINGLE_HOMED and name in view.up and host[1] in port.vlans]
        if own:
            local.setdefault(host, own[0])
        elif host not in local:
            _add_remote_host(inputs, edge, received, host, route)
    for (mac, vlan), port in local.items():
        inputs[f"forwardingInput.localHost[{mac},{vlan}]"] = port


def _homes_of(received, route):
    """The edges that a host is reached by, with their labels: who announced it, or all that are found on
    its segment, whichever of them announced it."""
    if route.esi == SINGLE_HOMED:
        return {route.edge: route.label}
    found = [each for each in received
             if isinstance(each, SegmentDiscovery) and each.esi == route.esi]
    homes = {each.edge for each in found}
    if any(each.single_active for each in found):
        homes &= {route.edge}
    return {each.edge: each.label for each in received
            if isinstance(each, VlanDiscovery) and each.esi == route.esi and each.vlan == route.vlan
            and each.edge in homes}


def _add_remote_host(inputs, edge, received, host, route):
    """Numbers of objects are made of what they stand for, so that they outlast the adapter."""
    mac, vlan = host
    members = []
    for home, label in sorted(_homes_of(received, route).items()):
        number = edge.tunnel_to(home) << 20 | label
        inputs[f"hostOutput.dest[{number}]"] = _destination(edge, home, label)
        members.append(number)
    if len(members) > 1:
        named = hashlib.sha256(f"{route.esi} {vlan}".encode()).digest()
        balance = 1 << 62 | int.from_bytes(named[:7], "big")
        inputs[f"hostOutput.loadBalance[{balance}]"] = f"[{','.join(map(str, members))}]"
        members = [balance]
    if members:
        inputs[f"hostOutput.host[{mac},{vlan}]"] = str(members[0])


def next_hops(edge, received, neighbours):
    """To those who announce anything, where the kernel knows them on the core network."""
    others = {each.edge for each in received}
    return {f"coreConfig.nextHop[{edge.tunnel_to(address)}]": neighbours[address]
            for address in edge.edges if address in others and address in neighbours}


def changes(wanted, there):
    """The lines that bring inputs that are there to those that are wanted. What is put in is in the
    order of `wanted`, in which nothing stands before what it names; what goes, after that and in the
    opposite order. A label's route is told of when anything on its way has changed."""
    lines = [f"set {path} {value}".rstrip() for path, value in wanted.items()
             if there.get(path) != value]
    lines += [f"del {path}" for path in reversed(there) if path not in wanted]
    labels = dict.fromkeys(re.search(r"(\d+)\]$", line.split()[1])[1] for line in lines
                           if line.split()[1].startswith("lfibStatus."))
    return lines + [f"set lfibTrackingStatus.routeKeyBacklog[{label}]" for label in labels]
