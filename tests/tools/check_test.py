"""qx check and qx map: every kind of damage is told in words, and what is drawn and advised fits the file."""
import contextlib
import fcntl
import os
import pty
import random
import re
import signal
import struct
import subprocess
import time
import unittest
import xml.dom.minidom

from tool_case import DONE, FAILURE, NOT_FOUND, TOOL, WRONG_USE, ToolCase

DAMAGED = NOT_FOUND
FRAME = 256


class Check(ToolCase):
    def setUp(self):
        super().setUp()
        # A small record and a long one in group 1, a third in group 2; frames enough are free to need a second list
        # frame. The records of one group are stored in the order in which they came.
        self.qx("create", "A", "--modulo", "3", "--frame-size", str(FRAME), "--size-lock", "2", "--threshold", "255")
        self.qx("put", "A", "gone", "g" * 30_000)
        self.ours = self.keys_of("A", 1)[:2]
        self.other = self.keys_of("A", 2)[0]
        self.qx("put", "A", self.ours[0], "a" * 20)
        self.qx("put", "A", self.ours[1], "b" * 700)
        self.qx("put", "A", self.other, "c" * 300)
        self.qx("delete", "A", "gone")
        self.primary = self.read("A.LK")
        self.overflow = self.read("A.OV")
        self.chain = []
        link = self.word(self.primary, FRAME + 1)
        while link != 0:
            self.chain.append(link)
            link = self.word(self.overflow, link * FRAME + 1)
        self.list_frame = self.word(self.overflow, 3)

    def keys_of(self, name, group):
        keys = [f"{number:03}" for number in range(1000)]
        groups = [int(line.split()[-1]) for line in self.qx("group", name, *keys).out.splitlines()]
        self.assertEqual(len(groups), len(keys))
        return [key for key, its in zip(keys, groups) if its == group]

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    @staticmethod
    def word(content, at):
        return struct.unpack_from("<I", content, at)[0]

    def damage(self, name, at, new):
        """Makes B as A is, with other bytes at a place or, without any, cut there."""
        files = {"LK": bytearray(self.primary), "OV": bytearray(self.overflow)}
        files[name][at:at + len(new) if new else None] = new
        for extension, content in files.items():
            self.write("B." + extension, bytes(content))

    def test_a_file_in_order(self):
        header_says = self.qx("check", "A").out
        self.assertRegex(header_says, r"""\AA: in order
Groups           3 with frames of 256 bytes
Load             \d+\.\d % of the threshold
Records          3, on average \d+\.\d bytes as stored
Chains           1 frame 33.3 %, 2 frames 33.3 %, 3 to 4 frames 33.3 %; longest 4
( +\d of them with frames out of order\n)?A read visits    \d\.\d\d frames on average
Overflow file    (\d+) frames: 4 in chains, (\d+) free \(listed in \d frames\)
""")
        frames, free = re.search(r"Overflow file +(\d+) frames: 4 in chains, (\d+) free", header_says).groups()
        self.assertEqual(int(frames), int(free) + 4)
        self.assertEqual(int(frames) + 1, os.path.getsize(self.path("A.OV")) // FRAME)
        self.qx("create", "EMPTY")
        self.assertIn("\nRecords          0\n", self.qx("check", "EMPTY").out)

    def test_every_damage_is_told(self):
        first, last = FRAME + 13, self.chain[-1] * FRAME
        end = self.overflow.index(b"\x80", last + 14)
        cases = [  # what is damaged, where, how; what is told
            ("LK", 31, b"", r"B: the primary file .*\\B\.LK cannot be opened or read \(problem 1\)"),
            ("LK", 0, b"\x05", r"B: the file header is none: .* \(problem 3\)"),
            ("LK", 2 * FRAME, b"", r"B: the primary file has 512 bytes; 3 groups with frames of 256 bytes .* \(problem 4\)"),
            ("OV", 0, b"\x05", r"B: frame 0 of the free list does not begin with the byte 14 \(problem 5\)"),
            ("OV", self.list_frame * FRAME, b"\x05", rf"B: frame {self.list_frame} of the free list .* \(problem 5\)"),
            ("OV", 3, b"\xff\xff", r"B: frame 65535 of the free list cannot be read \(problem 11\)"),
            ("OV", 11, b"\0\0\0\0", r"B: frame 0 of the free list is out of order, .* \(problem 12\)"),
            ("LK", FRAME, b"\x0e", r"B: group 1: primary frame 1 begins with the byte 14 and not with 13 \(problem 3\)"),
            ("OV", last, b"\x0d", r"B: group 1: an overflow frame begins with the byte 13 and .* 14 \(problem 5\)"),
            ("LK", first + 2, self.other.encode(), r"B: group 1: the key of a record belongs to another .* \(problem 7\)"),
            ("LK", first, b"\x91", r"B: group 1: primary frame 1, position \d+: a record does not end .* \(problem 8\)"),
            ("OV", end - 1, b"\0", rf"B: group 1: overflow frame {self.chain[-1]}, position .* \(problem 8\)"),
            ("OV", last + 9, b"\x02", rf"B: group 1: overflow frame {self.chain[-1]} belongs to group 2 \(problem 9\)"),
            ("LK", FRAME + 1, b"\xff\xff", r"B: group 1: overflow frame 65535 of the chain cannot be read; .* \(problem 10\)"),
            ("OV", end + 1, b"\x01",
             rf"B: group 1: overflow frame {self.chain[-1]}, position \d+: there is something .* \(problem 13\)"),
            ("OV", last + 1, b"\x01", rf"B: group 1: overflow frame {self.chain[-1]}: it ends the group .* \(problem 14\)"),
        ]
        for name, at, new, told in cases:
            with self.subTest(told):
                self.damage(name, at, new)
                out = self.qx("check", "B", status=DAMAGED).out
                self.assertRegex(out.splitlines()[0], rf"\A{told}\Z")
                if told.startswith("B: group"):
                    self.assertRegex(out, r"(?m)^B: 1 damaged group$")
                    self.assertIn("3 with frames of 256 bytes; the damaged ones are not in what follows", out)
                self.qx("map", "B", status=DAMAGED)

    def test_damage_does_not_end_the_check(self):
        self.damage("LK", FRAME, b"\x0e")
        with open(self.path("B.LK"), "r+b") as file:
            file.seek(2 * FRAME + 13)
            file.write(b"\0")
        lines = self.qx("check", "B", status=DAMAGED).out.splitlines()
        self.assertEqual([line.split(":")[1] for line in lines[:3]], [" group 1", " group 2", " 2 damaged groups"])
        self.assertIn("!!", self.qx("map", "B", status=DAMAGED).out)
        # The highest status wins, and every file gets its turn.
        result = self.qx("check", "B", "NONE", "A", status=FAILURE)
        self.assertIn("(code 231)", result.err)
        self.assertIn("A: in order", result.out)
        self.qx("check", "B", "A", status=DAMAGED)

    def test_an_interrupt_ends_it(self):
        self.qx("check", "A")
        with open(self.path("MOXLOCKS"), "r+b") as locks:
            groups = re.search(r"(\w+)-\w+  groups 0-2 of A", self.qx("locks", ".", "--file", "A").out).group(1)
            for command in ["check", "map"]:
                # It waits for somebody who locks a group until it has got the signal.
                fcntl.lockf(locks, fcntl.LOCK_EX | fcntl.LOCK_NB, 1, (0xFFFFFFFF00000000 + int(groups, 16)) % 2**63)
                with subprocess.Popen([TOOL, command, "A"], cwd=self.directory, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE) as process:
                    while not self.catches(process.pid, signal.SIGINT):
                        time.sleep(0.001)
                    process.send_signal(signal.SIGINT)
                    fcntl.lockf(locks, fcntl.LOCK_UN)
                    _, err = process.communicate(timeout=60)
                self.assertEqual((process.returncode, err), (FAILURE, b"qx: interrupted\n"), command)

    @staticmethod
    def catches(process, number):
        with open(f"/proc/{process}/status") as status:
            caught = next(line for line in status if line.startswith("SigCgt"))
        return int(caught.split()[1], 16) >> (number - 1) & 1

    def test_a_wrong_count_is_told(self):
        self.damage("LK", 22, struct.pack("<I", 77))
        self.assertRegex(self.qx("check", "B").out, r"(?m)^Records +3, .* \(the header says 77\)$")

    def test_advice(self):
        rows = "".join(f"{number * 7919},{'x' * 390}\n" for number in range(2000)).encode()
        for options, advice in [
                (["--frame-size", "256", "--modulo", "2000", "--size-lock", "1"], "has outgrown its frames"),
                (["--frame-size", "2048", "--modulo", "20", "--size-lock", "2"], "keeps them, as its size is locked"),
                (["--for", "2000", "--record-bytes", "396"], None)]:
            self.qx("create", "C", *options)
            self.qx("import", "C", stdin=rows)
            last = self.qx("check", "C").out.splitlines()[-1]
            if advice is None:
                self.assertTrue(last.startswith("Overflow file"), last)
            else:
                self.assertIn(advice, last)
                self.assertRegex(last, r"With \d+ groups of \d,\d+ bytes a read would visit 1.\d frames: qx copy C NEW --fit")
            self.qx("drop", "C", "--yes")
        # Large records in frames that hold one or two.
        self.qx("create", "C", "--for", "200", "--record-bytes", "12506")
        self.qx("import", "C", stdin="".join(f"{number * 7919},{'x' * 12500}\n" for number in range(200)).encode())
        rows = self.qx("check", "C").out.splitlines()
        self.assertRegex(rows[-2], r"A read visits +1\.[5-9]")
        self.assertTrue(rows[-1].startswith("Overflow file"), rows[-1])
        self.qx("drop", "C", "--yes")
        # All keys in one group.
        self.qx("create", "C", "--modulo", "64", "--size-lock", "2")
        rows = "".join(f"{key},{'x' * 5000}\n" for key in self.keys_of("C", 5)).encode()
        rows += b"".join(b"%d,x\n" % number for number in range(1000, 1200))
        self.qx("import", "C", stdin=rows)
        self.assertIn("because of their keys; see qx map", self.qx("check", "C").out)
        self.assertRegex(self.qx("map", "C").out, r"\n 0 [-.]{5}\*[-.]{58}\n")


class Map(ToolCase):
    def test_lines_fit_the_width(self):
        generator = random.Random(5)
        for modulo in [1, 75, 5000]:
            self.qx("create", "A", "--modulo", str(modulo), "--frame-size", "256", "--size-lock", "2")
            rows = "".join(f"{number},{'x' * generator.randrange(200)}\n" for number in range(modulo)).encode()
            self.qx("import", "A", stdin=rows)
            for width in [30, 80, 300]:
                out = self.qx("map", "A", "--width", str(width)).out
                self.assertLessEqual(max(map(len, out.splitlines()[1:])), width)
                self.assertLessEqual(len(out.splitlines()), 40)
                picture = [line for line in out.splitlines()[1:] if re.match(r" *[0-9,]+ [-.=+#248*]+$", line)]
                signs = sum(len(line.split()[1]) for line in picture)
                self.assertEqual(signs, -(-modulo // -(-modulo // min(modulo, 24 * (width - len(f"{modulo:,}") - 1)))))
                self.assertNotIn("\x1b", out)
            narrow = self.run_tool("map", "A", env={**os.environ, "COLUMNS": "40"}).out
            self.assertLessEqual(max(map(len, narrow.splitlines()[1:])), 40)
            self.qx("drop", "A", "--yes")
        self.assertIn("--width", self.qx("map", "A", "--width", "10", status=WRONG_USE).err)

    def test_colours_are_for_terminals(self):
        self.qx("create", "A", "--modulo", "50", "--size-lock", "2")
        terminal, tool_side = pty.openpty()
        completed = subprocess.run([TOOL, "map", "A"], cwd=self.directory, stdout=tool_side, check=False)
        os.close(tool_side)
        shown = b""
        with contextlib.suppress(OSError):  # which is how a terminal that nobody writes to any more ends
            while part := os.read(terminal, 10_000):  # some of what was written
                shown += part
        os.close(terminal)
        self.assertEqual(completed.returncode, DONE)
        self.assertIn(b"\x1b[34m" + b"." * 50 + b"\x1b[0m", shown)

    def test_svg(self):
        for modulo, cells in [(1, 1), (7, 7), (9000, 4500)]:
            name = f"A&<{modulo}>\""
            self.qx("create", name, "--modulo", str(modulo), "--size-lock", "2")
            self.qx("put", name, "key", "x" * 5000)
            self.assertEqual(self.qx("map", name, "--svg", "out.svg").out, "")
            drawing = xml.dom.minidom.parse(self.path("out.svg"))
            self.assertEqual(drawing.documentElement.tagName, "svg")
            self.assertEqual(len(drawing.getElementsByTagName("title")), cells)
            texts = [text.firstChild.data for text in drawing.getElementsByTagName("text")]
            self.assertTrue(texts[0].startswith(name + ": "), texts[0])
            for shade in ["no records", "up to 1 frame", "more than 8 frames", "damaged"]:
                self.assertIn(shade, texts)
            width, height = map(int, drawing.documentElement.getAttribute("viewBox").split()[2:])
            for rectangle in drawing.getElementsByTagName("rect"):
                x, y, wide, high = (int(rectangle.getAttribute(which)) for which in ["x", "y", "width", "height"])
                self.assertTrue(x + wide <= width and y + high <= height)
        self.assertIn("no/out.svg: cannot be written", self.qx("map", name, "--svg", "no/out.svg", status=FAILURE).err)


if __name__ == "__main__":
    unittest.main()
