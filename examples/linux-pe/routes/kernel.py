"""What the kernel knows of a namespace's interfaces and neighbours.

A real product hears of its ports from the chip's driver, and resolves next hops in a routing table.
"""

import fcntl
import socket
import struct

SIOCGIFFLAGS, SIOCSIFFLAGS = 0x8913, 0x8914
IFF_UP, IFF_RUNNING = 0x1, 0x40
LINKS_AND_NEIGHBOURS = 0x1 | 0x4


class Changes:
    """Readable when a link or a neighbour may have changed."""

    def __init__(self):
        self._socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW | socket.SOCK_NONBLOCK,
                                     socket.NETLINK_ROUTE)
        self._socket.bind((0, LINKS_AND_NEIGHBOURS))

    def fileno(self):
        return self._socket.fileno()

    def clear(self):
        try:
            while self._socket.recv(1 << 16):
                pass
        except BlockingIOError:
            pass
        except OSError:
            pass  # there were more than it kept: all is looked at anyway


def _flags(asked, interface):
    answer = fcntl.ioctl(asked, SIOCGIFFLAGS, struct.pack("16sH14x", interface.encode(), 0))
    return struct.unpack("16sH14x", answer)[1]


def is_up(interface):
    """Whether it is up, and has somebody at its other end."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asked:
        try:
            return _flags(asked, interface) & (IFF_UP | IFF_RUNNING) == IFF_UP | IFF_RUNNING
        except OSError:
            return False


def is_held_down(interface):
    """None when there is none."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asked:
        try:
            return not _flags(asked, interface) & IFF_UP
        except OSError:
            return None


def hold_down(interface, is_down):
    """Or lets it come up. Raises OSError."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asked:
        flags = _flags(asked, interface) & ~IFF_UP | (0 if is_down else IFF_UP)
        fcntl.ioctl(asked, SIOCSIFFLAGS, struct.pack("16sH14x", interface.encode(), flags))


def neighbours(interface):
    """The MAC addresses of those whom the kernel has spoken to there, by their addresses."""
    with open("/proc/net/arp", encoding="ascii") as table:
        rows = [line.split() for line in table.readlines()[1:]]
    return {row[0]: row[3] for row in rows if int(row[2], 16) & 0x2 and row[5] == interface}
