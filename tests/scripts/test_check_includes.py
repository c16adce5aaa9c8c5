"""What scripts/check_includes refuses, told over small trees."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


class CheckIncludesTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for layer in ("runtime/Dovel", "platform/memory", "Vault", "platform/switch", "LoamSharedHwTables",
                      "host"):
            self.write(f"{layer}/Some.h", "")

    def write(self, path: str, text: str) -> None:
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(("#pragma once\n" if path.endswith(".h") else "") + text)

    def check(self) -> tuple[int, list[str]]:
        """Exit code and lines of the output."""
        ran = subprocess.run([sys.executable, ROOT / "scripts/check_includes", "--root", self.root],
                             capture_output=True, text=True, check=False)
        self.assertEqual(ran.stderr, "")
        return ran.returncode, ran.stdout.splitlines()

    def assert_accepted(self) -> None:
        code, lines = self.check()
        self.assertEqual((code, len(lines)), (0, 1), lines)

    def assert_refused(self, *messages: str) -> None:
        self.assertEqual(self.check(), (1, list(messages)))

    def test_a_climbing_include_is_refused(self):
        self.write("Vault/Slots.cpp", '#include "Vault/Some.h"\n\n#include "platform/switch/Some.h"\n')
        self.assert_refused('Vault/Slots.cpp:3: includes "platform/switch/Some.h": layer Vault may not '
                            "include layer platform/switch, which stands above it")

    def test_the_two_platform_layers_are_told_apart(self):
        self.write("platform/memory/Files.h", '#include "Vault/Some.h"\n')
        self.write("platform/switch/Table.h", '#include "Vault/Some.h"\n#include "platform/memory/Some.h"\n')
        self.assert_refused('platform/memory/Files.h:2: includes "Vault/Some.h": layer platform/memory may '
                            "not include layer Vault, which stands above it")

    def test_includes_from_below_and_from_the_own_layer_are_accepted(self):
        self.write("host/Main.cpp",
                   '#include <vector>\n  #  include "host/Some.h"\n#include "runtime/Dovel/Some.h"\n')
        self.assert_accepted()

    def test_a_layer_does_not_include_from_beside_the_layers(self):
        self.write("tests/support/Help.h", "")
        self.write("runtime/Dovel/A.cpp", '#include "tests/support/Help.h"\n')
        self.assert_refused('runtime/Dovel/A.cpp:1: includes "tests/support/Help.h": layer runtime may not '
                            "include tests, which is no layer")

    def test_tests_and_benchmarks_include_anything(self):
        for folder in ("tests/Vault", "bench", "fuzz", "examples"):
            self.write(f"{folder}/A.cpp", '#include "host/Some.h"\n#include "runtime/Dovel/Some.h"\n')
        self.assert_accepted()

    def test_a_header_is_included_by_its_path_from_the_root(self):
        self.write("runtime/Dovel/A.cpp", '#include "Some.h"\n')
        self.write("runtime/Dovel/B.cpp", '#include "../Dovel/Some.h"\n#include <runtime/Dovel/Some.h>\n')
        self.write("tests/Vault/A.cpp", '#include "Dovel/Some.h"\n#include "runtime/../Vault/Some.h"\n')
        rule = "headers are included by their path from the root"
        self.assert_refused(
            f'runtime/Dovel/A.cpp:1: includes "Some.h", which does not exist: {rule}',
            f'runtime/Dovel/B.cpp:1: includes "../Dovel/Some.h", which does not exist: {rule}',
            f'runtime/Dovel/B.cpp:2: includes <runtime/Dovel/Some.h>: {rule}, in ""',
            f'tests/Vault/A.cpp:1: includes "Dovel/Some.h", which does not exist: {rule}',
            f'tests/Vault/A.cpp:2: includes "runtime/../Vault/Some.h", which does not exist: {rule}')

    def test_units_are_made_at_build_time_and_stay_out_of_the_host(self):
        for path in ("LoamSharedHwTables/A.cpp", "Vault/A.cpp", "host/A.cpp", "tests/A.cpp"):
            self.write(path, '#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"\n')
        unit = 'includes "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"'
        self.assert_refused(
            f"Vault/A.cpp:1: {unit}: layer Vault may not include layer LoamSharedHwTables, "
            "which stands above it",
            f"host/A.cpp:1: {unit}: layer host may not include LoamSharedHwTables/Qumran3a, "
            "which it loads at run time")

    def test_a_header_says_pragma_once(self):
        (self.root / "tests").mkdir()
        (self.root / "tests/Help.h").write_text("// #pragma once\n")
        self.assert_refused("tests/Help.h:1: a header without #pragma once")

    def test_a_folder_without_a_layer_is_refused(self):
        self.write("platform/other/A.cpp", "")
        self.assert_refused("platform/other/A.cpp:1: lies in no layer: its folder is missing from "
                            "scripts/check_includes")

    def test_what_was_built_is_not_looked_at(self):
        self.write("build/release/A.cpp", '#include "A.h"\n')
        self.write(".deps/A.cpp", '#include "A.h"\n')
        self.assert_accepted()


if __name__ == "__main__":
    unittest.main()
