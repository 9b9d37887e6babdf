#!/usr/bin/env python3
"""Prints what a player plays, a line for each track and each change of its state.

    now_playing.py [PLAYER]

Waits for the service, and goes on when it is started again. Ends after Ctrl-C.
"""

import asyncio
import sys

import vantro


async def follow(name: str) -> None:
    player = await asyncio.to_thread(vantro.Player, name, timeout=5)
    with player:
        async for event in player.events():
            if isinstance(event, vantro.StateEvent):
                print(f"{name}: {event.now.state.name.lower()}", flush=True)
            elif isinstance(event, vantro.TrackEvent) and event.track.metadata:
                known = event.track.metadata
                parts = [known.title, known.artist, known.album]
                print(f"{name}: {' - '.join(part for part in parts if part)}", flush=True)
            elif isinstance(event, vantro.ErrorEvent):
                print(f"{name}: not played: {event.code.name.lower()}", flush=True)


async def main(name: str) -> None:
    while True:
        try:
            await follow(name)
        except vantro.ServiceGone:
            await asyncio.sleep(1)


try:
    asyncio.run(main(sys.argv[1] if len(sys.argv) > 1 else "main"))
except KeyboardInterrupt:
    pass
except vantro.VantroError as error:
    sys.exit(f"now_playing: {error}")
