"""qx header: the file's settings, its load and what follows from it."""
import json
import os
import unittest

from tool_case import ToolCase


class Header(ToolCase):
    def json(self, name):
        return json.loads(self.qx("header", name, "--json").out)

    def test_a_new_file(self):
        self.qx("create", "A", "--modulo", "5", "--frame-size", "512", "--threshold", "128", "--size-lock", "1",
                "--version", "110")
        header = self.json("A")
        self.assertEqual(header, {
            "version": 110, "modulo": 5, "frameSize": 512, "threshold": 128, "thresholdBytes": 256, "sizeLock": 1,
            "recordCount": 0, "load": 33 + 4 * 14, "percentOfFrames": 3.5, "percentOfThreshold": 7.0,
            "bytesPerGroup": 17.8, "wouldGrow": False, "wouldShrink": False, "countsVerified": False,
            "primaryFileBytes": 5 * 512, "overflowFileBytes": 0})

    def test_load_and_sizes_follow_the_records(self):
        self.qx("create", "A", "--modulo", "2", "--size-lock", "2")
        empty = self.json("A")
        self.qx("put", "A", "key", "0123456789")
        header = self.json("A")
        self.assertEqual(header["recordCount"], 1)
        self.assertEqual(header["load"], empty["load"] + 16)
        self.qx("put", "A", "large", "x" * 5000)
        header = self.json("A")
        self.assertEqual(header["overflowFileBytes"], os.path.getsize(self.path("A.OV")))
        self.assertGreater(header["overflowFileBytes"], 4 * 1024)
        self.assertLessEqual(header["load"], 2 * 1024)

    def test_both_forms_say_the_same(self):
        self.qx("create", "A", "--modulo", "2", "--size-lock", "2")
        self.qx("put", "A", "key", "0123456789")
        header = self.json("A")
        self.assertEqual(self.qx("header", "A").out, f"""\
Version          120
Groups (modulo)  2
Frame size       1,024 bytes
Threshold        204 (816 bytes a group)
Size lock        2 (the number of groups stays as it is)
Records          1
Load (alpha)     {header["load"]} bytes ({header["percentOfFrames"]} % of the frames, \
{header["percentOfThreshold"]} % of the threshold)
Bytes a group    {header["bytesPerGroup"]} on average
Would grow       no
Would shrink     no
Counts verified  no
Primary file     2,048 bytes
Overflow file    0 bytes
""")

    def test_sizes_are_unknown_under_another_spelling(self):
        self.qx("create", "CUST")
        header = self.json("cust")
        self.assertEqual(header["version"], 120)
        self.assertEqual((header["primaryFileBytes"], header["overflowFileBytes"]), (None, None))
        self.assertIn("Primary file     unknown\n", self.qx("header", "cust").out)


if __name__ == "__main__":
    unittest.main()
