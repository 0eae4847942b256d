"""Images without a network: saved, loaded, compared, and written as whole blocks."""

from pathlib import Path
from tempfile import TemporaryDirectory

from logicalcontrols import Image, address_at, number_of

before = Image()
before.apply_defaults()
with TemporaryDirectory() as folder:
    before.save(Path(folder) / "image")
    after = Image.load(Path(folder) / "image")
assert before.differences(after) == []

faders = after.block("Fader")  # the image's own memory: a memoryview of floats
faders[number_of("MicInput/12/Fader")] = -6.5
assert after.get("MicInput/12/Fader") == -6.5

for address in before.differences(after):
    print(address, before.get(address), "->", after.get(address))
loudest = max(range(len(faders)), key=faders.__getitem__)
print("the highest fader is", address_at("Fader", loudest))
