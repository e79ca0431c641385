"""qx lock and qx locks: what one process has locked, another one is refused, and it is told who has it."""
import os
import signal
import subprocess
import unittest

from tool_case import DONE, FAILURE, TOOL, WRONG_USE, ToolCase

NOT_HAD, FAILED = 124, 125


class Locks(ToolCase):
    def setUp(self):
        super().setUp()
        self.qx("create", "CUST")

    def hold(self, *arguments, shell="cat"):
        """Locks with a command that says when it runs and then does what is asked, or waits for its input to end."""
        process = subprocess.Popen([TOOL, "lock", *arguments, "--", "sh", "-c", "echo running; " + shell],
                                   cwd=self.directory, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(self.end, process)
        self.assertEqual(process.stdout.readline(), b"running\n")
        return process

    @staticmethod
    def end(process):
        process.stdin.close()
        status = process.wait(300)
        process.stdout.close()
        return status

    def lock(self, *arguments, status=DONE):
        return self.qx("lock", "--timeout", "0", *arguments, "--", "true", status=status)

    def test_status_is_that_of_the_command(self):
        def status_of(*command):
            return self.run_tool("lock", "CUST", "--", *command).status
        self.assertEqual(self.qx("lock", "CUST", "--", "printf", "%s|", "--", "-x", "[a]", "++").out, "--|-x|[a]|++|")
        self.assertEqual([status_of("sh", "-c", command) for command in ("exit 0", "exit 3", "kill -9 $$")], [0, 3, 137])
        self.assertEqual([status_of("no-such-program"), status_of("/")], [127, 126])
        self.assertIn("(code 231)", self.lock("NONE", status=FAILED).err)
        for wrong in (["CUST"], ["CUST", "--hex", "--", "true"], ["CUST", "--timeout", "-1", "--", "true"]):
            self.qx("lock", *wrong, status=WRONG_USE)

    def test_what_excludes_what(self):
        with_record = ["--record", "K1", "CUST"]
        for held, shared in ((["CUST"], False), (["--shared", "CUST"], True), (with_record, False),
                             (["--shared", *with_record], True)):
            holder = self.hold(*held)
            thing = with_record if "--record" in held else ["CUST"]
            other = ["CUST"] if "--record" in held else with_record
            self.assertIn("is locked by somebody else", self.lock(*thing, status=NOT_HAD).err)
            self.lock("--shared", *thing, status=DONE if shared else NOT_HAD)
            self.lock(*other)
            self.lock("--record", "K2", "CUST")
            self.assertEqual(self.end(holder), 0)
            self.lock(*thing)
        holder = self.hold("--record", "4B31", "--hex", "CUST")
        waiter = subprocess.Popen([TOOL, "lock", *with_record, "--", "true"], cwd=self.directory)
        self.lock(*with_record, status=NOT_HAD)
        self.assertIsNone(waiter.poll())
        self.end(holder)
        self.assertEqual(waiter.wait(300), 0)

    def test_signals_go_to_the_command_and_the_lock_ends_with_it(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            holder = self.hold("CUST", shell="trap 'exit 7' TERM INT; echo set; while :; do sleep 0.01; done")
            holder.stdout.readline()
            self.lock("CUST", status=NOT_HAD)
            holder.send_signal(number)
            self.assertEqual(self.end(holder), 7)
            self.lock("CUST")
        holder = self.hold("CUST")
        holder.kill()
        holder.wait()
        self.lock("CUST")

    def test_who_holds_what(self):
        shared = self.hold("--shared", "CUST")
        record = self.hold("--record", "K1", "CUST")
        rows = self.qx("locks").out.splitlines()
        self.assertEqual(rows, [
            "slot process program         held      lock offsets      what",
            f"0    {shared.pid:<7} qx              in use    00000001-00000001 user slot 0",
            f"1    {record.pid:<7} qx              in use    00000002-00000002 user slot 1",
            f"0    {shared.pid:<7} qx              shared    1EA7AC00-1EA7AC00 file lock 240107",
            f"1    {record.pid:<7} qx              exclusive 598BAC00-598BAFFF record lock 942827",
        ])
        places, held = self.qx("locks", self.directory, "--file", "cust").out.split("\n\n")
        self.assertEqual(places.splitlines(), [
            "1EA7AC00-1EA7AFFF  file lock of CUST", "FEA7AC00-FEA7AFFF  select lock of CUST",
            "BEAFFC00-BEAFFFFF  free frames of CUST", "BEB00000-BEB003FF  group 0 of CUST"])
        self.assertEqual(held.splitlines()[1:], [rows[3].removesuffix(" 240107")])
        self.assertEqual(self.qx("locks", ".", "--file", "CUST", "--key", "4B31", "--hex").out.splitlines(), [
            '598BAC00-598BAFFF  record "K1" of CUST', "", rows[0],
            rows[4].replace("record lock 942827", 'record "K1"')])
        self.assertTrue(self.qx("locks", ".", "--file", "CUST", "--key", "K2").out.endswith("\n\nnothing is locked\n"))

    def test_groups_of_another_width(self):
        os.mkdir(self.path("eight"))
        self.write("eight/MOXPARAM", "MAXIMUMUSERS=8")
        self.assertEqual(self.qx("locks", "eight").out, "nothing is locked\n")
        self.qx("create", "eight/BIG", "--modulo", "100", "--size-lock", "2")
        holder = self.hold("eight/BIG")
        self.assertEqual(self.qx("locks", "eight").out.splitlines()[2].split()[3], "exclusive")
        places = dict(reversed(line.split(maxsplit=1)) for line in
                      self.qx("locks", "eight", "--file", "BIG").out.split("\n\n")[0].splitlines())
        first, last = (int(offset, 16) for offset in places["groups 0-99 of BIG"].split("-"))
        self.assertEqual(last - first + 1, 100 * 8)
        self.end(holder)
        for arguments, status in ((["missing"], FAILURE), (["."] + ["--file", "NONE"], WRONG_USE),
                                  ([".", "--key", "K1"], WRONG_USE)):
            self.qx("locks", *arguments, status=status)


if __name__ == "__main__":
    unittest.main()
