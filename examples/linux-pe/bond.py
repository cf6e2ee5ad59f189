#!/usr/bin/python3
"""bond.py INTERFACE LINK...

A host's bond, where the kernel has none: shares what comes from INTERFACE out among those of its links
that are up, by a hash of a frame's first bytes, and hands on what comes from them. A link that comes up
is used after a while, as a bond's `updelay` has it.

A real product's neighbour has the kernel's bond here, or a switch's LAG, and agrees by LACP on who
takes part.
"""

import select
import socket
import sys
import time
import zlib

sys.dont_write_bytecode = True
sys.path.insert(0, sys.path[0] + "/routes")
import kernel  # noqa: E402

SOL_PACKET, PACKET_IGNORE_OUTGOING, SO_RCVBUFFORCE = 263, 23, 33
UP_DELAY = 2.5  # seconds
LOOK_INTERVAL = 0.1
HASHED = 64  # bytes


def opened(interface):
    end = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
    end.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
    end.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 16 << 20)
    end.bind((interface, 3))
    end.setblocking(False)
    return end


class Links:
    """Those that are in use."""

    def __init__(self, interfaces):
        self._up_since = {interface: -UP_DELAY for interface in interfaces}
        self._links = {interface: opened(interface) for interface in interfaces}
        self.sockets = list(self._links.values())
        self.used = []
        self.look()

    def look(self):
        now = time.monotonic()
        self._up_since = {interface: (since if since is not None else now)
                          if kernel.is_up(interface) else None
                          for interface, since in self._up_since.items()}
        self.used = [self._links[interface] for interface, since in self._up_since.items()
                     if since is not None and now - since >= UP_DELAY]


def hand_on(source, destination_of):
    """All that has come; what cannot be sent is lost, as on a wire."""
    while True:
        try:
            frame = source.recv(1 << 16)
        except OSError:  # there is no more, or the link has gone down
            return
        destination = destination_of(frame)
        if destination:
            try:
                destination.send(frame)
            except OSError:
                pass


def main():
    inside = opened(sys.argv[1])
    links = Links(sys.argv[2:])
    changes = kernel.Changes()
    print("ready", flush=True)

    def link_for(frame):
        return links.used and links.used[zlib.crc32(frame[:HASHED]) % len(links.used)]

    looked = time.monotonic()
    while True:
        readable, _, _ = select.select([inside, changes, *links.sockets], [], [], LOOK_INTERVAL)
        if changes in readable or time.monotonic() - looked >= LOOK_INTERVAL:
            changes.clear()
            links.look()
            looked = time.monotonic()
        for source in readable:
            if source is inside:
                hand_on(inside, link_for)
            elif source in links.sockets:
                hand_on(source, lambda frame: inside)


if __name__ == "__main__":
    main()
