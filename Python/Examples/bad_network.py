"""A network that breaks, the same way for the same seed, and a client that is in step with the MC all the same."""

from logicalcontrols import Follower, SimulatedMC

with SimulatedMC(moving_faders=0, seed=7, loss=20, reorder=3) as mc, Follower() as client:
    client.wait_whole(timeout=30)
    client.set("MicInput/12/Fader", -6.5, timeout=30)
    lost = mc.statistics()["lost"]
    assert lost > 0 and client.image.differences(mc.image()) == []
    print(f"{lost} datagrams lost, {client.statistics()['updates applied']} updates applied: in step")
