"""The command line as the build calls it."""

import contextlib
import io
import os
import subprocess
import sys
import unittest
from pathlib import Path

from folders import DIRECT, EXACT, ROOT, FolderTest
from generator import cli, manual


class CommandTest(FolderTest):
    def setUp(self):
        super().setUp()
        self.out = self.folder / "out"

    def run_generator(self, *arguments: object) -> tuple[int, str, str]:
        """Exit code, standard output and standard error."""
        out, err = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
            code = cli.main([str(argument) for argument in arguments])
        return code, out.getvalue(), err.getvalue()

    def make(self, table: str) -> tuple[int, str, str]:
        return self.run_generator("unit", "--catalogue", self.folder / "catalogue", "--table", table,
                                  "--out", self.out, "--depfile", self.out / f"{table}.d")

    def test_a_unit_is_a_header_and_a_source(self):
        self.write({"Rows": DIRECT})
        self.assertEqual(self.make("Rows"), (0, "", ""))
        self.assertEqual(sorted(path.name for path in self.out.iterdir()), ["Rows.cpp", "Rows.d", "Rows.h"])

    def test_a_unit_that_comes_out_the_same_is_left_alone(self):
        folder = self.write({"Rows": DIRECT})
        self.make("Rows")
        for path in self.out.iterdir():
            os.utime(path, ns=(1, 1))
        (folder / "Rows.toml").write_text("# another remark\n" + DIRECT)
        self.assertEqual(self.make("Rows")[0], 0)
        self.assertEqual({path.stat().st_mtime_ns for path in self.out.iterdir()}, {1})

    def test_a_unit_that_comes_out_different_is_written(self):
        self.write({"Rows": DIRECT})
        self.make("Rows")
        os.utime(self.out / "Rows.h", ns=(1, 1))
        self.write({"Rows": self.changed(DIRECT, "entryDataMaxSize = 8", "entryDataMaxSize = 9")})
        self.make("Rows")
        self.assertGreater((self.out / "Rows.h").stat().st_mtime_ns, 1)

    def test_a_refused_table_writes_nothing(self):
        folder = self.write({"Rows": self.changed(DIRECT, "[0, 3]", "[0, 4]")})
        message = (f"{folder}/Rows.toml: Rows: fields.low.bits: [0, 4]: 4 bits for type U4, not 5;"
                   " from bit 0 that is [0, 3]\n")
        self.assertEqual(self.make("Rows"), (1, "", message))
        self.assertFalse(self.out.exists())
        self.assertEqual(self.run_generator("check", "--catalogue", folder), (1, "", message))

    def test_a_unit_is_refused_for_the_table_it_is_like(self):
        twin = 'like = "Rows"\n' + DIRECT[:DIRECT.index("fields")]
        self.write({"Rows": self.changed(DIRECT, "[0, 3]", "[3, 0]"), "Twin": twin})
        code, _, told = self.make("Twin")
        self.assertEqual((code, told.count("\n")), (1, 1))
        self.assertIn("Rows.toml: Rows: fields.low.bits: [3, 0]", told)

    def test_a_unit_is_not_refused_for_an_unrelated_table(self):
        self.write({"Rows": DIRECT, "Label": self.changed(EXACT, "vmv = 1,", "")})
        self.assertEqual(self.make("Rows"), (0, "", ""))

    def test_a_table_or_a_folder_that_is_missing(self):
        folder = self.write({"Rows": DIRECT})
        self.assertEqual(self.make("Cols"), (1, "", f"{folder}/Chip.toml: Cols: no such table\n"))
        self.assertEqual(self.run_generator("check", "--catalogue", self.folder / "none"),
                         (1, "", f"{self.folder}/none/Chip.toml: no such file\n"))

    def test_the_depfile_lists_all_that_the_unit_is_made_of(self):
        folder = self.write({"Rows": DIRECT, "Twin": 'like = "Rows"\n' + DIRECT[:DIRECT.index("fields")]})
        self.make("Twin")
        target, _, used = (self.out / "Twin.d").read_text().replace("\\\n", " ").partition(":")
        self.assertEqual(target.split(), [f"{self.out}/Twin.h", f"{self.out}/Twin.cpp"])
        paths = [Path(path) for path in used.split()]
        self.assertTrue(all(path.is_file() for path in paths))
        self.assertEqual(paths[:3], [folder / "Twin.toml", folder / "Chip.toml", folder / "Rows.toml"])
        sources = ROOT / "LoamSharedHwTables" / "generator"
        self.assertLess({sources / "templates" / "Unit.h.j2", sources / "templates" / "Unit.cpp.j2",
                         sources / "rules.py"},
                        set(paths))

    def test_it_runs_as_a_program(self):
        folder = self.write({"Rows": self.changed(DIRECT, "[0, 3]", "[3, 0]")})
        ran = subprocess.run([sys.executable, "-m", "generator", "check", "--catalogue", folder],
                             capture_output=True, text=True,
                             cwd=ROOT / "LoamSharedHwTables", check=False)
        self.assertEqual((ran.returncode, ran.stdout), (1, ""))
        self.assertEqual(ran.stderr,
                         f"{folder}/Rows.toml: Rows: fields.low.bits: [3, 0]: low at most high, 0 to 0\n")


class ManualTest(unittest.TestCase):
    def test_the_manual_in_the_docs_is_the_one_that_is_printed(self):
        self.assertEqual((ROOT / "docs" / "catalogue-format.md").read_text(), manual.text())


if __name__ == "__main__":
    unittest.main()
