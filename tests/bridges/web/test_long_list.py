"""The page with 100,000 songs: it requests and keeps only the visible part of a list."""

import wave
from pathlib import Path

import pytest

import browser
from conftest import Bridge
from test_page import OPENED

pytestmark = pytest.mark.skipif(not browser.is_installed(), reason="no Chromium")

SONGS = 100_000
TRACKS_OF_A_SHEET = 99

# What is shown; null while a visible row has no text yet.
SHOWN = """(() => {
  const list = document.querySelector('#library-list');
  const edge = list.getBoundingClientRect();
  const rows = [...list.querySelectorAll('[data-index]')];
  const seen = rows.filter(row => {
    const {top, bottom} = row.getBoundingClientRect();
    return bottom > edge.top && top < edge.bottom;
  }).map(row => [Number(row.dataset.index), row.querySelector('.first')?.textContent ?? '']);
  const whole = seen.length > 0 && seen.every(([, name]) => name.startsWith('Song'));
  return whole ? {rows: rows.length, elements: document.querySelectorAll('*').length, seen} : null;
})()"""
REQUESTS = """
return performance.getEntriesByType('resource').map(entry => new URL(entry.name))
  .filter(url => url.pathname.endsWith('/browse'))
  .map(url => [Number(url.searchParams.get('offset')), Number(url.searchParams.get('count'))]);
"""
SCROLL = """
const list = document.querySelector('#library-list');
list.scrollTop = (list.scrollHeight - list.clientHeight) * arguments[0];
"""


def make_songs(folder: Path) -> None:
    """Makes files that cue sheets divide into songs, since so many files would take long."""
    folder.mkdir(parents=True)
    made = 0
    for number in range((SONGS - 1) // TRACKS_OF_A_SHEET + 1):
        with wave.open(str(folder / f"{number:04}.wav"), "wb") as out:
            out.setparams((1, 1, 1000, 0, "NONE", ""))
            out.writeframes(b"\x80" * 10_000)
        tracks = min(TRACKS_OF_A_SHEET, SONGS - made)
        lines = [f"TITLE Album\nFILE {number:04}.wav WAVE\n"]
        for track in range(tracks):
            frames = track * 7
            lines.append(f"TRACK {track + 1:02} AUDIO\nTITLE \"Song {made + track:06}\"\n"
                         f"INDEX 01 00:{frames // 75:02}:{frames % 75:02}\n")
        made += tracks
        (folder / f"{number:04}.cue").write_text("".join(lines))


@pytest.fixture(scope="module")
def bridge(tmp_path_factory: pytest.TempPathFactory):
    running = Bridge(tmp_path_factory.mktemp("long"), make_songs)
    yield running
    running.end_web()
    running.end_service()


@pytest.fixture(scope="module")
def page(bridge):
    running = browser.Browser(bridge.folder / "browser")
    running.show_as(390, 844, "light", mobile=True)
    running.open(f"http://127.0.0.1:{bridge.port}/")
    running.click('.tabs [data-view="library"]')
    running.until(OPENED, "Songs")
    running.until("document.querySelector('#library-list [aria-setsize=\"100000\"]')")
    yield running
    running.end()


def settled(page) -> dict:
    """Returns the visible entries, once each of them has its text."""
    return page.until(SHOWN)


def test_a_list_holds_what_is_seen_of_it(page):
    for part in (0, 0.25, 0.5, 0.999, 1, 0.1):
        page.run(SCROLL, part)
        page.until("Math.abs(arguments[0] * 100000 - document.querySelector("
                   "'#library-list [data-index]')?.dataset.index) < 100", part)
        shown = settled(page)
        assert shown["rows"] < 40 and shown["elements"] < 1000
        assert len(shown["seen"]) >= 8
        assert shown["seen"] == [[index, f"Song {index:06}"] for index, _ in shown["seen"]]
    requests = page.run(REQUESTS)
    assert {count for _, count in requests} == {100}
    assert len(requests) <= 20


def test_keys_reach_both_ends(page):
    settled(page)
    page.run("document.querySelector('#library-list [data-index] .go').focus()")
    for key, index in (("End", SONGS - 1), ("Home", 0)):
        page.press(key)
        page.until("document.activeElement.closest('[data-index]')?.dataset.index == arguments[0]",
                   index)
        page.until("document.activeElement.querySelector('.first')?.textContent === arguments[0]",
                   f"Song {index:06}")
