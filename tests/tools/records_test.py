"""Single records and whole files: get, put, delete, group, clear, drop."""
import os
import pty
import subprocess
import unittest

from tool_case import DONE, FAILURE, NOT_FOUND, TOOL, WRONG_USE, ToolCase

ALL_BYTES = bytes(range(256))


class Records(ToolCase):
    def setUp(self):
        super().setUp()
        self.qx("create", "A", "--modulo", "7")

    def test_fields_are_joined_by_the_attribute_mark(self):
        self.qx("put", "A", "k", "Ann Lee", "", "London")
        self.assertEqual(self.raw("A", "k"), b"Ann Lee\xfe\xfeLondon")
        self.assertEqual(self.qx("get", "A", "k").out, "Ann Lee\n\nLondon\n")
        self.qx("put", "A", "k", "")
        self.assertEqual(self.raw("A", "k"), b"")
        self.assertEqual(self.qx("get", "A", "k").out, "\n")
        self.qx("put", "A", "k", status=WRONG_USE)
        self.qx("put", "A", "k", b"one\xfetwo", status=WRONG_USE)
        self.assertEqual(self.raw("A", "k"), b"")

    def test_raw_records_are_any_bytes(self):
        for record in [b"", ALL_BYTES, b"x" * 300_000]:
            self.qx("put", "A", "k", "--raw", stdin=record)
            self.assertEqual(self.raw("A", "k"), record)
        self.qx("put", "A", "k", "--raw", "--data", "[a,b]")
        self.assertEqual(self.raw("A", "k"), b"[a,b]")
        for arguments in [["f", "--raw"], ["--data", "x"], ["f", "--data", "x"]]:
            self.qx("put", "A", "k", *arguments, status=WRONG_USE)
        self.qx("get", "A", "k", "k", "--raw", status=WRONG_USE)
        self.assertEqual(self.raw("A", "k"), b"[a,b]")

    def test_keys_and_fields_may_look_like_anything(self):
        awkward = ["", " ", "[a,b]", "[]", "[", "]", "{}", "%%", "++", "get", "a=b", "*", "\n", "é", "'\"\\"]
        for key in awkward:
            self.qx("put", "A", key, *awkward)
        for key in awkward:
            self.assertEqual(self.raw("A", key), b"\xfe".join(field.encode() for field in awkward), repr(key))
        for key in ["-5", "--hex", "--", "-h"]:
            self.qx("put", "A", "--", key, key, "--raw")
            self.assertEqual(self.qx("get", "A", "--", key).out, f"{key}\n--raw\n")
        self.assertIn(f"Records          {len(awkward) + 4}\n", self.qx("header", "A").out)
        self.qx("delete", "A", *awkward)
        self.qx("delete", "A", "--", "-5", "--hex", "--", "-h")
        self.assertIn("Records          0\n", self.qx("header", "A").out)

    def test_hexadecimal_keys_name_any_bytes(self):
        self.qx("put", "A", "--hex", ALL_BYTES.hex(), "all bytes")
        self.qx("put", "A", "--hex", "", "no bytes")
        self.qx("put", "A", "--hex", "4b45", "KE")
        self.assertEqual(self.qx("get", "A", "KE").out, "KE\n")
        self.assertEqual(self.qx("get", "A", "").out, "no bytes\n")
        self.assertEqual(self.qx("get", "A", "--hex", ALL_BYTES.hex().upper()).out, "all bytes\n")
        self.assertEqual(self.qx("group", "A", "--hex", "4B45").out, self.qx("group", "A", "KE").out)
        self.qx("delete", "A", ALL_BYTES.hex(), "--hex")
        self.assertIn(r'"\x00\xFF"', self.qx("get", "A", "--hex", "00ff", status=NOT_FOUND).err)
        for digits in ["4", "4B4", "4G", "+4", " 4", "0x41"]:
            self.assertIn(digits, self.qx("get", "A", "--hex", digits, status=WRONG_USE).err)

    def test_several_keys_go_on_past_missing_ones(self):
        for key in ["1", "2", "3"]:
            self.qx("put", "A", key, "record", key)
        result = self.qx("get", "A", "1", "none", "3", status=NOT_FOUND)
        self.assertEqual(result.out, "==> 1 <==\nrecord\n1\n\n==> 3 <==\nrecord\n3\n")
        self.assertEqual(result.err, 'qx: A: "none": not found\n')
        result = self.qx("delete", "A", "1", "none", "3", status=NOT_FOUND)
        self.assertEqual(result.err, 'qx: A: "none": not found\n')
        self.qx("get", "A", "1", status=NOT_FOUND)
        self.qx("get", "A", "2")
        self.qx("get", "A", "3", status=NOT_FOUND)

    def test_group_numbers(self):
        self.assertEqual(self.qx("group", "A", "A", "12345", "").out, "1\n6\n4\n")


class WholeFiles(ToolCase):
    def setUp(self):
        super().setUp()
        self.qx("create", "A", "--modulo", "7")
        self.qx("put", "A", "k", "f")

    def test_clear_and_drop_want_a_yes(self):
        for command in ["clear", "drop"]:
            self.assertIn("--yes", self.qx(command, "A", status=WRONG_USE).err)
        self.qx("get", "A", "k")
        self.qx("clear", "A", "--yes")
        self.qx("get", "A", "k", status=NOT_FOUND)
        self.assertEqual(os.path.getsize(self.path("A.LK")), 1024)
        self.qx("drop", "A", "--yes")
        self.assertFalse(os.path.exists(self.path("A.LK")) or os.path.exists(self.path("A.OV")))

    def answer(self, command, answer):
        """Runs the command on a terminal, where somebody answers its question."""
        terminal, tool_side = pty.openpty()
        try:
            os.write(terminal, answer)
            return subprocess.run([TOOL, command, "A"], cwd=self.directory, stdin=tool_side, stderr=subprocess.PIPE,
                                  timeout=60, check=False)
        finally:
            os.close(terminal)
            os.close(tool_side)

    def test_on_a_terminal_they_ask(self):
        for command in ["clear", "drop"]:
            for no in [b"n\n", b"\n", b"\x04"]:
                ended = self.answer(command, no)
                self.assertEqual(ended.returncode, FAILURE)
                self.assertIn(b"A", ended.stderr)
                self.assertIn(b"? [y/N] ", ended.stderr)
                self.qx("get", "A", "k")
        self.assertEqual(self.answer("clear", b"y\n").returncode, DONE)
        self.qx("get", "A", "k", status=NOT_FOUND)
        self.assertEqual(self.answer("drop", b"yes\n").returncode, DONE)
        self.qx("header", "A", status=FAILURE)


if __name__ == "__main__":
    unittest.main()
