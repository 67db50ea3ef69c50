#!/usr/bin/env python3
"""Man pages and completions, each used by the program that it is for: what the command's help says
is in them, and nobody complains.

Usage: help_files_test.py PATH_OF_NETRO [unittest arguments]
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

from netro_command import NETRO, CommandTestCase, run

# Offers what the cursor behind these words could be, a line each.
BASH = """
source "$1"; read -ra COMP_WORDS <<<"$2"; [[ $2 == *' ' ]] && COMP_WORDS+=('')
COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _netro; printf '%s\\n' "${COMPREPLY[@]}"
"""
FISH = 'source $argv[1]; complete -C $argv[2] | string replace -r "\\t.*" ""'
# A terminal of its own, in which Tab is pressed.
ZSH = """
zmodload zsh/zpty; zpty z PS1=: zsh -f -i
zpty -w z "autoload -Uz compinit; compinit -u -D; source $1; stty -echo"
zpty -w z "zstyle ':completion:*' list-prompt ''; LISTMAX=9999; bindkey '^I' list-choices; echo READY"
zpty -r z text '*READY*READY*' || exit; zpty -w -n z "$2"$'\\t'
sleep 1; while zpty -r -t z text; do print -rn -- $text; sleep 0.1; done
"""


def offered(shell, script, line):
    if shutil.which(shell) is None:
        raise unittest.SkipTest(f"{shell} is not there")
    program = {"bash": BASH, "fish": FISH, "zsh": ZSH}[shell]
    call = [shell, "-c", program] + ([] if shell == "fish" else ["x"])
    done = subprocess.run([*call, script, line], capture_output=True, text=True, timeout=60,
                          env={**os.environ, "TERM": "dumb", "COLUMNS": "200"})
    if shell != "zsh":
        return done.stdout.split(), done.stderr
    words = re.findall(r"(?m)^[-\w]+(?=[ \r]|$)", done.stdout)
    return [word for word in words if word != "netro"], done.stderr  # which the line begins with


class HelpFilesTest(CommandTestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        done = run("help", "--write-files", cls.folder.name)
        assert done.returncode == 0, done
        text = run("--help").stdout.decode().split("Commands:\n")[1].split("\n\n")[0]
        cls.commands = re.findall(r"(?m)^  (\S+)", text)
        cls.options = {command: re.findall(r"(?m)^  (-\S+)", run("help", command).stdout.decode())
                       for command in cls.commands}

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def path(self, *parts):
        return os.path.join(self.folder.name, *parts)

    def test_man_pages(self):
        for page in ["netro", *("netro-" + command for command in self.commands)]:
            path = self.path("man", "man1", page + ".1")
            for checker in ["groff", "-man", "-ww", "-Tascii", "-P-cbou"], ["mandoc", "-T", "lint"]:
                if shutil.which(checker[0]) is None:
                    self.skipTest(checker[0] + " is not there")
                done = subprocess.run([*checker, path], capture_output=True, text=True, timeout=60)
                self.assertEqual(done.stderr, "")
                if checker[0] == "mandoc":
                    self.assertNotRegex(done.stdout, "ERROR|UNSUPP|WARNING: (?!missing date)")
                    continue
                for names in self.options.get(page[len("netro-"):], ["-V,--version"]):
                    for name in names.split(","):
                        self.assertRegex(done.stdout, rf"(?m)^ +(-.*, )?{name}\b", page)

    def test_completions(self):
        for shell, path in (("bash", ["bash-completion", "completions", "netro"]),
                            ("fish", ["fish", "vendor_completions.d", "netro.fish"]),
                            ("zsh", ["zsh", "site-functions", "_netro"])):
            script = self.path(*path)
            long = [name for names in self.options["dns"] for name in names.split(",")
                    if name.startswith("--")]
            with self.subTest(shell):
                for line, wanted in (("netro ", ["help", *self.commands]),
                                     ("netro wh", ["whois"]), ("netro help wat", ["watch"]),
                                     ("netro dns --", long), ("netro dns x --sho", ["--short"])):
                    words, errors = offered(shell, script, line)
                    self.assertEqual((sorted(set(words)), errors), (sorted(wanted), ""), line)

    def test_folder_that_cannot_be(self):
        done = run("help", "--write-files", "/dev/null/x")
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"cannot write /dev/null/x", done.stderr)


if __name__ == "__main__":
    unittest.main()
