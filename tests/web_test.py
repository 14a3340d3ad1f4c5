"""Asks the program with curl, behind lighttpd and behind busybox httpd, set up with the files of
deploy/appliance; and how the simulator starts and ends. For scripts/isolate: it uses the daemon's socket.

usage: web_test.py PROGRAM SIMULATOR TREE [OPTION-OF-UNITTEST...]"""

import contextlib
import ipaddress
import os
import pathlib
import re
import shutil
import signal
import socket
import socketserver
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from deployed import PORT, SOCKET, Appliance, start, stop, wait_for

PROGRAM, SIMULATOR, SAMPLE = (pathlib.Path(path).resolve() for path in sys.argv[1:4])
SANITIZED = b'__asan_init' in PROGRAM.read_bytes()
CHECK = pathlib.Path(__file__).resolve().parent.parent / 'scripts/check-deployment'
URL = f'http://127.0.0.1:{PORT}/cgi-bin/tzr4417.cgi'
PAGE = ('-H', 'X-Requested-With: test')
NET, OVERLAY = '/configuration/network', '/configuration/encoders/venc2/text_overlay/text'
PAIRS = 10  # of writes at the same moment
BIG = 'x' * 100000
READ = (f'{URL}?read=/a',)
WRITE = (f'{URL}?write=/a&value=b', *PAGE)


def programs():
    """The living processes of the program."""
    found = []
    for file in pathlib.Path('/proc').glob('[0-9]*/stat'):
        with contextlib.suppress(OSError):  # has ended meanwhile
            if re.search(r'\(tzr4417\.cgi\) [^Z]', file.read_text()):
                found.append(int(file.parent.name))
    return found


def is_gone():
    """Looks twice: a program may have begun another just before its end."""
    return not programs() and not programs()


class Daemon(socketserver.ThreadingUnixStreamServer):
    """Answers "ls" from its tree and "put" into it, each reply after `delay` seconds. At a
    request that begins with `silent_at` (all do with '', also the greeting) it waits for `resumed`."""

    daemon_threads, request_queue_size = True, 100

    def __init__(self, tree=(), delay=0, silent_at=None):
        SOCKET.unlink(missing_ok=True)
        super().__init__(str(SOCKET), None)
        self.tree, self.delay, self.silent_at = dict(tree), delay, silent_at
        self.asked, self.resumed, self.requests = threading.Event(), threading.Event(), []
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()

    def finish_request(self, request, client_address):
        with contextlib.suppress(OSError), request.makefile('rw', newline='\r') as lines:
            self.answer(lines, '')
            while line := lines.readline().removesuffix('\r'):
                self.requests.append(line)
                self.answer(lines, line)

    def answer(self, lines, line):
        time.sleep(self.delay)
        command, name, value = (line.split(' ', 2) + ['', ''])[:3]
        if self.silent_at is not None and line.startswith(self.silent_at):
            self.asked.set()
            self.resumed.wait()
        if command == 'put':
            self.tree[name] = value
        if command == 'ls':
            lines.write(self.tree.get(name, 'No such file or directory') + '\r\n')
        lines.write('/> ')
        lines.flush()

    def stop(self):
        self.resumed.set()
        self.shutdown()
        self.server_close()


class Test(unittest.TestCase):
    def setUp(self):
        folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, folder)
        self.tree = folder / 'tree'
        shutil.copy(SAMPLE, self.tree)
        self.appliance = Appliance(folder, PROGRAM)
        self.limit()

    def limit(self, **limits):
        """Sets the given limits, and the others out of reach."""
        self.appliance.set_limits(**{
            'time_limit': 600, 'cpu_limit': 600, 'process_limit': 9999,
            'memory_limit': 0 if SANITIZED else 32768, **limits})

    def start_daemon(self, **behaviour):
        daemon = Daemon(**behaviour)
        self.addCleanup(daemon.stop)
        return daemon

    def start_simulator(self):
        simulator = start(SIMULATOR, '--tree', self.tree, stdout=subprocess.PIPE, text=True)
        self.addCleanup(simulator.stdout.close)
        self.addCleanup(stop, simulator, signal.SIGKILL)
        self.assertEqual(simulator.stdout.readline(), f'Listening on {SOCKET}\n')
        return simulator

    def run_program(self, query):
        environment = {'QUERY_STRING': query, 'HTTP_X_REQUESTED_WITH': 'test'}
        return subprocess.check_output(self.appliance.script, env=environment, text=True)


class SimulatorTest(Test):
    def check_refusal(self, message):
        simulator = subprocess.run([SIMULATOR, '--tree', self.tree], stderr=subprocess.PIPE, text=True)
        self.assertEqual((simulator.returncode, simulator.stderr), (1, f'{SOCKET}: {message}\n'))

    def test_answers_odd_quotes_at_once(self):
        self.start_simulator()
        for value in ('"open', ' a"b'):
            self.assertIn('quote', self.run_program(f'write={OVERLAY}&value={value}'))
        wait_for(is_gone)  # so that no child is left without its daemon

    def test_starts_only_where_no_daemon_listens(self):
        simulator = self.start_simulator()
        self.check_refusal('a daemon already listens there')
        stop(simulator, signal.SIGKILL)  # and its socket stays
        for how in (signal.SIGINT, signal.SIGTERM):
            simulator = self.start_simulator()
            self.assertEqual((stop(simulator, how), simulator.stdout.read()), (0, ''))
            self.assertFalse(SOCKET.exists())
        SOCKET.touch()
        self.check_refusal('exists and is not a socket')
        SOCKET.unlink()


class WebTest:
    """The tests behind each web server."""

    def setUp(self):
        super().setUp()
        self.start_server()

    def start_server(self):
        # As an init system might start it, and with a limit of its own for bodies.
        odd = ('env', '--block-signal=ALRM', '--ignore-signal=ALRM', 'CGICC_MAX_CONTENTLENGTH=1',
               'sh', '-c', 'exec "$0" "$@" 2>&-')
        self.server = self.appliance.serve(self.name, odd)
        self.addCleanup(stop, self.server)
        self.addCleanup(wait_for, is_gone)

    def begin(self, *arguments):
        curl = start('curl', '-s', '-m', 60, self.auth, '-u', 'admin:secret',
                     '-w', '%{http_code}', *arguments, stdout=subprocess.PIPE)
        self.addCleanup(curl.stdout.close)
        self.addCleanup(stop, curl, signal.SIGKILL)
        return curl

    def end(self, curl):
        """The status and the body; status 0 is no answer."""
        output = curl.communicate()[0].decode()
        return int(output[-3:]), output[:-3]

    def ask(self, *arguments):
        return self.end(self.begin(*arguments))

    def check_write(self, name, value, *arguments):
        wanted = f'{{ "write": "{name}", "value": "{value}", "reply": "" }}\n'.replace('/', r'\/')
        self.assertEqual(self.ask(*PAGE, *arguments), (200, wanted))

    def check_silence(self, answer):
        self.assertRegex(str(answer), self.silence)

    @contextlib.contextmanager
    def takes(self, seconds):
        begin = time.monotonic()
        yield
        self.assertGreaterEqual(time.monotonic() - begin, seconds)

    def test_asks_for_a_password(self):
        self.start_daemon()
        for user in (':', 'admin:wrong'):
            self.assertEqual(self.ask(*READ, '-u', user)[0], 401)

    def test_reads_and_writes(self):
        simulator = self.start_simulator()
        self.assertEqual(self.ask(f'{URL}?read='), (400, ''))
        self.check_write(OVERLAY, r'\"Two\nlines\"', f'{URL}?write={OVERLAY}&value=Two%0Alines')
        self.check_write(f'{NET}/ip_addr', '10.1.2.3', URL, '-d', f'write={NET}/ip_addr',
                         '-d', 'value=10.1.2.3')
        self.check_write(f'{NET}/subnet_mask', '255.255.0.0', URL, '-F', f'write={NET}/subnet_mask',
                         '-F', 'value=255.255.0.0')
        self.assertEqual(self.ask(f'{URL}?read={NET}/broadcast_addr'), (
            200, r'{ "\/configuration\/network\/broadcast_addr": "10.1.255.255" }' + '\n'))
        wait_for(lambda: f'\n{NET}/broadcast_addr 10.1.255.255\n' in self.tree.read_text())  # saved
        wait_for(is_gone)
        stop(simulator)
        self.assertEqual(self.ask(*READ), (500, ''))

    def test_refuses_what_may_be_forged_or_is_too_long(self):
        daemon = self.start_daemon()
        for arguments in ((f'{URL}?reads&write=/a&value=b&x=read=',), (URL, '-d', 'write=/a&value=b'),
                          (URL, '-d', 'write=/a&value=b', '-H', 'X-Requested-With;')):
            with self.subTest(arguments):
                self.assertEqual(self.ask(*arguments), (403, 'No X-Requested-With header\n'))
        long = self.appliance.folder / 'long'
        long.write_bytes(bytes(17000))
        self.check_silence(self.ask(
            *PAGE, URL, '-F', 'write=/a', '-F', 'value=b', '-F', f'x=@{long}'))
        self.assertEqual(daemon.requests, [])

    def test_time_limit_interrupts(self):
        self.limit(time_limit=1)
        begun = r'{ "\/a": "1", "invalid": [ "/b", "/c" ] }' + '\n'
        for silent_at, request, answer in (
                ('', READ, (500, '')), ('', WRITE, (500, '')), ('put', WRITE, (500, '\n')),
                ('ls /b', (f'{URL}?read=/a,/b,/c',), (200, begun))):
            with self.subTest((silent_at, *request)), self.takes(1):
                daemon = self.start_daemon(tree={'/a': '1'}, silent_at=silent_at)
                self.assertEqual(self.ask(*request), answer)
                self.assertTrue(daemon.asked.is_set())
                daemon.stop()

    def test_ends_where_nobody_takes_the_reply(self):
        self.limit(time_limit=1)
        daemon = self.start_daemon(tree={'/big': BIG})
        asks = self.begin(*PAGE, URL, '-d', 'read=' + ','.join(['/big'] * 200))
        wait_for(lambda: daemon.requests)
        wait_for(is_gone)
        member = r'"\/big": "' + BIG + '"'
        whole = '{ ' + ', '.join([member] * 200) + ' }\n'
        self.assertTrue(whole.startswith(self.end(asks)[1]))

    def test_writes_take_turns(self):
        sample = re.findall('^(/[^ ]*) (.*)', SAMPLE.read_text(), re.MULTILINE)
        daemon = self.start_daemon(tree=sample, delay=0.005)
        for number in range(PAIRS):
            address, mask = f'10.1.{number}.3', ('255.255.0.0', '255.255.255.0')[number % 2]
            writes = [self.begin(*PAGE, f'{URL}?write={NET}/{name}&value={value}')
                      for name, value in (('ip_addr', address), ('subnet_mask', mask))]
            self.assertEqual([self.end(write)[0] for write in writes], [200, 200])
            network = ipaddress.ip_interface(f'{address}/{mask}').network
            self.assertEqual(daemon.tree[f'{NET}/broadcast_addr'], str(network.broadcast_address))

    def test_finishes_a_cancelled_write(self):
        for cancel in (self.reset, self.stop_server):
            with self.subTest(cancel.__name__):
                daemon = self.start_daemon(silent_at='put')
                cancel(daemon)
                [process] = programs()
                os.kill(process, signal.SIGHUP)
                time.sleep(0.5)  # for what might end the program
                daemon.resumed.set()
                wait_for(is_gone)
                self.assertEqual(daemon.requests[-1], 'save')
                daemon.stop()

    def reset(self, daemon):
        asked = subprocess.run(['curl', '-sv', self.auth, '-u', 'admin:secret', *PAGE, URL, '-d', 'none'],
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True).stderr
        authorization = re.search('Authorization: .*', asked)[0].strip()
        with socket.create_connection(('127.0.0.1', PORT)) as connection:
            connection.sendall('\r\n'.join((
                'POST /cgi-bin/tzr4417.cgi HTTP/1.1', 'Host: a', 'X-Requested-With: a', authorization,
                'Content-Type: application/x-www-form-urlencoded', 'Content-Length: 16', '',
                'write=/a&value=b')).encode())
            self.assertTrue(daemon.asked.wait(60))
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))

    def stop_server(self, daemon):
        self.begin(*WRITE)
        self.assertTrue(daemon.asked.wait(60))
        stop(self.server)


class LighttpdTest(WebTest, Test):
    name, auth, silence = 'lighttpd', '--digest', r'^\(500, .*<h1>500'

    def test_serves_tls_as_the_deployment_check_wants_it(self):
        stop(self.server)
        pem = self.appliance.folder / 'encoder.pem'
        subprocess.run(['openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt',
                        'ec_paramgen_curve:prime256v1', '-nodes', '-subj', '/CN=127.0.0.1', '-addext',
                        'subjectAltName=IP:127.0.0.1', '-keyout', pem, '-out', f'{pem}.crt'],
                       check=True, stderr=subprocess.DEVNULL)
        with pem.open('a') as file:
            file.write(pathlib.Path(f'{pem}.crt').read_text())
        self.start_daemon(tree={f'{NET}/ip_addr': '10.1.2.3'})
        (self.appliance.pages / 'index.html').touch()
        self.addCleanup(stop, self.appliance.serve('lighttpd with TLS'))
        for password, status in (('secret', 0), ('wrong', 1)):
            environment = {**os.environ, 'PASSWORD': password, 'CURL_CA_BUNDLE': f'{pem}.crt'}
            check = subprocess.run([CHECK, f'https://127.0.0.1:{PORT}/'], env=environment,
                                   stdout=subprocess.PIPE, text=True)
            self.assertEqual(check.returncode, status, check.stdout)

    def test_sends_headers(self):
        self.start_daemon()
        headers = self.ask('-D', '-', *READ)[1].split('\r\n\r\n')[-2].split('\r\n')
        for header in ('X-Content-Type-Options: nosniff', 'Cache-Control: no-cache',
                       "Content-Security-Policy: frame-ancestors 'none'"):
            self.assertIn(header, headers)


class BusyboxHttpdTest(WebTest, Test):
    name, auth, silence = 'busybox httpd', '--basic', r"^\((0|200), ''\)$"


if __name__ == '__main__':
    if SOCKET.exists():
        sys.exit(f'{SOCKET} is there: run this in scripts/isolate')
    os.umask(0)  # for a web server that gives up root
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
