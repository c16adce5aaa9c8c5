"""What scripts/check_text refuses."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


class CheckTextTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def problems(self, name: str, content: str) -> list[str]:
        """What is said about a file, without its path."""
        path = self.root / name
        path.write_bytes(content.encode())
        ran = subprocess.run([sys.executable, ROOT / "scripts/check_text", path], capture_output=True,
                             text=True, check=False)
        self.assertEqual(ran.stderr, "")
        lines = ran.stdout.splitlines()
        if ran.returncode == 0:
            self.assertEqual(lines, ["text: 1 files are clean"])
            return []
        self.assertEqual(ran.returncode, 1)
        return [line.removeprefix(str(path)) for line in lines]

    def test_clean_files_of_every_kind(self):
        for name in ("A.cpp", "A.h", "a.py", "a.md", "script"):
            with self.subTest(name):
                self.assertEqual(self.problems(name, "a = 1\n\n"), [])
        self.assertEqual(self.problems("empty.toml", ""), [])
        self.assertEqual(self.problems("picture.png", "\0\t \n "), [])

    def test_tabs_and_blanks_at_line_ends(self):
        self.assertEqual(self.problems("a.md", "a\n\tb\nc \nd\r\n"),
                         [":2: a tab", ":3: a blank at the end of the line",
                          ":4: a blank at the end of the line"])

    def test_a_file_without_a_last_newline(self):
        self.assertEqual(self.problems("a.toml", "a = 1"), [": no newline at the end"])

    def test_code_has_110_columns_at_most(self):
        for name, head in (("A.cpp", ""), ("A.h", ""), ("a.py", ""), ("script", "#!/usr/bin/env python3\n")):
            with self.subTest(name):
                self.assertEqual(self.problems(name, head + f"#{'é' * 109}\n"), [])
                number = head.count("\n") + 1
                self.assertEqual(self.problems(name, head + f"#{'x' * 110}\n"),
                                 [f":{number}: 111 columns, more than 110"])
        self.assertEqual(self.problems("a.md", "x" * 200 + "\n"), [])

    def test_python_that_does_not_compile(self):
        [problem] = self.problems("a.py", "a = 1\nif a\n    a = 2\n")
        self.assertRegex(problem, r"^:2: expected ':'")


if __name__ == "__main__":
    unittest.main()
