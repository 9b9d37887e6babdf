"""Examples that need more than the package."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import Service, make_song
from vantro import Player


def test_the_cover_is_drawn(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    image = pytest.importorskip("PIL.Image")
    tmp_path.chmod(0o700)
    monkeypatch.setenv("XDG_RUNTIME_DIR", str(tmp_path))
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path / "state"))
    make_song(tmp_path / "music/one.wav", 20, "One")
    picture = image.new("RGB", (2, 4), (255, 0, 0))
    picture.paste((0, 0, 255), (0, 0, 2, 1))
    picture.save(tmp_path / "music/cover.png")
    example = Path(os.environ["VANTRO_SOURCE"]) / "examples/cover_to_terminal.py"
    command = [sys.executable, str(example), "main", "2"]
    service = Service(tmp_path / "music")
    service.start()
    try:
        assert subprocess.run(command, capture_output=True).returncode == 1
        with Player() as player:
            player.create_session(1, "songs")
        shown = subprocess.run(command, capture_output=True, check=True, text=True)
    finally:
        service.end()
    red, blue = "255;0;0", "0;0;255"
    first, second = (f"\033[38;2;{up};48;2;{red}m\u2580" * 2 for up in (blue, red))
    assert shown.stdout == f"{first}\033[0m\n{second}\033[0m\n"
