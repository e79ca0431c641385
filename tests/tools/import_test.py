"""qx import: delimited text of all kinds, bad lines, and imports that are broken off."""
import os
import pty
import random
import re
import signal
import subprocess
import time
import unittest

from tool_case import DONE, FAILURE, NOT_FOUND, TOOL, WRONG_USE, ToolCase


def csv(rows, delimiter=b",", line_end=b"\r\n"):
    """Quotes every column, whatever it holds."""
    return b"".join(delimiter.join(b'"' + column.replace(b'"', b'""') + b'"' for column in row) + line_end
                    for row in rows)


class Import(ToolCase):
    def setUp(self):
        super().setUp()
        self.qx("create", "A", "--modulo", "5")

    def import_text(self, text, *options, status=DONE):
        return self.qx("import", "A", *options, stdin=text, status=status)

    def records(self):
        return int(re.search(r"\nRecords +([0-9,]+)\n", self.qx("header", "A").out)[1].replace(",", ""))

    def test_columns_become_fields(self):
        result = self.import_text(b"1,Ann,London\n2,,\n3\n")
        self.assertRegex(result.out, r"\AA: 3 records imported in .* s \(.*\); the file holds 3 records, before 0\n\Z")
        self.assertEqual([self.raw("A", key) for key in "123"], [b"Ann\xfeLondon", b"\xfe", b""])
        self.import_text(b"Bob,1,Paris\n", "--key", "2")
        self.assertEqual(self.raw("A", "1"), b"Bob\xfeParis")
        self.assertIn("before 3", self.import_text(b"").out)
        self.assertEqual(self.records(), 3)

    def test_the_input_is_a_file_a_dash_or_nothing(self):
        name = self.write("data", "1,of the file\n")
        self.qx("import", "A", name)
        self.import_text(b"2,of standard input\n", "-")
        self.assertEqual(self.qx("get", "A", "1").out, "of the file\n")
        self.assertEqual(self.qx("get", "A", "2").out, "of standard input\n")
        self.assertIn("qx: none: No such file", self.qx("import", "A", "none", status=FAILURE).err)
        self.assertIn("qx: .: Is a directory", self.qx("import", "A", ".", status=FAILURE).err)
        self.assertIn("qx: .: Is a directory", self.qx("compare", "A", ".", status=FAILURE).err)

    def test_lines_end_in_several_ways(self):
        self.import_text(b"\xef\xbb\xbf1,a\r\n\r\n2,b\n\n\"3\",\"c\"\r\n4,\r\r\n5,e")
        self.assertEqual([self.raw("A", key) for key in "12345"], [b"a", b"b", b"c", b"\r", b"e"])
        self.assertEqual(self.records(), 5)

    def test_quotes(self):
        self.import_text(b'1,"a,b","say ""so""","two\nlines","",x "y" z\n"2 ""b""","\r\n"\n')
        self.assertEqual(self.raw("A", "1"), b'a,b\xfesay "so"\xfetwo\nlines\xfe\xfex "y" z')
        self.assertEqual(self.raw("A", '2 "b"'), b"\r\n")
        self.import_text(b'1,"a\n2,b"",c\n', "--no-quotes")
        self.assertEqual([self.raw("A", key) for key in "12"], [b'"a', b'b""\xfec'])

    def test_any_bytes_survive_quoting(self):
        seed = random.randrange(2**32)
        print(f"seed {seed}")
        generator = random.Random(seed)
        alphabet = bytes(byte for byte in range(255) if byte != 0xFE) + b'",\r\n' * 20
        rows = [[b"%d" % number] + [bytes(generator.choices(alphabet, k=generator.randrange(12))) for _ in range(3)]
                for number in range(200)]
        for delimiter in [b",", b"\t", b";", b"|"]:
            name = self.write("data", csv(rows, delimiter))
            self.qx("import", "A", name, "--delimiter", delimiter)
            self.assertIn("200 records compared: all the same",
                          self.qx("compare", "A", name, "--delimiter", delimiter).out)
        for row in generator.sample(rows, 5):
            self.assertEqual(self.raw("A", row[0]), b"\xfe".join(row[1:]))

    def test_delimiters(self):
        self.import_text(b"1\ta,b\n", "--delimiter", "\\t")
        self.assertEqual(self.raw("A", "1"), b"a,b")
        self.import_text(b"1\0x\n", "--delimiter", "\\x00")
        self.assertEqual(self.raw("A", "1"), b"x")
        self.import_text(b"1\xffy\n", "--delimiter", "\\xFF")
        self.assertEqual(self.raw("A", "1"), b"y")
        for delimiter in ["", ",,", "\\n", "\n", "\\x0A", "\\xG0", "\\x1", '"', "é"]:
            self.assertIn("--delimiter", self.import_text(b"", "--delimiter", delimiter, status=WRONG_USE).err)
        self.import_text(b'1"z\n', "--delimiter", '"', "--no-quotes")
        self.assertEqual(self.raw("A", "1"), b"z")

    def test_a_header_names_columns(self):
        text = b'name,"the ""key""",name\nAnn,1,London\n'
        self.import_text(text, "--header", "--key", 'the "key"')
        self.assertEqual(self.raw("A", "1"), b"Ann\xfeLondon")
        self.import_text(text, "--header", "--key", "3")
        self.assertEqual(self.raw("A", "London"), b"Ann\xfe1")
        self.assertEqual(self.records(), 2)
        for options, complaint in [(["--key", "none"], 'line 1: no column is named "none"'),
                                   (["--key", "name"], 'line 1: several columns are named "name"'),
                                   (["--key", "4"], "line 1: the key is column 4, but the header has 3")]:
            self.assertIn(complaint, self.import_text(text, "--header", *options, status=FAILURE).err)
        self.assertIn("no header line", self.import_text(b"", "--header", status=FAILURE).err)
        for key in ["none", "0", "-1", "1.5", ""]:
            self.assertIn("--key", self.import_text(text, "--key", key, status=WRONG_USE).err)

    BAD = [(b"1", ["--key", "2"], "it has 1 column, the key is column 2"),
           (b",x", [], "the key is empty"),
           (b'"",x', [], "the key is empty"),
           (b'"1"x,y', [], "there is text behind the closing quotes of column 1"),
           (b"1,a,b\xfec", [], "column 3 holds the byte FE")]

    def test_a_bad_line_stops_the_import_and_is_named(self):
        for line, options, complaint in self.BAD:
            text = b'"a\n1","a\n1"\n\n' + line + b"\nz,z\n"
            result = self.import_text(text, *options, status=FAILURE)
            self.assertIn(f"qx: standard input: line 5: {complaint}", result.err)
            self.assertRegex(result.out, r"\AA: 1 record, not all, imported ")
            self.qx("get", "A", "z", status=NOT_FOUND)
        self.assertEqual(self.records(), 1)

    def test_bad_lines_can_be_passed_over(self):
        text = b"first,1\n" + b"\n".join(line for line, _, _ in self.BAD[1:]) + b"\nlast,2\n"
        result = self.run_tool("import", "A", "--skip-bad", stdin=text)
        self.assertEqual(result.status, DONE)
        self.assertEqual(len(result.err.splitlines()), 4)
        for number in range(2, 6):
            self.assertIn(f"line {number}: ", result.err)
        self.assertIn("2 records imported", result.out)
        self.assertIn("4 bad lines passed over", result.out)
        self.assertEqual(self.raw("A", "last"), b"2")
        many = self.run_tool("import", "A", "--skip-bad", stdin=b",\n" * 1000)
        self.assertEqual(len(many.err.splitlines()), 20)
        self.assertIn("1,000 bad lines", many.out)

    def test_with_a_header_every_line_has_its_columns(self):
        text = b"k,a\n1,x\n2\n3,x,y\n4,z\n"
        result = self.run_tool("import", "A", "--header", "--skip-bad", stdin=text)
        self.assertIn("line 3: it has 1 column, the header has 2", result.err)
        self.assertIn("line 4: it has 3 columns, the header has 2", result.err)
        self.assertEqual(self.records(), 2)

    def test_quotes_that_are_never_closed_end_it_even_when_skipping(self):
        result = self.import_text(b'1,a\n2,"b\nc\n3,d\n', "--skip-bad", status=FAILURE)
        self.assertIn("qx: standard input: line 2: the quotes opened here are never closed", result.err)
        self.assertEqual(self.records(), 1)

    def test_an_interrupt_keeps_what_was_imported(self):
        for sent in [signal.SIGINT, signal.SIGTERM]:
            with subprocess.Popen([TOOL, "import", "A"], cwd=self.directory, stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
                key = sent.name
                process.stdin.write(f"{key},stored\nhalf a li".encode())
                process.stdin.flush()
                while self.run_tool("get", "A", key).status != DONE:
                    time.sleep(0.02)
                process.send_signal(sent)
                out, err = process.communicate(timeout=60)
            self.assertEqual(process.returncode, FAILURE)
            self.assertIn(b"qx: interrupted\n", err)
            self.assertRegex(out, rb"\AA: 1 record, not all, imported ")
            self.assertEqual(self.raw("A", key), b"stored")
        self.assertEqual(self.records(), 2)

    def test_progress_is_for_terminals(self):
        text = b"".join(b"%d,x\n" % number for number in range(1000))
        self.assertEqual(self.import_text(text).err, "")
        name = self.write("data", text)
        terminal, tool_side = pty.openpty()
        process = subprocess.run([TOOL, "import", "A", name], cwd=self.directory, stdout=subprocess.PIPE,
                                 stderr=tool_side, timeout=60, check=False)
        os.close(tool_side)
        shown = b""
        try:
            while piece := os.read(terminal, 4096):
                shown += piece
        except OSError:  # how the end of a terminal looks
            pass
        os.close(terminal)
        self.assertEqual(process.returncode, DONE)
        self.assertRegex(shown, rb"records, [0-9,]+ a second, [0-9.]+ %, \d+:\d\d to go")
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown)

    def test_a_record_that_cannot_be_written_is_named(self):
        self.write("A.LK", b"\0" * 5 * 1024)
        result = self.run_tool("import", "A", stdin=b"1,x\n")
        self.assertEqual(result.status, FAILURE)
        self.assertIn("(code 1003)", result.err)


if __name__ == "__main__":
    unittest.main()
