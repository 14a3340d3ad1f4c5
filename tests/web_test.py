"""Asks the program with curl, behind lighttpd and behind busybox httpd, set up with the files of
deploy/appliance; and the simulator. For scripts/isolate: it uses the daemon's socket.

usage: web_test.py PROGRAM SIMULATOR TREE [OPTION-OF-UNITTEST...]"""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

from daemon import Daemon
from deployed import PORT, SOCKET, Appliance, start, stop, wait_for

PROGRAM, SIMULATOR, SAMPLE = (pathlib.Path(path).resolve() for path in sys.argv[1:4])
SANITIZED = b'__asan_init' in PROGRAM.read_bytes()
CHECK = pathlib.Path(__file__).resolve().parent.parent / 'scripts/check-deployment'
URL = f'http://127.0.0.1:{PORT}/cgi-bin/tzr4417.cgi'
HEADER = ('-H', 'X-Requested-With: test')
NET, OVERLAY = '/configuration/network', '/configuration/encoders/venc2/text_overlay/text'
READ = (f'{URL}?read=/a',)
WRITE = (f'{URL}?write=/a&value=b', *HEADER)


def is_gone():
    """Whether no program lives. Looks twice: one may have begun another just before its end."""
    lists = [subprocess.check_output(['busybox', 'ps', '-o', 'stat,comm'], text=True) for _ in '12']
    return not re.search(r'(?m)^[^Z]\S* +tzr4417\.cgi', ''.join(lists))


class Test(unittest.TestCase):
    def setUp(self):
        folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, folder)
        self.tree = folder / 'tree'
        shutil.copy(SAMPLE, self.tree)
        self.appliance = Appliance(folder, PROGRAM)
        # Out of reach on any machine.
        self.appliance.set_limits(time_limit=600, cpu_limit=600, process_limit=9999,
                                  memory_limit=0 if SANITIZED else 32768)

    def start_daemon(self, *behaviour):
        daemon = Daemon(*behaviour)
        self.addCleanup(daemon.stop)
        return daemon

    def start_simulator(self):
        simulator = start(SIMULATOR, '--tree', self.tree, stdout=subprocess.PIPE, text=True)
        self.addCleanup(simulator.stdout.close)
        self.addCleanup(stop, simulator, signal.SIGKILL)
        self.assertEqual(simulator.stdout.readline(), f'Listening on {SOCKET}\n')
        return simulator


class SimulatorTest(Test):
    def test_starts_only_where_no_daemon_listens(self):
        def check_refusal(message):
            refused = subprocess.run([SIMULATOR, '--tree', self.tree], stderr=subprocess.PIPE, text=True)
            self.assertEqual((refused.returncode, refused.stderr), (1, f'{SOCKET}: {message}\n'))
        simulator = self.start_simulator()
        check_refusal('a daemon already listens there')
        stop(simulator, signal.SIGKILL)  # and its socket stays
        for how in (signal.SIGINT, signal.SIGTERM):
            simulator = self.start_simulator()
            self.assertEqual((stop(simulator, how), simulator.stdout.read()), (0, ''))
            self.assertFalse(SOCKET.exists())
        SOCKET.touch()
        check_refusal('exists and is not a socket')
        SOCKET.unlink()

    def test_answers_in_one_line_and_keeps_all_else_of_its_file(self):
        self.tree.write_text('# top\n/x ""\n\n# below\n /y  \'y"\n# end\n')
        self.start_simulator()
        rows = (('ls /x', ''),
                ('ls /z', 'No such file or directory\r\n'),
                ('put /z 1', 'No such file or directory\r\n'),
                ('put /x 2 3', 'Usage: put NAME VALUE\r\n'),
                ('put /x "/> "', 'Value holds the prompt text\r\n'),
                ('put /x "a\rb \n\'"', ''),
                ('ls  "/x"', 'a\rb \n\'\r\n'),
                ('ls /y', '\'y"\r\n'),
                ('  ', ''),
                ('quit', 'Unknown command\r\n'),
                ('save', ''))
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(SOCKET))
            client.sendall(''.join(f'{request}\r' for request, _ in rows).encode())
            client.shutdown(socket.SHUT_WR)
            answers = client.makefile(newline='').read().split('/> ')
        self.assertEqual(answers, ['Simulated appliance\r\n', *(answer for _, answer in rows), ''])
        self.assertEqual(self.tree.read_bytes(), b'# top\n/x "a\rb \n\'"\n\n# below\n/y \'y"\n# end\n')


class WebTest:
    """The tests behind each web server."""

    def setUp(self):
        super().setUp()
        # As an init system might start it, and with a limit of its own for bodies.
        odd = ('env', 'CGICC_MAX_CONTENTLENGTH=1', 'sh', '-c', 'exec "$0" "$@" 2>&-')
        self.server = self.appliance.serve(self.name, odd)
        self.addCleanup(stop, self.server)
        self.addCleanup(wait_for, is_gone)

    def begin(self, *arguments):
        curl = start('curl', '-s', '-m', 60, self.auth, '-u', 'admin:secret',
                     '-w', '%{http_code}', *arguments, stdout=subprocess.PIPE)
        self.addCleanup(curl.stdout.close)
        self.addCleanup(stop, curl, signal.SIGKILL)
        return curl

    def ask(self, *arguments):
        """The status and the body; status 0 is no answer."""
        output = self.begin(*arguments).communicate()[0].decode()
        return int(output[-3:]), output[:-3]

    def check_write(self, name, value, *arguments):
        wanted = f'{{ "write": "{name}", "value": "{value}", "reply": "" }}\n'.replace('/', r'\/')
        self.assertEqual(self.ask(*HEADER, *arguments), (200, wanted))

    def test_asks_for_a_password(self):
        for user in (':', 'admin:wrong'):
            self.assertEqual(self.ask(*READ, '-u', user)[0], 401)

    def test_lets_a_viewer_only_read(self):
        self.start_daemon('1')
        viewer = ('-u', 'viewer:secret', '-H', 'Remote-User: admin', '-H', 'REMOTE_USER: admin')
        self.assertEqual(self.ask(*READ, *viewer), (200, '{ "\\/a": "1" }\n'))
        self.assertEqual(self.ask(*WRITE, *viewer), (403, 'This user may not write\n'))

    def test_reads_and_writes(self):
        simulator = self.start_simulator()
        self.assertEqual(self.ask(f'{URL}?read='), (400, ''))
        self.check_write(OVERLAY, r'\"Two\nlines\"', f'{URL}?write={OVERLAY}&value=Two%0Alines')
        self.check_write(f'{NET}/ip_addr', '10.1.2.3', URL, '-d', f'write={NET}/ip_addr',
                         '-d', 'value=10.1.2.3')
        self.check_write(f'{NET}/subnet_mask', '255.255.0.0', URL, '-F', f'write={NET}/subnet_mask',
                         '-F', 'value=255.255.0.0')
        for value in ('%22open', '%20a%22b'):
            self.assertIn('quote', self.ask(*HEADER, f'{URL}?write={OVERLAY}&value={value}')[1])
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
        answer = self.ask(*HEADER, URL, '-F', 'write=/a', '-F', 'value=b', '-F', f'x=@{long}')
        self.assertRegex(str(answer), self.silence)
        self.assertEqual(daemon.requests, [])

    def test_finishes_a_cancelled_write(self):
        daemon = self.start_daemon('', 'put')
        self.begin(*WRITE)
        wait_for(lambda: daemon.requests[-1:] == ['put /a b'])
        stop(self.server)
        daemon.released.set()
        wait_for(lambda: daemon.requests[-1] == 'save')


class LighttpdTest(WebTest, Test):
    name, auth, silence = 'lighttpd', '--digest', r'^\(500, .*<h1>500'

    def test_serves_tls_as_the_deployment_check_wants_it(self):
        stop(self.server)
        pem = self.appliance.folder / 'encoder.pem'
        subprocess.run(['openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256',
                        '-nodes', '-subj', '/CN=a', '-addext', 'subjectAltName=IP:127.0.0.1',
                        '-keyout', pem, '-out', pem], check=True, stderr=subprocess.DEVNULL)
        self.start_daemon('10.1.2.3')
        (self.appliance.pages / 'index.html').touch()
        self.addCleanup(stop, self.appliance.serve('lighttpd with TLS'))
        for password, status in (('secret', 0), ('wrong', 1)):
            environment = {**os.environ, 'PASSWORD': password, 'CURL_CA_BUNDLE': str(pem)}
            check = subprocess.run([CHECK, f'https://127.0.0.1:{PORT}/'], env=environment,
                                   stdout=subprocess.PIPE, text=True)
            self.assertEqual(check.returncode, status, check.stdout)

    def test_sends_headers(self):
        headers = self.ask('-D', '-', *READ)[1]
        for header in ('X-Content-Type-Options: nosniff', 'Cache-Control: no-cache',
                       "Content-Security-Policy: frame-ancestors 'none'"):
            self.assertIn(f'\n{header}\r\n', headers)


class BusyboxHttpdTest(WebTest, Test):
    name, auth, silence = 'busybox httpd', '--basic', r"^\((0|200), ''\)$"


if __name__ == '__main__':
    if SOCKET.exists():
        sys.exit(f'{SOCKET} is there: run this in scripts/isolate')
    os.umask(0)  # for a web server that gives up root
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
