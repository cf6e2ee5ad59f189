"""How gdb shows what the library's headers declare: values as their brief text form has them,
references by what they refer to, collections by their members.

gdb loads this with the installed library; for one that is not installed, `source gdb/printers.py`.
It calls nothing in the process, so that it does for a core file too.
"""

import functools

import gdb
import gdb.printing

# --- Values -----------------------------------------------------------------------------------------


def low_bits(number, bits):
    return number & ((1 << bits) - 1)


def integer(value):
    return str(int(value))


def enumerator(value):
    return str(value).split("::")[-1]


def string(value):
    return value["_M_dataplus"]["_M_p"].string(length=int(value["_M_string_length"]))


def optional(value):
    payload = value["_M_payload"]
    return brief(payload["_M_payload"]["_M_value"]) if payload["_M_engaged"] else "none"


def sequence(first, size):
    return [(first + at).dereference() for at in range(size)]


def vector(value):
    first = value["_M_impl"]["_M_start"]
    return sequence(first, int(value["_M_impl"]["_M_finish"] - first))


def joined(values, opening="[", closing="]"):
    return opening + ",".join(brief(each) for each in values) + closing


def interned_name(number):
    """Of an interface without a kind. The process keeps them in blocks of 1, 2, 4, ... names."""
    try:
        # Of a variable in a function that is inlined everywhere gdb knows the address alone.
        at = gdb.parse_and_eval("&'Wire::(anonymous namespace)::names()::table'")
        kind = gdb.lookup_type("Wire::(anonymous namespace)::NameTable")
    except gdb.error:
        return f"interned {number}"  # the library's debug information is not there
    table = at.reinterpret_cast(kind.pointer().pointer()).dereference()
    block = (number + 1).bit_length() - 1
    holder = table["blocks_"]["_M_elems"][block]
    names = holder.type.template_argument(0).target().pointer()
    name = holder.address.cast(names.pointer())[0][number + 1 - (1 << block)]
    return name["text"].string(length=int(name["length"]))


def ethernet(number):
    later = (low_bits(number >> 16, 16), low_bits(number, 16))
    return f"Ethernet{number >> 32}" + "".join(f"/{each - 1}" for each in later if each)


def of_tunnel(kind, number):
    return f"{kind}{number >> 44}.{low_bits(number, 44)}"


# By Wire::IntfId::Kind.
INTF_KINDS = (
    lambda number: "",
    lambda number: "Cpu",
    ethernet,
    lambda number: f"Port-Channel{number}",
    lambda number: f"Vlan{number}",
    lambda number: of_tunnel("DynamicTunnel", number),
    lambda number: of_tunnel("SrTePolicy", number),
    interned_name,
)


def intf_id(value):
    word = int(value["word_"])
    kind = word >> 56
    if kind >= len(INTF_KINDS):
        return f"IntfId({word:#x})"
    return INTF_KINDS[kind](low_bits(word, 56))


def word(value):
    kept = value["word_"]
    if kept.type.strip_typedefs().code != gdb.TYPE_CODE_STRUCT:
        return int(kept)
    parts = kept["parts_"]  # of a Vex::NarrowWord
    first, last = parts.type.range()
    bits = 8 * parts.type.target().sizeof
    return sum(int(parts[i]) << bits * i for i in range(first, last + 1))


def eth_addr(value):
    return word(value).to_bytes(6, "big").hex(":")


def ip4_text(number):
    return ".".join(str(byte) for byte in number.to_bytes(4, "big"))


def ip4_addr(value):
    return ip4_text(word(value))


def lfib_via_key(value):
    kinds = gdb.lookup_type("Mpls::LfibViaType")
    return f"{enumerator(gdb.Value(word(value) >> 24).cast(kinds))}:{low_bits(word(value), 24)}"


def dest(value):
    kind = enumerator(value["destType_"])
    number = int(value["number_"])
    if kind == "destTypeIntf_":
        return f"intf({brief(value['intfId_'])})"
    if kind == "destTypeVxlan_":
        return f"vxlan({ip4_text(number)})"
    if kind == "destTypeTunnel_":
        return f"tunnel({brief(value['tunnelId_'])})"
    return f"mpls({brief(value['intfId_'])},{number},{brief(value['tunnelId_'])})"


def port_list(value):
    size = int(value["size_"])
    few = value["few_"]["_M_elems"]
    many = value["many_"]["_M_impl"]["_M_start"]
    fits = size <= few.type.strip_typedefs().range()[1] + 1
    return joined(sequence(few[0].address if fits else many, size), "", "")


def hw_tunnel_id(value):
    return f"{word(value) >> 32}:{low_bits(word(value), 32)}"


def hw_tunnel_ids(value):
    ids = sequence(value["ids_"]["_M_elems"][0].address, int(value["size_"]))
    return brief(ids[0]) if len(ids) == 1 else joined(ids)


def refusal(value):
    text = f"{int(value['tries'])} since {float(value['first']):g}, last {float(value['last']):g}"
    why = string(value["why"])
    return f"{text}: {why}" if why else text


def fields(value):
    members = (each for each in value.type.fields() if hasattr(each, "bitpos"))  # no static ones
    return ",".join(brief(value[each]) for each in members)


# What prints otherwise than as its number or its fields.
TEXTS = {
    "Wire::IntfId": intf_id,
    "Wire::TepIntfId": intf_id,
    "Wire::EthAddr": eth_addr,
    "Wire::Ip4Addr": ip4_addr,
    "Kez::HwTunnelId": hw_tunnel_id,
    "Kez::NarrowHwTunnelId": hw_tunnel_id,
    "Kez::HwTunnelIds": hw_tunnel_ids,
    "Kez::KezPortList": port_list,
    "Kez::Refusal": refusal,
    "Evpn::EncapTypeLabel": lambda value: f"{word(value) >> 24}:{low_bits(word(value), 24)}",
    "L2Rib::Dest": dest,
    "L2Rib::DestDataMpls": fields,
    "L2Rib::ObjectIds": lambda value: joined(vector(value["ids_"])),
    "Mpls::LfibViaKey": lfib_via_key,
    "Mpls::LfibViaKeys": lambda value: joined(
        sequence(value["keys_"]["_M_elems"][0].address, int(value["size_"])), "", ""
    ),
    "Rook::Fib::FecVias": lambda value: joined(vector(value)),
    "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >": string,
}


def derives_from(kind, prefix):
    return any(
        field.is_base_class
        and (field.type.name.startswith(prefix) or derives_from(field.type, prefix))
        for field in kind.fields()
    )


@functools.lru_cache(maxsize=None)
def is_composite(name):
    """Whether VEX_VALUE declared its fields: python is told of no member functions, but people are.

    clang leaves out functions whose type is deduced, unless they are used."""
    shown = gdb.execute(f"ptype {name}", to_string=True)
    return "vexFields(" in shown or ("vexTypeName(" in shown and "private:" not in shown)


def text_of(kind):
    """What makes the text of values of this type; None for what has no text form here."""
    if kind.name in TEXTS:
        return TEXTS[kind.name]
    if kind.code != gdb.TYPE_CODE_STRUCT or not kind.name:
        return None
    if kind.name.startswith("std::optional<"):
        return optional
    if derives_from(kind, "Vex::WordValue<"):
        return lambda value: str(word(value))
    return fields if is_composite(kind.name) else None


def brief(value):
    kind = value.type.strip_typedefs().unqualified()
    text = text_of(kind)
    if text:
        inner = text(value)
        return f"({inner})" if text is fields else inner
    if kind.code == gdb.TYPE_CODE_ENUM:
        return enumerator(value)
    if kind.code in (gdb.TYPE_CODE_INT, gdb.TYPE_CODE_BOOL):
        return integer(value)
    return value.format_string()


class ValuePrinter:
    def __init__(self, value, text):
        self.value = value
        self.text = text

    def to_string(self):
        return self.text(self.value)


# --- References -------------------------------------------------------------------------------------


def class_of(address):
    """The class of an object, by the symbol of its table of virtual functions."""
    table = int(address.cast(gdb.lookup_type("unsigned long").pointer()).dereference())
    symbol = gdb.execute(f"info symbol {table:#x}", to_string=True)
    return symbol[len("vtable for ") :].split(" + ")[0] if symbol.startswith("vtable for ") else None


class PtrPrinter:
    """Vex::Ptr: the class of what it refers to, where that is, and how many references it has."""

    def __init__(self, value):
        self.object = value["object_"]

    def to_string(self):
        if not self.object:
            return "null"
        counted = gdb.lookup_type("Vex::PtrInterface").pointer()
        refs = int(self.object.reinterpret_cast(counted)["refs_"])
        kind = class_of(self.object) or self.object.type.target().unqualified().name
        plural = "" if refs == 1 else "s"
        return f"{kind} at {int(self.object):#x}, {refs} reference{plural}"


# --- Collections ------------------------------------------------------------------------------------


class CollectionPrinter:
    """Vex::Collection: its members in their order, walked by slot numbers."""

    NO_SLOT = 0xFFFFFFFF

    def __init__(self, value, what="collection"):
        self.what = what
        self.size = int(value["size_"])
        self.slots = value["slots_"]["slots_"]
        self.values = value.type.template_argument(1).name != "Vex::NoValue"

    def to_string(self):
        return f"{self.what} of {self.size}"

    def display_hint(self):
        return "map" if self.values else "array"

    def children(self):
        if self.size == 0:
            return
        head = self.slots.reinterpret_cast(gdb.lookup_type("unsigned int").pointer()) - 4
        at = int(head.dereference())
        for number in range(self.size):
            if at == self.NO_SLOT:
                break  # what is printed is being changed
            slot = self.slots[at]
            yield f"key {number}", slot["key"]
            if self.values:
                yield f"value {number}", slot["value"]
            at = int(slot["next"])


class HeldPrinter:
    """Vex::ValueStorage: the value."""

    def __init__(self, value):
        self.value = value["value_"]

    def to_string(self):
        return self.value


COLLECTIONS = {
    "Vex::SetStorage": "set",
    "Vex::MapStorage": "map",
    "Vex::CounterStorage": "counters",
    "Vex::QueueStorage": "queue",
    "Vex::EntityStorage": "entities",
    "Vex::ReactorStorage": "reactors",
}


# --- All of them ------------------------------------------------------------------------------------


def printer_of(value):
    kind = value.type.strip_typedefs().unqualified()
    if kind.code != gdb.TYPE_CODE_STRUCT or not kind.name:
        return None
    template = kind.name.split("<")[0]
    if template == "Vex::Ptr":
        return PtrPrinter(value)
    if template == "Vex::Collection":
        return CollectionPrinter(value)
    if template in COLLECTIONS:
        return CollectionPrinter(value["members_"], COLLECTIONS[template])
    if template == "Vex::ValueStorage":
        return HeldPrinter(value)
    if template.startswith("std::"):
        return None
    text = text_of(kind)
    return ValuePrinter(value, text) if text else None


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("KezEvpn", [])

    def __call__(self, value):
        return printer_of(value)


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
