#!/usr/bin/env python3
"""Plays two items with an automatic segue: the second starts at the first's segue point
(where its fade begins) on a second player, while the first plays out.

    python3 examples/segue.py first.mp3 second.mp3 [--silent]
"""

import asyncio
import sys

import corvid


async def main(first, second, output):
    platform = corvid.NativePlatform(output=output)
    decks = [corvid.Player(platform), corvid.Player(platform)]
    for deck in decks:
        deck.ASFReaderBanned = False
        deck.Init()
        deck.UseAutoCue = True  # each item starts at its cue-in point
        deck.CanCueIn = True
        deck.AutoSeg = True

    segue = asyncio.get_running_loop().create_future()
    ended = asyncio.get_running_loop().create_future()
    decks[0].on("SegueFound", lambda pos: print("segue point of", first, "at", pos, "s"))
    decks[0].on("VUPeak", lambda left, right: decks[0].CurrentPosition >= decks[0].AutoSegPos > 0
                and not segue.done() and segue.set_result(decks[0].CurrentPosition))
    decks[1].on("EndOfStream", lambda result: ended.done() or ended.set_result(result))

    detach = corvid.attach_asyncio(platform.event_loop)
    for deck, item in zip(decks, (first, second)):
        deck.FileName = item
        if deck.FileName != item:
            sys.exit("cannot play %s: %s" % (item, deck.LastError))
    decks[0].AutoSegSearch()
    decks[0].Play()
    print("playing", first)
    at = await segue
    decks[1].Play()
    print("playing", second, "from", at, "s of", first)
    await ended
    detach()
    for deck in decks:
        deck.StopPlaying()


if __name__ == "__main__":
    items = [a for a in sys.argv[1:] if not a.startswith("--")]
    if len(items) != 2:
        sys.exit(__doc__)
    asyncio.run(main(*items, "silent" if "--silent" in sys.argv else "auto"))
