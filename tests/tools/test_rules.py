"""callorv serve --rules: which request gets which reply."""
import json
import math
import os
import re
import threading
import unittest

import jsonschema

import schemas
from support import DICTIONARY, Reply, Server, ToolTest, message, packet, read_packet, run


SCHEMA = jsonschema.Draft202012Validator(json.loads((schemas.FOLDER / "rules.json").read_text(encoding="utf-8")))
REQUEST = message(3, "<t1><![CDATA[ABC]]></t1><t2>2.5</t2><t3>true</t3><t4><t2>1</t2></t4><t4><t2>-7.25</t2></t4>"
                     "<t5>20260131</t5><t6>-42</t6><t7>10</t7><t7>20</t7><t8><t3><![CDATA[sub]]></t3></t8>")
KEY = "USERKEY1"


def rejection(code, text, service=1201):
    return message(10, f"<t6>{code}</t6><t7><![CDATA[{text}]]></t7><t8>{service}</t8>")


def mt19937_64(seed):
    """The standard's generator of 64 bits, as its authors publish it."""
    mask = (1 << 64) - 1
    state = [seed & mask]
    for i in range(1, 312):
        state.append((6364136223846793005 * (state[-1] ^ (state[-1] >> 62)) + i) & mask)
    while True:
        for i in range(312):
            x = (state[i] & 0xFFFFFFFF80000000) | (state[(i + 1) % 312] & 0x7FFFFFFF)
            state[i] = state[(i + 156) % 312] ^ (x >> 1) ^ (0xB5026F5AA96619E9 if x & 1 else 0)
        for x in state:
            x ^= (x >> 29) & 0x5555555555555555
            x ^= (x << 17) & 0x71D67FFFEDA60000
            x ^= (x << 37) & 0xFFF7EEE000000000
            yield x ^ (x >> 43)


class RulesTest(ToolTest):
    def setUp(self):
        super().setUp()
        os.mkdir(self.path("replies"))
        self.name = self.path("rules.json")

    def rules(self, *rules, **more):
        """Writes a file that its schema takes; servers that run have it at once."""
        value = {"rules": list(rules), **more}
        self.assertEqual([error.message for error in SCHEMA.iter_errors(value)], [])
        return self.write("rules.json", json.dumps(value))

    def serve(self, *args, folder=True):
        if not os.path.exists(self.name):
            self.rules()
        replies = ("--replies", self.path("replies")) if folder else ()
        return Server("--dictionary", self.dictionary, *replies, "--rules", self.name, *args)

    def reply_file(self, text, name="1201.xml"):
        self.write(f"replies/{name}", text)

    def said(self, server):
        """What the log says beside calls and the summary, without the folder."""
        return [line[24:].replace(self.dir + "/", "") for line in server.log.splitlines()
                if "service=" not in line and not line.startswith("served ")]


class MatchTest(RulesTest):
    def fits(self, server, rule, request=REQUEST, **more):
        """Whether a rule takes a request."""
        self.rules({**rule, "reply": {"reject": 1, "text": "it fits"}}, {"reply": {"reject": 2}})
        body = server.ask(packet(request, **more)).body
        service = more.get("service", 1201)
        self.assertIn(body, (rejection(1, "it fits", service), message(10, f"<t6>2</t6><t8>{service}</t8>")))
        return b"it fits" in body

    def test_values(self):
        with self.serve("--quiet") as server:
            for path, yes, no in (
                    ("code", ["ABC", ["x", "ABC"], {"equal": "ABC"}, {"equal": ["x", "ABC"]}, {"pattern": "B"}, {"pattern": "^A.C$"}, {"pattern": "^[A-Z]{3}$"},
                              {"pattern": "x|B"}, {"pattern": ""}, {"pattern": "^ABC|x$"},
                              {"pattern": "^[]()[:alpha:]{\\d]+$"},
                              {"present": True}],
                     ["abc", "AB", "", 1, {"equal": "abc"}, True, ["x", "y"], {"pattern": "^B"}, {"pattern": "^$"}, {"pattern": "[0-9]"},
                      {"present": False}]),
                    ("1", ["ABC"], ["x"]),
                    ("price", [2.5, "2.5", [1, 2.5], {"from": 2.5, "to": 2.5}, {"from": 2}, {"to": 3},
                               {"from": -1e300, "to": 1e300}],
                     [2, "2.50", {"from": 2.6}, {"to": 2.4}, {"from": 3, "to": 4}]),
                    ("6", [-42, -42.0, "-42", {"from": -43, "to": -41}, {"pattern": "^-"}], [42, {"from": 0}]),
                    ("open", [True, "true"], [False, "false", 1]),
                    ("day", ["20260131", {"from": "20260101", "to": "20261231"}, {"from": "20260131"},
                             {"to": "20260131"}, {"pattern": "^2026"}],
                     ["20260130", {"from": "20260201"}, {"to": "20260130"}]),
                    ("rows[1].price", [-7.25, {"to": 0}], [1]),
                    ("rows[0].price", [1, {"present": True}], [-7.25]),
                    ("rows[2].price", [{"present": False}], [{"present": True}, {"from": -1e9}, 0]),
                    ("list", [10], [20]), ("list[1]", [20, {"from": 20}], [10]),
                    ("list[7]", [{"present": False}], [{"pattern": ".*"}]),
                    ("head.text", ["sub"], ["Sub"]),
                    ("names", [{"present": False}], [""])):
                for condition in yes:
                    with self.subTest(path=path, condition=condition):
                        self.assertTrue(self.fits(server, {"values": {path: condition}}))
                        self.assertTrue(self.fits(server, {"message": "Quote", "values": {path: condition}}))
                for condition in no:
                    with self.subTest(path=path, condition=condition):
                        self.assertFalse(self.fits(server, {"values": {path: condition}}))
            # all of them together; a tag that the request's message lacks is absent
            self.assertTrue(self.fits(server, {"values": {"code": "ABC", "6": -42}}))
            self.assertFalse(self.fits(server, {"values": {"code": "ABC", "6": 42}}))
            row = {"request": message(4, "<t3><![CDATA[x]]></t3>")}
            self.assertFalse(self.fits(server, {"values": {"text": "x", "code": "x"}}, message=4, **row))
            self.assertTrue(self.fits(server, {"values": {"text": "x", "code": {"present": False}}}, message=4, **row))

    def test_letters_beyond_ascii(self):
        request = message(3, "<t1><![CDATA[Z\u00fcrich]]></t1>").decode().encode("latin-1")
        with self.serve("--quiet") as server:
            for condition in ("Z\u00fcrich", {"pattern": "^Z.rich$"}, {"pattern": "[\u00e0-\u00ff]"}):
                self.assertTrue(self.fits(server, {"values": {"code": condition}}, request))
            self.assertFalse(self.fits(server, {"values": {"code": "Zurich"}}, request))

    def test_services_messages_and_user_keys(self):
        with self.serve("--quiet") as server:
            for service, yes, no in ((1201, [1201, 1202], [120]), ([1, 1201], [1, 1201], [2]),
                                     ({"from": 1200, "to": 1299}, [1200, 1201, 1299], [1199, 1300]),
                                     ({"from": 5000}, [5000, 9999], [4999]), ({"to": 7}, [7, 1], [8]),
                                     ([7, {"from": 10, "to": 20}], [7, 10, 15, 20], [8, 9, 21])):
                for number in (yes[1:] if isinstance(service, int) else no):
                    self.assertFalse(self.fits(server, {"service": service}, service=number), (service, number))
                for number in (yes[:1] if isinstance(service, int) else yes):
                    self.assertTrue(self.fits(server, {"service": service}, service=number), (service, number))
            for name in (3, "Quote"):
                self.assertTrue(self.fits(server, {"message": name}))
                self.assertFalse(self.fits(server, {"message": name}, message(4, ""), message=4))
            for keys, fits in (([KEY], True), (["a", KEY], True), (["a"], False), ([KEY + "2"], False)):
                self.assertEqual(self.fits(server, {"user_keys": keys}), fits)

    def test_the_first_that_fits_answers_whether_services_are_named_or_in_ranges(self):
        self.rules({"service": 5, "values": {"code": "x"}, "reply": {"reject": 1}},
                   {"service": {"from": 4, "to": 6}, "values": {"code": "ABC"}, "reply": {"reject": 2}},
                   {"service": [5, 9], "reply": {"reject": 3}}, {"values": {"6": -42}, "reply": {"reject": 4}},
                   {"service": 4, "reply": {"reject": 5}})
        with self.serve() as server:
            def code(service, tags):
                body = server.ask(packet(message(3, tags), service=service)).body
                return int(re.search(rb"<t6>(\d+)</t6>", body)[1])

            abc, number = "<t1><![CDATA[ABC]]></t1>", "<t6>-42</t6>"
            seen = [[code(service, tags) for tags in (abc, number, "")] for service in (3, 4, 5, 6, 9)]
        self.assertEqual(seen, [[404, 4, 404], [2, 4, 5], [2, 3, 3], [2, 4, 404], [3, 3, 3]])
        self.assertRegex(server.log, r"service=5 .* us=\d+ rule=3 result=rejected by its rule\n")

    def test_without_a_rule_everything_is_as_without_rules(self):
        self.reply_file("<msg no='3'><t1>file</t1></msg>")
        self.rules({"name": "no x", "values": {"code": "x"}, "reply": {"reject": 5, "text": "no x"}})
        asked = message(3, "<t1><![CDATA[x]]></t1>")
        with self.serve() as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t1><![CDATA[file]]></t1>"))
            self.assertEqual(server.ask(packet(REQUEST, service=7)).body, rejection(404, "no reply file 7.xml", 7))
            self.assertEqual(server.ask(packet(asked)).body, rejection(5, "no x"))
        self.assertRegex(server.log, r"us=\d+ rule=1 'no x' result=rejected by its rule\n")
        self.assertRegex(server.log, r"us=\d+ result=ok\n")
        with self.serve(folder=False) as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, rejection(404, "no rule fits"))
            self.assertEqual(server.ask(packet(asked)).body, rejection(5, "no x"))
        with self.serve("--echo", folder=False) as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)
            self.assertEqual(server.ask(packet(asked)).body, rejection(5, "no x"))

    def test_accepted_user_keys(self):
        self.rules({"reply": {"reject": 1}}, user_keys=["a", KEY])
        with self.serve() as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, message(10, "<t6>1</t6><t8>1201</t8>"))
            self.assertEqual(server.ask(packet(REQUEST, key=b"b".ljust(20))).body,
                             rejection(401, "the user key is not accepted"))
        self.assertRegex(server.log, r"user=\* .* result=rejected 401 the user key is not accepted\n")

    def test_a_hostile_text_takes_no_time(self):
        self.rules({"values": {"code": {"pattern": "^(a+)+$"}}, "reply": {"reject": 1}},
                   {"values": {"code": {"pattern": "(a|aa|b?)*(x+x+)+y"}}, "reply": {"reject": 2}})
        with self.serve("--echo", folder=False) as server:
            for text, code in (("a" * 60000, 1), ("a" * 60000 + "b", 3), ("ax" * 30000, 3), ("a" * 65537, 3)):
                self.assertEqual(server.ask(packet(message(3, f"<t1><![CDATA[{text}]]></t1>"))).message,
                                 10 if code < 3 else 3)


class ReplyTest(RulesTest):
    def test_files_messages_and_rejections(self):
        self.reply_file("<msg no='3'><t1>{{tag:1}} {{state:last}}</t1></msg>", "other.xml")
        self.reply_file("<msg no='10'><t6>17</t6></msg>", "no.xml")
        with self.serve() as server:
            for reply, body in (
                    ("other.xml", message(3, "<t1><![CDATA[ABC A<&>B]]></t1>")),
                    ({"file": "other.xml"}, message(3, "<t1><![CDATA[ABC A<&>B]]></t1>")),
                    ("no.xml", message(10, "<t6>17</t6>")),
                    ({"message": "Quote", "values": {}}, message(3, "")),
                    ({"message": 3, "values": {"code": "x", "6": 7, "price": None, "rows": [{"price": 1}, {"text": "y"}],
                                               "list": [1, 2], "open": False, "day": "20260101"}},
                     message(3, "<t1><![CDATA[x]]></t1><t3>false</t3><t4><t2>1.000000000000000e+00</t2></t4>"
                                "<t4><t3><![CDATA[y]]></t3></t4><t5>20260101</t5><t6>7</t6><t7>1</t7><t7>2</t7>")),
                    ({"message": 3, "values": {"code": "{{tag:code}}!", "count": "{{tag:6}}", "open": "{{tag:open}}",
                                               "price": "{{tag:rows[1].price}}", "day": "{{tag:day}}", "names": ["{{x}}"],
                                               "list": ["{{tag:list[1]}}", 5], "head": {"text": "{{state:last}}"}}},
                     message(3, "<t1><![CDATA[ABC!]]></t1><t2>-7.250000000000000e+00</t2><t3>true</t3><t5>20260131</t5>"
                                "<t6>-42</t6><t7>20</t7><t7>5</t7><t8><t3><![CDATA[A<&>B]]></t3></t8>"
                                "<t9><![CDATA[{{x}}]]></t9>")),
                    ({"message": 3, "values": {"code": "{{tag:names}}", "list": ["{{tag:list[9]}}", 5]}},
                     message(3, "<t7>5</t7>")),
                    ({"message": 3, "values": {"count": "{{tag:code}}"}},
                     rejection(500, "rules.json: /rules/0/reply/values/count: count: 'ABC' is no integer of 32 bits")),
                    ({"message": 3, "values": {"code": "{{tag:nosuch}}"}},
                     rejection(500, "rules.json: /rules/0/reply/values/code: message 3 has no tag 'nosuch'")),
                    ({"message": "REJECT", "values": {"SysCode": 3}}, message(10, "<t6>3</t6>")),
                    ({"reject": -5}, message(10, "<t6>-5</t6><t8>1201</t8>")),
                    ({"reject": 17, "text": "{{tag:code}} is {{state:last}}"}, rejection(17, "ABC is A<&>B"))):
                with self.subTest(reply=reply):
                    self.rules({"set": {"last": "A<&>B"}, "reply": reply})
                    self.assertEqual(server.ask(packet(REQUEST)).body.replace(self.dir.encode() + b"/", b""), body)

    def test_a_file_of_a_rule_that_changes_counts_at_once(self):
        self.reply_file("<msg no='3'><t1>one</t1></msg>", "a.xml")
        self.rules({"reply": "a.xml"})
        with self.serve() as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t1><![CDATA[one]]></t1>"))
            self.reply_file("<msg no='3'><t1>two</t1></msg>", "a.xml")
            self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t1><![CDATA[two]]></t1>"))
            os.remove(self.path("replies/a.xml"))
            self.assertEqual(server.ask(packet(REQUEST)).body, rejection(404, "no reply file a.xml"))

    def test_files_beside_the_rules_without_a_folder(self):
        self.write("a.xml", "<msg no='3'><t1>beside</t1></msg>")
        self.rules({"reply": "a.xml"})
        with self.serve(folder=False) as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t1><![CDATA[beside]]></t1>"))

    def test_replies_one_after_the_other(self):
        self.reply_file("<msg no='3'/>")
        three = [{"reject": 1}, {"reject": 2}, {"reject": 3}]
        with self.serve("--quiet") as server:
            for rule, seen in (({"reply": three}, [1, 2, 3, 3, 3, 3, 3]),
                               ({"reply": three, "then": "last"}, [1, 2, 3, 3, 3, 3, 3]),
                               ({"reply": three, "then": "repeat"}, [1, 2, 3, 1, 2, 3, 1]),
                               ({"reply": three, "then": "next"}, [1, 2, 3, 0, 0, 0, 0]),
                               ({"reply": three[:1], "then": "next"}, [1, 0, 0, 0, 0, 0, 0])):
                self.rules(rule)
                got = []
                for _ in range(7):
                    body = server.ask(packet(REQUEST)).body
                    got.append(0 if body == message(3, "") else int(re.search(rb"<t6>(\d+)</t6>", body)[1]))
                self.assertEqual(got, seen, rule)
            # a rule counts the calls that it answers only
            self.rules({"service": 1, "reply": three[:2]}, {"service": 2, "reply": three})
            codes = [re.search(rb"<t6>(\d+)", server.ask(packet(REQUEST, service=service)).body)[1]
                     for service in (1, 2, 2, 1, 2)]
            self.assertEqual(codes, [b"1", b"1", b"2", b"2", b"3"])


class StateTest(RulesTest):
    def test_what_one_request_sets_another_reads(self):
        self.reply_file("<msg no='3'><t1>{{state:item}}</t1></msg>", "show.xml")
        self.rules(
            {"service": 1, "set": {"cart": "open", "item": None}, "reply": {"message": "Quote", "values": {}}},
            {"service": 2, "when": {"state": {"cart": "open"}}, "set": {"item": "{{tag:code}}", "before": "{{state:item}}"},
             "reply": {"message": "Quote", "values": {"names": ["{{state:item}}", "{{state:before}}"]}}},
            {"service": 2, "when": {"state": {"cart": None}}, "reply": {"reject": 1, "text": "no cart"}},
            {"service": 3, "set": {"cart": "closed"}, "reply": "show.xml"},
            {"service": 2, "reply": {"reject": 2, "text": "cart {{state:cart}}, {{state:nosuch}}{{state:item}}"}})
        with self.serve() as server:
            def ask(service, code="x"):
                return server.ask(packet(message(3, f"<t1><![CDATA[{code}]]></t1>"), service=service)).body

            self.assertEqual(ask(2), rejection(1, "no cart", 2))
            ask(1)
            self.assertEqual(ask(2, "pen"), message(3, "<t9><![CDATA[pen]]></t9>"))
            self.assertEqual(ask(2, "ink"), message(3, "<t9><![CDATA[ink]]></t9><t9><![CDATA[pen]]></t9>"))
            self.assertEqual(ask(3), message(3, "<t1><![CDATA[ink]]></t1>"))
            self.assertEqual(ask(2), rejection(2, "cart closed, ink", 2))

    def test_between_reading_and_setting_no_other_call_comes(self):
        self.rules({"when": {"state": {"taken": None}}, "set": {"taken": "yes"}, "reply": {"reject": 1}},
                   {"reply": {"reject": 2}})
        codes = []
        with self.serve("--threads", 4, "--quiet") as server:
            def ask():
                for _ in range(25):
                    codes.append(server.ask(packet(REQUEST)).body)

            threads = [threading.Thread(target=ask) for _ in range(8)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(sum(b"<t6>1</t6>" in body for body in codes), 1)
        self.assertEqual(len(codes), 200)

    def test_a_value_that_cannot_be_said_sets_nothing(self):
        self.rules({"service": 1, "set": {"a": "new", "b": "{{tag:nosuch}}"}, "reply": {"reject": 1}},
                   {"service": 2, "reply": {"reject": 2, "text": "[{{state:a}}]"}})
        with self.serve() as server:
            self.assertEqual(server.ask(packet(REQUEST, service=1)).body,
                             rejection(500, "message 3 has no tag 'nosuch'", 1))
            self.assertEqual(server.ask(packet(REQUEST, service=2)).body, rejection(2, "[]", 2))

    def test_without_rules_a_state_is_no_placeholder(self):
        self.reply_file("<msg no='3'><t1>{{state:a}}</t1></msg>")
        with Server("--dictionary", self.dictionary, "--replies", self.path("replies")) as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t1><![CDATA[{{state:a}}]]></t1>"))


class DelayAndFaultTest(RulesTest):
    def expected(self, seed, rule, delay):
        """Milliseconds, as the man page says that they are drawn."""
        numbers = mt19937_64((rule << 32) + seed)

        def draw():
            return ((next(numbers) >> 11) + 1) / 2 ** 53

        def normal():
            radius = math.sqrt(-2 * math.log(draw()))
            return radius * math.cos(2 * math.pi * draw())

        while True:
            kind, value = (next(iter(delay.items()))) if isinstance(delay, dict) else ("fixed", delay)
            yield max(0, {"fixed": lambda: value, "uniform": lambda: value["from"] + (value["to"] - value["from"]) * draw(),
                          "normal": lambda: value["mean"] + value["deviation"] * normal(),
                          "lognormal": lambda: value["median"] * math.exp(value["sigma"] * normal()),
                          "exponential": lambda: -value["mean"] * math.log(draw())}[kind]())

    def test_delays_are_drawn_from_the_seed(self):
        delays = [20, {"fixed": 12.5}, {"uniform": {"from": 5, "to": 30}}, {"normal": {"mean": 15, "deviation": 8}},
                  {"lognormal": {"median": 10, "sigma": 0.5}}, {"exponential": {"mean": 10}}]
        self.rules(*({"service": i, "delay": delay, "reply": {"reject": 1}} for i, delay in enumerate(delays, 1)))
        with self.serve("--seed", 42) as server:
            socks = [server.connect() for _ in range(6 * len(delays))]
            for i, sock in enumerate(socks):    # they wait side by side
                sock.sendall(packet(REQUEST, service=1 + i // 6))
            for sock in socks:
                read_packet(sock)
                sock.close()
        for i, delay in enumerate(delays, 1):
            drawn = self.expected(42, i, delay)
            wanted = sorted(next(drawn) for _ in range(6))
            taken = sorted(int(micros) / 1000 for micros in re.findall(rf"service={i} .* us=(\d+) ", server.log))
            self.assertEqual(len(taken), 6)
            for least, real in zip(wanted, taken):
                self.assertGreaterEqual(real, least - 0.01, (delay, wanted, taken))
                self.assertLess(real, least + 5000)

    def test_faults_of_a_rule_hit_its_calls_only(self):
        self.rules({"service": 1, "fault": "close"}, {"service": 2, "fault": ["reject:9@50"]},
                   {"service": 3, "fault": ["delay:1", "truncate:20"], "reply": {"reject": 1}},
                   {"service": 4, "fault": "reset", "set": {"x": "y"}})
        with self.serve("--echo", folder=False) as server:
            self.assertEqual(server.ask_raw(packet(REQUEST, service=1)), b"")
            self.assertEqual([server.ask(packet(REQUEST, service=2)).message for _ in range(4)], [3, 10, 3, 10])
            self.assertEqual(len(server.ask_raw(packet(REQUEST, service=3))), 20)
            self.assertRaises(ConnectionResetError, server.ask_raw, packet(REQUEST, service=4))
            self.assertEqual(server.ask(packet(REQUEST, service=5)).body, REQUEST)
        for line in ("rule=1 result=fault close", "rule=2 result=ok", "rule=2 result=rejected 9 rejected on request of a rule",
                     "rule=3 result=fault truncate", "rule=4 result=fault reset"):
            self.assertIn(f" {line}\n", server.log)

    def test_faults_of_the_command_line_come_first(self):
        self.rules({"fault": "close", "reply": {"reject": 1}})
        with self.serve("--fault", "reject:7@50", "--echo", folder=False) as server:
            self.assertEqual(server.ask_raw(packet(REQUEST)), b"")
            self.assertEqual(server.ask(packet(REQUEST)).body, rejection(7, "rejected on request of --fault"))


class ReadAgainTest(RulesTest):
    def test_changed_rules_count_at_once_and_the_state_stays(self):
        self.rules({"set": {"a": "kept"}, "reply": [{"reject": 1}, {"reject": 2}]})
        with self.serve() as server:
            self.assertEqual([server.ask(packet(REQUEST)).body for _ in range(2)],
                             [message(10, f"<t6>{i}</t6><t8>1201</t8>") for i in (1, 2)])
            self.rules({"reply": [{"reject": 1, "text": "{{state:a}}"}, {"reject": 2}]})    # from the beginning
            self.assertEqual(server.ask(packet(REQUEST)).body, rejection(1, "kept"))
        self.assertEqual(self.said(server), ["rules.json has changed and is read again"])

    def test_broken_rules_are_said_once_and_the_old_ones_go_on(self):
        self.rules({"reply": {"reject": 1}})
        with self.serve("--quiet") as server:
            for broken in ("{", '{"rules": [{"replay": 1}, {"delay": -1}]}', None):
                if broken is None:
                    os.remove(self.name)
                else:
                    self.write("rules.json", broken)
                for _ in range(3):
                    self.assertEqual(server.ask(packet(REQUEST)).body, message(10, "<t6>1</t6><t8>1201</t8>"))
            self.rules({"reply": {"reject": 2}})
            self.assertEqual(server.ask(packet(REQUEST)).body, message(10, "<t6>2</t6><t8>1201</t8>"))
        said = self.said(server)
        self.assertEqual(len(said), 4, said)
        self.assertRegex(said[0], r"\Arules\.json: .*; the old rules go on\Z")
        self.assertEqual(said[1:], [
            "rules.json: /rules/0/replay: is unknown; did you mean 'reply'?; rules.json: /rules/1/delay: -1 stands where a "
            "number from 0 to 3600000 belongs; the old rules go on",
            "rules.json: No such file or directory; the old rules go on", "rules.json has changed and is read again"])

    def test_a_dictionary_that_the_rules_do_not_fit_waits_for_them(self):
        self.rules({"message": "Quote", "values": {"code": "ABC"}, "reply": {"message": "Quote", "values": {"price": 1}}})
        with self.serve("--quiet") as server:
            self.write("dictionary.xml", DICTIONARY.replace("name='Quote'", "name='Price'").replace("no='2' name='price'",
                                                                                                   "no='12' name='price'"))
            self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t2>1.000000000000000e+00</t2>"))
            self.rules({"message": "Price", "reply": {"message": "Price", "values": {"price": 1}}})
            self.assertEqual(server.ask(packet(message(3, ""))).body, message(3, "<t12>1.000000000000000e+00</t12>"))
        self.assertEqual(self.said(server), [
            "rules.json: /rules/0/message: no message 'Quote' in the dictionary; did you mean 'QuoteRow'?; rules.json: "
            "/rules/0/reply/message: no message 'Quote' in the dictionary; did you mean 'QuoteRow'?; the old dictionary goes on",
            "rules.json has changed and is read again"])


class WrongTest(RulesTest):
    def refused(self, rules):
        result = run("serve", "--dictionary", self.dictionary, "--replies", self.path("replies"), "--rules",
                     self.write("rules.json", rules))
        self.assertEqual((result.returncode, result.stdout), (1, b""), result)
        return [line.replace(self.name + ": ", "") for line in
                result.stderr.decode().removeprefix("callorv: ").splitlines()]

    def test_everything_that_is_wrong_is_said_with_its_place(self):
        self.reply_file("<msg no='3'>\n<t6>x</t6></msg>", "bad.xml")
        number = "stands where an integer from -999 to 9999 belongs"
        cases = (    # rule, what is said of it, whether the schema refuses it, too
            ({"servce": 1, "mesage": 3},
             ["/servce: is unknown; did you mean 'service'?", "/mesage: is unknown; did you mean 'message'?"], True),
            ({"xyzzy": 1}, ["/xyzzy: is unknown; known are name, service, message, user_keys, values, when, set, reply, then, "
                            "delay, fault"], True),
            (7, [": 7 stands where an object belongs"], True),
            ({"name": 1}, ["/name: 1 stands where a text belongs"], True),
            ({"service": "1201"}, [f"/service: '1201' {number}"], True),
            ({"service": [1, 10000, 1.5]}, [f"/service/1: 10000 {number}", f"/service/2: 1.5 {number}"], True),
            ({"service": []}, ["/service: an empty list"], True),
            ({"service": {}}, ["/service: a range needs from, to or both"], True),
            ({"service": {"from": 5, "to": 4}}, ["/service: 'to' is less than 'from'"], False),
            ({"service": {"form": 5, "to": 4}}, ["/service/form: is unknown; did you mean 'from'?"], True),
            ({"message": "Qoute"}, ["/message: no message 'Qoute' in the dictionary; did you mean 'Quote'?"], False),
            ({"message": 77}, ["/message: no message '77' in the dictionary"], False),
            ({"message": 0}, ["/message: 0 stands where an integer from 1 to 9999 belongs"], True),
            ({"message": []}, ["/message: an array stands where a text belongs"], True),
            ({"user_keys": "a"}, ["/user_keys: 'a' stands where a list belongs"], True),
            ({"user_keys": []}, ["/user_keys: an empty list, which no user key is in"], True),
            ({"user_keys": ["", "x" * 21, 5]}, ["/user_keys/0: a user key has 1 to 20 characters",
                                                "/user_keys/1: a user key has 1 to 20 characters",
                                                "/user_keys/2: 5 stands where a text belongs"], True),
            ({"values": []}, ["/values: an array stands where an object belongs"], True),
            ({"values": {"a[": 1, "": 2}}, ["/values/a[: 'a[' is no tag", "/values/: '' is no tag"], False),
            ({"values": {"code": None}}, ["/values/code: null stands where a text, a number, true or false belongs"], True),
            ({"values": {"code": []}}, ["/values/code: an empty list, which no value is in"], True),
            ({"values": {"code": [[]]}},
             ["/values/code/0: an array stands where a text, a number, true or false belongs"], True),
            ({"values": {"code": {}}},
             ["/values/code: it takes equal, pattern, a range (from, to or both) or present, one of them"], True),
            ({"values": {"code": {"pattern": "a", "from": 1}}},
             ["/values/code: it takes equal, pattern, a range (from, to or both) or present, one of them"], True),
            ({"values": {"code": {"equal": {}}}},
             ["/values/code/equal: an object stands where a text, a number, true or false belongs"], True),
            ({"values": {"code": {"patern": "a"}}}, ["/values/code/patern: is unknown; did you mean 'pattern'?"], True),
            ({"values": {"code": {"pattern": "(a"}}}, ["/values/code/pattern: no pattern: Unmatched ( or \\("], False),
            ({"values": {"code": {"pattern": "a)(b"}}}, ["/values/code/pattern: no pattern: ) without ("], False),
            ({"values": {"code": {"pattern": "(a)\\1"}}},
             ["/values/code/pattern: a pattern cannot refer back to what it found"], False),
            ({"values": {"code": {"pattern": "\\d+"}}},
             ["/values/code/pattern: there is no \\d in patterns: write [0-9] or [^0-9]"], False),
            ({"values": {"code": {"pattern": "((a{99}){99}){99}"}}},
             ["/values/code/pattern: a pattern that counts to more than 255, all counts multiplied"], False),
            ({"values": {"code": {"pattern": "a" * 1001}}},
             ["/values/code/pattern: a pattern of more than 1000 characters"], True),
            ({"values": {"code": {"pattern": "\ud55c"}}},
             ["/values/code/pattern: '\ud55c' has a character that ISO-8859-1 cannot write"], False),
            ({"values": {"day": {"from": "Monday"}}},
             ["/values/day/from: 'Monday' is neither a number nor a text with a date (YYYYMMDD)"], False),
            ({"values": {"day": {"from": True}}},
             ["/values/day/from: true is neither a number nor a text with a date (YYYYMMDD)"], True),
            ({"values": {"day": {"from": "20260101", "to": 5}}},
             ["/values/day: one end of the range is a number, the other a date"], False),
            ({"values": {"day": {"present": "yes"}}}, ["/values/day/present: 'yes' stands where true or false belongs"], True),
            ({"message": 3, "values": {"cod": 1, "rows": 1, "code.x": 1, "day": {"from": 1}, "code": {"to": "20260101"}}},
             ["/values/cod: message 3 has no tag 'cod'; did you mean 'code'?",
              "/values/rows: it is a sub-message, which has no value", "/values/code.x: tag 'code' is no sub-message",
              "/values/day: its values are no numbers", "/values/code: its values are no dates"], False),
            ({"when": {}}, ["/when: 'state' is missing"], True),
            ({"when": {"state": {"a b": "c", "d": 1}}},
             ["/when/state/a b: 'a b' is no name: 1 to 64 letters, digits, _, . and -",
              "/when/state/d: 1 stands where a text belongs"], True),
            ({"set": {"a": "{{tag:[}}", "b": "{{state:x y}}", "c": "{{state:"}},
             ["/set/a: '[' is no tag", "/set/b: 'x y' is no name in the state", "/set/c: {{state: without }}"], False),
            ({"reply": 1}, ["/reply: 1 stands where an object belongs"], True),
            ({"reply": []}, ["/reply: an empty list"], True),
            ({"reply": {}}, ["/reply: a reply is a file, a message with its values or a rejection (reject), one of them"], True),
            ({"reply": {"reject": 1, "file": "x"}},
             ["/reply: a reply is a file, a message with its values or a rejection (reject), one of them"], True),
            ({"reply": ["nosuch.xml", {"file": "bad.xml"}]},
             ["/reply/0: no reply file nosuch.xml", "/reply/1/file: bad.xml:2: t6: 'x' is no integer of 32 bits"], False),
            ({"reply": {"message": 3}}, ["/reply: 'values' is missing"], True),
            ({"reply": {"message": 3, "values": {"cod": 1}}},
             ["/reply/values/cod: message 3 has no tag 'cod'; did you mean 'code'?"], False),
            ({"reply": {"message": 3, "values": {"count": "7"}}},
             ["/reply/values/count: '7' stands where an integer of 32 bits belongs"], False),
            ({"reply": {"message": 3, "values": {"code": "{{tag:"}}}, ["/reply/values/code: {{tag: without }}"], False),
            ({"reply": {"message": 3, "values": {}, "text": "x"}}, ["/reply/text: it goes with reject"], True),
            ({"reply": {"reject": 1, "values": {}}}, ["/reply/values: it goes with message"], True),
            ({"reply": {"reject": "1"}},
             ["/reply/reject: '1' stands where an integer from -2147483648 to 2147483647 belongs"], True),
            ({"then": "last"}, ["/then: it goes with a list of replies"], True),
            ({"then": "again", "reply": [{"reject": 1}]}, ["/then: 'again' is none of last, repeat and next"], True),
            ({"delay": "1s"}, ["/delay: '1s' stands where a number of milliseconds or a distribution belongs"], True),
            ({"delay": 3600001}, ["/delay: 3600001 stands where a number from 0 to 3600000 belongs"], True),
            ({"delay": {"fixed": 1, "normal": {}}},
             ["/delay: it takes one of fixed, uniform, normal, lognormal, exponential"], True),
            ({"delay": {"norml": 1}}, ["/delay/norml: is unknown; did you mean 'normal'?"], True),
            ({"delay": {"normal": {"mean": 1}}}, ["/delay/normal: 'deviation' is missing"], True),
            ({"delay": {"lognormal": {"median": 1, "sigma": 11}}},
             ["/delay/lognormal/sigma: 11 stands where a number from 0 to 10 belongs"], True),
            ({"delay": {"uniform": {"from": 2, "to": 1}}}, ["/delay/uniform: 'to' is less than 'from'"], False),
            ({"fault": "fire"},
             ["/fault: fire: the kinds are delay, stall, truncate, checksum, zlib, reset, close, reject"], True),
            ({"fault": ["reset@0", "zlib:1", 5]},
             ["/fault/0: reset@0: the percentage must be 1 to 100", "/fault/1: zlib:1: zlib takes no argument",
              "/fault/2: 5 stands where a text belongs"], True))
        rules = {"rules": [rule for rule, _, _ in cases]}
        said = [f"/rules/{i}{text}" for i, (_, texts, _) in enumerate(cases) for text in texts]
        self.assertEqual(self.refused(json.dumps(rules)), said)
        for rule, _, by_schema in cases:
            with self.subTest(rule=rule):
                self.assertEqual(not SCHEMA.is_valid({"rules": [rule]}), by_schema)

    def test_what_is_wrong_around_the_rules(self):
        for text, said in (
                ("[]", [': an array stands where {"rules": [...]} belongs']),
                ("{}", [": 'rules' is missing"]),
                ('{"rules": {}}', ["/rules: an object stands where a list belongs"]),
                ('{"ruls": [], "rules": []}', ["/ruls: is unknown; did you mean 'rules'?"]),
                ('{"rules": [], "user_keys": []}', ["/user_keys: an empty list, which no user key is in"]),
                ('{"rules": [{"name": "a", "name": "b"}]}', ["/rules/0/name: the name comes twice"])):
            with self.subTest(text=text):
                self.assertEqual(self.refused(text), [line.removeprefix(": ") for line in said])
                if "twice" not in said[0]:
                    self.assertFalse(SCHEMA.is_valid(json.loads(text)))
        for text in ("", "{", "rules", '{"rules": [,]}'):
            self.assertEqual(len(self.refused(text)), 1)
        result = run("serve", "--dictionary", self.dictionary, "--rules", self.path("none.json"))
        self.assert_run(result, 1, "", f"callorv: {self.path('none.json')}: No such file or directory\n")

    def test_usage(self):
        for args, text in ((("--echo", "--seed", 1), "--seed requires --rules"),
                           (("--rules", self.rules(), "--seed", -1), "--seed: Value -1 not in range 0 to 2147483647"),
                           (("--rules", self.name, "--seed", "x"), "--seed: Value x not in range 0 to 2147483647"),
                           (("--rules",), "--rules needs FILE behind it")):
            self.assert_usage("serve", run("serve", "--dictionary", self.dictionary, *args), text)


if __name__ == "__main__":
    unittest.main()
