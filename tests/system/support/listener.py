"""What every server that a test plays does alike: it listens on loopback and serves connections."""

import contextlib
import socket
import struct
import threading


class Listener:
    """Serves each connection on a thread of its own; a subclass says how in `serve`.

    A mistake in a test's script must not pass unseen: it is kept, and close() raises it.
    """

    def __init__(self, port=0):
        self.failures = []
        self.connections = 0  # how many there have been
        self._open = set()
        self._listener = socket.create_server(("127.0.0.1", port), backlog=128)
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def serve(self, connection):
        raise NotImplementedError

    def close(self):
        # A thread that is blocked in a call keeps a socket alive that is only closed.
        for each in [self._listener, *self._open]:
            with contextlib.suppress(OSError):
                each.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        assert not self.failures, self.failures

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listener.accept()
                self.connections += 1
                self._open.add(connection)
                threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        try:
            self.serve(connection)
        except OSError:
            pass  # the host hung up
        except Exception as error:
            self.failures.append(repr(error))
        finally:
            self._open.discard(connection)
            connection.close()


def reset(connection):
    """Breaks a connection off with a reset instead of an orderly end."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def receive_exactly(connection, size):
    """None when the far side hangs up before."""
    data = b""
    while len(data) < size:
        piece = connection.recv(min(size - len(data), 1 << 20))
        if not piece:
            return None
        data += piece
    return data


def receive_request(connection):
    """The head and the body of an HTTP request; None when the client hangs up before its end."""
    data = b""
    while b"\r\n\r\n" not in data:
        piece = connection.recv(1 << 16)
        if not piece:
            return None
        data += piece
    head, _, body = data.partition(b"\r\n\r\n")
    lengths = [line.split(b":")[1] for line in head.split(b"\r\n")
               if line.lower().startswith(b"content-length:")]
    rest = receive_exactly(connection, int((lengths or [b"0"])[0]) - len(body))
    return None if rest is None else (head, body + rest)
