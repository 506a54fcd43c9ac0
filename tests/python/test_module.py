"""import corvid as a Python host uses it: a made file played on the silent device and on a
private PulseAudio null sink with its events delivered through asyncio, a host test on the
simulation, and the segue example."""

import asyncio
import os
import re
import subprocess
import sys

import pytest

import corvid

sys.path.insert(0, os.path.dirname(__file__))
from madeitems import make_item  # noqa: E402


@pytest.fixture(scope="module")
def null_sink(tmp_path_factory):
    """A private sound server with null sinks, on a socket of its own."""
    work = tmp_path_factory.mktemp("pulse")
    script = os.environ["CORVID_SOUND_SERVER_SCRIPT"]
    # Not ours to sanitize: a sanitizer runtime preloaded for the module stays out of the server.
    server_env = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
    subprocess.run(["sh", script, "start", str(work)], check=True, timeout=60, env=server_env)
    saved = os.environ.get("PULSE_SERVER")
    os.environ["PULSE_SERVER"] = "unix:%s/pulse/native" % work
    yield "Corvid_Test_A"
    if saved is None:
        del os.environ["PULSE_SERVER"]
    else:
        os.environ["PULSE_SERVER"] = saved
    subprocess.run(["sh", script, "stop", str(work)], timeout=60, env=server_env)


async def play_until_the_end(platform, player, item):
    seen = {"VUPeak": 0, "CueInFound": [], "EndOfStream": 0}
    ended = asyncio.get_running_loop().create_future()
    player.on("VUPeak", lambda left, right: seen.__setitem__("VUPeak", seen["VUPeak"] + 1))
    player.on("CueInFound", lambda pos: seen["CueInFound"].append(pos))
    player.on("EndOfStream", lambda result: ended.done() or ended.set_result(result))
    detach = corvid.attach_asyncio(platform.event_loop)
    try:
        player.UseAutoCue = True
        player.CanCueIn = True
        player.FileName = item
        assert player.FileName == item, player.LastError
        player.Play()
        await asyncio.wait_for(ended, 30)
        seen["EndOfStream"] = 1
    finally:
        detach()
        player.StopPlaying()
    return seen


@pytest.mark.parametrize("where", ["silent", "null_sink"])
def test_plays_a_made_file_with_events_through_asyncio(where, tmp_path, request):
    item = make_item(tmp_path / "tone.wav", [(0.4, False), (1.2, True)])
    output = "silent" if where == "silent" else "pulseaudio"
    device = request.getfixturevalue("null_sink") if where == "null_sink" else None
    platform = corvid.NativePlatform(output=output, settings_in_memory=True)
    player = corvid.Player(platform)
    player.Init()
    if device:
        assert player.SetSoundcard(device), player.EnumRenders(True)
    seen = asyncio.run(play_until_the_end(platform, player, item))
    assert seen["VUPeak"] > 0 and seen["EndOfStream"] == 1
    assert seen["CueInFound"] and 0.3 <= seen["CueInFound"][0] <= 0.5


def test_a_host_on_the_simulation():
    sim = corvid.SimPlatform()
    sim.add_file("/music/a.mp3", 10, {"Artist": "A", "Title": "T"}, loud_from=0.5, quiet_from=9)
    player = corvid.Player(sim)
    events = []
    player.on("PlayStateChange", lambda old, new: events.append(new))
    player.on("EndOfStream", lambda result: events.append("end"))
    player.Init()
    player.Volume = 100  # adjusted: 0 dB is the most
    assert player.Volume == 0
    player.FileName = "/music/a.mp3"
    assert player.Duration == pytest.approx(10)
    player.Play()
    assert player.Playstate == corvid.MpPlaying
    sim.run_for(11000)
    assert events[-1] == "end" and corvid.MpPlaying in events
    assert sim.heard_ms("Default DirectSound Device", "/music/a.mp3") >= 9000
    with pytest.raises(ValueError):
        player.on("NoSuchEvent", print)


def test_the_segue_example_starts_the_second_item_at_the_segue_point(tmp_path):
    first = make_item(tmp_path / "first.wav", [(2.5, True), (2.0, False)])
    second = make_item(tmp_path / "second.wav", [(1.0, True), (0.5, False)])
    script = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "segue.py")
    done = subprocess.run([sys.executable, script, first, second, "--silent"],
                          capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    segue = float(re.search(r"segue point of \S+ at ([\d.]+) s", done.stdout).group(1))
    assert segue <= float(re.search(r"from ([\d.]+) s of", done.stdout).group(1)) < segue + 0.5
