"""What browsers cost the live page's server: its time with and without them.    load.py SECONDS CONSOLECTL...

Ten that take every frame as it comes, beside an MC with 24 moving faders, and beside 8,000 changes a second. Exit status 1 when they
cost more than a fifth of a core."""
import sys
import threading
import time

from live import Live, Program, start_web

BROWSERS = 10
MOST = 0.2
seconds = float(sys.argv[1])
consolectl = sys.argv[2:]


class Reader(threading.Thread):
    def __init__(self, port):
        super().__init__(daemon=True)
        self.live = Live(port)
        self.frames = self.bytes = 0
        self.start()

    def run(self):
        try:
            while True:
                kind, content = self.live.message()
                self.frames += kind == 2
                self.bytes += len(content)
        except (OSError, ConnectionError):
            pass


def measure(web, readers):
    began, cpu = time.monotonic(), web.cpu_seconds()
    frames, size = sum(one.frames for one in readers), sum(one.bytes for one in readers)
    time.sleep(seconds)
    took = time.monotonic() - began
    each = took * max(1, len(readers))
    return (web.cpu_seconds() - cpu) / took, (sum(one.frames for one in readers) - frames) / each, \
        (sum(one.bytes for one in readers) - size) / each / 1000


def main():
    mc = Program(consolectl, 'mc', '--seconds', '600')
    webs = {}
    webs['alone'] = start_web(consolectl)
    webs['browsers'] = start_web(consolectl)
    readers = [Reader(webs['browsers'].port) for _ in range(BROWSERS)]
    failed = False
    time.sleep(2)
    for what in ('24 faders move', '8,000 changes a second'):
        send = None
        if what.startswith('8'):
            send = Program(consolectl, 'send', '*/*/Rotary/*', '--from', '-1', '--to', '1', '--rate', '8000', '--count', str(int(8000 * (3 * seconds + 10))))
            time.sleep(2)
        alone, _, _ = measure(webs['alone'], [])
        served, frames, kilobytes = measure(webs['browsers'], readers)
        assert mc.process.poll() is None, f'the MC has ended: {mc.said()[-300:]}'
        cost = served - alone
        print(f'{what}: {100 * served:.1f} % of a core with {BROWSERS} browsers, {100 * alone:.1f} % without: they cost {100 * cost:.1f} %;'
              f' each gets {frames:.0f} frames and {kilobytes:.0f} kB a second', flush=True)
        failed |= cost > MOST or frames < 25
        if send:
            send.process.kill()
            send.process.wait()
    for web in webs.values():
        web.stop()
    mc.stop()
    print('FAILED: too much' if failed else 'passed')
    return failed


sys.exit(main())
