"""The page of `callorv dict html` in a headless Chromium. scripts/test-html runs it with what it needs."""
import base64
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from browser import KEYS, Browser

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from support import Server, run

COMMAND = os.environ["CALLORV"]
SHOTS = os.environ.get("CALLORV_SCREENSHOTS")    # a directory to keep pictures in

SMALL = """<?xml version='1.0' encoding='ISO-8859-1' ?>
<msg_dictionary>
  <msg no='3' name='Quote' ver='1.0' hash='16'>
    <tag no='1' name='code' type='string'/> <tag no='2' name='price' type='double'/>
    <tag no='3' name='open' type='bool'/>   <tag no='4' name='rows' type='m4' array='Y'/>
    <tag no='5' name='it is' type='date'/>  <tag no='6' name='price' type='integer' array='Y'/>
    <tag no='7' name='lost' type='m99'/>    <tag no='8' name='self' type='m3'/>
  </msg>
  <msg no='4' name='QuoteRow'><tag no='1' name='time' type='date'/><tag no='2' name='volume' type='integer'/></msg>
  <msg no='30' name='Unquoted'><tag no='1' name='Quote' type='string'/><tag no='2' name='row' type='m4'/></msg>
  <msg no='5' name='&lt;b&gt;&lt;script&gt;alert(1)&lt;/script&gt;'><tag no='1' name='&lt;i&gt;' type='string'/></msg>
</msg_dictionary>
"""
QUOTE_LINE = ("callorv call --config callorv.cfg SERVICE 3 code=TEXT price=0.0 open=true 'rows[0].time=20260131' "
              "'rows[0].volume=0' 5=20260131 '6[0]=0' self.code=TEXT self.price=0.0 self.open=true self.5=20260131 "
              "'self.6[0]=0'")


def big():
    """9,999 messages of 15 tags each."""
    lines = ["<msg_dictionary>"]
    for i in range(1, 10000):
        tags = "".join(f"<tag no='{t}' name='field{t}Of{i}' type='{'m' + str(i % 9999 + 1) if t == 15 else 'string'}'/>"
                       for t in range(1, 16))
        lines.append(f"<msg no='{i}' name='Message{i}'>{tags}</msg>")
    return "\n".join(lines) + "</msg_dictionary>"


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = cls.enterClassContext(tempfile.TemporaryDirectory())
        for name, text in (("small", SMALL), ("big", big())):
            xml = pathlib.Path(cls.dir, name + ".xml")
            xml.write_text(text, encoding="latin-1")
            subprocess.run([COMMAND, "dict", "html", xml, "-o", xml.with_suffix(".html")], check=True)
        cls.browser = cls.enterClassContext(Browser())

    def setUp(self):
        self.open("small.html")

    def tearDown(self):
        self.assertEqual(self.browser.complaints(), [])

    def open(self, name):
        self.browser.open("about:blank")    # a change of the part behind # alone would load nothing
        self.browser.open(f"file://{self.dir}/{name}")

    def search(self, text):
        self.browser.script("const q = document.getElementById('query'); q.value = ''; q.focus();")
        self.browser.type("#query", text)

    def results(self):
        return self.browser.script("return [...document.querySelectorAll('#results li')].map(e => e.textContent)")

    def picked(self):
        return self.browser.script(
            "return [...document.querySelectorAll('#results [aria-selected=true]')].map(e => e.textContent)")

    def text(self, css):
        return self.browser.script("const e = document.querySelector(arguments[0]); return e && e.textContent", css)

    def count(self):
        return self.text("#count")

    def tags(self):
        return self.browser.script("return [...document.querySelectorAll('tbody tr')].map("
                                   "r => [...r.cells].map(c => c.textContent).join('|'))")

    def shot(self, name):
        if SHOTS:
            pathlib.Path(SHOTS, name).write_bytes(base64.b64decode(self.browser.call("GET", "/screenshot")))

    def test_it_opens_with_every_message(self):
        self.assertEqual(self.count(), "4 messages")
        self.assertEqual(self.results(), ["3Quote", "4QuoteRow", "5<b><script>alert(1)</script>", "30Unquoted"])
        self.assertEqual(self.browser.script("return document.activeElement.id"), "query")

    def test_the_best_fit_comes_first(self):
        self.search("quote")
        self.assertEqual(self.results(), ["3Quote", "Quote tag 1 of Unquoted 30", "4QuoteRow", "30Unquoted"])
        self.assertEqual(self.picked(), ["3Quote"])
        self.assertEqual(self.text("h2"), "Quote 3")
        self.assertEqual(self.browser.script("return document.querySelector('#results mark').textContent"), "Quote")
        self.search("ROW")
        self.assertEqual(self.results(), ["row tag 2 of Unquoted 30", "rows tag 4 of Quote 3", "4QuoteRow"])
        self.search("30")
        self.assertEqual(self.results(), ["30Unquoted"])
        self.search("nothing like it")
        self.assertEqual((self.results(), self.count()), ([], "0 found"))

    def test_several_words_narrow_it_down(self):
        self.search("quote price")
        self.assertEqual(self.results(), ["price tag 2 of Quote 3", "price tag 6 of Quote 3"])
        self.search("3 code")
        self.assertEqual(self.results(), ["code tag 1 of Quote 3"])

    def test_a_message_is_shown(self):
        self.search("quote")
        self.assertEqual(self.tags(), [
            "1|code|string|", "2|price|double|", "3|open|bool|", "4|rows|QuoteRow 4|several", "5|it is|date|",
            "6|price|integer|several", "7|lost|message 99, not defined|", "8|self|Quote 3|"])
        self.assertEqual(self.text(".facts"), "version 1.0, 8 tags, hash 16")
        self.open("small.html#5")
        self.assertEqual(self.text(".facts"), "1 tag, hash 128")
        self.shot("message.png")

    def test_the_keyboard_is_enough(self):
        self.browser.script("document.activeElement.blur()")
        self.browser.keys("/quo")
        self.assertEqual(self.browser.script("return document.getElementById('query').value"), "quo")
        self.browser.keys(KEYS["down"] * 3)
        self.assertEqual(self.picked(), ["30Unquoted"])
        self.assertEqual(self.text("h2"), "Unquoted 30")
        self.browser.keys(KEYS["up"])
        self.assertEqual(self.picked(), ["Quote tag 1 of Unquoted 30"])
        self.assertEqual(self.text("tr.found"), "1Quotestring")
        self.browser.keys(KEYS["enter"])
        self.browser.wait_for("location.hash === '#30.1'")
        self.browser.keys(KEYS["down"] * 9)
        self.assertEqual(self.picked(), ["30Unquoted"])
        self.browser.keys(KEYS["escape"])
        self.assertEqual(self.browser.script("return document.getElementById('query').value"), "")
        self.assertEqual(self.count(), "4 messages")

    def test_links_lead_both_ways(self):
        self.open("small.html#3")
        self.browser.click("td a[href='#4']")
        self.browser.wait_for("document.querySelector('h2').textContent === 'QuoteRow 4'")
        users = "return [...document.querySelectorAll('#users li')].map(e => e.textContent)"
        self.assertEqual(self.browser.script(users), ["Quote.rows 3.4", "Unquoted.row 30.2"])
        self.browser.click("#users a[href='#30.2']")
        self.browser.wait_for("document.querySelector('h2').textContent === 'Unquoted 30'")
        self.assertEqual(self.text("tr.found"), "2rowQuoteRow 4")
        self.browser.back()
        self.browser.wait_for("document.querySelector('h2').textContent === 'QuoteRow 4'")

    def test_a_link_to_a_tag_opens_it(self):
        self.open("small.html#3.4")
        self.assertEqual((self.text("h2"), self.text("tr.found")), ("Quote 3", "4rowsQuoteRow 4several"))
        self.assertIsNone(self.text(".missing"))
        self.open("small.html#3.77")
        self.assertEqual((self.text("h2"), self.text(".missing")), ("Quote 3", "Message 3 has no tag 77."))

    def test_an_address_without_a_message_says_so(self):
        for address, number in (("9999", "9999"), ("77.1", "77"), ("Quote", "Quote"), ("0x3", "0x3"),
                                ("%3Cb%3E", "<b>"), ("%", "%")):
            with self.subTest(address=address):
                self.open("small.html#" + address)
                self.assertEqual(self.text("#message"), f"There is no message {number} in this dictionary.")
                self.assertEqual((self.text("h2"), self.picked(), self.count()), (None, [], "4 messages"))
        self.open("small.html")
        self.assertTrue(self.text("#message").startswith("Type a part of a name"))

    def test_the_list_follows_the_address(self):
        self.open("small.html#30")
        self.assertEqual(self.picked(), ["30Unquoted"])
        self.browser.click("td a[href='#4']")
        self.browser.wait_for("document.querySelector('h2').textContent === 'QuoteRow 4'")
        self.assertEqual(self.picked(), ["4QuoteRow"])
        self.browser.script("location.hash = '#9999'")
        self.browser.wait_for("document.querySelector('h2') === null")
        self.assertEqual(self.picked(), [])
        self.browser.back()
        self.browser.wait_for("document.querySelector('h2') !== null")
        self.assertEqual(self.picked(), ["4QuoteRow"])
        self.browser.back()
        self.browser.wait_for("document.querySelector('h2').textContent === 'Unquoted 30'")
        self.assertEqual(self.picked(), ["30Unquoted"])
        # a list that has the message, or its tag, stays; another gives way
        self.search("quote")
        self.browser.script("location.hash = '#30.1'")
        self.browser.wait_for("document.querySelector('tr.found') !== null")
        self.assertEqual((self.picked(), self.count()), (["Quote tag 1 of Unquoted 30"], "4 found"))
        self.browser.script("location.hash = '#5'")
        self.browser.wait_for("document.querySelector('h2').textContent.endsWith(' 5')")
        self.assertEqual((self.picked(), self.count()), (["5<b><script>alert(1)</script>"], "4 messages"))
        self.browser.keys(KEYS["down"])
        self.assertEqual(self.picked(), ["30Unquoted"])
        # beyond what the list shows
        self.open("big.html#4711.3")
        self.assertEqual(self.picked(), ["field3Of4711 tag 3 of Message4711 4711"])
        self.assertEqual(self.text("tr.found"), "3field3Of4711string")

    def test_the_call_line_is_copied(self):
        self.open("small.html#3")
        self.assertEqual(self.text("#line"), QUOTE_LINE)
        self.browser.allow_clipboard()
        self.browser.click("#copy")
        self.browser.wait_for("document.getElementById('copy').textContent === 'Copied'")
        copied = self.browser.script("return navigator.clipboard.readText()")
        self.assertEqual(copied, QUOTE_LINE)

    def test_the_call_line_calls(self):
        folder = pathlib.Path(self.dir)
        run("key", "make", "--user-key", "KEY", "-o", folder / "user.key", "--force")
        with Server("--dictionary", folder / "small.xml", "--echo") as server:
            folder.joinpath("callorv.cfg").write_text(
                f"msg_dic=small.xml\nkey_file=user.key\nserver=127.0.0.1 {server.port}\n")
            self.open("small.html#3")
            line = self.text("#line").replace("SERVICE", "1201")
            path = os.path.dirname(COMMAND) + ":" + os.environ["PATH"]
            result = subprocess.run(["sh", "-c", line], cwd=folder, env={**os.environ, "PATH": path},
                                    capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("[4](rows) SUBMSG(4) row 0\n", result.stdout)
        self.assertIn("[5](it is) 20260131\n", result.stdout)

    def test_the_call_line_takes_service_and_configuration(self):
        self.open("small.html#4")
        self.browser.type("#service", "1201")
        self.browser.script("document.getElementById('config').value = ''")
        self.browser.type("#config", "my shop's.cfg")
        line = "callorv call --config 'my shop'\\''s.cfg' 1201 4 time=20260131 volume=0"
        self.assertEqual(self.text("#line"), line)
        self.open("small.html#4")    # they are kept
        self.assertEqual(self.text("#line"), line)
        self.browser.script("localStorage.clear()")

    def test_names_are_text_and_nothing_else(self):
        self.open("small.html#5")
        self.assertEqual(self.text("h2"), "<b><script>alert(1)</script> 5")
        self.assertEqual(self.tags(), ["1|<i>|string|"])
        self.assertEqual(self.text("#line"), "callorv call --config callorv.cfg SERVICE 5 1=TEXT")

    def test_9999_messages_are_searched_while_one_types(self):
        self.open("big.html")
        self.assertEqual(self.count(), "9,999 messages, the first 200 shown")
        for text, count, first in (("4711", "16 found", "4711Message4711"),
                                   ("field7of98", "111 found", "field7Of98 tag 7 of Message98 98"),
                                   ("e", "159,984 found, the first 200 shown", None)):
            times = [self.browser.script(
                "const q = document.getElementById('query'); q.value = arguments[0]; const start = performance.now();"
                "q.dispatchEvent(new Event('input')); document.body.offsetHeight;"
                "return performance.now() - start", text) for _ in range(5)]
            with self.subTest(text):
                self.assertLess(min(times), 250)    # milliseconds; other programs may take the processor now and then
                self.assertEqual(self.count(), count)
                if first:
                    self.assertEqual(self.results()[0], first)
        self.search("message9998")
        self.assertEqual(self.text("h2"), "Message9998 9998")
        self.assertEqual(self.text("#users"), "Message9997.field15Of9997 9997.15")
        self.shot("big.png")


if __name__ == "__main__":
    unittest.main()
