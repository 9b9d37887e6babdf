"""vantro-web with a vantrod of its own, and raw clients of it."""

import http.client
import json
import os
import signal
import socket
import subprocess
import wave
from collections.abc import Callable
from pathlib import Path

import pytest

# A picture of one point.
PICTURE = bytes.fromhex(
    "89504e470d0a1a0a0000000d4948445200000001000000010802000000907753de0000000c49444154789c63f8cf"
    "c0000003010100c9fe92ef0000000049454e44ae426082"
)


def make_album(music: Path) -> None:
    """Five songs of a minute, with a cover."""
    album = music / "Red" / "Way"
    album.mkdir(parents=True)
    for number in range(1, 6):
        with wave.open(str(album / f"{number}.wav"), "wb") as out:
            out.setparams((1, 1, 1000, 0, "NONE", ""))
            out.writeframes(b"\x80" * 60_000)
    (album / "cover.png").write_bytes(PICTURE)


class Bridge:
    """Both programs, each of which may be started again."""

    def __init__(self, folder: Path, make_music: Callable[[Path], None] = make_album) -> None:
        self.folder = folder
        make_music(folder / "music")
        (folder / "runtime").mkdir(mode=0o700)
        self.environment = {
            **os.environ,
            "XDG_RUNTIME_DIR": str(folder / "runtime"),
            "XDG_STATE_HOME": str(folder / "state"),
        }
        self.start_service()
        try:
            self.start_web()
        except Exception:
            self.end_service()
            raise

    def run(self, *command: str, until: str) -> tuple[subprocess.Popen[str], list[str]]:
        process = subprocess.Popen(
            command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
            env=self.environment,
        )
        lines = []
        for line in process.stdout:
            lines.append(line)
            if until in line:
                return process, lines
        raise AssertionError(f"{command[0]} ended with {process.wait()}")

    def start_service(self) -> None:
        self.service, _ = self.run(
            os.environ["VANTROD"], "--audio", "clock", "--music", str(self.folder / "music"),
            "--player", "main", "--player", "the den", until="scanned",
        )

    def start_web(self) -> None:
        # It needs more descriptors than this, and raises its own limit.
        self.web, lines = self.run(
            "prlimit", "--nofile=200:", os.environ["VANTRO_WEB"], "--port", "0", "--host",
            "music.example", until="ready",
        )
        self.code = "".join(filter(str.isdigit, lines[0]))
        self.port = int(lines[-1].rsplit(":", 1)[1].rstrip(")\n"))

    def stop_service(self) -> None:
        """Until its last thread stands, it may still answer."""
        self.service.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.service.pid, os.WSTOPPED)

    def end_service(self) -> None:
        self.service.kill()
        self.service.communicate()

    def end_web(self) -> None:
        self.web.send_signal(signal.SIGTERM)
        self.web.communicate()
        assert self.web.returncode == 0

    def connect(self) -> socket.socket:
        return socket.create_connection(("127.0.0.1", self.port), timeout=60)

    def raw(self, request: bytes) -> int:
        """Sends raw bytes. Returns the status; 0 if the connection is only closed."""
        with self.connect() as client:
            try:
                client.sendall(request)
                answer = client.recv(4096)
            except (ConnectionResetError, BrokenPipeError):
                return 0
            return int(answer.split()[1]) if answer else 0

    def ask(self, method: str, path: str, body: object = None, **headers: str) -> "Answer":
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        sent = {"Content-Type": "application/json"} if method == "POST" else {}
        sent.update({name.replace("_", "-"): value for name, value in headers.items()})
        text = body if isinstance(body, str) else json.dumps(body if body is not None else {})
        connection.request(method, path, text if method == "POST" else None, sent)
        answer = Answer(connection.getresponse())
        connection.close()
        return answer

    def state(self, player: str = "main") -> dict:
        return self.ask("GET", f"/api/v1/players/{player}").json


class Answer:
    def __init__(self, response: http.client.HTTPResponse) -> None:
        self.status = response.status
        self.headers = response.headers
        endless = self.headers["Content-Type"] == "text/event-stream"
        self.body = b"" if endless else response.read()
        json_type = self.headers["Content-Type"] == "application/json"
        self.json = json.loads(self.body) if json_type and self.body else None


@pytest.fixture(scope="module")
def bridge(tmp_path_factory: pytest.TempPathFactory):
    running = Bridge(tmp_path_factory.mktemp("web"))
    yield running
    running.end_web()
    running.end_service()


def pytest_terminal_summary(terminalreporter) -> None:
    """Names the tests that were skipped, as the other test programs do."""
    for report in terminalreporter.stats.get("skipped", []):
        print("[  SKIPPED ] " + report.nodeid.rsplit("/", 1)[-1])
