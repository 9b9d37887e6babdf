"""The page in a browser: its controls reach the player, and it shows what happens."""

import time

import pytest

import browser
from test_web import MAIN, SONGS, ids

pytestmark = pytest.mark.skipif(not browser.is_installed(), reason="no Chromium")

TEXT = "document.querySelector(arguments[0]).textContent"
OPENED = """[...document.querySelectorAll('#library-list .first')].some(name =>
  name.textContent === arguments[0] && !name.closest('.go').click())"""  # once it is there
SHOWN = "!document.querySelector(arguments[0]).hidden"
SECOND_ROW = '#queue-list [data-index="1"]'


@pytest.fixture(scope="module")
def page(bridge):
    running = browser.Browser(bridge.folder / "browser")
    yield running
    running.end()


@pytest.fixture(autouse=True)
def opened(bridge, page):
    bridge.ask("POST", MAIN + "/queue/load", {**SONGS, "play": False})
    page.show_as(1280, 800, "light")
    page.open(f"http://127.0.0.1:{bridge.port}/")
    page.until("document.querySelectorAll('#queue-list .first').length === 5")
    yield
    assert page.problems() == []


def wait_until(condition):
    deadline = time.monotonic() + 60
    while not (value := condition()):
        assert time.monotonic() < deadline
        time.sleep(0.02)
    return value


def test_playing(bridge, page):
    page.click("#toggle")
    page.until("document.querySelector('#toggle').ariaLabel === 'Pause'")
    page.until(TEXT + " !== '0:00'", "#elapsed")  # it moves
    page.click("#seek")  # in its middle
    wait_until(lambda: bridge.state()["position_ms"] >= 29_000)
    page.until(TEXT + " >= '0:29'", "#elapsed")
    page.click("#next")
    page.until("document.querySelector(arguments[0]).matches('.current')", SECOND_ROW)
    wait_until(lambda: bridge.state()["track"]["index"] == 1)
    page.until("document.querySelector('#art-image').naturalWidth > 0 && " + SHOWN, "#art-image")
    page.run("document.activeElement.blur()")
    page.press(" ")
    page.until("document.querySelector('#toggle').ariaLabel === 'Play'")
    assert bridge.state()["state"] == "paused"
    page.click("#repeat")
    page.click("#shuffle")
    page.until("document.querySelector('#shuffle').ariaPressed === 'true'")
    wait_until(lambda: (bridge.state()["repeat"], bridge.state()["shuffle"]) == ("all", True))
    bridge.ask("POST", MAIN + "/modes", {"repeat": "off", "shuffle": False})
    bridge.ask("POST", MAIN + "/volume", {"level": 33})  # what another client does is seen
    page.until("document.querySelector('#volume').value === '33'")


def test_the_queue(bridge, page):
    one, two, three, four, five = ids(bridge)
    page.drag(SECOND_ROW + " .grip", 2)
    wait_until(lambda: ids(bridge) == [one, three, four, two, five])
    page.until(TEXT + ".includes('place 4')", "#toast")
    page.run("document.querySelector(arguments[0]).focus()", SECOND_ROW + " .go")
    page.press("Alt", "Up")
    wait_until(lambda: ids(bridge) == [three, one, four, two, five])
    page.until("document.activeElement.closest('[data-index]')?.dataset.index === '0'")
    page.press("Delete")
    wait_until(lambda: ids(bridge) == [one, four, two, five])
    page.until(TEXT + " === '4 tracks'", "#queue-length")
    page.until("document.querySelectorAll('#queue-list .first').length === 4")
    page.click(SECOND_ROW + " .round")
    page.until("document.querySelector('#menu').open")
    page.click("#menu-items button:last-child")
    wait_until(lambda: ids(bridge) == [one, two, five])


def test_search_and_browsing(bridge, page):
    page.type("#search", "3")
    page.until(TEXT + " === 'Results'", "#library-heading")
    page.until("document.querySelector('#library-list .first')?.textContent === '3'")
    page.until("document.querySelector('#library-list .thumb img')?.naturalWidth > 0")
    page.type("#search", "nothing like this")
    page.until(SHOWN, "#library-empty")
    page.click("#back")
    page.until(TEXT + " === 'Library'", "#library-heading")
    page.until(OPENED, "Songs")
    page.until("document.querySelectorAll('#library-list .first').length === 5")
    page.click('#library-list [data-index="2"] .go')
    state = wait_until(lambda: (s := bridge.state())["state"] == "playing" and s)
    assert state["track"]["index"] == 2


def test_saved_playlists(bridge, page):
    for again in (False, True):  # the second one takes the place of the first
        page.click("#queue-save")
        if again:
            page.click("#saving-done")
            page.until(TEXT + " === 'Replace it'", "#saving-done")
        else:
            page.type("#saving-name", "Mornings")
        page.click("#saving-done")
        page.until("!document.querySelector('#saving').open")
    page.click("#queue-clear")
    wait_until(lambda: ids(bridge) == [])
    page.until(OPENED, "Saved playlists")
    page.until(OPENED, "Mornings")
    page.until("document.querySelectorAll('#library-list .first').length === 5")
    page.click("#play-all")
    wait_until(lambda: len(ids(bridge)) == 5)
    page.click("#list-more")
    page.click("#menu-items button:last-child")
    page.until(TEXT + ".includes('Mornings')", "#menu-title")
    page.click("#menu-items button:last-child")
    page.until(TEXT + " === 'Deleted.'", "#toast")
    page.until(TEXT + " === 'Library'", "#library-heading")
    assert bridge.ask("GET", "/api/v1/playlists").json["nodes"] == []


def test_two_players_and_a_service_that_dies(bridge, page):
    page.click('#player option[value="the den"]')
    page.until(SHOWN, "#queue-empty")
    bridge.ask("POST", "/api/v1/players/the%20den/queue/load", SONGS)
    page.until("document.querySelector('#toggle').ariaLabel === 'Pause'")
    assert bridge.state()["state"] != "playing"
    bridge.end_service()
    page.until(TEXT + ".includes('away')", "#banner")
    page.until("document.querySelector('#toggle').disabled")
    bridge.start_service()
    page.until("!" + SHOWN, "#banner")
    page.click('#player option[value="main"]')
    page.until("document.querySelector('#player').value === 'main'")
    page.click("#toggle")
    wait_until(lambda: bridge.state()["state"] == "playing")
    page.until("document.querySelector('#toggle').ariaLabel === 'Pause'")


# Every visible text and icon with too little contrast to its background.
FAINT = """
const light = text => {
  const [r, g, b] = text.match(/[\\d.]+/g).slice(0, 3).map(Number).map(v => v / 255)
    .map(v => v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const clear = colour => /, 0\\)|\\/ 0\\)/.test(colour);
const faint = [];
for (const element of document.querySelectorAll('body *')) {
  const icon = element.matches('svg.icon') && element.closest('button:enabled');
  const text = [...element.childNodes].some(n => n.nodeType === 3 && n.data.trim());
  if (!(icon || text) || !element.checkVisibility({checkVisibilityCSS: true}) ||
      !element.getClientRects().length || element.closest('.visually-hidden')) continue;
  let ground = element;
  while (ground && clear(getComputedStyle(ground).backgroundColor)) ground = ground.parentElement;
  const style = getComputedStyle(element);
  const [a, b] = [style.color, getComputedStyle(ground ?? document.body).backgroundColor].map(light);
  const ratio = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  if (ratio < (icon || parseFloat(style.fontSize) >= 24 ? 3 : 4.5))
    faint.push(`${element.id || element.className.baseVal || element.className}: ${ratio}`);
}
return faint;
"""
CONTROLS = {"button", "slider", "searchbox", "textbox", "combobox", "listitem"}
WHERE = """
const {activeElement: e} = document;
return [e.id || e.closest('[id]')?.id, getComputedStyle(e).outlineStyle !== 'none' ||
  getComputedStyle(e.parentElement).outlineStyle !== 'none'];
"""


@pytest.mark.parametrize("theme", ["light", "dark"])
@pytest.mark.parametrize("width, height", [(1280, 800), (900, 700), (390, 844)])
def test_it_can_be_read_and_reached(bridge, page, width, height, theme):
    page.show_as(width, height, theme, mobile=width == 390)
    views = ["now", "queue", "library"] if width == 390 else ["now"]
    for view in views:
        if width == 390:
            page.click(f'.tabs [data-view="{view}"]')
        page.until("document.querySelector(arguments[0]).getClientRects().length", f"#view-{view}")
        seen = page.accessible()
        assert [entry for entry in seen if entry[0] in CONTROLS - {"listitem"} and not entry[1]] == []
        assert {"banner", "main"} <= {role for role, _, _ in seen}
        levels = [level for role, _, level in seen if role == "heading"]
        assert levels[0] == 1 and set(levels) == {1, 2}
        assert page.run(FAINT) == []
        assert page.run("return document.documentElement.scrollWidth") <= width
    page.run("document.activeElement.blur()")
    if width == 1280:
        reached = []
        for _ in range(14):
            page.press("Tab")
            reached.append(page.run(WHERE))
        assert all(outlined for _, outlined in reached)
        expected = ["player", "seek", "shuffle", "toggle", "next", "repeat", "mute", "volume",
                    "search", "library-list", "queue-save", "queue-clear", "queue-list"]
        names = [name for name, _ in reached]
        assert [name for name in names if name in expected] == expected
