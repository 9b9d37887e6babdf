"""vantrod as a process of its own, in a runtime directory of the test's own."""

import os
import signal
import struct
import subprocess
import wave
from collections.abc import Iterator
from pathlib import Path

import pytest

SONGS = 230


def make_song(file: Path, seconds: int, title: str) -> None:
    """A WAV file of silence with a title."""
    file.parent.mkdir(parents=True, exist_ok=True)
    with wave.open(str(file), "wb") as out:
        out.setparams((1, 1, 1000, 0, "NONE", ""))
        out.writeframes(b"\x80" * (1000 * seconds))
    text = title.encode() + b"\0" * (2 - len(title) % 2)
    info = b"INFOINAM" + struct.pack("<I", len(text)) + text
    whole = file.read_bytes() + b"LIST" + struct.pack("<I", len(info)) + info
    file.write_bytes(whole[:4] + struct.pack("<I", len(whole) - 8) + whole[8:])


class Service:
    def __init__(self, music: Path) -> None:
        self.music = music
        self.process: subprocess.Popen[str] | None = None

    def start(self, *arguments: str) -> None:
        self.process = subprocess.Popen(
            [os.environ["VANTROD"], "--audio", "clock", "--music", str(self.music)]
            + ["--player", "main", "--player", "kitchen", *arguments],
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
        assert self.process.stdout is not None
        for line in self.process.stdout:
            if line.startswith("vantrod: scanned"):
                return
        raise AssertionError(f"vantrod ended with {self.process.wait()}")

    def send(self, number: signal.Signals) -> None:
        assert self.process is not None
        self.process.send_signal(number)
        if number == signal.SIGSTOP:  # until its last thread stands, it may still answer
            os.waitid(os.P_PID, self.process.pid, os.WSTOPPED)

    def end(self) -> None:
        if self.process is not None:
            self.process.kill()
            self.process.communicate()
            self.process = None


@pytest.fixture(scope="session")
def music(tmp_path_factory: pytest.TempPathFactory) -> Path:
    directory = tmp_path_factory.mktemp("music")
    make_song(directory / "000.wav", 20, "One")
    data = (directory / "000.wav").read_bytes()
    for number in range(1, SONGS):
        (directory / f"{number:03}.wav").write_bytes(data)
    return directory


@pytest.fixture
def service(
    tmp_path: Path, music: Path, monkeypatch: pytest.MonkeyPatch
) -> Iterator[Service]:
    tmp_path.chmod(0o700)
    monkeypatch.setenv("XDG_RUNTIME_DIR", str(tmp_path))
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path / "state"))
    running = Service(music)
    running.start()
    yield running
    running.end()
