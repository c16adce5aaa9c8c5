"""What scripts/check_disassembly finds, in the store's hot paths as they were built and in planted ones."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(os.environ.get("HWTABLES_BIN_DIR", ROOT / "build/release/bin"))
BUILT = BIN.parent / "lib/libstore_hot_paths.a"

OPERATIONS = {
    "Vault::VaultWriter": ("write", "writeInChain", "insert", "remove", "lookup", "lookupInChain", "first",
                           "next", "directWrite", "directCommit"),
    "VaultCore::WriterHashMap": ("find", "lookup", "first", "next"),
    "Vault::VaultReader": ("lookup", "lookupFartherOn", "lookupInChain", "first", "next", "getValue"),
    "VaultCore::ReaderHashMap": ("lookup", "firstAtRest", "fartherAtRest", "first", "next"),
}


def check(library: Path) -> tuple[int, list[str]]:
    ran = subprocess.run([sys.executable, ROOT / "scripts/check_disassembly", library], capture_output=True,
                         text=True, check=False)
    assert ran.stderr == "", ran.stderr
    return ran.returncode, ran.stdout.splitlines()


class CheckDisassemblyTest(unittest.TestCase):
    def planted(self, bodies: dict[str, str], leave_out: str = "") -> tuple[int, list[str]]:
        """The answer for operations that do nothing but what is given for them."""
        text = ""
        for owner, names in OPERATIONS.items():
            space, struct = owner.split("::")
            members = "".join(f"void {name}(T, void (*)(int)) {{ {bodies.get(f'{owner}::{name}', '')} }}"
                              for name in names if f"{owner}::{name}" != leave_out)
            text += f"namespace {space} {{ template <class T> struct {struct} {{ {members} }}; }}\n"
            text += f"template struct {owner}<void (*)(int)>;\n"
        with tempfile.TemporaryDirectory() as folder:
            source, library = Path(folder) / "planted.cpp", Path(folder) / "planted.o"
            source.write_text(text)
            subprocess.run(["g++", "-c", "-O1", source, "-o", library], check=True)
            return check(library)

    def test_the_stores_own_operations_are_plain(self):
        code, lines = check(BUILT)
        self.assertEqual((code, len(lines)), (0, 1), lines)

    def test_operations_that_do_nothing_are_plain(self):
        code, lines = self.planted({})
        self.assertEqual((code, len(lines)), (0, 1), lines)

    def test_a_fence_is_found(self):
        code, lines = self.planted({"Vault::VaultWriter::write": 'asm volatile("mfence");'})
        self.assertEqual((code, lines), (1, ["Vault::VaultWriter::write: mfence"]))

    def test_a_locked_instruction_is_found(self):
        code, lines = self.planted({"VaultCore::WriterHashMap::find":
                                    "static int count; __atomic_fetch_add(&count, 1, __ATOMIC_RELAXED);"})
        self.assertEqual((code, len(lines)), (1, 1), lines)
        self.assertTrue(lines[0].startswith("VaultCore::WriterHashMap::find: lock "), lines)

    def test_a_store_of_full_order_is_found(self):
        code, lines = self.planted({"Vault::VaultWriter::directCommit":
                                    "static long word; __atomic_store_n(&word, 1, __ATOMIC_SEQ_CST);"})
        self.assertEqual((code, len(lines)), (1, 1), lines)
        self.assertTrue(lines[0].startswith("Vault::VaultWriter::directCommit: xchg"), lines)

    def test_an_exchange_of_registers_is_plain(self):
        code, lines = self.planted({"Vault::VaultWriter::next": 'asm volatile("xchg %ax,%ax");'})
        self.assertEqual(code, 0, lines)

    def test_a_missing_operation_is_found(self):
        code, lines = self.planted({}, leave_out="Vault::VaultWriter::remove")
        self.assertEqual((code, lines), (1, ["Vault::VaultWriter::remove: is missing"]))

    def test_a_library_that_cannot_be_read_is_told(self):
        code, lines = check(Path("/nowhere"))
        self.assertEqual((code, len(lines)), (1, 1), lines)


if __name__ == "__main__":
    unittest.main()
