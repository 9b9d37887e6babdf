"""vantro-web under adverse conditions: file names, many clients, a service that ends."""

import http.client
import json
import os
import resource
import select
import shutil
import socket

from test_web import A, MAIN, SONGS, ids

GET = b"GET /api/v1/players/main HTTP/1.1\r\nHost: localhost\r\n\r\n"


def test_names_of_any_bytes(bridge):
    music = os.fsencode(bridge.folder / "music")
    names = [bytes(set(range(1, 128)) - {ord("/")}), bytes(range(128, 256))]
    for name in names:
        for copy in names:
            os.makedirs(os.path.join(music, name), exist_ok=True)
            shutil.copy(os.path.join(music, b"Red/Way/1.wav"),
                        os.path.join(music, name, copy + b".wav"))
    songs = []
    while len(songs) < 5 + 4:
        songs = bridge.ask("GET", A + "/browse?source_id=1&id=songs").json["nodes"]
    assert len({song["id"] for song in songs}) == len(songs)
    assert bridge.ask("POST", MAIN + "/queue/load", SONGS).status == 200
    assert sorted(ids(bridge)) == sorted(song["id"] for song in songs)
    for index in range(len(songs)):
        bridge.ask("POST", MAIN + "/jump", {"index": index})
        assert bridge.state()["track"]["name"]


def test_a_thousand_connections_of_one_address(bridge):
    before = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, before[1]), before[1]))
    crowd = [bridge.connect() for _ in range(1000)]
    for client in crowd:
        try:
            client.sendall(GET[:-2])
        except (BrokenPipeError, ConnectionResetError):
            pass  # one too many of this address
    other = http.client.HTTPConnection(
        "127.0.0.1", bridge.port, timeout=60, source_address=("127.0.0.2", 0)
    )
    other.request("GET", MAIN)
    assert other.getresponse().status == 200
    other.close()
    served = 0
    for client in crowd:
        try:
            client.sendall(b"\r\n")
            served += client.recv(12).startswith(b"HTTP/1.1 200")
        except (BrokenPipeError, ConnectionResetError):
            pass
        client.close()
    assert served == 256
    resource.setrlimit(resource.RLIMIT_NOFILE, before)
    assert bridge.ask("GET", MAIN).status == 200


def send_into(bridge, method: str, path: str, body: object) -> socket.socket:
    client = bridge.connect()
    text = json.dumps(body).encode() if method == "POST" else b""
    head = [f"{method} {path} HTTP/1.1", "Host: localhost", "Content-Type: application/json",
            "Connection: close", f"Content-Length: {len(text)}", "", ""]
    client.sendall("\r\n".join(head).encode() + text)
    return client


def test_a_service_that_ends_in_the_middle_of_a_request(bridge):
    bridge.ask("POST", MAIN + "/queue/load", SONGS)
    song = bridge.ask("GET", A + "/browse?source_id=1&id=songs").json["nodes"][0]["id"]
    rows = [
        ("GET", "", None), ("GET", "/queue", None), ("POST", "/play", {}), ("POST", "/pause", {}),
        ("POST", "/stop", {}), ("POST", "/next", {}), ("POST", "/toggle", {}),
        ("POST", "/jump", {"index": 1}), ("POST", "/seek", {"position_ms": 1}),
        ("POST", "/volume", {"level": 3, "muted": True}),
        ("POST", "/modes", {"repeat": "all", "shuffle": True, "rate": 2}),
        ("POST", "/queue/load", SONGS), ("POST", "/queue/add", SONGS),
        ("POST", "/queue/insert", SONGS), ("POST", "/queue/move", {"from": 0, "to": 1}),
        ("POST", "/queue/remove", {"index": 0}),
        ("POST", "/queue/save", {"name": "x", "replace": True}), ("POST", "/queue/clear", {}),
    ]
    rows = [(method, MAIN + path, body) for method, path, body in rows] + [
        ("GET", A + "/players", None), ("GET", A + "/sources", None),
        ("GET", A + "/playlists", None), ("GET", A + "/browse?source_id=1&id=songs", None),
        ("GET", A + "/search?source_id=1&q=way", None),
        ("GET", A + f"/cover?source_id=1&id={song}", None), ("POST", A + "/rescan", {}),
        ("POST", A + "/playlists/delete", {"name": "x"}),
    ]
    for method, path, body in rows:
        bridge.stop_service()
        with send_into(bridge, method, path, body) as client:
            select.select([client], [], [], 0.05)  # what is known already is answered at once
            bridge.end_service()
            answer = http.client.HTTPResponse(client)
            answer.begin()
            answer.read()
            assert answer.status in (200, 204, 404, 409, 503), (method, path, answer.status)
        bridge.start_service()
        while bridge.ask("GET", MAIN).status != 200:
            pass
        assert bridge.state()["available"]
