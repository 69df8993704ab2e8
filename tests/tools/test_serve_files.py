"""callorv serve: replies that are kept ready, and files that change while it runs."""
import os
import threading
import unittest
import zlib

from support import DICTIONARY, Reply, Server, ToolTest, message, packet, read_packet


REQUEST = message(3, "<t1><![CDATA[ABC]]></t1>")


def rejection(code, text, service=1201):
    return message(10, f"<t6>{code}</t6><t7><![CDATA[{text}]]></t7><t8>{service}</t8>")


class FilesTest(ToolTest):
    def serve(self, *args):
        os.makedirs(self.path("replies"), exist_ok=True)
        return Server("--dictionary", self.dictionary, "--replies", self.path("replies"), *args)

    def reply_file(self, text, service=1201):
        return self.write(f"replies/{service}.xml", text)

    def replace(self, name, text):
        """As editors do it: another file takes the name."""
        os.rename(self.write("next", text), self.path(name))

    def lines(self, server):
        """What the log says beside calls and the summary."""
        return [line[24:] for line in server.log.splitlines() if "service=" not in line and "served " not in line]


class ReadyReplyTest(FilesTest):
    def test_a_ready_reply_carries_what_belongs_to_the_call(self):
        long = "x" * 3000
        self.reply_file(f"<msg no='3' ver='2'><t1>{long}</t1></msg>")
        self.reply_file("<msg no='4'><t3>short</t3></msg>", -7)
        self.reply_file("<msg no='3'/>", 7)
        with self.serve() as server:
            for _ in range(3):
                reply = server.ask(packet(REQUEST, extra=b"0000000042"))
                self.assertEqual((reply.service, reply.message, reply.extra, reply.compressed), (1201, 3, 42, True))
                self.assertEqual(reply.body.decode(), message(3, f"<t1><![CDATA[{long}]]></t1>").decode()
                                 .replace('ver=""', 'ver="2"'))
                self.assertEqual(reply.key, b" " * 20)
                reply = server.ask(packet(REQUEST, service_field=b"-007", extra=b"-000000001"))
                self.assertEqual((reply.service, reply.message, reply.extra, reply.compressed), (-7, 4, -1, False))
                self.assertEqual(reply.body, message(4, "<t3><![CDATA[short]]></t3>"))
                self.assertEqual(server.ask(packet(REQUEST, service=7)).body, message(3, ""))

    def test_the_limit_of_compression(self):
        size = len(message(3, "<t1><![CDATA[0123456789]]></t1>"))
        self.reply_file("<msg no='3'><t1>0123456789</t1></msg>")
        self.reply_file("<msg no='3'><t1>{{tag:1}}</t1></msg>", 7)
        request = message(3, "<t1><![CDATA[0123456789]]></t1>")
        for limit in (0, size - 1, size):
            with self.subTest(limit=limit), self.serve("--compress-over", limit) as server:
                for service in (1201, 7):
                    reply = server.ask(packet(request, service=service))
                    self.assertEqual((len(reply.body), reply.compressed), (size, size > limit))

    def test_faults_of_a_ready_reply(self):
        self.reply_file("<msg no='3'><t1>short</t1></msg>")
        with self.serve("--fault", "zlib@50", "--fault", "checksum@50") as server, server.connect() as sock:
            sock.sendall(packet(REQUEST) * 4)
            seen = []
            for _ in range(4):
                data = read_packet(sock)
                right = int(data[-3:]) == sum(data[:-3]) % 256
                seen.append("checksum" if not right else "zlib" if data[88:89] == b"Y" else "none")
                if seen[-1] == "zlib":
                    self.assertRaises(zlib.error, zlib.decompress, data[128:-3])
        self.assertEqual(seen, ["none", "zlib", "checksum", "zlib"])

    def test_requests_behind_each_other_and_in_pieces(self):
        self.reply_file("<msg no='3'><t1>{{tag:1}}</t1></msg>")
        requests = [packet(message(3, f"<t1><![CDATA[{'y' * size}]]></t1>"))
                    for size in (1, 700, 5, 900, 2000, 1, 70000, 3)]
        data = b"".join(requests)
        with self.serve() as server, server.connect() as sock:
            for start in range(0, len(data), 1000):
                sock.sendall(data[start:start + 1000])
            for request in requests:
                self.assertEqual(Reply(read_packet(sock)).body, Reply(request).body)

    def test_as_library_ready_and_not(self):
        self.reply_file("<msg no='3'><t1>a&amp;b</t1><t6>x</t6></msg>")    # the first piece, and 0
        self.reply_file("<msg no='3'><t1>{{tag:1}}</t1></msg>", 7)
        with self.serve("--as-library") as server:
            for _ in range(2):
                self.assertEqual(server.ask(packet(REQUEST)).body, message(3, "<t1><![CDATA[a]]></t1><t6>0</t6>"))
                self.assertEqual(server.ask(packet(REQUEST, service=7)).body, REQUEST)
            self.reply_file("<msg no='99'/>")
            self.assertEqual(server.ask(packet(REQUEST)).body,
                             rejection(500, "1201.xml: Handler error : Unknown msgno(99)"))
            self.reply_file("<msg no='3'><t1>{{tag:1</t1></msg>")
            self.assertEqual(server.ask(packet(REQUEST)).body, rejection(500, "1201.xml: {{tag: without }}"))


class ChangedReplyTest(FilesTest):
    def test_every_way_of_changing_a_file_counts_at_once(self):
        path = self.reply_file("<msg no='3'><t1>one</t1></msg>")
        with self.serve() as server:
            def answer():
                return server.ask(packet(REQUEST)).body

            def text(value):
                return message(3, f"<t1><![CDATA[{value}]]></t1>")

            self.assertEqual(answer(), text("one"))
            self.replace("replies/1201.xml", "<msg no='3'><t1>two</t1></msg>")
            self.assertEqual(answer(), text("two"))
            stat = os.stat(path)
            self.reply_file("<msg no='3'><t1>tri</t1></msg>")
            os.utime(path, ns=(stat.st_atime_ns, stat.st_mtime_ns))    # one that hides its trace
            self.assertEqual(answer(), text("tri"))
            os.remove(path)
            self.assertEqual(answer(), rejection(404, "no reply file 1201.xml"))
            os.mkdir(path)
            self.assertEqual(answer(), rejection(500, f"{path}: a folder, not a file"))
            os.rmdir(path)
            os.symlink(self.write("elsewhere", "<msg no='3'><t1>{{tag:1}}</t1></msg>"), path)
            self.assertEqual(answer(), REQUEST)
            self.write("elsewhere", "<msg no='3'><t1>four</t1></msg>")
            self.assertEqual(answer(), text("four"))
            self.write("elsewhere", "")
            self.assertEqual(answer(), rejection(500, "1201.xml:1: no XML: no root element"))
            self.write("elsewhere", "<msg no='3'><t1>one</t1></msg>")
            self.assertEqual(answer(), text("one"))
        self.assertEqual(self.lines(server), [])

    def test_many_threads_see_a_change(self):
        self.reply_file("<msg no='3'><t1>old</t1></msg>")
        with self.serve("--threads", 4, "--quiet") as server:
            def ask(wanted):
                for _ in range(20):
                    if wanted not in server.ask(packet(REQUEST)).body:
                        wrong.append(wanted)

            wrong = []
            for wanted in (b"old", b"new"):
                self.replace("replies/1201.xml", f"<msg no='3'><t1>{wanted.decode()}</t1></msg>")
                threads = [threading.Thread(target=ask, args=(wanted,)) for _ in range(8)]
                for thread in threads:
                    thread.start()
                for thread in threads:
                    thread.join()
            self.assertEqual(wrong, [])


class DictionaryTest(FilesTest):
    CHANGED = DICTIONARY.replace("<tag no='2' name='price'", "<tag no='12' name='price'", 1).replace(
        "</msg_dictionary>", "<msg no='5' name='New'><tag no='1' name='what' type='string'/></msg></msg_dictionary>")
    AGAIN = "dictionary.xml has changed and is read again"

    def said(self, server):
        return [line.replace(self.dir + "/", "") for line in self.lines(server)]

    def test_a_changed_dictionary_counts_at_once_for_requests_and_replies(self):
        self.reply_file("<msg no='3' type='name'><price>2</price></msg>")
        with self.serve() as server:
            for dictionary, tag in ((DICTIONARY, 2), (self.CHANGED, 12), (DICTIONARY, 2)):
                self.replace("dictionary.xml", dictionary)
                self.assertEqual(server.ask(packet(REQUEST)).body, message(3, f"<t{tag}>2.000000000000000e+00</t{tag}>"))
            new = packet(message(5, "<t1><![CDATA[x]]></t1>"), message=5)
            self.assertIn(b"Unknown msgno(5)", server.ask(new).body)
            self.write("dictionary.xml", self.CHANGED)
            self.assertEqual(server.ask(new).message, 3)
        self.assertEqual(self.said(server), [self.AGAIN] * 3)

    def test_echo_has_the_changed_dictionary_too(self):
        with Server("--dictionary", self.dictionary, "--echo") as server:
            new = message(5, "<t1><![CDATA[x]]></t1>")
            self.assertEqual(server.ask(packet(new, message=5)).message, 10)
            self.write("dictionary.xml", self.CHANGED)
            self.assertEqual(server.ask(packet(new, message=5)).body, new)

    def test_a_call_under_way_keeps_its_dictionary(self):
        self.reply_file("<msg no='3' type='name'><code>{{tag:code}}</code></msg>")
        self.reply_file("<msg no='3'/>", 7)
        with self.serve("--fault", "delay:300@50", "--threads", 1) as server, server.connect() as sock:
            sock.sendall(packet(REQUEST))
            read_packet(sock)
            sock.sendall(packet(REQUEST))    # its answer waits
            self.write("dictionary.xml", self.CHANGED)
            self.assertEqual(server.ask(packet(message(5, ""), service=7, message=5)).body, message(3, ""))
            self.assertEqual(Reply(read_packet(sock)).body, REQUEST)
        self.assertEqual(server.status, 0)

    def test_a_broken_dictionary_is_said_once_and_the_old_one_goes_on(self):
        with Server("--dictionary", self.dictionary, "--echo", "--quiet") as server:
            for broken in ("<msg_dictionary><msg no='3'", "<msg_dictionary>", None):
                if broken is None:
                    os.remove(self.dictionary)
                else:
                    self.replace("dictionary.xml", broken)
                for _ in range(3):
                    self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)
            self.write("dictionary.xml", self.CHANGED)
            for _ in range(2):
                self.assertEqual(server.ask(packet(message(5, ""), message=5)).message, 5)
        said = self.said(server)
        self.assertEqual(len(said), 4, said)
        for line in said[:2]:
            self.assertRegex(line, r"\Adictionary\.xml: the library says: InitDictionary\(Handler error : \[F\].*"
                                   "; callorv dict check says everything; the old dictionary goes on")
        self.assertRegex(said[2], r"\Adictionary\.xml: No such file or directory .*; the old dictionary goes on")
        self.assertEqual(said[3], self.AGAIN)

    def test_what_is_no_file_is_read_once(self):
        fifo = self.path("fifo.xml")
        os.mkfifo(fifo)

        def write():
            with open(fifo, "wb") as out:
                out.write(DICTIONARY.encode())

        threading.Thread(target=write, daemon=True).start()
        with Server("--dictionary", fifo, "--echo") as server:
            self.assertEqual(server.ask(packet(REQUEST)).body, REQUEST)
        self.assertEqual(self.said(server), [])

    def test_many_threads_while_it_changes(self):
        self.reply_file("<msg no='3' type='name'><price>{{tag:6}}</price><code>x</code></msg>")
        with self.serve("--threads", 4, "--quiet") as server:
            bodies = set()

            def ask():
                with server.connect() as sock:
                    for _ in range(50):
                        sock.sendall(packet(message(3, "<t6>2</t6>")))
                        bodies.add(Reply(read_packet(sock)).body)

            threads = [threading.Thread(target=ask) for _ in range(4)]
            for thread in threads:
                thread.start()
            for i in range(20):
                self.replace("dictionary.xml", (self.CHANGED, DICTIONARY)[i % 2])
            for thread in threads:
                thread.join()
        self.assertLessEqual(bodies, {message(3, "<t1><![CDATA[x]]></t1><t2>2.000000000000000e+00</t2>"),
                                      message(3, "<t1><![CDATA[x]]></t1><t12>2.000000000000000e+00</t12>")})
        self.assertEqual(server.status, 0)


if __name__ == "__main__":
    unittest.main()
