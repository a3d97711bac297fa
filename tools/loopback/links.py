"""Links to a broker that behave like bad ones."""

import contextlib
import socket
import threading
import time


class Listening:
    """Accepts connections on a free loopback port; each is a thread in `serve`."""

    def __init__(self, port=0):
        self.listener = socket.create_server(("127.0.0.1", port))
        self.port, self.links = self.listener.getsockname()[1], []
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                link = self.listener.accept()[0]
                self.links.append(link)
                threading.Thread(target=self.serve, args=(link,), daemon=True).start()

    def close(self):
        for link in [self.listener, *self.links]:
            with contextlib.suppress(OSError):
                link.shutdown(socket.SHUT_RDWR)
            link.close()


class Proxy(Listening):
    """A link to a port: slow, and cut or stalled after so many bytes from the client or at once."""

    def __init__(self, target, latency=0.0, bandwidth=1e9, cut_at=None, stall_at=None, port=0):
        self.target, self.latency, self.bandwidth = target, latency, bandwidth
        self.cut_at, self.stall_at, self.upstream = cut_at, stall_at, bytearray()
        self.passing = threading.Event()
        self.passing.set()
        super().__init__(port)

    def serve(self, link):
        self.upstream.clear()
        ends = [link]
        with contextlib.suppress(OSError):
            ends.append(socket.create_connection(("127.0.0.1", self.target)))
            self.links.append(ends[1])
            back = threading.Thread(target=self.pump, args=(*ends[::-1], bytearray()), daemon=True)
            back.start()
            self.pump(*ends, self.upstream, self.cut_at, self.stall_at)
            back.join()
        for end in ends:
            end.close()
            self.links.remove(end)

    def pump(self, source, sink, passed, cut_at=None, stall_at=None):
        """Up to a limit to the byte; behind a stall nothing is read any more."""
        with contextlib.suppress(OSError):
            limit = min(x for x in (cut_at, stall_at, 1 << 62) if x is not None)
            while len(passed) < limit and (data := source.recv(min(16384, limit - len(passed)))):
                time.sleep(self.latency + len(data) / self.bandwidth)
                self.passing.wait()
                try:
                    sink.sendall(data)
                except OSError:  # what the sink has sent is still on its way, and its end cuts the link
                    return
                passed += data
        if stall_at is None or len(passed) < stall_at:
            self.cut(source, sink)

    def cut(self, *links):
        for link in links or list(self.links):
            with contextlib.suppress(OSError):
                link.shutdown(socket.SHUT_RDWR)

    @contextlib.contextmanager
    def stalled(self):
        self.passing.clear()
        try:
            yield
        finally:
            self.passing.set()
