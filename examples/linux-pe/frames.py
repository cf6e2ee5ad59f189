#!/usr/bin/env python3
"""Frames of the test's own, in a network namespace.

frames.py broadcast NAMESPACE INTERFACE COUNT   sends so many broadcasts
frames.py copies NAMESPACE INTERFACE            prints "copy" for each of those that comes in
frames.py labels NAMESPACE INTERFACE            prints the labels of what passes, a line a frame, as
                                                another decoder than the switch's reads them

The latter two print "ready" first, and go on until they are ended.
"""

import ctypes
import os
import socket
import sys
import time

# A type that is for experiments.
MARK = bytes.fromhex("88b5") + b"soft-switch-test"
CLONE_NEWNET = 0x40000000


def enter(namespace):
    libc = ctypes.CDLL(None, use_errno=True)
    with open(f"/var/run/netns/{namespace}") as handle:
        if libc.setns(handle.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), f"cannot enter {namespace}")


def packet_socket(interface):
    opened = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
    opened.bind((interface, 3))
    return opened


def frames(interface, sent):
    opened = packet_socket(interface)
    print("ready", flush=True)
    while True:
        frame, sender = opened.recvfrom(65536)
        if sent or sender[2] != socket.PACKET_OUTGOING:
            yield frame


def broadcast(interface, count):
    opened = packet_socket(interface)
    own = opened.getsockname()[4]
    for _ in range(count):
        opened.send(b"\xff" * 6 + own + MARK.ljust(48, b"\0"))
        time.sleep(0.05)


def copies(interface):
    for frame in frames(interface, sent=False):
        if frame[12:].startswith(MARK):
            print("copy", flush=True)


def labels(interface):
    try:
        from scapy.contrib.mpls import MPLS
        from scapy.layers.l2 import Dot1Q, Ether
    except ImportError as error:
        print(f"skipped: there is no scapy ({error})")
        return
    for frame in frames(interface, sent=True):
        packet = Ether(frame)
        if packet.type != 0x8847:
            continue
        stack = []
        layer = packet.payload
        while isinstance(layer, MPLS):
            stack.append(f"{layer.label}{' bottom' if layer.s else ''} ttl {layer.ttl}")
            last = layer
            layer = layer.payload
        # What is under the stack is told by the label alone, so it is decoded here.
        inner = Ether(bytes(last.payload))
        tagged = "tagged" if inner.haslayer(Dot1Q) else "untagged"
        print(", ".join(stack), tagged, inner.src, flush=True)


def main():
    what, namespace, interface = sys.argv[1:4]
    enter(namespace)
    if what == "broadcast":
        broadcast(interface, int(sys.argv[4]))
    elif what == "copies":
        copies(interface)
    else:
        labels(interface)


if __name__ == "__main__":
    main()
