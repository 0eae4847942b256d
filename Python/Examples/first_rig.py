"""The smallest test rig: a simulated MC, a client that follows it, and a change in each direction."""

from logicalcontrols import Follower, SimulatedMC

with SimulatedMC(moving_faders=0) as mc, Follower() as client:
    client.wait_whole(timeout=10)
    mc.set("MicInput/12/Fader", -6.5)  # at the MC, and seen by the client
    client.wait_for("MicInput/12/Fader", -6.5)
    client.set("MicInput/12/Name", "Lead Vocal")  # by the client, and back from the MC
    assert mc.get("MicInput/12/Name") == "Lead Vocal"
    print(client.sender, client.image.get("MicInput/12/Name"), client.image.get("MicInput/12/Fader"))
