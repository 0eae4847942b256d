"""What the live page's server does with what comes.    server.py CONSOLECTL..."""
import json
import os
import random
import socket
import struct
import subprocess
import sys
import threading
import time

from live import HOST, Live, Program, allow_many_files, ask, connect, request, start_web, upgrade

ALL = 241339
CHANGED, IMAGE = 2, 1
FADER_1 = 'MicInput/1/Fader/0'
HANDED_OVER = 3
consolectl = sys.argv[1:]
sanitized = any(name in open(consolectl[-1], 'rb').read() for name in (b'__asan_init', b'__tsan_init'))  # which is slow, and keeps what was freed
LEAST = 1 if sanitized else 10  # frames within a second
os.dup2(os.open(os.devnull, os.O_RDONLY), HANDED_OVER)  # so that nothing else is


def read(address):
    lines = subprocess.run([*consolectl, 'get', address, '--format', 'json', '--timeout', '20'], capture_output=True, text=True, check=True)
    return json.loads(lines.stdout.splitlines()[0])['value']


def page_and_refusals(port):
    status, head, body = ask(port, request(port))
    assert status == 200 and b'<!doctype html>' in body, head
    for header in ("Content-Security-Policy: default-src 'self'", 'X-Content-Type-Options: nosniff', 'Cache-Control: no-store'):
        assert header in head, head
    assert b'<script>' not in body and b'style=' not in body and b'//' not in body.replace(b'<!doctype', b''), 'something inline, or from elsewhere'
    status, _, body = ask(port, request(port, '/model.json'))
    model = json.loads(body)
    assert sum(group['paths'] * sum(group['params']) for group in model['groups']) == ALL
    assert ask(port, request(port, method='HEAD'))[0] == 200
    for host in (f'localhost:{port}', 'localhost', HOST, f'{HOST}:{port + 1}'):  # another port is one that somebody forwards
        assert ask(port, request(port, Host=host))[0] == 200, host
        assert ask(port, upgrade(port, Host=host, Origin=f'http://{host}'))[0] == 101, host
    wanted = [
        (404, request(port, '/../main.cpp')), (404, request(port, '/page.css/..')), (404, request(port, '//etc/passwd')),
        (404, request(port, '/%2e%2e/%2e%2e/etc/passwd')), (404, request(port, '/index.html?x')), (404, request(port, '/live')),
        (405, request(port, method='POST')), (405, request(port, method='DELETE')), (405, request(port, '/model.json', method='PUT')),
        (405, request(port, method='POST', Content_Length='5') + b'hello'), (200, request(port, Content_Length='5') + b'hello'),
        (421, request(port, Host='evil.example')), (421, request(port, Host=f'evil.example:{port}')), (421, request(port, Host=None)),
        (421, request(port, Host=f'{HOST}.evil.example:{port}')), (421, request(port, Host='127.0.0.2')), (421, request(port, Host='[::1]')),
        (421, request(port).replace(b'\r\n\r\n', b'\r\nHost: evil.example\r\n\r\n')),
        (403, upgrade(port).replace(b'\r\n\r\n', b'\r\nOrigin: http://evil.example\r\n\r\n')),
        (421, request(port, Host='')), (421, request(port, Host=f'localhost.:{port}')), (421, request(port, Host=f'{HOST}@evil.example')),
        (403, upgrade(port, Origin='http://evil.example')), (403, upgrade(port, Origin=None)), (403, upgrade(port, Origin='null')),
        (403, upgrade(port, Origin=f'https://{HOST}:{port}')), (403, upgrade(port, Origin=f'http://{HOST}:{port + 1}')),
        (421, upgrade(port, Host=f'evil.example:{port}', Origin=f'http://evil.example:{port}')),
    ]
    for status, bytes_ in wanted:
        got, head, _ = ask(port, bytes_)
        assert got == status, f'{got} instead of {status} to {bytes_!r}: {head}'


def values(port):
    """Bytes as they are documented: the whole image first, then changes, each number big-endian."""
    live = Live(port)
    image = live.until(lambda kind, content: kind == 2)
    assert image[0] == IMAGE and len(image) > 400000, f'{image[0]}, {len(image)} bytes'
    live.send(json.dumps({'set': [[FADER_1, '-12.5'], ['MicInput/1/String/1', 'Lead']]}))
    model = json.loads(ask(port, request(port, '/model.json'))[2])
    group = next(n for n, one in enumerate(model['groups']) if one['name'] == 'MicInput')
    sizes = [[one['paths'] * one['params'][kind] for one in model['groups']] for kind in range(7)]
    number = lambda kind, param: sum(map(sum, sizes[:kind])) + sum(sizes[kind][:group]) + model['groups'][group]['params'][kind] + param
    wanted = {number(4, 0): struct.pack('>f', -12.5), number(0, 1): b'Lead'.ljust(13, b'\0')}
    seen = {}
    while any(seen.get(one) != value for one, value in wanted.items()):
        changes = live.until(lambda kind, content: kind == 2 and content[0] == CHANGED)
        at = 5
        for _ in range(struct.unpack('>I', changes[1:5])[0]):
            one = struct.unpack('>I', changes[at:at + 4])[0]
            size = 13 if one < sum(sizes[0]) else 4
            seen[one] = changes[at + 4:at + 4 + size]
            at += 4 + size
        assert at == len(changes), 'more or less than was told'
    assert read(FADER_1) == -12.5
    for refused, why in (([[FADER_1, 'loud']], 'no value of type Fader'), ([['Nobody/1/Fader/0', '1']], 'is no parameter group'),
                         ([['MicInput/*/Fader/0', '1']], 'more than one'), ([['MicInput/1/Meter/0', '1']], 'the MC alone'),
                         ([[FADER_1, '-1']] * 65, 'too many')):
        live.send(json.dumps({'set': refused}))
        said = live.answer('refused')
        assert why in said, said
    assert read(FADER_1) == -12.5
    # A page that is hidden gets no values, and all that it lacks when it is seen again.
    live.send('{"visible": false, "token": ""}')
    live.answer('mayChange')  # so the first has been read, too
    subprocess.run([*consolectl, 'set', FADER_1, '-13', '--timeout', '20'], check=True, capture_output=True)
    end = time.monotonic() + 1
    while time.monotonic() < end:
        kind, content = live.message()
        assert kind == 1, 'values for a hidden page'
    live.send('{"visible": true}')
    assert struct.pack('>If', number(4, 0), -13) in live.until(lambda kind, content: kind == 2)


def nonsense(port):
    """Each of these ends its connection, or is answered, and nothing else happens."""
    for text in ('', 'x', '[]', '7', '{', '{"set": 1}', '{"set": [1]}', '{"set": [[]]}', '{"set": [["MicInput/1/Fader/0"]]}', '{"set": {"a": 1}}',
                 '{"set": [[1, 2]]}', '{"visible": 3}', '{"token": 1}', '{"show": 1}', '{"set": [["MicInput/1/Fader/0", -1]]}', '[' * 3000, 'x' * 4097):
        live = Live(port)
        live.send(text)
        try:
            live.until(lambda kind, content: kind == 8)
        except ConnectionError:
            pass
        except AssertionError:
            raise AssertionError(f'{text[:50]} does not end the connection') from None
    frames = [b'\xff' * 100, b'\x81\x05hello', b'\x8f\x80\0\0\0\0', b'\x89\xfe\x10\0' + b'x' * 5000, b'\x81\xff' + b'\xff' * 8 + b'x' * 100,
              b'\x80\x80\0\0\0\0', b'\x82\x83\0\0\0\0abc', b'\x81\x82\0\0\0\0\xff\xfe', b'\x88\x81\0\0\0\0x']
    seeded = random.Random(1)
    frames += [bytes(seeded.randrange(256) for _ in range(seeded.randrange(1, 400))) for _ in range(100)]
    for frame in frames:
        live = Live(port)
        live.connection.sendall(frame)
        live.connection.close()
    heads = [b'\0' * 2000, b'GET / HTTP/1.1\r\nHost: x\r\n' + b'A: ' + b'b' * 20000 + b'\r\n\r\n', b'GET ' + b'/' * 9000 + b' HTTP/1.1\r\n\r\n',
             request(port, Content_Length='99999999999') + b'x' * 1000, request(port, Transfer_Encoding='chunked') + b'ffffffff\r\nx',
             request(port, Content_Length='-1'), b'GET / HTTP/9.9\r\n\r\n', b'\x16\x03\x01\x02\0\x01\0\x01\xfc\x03\x03']
    heads += [bytes(seeded.randrange(256) for _ in range(seeded.randrange(1, 2000))) + b'\r\n\r\n' for _ in range(100)]
    for head in heads:
        with connect(port) as connection:
            try:
                connection.sendall(head)
                connection.shutdown(socket.SHUT_WR)
                while connection.recv(65536):
                    pass
            except OSError:  # it has hung up
                pass


def goes_on(live):
    """Values at the pace they had: frames within a second."""
    end = time.monotonic() + 1
    count = 0
    while time.monotonic() < end:
        count += live.message()[0] == 2
    return count


def many(port):
    """Thousands of connections: silent ones, half a request, one byte after another, a flood of requests in one go."""
    live = Live(port)
    live.until(lambda kind, content: kind == 2)
    stop = threading.Event()

    def flood():
        while not stop.is_set():
            try:
                with connect(port) as connection:
                    connection.sendall(request(port, '/model.json') * 200)
                    connection.recv(1 << 20)
            except OSError:
                pass
    threads = [threading.Thread(target=flood) for _ in range(2)]
    for thread in threads:
        thread.start()
    held = []
    for n in range(2000):
        connection = socket.socket()
        connection.setblocking(False)
        connection.connect_ex((HOST, port))
        held.append(connection)
        if n % 100 == 0:
            time.sleep(0.02)
            for one in held[::7]:
                try:
                    one.send(b'GET / HT')
                except OSError:
                    pass
    count = goes_on(live)
    stop.set()
    for thread in threads:
        thread.join()
    for connection in held:
        connection.close()
    assert count >= LEAST, f'{count} frames within a second'
    time.sleep(0.3)
    assert ask(port, request(port))[0] == 200, 'it answers no more'


def crowd(port):
    """Connections that say nothing keep nobody out; pages do, in the end, and are told."""
    silent = [connect(port) for _ in range(200)]
    began = time.monotonic()
    assert ask(port, request(port))[0] == 200
    live = Live(port)
    live.until(lambda kind, content: kind == 2)
    assert time.monotonic() - began < 5, 'it has waited for those who say nothing'
    pages, statuses = [], []
    for _ in range(5):
        some = [connect(port) for _ in range(20)]
        for connection in some:
            connection.sendall(upgrade(port))
        statuses += [int(connection.recv(12).split()[1]) for connection in some]
        pages += some
    let_in = statuses.count(101)
    assert 50 < let_in < 64 and statuses.count(503) == 100 - let_in, f'{let_in} pages were let in: {statuses}'
    assert ask(port, request(port))[0] == 200
    for connection in [live.connection, *pages, *silent]:
        connection.close()
    time.sleep(0.3)
    Live(port).connection.close()


def few_descriptors():
    """Where there is none for a connection it waits, and goes on when there is one."""
    web = Program(['sh', '-c', 'ulimit -n 30 && exec "$@"', 'sh'], *consolectl, 'web', '--web-port', '0')
    port = int(web.until(r'the page: http://[0-9.]+:(\d+)/').group(1))
    held = [connect(port) for _ in range(40)]
    time.sleep(0.5)
    cpu = web.cpu_seconds()
    time.sleep(1)
    assert web.cpu_seconds() - cpu < 0.25, f'{web.cpu_seconds() - cpu} s of a second'
    for one in held:
        one.close()
    time.sleep(0.5)
    assert ask(port, request(port))[0] == 200
    web.stop()


def stalled(web, seconds):
    """Browsers that never read: neither memory nor time, the others go on, and in the end they are dropped."""
    lives = [Live(web.port, receive_buffer=4096) for _ in range(10)]
    other = Live(web.port)
    time.sleep(2)  # what the kernel takes
    memory, began, cpu = web.kilobytes(), time.monotonic(), web.cpu_seconds()
    end = began + seconds
    browsers = 11
    while time.monotonic() < end and browsers > 1:
        assert goes_on(other) >= LEAST
        browsers = other.answer('health')['browsers']
    share = (web.cpu_seconds() - cpu) / (time.monotonic() - began)
    grown = web.kilobytes() - memory
    print(f'ten stalled browsers: {grown} kB more, {100 * share:.1f} % of a core with the follower, {browsers - 1} of them left')
    assert grown < 4000 or sanitized, f'{grown} kB'
    assert browsers == 1, f'{browsers - 1} are still there'
    for live in lives:
        live.connection.close()


def handed_over():
    """A socket that listens already, as the system hands it to a service; one whose address isn't this machine's alone needs a token."""
    for address, token in ((HOST, False), ('0.0.0.0', True)):
        with socket.socket() as listening:
            listening.bind((address, 0))
            listening.listen()
            port = listening.getsockname()[1]
            web = Program(['sh', '-c', 'LISTEN_FDS=1 LISTEN_PID=$$ exec "$@"', 'sh'], *consolectl, 'web', pass_fds=[HANDED_OVER],
                          preexec_fn=lambda: os.dup2(listening.fileno(), HANDED_OVER))
        page = web.until(r'the page: (\S+)').group(1)
        assert page.startswith(f'http://{HOST}:{port}/') and ('#' in page) == token, page
        assert ask(port, request(port))[0] == 200
        web.stop()
    with socket.socket() as bound, socket.socket(type=socket.SOCK_DGRAM) as datagrams, socket.socket(socket.AF_UNIX) as local:
        bound.bind((HOST, 0))
        local.bind('')
        local.listen()
        for wrong, count, said in ((bound, 1, 'no TCP socket that listens'), (datagrams, 1, 'no TCP socket that listens'),
                                   (local, 1, 'no TCP socket that listens'), (bound, 2, 'one socket is taken'), (None, 1, 'Bad file descriptor')):
            web = Program(['sh', '-c', f'LISTEN_FDS={count} LISTEN_PID=$$ exec "$@"' + ('' if wrong else ' 3>&-'), 'sh'], *consolectl, 'web',
                          pass_fds=[HANDED_OVER], preexec_fn=lambda: wrong and os.dup2(wrong.fileno(), HANDED_OVER))
            assert web.process.wait(10) == 1 and said in web.said(), web.said()


def main():
    allow_many_files()
    handed_over()
    few_descriptors()
    mc = Program(consolectl, 'mc', '--seconds', '200')
    web = start_web(consolectl)
    live = Live(web.port)
    live.until(lambda kind, content: kind == 2)
    page_and_refusals(web.port)
    values(web.port)
    memory = web.kilobytes()
    nonsense(web.port)
    many(web.port)
    crowd(web.port)
    print(f'{web.kilobytes() - memory} kB more after all that is nonsense')
    stalled(web, 60)
    assert ask(web.port, request(web.port))[0] == 200
    assert web.kilobytes() - memory < 20000 or sanitized, f'{web.kilobytes() - memory} kB more'
    print(web.stop().splitlines()[-1])
    mc.stop()
    print('passed')


main()
