"""orv-cli serve and radar-sim for the browser tests: started with their
output read with a bound, stopped by their own process, and the service's
JSON API over loopback with the bearer token."""

import json
import re
import selectors
import signal
import socket
import subprocess
import urllib.error
import urllib.request


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(('127.0.0.1', 0))
        return s.getsockname()[1]


def read_line(process, what, timeout=30):
    """The next line of the process's standard output, with a bound."""
    sel = selectors.DefaultSelector()
    sel.register(process.stdout, selectors.EVENT_READ)
    if not sel.select(timeout):
        raise AssertionError('%s printed nothing within %d s' % (what, timeout))
    line = process.stdout.readline()
    if not line:
        raise AssertionError('%s ended (exit %r)' % (what, process.poll()))
    return line.strip()


class Service:
    """orv-cli serve on 127.0.0.1:port with the modules ports ([(id, path)]);
    its standard error goes to the file log."""

    def __init__(self, orv_cli, ports, port, token_file, log, extra=()):
        self.args = [orv_cli, 'serve', '--listen', '127.0.0.1:%d' % port, '--token-file', token_file]
        for name, path in ports:
            self.args += ['--port', '%s=%s' % (name, path)]
        self.args += list(extra)
        self.log = log
        self.process = None
        self.url = None

    def start(self):
        with open(self.log, 'a') as log:
            self.process = subprocess.Popen(self.args, stdout=subprocess.PIPE, stderr=log, text=True)
        # The line with the URL to open (other notes may come first).
        lines = []
        match = None
        while not match and len(lines) < 10:
            lines.append(read_line(self.process, 'orv-cli serve'))
            match = re.search(r'(http://\S+)', lines[-1])
        assert match, 'no URL in the start lines: %r' % lines
        self.url = match.group(1)
        assert 'token=' in self.url, 'no token in %r' % self.url
        return self.url

    def token(self):
        return re.search(r'token=([^&\s]+)', self.url).group(1)

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                raise AssertionError('orv-cli serve did not stop on SIGTERM')


class Simulator:
    """radar-sim with the given options, its pseudo-terminal behind a
    symbolic link so that it can be unplugged and plugged in again at one
    path."""

    def __init__(self, radar_sim, link, options):
        self.args = [radar_sim, '--link', link] + list(options)
        self.process = None

    def start(self):
        self.process = subprocess.Popen(self.args, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        text=True)
        return read_line(self.process, 'radar-sim')

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            self.process.wait(10)


class Api:
    def __init__(self, base, token):
        self.base = base
        self.token = token

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data=data, method=method)
        request.add_header('Authorization', 'Bearer ' + self.token)
        if data is not None:
            request.add_header('Content-Type', 'application/json')
        try:
            with urllib.request.urlopen(request, timeout=10) as response:
                return response.status, json.loads(response.read() or b'null'), response.headers
        except urllib.error.HTTPError as e:
            return e.code, json.loads(e.read() or b'null'), e.headers

    def area(self, number, module='sim'):
        status, body, _ = self.call('GET', '/api/modules/%s/areas' % module)
        assert status == 200, (status, body)
        return next((a for a in body['areas'] if a['number'] == number), None)
