#!/usr/bin/env python3
"""Frames of the tests' own, in a network namespace.

A real product is sent them by a traffic generator, which counts in hardware.

frames.py broadcast NAMESPACE INTERFACE COUNT   sends so many broadcasts
frames.py copies NAMESPACE INTERFACE            prints "copy" for each of those that comes in
frames.py labels NAMESPACE INTERFACE            prints the labels of what passes, a line a frame, as
                                                another decoder than the switch's reads them
frames.py station NAMESPACE INTERFACE           sends and counts, as it is told by lines:
    send RUN COUNT RATE [MAC]                   so many frames, so many a second, broadcast or to one
    sent                                        waits until they are, and prints how many
    stop                                        sends no more, and prints how many it has sent
    count RUN                                   prints in JSON how many frames of the run have come, and
                                                how many copies, by their sender's MAC address

All but the first print "ready" before anything else, and go on until they are ended.
"""

import collections
import ctypes
import json
import os
import select
import socket
import struct
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


class Station:
    SOL_PACKET, PACKET_IGNORE_OUTGOING, SO_RCVBUFFORCE = 263, 23, 33

    def __init__(self, interface):
        self._socket = packet_socket(interface)
        self._socket.setsockopt(self.SOL_PACKET, self.PACKET_IGNORE_OUTGOING, 1)
        self._socket.setsockopt(socket.SOL_SOCKET, self.SO_RCVBUFFORCE, 64 << 20)
        self._socket.setblocking(False)
        self._own = self._socket.getsockname()[4]
        self._copies = collections.defaultdict(collections.Counter)  # by run and sender, of numbers
        self._to_send = None
        self._sent = 0

    def _take(self):
        try:
            while True:
                frame = self._socket.recv(2048)
                if frame[12:].startswith(MARK):
                    run, number = struct.unpack_from("!II", frame, 12 + len(MARK))
                    self._copies[run, frame[6:12]][number] += 1
        except BlockingIOError:
            pass

    def _send(self):
        """As many as are due."""
        run, count, rate, to, began = self._to_send
        while self._sent < count and began + self._sent / rate <= time.monotonic():
            frame = to + self._own + MARK + struct.pack("!II", run, self._sent)
            self._socket.send(frame.ljust(60, b"\0"))
            self._sent += 1
        return self._sent == count

    def _obey(self, words):
        if words[0] == "send":
            to = bytes.fromhex(words[4].replace(":", "")) if len(words) > 4 else b"\xff" * 6
            self._to_send = (int(words[1]), int(words[2]), float(words[3]), to, time.monotonic())
            self._sent = 0
        elif words[0] == "sent":
            while not self._send():
                self._take()
                time.sleep(0.0005)
            print(self._sent, flush=True)
        elif words[0] == "stop":
            self._to_send = None
            print(self._sent, flush=True)
        else:
            counted = {sender.hex(":"): [len(numbers), numbers.total()]
                       for (run, sender), numbers in self._copies.items() if run == int(words[1])}
            print(json.dumps(counted), flush=True)

    def serve(self):
        print("ready", flush=True)
        lines = b""
        while True:
            is_sending = self._to_send and self._sent < self._to_send[1]
            readable, _, _ = select.select([self._socket, 0], [], [], 0.0005 if is_sending else None)
            self._take()
            if is_sending:
                self._send()
            if 0 in readable:
                read = os.read(0, 4096)
                if not read:
                    return
                *whole, lines = (lines + read).split(b"\n")
                for line in whole:
                    self._obey(line.decode().split())


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
    elif what == "station":
        Station(interface).serve()
    else:
        labels(interface)


if __name__ == "__main__":
    main()
