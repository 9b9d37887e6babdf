"""Chromium without a window, driven by chromedriver's protocol."""

import base64
import http.client
import json
import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"Tab": "\ue004", "Alt": "\ue00a", "End": "\ue010", "Home": "\ue011", "Up": "\ue013",
        "Delete": "\ue017"}


def is_installed() -> bool:
    return bool(shutil.which("chromium") and shutil.which("chromedriver"))


class Browser:
    def __init__(self, folder: Path) -> None:
        folder.mkdir()
        self.driver = subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            text=True, start_new_session=True,
            env={**os.environ, "HOME": str(folder), "TMPDIR": str(folder)},
        )
        ready = next(line for line in self.driver.stdout if "successfully on port" in line)
        self.port = int(ready.rsplit(" ", 1)[1].rstrip(".\n"))
        self.path = "/session"
        options = {"args": [
            "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
            "--disable-background-networking", "--no-first-run", "--mute-audio",
        ]}
        try:
            session = self.call("POST", "", {"capabilities": {"alwaysMatch": {
                "browserName": "chrome", "goog:chromeOptions": options,
                "goog:loggingPrefs": {"browser": "ALL"},
            }}})
        except Exception:
            self.end()
            raise
        self.path += "/" + session["sessionId"]

    def end(self) -> None:
        try:
            if self.path != "/session":
                self.call("DELETE", "")
        finally:
            os.killpg(self.driver.pid, signal.SIGKILL)
            self.driver.communicate()

    def call(self, method: str, path: str, body: object = None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        text = json.dumps({} if body is None else body) if method == "POST" else None
        connection.request(method, self.path + path, text)
        response = connection.getresponse()
        value = json.loads(response.read())["value"]
        connection.close()
        assert response.status == 200, (path, value)
        return value

    def protocol(self, command: str, **parameters):
        """A command of the browser itself."""
        return self.call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def open(self, url: str) -> None:
        self.call("POST", "/url", {"url": url})

    def run(self, script: str, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": arguments})

    def until(self, condition: str, *arguments):
        """Waits for a JavaScript expression to hold."""
        deadline = time.monotonic() + 30
        while not (value := self.run("return " + condition, *arguments)):
            if time.monotonic() > deadline:
                raise AssertionError(condition, arguments, self.run("return document.body.innerText"))
            time.sleep(0.02)
        return value

    def find(self, selector: str) -> str:
        found = self.call("POST", "/element", {"using": "css selector", "value": selector})
        return found[ELEMENT]

    def click(self, selector: str) -> None:
        self.call("POST", f"/element/{self.find(selector)}/click")

    def type(self, selector: str, text: str) -> None:
        self.call("POST", f"/element/{self.find(selector)}/value", {"text": text})

    def press(self, *keys: str) -> None:
        """Presses all of the keys, then releases them."""
        codes = [KEYS.get(key, key) for key in keys]
        actions = [{"type": "keyDown", "value": code} for code in codes]
        actions += [{"type": "keyUp", "value": code} for code in reversed(codes)]
        keyboard = {"type": "key", "id": "keyboard", "actions": actions}
        self.call("POST", "/actions", {"actions": [keyboard]})

    def drag(self, selector: str, rows: float) -> None:
        """Drags an element of a list, with the pointer."""
        move = {"type": "pointerMove", "x": 0, "y": 0, "origin": {ELEMENT: self.find(selector)}}
        down, up = {"type": "pointerDown", "button": 0}, {"type": "pointerUp", "button": 0}
        away = {"type": "pointerMove", "duration": 100, "x": 0, "y": int(60 * rows),
                "origin": "pointer"}
        actions = [move, down, away, {"type": "pause", "duration": 100}, up]
        pointer = {"type": "pointer", "id": "mouse", "actions": actions}
        self.call("POST", "/actions", {"actions": [pointer]})

    def show_as(self, width: int, height: int, theme: str, mobile: bool = False) -> None:
        self.protocol("Emulation.setDeviceMetricsOverride", width=width, height=height,
                      deviceScaleFactor=1, mobile=mobile)
        wishes = {"prefers-color-scheme": theme, "prefers-reduced-motion": "reduce"}
        features = [{"name": name, "value": value} for name, value in wishes.items()]
        self.protocol("Emulation.setEmulatedMedia", features=features)

    def accessible(self) -> list[tuple[str, str, int]]:
        """Role, name and level of all that a screen reader meets."""
        nodes = self.protocol("Accessibility.getFullAXTree")["nodes"]
        return [
            (node["role"]["value"], node.get("name", {}).get("value", "").strip(),
             next((p["value"]["value"] for p in node["properties"] if p["name"] == "level"), 0))
            for node in nodes if not node["ignored"]
        ]

    def problems(self) -> list[str]:
        """The messages of the console since the last call, without failed answers of the server."""
        entries = self.call("POST", "/se/log", {"type": "browser"})
        return [e["message"] for e in entries
                if e["level"] in ("SEVERE", "WARNING") and e["source"] != "network"]

    def picture(self) -> bytes:
        return base64.b64decode(self.call("GET", "/screenshot"))
