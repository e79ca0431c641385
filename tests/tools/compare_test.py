"""qx compare: finds every difference between a file and the text it was imported from."""
import unittest

from tool_case import FAILURE, NOT_FOUND, ToolCase


class Compare(ToolCase):
    def setUp(self):
        super().setUp()
        self.qx("create", "A", "--modulo", "5")
        self.text = b"".join(b"%d,name %d,%d\n" % (number, number, number * number) for number in range(1, 301))
        self.qx("import", "A", stdin=self.text)

    def compare(self, *options, status=NOT_FOUND):
        return self.qx("compare", "A", *options, stdin=self.text, status=status).out

    def test_the_same(self):
        self.assertEqual(self.compare(status=0), "A: 300 records compared: all the same\n")

    def test_differences_are_told_by_line_key_and_field(self):
        self.qx("put", "A", "7", "name 7", "50")
        self.qx("put", "A", "8", "name 8")
        self.qx("put", "A", "9", "name 9", "81", "")
        self.qx("delete", "A", "10")
        self.qx("put", "A", "more", "x")
        self.assertEqual(self.compare(), """\
standard input: line 7: key "7": field 2 is "50", the input has "49"
standard input: line 8: key "8": field 2 is missing, the input has "64"
standard input: line 9: key "9": field 3 is "", the input has none
standard input: line 10: key "10": not in the file
A: the file counts 300 records, 299 of the input are in it
A: 300 records compared: 3 different, 1 not in the file
""")

    def test_one_record_too_many_is_a_difference_unless_the_input_is_partial(self):
        self.qx("put", "A", "more", "x")
        self.assertIn("301", self.compare())
        self.assertIn("all the same", self.compare("--partial", status=0))

    def test_other_options_than_those_of_the_import_find_everything_different(self):
        out = self.compare("--key", "3")
        self.assertEqual(len(out.splitlines()), 22)
        self.assertIn("further differences are only counted", out)
        self.assertIn("not in the file", out)

    def test_of_long_fields_and_keys_only_the_beginning_is_told(self):
        key, field = "k" * 1000, "f" * 1000
        out = self.qx("compare", "A", stdin=f"{key},x\n1,{field},1\n".encode(), status=NOT_FOUND).out
        self.assertIn('key "' + "k" * 80 + '"... (1,000 bytes): not in the file', out)
        self.assertIn('the input has "' + "f" * 80 + '"... (1,000 bytes)\n', out)

    def test_a_bad_line_is_a_failure(self):
        self.assertIn("line 1: the key is empty", self.qx("compare", "A", stdin=b",x\n", status=FAILURE).err)


if __name__ == "__main__":
    unittest.main()
