"""qx dump and load: a round trip loses nothing, and a damaged dump leaves nothing behind."""
import json
import os
import random
import signal
import subprocess
import time
import unittest

from dump_text import HEAD, dump, dump_of
from hostile_records import hostile_records
from tool_case import FAILURE, TOOL, WRONG_USE, ToolCase

class Dump(ToolCase):
    def dumped(self, name):
        return self.qx("dump", name).bytes

    def settings(self, name):
        header = json.loads(self.qx("header", name, "--json").out)
        return {key: header[key] for key in ["version", "modulo", "frameSize", "threshold", "sizeLock", "recordCount"]}

    def test_any_bytes_survive(self):
        records = hostile_records()
        self.qx("load", "A", stdin=dump_of(records))
        text = self.dumped("A")
        self.assertLessEqual(set(text), {9, 10, *range(32, 127)})
        self.write("a.dump", text)
        self.qx("load", "B", "a.dump")
        self.qx("load", "C", "--frame-size", "300", "--size-lock", "2", stdin=text)
        for name in ["B", "C"]:
            self.assertEqual(sorted(self.dumped(name).splitlines()[6:-1]), sorted(text.splitlines()[6:-1]))
            self.assertEqual(self.settings(name)["recordCount"], len(records))
            for key in random.sample(sorted(records), 20):
                self.assertEqual(self.raw(name, "--hex", key.hex()), records[key])

    def test_a_file_is_made_as_it_was_unless_options_say_otherwise(self):
        self.qx("create", "A", "--modulo", "7", "--frame-size", "512", "--threshold", "100", "--size-lock", "2",
                "--version", "110")
        self.qx("put", "A", "k", "x")
        text = self.dumped("A")
        self.qx("load", "B", stdin=text)
        self.assertEqual(self.settings("B"), self.settings("A"))
        self.qx("load", "C", "--frame-size", "1024", "--threshold", "50", "--version", "120", stdin=text)
        self.assertEqual(self.settings("C"), {"version": 120, "modulo": 7, "frameSize": 1024, "threshold": 50,
                                              "sizeLock": 2, "recordCount": 1})
        self.assertIn("D: 11 groups of 1,024 bytes; ",
                      self.qx("load", "D", "--for", "20", "--record-bytes", "200", stdin=text).out)

    def test_a_file_that_is_there_is_kept_unless_records_are_to_go_into_it(self):
        self.qx("create", "A")
        self.qx("put", "A", "1", "old")
        self.qx("put", "A", "2", "old")
        text = dump(b"2\tnew", b"3\tnew")
        self.assertIn("(code 230)", self.qx("load", "A", stdin=text, status=FAILURE).err)
        self.assertIn("(code 231)", self.qx("load", "B", "--into", stdin=text, status=FAILURE).err)
        self.assertIn("--into", self.qx("load", "A", "--into", "--modulo", "3", stdin=text, status=WRONG_USE).err)
        self.assertEqual(self.raw("A", "2"), b"old")
        self.assertRegex(self.qx("load", "A", "--into", stdin=text).out, r"\AA: 2 records loaded in ")
        self.assertEqual([self.raw("A", key) for key in "123"], [b"old", b"new", b"new"])

    def test_what_is_wrong_with_a_dump_is_told_with_its_line_and_leaves_no_file(self):
        good = dump(b"1\ta", b"2\tb\\FE\\5C")
        cases = [
            (b"", 1, "this is no dump"),
            (b"key,data\n", 1, "this is no dump"),
            (good.replace(b"dump 1", b"dump 2"), 1, "this is no dump"),
            (b"q" * 1000, 1, "does not belong"),
            (good.replace(b"modulo 3", b"modulo x"), 3, '"modulo x" stands where "modulo NUMBER" belongs'),
            (good.replace(b"modulo 3\n", b""), 3, '"frame-size 1024" stands'),
            (good.replace(b"modulo 3", b"modulo 4294967296"), 3, '"modulo NUMBER"'),
            (good.replace(b"\n", b"\r\n"), 1, "this is no dump"),
            (dump(b"1\ta", b"2\t\xff"), 8, "the byte FF"),
            (dump(b"1\ta", b"2"), 8, "the byte 0A"),
            (dump(b"1\ta\tb"), 7, "the byte 09"),
            (dump(b"1\t\\4"), 7, "two capital"),
            (dump(b"1\t\\fe"), 7, "two capital"),
            (dump(b"1\ta\n2\tb"), 8, '"2\\x09b" is neither'),
            (good.replace(b"\ta", b"\tc"), 9, "the checksum is wrong"),
            (good.replace(b"=1\ta\n", b""), 8, "was written with 2 records"),
            (good.replace(b"=1\ta\n", b"=1\ta\n=1\ta\n"), 10, "was written with 2 records"),
            (dump(b"1\ta", count=2), 8, "was written with 2 records"),
            (good.replace(b"end 2 ", b"end "), 9, "neither"),
            (good.replace(b"end 2", b"end two"), 9, "neither"),
            (good[:-2] + b"\n", 9, "neither"),
            (good + b"\n", 10, "behind the end"),
            (good + good, 10, "behind the end"),
        ]
        cases += [(good[:length], good[:length].count(b"\n") + 1, "cut short") for length in range(1, len(good))]
        for text, line, reason in cases:
            name = self.write("bad.dump", text)
            result = self.qx("load", "B", name, status=FAILURE)
            self.assertIn(f"qx: bad.dump: line {line}: ", result.err, text)
            self.assertIn(reason, result.err, text)
            self.assertIn("qx: B: nothing stored\n", result.err)
            piped = subprocess.run(f'cat {name} | "{TOOL}" load B', shell=True, cwd=self.directory,
                                   stderr=subprocess.PIPE, check=False)
            self.assertEqual(piped.returncode, FAILURE)
            self.assertIn(f"standard input: line {line}: ".encode(), piped.stderr)
            self.assertEqual(self.hashed_files(), [], text)
        self.assertIn("line 9: the dump is cut short here (2 records read before)",
                      self.qx("load", "B", stdin=good[:-1], status=FAILURE).err)
        self.qx("load", "B", stdin=good)

    def test_a_damaged_dump_changes_nothing_in_a_file_that_is_there(self):
        self.qx("create", "A")
        damaged = dump(b"1\ta", b"2\tb", count=3)
        self.qx("load", "A", "--into", self.write("bad.dump", damaged), status=FAILURE)
        self.assertEqual(self.settings("A")["recordCount"], 0)
        piped = subprocess.run(f'cat bad.dump | "{TOOL}" load A --into', shell=True, cwd=self.directory,
                               stderr=subprocess.PIPE, check=False)
        self.assertIn(b"qx: A: 2 records loaded before stay there\n", piped.stderr)
        self.assertEqual(self.settings("A")["recordCount"], 2)

    def test_an_interrupt_leaves_no_half_file(self):
        with subprocess.Popen([TOOL, "load", "A"], cwd=self.directory, stdin=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdin.write(dump(*[b"%d\tx" % number for number in range(1000)])[:5000])
            process.stdin.flush()
            while not os.path.exists(self.path("A.LK")):
                time.sleep(0.02)
            process.send_signal(signal.SIGINT)
            _, err = process.communicate(timeout=60)
        self.assertEqual(process.returncode, FAILURE)
        self.assertEqual(err, b"qx: interrupted\nqx: A: removed again, as it is not complete\n")
        self.assertEqual(self.hashed_files(), [])

    def test_a_dump_of_a_damaged_file_is_none(self):
        self.qx("load", "A", stdin=dump_of({b"%d" % number: b"x" * 3000 for number in range(100)}))
        os.truncate(self.path("A.OV"), 2048)
        result = self.run_tool("dump", "A")
        self.assertEqual(result.status, FAILURE)
        self.assertIn("qx: A: ", result.err)
        self.qx("load", "B", stdin=result.bytes, status=FAILURE)


if __name__ == "__main__":
    unittest.main()
