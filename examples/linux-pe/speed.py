"""How fast the soft switch is, and how fast a plain Linux bridge in its place: one stream of TCP, and
pings one after the other, between the same hosts over the same cables.

A real product states what its chip forwards, at line rate whatever the size of frames.
"""

import array
import fcntl
import socket
import struct
import subprocess
import sys
import time

sys.dont_write_bytecode = True
from frames import enter  # noqa: E402

SIOCETHTOOL = 0x8946
ETHTOOL_STXCSUM = 0x17
SECONDS = 3
PINGS = 300
PORT = 5000
PYTHON = "/usr/bin/python3"


def compute_checksums(interface):
    """By the host itself, and so without segments that are cut later: an edge does neither."""
    value = array.array("B", struct.pack("II", ETHTOOL_STXCSUM, 0))
    request = struct.pack("16sP", interface.encode(), value.buffer_info()[0])
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asked:
        fcntl.ioctl(asked, SIOCETHTOOL, request)


def receive(space):
    """Prints how many bytes a second come in until the sender ends."""
    enter(space)
    compute_checksums("eth")
    with socket.create_server(("", PORT)) as server:
        print("ready", flush=True)
        connection, _ = server.accept()
        began = time.monotonic()
        count = 0
        while read := connection.recv(1 << 18):
            count += len(read)
        print(count / (time.monotonic() - began), flush=True)


def send(space, to):
    enter(space)
    compute_checksums("eth")
    with socket.create_connection((to, PORT), timeout=10) as connection:
        end = time.monotonic() + SECONDS
        while time.monotonic() < end:
            connection.sendall(b"\0" * (1 << 16))


def _measure(network, address):
    """Megabits a second, and milliseconds there and back."""
    receiver = subprocess.Popen([PYTHON, __file__, "receive", network.space("host3")],
                                stdout=subprocess.PIPE, text=True)
    try:
        receiver.stdout.readline()
        subprocess.run([PYTHON, __file__, "send", network.space("host1"), address], check=True,
                       timeout=60)
        rate = float(receiver.stdout.readline()) * 8 / 1e6
    finally:
        receiver.kill()
        receiver.wait()
    done = network.run("host1", "ping", "-q", "-c", str(PINGS), "-i", "0.005", address)
    return rate, float(done.stdout.splitlines()[-1].split("/")[4])


def compare(network):
    """Measures, puts bridges in the edges' place, and measures again; the edges are gone then."""
    address = "10.0.0.3"
    rate, latency = _measure(network, address)
    for edge in ("a", "c"):
        network.end_edge(edge)
        network.bridge(edge, "port1", "core")
    bridge_rate, bridge_latency = _measure(network, address)
    yield (f"throughput {rate:6.0f} Mbit/s beside {bridge_rate:6.0f}: "
           f"{rate / bridge_rate:.3f} of the bridges'")
    yield (f"round trip {latency:6.3f} ms     beside {bridge_latency:6.3f}: "
           f"{latency / bridge_latency:.1f} times the bridges'")


if __name__ == "__main__":
    if sys.argv[1] == "receive":
        receive(sys.argv[2])
    else:
        send(sys.argv[2], sys.argv[3])
