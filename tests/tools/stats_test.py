"""qx stats and qx import --stats: the library's reports as tables and as JSON."""
import json
import os
import signal
import subprocess
import unittest

from tool_case import TOOL, WRONG_USE, FAILURE, ToolCase


class Stats(ToolCase):
    def setUp(self):
        super().setUp()
        self.qx("create", "A", "--modulo", "3", "--size-lock", "2")
        self.qx("put", "A", "key", "data")

    def json(self, *arguments):
        return json.loads(self.qx("stats", *arguments, "--json").out)

    def test_a_file(self):
        report = self.json("A")
        expected = {"File Name": "A", "Session Files": [0], "OV File Handle": -1, "Read Only": False, "Modulo": 3,
                    "Record Count": 1, "File Locks": [], "Record Locks": [], "Select Locks Held": 0, "Select Locks": 0,
                    "Open Files": 1, "Write Errors": None}
        self.assertEqual({label: report[label] for label in expected}, expected)
        table = self.qx("stats", "A").out
        self.assertRegex(table, r"(?m)^Modulo +3$")
        self.assertRegex(table, r"(?m)^Record Locks$")
        self.assertEqual(len(table.splitlines()), len(report))

    def test_a_volume_and_the_process(self):
        self.qx("create", "7")
        volume = self.json(".")
        self.assertEqual((volume["File Names"], volume["Active Files"]), (["7"], 1))
        self.assertTrue(volume["Volume Name"].startswith("\\\\"))
        self.assertEqual(self.json(self.directory)["Volume Name"], volume["Volume Name"])
        process = self.json()
        self.assertEqual((process["QX API Version"], process["Volume Names"], process["Open Sessions"]),
                         ("1.1.1.0", [], 1))

    def test_import_tells_what_it_did(self):
        out = self.qx("import", "A", "--stats", stdin=b"1,a\n2,b\n3,c\n").out
        self.assertRegex(out, r"(?m)^Write Records +3$")
        self.assertRegex(out, r"(?m)^Close Files +1$")
        self.assertRegex(out, r"(?m)^Active Session Files +0$")

    def test_watch_follows_other_processes(self):
        watch = subprocess.Popen([TOOL, "stats", "A", "--watch", "1"], cwd=self.directory, stdout=subprocess.PIPE)
        self.assertIn(b"records", watch.stdout.readline())
        first = watch.stdout.readline().split()
        self.assertEqual((first[0], first[2]), (b"1", b"3"))
        self.qx("put", "A", "other", "data")
        while watch.stdout.readline().split()[0] != b"2":
            pass
        watch.send_signal(signal.SIGINT)
        self.assertEqual(watch.wait(timeout=60), 0)
        watch.stdout.close()

    def test_wrong_use(self):
        for arguments in (["--watch", "1"], [".", "--watch", "1"], ["A", "--watch", "0"], ["A", "--watch", "1", "--json"]):
            self.qx("stats", *arguments, status=WRONG_USE)
        self.qx("stats", "NONE", status=FAILURE)
        self.assertIn("xxx: File name too long", self.qx("stats", "x" * 300, status=FAILURE).err)
        os.mkdir(self.path("empty"))
        self.assertIn("no hashed file", self.qx("stats", "empty", status=FAILURE).err)


if __name__ == "__main__":
    unittest.main()
