"""The answers of vantro-web, also to requests that are malformed or not for it."""

import json
import resource
import signal
import socket
import time
from pathlib import Path

import pytest

A = "/api/v1"
MAIN = A + "/players/main"
DOCUMENT = json.loads(
    (Path(__file__).parents[3] / "bridges/web/page/openapi.json").read_text(encoding="utf-8")
)
SONGS = {"nodes": [{"source_id": 1, "id": "songs"}]}
EMPTY = {"nodes": [{"source_id": 1, "id": "playlists"}]}

# Method, path, parameters or body, status; in this order. {player} is main.
ROWS = [
    ("get", "/", "", 200), ("get", "/pair", "", 200), ("get", "/players", "", 200),
    ("get", "/sources", "", 200),
    ("get", "/browse", "source_id=1&id=songs&count=3", 200),
    ("get", "/browse", "source_id=1&id=nosuch", 404), ("get", "/browse", "source_id=x", 400),
    ("get", "/search", "source_id=1&q=way", 200), ("get", "/search", "source_id=1", 400),
    ("get", "/search", "source_id=99&q=way", 404),
    ("get", "/cover", "source_id=1&id=nosuch", 404), ("get", "/cover", "source_id=1", 400),
    ("get", "/players/{player}", "", 200), ("get", "/players/{player}/events", "", 200),
    ("get", "/players/{player}/queue", "", 200),
    ("get", "/players/{player}/queue", "count=0", 400),
    ("post", "/rescan", {}, 204), ("post", "/rescan", {"x": 1}, 400),
    ("post", "/players/{player}/jump", {"index": 0}, 409),
    ("post", "/players/{player}/queue/move", {"from": 0, "to": 0}, 409),
    ("post", "/players/{player}/queue/remove", {"index": 0}, 409),
    ("post", "/players/{player}/seek", {"position_ms": 1}, 409),
    ("post", "/players/{player}/next", {}, 409), ("post", "/players/{player}/previous", {}, 409),
    ("post", "/players/{player}/queue/load", SONGS, 200),
    ("post", "/players/{player}/queue/load", {"nodes": []}, 400),
    ("post", "/players/{player}/queue/load", EMPTY, 409),
    ("post", "/players/{player}/queue/load", {"nodes": [{"source_id": 1}]}, 400),
    ("post", "/players/{player}/queue/load", {"nodes": [{"source_id": 1, "id": "a\nb"}]}, 400),
    ("post", "/players/{player}/queue/add", SONGS, 200),
    ("post", "/players/{player}/queue/insert", SONGS, 200),
    ("get", "/playlists", "", 200), ("get", "/playlists", "count=0", 400),
    ("post", "/players/{player}/queue/save", {"name": "A & \u00e9"}, 200),
    ("post", "/players/{player}/queue/save", {"name": "A & \u00e9"}, 409),
    ("post", "/players/{player}/queue/save", {"name": "A & \u00e9", "replace": True}, 200),
    ("post", "/players/{player}/queue/save", {"name": "a/b"}, 400),
    ("post", "/playlists/delete", {"name": "A & \u00e9"}, 204),
    ("post", "/playlists/delete", {"name": "A & \u00e9"}, 404),
    ("post", "/playlists/delete", {"name": ""}, 400),
    ("post", "/players/{player}/queue/move", {"from": 0, "to": 5}, 200),
    ("post", "/players/{player}/queue/move", {"from": 0, "to": 1, "session": "0"}, 409),
    ("post", "/players/{player}/queue/remove", {"index": 0, "count": 2}, 200),
    ("post", "/players/{player}/queue/remove", {"index": 99}, 400),
    ("post", "/players/{player}/jump", {"index": 2}, 204),
    ("post", "/players/{player}/seek", {"position_ms": 1000}, 204),
    ("post", "/players/{player}/volume", {"level": 40, "muted": True}, 204),
    ("post", "/players/{player}/volume", {"level": 101}, 400),
    ("post", "/players/{player}/modes", {"repeat": "all", "shuffle": False, "rate": 1}, 204),
    ("post", "/players/{player}/modes", {"repeat": "never"}, 400),
    ("post", "/players/{player}/toggle", {}, 204), ("post", "/players/{player}/play", {}, 204),
    ("post", "/players/{player}/next", {}, 204), ("post", "/players/{player}/previous", {}, 204),
    ("post", "/players/{player}/pause", {}, 204), ("post", "/players/{player}/stop", {}, 204),
    ("post", "/players/{player}/queue/clear", {}, 200),
]


def send(bridge, method, path, given, player="main", **headers):
    url = A + path.replace("{player}", player).rstrip("/")
    if method == "get":
        return bridge.ask("GET", url + ("?" + given if given else ""), **headers)
    return bridge.ask("POST", url, given, **headers)


def test_every_status_of_the_document(bridge):
    seen = set()
    good = {}

    def expect(method, path, given, status, **more):
        answer = send(bridge, method, path, given, **more)
        assert answer.status == status, (method, path, given, more, answer.body)
        if status >= 400:
            assert answer.json["error"]["message"]
        seen.add((method, path, str(status)))

    for method, path, given, status in ROWS:
        expect(method, path, given, status)
        if status < 300:
            good.setdefault((method, path), given)
    song = bridge.ask("GET", A + "/browse?source_id=1&id=songs").json["nodes"][0]
    good["get", "/cover"] = f"source_id=1&id={song['id']}"
    cover = send(bridge, "get", "/cover", good["get", "/cover"])
    assert cover.status == 200 and cover.body.startswith(b"\x89PNG")
    seen.add(("get", "/cover", "200"))
    expect("get", "/cover", good["get", "/cover"], 304, If_None_Match=cover.headers["ETag"])
    expect("post", "/pair", {"code": bridge.code}, 204)
    expect("post", "/pair", {}, 400)
    good["post", "/pair"] = {"code": "12"}
    for (method, path), given in good.items():
        expect(method, path, given, 403, Host="evil.example")
        if method == "post":
            expect(method, path, given, 415, Content_Type="text/plain")
            if not given and path != "/rescan":
                expect(method, path, "[", 400)
        if "{player}" in path:
            expect(method, path, given, 404, player="nobody")
        if path not in ("/", "/pair"):
            expect(method, path, given, 401, X_Forwarded_For="192.0.2.1")
    for method, path in [(m, p) for m, p in good if "{player}" in p and m == "post"]:
        if "400" in DOCUMENT["paths"][path][method]["responses"]:
            expect(method, path, '{"unknown": 1}', 400)
    for _ in range(10):
        send(bridge, "post", "/pair", {"code": "1"})
    expect("post", "/pair", {"code": bridge.code}, 429)
    bridge.end_service()
    for (method, path), given in good.items():
        if path not in ("/", "/pair") and not path.endswith("/events"):
            expect(method, path, given, 503)
    expect("get", "/players/{player}/events", "", 503, player="unasked")
    bridge.start_service()
    expect("get", "/players/{player}", "", 200)
    documented = {
        (method, path, status)
        for path, methods in DOCUMENT["paths"].items()
        for method, operation in methods.items()
        for status in operation["responses"]
    }
    assert seen == documented


def get(target, *fields, host="127.0.0.1"):
    return "\r\n".join([f"GET {target} HTTP/1.1", f"Host: {host}", *fields, "", ""]).encode()


def post(body, *fields):
    head = ["POST /api/v1/players/main/volume HTTP/1.1", "Host: localhost", *fields, "", ""]
    return "\r\n".join(head).encode() + body


JSON = "Content-Type: application/json"
RAW = {
    "page": (get("/"), 200),
    "name given": (get("/", host="music.example:80"), 200),
    "same origin": (get(A, "Origin: http://127.0.0.1"), 200),
    "address of six": (get(A, host="[::1]:8380"), 200),
    "up": (get("/../etc/passwd"), 400), "up escaped": (get("/%2e%2e/etc/passwd"), 400),
    "up within": (get("/api/v1/players/..%2f../x"), 404), "nul": (get("/a%00b"), 400),
    "bad escape": (get("/%zz"), 400), "twice": (get(A + "/browse?id=a&id=b"), 400),
    "absolute": (get("http://127.0.0.1/"), 400),
    "no file": (get("/main.cpp"), 404), "no folder": (get("/a/b"), 404),
    "no version": (get("/api/v2"), 404),
    "rebound": (get("/", host="evil.example"), 403),
    "like a name": (get("/", host="127.0.0.1.evil.example"), 403),
    "foreign": (get(A, "Origin: http://evil.example"), 403),
    "other port": (get(A, "Origin: http://127.0.0.1:81"), 403),
    "sandboxed": (get(A, "Origin: null"), 403),
    "cross site": (get(A, "Sec-Fetch-Site: cross-site"), 403),
    "no host": (b"GET / HTTP/1.1\r\n\r\n", 400), "junk": (b"\x16\x03\x01\x02\0\r\n\r\n", 0),
    "method": (get("/").replace(b"GET", b"DELETE"), 405),
    "api method": (get(A + "/pair").replace(b"GET", b"PUT"), 405),
    "long target": (get("/" + "a" * 9000), 414),
    "chunked": (post(b"2\r\n{}\r\n0\r\n\r\n", JSON, "Transfer-Encoding: chunked"), 411),
    "long body": (post(b"", JSON, "Content-Length: 2000000"), 413),
    "deep": (post(b"[" * 100000, JSON, "Content-Length: 100000"), 400),
    "not UTF-8": (post(b'{"level":"\xff"}', JSON, "Content-Length: 13"), 400),
    "number": (post(b'{"level":1e400}', JSON, "Content-Length: 15"), 400),
}


@pytest.mark.parametrize("name", RAW)
def test_raw(bridge, name):
    request, status = RAW[name]
    assert bridge.raw(request) == status


@pytest.mark.parametrize("start", [b"GET /", b"GET / HTTP/1.1\r\nX: ", b""])
def test_a_line_of_a_mebibyte(bridge, start):
    assert bridge.raw(start + b"a" * (1 << 20)) in (0, 400, 413, 414, 431)
    policy = bridge.ask("GET", "/").headers["Content-Security-Policy"]
    assert policy.startswith("default-src 'none'")


def test_pairing(bridge):
    bridge.end_web()
    bridge.start_web()
    away = {"X_Forwarded_For": "192.0.2.1", "Host": "music.example"}
    assert bridge.ask("GET", "/", **away).status == 200
    code = bridge.code[:4] + " " + bridge.code[4:]
    answer = bridge.ask("POST", A + "/pair", {"code": code}, **away)
    cookie = answer.headers["Set-Cookie"]
    assert "HttpOnly" in cookie and "SameSite=Strict" in cookie
    token = cookie.split(";")[0]
    other = token[:-1] + ("1" if token[-1] == "0" else "0")
    for value, status in [(token, 200), (other, 401), (token[:-2], 401), ("vantro-web=", 401)]:
        assert bridge.ask("GET", MAIN, **away, Cookie=value).status == status
    bridge.end_web()
    bridge.start_web()
    assert bridge.ask("GET", MAIN, **away, Cookie=token).status == 200


def test_a_service_that_hangs(bridge):
    bridge.stop_service()
    while bridge.ask("GET", MAIN).status == 200:  # what is kept of the state, for a second
        time.sleep(0.1)
    answers = [bridge.ask("GET", MAIN) for _ in range(3)]
    bridge.service.send_signal(signal.SIGCONT)
    told = [(answer.status, answer.body) for answer in answers]
    assert all(status == 503 and b"service_silent" in body for status, body in told), told
    while bridge.ask("GET", MAIN).status == 503:
        time.sleep(0.1)


def ids(bridge):
    return [track["id"] for track in bridge.ask("GET", MAIN + "/queue").json["tracks"]]


def test_the_queue_keeps_what_plays(bridge):
    bridge.ask("POST", MAIN + "/queue/load", {**SONGS, "index": 2})
    one, two, three, four, five = ids(bridge)
    session = bridge.state()["session"]
    bridge.ask("POST", MAIN + "/queue/move", {"session": session, "from": 0, "count": 2, "to": 3})
    assert ids(bridge) == [three, four, five, one, two]
    assert (bridge.state()["track"]["id"], bridge.state()["state"]) == (three, "playing")
    bridge.ask("POST", MAIN + "/queue/remove", {"index": 0})
    assert ids(bridge) == [four, five, one, two] and bridge.state()["track"]["id"] == four
    bridge.ask("POST", MAIN + "/queue/insert", {"nodes": [{"source_id": 1, "id": three}]})
    assert ids(bridge) == [four, three, five, one, two]
    assert bridge.ask("POST", MAIN + "/volume", {"level": 30}).status == 204
    assert (bridge.state()["volume"], bridge.state("the%20den")["state"]) == (30, "idle")


def follow(bridge):
    client = bridge.connect()
    client.sendall(get(MAIN + "/events"))
    return client, client.makefile("r", encoding="utf-8")


def wait_for(lines, wanted):
    for line in lines:
        if line.startswith("data: ") and wanted(json.loads(line[6:])):
            return
    raise AssertionError("the stream has ended")


def test_who_comes_while_descriptors_are_short_is_served(bridge):
    before = resource.prlimit(bridge.web.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(bridge.web.pid, resource.RLIMIT_NOFILE, (0, before[1]))
    with bridge.connect() as client:
        client.settimeout(0.3)
        client.sendall(b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n")
        with pytest.raises(TimeoutError):
            client.recv(1)
        resource.prlimit(bridge.web.pid, resource.RLIMIT_NOFILE, before)
        client.settimeout(20)
        assert client.recv(12).startswith(b"HTTP/1.1 200")


def test_many_pages_and_clients_that_go_wrong(bridge):
    silent = [bridge.connect() for _ in range(40)]
    for client in silent[:20]:
        client.sendall(b"POST /api/v1/players/main/play HTTP/1.1\r\nHost: lo")
    deaf, _ = follow(bridge)
    deaf.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
    pages = [follow(bridge) for _ in range(100)]
    bridge.ask("POST", MAIN + "/pause")
    for level in range(1, 60):
        assert bridge.ask("POST", MAIN + "/volume", {"level": level}).status == 204
    for _, lines in pages:
        wait_for(lines, lambda state: state.get("volume") == 59 and state["state"] == "paused")

    def switches():  # How often the bridge has waited.
        text = Path(f"/proc/{bridge.web.pid}/status").read_text()
        return int(text.split("voluntary_ctxt_switches:")[1].split()[0])

    def is_quiet():
        before = switches()
        time.sleep(0.5)
        return switches() - before <= 1

    assert any(is_quiet() for _ in range(40))
    bridge.end_service()
    for _, lines in pages:
        wait_for(lines, lambda state: state.get("available") is False)
    bridge.start_service()
    for _, lines in pages:
        wait_for(lines, lambda state: state.get("available") is True)
    for client in [deaf, *silent, *(page for page, _ in pages)]:
        client.close()
    assert bridge.state()["available"]
