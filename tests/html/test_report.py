"""The page of `callorv call --report` in a headless Chromium. scripts/test-html runs it with what it needs."""
import base64
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from browser import Browser

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from support import COMMAND, DICTIONARY, Server

SHOTS = os.environ.get("CALLORV_SCREENSHOTS")    # a directory to keep pictures in
LIGHT, DARK = ("light", "rgb(255, 255, 255)", "rgb(28, 35, 48)"), ("dark", "rgb(20, 24, 31)", "rgb(228, 232, 239)")


class ReportPageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = cls.enterClassContext(tempfile.TemporaryDirectory())
        pathlib.Path(cls.dir, "dictionary.xml").write_text(DICTIONARY, encoding="latin-1")
        subprocess.run([COMMAND, "key", "make", "--user-key", "K", "-o", "user.key"], cwd=cls.dir, check=True)
        here = os.getcwd()
        os.chdir(cls.dir)
        try:
            with Server("--dictionary", "dictionary.xml", "--echo", "--quiet", "--delay", 2, "--fault",
                        "reject:7@5") as server:
                base = [COMMAND, "call", "--dictionary", "dictionary.xml", "--key-file", "user.key", "--server",
                        f"127.0.0.1:{server.port}", "1201", "Quote", "code=<i>secret</i>"]
                def status(*args):
                    return subprocess.run([*base, *args], stdout=subprocess.DEVNULL, check=False).returncode

                cls.open_loop = status("--rate", "200", "--duration", "2500ms", "--report", "open.html")
                cls.closed_loop = status("--repeat", "1", "--report", "one.html")
        finally:
            os.chdir(here)
        cls.browser = cls.enterClassContext(Browser(1000, 2600))

    def tearDown(self):
        self.assertEqual(self.browser.complaints(), [])

    def open(self, name, scheme):
        self.browser.call("POST", "/goog/cdp/execute", {"cmd": "Emulation.setEmulatedMedia", "params": {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]}})
        self.browser.open(f"file://{self.dir}/{name}")
        if SHOTS:
            picture = base64.b64decode(self.browser.call("GET", "/screenshot"))
            pathlib.Path(SHOTS, f"{name}-{scheme}.png").write_bytes(picture)

    def texts(self, css):
        return self.browser.script("return [...document.querySelectorAll(arguments[0])].map(e => e.textContent)", css)

    def test_what_it_shows(self):
        self.assertEqual((self.open_loop, self.closed_loop), (1, 0))    # one in twenty is rejected
        for scheme, back, text in LIGHT, DARK:
            with self.subTest(scheme):
                self.open("open.html", scheme)
                colours = self.browser.script("const s = getComputedStyle(document.body);"
                                              "return [s.backgroundColor, s.color]")
                self.assertEqual(colours, [back, text])
                self.assertEqual(self.texts("h2"), ["Latency over time", "Calls a second", "Percentiles", "Histogram",
                                                    "Errors"])
                boxes = self.browser.script("return [...document.querySelectorAll('svg')].map(e => {"
                                            "const b = e.getBoundingClientRect(); return [b.width, b.height]})")
                self.assertEqual(len(boxes), 4)
                self.assertTrue(all(width > 600 and height > 200 for width, height in boxes), boxes)
                # Every line and bar lies inside its chart, and each point is drawn in the colour of its line.
                outside = self.browser.script("""return [...document.querySelectorAll('svg > *')].filter(e => {
                    const b = e.getBoundingClientRect(), s = e.ownerSVGElement.getBoundingClientRect();
                    return b.left < s.left - 1 || b.right > s.right + 1 || b.top < s.top - 1 || b.bottom > s.bottom + 1;
                    }).map(e => e.outerHTML)""")
                self.assertEqual(outside, [])
                same = self.browser.script("return [...document.querySelectorAll('circle')].every(e => "
                    "getComputedStyle(e).fill === getComputedStyle(e.parentNode.querySelector('polyline.' + "
                    "e.classList[0])).stroke)")
                self.assertTrue(same)
                self.assertEqual(self.texts("dt"), ["calls", "calls a second", "wanted", "50 %", "99 %", "99.9 %",
                                                    "longest", "failed"])
                values = self.texts("dd")
                self.assertEqual((values[0], values[2]), ("500", "200"))
                self.assertEqual(self.texts("td")[-3:], [values[-1], "7", "rejected on request of --fault"])

    def test_nothing_comes_from_elsewhere(self):
        self.open("open.html", "light")
        self.assertEqual(self.browser.script("return performance.getEntriesByType('resource').map(e => e.name)"), [])
        self.assertEqual(self.browser.script("return document.scripts.length"), 0)
        line, = self.texts("code")
        self.assertRegex(line, r"\Acallorv call --dictionary dictionary.xml --key-file user.key --server 127.0.0.1:\d+ "
                               r"--duration 2500ms --rate 200 --report open.html 1201 Quote code=\u2026\Z")

    def test_one_call_is_enough(self):
        self.open("one.html", "dark")
        self.assertEqual(self.texts("dd")[0], "1")
        self.assertEqual(len(self.texts("svg")), 4)
        self.assertEqual(self.texts("h2 + p")[-1], "None.")


if __name__ == "__main__":
    unittest.main()
