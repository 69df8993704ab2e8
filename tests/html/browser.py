"""A headless Chromium, driven by the WebDriver protocol: nothing but chromedriver is needed."""
import json
import re
import subprocess
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"    # the protocol's name for a reference to an element
KEYS = {"down": "\ue015", "up": "\ue013", "enter": "\ue007", "escape": "\ue00c"}


class Browser:
    """One window, closed at the end of the `with` block."""

    def __init__(self, width=1280, height=800):
        self.size = f"--window-size={width},{height}"

    def __enter__(self):
        self.base = f"http://127.0.0.1:{self.start_driver()}/session"
        options = {"args": ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", self.size]}
        session = self.call("POST", "", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}}})
        self.base += "/" + session["sessionId"]
        return self

    def start_driver(self):
        """The port that it listens on."""
        for _ in range(5):    # it ends when the port that is free for IPv6 is taken for IPv4
            self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
            for line in self.driver.stdout:
                if match := re.search(r"started successfully on port (\d+)", line):
                    return match[1]
            self.driver.communicate()
        raise RuntimeError("chromedriver does not start")

    def __exit__(self, *_):
        self.call("DELETE", "")
        self.driver.terminate()
        self.driver.communicate()

    def call(self, method, path, data=None):
        body = None if method == "GET" else json.dumps(data or {}).encode()
        request = urllib.request.Request(self.base + path, body, {"Content-Type": "application/json"}, method=method)
        with urllib.request.urlopen(request, timeout=120) as answer:
            return json.load(answer)["value"]

    def open(self, url):
        self.call("POST", "/url", {"url": url})

    def url(self):
        return self.call("GET", "/url")

    def back(self):
        self.call("POST", "/back")

    def script(self, text, *args):
        """Runs a function's body and returns its result."""
        return self.call("POST", "/execute/sync", {"script": text, "args": args})

    def wait_for(self, text):
        """Waits, at most ten seconds, until an expression is true."""
        self.call("POST", "/timeouts", {"script": 10000})
        script = f"(function look() {{ ({text}) ? done(1) : requestAnimationFrame(look); }})();"
        self.call("POST", "/execute/async", {"script": "const done = arguments[0];" + script, "args": []})

    def find(self, css):
        return self.call("POST", "/element", {"using": "css selector", "value": css})[ELEMENT]

    def type(self, css, text):
        self.call("POST", f"/element/{self.find(css)}/value", {"text": text})

    def click(self, css):
        self.call("POST", f"/element/{self.find(css)}/click")

    def keys(self, text):
        """Strokes for whatever has the focus."""
        actions = [{"type": kind, "value": c} for c in text for kind in ("keyDown", "keyUp")]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def complaints(self):
        """What the page wrote on its console since the last time."""
        return [entry["message"] for entry in self.call("POST", "/se/log", {"type": "browser"})]

    def allow_clipboard(self):
        for name in ("clipboard-read", "clipboard-write"):
            self.call("POST", "/permissions", {"descriptor": {"name": name}, "state": "granted"})
