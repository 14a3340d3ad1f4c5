"""A daemon for tests, without a tree: it gives every request the same answer.

usage: daemon.py COMMAND...    answers "192.168.1.10" while COMMAND runs, whose status it returns"""

import contextlib
import itertools
import socketserver
import subprocess
import sys
import threading

from deployed import SOCKET


class Daemon(socketserver.ThreadingUnixStreamServer):
    """Keeps the `requests`. Those that begin with `held` get their answer once `released`."""

    daemon_threads, request_queue_size = True, 100

    def __init__(self, answer='', held=()):
        SOCKET.unlink(missing_ok=True)
        super().__init__(str(SOCKET), None)
        self.answer, self.held = f'{answer}\r\n/> '.encode(), held
        self.requests, self.released = [], threading.Event()
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()

    def finish_request(self, request, client_address):
        with contextlib.suppress(OSError), request.makefile(newline='\r') as lines:
            for line in itertools.chain([''], lines):  # first the greeting
                self.requests.append(line.removesuffix('\r'))
                if line.startswith(self.held):
                    self.released.wait()
                request.sendall(self.answer)

    def stop(self):
        self.released.set()
        self.shutdown()
        self.server_close()


if __name__ == '__main__':
    Daemon('192.168.1.10')
    sys.exit(subprocess.call(sys.argv[1:]))
