"""What the tests of the tool share: a directory each, and a way to run the tool in it. QX_TOOL names the tool."""
import os
import subprocess
import tempfile
import unittest

TOOL = os.environ.get("QX_TOOL", "qx")

DONE, NOT_FOUND, WRONG_USE, FAILURE = range(4)


class Result:
    def __init__(self, completed):
        self.status = completed.returncode
        self.bytes = completed.stdout
        self.out = completed.stdout.decode("utf-8", "surrogateescape")
        self.err = completed.stderr.decode("utf-8", "surrogateescape")


class ToolCase(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def path(self, name):
        return os.path.join(self.directory, name)

    def hashed_files(self):
        """The files that hashed files consist of."""
        return sorted(name for name in os.listdir(self.directory) if name.endswith((".LK", ".OV")))

    def write(self, name, content):
        """Makes a file with these bytes or this text, and returns its name."""
        with open(self.path(name), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return name

    def run_tool(self, *arguments, stdin=b"", **others):
        completed = subprocess.run([TOOL, *arguments], cwd=self.directory, input=stdin, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, timeout=300, check=False, **others)
        return Result(completed)

    def qx(self, *arguments, stdin=b"", status=DONE):
        """Runs the tool, which must exit with `status` and complain if and only if it is not 0."""
        result = self.run_tool(*arguments, stdin=stdin)
        told = f"qx {arguments}: {result.out!r} {result.err!r}"
        self.assertEqual(result.status, status, told)
        if status == DONE:
            self.assertEqual(result.err, "", told)
        else:
            self.assertNotEqual(result.err + result.out, "", told)
        return result

    def raw(self, *arguments):
        """The bytes of a record."""
        return self.qx("get", *arguments, "--raw").bytes
