"""The live page's server, asked by hand: HTTP, the values' messages, who may what, and all that comes which is nonsense."""
import base64
import json
import os
import re
import resource
import signal
import socket
import struct
import subprocess
import tempfile
import time

HOST = '127.0.0.1'
LONGEST = 10.0  # seconds that anything is waited for


class Program:
    """A subcommand that goes on until it is stopped."""

    def __init__(self, command, *arguments, **how):
        self.output = tempfile.TemporaryFile('w+')
        self.process = subprocess.Popen([*command, *arguments], stdout=self.output, stderr=subprocess.STDOUT, **how)

    def said(self):
        self.output.seek(0)
        return self.output.read()

    def until(self, pattern):
        end = time.monotonic() + LONGEST
        while not (found := re.search(pattern, self.said())):
            assert time.monotonic() < end and self.process.poll() is None, f'no "{pattern}" in: {self.said()}'
            time.sleep(0.02)
        return found

    def stop(self):
        """What it printed, when it ends well."""
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(LONGEST)
        assert self.process.returncode == 0, f'status {self.process.returncode}: {self.said()}'
        return self.said()

    def cpu_seconds(self):
        fields = open(f'/proc/{self.process.pid}/stat').read().rsplit(')', 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf('SC_CLK_TCK')

    def kilobytes(self):
        return int(re.search(r'VmRSS:\s+(\d+)', open(f'/proc/{self.process.pid}/status').read()).group(1))


def start_web(command, *arguments):
    web = Program(command, 'web', '--web-port', '0', *arguments)
    web.host, port = web.until(r'the page: http://([0-9.]+):(\d+)/').groups()
    web.port = int(port)
    return web


def connect(port, receive_buffer=None):
    connection = socket.socket()
    if receive_buffer:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
    connection.settimeout(LONGEST)
    connection.connect((HOST, port))
    return connection


def request(port, path='/', method='GET', version='1.1', **headers):
    """A request's bytes; a header None is left out."""
    lines = {'Host': f'{HOST}:{port}', **{name.replace('_', '-'): value for name, value in headers.items()}}
    fields = ''.join(f'{name}: {value}\r\n' for name, value in lines.items() if value is not None)
    return f'{method} {path} HTTP/{version}\r\n{fields}\r\n'.encode('latin-1')


def ask(port, bytes_):
    """Sends bytes and reads the answer's status, headers and body; status 0: it hung up without one."""
    with connect(port) as connection:
        connection.sendall(bytes_)
        answer = b''
        try:
            while b'\r\n\r\n' not in answer:
                some = connection.recv(65536)
                if not some:
                    return 0, '', b''
                answer += some
            head, body = answer.split(b'\r\n\r\n', 1)
            length = int((re.search(rb'Content-Length: (\d+)', head) or [0, 0])[1])
            while len(body) < length and not bytes_.startswith(b'HEAD') and (some := connection.recv(65536)):
                body += some
        except ConnectionError:
            return 0, '', b''
        return int(head.split()[1]), head.decode('latin-1'), body


def upgrade(port, **headers):
    asked = {'Origin': f'http://{HOST}:{port}', 'Connection': 'Upgrade', 'Upgrade': 'websocket', 'Sec_WebSocket_Version': '13',
             'Sec_WebSocket_Key': base64.b64encode(b'0123456789abcdef').decode(), **headers}
    return request(port, '/live', **asked)


class Live:
    """A browser's end of the connection for values."""

    def __init__(self, port, receive_buffer=None, **headers):
        self.connection = connect(port, receive_buffer)
        self.connection.sendall(upgrade(port, **headers))
        self.rest = b''
        while b'\r\n\r\n' not in self.rest:
            self.rest += self.connection.recv(65536) or self.fail()
        head, self.rest = self.rest.split(b'\r\n\r\n', 1)
        assert b' 101 ' in head, head

    @staticmethod
    def fail():
        raise ConnectionError('it hung up')

    def read(self, count):
        while len(self.rest) < count:
            self.rest += self.connection.recv(1 << 20) or self.fail()
        taken, self.rest = self.rest[:count], self.rest[count:]
        return taken

    def message(self):
        """The next one's kind (1 text, 2 binary, 8 closing) and bytes; pings are answered."""
        message = b''
        kind = 0
        while True:
            first, length = self.read(2)
            length = struct.unpack('>H', self.read(2))[0] if length == 126 else length
            length = struct.unpack('>Q', self.read(8))[0] if length == 127 else length
            content = self.read(length)
            if first & 15 == 9:
                self.send(content, 10)
                continue
            kind = kind or first & 15
            message += content
            if first & 128:
                return kind, message

    def send(self, content, kind=1):
        content = content if isinstance(content, bytes) else content.encode()
        length = struct.pack('>BB', 128 | kind, 128 | len(content)) if len(content) < 126 else \
            struct.pack('>BBH', 128 | kind, 128 | 126, len(content))
        self.connection.sendall(length + b'\0\0\0\0' + content)  # under a mask of zeros

    def until(self, wanted):
        """The first message that is wanted(kind, bytes), from now on."""
        end = time.monotonic() + LONGEST
        while time.monotonic() < end:
            kind, content = self.message()
            if wanted(kind, content):
                return content
        raise AssertionError('what was waited for has not come')

    def answer(self, name):
        """What the next text says of something."""
        def has(kind, content):
            return kind == 1 and name in json.loads(content)
        return json.loads(self.until(has))[name]


def allow_many_files():
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
