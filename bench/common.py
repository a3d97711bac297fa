"""What the measurements share: the release preset's programs, brokers and units' contents."""

import os
import socket
import subprocess
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BIN = os.path.join(ROOT, "build", "release", "bin")
KORVID = os.path.join(BIN, "korvid")
PAUSE_S = 0.1
NODELAY = "set_tcp_nodelay true\n"


def build():
    subprocess.run([os.path.join(ROOT, "tools", "install-packages"), "build", "run", "bench"], check=True)
    subprocess.run(["cmake", "--preset", "release", "-DKORVID_TESTS=OFF"], cwd=ROOT, check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", "--preset", "release"], cwd=ROOT, check=True,
                   stdout=subprocess.DEVNULL)


def dump(count, name=b"value"):
    """`count` parameters with 14 bytes of data each, as `korvid get` prints them."""
    blocks = []
    for otaid in range(count):
        data = b"%s-%08d" % (name, otaid)
        blocks.append(b"SysParam (%d):\n  OTAID: %d - 0x%03x\n  DID: f190\n  XCPID: 1\n"
                      b"  data(char) [e]: '%s'\n  data(hex) [e]: %s\n"
                      % (otaid, otaid, otaid, data, b"".join(b"0x%02x " % byte for byte in data)))
    return b"".join(blocks)


class Broker:
    """A mosquitto on a free port of the loopback, in a folder of its own."""

    def __init__(self, scratch, settings):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = str(probe.getsockname()[1])
        self.folder = tempfile.mkdtemp(dir=scratch)
        config = os.path.join(self.folder, "mosquitto.conf")
        with open(config, "w") as file:
            file.write(f"listener {self.port} 127.0.0.1\nallow_anonymous true\n{settings}")
        path = os.environ["PATH"] + ":/usr/sbin"
        self.process = subprocess.Popen(["mosquitto", "-c", config], env={**os.environ, "PATH": path},
                                        stderr=subprocess.DEVNULL)
        while True:
            try:
                socket.create_connection(("127.0.0.1", int(self.port))).close()
                break
            except ConnectionRefusedError:
                assert self.process.poll() is None, "the broker ended"
                time.sleep(0.01)


def end(*processes):
    for process in processes:
        process.terminate()
    for process in processes:
        process.wait()
