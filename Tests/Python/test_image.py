"""Images: values, addresses, scopes, blocks, files."""

import copy
import gc
import math
import os
import pathlib
import resource
import struct
import subprocess
import tempfile
import threading
import unittest

import logicalcontrols as lc

# Of each message type: an address, a value, and others that it doesn't take by what they raise.
NOT_NUMBERS = {TypeError: ["1", None, b"1", [1], 1j], ValueError: []}
NOT_WHOLE = {TypeError: ["1", None, 1.0, 1.5, math.nan], ValueError: [1 << 31, -(1 << 31) - 1, 10**5000]}
SAMPLES = {
    "String": ("MicInput/12/String/1", "Lead Vocal",
               {TypeError: [1, None, b"Lead"], ValueError: ["x" * 13, "\u00e4" * 7, "a\0b", "\ud800"]}),
    "Rotary": ("MicInput/143/Rotary/99", 0.5,
               NOT_NUMBERS | {ValueError: [math.nan, math.inf, -math.inf, 1e39], OverflowError: [10**400]}),
    "Switch": ("MicInput/7/Switch/9", 1, NOT_WHOLE | {ValueError: [2, -1, 1 << 40]}),
    "Integer": ("MicInput/2/Integer/1", -77, NOT_WHOLE),
    "Fader": ("MicInput/12/Fader/0", -6.5, NOT_NUMBERS | {ValueError: [math.nan, math.inf, 3.5e38]}),
    "Other": (lc.addresses("*/*/Other/*")[5], 2**31 - 1, NOT_WHOLE),
    "Meter": ("MicInput/3/Meter/0", 255, NOT_WHOLE | {ValueError: [256, -1, 1 << 80]}),
}
PATTERNS = ["MicInput/*/Fader", "MicInput/1-2/Fader/0"]
WRONG_ADDRESSES = [
    "", "MicInput", "MicInput/12", "MicInput/12/Fader/0/0", "MicInput/144/Fader/0", "MicInput/-1/Fader/0", "MicInput/x/Fader/0",
    "MicInput/12/Fader/2", "MicInput/12/Fadr/0", "Micinput/12/Fader/0", "MicInput/12/Level", "Globals/0/Fader",
    "MicInput/99999999999999999999/Fader/0", " MicInput/12/Fader/0", "MicInput/012x/Fader/0", "MicInput/12/Fader\n/0",
]
WRONG_COORDINATES = [
    (), ("MicInput", 12), ("MicInput", 12.0, "Fader", 0), ("MicInput/12", "Fader", 0, 0), ("MicInput", True, "Fader", 0),
]


class Values(unittest.TestCase):
    def test_are_what_was_set(self):
        image = lc.Image()
        self.assertEqual(tuple(SAMPLES), lc.MESSAGE_TYPES)
        for address, value, _ in SAMPLES.values():
            self.assertFalse(image.get(address))
            image.set(address, value)
        for address, value, _ in SAMPLES.values():
            self.assertEqual(image.get(address), value)
            self.assertIs(type(image.get(address)), type(value))
        self.assertEqual(len(image.differences(lc.Image())), len(SAMPLES))

    def test_that_do_not_fit_are_refused_and_change_nothing(self):
        image = lc.Image()
        for address, _, refused in SAMPLES.values():
            for error, values in refused.items():
                for value in values:
                    with self.subTest(address=address, value=str(type(value))), self.assertRaises(error):
                        image.set(address, value)
        self.assertEqual(image.differences(lc.Image()), [])

    def test_say_what_is_taken(self):
        for value, text in (
            (7.0, "MicInput/2/Integer/1 takes a whole number, not float"),
            (1 << 31, 'value: "2147483648" is no value of type Integer: it takes a whole number'),
        ):
            with self.assertRaises((TypeError, ValueError)) as raised:
                lc.Image().set("MicInput/2/Integer/1", value)
            self.assertEqual(str(raised.exception), text)

    def test_numbers_of_other_kinds(self):
        class Half:
            def __float__(self):
                return 0.5

        class Four:
            def __index__(self):
                return 4

        image = lc.Image()
        image.set("MicInput/12/Fader", Half())
        image.set("MicInput/2/Integer/1", Four())
        image.set("MicInput/7/Switch/9", True)
        image.set("MicInput/13/Fader", -7)
        addresses = ("MicInput/12/Fader", "MicInput/2/Integer/1", "MicInput/7/Switch/9", "MicInput/13/Fader")
        self.assertEqual([image.get(address) for address in addresses], [0.5, 4, 1, -7])
        image.set("MicInput/12/Fader", 0.1)
        self.assertEqual(image.get("MicInput/12/Fader"), struct.unpack("f", struct.pack("f", 0.1))[0])
        image.set("MicInput/12/Fader", 1e-60)
        self.assertEqual(image.get("MicInput/12/Fader"), 0)

    def test_an_error_of_a_number_is_passed_on(self):
        class Broken:
            def __float__(self):
                raise ZeroDivisionError

        with self.assertRaises(ZeroDivisionError):
            lc.Image().set("MicInput/12/Fader", Broken())

    def test_any_bytes_of_a_string_come_back(self):
        image, other = lc.Image(), lc.Image()
        block, number = image.block("String"), lc.number_of("MicInput/12/Name")
        for place, byte in enumerate(b"a\xff\xc3\xa4\x80"):
            block[number, place] = byte
        text = image.get("MicInput/12/Name")
        self.assertEqual(text, "a\udcff\u00e4\udc80")
        other.set("MicInput/12/Name", text)
        self.assertEqual(image.differences(other), [])


class Addresses(unittest.TestCase):
    def test_by_name_and_by_coordinates(self):
        image = lc.Image()
        image.set("MicInput/12/Fader", 1.5)
        for address in ("MicInput/12/Fader/0", ("MicInput", 12, "Fader", 0), ("MicInput", 12, "Fader")):
            self.assertEqual(image.get(address), 1.5)

    def test_wrong_ones_are_refused_in_the_words_of_consolectl(self):
        with tempfile.TemporaryDirectory() as folder:
            lc.Image().save(folder + "/image")
            for address in WRONG_ADDRESSES:
                said = subprocess.run([os.environ["CONSOLECTL"], "get", "--from", folder + "/image", "--", address],
                                      capture_output=True, text=True)
                with self.assertRaises(ValueError) as raised:
                    lc.Image().get(address)
                self.assertEqual(said.stderr, f"consolectl: {raised.exception} (see consolectl --help)\n")

    def test_wrong_ones_are_refused_everywhere(self):
        image = lc.Image()
        uses = {
            "get": image.get,
            "set": lambda address: image.set(address, 0),
            "get_scope": lambda address: image.get_scope(address, "store"),
            "set_scope": lambda address: image.set_scope(address, "store", True),
            "number_of": lc.number_of,
        }
        for name, use in uses.items():
            for address in WRONG_ADDRESSES + WRONG_COORDINATES + PATTERNS + ["MicInput/12/Fader\0", "\ud800"]:
                with self.subTest(use=name, address=address), self.assertRaises(ValueError):
                    use(address)
            for address in (None, 12, b"MicInput/12/Fader", ["MicInput", 12, "Fader", 0]):
                with self.subTest(use=name, address=address), self.assertRaises(TypeError):
                    use(address)
        self.assertEqual(image.differences(lc.Image()), [])

    def test_of_a_pattern(self):
        self.assertEqual(lc.addresses("MicInput/2-4/Fader"), [f"MicInput/{path}/Fader/0" for path in (2, 3, 4)])
        self.assertEqual(len(lc.addresses("*/*/*/*")), 241339)
        for wrong in ("MicInput/4-2/Fader", "*/*/Level", "Globals/*/Fader"):
            self.assertRaises(ValueError, lc.addresses, wrong)

    def test_and_numbers_are_each_others(self):
        for kind in lc.MESSAGE_TYPES:
            every = lc.addresses(f"*/*/{kind}/*")
            for number in (0, 1, len(every) // 3, len(every) - 1):
                self.assertEqual(lc.address_at(kind, number), every[number])
                self.assertEqual(lc.number_of(every[number]), number)
            for number in (-1, len(every), 1 << 40):
                self.assertRaises(ValueError, lc.address_at, kind, number)
        for wrong in ("Fadr", "*", "Fader/0", ""):
            self.assertRaises(ValueError, lc.address_at, wrong, 0)
        self.assertRaises(TypeError, lc.address_at, 4, 0)
        self.assertRaises(TypeError, lc.address_at, "Fader", 0.0)


class Scopes(unittest.TestCase):
    def test_are_apart(self):
        image = lc.Image()
        scopes = ("store", "recall", "global", "safe")
        for scope in scopes:
            for address, _, _ in SAMPLES.values():
                image.set_scope(address, scope, True)
                self.assertEqual([image.get_scope(address, other) for other in scopes], [other == scope for other in scopes])
                image.set_scope(address, scope, False)
                self.assertFalse(image.get_scope(address, scope))

    def test_a_value_clears_global_alone(self):
        image = lc.Image()
        for scope in ("global", "safe"):
            image.set_scope("MicInput/12/Fader", scope, True)
            image.set_scope("MicInput/13/Fader", scope, True)
        image.set("MicInput/12/Fader", 1)
        flags = [image.get_scope(f"MicInput/{path}/Fader", scope) for path in (12, 13) for scope in ("global", "safe")]
        self.assertEqual(flags, [False, True, True, True])

    def test_that_do_not_exist(self):
        self.assertRaises(ValueError, lc.Image().get_scope, "MicInput/12/Fader", "Store")
        self.assertRaises(ValueError, lc.Image().set_scope, "MicInput/12/Fader", "", True)
        self.assertRaises(TypeError, lc.Image().set_scope, "MicInput/12/Fader", "store", 1)
        self.assertRaises(TypeError, lc.Image().get_scope, "MicInput/12/Fader", 0)


class Blocks(unittest.TestCase):
    FORMATS = {"String": "B", "Rotary": "f", "Switch": "B", "Integer": "i", "Fader": "f", "Other": "i", "Meter": "B"}

    def test_have_every_parameter(self):
        for kind, expected in self.FORMATS.items():
            block, count = lc.Image().block(kind), len(lc.addresses(f"*/*/{kind}/*"))
            shape = {"String": (count, 13), "Switch": (count // 8 + 1,)}.get(kind, (count,))
            self.assertEqual((block.format, block.shape, block.readonly, block.c_contiguous), (expected, shape, False, True))
            self.assertFalse(any(block.tobytes()))

    def test_are_the_images_own_memory(self):
        image = lc.Image()
        for kind in self.FORMATS.keys() - {"String", "Switch"}:
            address, value, _ = SAMPLES[kind]
            block, number = image.block(kind), lc.number_of(address)
            image.set(address, value)
            self.assertEqual(block[number], value)
            block[number] = 33
            self.assertEqual(image.get(address), 33)
            self.assertEqual(block[number : number + 1].tobytes(), struct.pack("=" + self.FORMATS[kind], 33))
        self.assertEqual(len(image.differences(lc.Image())), 5)

    def test_of_strings_are_rows(self):
        image = lc.Image()
        block, number = image.block("String"), lc.number_of("MicInput/12/Name")
        image.set("MicInput/12/Name", "Lead")
        self.assertEqual(bytes(block[number, place] for place in range(13)), b"Lead" + bytes(9))
        block[number, 0] = ord("R")
        self.assertEqual(image.get("MicInput/12/Name"), "Read")

    def test_of_switches_are_bits(self):
        image = lc.Image()
        block, number = image.block("Switch"), lc.number_of("MicInput/7/Switch/9")
        image.set("MicInput/7/Switch/9", 1)
        self.assertEqual(block[number // 8], 1 << number % 8)
        block[number // 8] = 0xFF ^ 1 << number % 8
        self.assertEqual(image.get("MicInput/7/Switch/9"), 0)
        self.assertEqual(image.get(lc.address_at("Switch", number ^ 1)), 1)

    def test_outlive_the_name_of_their_image(self):
        image = lc.Image()
        image.set("MicInput/12/Fader", -6.5)
        block = image.block("Fader")
        del image
        gc.collect()
        others = [lc.Image() for _ in range(50)]
        self.assertEqual(block[lc.number_of("MicInput/12/Fader")], -6.5)
        block[0] = 1
        self.assertTrue(all(other.differences(lc.Image()) == [] for other in others))

    def test_let_go_of_their_image(self):
        for _ in range(50):
            lc.Image().block("Rotary")[0] = 1
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for _ in range(400):
            lc.Image().block("Rotary")[0] = 1
        self.assertLess(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before, 50000)

    def test_are_written_whole(self):
        a, b = lc.Image(), lc.Image()
        a.apply_defaults()
        for kind in lc.MESSAGE_TYPES:
            self.assertNotEqual(a.check_words(), b.check_words()) if kind == "String" else None
            b.block(kind).cast("B")[:] = a.block(kind).cast("B")
        self.assertEqual(a.differences(b), [])
        with self.assertRaises(ValueError):
            b.block("Fader")[:] = a.block("Rotary")
        with self.assertRaises(IndexError):
            b.block("Fader")[len(b.block("Fader"))] = 0

    def test_of_what_does_not_exist(self):
        for wrong in ("Fadr", "*", "", "Fader/0"):
            self.assertRaises(ValueError, lc.Image().block, wrong)
        self.assertRaises(TypeError, lc.Image().block, 4)


class Wholes(unittest.TestCase):
    def test_defaults(self):
        image = lc.Image()
        image.apply_defaults()
        names = [image.get(f"MicInput/{path}/Name") for path in (0, 143)]
        self.assertTrue(names[0].endswith("1") and names[1].endswith("144"), names)

    def test_check_words(self):
        a, b = lc.Image(), lc.Image()
        self.assertEqual(list(a.check_words()), list(lc.MESSAGE_TYPES))
        b.set("MicInput/12/Fader", -6.5)
        different = [kind for kind in lc.MESSAGE_TYPES if a.check_words()[kind] != b.check_words()[kind]]
        self.assertEqual(different, ["Fader"])
        a.set("MicInput/12/Fader", -6.5)
        self.assertEqual(a.check_words(), b.check_words())

    def test_copies_are_their_own(self):
        image = lc.Image()
        image.set("MicInput/12/Fader", -6.5)
        image.set_scope("MicInput/12/Fader", "safe", True)
        for other in (image.copy(), copy.copy(image), copy.deepcopy(image)):
            self.assertEqual(image.differences(other), [])
            self.assertTrue(other.get_scope("MicInput/12/Fader", "safe"))
            other.set("MicInput/13/Fader", 1)
            self.assertEqual(image.differences(other), ["MicInput/13/Fader/0"])
        self.assertRaises(TypeError, image.differences, None)

    def test_are_used_by_several_threads(self):
        image = lc.Image()

        def work(path):
            own = lc.Image()
            for value in range(2000):
                for target in (image, own):
                    target.set(f"MicInput/{path}/Fader", value)
                    assert target.get(f"MicInput/{path}/Fader") == value

        threads = [threading.Thread(target=work, args=(path,)) for path in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual([image.get(f"MicInput/{path}/Fader") for path in range(5)], [1999] * 4 + [0])


class Files(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.file = pathlib.Path(self.folder.name) / "image"

    def tearDown(self):
        self.folder.cleanup()

    def test_bring_an_image_back(self):
        image = lc.Image()
        image.apply_defaults()
        image.set("MicInput/12/Name", "Lead Vocal")
        for file in (self.file, str(self.file), os.fsencode(self.file)):
            image.save(file)
            self.assertEqual(lc.Image.load(file).differences(image), [])
        said = subprocess.check_output([os.environ["CONSOLECTL"], "get", "--from", self.file, "MicInput/12/Name"], text=True)
        self.assertIn('"Lead Vocal"', said)

    def test_that_hold_none(self):
        self.file.write_bytes(b"x" * 408620)
        with self.assertRaises(OSError) as raised:
            lc.Image.load(self.file)
        self.assertEqual(str(raised.exception), f"{self.file}: not a whole image")
        with self.assertRaises(OSError) as raised:
            lc.Image().save(self.file)
        self.assertEqual(str(raised.exception), f"{self.file}: it is no image, and stays as it is")
        os.remove(self.file)
        lc.Image().save(self.file)
        os.truncate(self.file, 408619)
        for wrong in (self.file, self.folder.name, "/nowhere/image", "x" * 5000):
            self.assertRaises(OSError, lc.Image.load, wrong)
        for wrong in (self.folder.name, "/nowhere/image", "x" * 5000):
            self.assertRaises(OSError, lc.Image().save, wrong)
        for wrong in (None, 7, "a\0b"):
            self.assertRaises((TypeError, ValueError), lc.Image.load, wrong)
            self.assertRaises((TypeError, ValueError), lc.Image().save, wrong)


if __name__ == "__main__":
    unittest.main()
