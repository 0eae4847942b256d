"""Followers and simulated MCs, on a network of their own."""

import gc
import os
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest

import logicalcontrols as lc

LONG = 30.0
CHANGES = {
    "MicInput/12/Fader": -6.5,
    "MicInput/12/Name": "Lead",
    "MicInput/7/Switch/9": 1,
    "MicInput/2/Integer/1": -7,
    "MicInput/0/Rotary/0": 0.25,
}
FOLLOWER_USES = {
    "update": lambda f: f.update(),
    "wait_whole": lambda f: f.wait_whole(1),
    "wait_for": lambda f: f.wait_for("MicInput/12/Fader", 0, 1),
    "set": lambda f: f.set("MicInput/12/Fader", 0, 1),
    "set_all": lambda f: f.set_all({}, 1),
    "types_received": lambda f: f.types_received,
    "states": lambda f: f.states(),
    "statistics": lambda f: f.statistics(),
    "senders": lambda f: f.senders(),
}
MC_USES = {
    "get": lambda mc: mc.get("MicInput/12/Fader"),
    "set": lambda mc: mc.set("MicInput/12/Fader", 0),
    "image": lambda mc: mc.image(),
    "statistics": lambda mc: mc.statistics(),
}


def threads_now():
    return len(os.listdir("/proc/self/task"))


class Together(unittest.TestCase):
    def test_a_client_gets_the_whole_image(self):
        with lc.Follower() as client:
            self.assertEqual((client.types_received, client.sender, client.update()), ((), "", False))
            self.assertEqual(set(client.states().values()), {"waiting"})
            with lc.SimulatedMC(moving_faders=0) as mc:
                client.wait_whole(LONG)
                self.assertEqual(client.types_received, lc.MESSAGE_TYPES)
                self.assertEqual(client.image.differences(mc.image()), [])
                self.assertEqual(client.image.get("MicInput/12/Name"), "Mic13")
                self.assertEqual((client.sender, list(client.senders())), ("127.0.0.1", ["127.0.0.1"]))
                self.assertEqual(set(client.states().values()), {"complete"})
                counts = client.statistics()
                self.assertGreaterEqual(counts["updates applied"], 2)
                self.assertEqual(counts["datagrams"], client.senders()["127.0.0.1"])
                self.assertEqual(counts["datagrams dropped by the kernel"], 0)

    def test_an_update_is_told(self):
        with lc.SimulatedMC() as mc, lc.Follower() as client:
            end = time.monotonic() + LONG
            while not client.update() and time.monotonic() < end:
                time.sleep(0.002)
            self.assertTrue(client.types_received)
            mc.close()
            time.sleep(0.1)
            client.update()
            self.assertFalse(client.update())

    def test_what_the_mc_sets_comes(self):
        with lc.SimulatedMC(moving_faders=144) as mc, lc.Follower() as client:
            for address, value in CHANGES.items():
                mc.set(address, value)
                client.wait_for(address, value, LONG)
                self.assertEqual((mc.get(address), client.image.get(address)), (value, value))
            self.assertLess(mc.image().get("MicInput/13/Fader"), 0.1)
            self.assertEqual(mc.get("MicInput/12/Fader"), -6.5)  # though all faders move

    def test_meters_come(self):
        with lc.SimulatedMC(moving_faders=12) as mc, lc.Follower() as client:
            for value in (200, 0):
                mc.set("MicInput/12/Meter/0", value)
                client.wait_for("MicInput/12/Meter/0", value, LONG)
                self.assertEqual(mc.get("MicInput/12/Meter/0"), value)

    def test_what_a_client_sets_comes_back(self):
        with lc.SimulatedMC() as mc, lc.Follower() as client:
            for address, value in CHANGES.items():
                client.set(address, value, LONG)
                self.assertEqual((mc.get(address), client.image.get(address)), (value, value))
            self.assertEqual(mc.statistics()["changes refused"], 0)

    def test_many_changes_go_together(self):
        with lc.SimulatedMC() as mc, lc.Follower() as client:
            addresses = lc.addresses("MicInput/*/Rotary/*")
            client.set_all({address: 0.125 for address in addresses}, LONG)
            image = mc.image()
            self.assertEqual({image.get(address) for address in addresses}, {0.125})
            applied = mc.statistics()["changes applied"]
            self.assertGreaterEqual(applied, len(addresses) - 1)
            client.set_all({address: 0.125 for address in addresses}, LONG)
            client.set_all({}, LONG)
            client.set_all({("MicInput", 1, "Fader", 0): -1, ("MicInput", 2, "Fader"): -2}, LONG)
            self.assertLessEqual(mc.statistics()["changes applied"], applied + 4)
            self.assertEqual((mc.get("MicInput/1/Fader"), mc.get("MicInput/2/Fader")), (-1, -2))

    def test_on_another_group_port_and_interface(self):
        link = {"group": "239.1.2.3", "port": 7061, "interface": "lo"}
        with lc.SimulatedMC(**link), lc.Follower(**link) as client, lc.Follower() as deaf:
            client.wait_whole(LONG)
            deaf.update()
            self.assertEqual(deaf.statistics()["datagrams"], 0)

    def test_several_clients(self):
        with lc.SimulatedMC() as mc, lc.Follower() as a, lc.Follower() as b:
            a.set("MicInput/12/Fader", -6.5, LONG)
            b.wait_for("MicInput/12/Fader", -6.5, LONG)
            self.assertEqual(mc.get("MicInput/12/Fader"), -6.5)


class BadNetworks(unittest.TestCase):
    def test_what_they_do_is_counted_and_mended(self):
        for fault, count in {"loss": "lost", "duplicate": "duplicated", "corrupt": "corrupted", "truncate": "cut short"}.items():
            network = {fault: 10}
            with self.subTest(fault), lc.SimulatedMC(moving_faders=0, seed=7, **network) as mc, lc.Follower() as client:
                client.set("MicInput/12/Name", "Lead", LONG)
                client.wait_whole(LONG)
                end = time.monotonic() + LONG
                while mc.statistics()[count] < 3 and time.monotonic() < end:
                    client.update()
                    time.sleep(0.002)
                counts = mc.statistics()
                self.assertGreaterEqual(counts[count], 3)
                others = {"lost", "duplicated", "corrupted", "cut short", "held back"} - {count}
                self.assertEqual([counts[other] for other in others], [0] * 4)

    def test_hold_datagrams_back(self):
        with lc.SimulatedMC(reorder=5, seed=3) as mc, lc.Follower() as client:
            client.wait_whole(LONG)
            self.assertGreater(mc.statistics()["held back"], 0)

    def test_delay(self):
        with lc.Follower() as client, lc.SimulatedMC(delay=400):
            with self.assertRaises(TimeoutError):
                client.wait_whole(0.2)
            client.wait_whole(LONG)

    def test_that_lose_all(self):
        with lc.SimulatedMC(loss=100) as mc, lc.Follower() as client:
            with self.assertRaises(TimeoutError):
                client.wait_whole(0.3)
            counts = mc.statistics()
            self.assertGreater(counts["lost"], 0)
            self.assertEqual((counts["datagrams sent"], client.statistics()["datagrams"]), (0, 0))

    def test_the_seed_is_the_images_too(self):
        images = []
        for seed in (3, 3, 4):
            with lc.SimulatedMC(moving_faders=0, seed=seed) as mc:
                images.append(mc.image())
        self.assertEqual(images[0].differences(images[1]), [])
        self.assertGreater(len(images[0].differences(images[2])), 1000)


class WhatFails(unittest.TestCase):
    def test_waits_end(self):
        with lc.Follower() as client:
            for use in (lambda: client.wait_whole(0.2), lambda: client.set("MicInput/12/Fader", 0, 0.2),
                        lambda: client.wait_for("MicInput/12/Fader", 0, 0.2)):
                start = time.monotonic()
                with self.assertRaises(TimeoutError) as raised:
                    use()
                self.assertEqual(str(raised.exception), "no image from an MC on 225.0.0.46:7060 within 0.2 seconds")
                self.assertTrue(0.2 <= time.monotonic() - start < 5)
            with lc.SimulatedMC(moving_faders=0):
                client.wait_whole(LONG)
                with self.assertRaises(TimeoutError) as raised:
                    client.wait_for("MicInput/12/Fader", -6.5, 0.2)
                self.assertEqual(str(raised.exception), "MicInput/12/Fader/0 is -60 after 0.2 seconds, not -6.5")
            with self.assertRaises(TimeoutError) as raised:  # the MC is gone
                client.set_all({"MicInput/12/Fader": -6.5, "MicInput/13/Fader": -60, "MicInput/14/Fader": -1}, 0.2)
            self.assertEqual(str(raised.exception),
                             "2 of 3 changes never came back from the MC; the first: MicInput/12/Fader/0")

    def test_meters_are_the_mcs(self):
        with lc.Follower() as client:
            with self.assertRaisesRegex(ValueError, "meters are set by the MC alone"):
                client.set("MicInput/12/Meter/0", 1)

    def test_wrong_addresses_and_values(self):
        with lc.SimulatedMC() as mc, lc.Follower() as client:
            for use in (mc.set, client.set, client.wait_for, lambda address, value: client.set_all({address: value})):
                for address, value, error in (
                    ("MicInput/144/Fader", 0, ValueError),
                    ("MicInput/12/Fader", "x", TypeError),
                    ("MicInput/12/Fader", 1e39, ValueError),
                    ("MicInput/12/Name", "x" * 13, ValueError),
                    (12, 0, TypeError),
                ):
                    with self.subTest(use=use, address=address), self.assertRaises(error):
                        use(address, value)
            self.assertRaises(ValueError, mc.get, "MicInput/144/Fader")
            self.assertRaises(TypeError, mc.get, 12)
            self.assertRaises(TypeError, client.set_all, 12)
            for timeout in (-1, float("nan"), float("inf"), 86401):
                self.assertRaises(ValueError, client.wait_whole, timeout)
            self.assertRaises(TypeError, client.wait_whole, "1")
            self.assertEqual(mc.statistics()["changes applied"], 0)

    def test_wrong_options(self):
        wrong = {
            "group": ["10.0.0.1", "", "225.0.0.046", "x"],
            "port": [0, 65536, -1],
            "interface": ["nosuch0", "10.99.99.99"],
        }
        wrong_mc = {
            "surface_rate": [0, 1001, float("nan")],
            "rotary_rate": [0.01, -1],
            "report_period": [-1, 86401],
            "moving_faders": [-1, 145],
            "seed": [-1, 1 << 32],
            "loss": [-0.1, 100.1],
            "duplicate": [101],
            "corrupt": [101],
            "truncate": [101],
            "reorder": [-1, 1001],
            "delay": [-1, 1000.5],
        }
        for make, table in ((lc.Follower, wrong), (lc.SimulatedMC, wrong | wrong_mc)):
            for name, values in table.items():
                for value in values:
                    with self.subTest(make=make, name=name, value=value), self.assertRaises(ValueError):
                        make(**{name: value})
                with self.subTest(make=make, name=name), self.assertRaises(TypeError):
                    make(**{name: None})
            self.assertRaises(TypeError, make, "225.0.0.46")
            self.assertRaises(TypeError, make, nothing=1)

    def test_a_port_that_is_taken(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("", 7099))
            with self.assertRaisesRegex(OSError, "port 7099 can't be had"):
                lc.Follower(port=7099)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("", 7050))
            with self.assertRaisesRegex(OSError, "the network can't be had: 225.0.0.45:7050"):
                lc.SimulatedMC()


class Ends(unittest.TestCase):
    def test_use_after_close(self):
        client = lc.Follower()
        image = client.image
        self.assertFalse(client.closed)
        client.close()
        client.close()
        self.assertTrue(client.closed)
        for name, use in FOLLOWER_USES.items():
            with self.subTest(name), self.assertRaisesRegex(ValueError, "this follower is closed"):
                use(client)
        client.image.set("MicInput/12/Fader", 1)
        del client
        gc.collect()
        self.assertEqual(image.get("MicInput/12/Fader"), 1)
        mc = lc.SimulatedMC()
        self.assertFalse(mc.closed)
        mc.close()
        mc.close()
        self.assertTrue(mc.closed)
        for name, use_mc in MC_USES.items():
            with self.subTest(name), self.assertRaisesRegex(ValueError, "this MC is closed"):
                use_mc(mc)

    def test_with_closes_whatever_happens(self):
        with self.assertRaises(ZeroDivisionError):
            with lc.SimulatedMC() as mc, lc.Follower() as client:
                1 / 0
        self.assertTrue(mc.closed and client.closed)

    def test_the_collector_ends_threads(self):
        before = threads_now()
        client, mc = lc.Follower(), lc.SimulatedMC()
        self.assertGreater(threads_now(), before)
        block = client.image.block("Fader")
        del client, mc
        gc.collect()
        self.assertEqual(threads_now(), before)
        block[0] = 1

    def test_python_ends_while_all_is_open(self):
        script = "from logicalcontrols import *; mc = SimulatedMC(); f = Follower(); f.wait_whole(30); b = f.image.block('Fader')"
        ended = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=60)
        self.assertEqual((ended.returncode, ended.stderr), (0, ""))


class Threads(unittest.TestCase):
    def test_python_goes_on_while_one_waits(self):
        counted = 0
        stop = threading.Event()

        def count():
            nonlocal counted
            while not stop.wait(0.001):
                counted += 1

        with lc.Follower() as client:
            counter = threading.Thread(target=count)
            counter.start()
            self.assertRaises(TimeoutError, client.wait_whole, 0.5)
            stop.set()
            counter.join()
        self.assertGreater(counted, 20)

    def test_a_wait_is_interrupted(self):
        with lc.Follower() as client:
            start = time.monotonic()
            threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGINT)).start()
            self.assertRaises(KeyboardInterrupt, client.wait_whole, LONG)
            self.assertLess(time.monotonic() - start, 5)

    def test_what_is_waited_for_is_closed(self):
        for wait in (lambda client: client.wait_whole(LONG), lambda client: client.set("MicInput/12/Fader", 1, LONG)):
            client = lc.Follower()
            threading.Timer(0.2, client.close).start()
            with self.assertRaisesRegex(ValueError, "closed"):
                wait(client)
        with lc.SimulatedMC() as mc, lc.Follower() as client:
            client.wait_whole(LONG)
            mc.close()
            threading.Timer(0.2, client.close).start()
            with self.assertRaisesRegex(ValueError, "closed"):
                client.set("MicInput/12/Fader", 1, LONG)

    def test_several_ask_an_mc_that_is_closed_meanwhile(self):
        with lc.SimulatedMC() as mc:
            asked = []
            refused = []

            def ask(path):
                try:
                    for value in range(10**6):
                        mc.set(f"MicInput/{path}/Fader", value)
                        assert mc.get(f"MicInput/{path}/Fader") == value
                        asked.append(value)
                except ValueError as error:
                    refused.append(str(error))

            threads = [threading.Thread(target=ask, args=(path,)) for path in range(4)]
            for thread in threads:
                thread.start()
            time.sleep(0.5)
            mc.close()
            for thread in threads:
                thread.join()
        self.assertEqual(refused, ["this MC is closed"] * 4)
        self.assertGreater(len(asked), 20)

    def test_two_clients_in_two_threads(self):
        with lc.SimulatedMC() as mc:
            failed = []

            def work(path):
                try:
                    with lc.Follower() as client:
                        for value in range(5):
                            client.set(f"MicInput/{path}/Fader", value, LONG)
                except BaseException as error:
                    failed.append(error)

            threads = [threading.Thread(target=work, args=(path,)) for path in range(2)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(failed, [])
            self.assertEqual((mc.get("MicInput/0/Fader"), mc.get("MicInput/1/Fader")), (4, 4))


if __name__ == "__main__":
    unittest.main()
