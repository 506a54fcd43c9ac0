"""corvid-play as an operator meets it: the command line, and under a pseudo-terminal keys,
signals and two items in a row with a segue, all on the silent device."""

import contextlib
import fcntl
import os
import re
import select
import subprocess
import sys
import termios
import time

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "python"))
from madeitems import make_item  # noqa: E402

PLAY = os.environ["CORVID_PLAY"]


@pytest.mark.parametrize("args, code, stream, text", [
    (["--help"], 0, "stdout", "usage: corvid-play"),
    (["--version"], 0, "stdout", "corvid-play 0.1.0"),
    (["--bogus", "x.wav"], 2, "stderr", "unknown option --bogus"),
    ([], 2, "stderr", "nothing to play"),
    (["--silent", "/nowhere/x.wav"], 1, "stderr", "cannot play /nowhere/x.wav"),
])
def test_command_line(args, code, stream, text):
    done = subprocess.run([PLAY] + args, capture_output=True, text=True, timeout=60)
    assert done.returncode == code
    assert text in getattr(done, stream)


def read_until(fd, pattern, seconds=20):
    seen, deadline = "", time.monotonic() + seconds
    while time.monotonic() < deadline and not re.search(pattern, seen):
        if select.select([fd], [], [], 0.2)[0]:
            try:
                seen += os.read(fd, 4096).decode(errors="replace")
            except OSError:
                break
    return seen


@contextlib.contextmanager
def on_terminal(args):
    """corvid-play with a pseudo-terminal as its controlling terminal: (child, master, slave)."""
    master, slave = os.openpty()

    def controlling_terminal():
        fcntl.ioctl(0, termios.TIOCSCTTY, 0)

    child = subprocess.Popen([PLAY, "--silent"] + args, stdin=slave, stdout=slave, stderr=slave,
                             start_new_session=True, preexec_fn=controlling_terminal)
    try:
        yield child, master, slave
    finally:
        if child.poll() is None:
            child.kill()
        os.close(master)
        os.close(slave)


def test_keys_work_and_ctrl_c_gives_the_terminal_back(tmp_path):
    item = make_item(tmp_path / "long.wav", [(30, True)])
    with on_terminal([item]) as (child, master, slave):
        before = termios.tcgetattr(slave)
        assert "vol 0.0 dB" in read_until(master, r"vol 0\.0 dB")
        for key, shown in [(b"9", r"vol -3\.0 dB"), (b"m", r"muted"), (b"[[[", r"rate 0\.90"),
                           (b"]", r"rate 0\.95"), (b" ", r"paused")]:
            os.write(master, key)
            assert re.search(shown, read_until(master, shown)), key
        os.write(master, b"\x03")  # Ctrl-C through the terminal's own line discipline
        assert child.wait(timeout=20) == 130
        assert termios.tcgetattr(slave) == before


def test_segue_starts_the_next_item_at_the_segue_point(tmp_path):
    first = make_item(tmp_path / "first.wav", [(2.5, True), (2.0, False)])
    second = make_item(tmp_path / "second.wav", [(1.0, True), (0.5, False)])
    with on_terminal(["--segue", first, second]) as (child, master, _):
        shown = read_until(master, r"playing " + re.escape(second))
        assert child.wait(timeout=20) == 0, shown
    segue = float(re.search(r"segue: ([\d.]+) s in " + re.escape(first), shown).group(1))
    started = re.search(r"segue to (\S+) at ([\d.]+) s of (\S+)", shown)
    assert started, shown
    assert (started.group(1), started.group(3)) == (second, first)
    assert segue <= float(started.group(2)) < segue + 0.5
