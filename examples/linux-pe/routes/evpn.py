"""EVPN routes, between what gobgp says of them and values; no I/O.

A real product has these in its BGP daemon, and sends them to whoever computes the inputs.
"""

import re
from dataclasses import dataclass

# The Ethernet tag of auto-discovery routes that are for a segment as a whole.
WHOLE_SEGMENT = 0xFFFFFFFF
SINGLE_HOMED = "single-homed"


@dataclass(frozen=True)
class Multicast:
    """Inclusive multicast: floods of a VLAN are to go to the edge under the label."""
    edge: str
    vlan: int
    label: int


@dataclass(frozen=True)
class Segment:
    """The edge is on the segment, and stands for election."""
    edge: str
    esi: str


@dataclass(frozen=True)
class SegmentDiscovery:
    """Auto-discovery per segment, with the edge's ESI label."""
    edge: str
    esi: str
    label: int
    vlans: frozenset
    single_active: bool = False


@dataclass(frozen=True)
class VlanDiscovery:
    """Auto-discovery per VLAN: hosts of the segment are reached there under the label."""
    edge: str
    esi: str
    vlan: int
    label: int


@dataclass(frozen=True)
class Host:
    """A host is there, on a segment or on none; of several places the one with the highest sequence
    counts."""
    edge: str
    vlan: int
    mac: str
    label: int
    esi: str = SINGLE_HOMED
    sequence: int = 0


# --- As gobgp shows them

def esi_of(words):
    """What gobgp shows of a segment that is configured as "lacp MAC KEY"."""
    kind, mac, key = words.split()
    if kind != "lacp":
        raise ValueError(f"esi: expected lacp MAC KEY, found {words}")
    if not re.fullmatch("([0-9a-f]{2}:){5}[0-9a-f]{2}", mac.lower()) or not 0 <= int(key) < 1 << 16:
        raise ValueError(f"esi: expected lacp MAC KEY, found {words}")
    return f"ESI_LACP | system mac {mac.lower()}, port key {int(key)}"


def esi_words(esi):
    """The other way round."""
    if esi == SINGLE_HOMED:
        return ["0"]
    _, _, _, _, mac, _, _, key = esi.split()
    return ["lacp", mac.rstrip(","), key]


def key_of(path):
    """What a later update or withdrawal of the same route has in common with this one."""
    nlri = path["nlri"]["value"]
    route_distinguisher = nlri["rd"]["admin"], nlri["rd"]["assigned"]
    return (path["nlri"]["type"], route_distinguisher, nlri.get("esi") if "mac" not in nlri else None,
            nlri.get("etag"), nlri.get("mac"), nlri.get("ip"))


def _attribute(path, kind):
    return next((each for each in path["attrs"] if each["type"] == kind), {})


def _extended(path, kind, subtype):
    return [each for each in _attribute(path, 16).get("value", [])
            if (each["type"], each["subtype"]) == (kind, subtype)]


def _vlans(path, asn):
    """By the route targets, which are the provider's number and the VLAN's."""
    targets = [each["value"].split(":") for each in _extended(path, 0, 2)]
    return frozenset(int(vlan) for whose, vlan in targets if int(whose) == asn)


def route_of(path, asn):
    """Nothing for routes that this edge has no use for: of other kinds, and for nobody's VLAN."""
    kind = path["nlri"]["type"]
    nlri = path["nlri"]["value"]
    edge = _attribute(path, 14).get("nexthop")
    if edge == "0.0.0.0":  # the daemon's own
        edge = nlri["rd"]["admin"]
    vlans = _vlans(path, asn)
    if kind == 4:
        return Segment(nlri["ip"], nlri["esi"])
    if kind not in (1, 2, 3) or not vlans:
        return None
    if kind == 1 and nlri["etag"] == WHOLE_SEGMENT:
        labels = _extended(path, 6, 1)
        return labels and SegmentDiscovery(edge, nlri["esi"], labels[0]["label"], vlans,
                                           labels[0]["is_single_active"]) or None
    vlan = min(vlans)
    if kind == 1:
        return VlanDiscovery(edge, nlri["esi"], vlan, nlri["label"])
    if kind == 2:
        moved = _extended(path, 6, 0)
        return Host(edge, vlan, nlri["mac"], nlri["labels"][0], nlri["esi"],
                    moved[0]["sequence"] if moved else 0)
    tunnel = _attribute(path, 22)
    return Multicast(tunnel["tunnel-id"], vlan, tunnel["label"]) if tunnel else None


class Table:
    """The routes of others, as the daemon tells of them, and the edge's own that it began with."""

    def __init__(self, address, asn):
        self._address = address
        self._asn = asn
        self._by_key = {}
        self.own = None  # not known yet

    @property
    def received(self):
        return list(self._by_key.values())

    def take(self, paths):
        """What stands comes first, and all at once."""
        own = set()
        for path in paths:
            route = route_of(path, self._asn)
            if route and route.edge == self._address:
                own.add(route)
            elif path.get("withdrawal") or not route:
                self._by_key.pop(key_of(path), None)
            else:
                self._by_key[key_of(path)] = route
        if self.own is None:
            self.own = own


# --- As gobgp is told of them

def words_of(route, asn):
    """Behind `gobgp global rib add -a evpn`, and `del`."""
    vlan = getattr(route, "vlan", 0)
    distinguisher = ["rd", f"{route.edge}:{vlan}"]
    target = ["rt", f"{asn}:{vlan}", "encap", "mpls"]
    if isinstance(route, Multicast):
        return ["multicast", route.edge, "etag", "0", *distinguisher, *target,
                "pmsi", "ingress-repl", str(route.label), route.edge]
    if isinstance(route, Host):
        return ["macadv", route.mac, "0.0.0.0", "esi", *esi_words(route.esi), "etag", "0",
                "label", str(route.label), *distinguisher, *target]
    if isinstance(route, VlanDiscovery):
        return ["a-d", "esi", *esi_words(route.esi), "etag", "0", "label", str(route.label),
                *distinguisher, *target]
    if isinstance(route, SegmentDiscovery):
        targets = [f"{asn}:{each}" for each in sorted(route.vlans)]
        return ["a-d", "esi", *esi_words(route.esi), "etag", str(WHOLE_SEGMENT), "label", "0",
                *distinguisher, "rt", *targets, "encap", "mpls", "esi-label", str(route.label)]
    return ["esi", route.edge, "esi", *esi_words(route.esi), *distinguisher]
