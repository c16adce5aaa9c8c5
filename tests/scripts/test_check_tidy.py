"""Which sources scripts/check_tidy takes, and when one that passed is taken again."""

import importlib.machinery
import importlib.util
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/check_tidy"


def load():
    loader = importlib.machinery.SourceFileLoader("check_tidy", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_tidy", loader))
    with mock.patch.object(sys, "dont_write_bytecode", True):
        loader.exec_module(module)
    return module


class CheckTidyTest(unittest.TestCase):
    """A repository with one commit on main; A.cpp includes Low.h through High.h, B.cpp includes nothing."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.tidy = load()
        self.tidy.ROOT = self.root
        self.tidy.STAMPS = self.root / "build/lint"
        self.git("init", "-q", "-b", "main")
        self.write(**{".clang-tidy": "Checks: '-*'\n", ".gitignore": "/build/\n", "Low.h": "",
                      "High.h": '#include "Low.h"\n', "A.cpp": '#include "High.h"\n', "B.cpp": ""})
        self.commit()

    def git(self, *arguments: str) -> None:
        subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@b", *arguments], cwd=self.root,
                       check=True)

    def write(self, **files: str) -> None:
        for path, text in files.items():
            (self.root / path).write_text(text)

    def commit(self) -> None:
        self.git("add", "-A")
        self.git("commit", "-q", "-m", "One step")

    def selected(self, everything: bool = False) -> list[str]:
        return self.tidy.selected(self.tidy.tracked(), ["A.cpp", "B.cpp", "C.cpp"], everything)

    def test_without_an_earlier_commit_all_are_taken(self):
        self.assertEqual(self.selected(), ["A.cpp", "B.cpp"])

    def test_a_source_changed_since_the_branch_left_main_is_taken(self):
        self.git("update-ref", "refs/remotes/origin/main", "HEAD")
        self.assertEqual(self.selected(), [])
        self.write(**{"B.cpp": "int b;\n"})
        self.commit()
        self.write(**{"C.cpp": "", "D.cpp": ""})
        self.assertEqual(self.selected(), ["B.cpp", "C.cpp"])
        self.assertEqual(self.selected(everything=True), ["A.cpp", "B.cpp", "C.cpp"])

    def test_without_the_main_branch_the_commit_before_counts(self):
        self.write(**{"B.cpp": "int b;\n"})
        self.commit()
        self.assertEqual(self.selected(), ["B.cpp"])

    def test_for_a_changed_header_a_source_that_includes_it_is_taken(self):
        self.git("update-ref", "refs/remotes/origin/main", "HEAD")
        self.write(**{"Low.h": "struct Low;\n"})
        self.assertEqual(self.selected(), ["A.cpp"])
        self.write(**{"Low.cpp": '#include "Low.h"\n'})
        self.assertEqual(self.tidy.selected(self.tidy.tracked(), ["A.cpp", "Low.cpp"], False), ["Low.cpp"])

    def test_a_change_of_the_configuration_takes_all(self):
        self.git("update-ref", "refs/remotes/origin/main", "HEAD")
        self.write(**{".clang-tidy": "Checks: '*'\n"})
        self.assertEqual(self.selected(), ["A.cpp", "B.cpp"])

    def test_a_source_that_passed_is_taken_again_only_after_a_change(self):
        command = ["g++", "-c", "A.cpp"]
        with mock.patch.object(self.tidy, "TIDY", "echo"):
            passed = self.tidy.Cache()
            self.assertFalse(passed.has("A.cpp", command))
            passed.put("A.cpp", passed.state(command, ["A.cpp", "High.h", "Low.h"]))
            self.assertTrue(self.tidy.Cache().has("A.cpp", command))
            self.assertFalse(self.tidy.Cache().has("A.cpp", [*command, "-O2"]))
            self.write(**{"Low.h": "struct Low;\n"})
            self.assertFalse(self.tidy.Cache().has("A.cpp", command))
            self.write(**{"Low.h": "", ".clang-tidy": "Checks: '*'\n"})
            self.assertFalse(self.tidy.Cache().has("A.cpp", command))
            self.write(**{".clang-tidy": "Checks: '-*'\n"})
            self.assertTrue(self.tidy.Cache().has("A.cpp", command))
            (self.root / "High.h").unlink()
            self.assertFalse(self.tidy.Cache().has("A.cpp", command))


if __name__ == "__main__":
    unittest.main()
