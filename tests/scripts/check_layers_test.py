"""Builds small trees and has scripts/check-layers judge them. Usage: check_layers_test.py CHECK-LAYERS"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

# A tree in order that uses what each floor may use.
GOOD = {
    "include/qx.h": "#define QX_API\n",
    "src/platform/file_service.h": "#include <cstdint>\n",
    "src/platform/posix/posix_file_service.h": '#include <sys/types.h>\n#include "platform/file_service.h"\n',
    "src/platform/posix/posix_file_service.cpp": '#include "platform/posix/posix_file_service.h"\n#include <fcntl.h>\n',
    "src/runtime/status.h": '#include <string>\n#include "platform/file_service.h"\n#include "qx.h"\n',
    "src/locking/lock_offsets.h": "#include <cstdint>\n",
    "src/volume/path.h": '#include "runtime/status.h"\n',
    "src/remote/connection.h": '#include "volume/path.h"\n',
    "src/storage/layout/frame.h": "#include <span>\n",
    "src/storage/layout/header.h": '#include "storage/layout/frame.h"\n',
    "src/storage/file.h": '#include "remote/connection.h"\n#include "storage/layout/header.h"\n',
    "src/api/session.cpp": '#include "storage/file.h"\nextern "C" QX_API int QXFlush();\n',
    "tools/qx/dump.h": "#include <qx.hpp>\n#include <CLI/CLI.hpp>\n",
    "tools/qx/posix/child.cpp": "#include <unistd.h>\n",
    "tools/qx/dump.cpp": '#include "dump.h"\n#include "storage/layout/header.h"\n#include "locking/lock_offsets.h"\n',
    "tests/checker/bytes.h": "#include <fcntl.h>\n",
    "tests/checker/main.cpp": '#include "checker/bytes.h"\n',
}

# One line that breaks a rule: the file that it is added to, the line, and words of the complaint.
BAD = [
    ("src/runtime/status.h", '#include "storage/file.h"', "above"),
    ("src/platform/file_service.h", '#include "runtime/status.h"', "above"),
    ("src/volume/path.h", '#include "remote/connection.h"', "above"),
    ("src/storage/file.h", '#include "../api/session.cpp"', "relative to src/"),
    ("src/storage/file.h", '#include "../src/runtime/status.h"', ".."),
    ("src/storage/file.h", '#include "layout/header.h"', "relative to src/"),
    ("src/storage/file.h", "#include <unistd.h>", "system headers"),
    ("src/platform/file_service.h", "  #  include <sys/stat.h> // for struct stat", "system headers"),
    ("src/runtime/status.h", '#include "platform/posix/posix_file_service.h"', "through the headers"),
    ("src/platform/file_service.h", '#include "platform/posix/posix_file_service.h"', "through the headers"),
    ("src/storage/layout/frame.h", '#include "runtime/status.h"', "codecs"),
    ("src/storage/layout/frame.h", '#include "qx.h"', "codecs"),
    ("src/locking/lock_offsets.h", '#include "runtime/status.h"', "C++ library only"),
    ("src/runtime/status.h", "#include SYSTEM_HEADER", "cannot tell"),
    ("src/storage/file.h", 'extern "C" int QXOther();', "C interface"),
    ("src/runtime/status.h", "QX_API int QXOther();", "C interface"),
    ("tools/qx/dump.cpp", '#include "storage/file.h"', "tool"),
    ("tools/qx/dump.cpp", '#include "../../src/storage/file.h"', "tool"),
    ("tools/qx/dump.cpp", "#include <unistd.h>", "tool"),
    ("tests/checker/main.cpp", '#include "../../src/storage/layout/frame.h"', "byte checker"),
    ("tests/checker/main.cpp", "#include <qx.h>", "byte checker"),
]


def judge(files):
    with tempfile.TemporaryDirectory() as root:
        for name, text in files.items():
            path = pathlib.Path(root, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        return subprocess.run([sys.executable, CHECK_LAYERS, "--root", root], capture_output=True, text=True)


class CheckLayers(unittest.TestCase):
    def test_a_tree_in_order_is_accepted(self):
        result = judge(GOOD)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_each_breach_is_refused_and_located(self):
        for name, line, words in BAD:
            with self.subTest(file=name, line=line):
                result = judge(GOOD | {name: GOOD[name] + line + "\n"})
                self.assertEqual(result.returncode, 1)
                place = f"{name}:{GOOD[name].count(chr(10)) + 1}: "
                self.assertEqual(len(result.stderr.splitlines()), 1)
                self.assertTrue(result.stderr.startswith(place), result.stderr)
                self.assertIn(words, result.stderr)

    def test_what_stands_in_comments_is_no_breach(self):
        comments = '// #include "storage/file.h"\n/*\n#include <unistd.h>\nextern "C" */ // QX_API\n'
        result = judge(GOOD | {"src/runtime/status.h": comments})
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_a_source_on_no_floor_is_refused(self):
        result = judge(GOOD | {"src/extras/thing.h": "#include <string>\n"})
        self.assertEqual(result.returncode, 1)
        self.assertIn("on no floor", result.stderr)

    def test_a_tree_without_sources_is_refused(self):
        self.assertNotEqual(judge({"include/qx.h": ""}).returncode, 0)


if __name__ == "__main__":
    CHECK_LAYERS = sys.argv.pop(1)
    unittest.main()
