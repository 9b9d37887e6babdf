"""Following players: in a loop, in asyncio, in threads, over the end of the service."""

import asyncio
import os
import select
import signal
import subprocess
import sys
import threading
from pathlib import Path

import pytest
from conftest import SONGS, Service

import vantro
from vantro import Player, Start, State
from vantro._library import library


def play_one(player: Player, index: int = 1) -> None:
    player.create_session(1, "songs", index, Start.PLAYING)
    player.pause()
    player.seek(7000)


def is_ready(event: vantro.Event) -> bool:
    return (
        isinstance(event, vantro.SourceEvent)
        and event.source is not None
        and event.source.status is vantro.SourceStatus.READY
    )


def test_a_loop_ends_with_the_service(service: Service) -> None:
    with Player() as player:
        play_one(player)
        seen: list[object] = []
        with pytest.raises(vantro.ServiceGone):
            for event in player.events():
                if isinstance(event, vantro.StateEvent):
                    seen.append((event.now.state, event.attributes["status"]))
                elif isinstance(event, vantro.SessionEvent):
                    seen.append(event.session.length)
                elif isinstance(event, vantro.TrackEvent):
                    assert event.track.node is not None and event.track.metadata is not None
                    seen.append((event.track.index, event.track.metadata.title))
                    assert event.object_name == "track"
                elif isinstance(event, vantro.SourceEvent):
                    if is_ready(event):
                        seen.append("ready")
                elif isinstance(event, vantro.PositionEvent):
                    seen.append(event.position)
                if len(seen) == 5:
                    service.send(signal.SIGKILL)
        assert seen[0] == (State.PAUSED, "paused")
        assert set(seen[1:]) == {SONGS, (1, "One"), 7000, "ready"}


def test_event_by_event(service: Service) -> None:
    with Player() as player:
        events = player.events()
        poll = select.poll()
        poll.register(events.fileno(), select.POLLIN)
        ready = False  # The end of the scan may be published a moment after it is printed.
        while not ready or events.wait(0):
            assert events.wait(30)
            while event := events.get():
                ready = ready or is_ready(event)
        assert poll.poll(0) == []
        assert not events.wait(0.01)
        player.set_shuffle(True)
        assert poll.poll(10_000)
        event = events.get()
        assert isinstance(event, vantro.StateEvent)
        assert (event.previous.shuffle, event.now.shuffle) == (False, True)


def test_several_players_in_asyncio(service: Service) -> None:
    async def first_position(name: str) -> int:
        with await asyncio.to_thread(Player, name) as player:
            async for event in player.events():
                if isinstance(event, vantro.PositionEvent) and event.position:
                    return event.position
        raise AssertionError("the events ended")

    async def run() -> list[int]:
        before = len(os.listdir("/proc/self/fd"))
        positions = asyncio.gather(first_position("main"), first_position("kitchen"))
        for name, position in (("main", 7000), ("kitchen", 9000)):
            with Player(name) as player:
                await asyncio.to_thread(player.create_session, 1, "songs")
                await asyncio.to_thread(player.seek, position)
        found = await asyncio.wait_for(positions, 30)
        assert len(os.listdir("/proc/self/fd")) == before
        return list(found)

    assert asyncio.run(run()) == [7000, 9000]


def test_asyncio_over_cancelling_closing_and_the_end(service: Service) -> None:
    async def follow(player: Player, quiet: asyncio.Event) -> int:
        count = 0
        async for event in player.events():
            count += 1
            if isinstance(event, vantro.SourceEvent):
                quiet.set()
        return count

    async def run() -> None:
        for way in ("cancel", "close", "close in a thread", "kill"):
            player, quiet = Player(), asyncio.Event()
            task = asyncio.create_task(follow(player, quiet))
            await asyncio.wait_for(quiet.wait(), 30)
            if way == "cancel":
                task.cancel()
                with pytest.raises(asyncio.CancelledError):
                    await task
            elif way == "kill":
                service.send(signal.SIGKILL)
                with pytest.raises(vantro.ServiceGone):
                    await asyncio.wait_for(task, 30)
            else:
                if way == "close":
                    player.close()
                else:
                    await asyncio.to_thread(player.close)
                assert await asyncio.wait_for(task, 30) > 0
            player.close()

    asyncio.run(run())


def test_closing_ends_the_wait_of_a_thread(
    service: Service, monkeypatch: pytest.MonkeyPatch
) -> None:
    waiting = threading.Event()
    wait_for = library.vantro_event_wait_for

    def told(pointer: int, limit: int) -> int:
        waiting.set()
        return int(wait_for(pointer, limit))

    monkeypatch.setattr(library, "vantro_event_wait_for", told)
    player = Player()
    thread = threading.Thread(target=lambda: list(player.events()))
    thread.start()
    assert waiting.wait(30)
    guard = threading.Timer(20, service.send, [signal.SIGKILL])  # That would end the wait too.
    guard.start()
    player.close()
    thread.join(30)
    assert not guard.finished.is_set()
    guard.cancel()


def test_now_playing_goes_on_with_a_new_service(service: Service) -> None:
    example = Path(os.environ["VANTRO_SOURCE"]) / "examples/now_playing.py"
    with subprocess.Popen(
        [sys.executable, str(example)], stdout=subprocess.PIPE, text=True
    ) as shown:
        assert shown.stdout is not None
        for _ in range(2):
            with Player() as player:
                player.create_session(1, "songs")
            for line in shown.stdout:
                if line == "main: One\n":
                    break
            service.send(signal.SIGKILL)
            service.end()
            service.start()
        shown.send_signal(signal.SIGINT)
        assert shown.wait(30) == 0


def test_asyncio_goes_on_with_the_next_service(service: Service) -> None:
    async def follow(player: Player) -> list[object]:
        seen: list[object] = []
        async for event in player.events():
            if event.object_name == "state":
                seen.append(event.now.shuffle)
                if len(seen) == 1:
                    service.end()
                    await asyncio.to_thread(service.start)
                elif seen[-1]:
                    break
                else:
                    await asyncio.to_thread(player.set_shuffle, True)
            elif event.object_name == "/reconnected":
                assert isinstance(event, vantro.ObjectEvent)
                seen.append("reconnected")
        return seen

    with Player(timeout=20) as player:
        player.set_reconnect(True)
        assert asyncio.run(asyncio.wait_for(follow(player), 60)) == [
            False, "reconnected", False, True
        ]  # fmt: skip
