"""Commands, queries and the catalogue against a service that runs."""

import ctypes
import errno
import os
import signal
import threading
from collections.abc import Callable

import pytest
from conftest import SONGS, Service

import vantro
from vantro import Player, Repeat, Start, State
from vantro._library import library


def first_song(player: Player) -> str:
    song = next(player.browse(1, "songs"))
    assert song.id is not None
    return song.id


def test_lists_page_by_themselves(service: Service) -> None:
    with Player() as player:
        (source,) = player.sources()
        assert source.status is vantro.SourceStatus.READY
        assert source.capabilities & vantro.Capability.SEARCH
        songs = list(player.browse(source.id, "songs"))
        assert len({song.id for song in songs}) == SONGS
        assert songs[0].type is vantro.NodeType.SONG
        assert list(player.browse(source.id, "songs", offset=200)) == songs[200:]
        assert len(list(player.search(source.id, "one", "title"))) == SONGS
        assert list(player.search(source.id, "")) == []
        told = list(player.browse_metadata(source.id, "songs"))
        assert [node for node, _ in told] == songs and told[0][1].duration == 20000
        assert len(list(player.search_metadata(source.id, "one", offset=SONGS - 1))) == 1
        assert player.players() == ["main", "kitchen"]
        identity = player.identity()
        assert (identity.pid, identity.uid) == (os.getpid(), os.geteuid())
        assert identity.capabilities == () and identity.version == vantro.__version__
        tsid = player.create_session(source.id, "songs", SONGS - 1)
        assert list(player.tracks(tsid)) == songs
        assert list(player.tracks_metadata(tsid)) == told
        track = player.track()
        assert (track.index, track.tsid, track.node) == (SONGS - 1, tsid, songs[-1])
        assert track.metadata is not None and track.metadata.title == "One"
        node = songs[0].id
        assert node is not None
        known = player.metadata(source.id, node)
        assert known is not None and (known.duration, known.cover) == (20000, None)
        assert player.values(source.id, node, ["codec", "none"]) == {"codec": "pcm", "none": None}
        assert player.session() == vantro.SessionInfo(2, SONGS, tsid)
        player.destroy_session(tsid)
        assert player.state().state is State.IDLE


def test_commands(service: Service) -> None:
    with Player("kitchen") as player:
        player.rescan()
        player.rescan(1, "songs")
        player.create_session(1, "songs", start=Start.PLAYING)
        assert player.state().state is State.PLAYING
        player.pause()
        player.seek(7000)
        player.set_rate(1.5)
        player.set_shuffle(True)
        player.set_repeat(Repeat.ALL)
        player.set_volume(40)
        player.set_muted(True)
        assert player.volume() == vantro.Volume(40, True)
        assert player.state() == vantro.StateInfo(State.PAUSED, 1.5, Repeat.ALL, True)
        assert player.position() == 7000
        whole = player.status()
        assert (whole.state, whole.session, whole.volume, whole.position, whole.track) == (
            player.state(), player.session(), player.volume(), 7000, player.track()
        )  # fmt: skip
        player.set_shuffle(False)
        songs = [f"1:{node.id}" for node in player.browse(1, "songs")]
        player.create_session(0, songs[:2], start=Start.APPEND)
        assert player.session().length == SONGS + 2
        assert player.position() == 7000
        player.jump(5)
        player.next()
        assert player.track().index == 6
        player.previous()
        player.play()
        player.stop()
        assert (player.track().index, player.state().state) == (5, State.STOPPED)
        player.close_player()
        assert player.name is None
        player.open("main")
        assert player.state().state is State.IDLE


def test_what_cannot_be_done_is_an_exception(service: Service) -> None:
    with Player() as player:
        cases: list[tuple[type[Exception], Callable[[], object]]] = [
            (vantro.Refused, lambda: list(player.browse(1, "x" * 100))),
            (vantro.Refused, lambda: player.metadata(1, "nothing")),
            (vantro.Refused, lambda: player.destroy_session(99)),
            (vantro.Refused, lambda: player.rescan(1, "nothing")),
            (vantro.Refused, lambda: Player("nobody")),
            (vantro.Invalid, lambda: Player("n" * 40)),
            (OverflowError, lambda: player.seek(1 << 31)),
            (OverflowError, lambda: player.jump(-(1 << 31) - 1)),
            (ValueError, lambda: player.metadata(1, "a\0b")),
            (ValueError, lambda: player.set_timeout(0)),
        ]
        for kind, call in cases:
            with pytest.raises(kind):
                call()
        with pytest.raises(vantro.Refused) as refused:
            player.create_session(1, "nothing")
        assert refused.value.number == errno.ENOENT
        assert refused.value.reason is vantro.Reason.REFUSED
        assert str(refused.value)
        assert player.state().state is State.IDLE
    with pytest.raises(vantro.Invalid):
        player.play()


def test_a_time_limit(service: Service) -> None:
    with Player(timeout=0.1) as player:
        service.send(signal.SIGSTOP)
        with pytest.raises(TimeoutError) as over:
            player.play()
        assert isinstance(over.value, vantro.TimedOut)
        with pytest.raises(vantro.TimedOut):
            Player(timeout=0.1)
        service.send(signal.SIGCONT)
        player.set_timeout(10)
        assert player.state().rate == 1
        player.set_timeout(None)
        assert player.session().length >= 0


def test_the_service_dies(service: Service) -> None:
    player = Player()
    assert first_song(player)
    service.send(signal.SIGKILL)
    service.end()
    with pytest.raises(vantro.ServiceGone):
        player.play()
    player.close()
    with pytest.raises(vantro.ServiceGone):
        Player()


def test_closing_waits_for_calls_of_other_threads(
    service: Service, monkeypatch: pytest.MonkeyPatch
) -> None:
    disconnect = library.vantro_disconnect
    under_way = []

    def disconnect_and_tell(pointer: int) -> int:
        under_way.append(player._owned()._calls)
        return int(disconnect(pointer))

    monkeypatch.setattr(library, "vantro_disconnect", disconnect_and_tell)
    for _ in range(20):
        player = Player()
        begun = threading.Barrier(5)  # each has asked once
        wrong: list[BaseException] = []

        def ask() -> None:
            player.state()
            begun.wait()
            try:
                while True:
                    player.state()
            except vantro.Invalid:
                pass
            except BaseException as error:
                wrong.append(error)

        threads = [threading.Thread(target=ask) for _ in range(4)]
        for thread in threads:
            thread.start()
        begun.wait()
        player.close()
        for thread in threads:
            thread.join()
        assert not wrong
    assert under_way == [0] * 20


def heap_bytes() -> int:
    class Mallinfo2(ctypes.Structure):
        _fields_ = [(f"field{i}", ctypes.c_size_t) for i in range(7)] + [
            ("uordblks", ctypes.c_size_t),
            ("fordblks", ctypes.c_size_t),
            ("keepcost", ctypes.c_size_t),
        ]

    function = ctypes.CDLL(None).mallinfo2
    function.restype = Mallinfo2
    return int(function().uordblks)


def test_nothing_leaks(service: Service) -> None:
    with Player() as player:
        player.create_session(1, "songs")
        song = first_song(player)
        queries: list[Callable[[], object]] = [
            player.state,
            player.session,
            player.track,
            player.status,
            player.sources,
            lambda: next(player.browse(1, "songs")),
            lambda: player.metadata(1, song),
            lambda: player.values(1, song, ["title", "codec", "none"]),
            lambda: pytest.raises(vantro.Refused, player.metadata, 1, "nothing"),
        ]
        rounds = 200

        def growth(query: Callable[[], object]) -> int:
            query()
            before = heap_bytes()
            for _ in range(rounds):
                query()
            return heap_bytes() - before

        for query in queries:
            # The smallest block of malloc() is of 32 bytes with its own word; a leak is one a round,
            # each time. The interpreter may take some memory of its own once.
            assert min(growth(query) for _ in range(3)) < rounds * 24, query
