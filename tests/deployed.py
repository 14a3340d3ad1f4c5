"""An appliance for tests: the files of deploy/appliance in a folder, and its processes."""

import hashlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

SHIPPED = pathlib.Path(__file__).resolve().parent.parent / 'deploy/appliance'
SOCKET = pathlib.Path('/tmp/cffs_uds')  # the daemon's
PORT = 8080
os.environ['PATH'] += ':/usr/sbin'  # of lighttpd


def wait_for(condition, seconds=60):
    """Gives the condition's result, once it is true."""
    end = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError('It does not come true.')
        time.sleep(0.02)
    return result


def listens(port):
    tables = [pathlib.Path(f'/proc/net/{name}').read_text() for name in ('tcp', 'tcp6')]
    return re.search(f':{port:04X} [0-9A-F]+:0000 0A ', ''.join(tables))


def start(*command, **options):
    return subprocess.Popen([str(word) for word in command], **options)


def stop(process, how=signal.SIGTERM):
    """Ends a process, even a stopped one, and gives its exit status."""
    process.send_signal(signal.SIGCONT)
    process.send_signal(how)
    return process.wait()


class Appliance:
    """A program as it is deployed in `folder`, which any user can read. Its web servers listen at
    PORT, and let in the users admin, the only writer, and viewer with the password "secret"."""

    def __init__(self, folder, program):
        self.folder, self.pages = folder, folder / 'pages'
        self.script = self.pages / 'cgi-bin/tzr4417.cgi'
        self.script.parent.mkdir(parents=True)
        folder.chmod(0o755)
        shutil.copy(program, folder / 'tzr4417.cgi')
        (folder / 'limits').mkdir()
        (folder / 'limits/tzr4417.cgi').symlink_to('../tzr4417.cgi')
        self.set_limits()
        self.script.chmod(0o755)
        users = ('admin', 'viewer')
        digests = (hashlib.md5(f'{user}:encoder:secret'.encode()).hexdigest() for user in users)
        (folder / 'users').write_text(''.join(map('{}:encoder:{}\n'.format, users, digests)))
        password = subprocess.check_output(['busybox', 'httpd', '-m', 'secret'], text=True).strip()
        self.adapt('lighttpd.conf', {'(server.port =) .*': fr'\1 {PORT}'})
        self.adapt('tls.conf', {'(server.port :=) .*': fr'\1 {PORT}'})
        self.adapt('httpd.conf', {'/:admin:.*': '\n'.join(f'/:{user}:{password}' for user in users)})
        user = ('-u', 'www-data') if os.getuid() == 0 else ()
        self.servers = {
            'lighttpd': ('lighttpd', '-D', '-f', folder / 'lighttpd.conf'),
            'lighttpd with TLS': ('lighttpd', '-D', '-f', folder / 'tls.conf'),
            'busybox httpd': ('busybox', 'httpd', '-f', '-p', PORT, '-r', 'encoder', *user,
                              '-c', folder / 'httpd.conf')}

    def adapt(self, name, lines):
        """Writes a shipped file for this folder, with `lines`, regular expressions, replaced."""
        text = (SHIPPED / name).read_text().replace('/var/www', str(self.pages))
        text = re.sub('/(etc|usr/lib)/tzr4417', str(self.folder), text)
        for line, replacement in lines.items():
            text, count = re.subn(f'(?m)^{line}$', replacement, text)
            assert count == 1, (name, line)
        (self.script if name.startswith('cgi-bin') else self.folder / name).write_text(text)

    def set_limits(self, **limits):
        """Writes the script anew, with `limits` in place of the shipped ones; 0 leaves one out."""
        lines = {f'{name} = .*': f'{name} = {number}' if number else '#'
                 for name, number in limits.items()}
        self.adapt('cgi-bin/tzr4417.cgi', {'# (writer = .*)': r'\1', **lines})

    def serve(self, server, before=(), **options):
        """Starts a web server, under the command `before`. Only one may listen at a time."""
        process = start(*before, *self.servers[server], **options)
        wait_for(lambda: process.poll() is not None or listens(PORT))
        return process
