"""What scripts/check_shared_words refuses."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


class CheckSharedWordsTest(unittest.TestCase):
    def check(self, text: str, path: str = "Vault/Some.cpp", header: str = "") -> list[str]:
        """What is said about one file, without its path."""
        with tempfile.TemporaryDirectory() as folder:
            file = Path(folder) / path
            file.parent.mkdir(parents=True)
            file.write_text(text)
            if header:
                file.with_suffix(".h").write_text(header)
            ran = subprocess.run([sys.executable, ROOT / "scripts/check_shared_words", "--root", folder],
                                 capture_output=True, text=True, check=False)
        self.assertEqual(ran.stderr, "")
        lines = ran.stdout.splitlines()
        if ran.returncode == 0:
            self.assertEqual(len(lines), 1)
            self.assertTrue(lines[0].startswith("shared words: "), lines)
            return []
        self.assertEqual(ran.returncode, 1)
        return [line.removeprefix(path).removesuffix(", past platform/memory/SharedWord.h") for line in lines]

    def test_atomic_accesses_and_volatile_are_refused(self):
        for text in ("std::atomic_ref(word).load();", "__atomic_store_n(&word, 1, 0);", "int volatile word;",
                     "__sync_synchronize();", "std::atomic_thread_fence(std::memory_order_release);"):
            self.assertEqual(self.check("\n" + text), [":2: an atomic access or volatile"], text)

    def test_changes_of_cells_are_refused(self):
        for text in ("void f(Mem::Cell& cell) { cell = 1; }", "void f(Mem::Cell* link) { *link = 1; }",
                     "void f(Mem::Cell* cells) { cells[3] = 1; }", "void f(Cell& cell) { cell |= 1; }",
                     "void f(Cell* head) { ++*head; }", "void f(Cell* head) { head[2] += 4; }"):
            self.assertEqual(self.check(text), [":1: a cell changed"], text)

    def test_reads_of_cells_are_refused(self):
        for text in ("void f(Mem::Cell const& cell) { Mem::Cell const word = cell; }",
                     "void f(Mem::Cell* link) { Mem::Cell word = *link; }",
                     "bool f(Mem::Cell const* cells) { return cells[3] == 1; }",
                     "auto f(Cell const& head) { return head >> 32; }"):
            self.assertEqual(self.check(text), [":1: a cell read"], text)

    def test_a_member_of_the_header_is_known_in_its_source(self):
        said = self.check("void S::f() { header_[2] = 1; }", header="struct S { Mem::Cell* header_; };")
        self.assertEqual(said, [":1: a cell changed"])

    def test_copies_of_bytes_to_and_from_cells_are_refused(self):
        for text in ("std::memcpy(cells_ + 1, value, 8);", "std::memcpy(out, slot.valueAddress(), 8);",
                     "std::memset(header.lookasideCells(), 0, 48);"):
            self.assertEqual(self.check(text), [":1: bytes copied to or from cells"], text)

    def test_passing_cells_on_and_comparing_pointers_is_accepted(self):
        self.assertEqual(self.check("""
            Mem::Cell& f(Mem::Cell& cell, Mem::Cell* link, Mem::Cell* other) {
              Mem::Cell const word = Mem::SharedWord::ownWord(cell);  // not cell = 1, nor volatile
              Mem::SharedWord::publishLink(*link, word | 1);
              if (link == other) link = &cell;
              trace("cell = 1");
              return cell;
            }
            """), [])

    def test_a_value_of_a_word_is_no_cell(self):
        text = "void f() { Mem::Cell word = 0; word |= 1; std::memcpy(&word, in, 8); }"
        self.assertEqual(self.check(text), [])

    def test_the_door_itself_and_other_folders_are_left_alone(self):
        for path in ("platform/memory/SharedWord.h", "runtime/Some.h", "tests/Vault/Some.cpp"):
            self.assertEqual(self.check("std::atomic_ref(word).load();", path), [], path)


if __name__ == "__main__":
    unittest.main()
