"""Corvid's audio player for Python hosts.

Make one platform per process (NativePlatform, or SimPlatform in tests), players over it,
and pump its event loop on the thread that made it: ``loop.run()`` blocks,
``loop.run_until(done, ms)`` pumps for a while, and ``attach_asyncio(loop)`` lets asyncio
pump it whenever Corvid has work, through the loop's wakeup descriptor.
"""

import asyncio

from ._corvid import *  # noqa: F401,F403
from ._corvid import EVENTS


def attach_asyncio(event_loop, aio_loop=None):
    """Pumps Corvid's event loop from asyncio's; returns a function that detaches it."""
    aio = aio_loop or asyncio.get_running_loop()
    aio.add_reader(event_loop.wakeup_fd, event_loop.process_pending)
    return lambda: aio.remove_reader(event_loop.wakeup_fd)
