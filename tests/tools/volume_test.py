"""qx volume: which settings a volume has, where they come from, and what in its parameter file is in vain."""
import os
import socket
import unittest

from tool_case import FAILURE, ToolCase

HOST = socket.gethostname().split(".")[0].upper()[:15]


class Volume(ToolCase):
    def report(self, *arguments):
        """The lines before the settings, the settings and the lines behind them."""
        parts = self.qx("volume", *arguments).out.split("\n\n")
        head = {line[:16].strip(): line[16:] for line in parts[0].splitlines()}
        settings = {line.split()[0]: line[22:] for line in parts[1].splitlines()}
        return head, settings, "\n\n".join(parts[2:])

    def test_without_a_parameter_file(self):
        path = os.path.realpath(self.directory) + "/"
        name = f"\\\\{HOST}{path}".replace("/", "\\")
        self.assertEqual(self.qx("volume").out, f"""\
Directory       {path}
Name            {name}
Parameter file  none

SERVERONLY            NO                default
READONLY              NO                default
FLUSHFILESIZEUPDATES  NO                default
FLUSHALLUPDATES       NO                default
FILLCHARACTER         0                 default
LOCKS                 where they work   default
CACHEFLUSHLOCKS       YES               default
GROUPLOCKTIMEOUT      60 seconds        default
MAXIMUMUSERS          1,024             default
MAXIMUMRECORDSIZE     no limit          default
NAMEDPIPENAME         QXSRVC            default
TCPIPPORT             0                 default
SERVERNAME            as in the path    default
SHARENAME             as in the path    default
""")

    def test_settings_and_what_is_in_vain(self):
        os.makedirs(self.path("a/b"))
        os.mkdir(self.path("a/b/MOXPARAM"))
        self.write("a/MOXPARAM", "For the archive:\n readonly = yes\nLOCKS=maybe\nGROUPLOCKTIMEOUT 30\n.FILLCHARACTER\n"
                                 "ServerName=alpha TCPIPPORT=1\nTCPIPPORT=NONE\n" + " " * 6200 + "LOCKS=NO")
        head, settings, rest = self.report("a/b")
        path = os.path.realpath(self.path("a"))
        self.assertTrue(head["On its server"].startswith("\\\\ALPHA\\"), head)
        self.assertEqual(head["Parameter file"], path + "/MOXPARAM")
        self.assertEqual(head["Passed over"], path + "/b/MOXPARAM (cannot be read)")
        self.assertEqual([settings["READONLY"], settings["LOCKS"], settings["SERVERNAME"], settings["TCPIPPORT"]],
                         ["YES               line 2", "where they work   default", "ALPHA             line 6",
                          "1                 line 6"])
        self.assertEqual(rest, """\
Without effect:
  line 1    no keyword: "For the archive"
  line 3    not a value of this keyword: "LOCKS=maybe"
  line 4    an equals sign is missing: "GROUPLOCKTIMEOUT"
  line 4    no keyword: "30"
  line 5    passed over after a dot: "FILLCHARACTER"
  line 7    set before, and the first one counts: "TCPIPPORT=NONE"

Of the file's 6,332 bytes, the first 6,144 count.
""")

    def test_what_is_no_directory(self):
        self.write("file", "")
        for name, words in ("missing", "No such file"), ("file", "Not a directory"):
            self.assertIn(f"{name}: {words}", self.qx("volume", name, status=FAILURE).err)


if __name__ == "__main__":
    unittest.main()
