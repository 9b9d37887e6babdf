"""vantro-web with a vantrod of its own, and raw clients of it."""

import http.client
import json
import os
import signal
import socket
import subprocess
import wave
from pathlib import Path

import pytest

# A picture of one point.
PICTURE = bytes.fromhex(
    "89504e470d0a1a0a0000000d4948445200000001000000010802000000907753de0000000c49444154789c63f8cf"
    "c0000003010100c9fe92ef0000000049454e44ae426082"
)


class Bridge:
    """Both programs, each of which may be started again."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        for number in range(1, 6):
            file = folder / "music" / "Red" / "Way" / f"{number}.wav"
            file.parent.mkdir(parents=True, exist_ok=True)
            with wave.open(str(file), "wb") as out:
                out.setparams((1, 1, 1000, 0, "NONE", ""))
                out.writeframes(b"\x80" * 60_000)
        (file.parent / "cover.png").write_bytes(PICTURE)
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
        self.web, lines = self.run(
            os.environ["VANTRO_WEB"], "--port", "0", "--host", "music.example", until="ready"
        )
        self.code = "".join(filter(str.isdigit, lines[0]))
        self.port = int(lines[-1].rsplit(":", 1)[1].rstrip(")\n"))

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
