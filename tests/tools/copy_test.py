"""qx keys and copy: every record, in another file."""
import json
import os
import resource
import signal
import subprocess
import time
import unittest

from dump_text import dump_of
from hostile_records import hostile_records
from tool_case import DONE, FAILURE, TOOL, WRONG_USE, ToolCase


class Copy(ToolCase):
    def header(self, name):
        return json.loads(self.qx("header", name, "--json").out)

    def make(self, name, records, *options):
        self.qx("load", name, *options, stdin=dump_of(records))

    def import_numbers(self, name, count, *options):
        self.qx("create", name, *options)
        self.qx("import", name, stdin=b"".join(b"%d,record %d\n" % (number, number) for number in range(count)))

    def test_keys_are_walked_in_both_directions_whatever_their_bytes(self):
        records = dict(sorted(hostile_records().items())[::4])
        self.make("A", records, "--modulo", "11", "--size-lock", "2")
        keys = self.qx("keys", "A", "--hex").out.splitlines()
        self.assertEqual(sorted(bytes.fromhex(key) for key in keys), sorted(records))
        groups = [int(group) for group in self.qx("group", "A", "--hex", *keys).out.split()]
        self.assertEqual(groups, sorted(groups))
        backward = self.qx("keys", "A", "--hex", "--reverse").out.splitlines()
        self.assertEqual(sorted(backward), sorted(keys))
        groups = [int(group) for group in self.qx("group", "A", "--hex", *backward).out.split()]
        self.assertEqual(groups, sorted(groups, reverse=True))
        raw = [bytes.fromhex(key) for key in keys]
        self.assertEqual(self.qx("keys", "A").bytes, b"".join(key + b"\n" for key in raw))
        for option in ["-0", "--null"]:
            self.assertEqual(self.qx("keys", "A", option).bytes, b"".join(key + b"\0" for key in raw))
        self.assertEqual(self.qx("keys", "A", "--null", "--hex").out, "".join(key + "\0" for key in keys))

    def test_a_copy_holds_the_same_records_in_another_shape(self):
        records = dict(sorted(hostile_records().items())[1::4])
        self.make("A", records)
        size = sum(len(key) + len(record) for key, record in records.items())
        shapes = {"like": [], "large": ["--frame-size", "8192", "--version", "110"],
                  "small": ["--frame-size", "300", "--threshold", "128", "--size-lock", "1"],
                  "one": ["--modulo", "1", "--size-lock", "2"],
                  "fit": ["--fit"], "sized": ["--for", "10000", "--record-bytes", "50"]}
        for name, options in shapes.items():
            result = self.qx("copy", "A", name, *options)
            self.assertRegex(result.out.splitlines()[-1],
                             rf"\AA: {len(records)} records, {size:,} bytes, copied to {name} in ")
            keys = self.qx("keys", name, "--hex").out.splitlines()
            self.assertEqual(sorted(bytes.fromhex(key) for key in keys), sorted(records))
            for key in sorted(records)[::17]:
                self.assertEqual(self.raw(name, "--hex", key.hex()), records[key])
            header = self.header(name)
            for option, value in zip(options[::2], options[1::2]):
                field = {"--frame-size": "frameSize", "--size-lock": "sizeLock"}.get(option, option[2:])
                self.assertEqual(header.get(field, int(value)), int(value))

    def test_groups_follow_the_size_of_frames_and_stay_while_they_fill(self):
        self.import_numbers("A", 5000, "--modulo", "200", "--size-lock", "2")
        for frame, modulo in [(1024, 200), (2048, 100), (512, 400), (1_000_000, 1)]:
            self.qx("copy", "A", "B", "--frame-size", str(frame), "--overwrite")
            self.assertEqual(self.header("B")["modulo"], modulo)
        out = self.qx("copy", "A", "C", "--fit", "--size-lock", "0").out
        self.assertRegex(out, r"\AC: [0-9,]+ groups of [0-9,]+ bytes; with 5,000 records ")
        fitted = int(out.split(": ")[1].split(" groups")[0].replace(",", ""))
        # None is given up while the file fills; the last records may bring some more.
        self.assertIn(self.header("C")["modulo"], range(fitted, fitted + fitted // 10))

    def test_a_fitted_copy_of_an_old_version_may_come_from_larger_frames(self):
        for records, frame in [({b"k": b"x" * 20_000}, 32768), ({}, 65535)]:
            self.make("BIG", records, "--frame-size", "70000", "--modulo", "3", "--size-lock", "2")
            self.qx("copy", "BIG", "B", "--version", "110", status=WRONG_USE)
            self.qx("copy", "BIG", "B", "--version", "110", "--fit")
            header = self.header("B")
            self.assertEqual((header["version"], header["frameSize"], header["recordCount"]), (110, frame, len(records)))
            for name in ["BIG", "B"]:
                self.qx("drop", name, "--yes")

    def test_what_is_there_is_overwritten_only_when_asked(self):
        self.make("A", {b"k": b"new"})
        self.make("B", {b"k": b"old", b"l": b"old"})
        self.assertIn("qx: B: The hashed file exists already. (code 230)",
                      self.qx("copy", "A", "B", status=FAILURE).err)
        self.assertEqual(self.raw("B", "k"), b"old")
        self.qx("copy", "NONE", "B", "--overwrite", status=FAILURE)
        for options in [["--fit", "--modulo", "3"], ["--version", "110", "--frame-size", "70000"]]:
            self.qx("copy", "A", "B", "--overwrite", *options, status=WRONG_USE)
        self.assertEqual(self.raw("B", "k"), b"old")
        self.qx("copy", "A", "A", "--overwrite", status=FAILURE)
        self.qx("copy", "A", "B", "--overwrite")
        self.assertEqual(self.qx("keys", "B").out, "k\n")
        self.assertEqual(self.raw("A", "k"), b"new")

    def test_no_half_copy_stays(self):
        self.import_numbers("A", 20000)
        whole = self.hashed_files()

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (200_000, 200_000))
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

        result = self.run_tool("copy", "A", "B", "--modulo", "1", preexec_fn=limit)
        self.assertEqual(result.status, FAILURE)
        self.assertRegex(result.err, r"\Aqx: (key .*: )?B: .*\(code \d+\)\nqx: B: removed again, as it is not complete\n\Z")
        self.assertEqual(self.hashed_files(), whole)

        self.qx("copy", "A", "DAMAGED", "--frame-size", "400", "--modulo", "60", "--size-lock", "2")
        os.truncate(self.path("DAMAGED.OV"), 4000)
        result = self.qx("copy", "DAMAGED", "B", status=FAILURE)
        self.assertRegex(result.err, r"\Aqx: DAMAGED: .*\nqx: B: removed again")
        self.assertFalse(os.path.exists(self.path("B.LK")))

        with subprocess.Popen([TOOL, "copy", "A", "B"], cwd=self.directory, stderr=subprocess.PIPE,
                              stdout=subprocess.DEVNULL) as process:
            while not os.path.exists(self.path("B.LK")) and process.poll() is None:
                time.sleep(0.001)
            process.send_signal(signal.SIGTERM)
            _, err = process.communicate(timeout=60)
        if process.returncode != DONE:  # the copy may be faster than the signal
            self.assertEqual(err, b"qx: interrupted\nqx: B: removed again, as it is not complete\n")
            self.assertFalse(os.path.exists(self.path("B.LK")))


if __name__ == "__main__":
    unittest.main()
