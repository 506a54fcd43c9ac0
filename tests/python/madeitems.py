"""Made items for the Python tests: stretches of a 440 Hz tone and of silence in a WAV file."""

import array
import math
import wave


def make_item(path, stretches, rate=44100):
    """`stretches`: (seconds, loud) pairs in order; the tone at half scale when loud."""
    samples = array.array("h")
    for seconds, loud in stretches:
        for i in range(int(seconds * rate)):
            v = int(16000 * math.sin(2 * math.pi * 440 * i / rate)) if loud else 0
            samples.extend((v, v))
    with wave.open(str(path), "wb") as w:
        w.setnchannels(2)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(samples.tobytes())
    return str(path)
