"""The command line itself: help, wrong use, messages and exit statuses that all commands share."""
import json
import os
import re
import subprocess
import unittest

from tool_case import DONE, FAILURE, TOOL, WRONG_USE, ToolCase


class CommandLine(ToolCase):
    def test_help_of_every_command_has_examples(self):
        overview = self.qx("--help").out
        commands = re.findall(r"\n  (\w+)  +\w", overview)
        self.assertGreater(len(commands), 20)
        for command in commands:
            text = self.qx(command, "--help").out
            self.assertIn(f"Usage: qx {command}", text)
            self.assertIn("\nExamples:\n  ", text)
            self.assertRegex(text, rf"\n  (.*\| )?qx {command} ")

    def test_version(self):
        self.assertRegex(self.qx("--version").out, r"\Aqx \d+\.\d+\.\d+\nlibqx \d+\.\d+\.\d+\n\Z")

    def test_wrong_use_is_2_and_says_where_to_look(self):
        self.qx("create", "A")
        for arguments in [[], ["bogus"], ["get"], ["get", "A"], ["get", "A", "k", "--bogus"], ["put", "A", "k", "f", "-x"],
                          ["delete", "A"], ["group", "A"], ["header"], ["header", "A", "B"], ["import"],
                          ["import", "A", "-", "B"], ["create", "A", "B"], ["create", "B", "--modulo", "many"],
                          ["create", "B", "--for", "5"], ["create", "B", "--record-bytes", "5"],
                          ["create", "B", "--for", "5", "--record-bytes", "5", "--modulo", "3"]]:
            result = self.qx(*arguments, status=WRONG_USE)
            self.assertTrue(result.err.startswith("qx: "), result.err)
            self.assertRegex(result.err, r"\nTry 'qx( \w+)? --help'\.\n\Z")
            self.assertEqual(result.out, "")

    def test_a_missing_file_is_3_and_is_named(self):
        for arguments in [["get", "NONE", "k"], ["put", "NONE", "k", "f"], ["delete", "NONE", "k"], ["group", "NONE", "k"],
                          ["header", "NONE"], ["clear", "NONE", "--yes"], ["drop", "NONE", "--yes"], ["import", "NONE"],
                          ["compare", "NONE"], ["keys", "NONE"], ["export", "NONE"], ["dump", "NONE"], ["copy", "NONE", "B"]]:
            result = self.qx(*arguments, status=FAILURE)
            self.assertRegex(result.err, r"\Aqx: NONE: .*\. \(code 231\)\n\Z")
        self.assertEqual(os.listdir(self.directory), [])

    def test_the_extension_is_hinted_at(self):
        self.qx("create", "A")
        self.assertIn("extension .LK", self.qx("header", "A.LK", status=FAILURE).err)

    def test_a_damaged_file_is_told(self):
        self.qx("create", "A")
        self.write("A.LK", b"\0" * 1024)
        for arguments in [["get", "A", "k"], ["put", "A", "k", "f"], ["header", "A"], ["compare", "A", "A.OV"]]:
            self.assertIn("(code 1003)", self.qx(*arguments, status=FAILURE).err)

    def test_output_that_goes_nowhere_is_a_failure(self):
        self.qx("create", "A")
        self.qx("put", "A", "k", "x" * 100_000)
        for arguments in [["get", "A", "k"], ["header", "A"], ["group", "A", "k"], ["--help"], ["get", "--help"]]:
            with open("/dev/full", "wb") as full:
                ended = subprocess.run([TOOL, *arguments], cwd=self.directory, stdout=full, stderr=subprocess.PIPE,
                                       check=False)
            self.assertEqual(ended.returncode, FAILURE, arguments)
            self.assertIn(b"qx: standard output: No space left", ended.stderr)

            reader, writer = os.pipe()
            os.close(reader)
            ended = subprocess.run([TOOL, *arguments], cwd=self.directory, stdout=writer, stderr=subprocess.PIPE,
                                   check=False)
            os.close(writer)
            self.assertEqual(ended.returncode, FAILURE, arguments)
            self.assertIn(b"qx: standard output: Broken pipe", ended.stderr)

    def test_files_are_named_in_any_form(self):
        os.mkdir(self.path("dir"))
        self.qx("create", "dir/A")
        self.qx("put", ".\\dir\\A", "k", "f")
        self.assertEqual(self.qx("get", self.path("dir/A"), "k").out, "f\n")
        self.qx("drop", "dir/../dir/A", "--yes")
        self.qx("create", "[list]")
        self.qx("put", "[list]", "k", "f")
        self.assertTrue(os.path.exists(self.path("[list].LK")))

    def test_create_chooses_the_shape_for_what_is_to_come(self):
        for records, size, options, shape in [(10_000, 20, [], (1024, 282)), (100_000, 500, [], (2048, 30_883)),
                                              (1_000, 5_000, ["--threshold", "128"], (16384, 611)),
                                              (3_000, 20_000, ["--version", "110"], (32768, 2_299)), (1, 1, [], (1024, 1))]:
            name = f"A{records}"
            out = self.qx("create", name, "--for", str(records), "--record-bytes", str(size), *options).out
            self.assertRegex(out, rf"\A{name}: {shape[1]:,} groups? of {shape[0]:,} bytes; with {records:,} records? a read "
                                  r"will visit 1\.[0-3] frames on average\n\Z")
            header = json.loads(self.qx("header", name, "--json").out)
            self.assertEqual((header["frameSize"], header["modulo"], header["sizeLock"]), (*shape, 1))

    def test_create_says_what_it_adjusts_and_refuses_the_rest(self):
        result = self.run_tool("create", "A", "--frame-size", "10", "--threshold", "999")
        self.assertEqual((result.status, result.out), (DONE, ""))
        self.assertEqual(result.err, "qx: note: --frame-size 10 is out of range; 256 is used\n"
                                     "qx: note: --threshold 999 is out of range; 255 is used\n")
        self.assertIn("(code 230)", self.qx("create", "A", status=FAILURE).err)
        for option, value in [("--modulo", "0"), ("--modulo", "4294967296"), ("--modulo", "-1"), ("--frame-size", "0"),
                              ("--threshold", "0"), ("--size-lock", "65536"), ("--version", "100"),
                              ("--version", "112")]:
            self.assertIn(option, self.qx("create", "B", option, value, status=WRONG_USE).err)
        self.assertIn("65535", self.qx("create", "B", "--version", "110", "--frame-size", "65536", status=WRONG_USE).err)
        self.assertFalse(os.path.exists(self.path("B.LK")))


if __name__ == "__main__":
    unittest.main()
