"""qx export: what import reads back as the same records, whatever they hold, or says that it cannot."""
import unittest

from dump_text import dump_of
from hostile_records import hostile_records
from tool_case import FAILURE, WRONG_USE, ToolCase


class Export(ToolCase):
    def load(self, name, records):
        self.qx("load", name, stdin=dump_of(records))

    def records_of(self, name):
        return sorted(self.qx("dump", name).bytes.splitlines()[6:-1])

    def export(self, name, *options, status=0):
        return self.qx("export", name, *options, status=status)

    def check_round_trip(self, *options, import_options=None):
        text = self.export("A", *options).bytes
        import_options = options if import_options is None else import_options
        self.qx("create", "B")
        self.qx("import", "B", *import_options, stdin=text)
        self.assertEqual(self.records_of("B"), self.records_of("A"), options)
        self.assertIn("all the same", self.qx("compare", "B", *import_options, stdin=text).out)
        self.qx("drop", "B", "--yes")

    def test_a_round_trip_gives_the_same_records(self):
        records = hostile_records()
        del records[b""]
        for bom in [b"\xef\xbb\xbf", b"\xef\xbb\xbf,"]:
            records[bom] = bom
        self.load("A", records)
        for options in [[], ["--delimiter", "\\t"], ["--delimiter", "\\xFE"], ["--delimiter", "a"],
                        ["--delimiter", "\\x00"]]:
            self.check_round_trip(*options)

    def test_the_key_stands_in_any_column_and_the_header_names_them(self):
        self.load("A", {b"1": b"Ann\xfeLondon", b"2": b"Bo, b\xfe", b"3": b"\xfe"})
        self.assertEqual(sorted(self.export("A").out.splitlines()), ["1,Ann,London", '2,"Bo, b",', "3,,"])
        for header, key, first in [("number,name,city", "number", "1,Ann,London"),
                                   ("name,number,city", "2", "Ann,1,London"),
                                   ('name,"the ""city""",a\'b', "a'b", "Ann,London,1"),
                                   ('"a,b",c,"d\ne"', "c", "Ann,1,London")]:
            options = ["--header", header, "--key", key]
            text = self.export("A", *options).out
            self.assertTrue(text.startswith(header + "\n"))
            self.assertIn("\n" + first + "\n", text)
            self.check_round_trip(*options, import_options=["--header", "--key", key])
        self.check_round_trip("--key", "3")
        self.load("C", {b"1": b""})
        self.assertEqual(self.export("C", "--header", "k").out, "k\n1\n")
        self.assertEqual(self.export("C", "--key", "2").out, ",1\n")

    def test_no_quotes_are_written_where_none_are_understood(self):
        self.load("A", {b'"1"': b'"\xfesay "so"', b"2": b'x"'})
        self.assertEqual(sorted(self.export("A", "--no-quotes").out.splitlines()), ['"1",",say "so"', '2,x"'])
        self.check_round_trip("--no-quotes")
        self.check_round_trip("--no-quotes", "--delimiter", "\\xFE")

    def test_what_makes_no_line_is_told_or_passed_over(self):
        for key, record, options, reason in [
                (b"", b"x", [], 'key "": the key is empty'),
                (b"k", b"x", ["--key", "3"], 'key "k": the record has 1 field, the key is column 3'),
                (b"k", b"x\xfey", ["--header", "a,b"], "the record has 2 fields, the header has 1 besides the key"),
                (b"k", b"", ["--header", "a,b,c"], "the record has 1 field, the header has 2 besides the key"),
                (b"k", b"x,y", ["--no-quotes"], "column 2 holds the delimiter"),
                (b"k\n", b"x", ["--no-quotes"], "column 1 holds"), (b"k", b"x\r", ["--no-quotes"], "column 2 holds")]:
            self.load("A", {key: record})
            self.assertIn("qx: A: key ", self.export("A", *options, status=FAILURE).err)
            result = self.run_tool("export", "A", "--skip-bad", *options)
            self.assertEqual(result.status, 0)
            self.assertIn(reason, result.err)
            self.assertIn("qx: A: 1 record passed over\n", result.err)
            self.assertNotIn("k", result.out)
            self.qx("drop", "A", "--yes")
        self.load("A", {b"%d" % number: b"x,y" for number in range(100)})
        result = self.run_tool("export", "A", "--skip-bad", "--no-quotes")
        self.assertEqual(len(result.err.splitlines()), 21)
        self.assertIn("qx: A: 100 records passed over\n", result.err)

    def test_options_that_make_no_sense(self):
        self.qx("create", "A")
        for options in [["--key", "name"], ["--header", ""], ["--header", "a,b", "--key", "c"],
                        ["--header", "a,a", "--key", "a"],
                        ["--header", "a,b", "--key", "3"], ["--header", '"a'],
                        ["--header", "a\nb"], ["--header", '"a"b'], ["--delimiter", ",,"]]:
            result = self.export("A", *options, status=WRONG_USE)
            self.assertTrue(result.err.startswith("qx: --"), result.err)
            self.assertEqual(result.out, "")


if __name__ == "__main__":
    unittest.main()
