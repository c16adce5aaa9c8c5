"""docs/chip.md tells what the chip's code has, and the chip has what the tables of the catalogue ask for.
HWTABLES_WRITE_GOLDEN=1 writes the page's tables anew."""

import json
import os
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PAGE = ROOT / "docs/chip.md"
MAP = (ROOT / "platform/chip/ChipMemoryMap.cpp").read_text()
DATABASES = (ROOT / "platform/chip/ExactMatchMap.cpp").read_text()
MESSAGES = (ROOT / "platform/switch/Sluice/SchanMessage.h").read_text()
CATALOGUE = json.loads((ROOT / "tests/LoamSharedHwTables/expected_catalogue.json").read_text())["tables"]
HEADER_BYTES = 4096


def product(text):
    result = 1
    for factor in text.split("*"):
        result *= int(factor, 0)
    return result


def memories():
    """(block, address, rows, row bytes, name, whether it is a register) of the chip's own list."""
    listed = re.search(r"kListed\[\] = \{(.*?)\n\};", MAP, re.DOTALL)[1]
    for block, address, rows, row_bytes, name, kind in re.findall(
            r'\{(\d+), (\w+), ([\d* ]+), (\d+), "(\w+)"(, ChipMemory::Kind::chipRegister)?\}', listed):
        yield int(block), int(address, 0), product(rows), int(row_bytes), name, bool(kind)


def databases():
    """(physical table, its name, tid, entry type, last bit of the key) of the chip's own list."""
    listed = re.search(r"kListed = std::to_array<ExactMatchDatabase>\(\{(.*?)\n\}\);", DATABASES,
                       re.DOTALL)[1]
    for table, name, tid, kind, key_end in re.findall(r'\{(\d+), "(\w+)", (\d+), (\d+), (\d+)\}', listed):
        yield int(table), name, int(tid), int(kind), int(key_end)


def enumerators(name):
    body = re.search(rf"enum class {name}\b[^{{]*\{{(.*?)\n\}};", MESSAGES, re.DOTALL)[1]
    return re.findall(r"^  (\w+) = (\d+),", body, re.MULTILINE)


def made():
    """The pieces of the page that follow from the code, by name."""
    rows = ["| Block | Rows from | Rows | Bytes of a row | Name | In the file from |",
            "|---|---|---|---|---|---|"]
    at = HEADER_BYTES
    for block, address, count, row_bytes, name, is_register in memories():
        rows.append(f"| {block} | {address:#x} | {count} | {row_bytes} | `{name}`"
                    f"{', a register' if is_register else ''} | {at:#x} |")
        at += count * row_bytes
    listed = ["| Physical table | Name | `tid` | Type of the entries | Key ends with bit |",
              "|---|---|---|---|---|"]
    listed += [f"| {table} | `{name}` | {tid} | {kind} | {key_end} |"
               for table, name, tid, kind, key_end in databases()]
    return {"memories": "\n".join(rows + ["", f"Together they end at byte {at} of a file."]) + "\n",
            "databases": "\n".join(listed) + "\n"}


class ChipPageTest(unittest.TestCase):
    def test_memories_and_databases_are_those_of_the_code(self):
        page = PAGE.read_text()
        pattern = re.compile(r"(<!-- made: (.*?) -->\n)(.*?)(<!-- end -->\n)", re.DOTALL)
        if os.environ.get("HWTABLES_WRITE_GOLDEN") == "1":
            page = pattern.sub(lambda match: match[1] + made()[match[2]] + match[4], page)
            PAGE.write_text(page)
        self.assertEqual({match[2]: match[3] for match in pattern.finditer(page)}, made())

    def test_opcodes_and_statuses_are_those_of_the_code(self):
        page = PAGE.read_text()
        for enumeration, count in (("SchanOpcode", 5), ("SchanStatus", 4)):
            found = enumerators(enumeration)
            self.assertEqual(len(found), count)
            for name, number in found:
                self.assertIn(f"| {number} | `{name}` |", page)

    def test_every_memory_of_a_table_is_one_of_the_chip(self):
        chip = list(memories())
        used = set()
        for table in CATALOGUE:
            if table["family"] not in ("direct", "register"):
                continue
            for asked in table["memories"]:
                rows = asked["arrayCount"] * asked["entryCount"]
                found = [name for block, address, count, row_bytes, name, is_register in chip
                         if block == asked["block"] and address <= asked["address"]
                         and asked["address"] + rows <= address + count and row_bytes == asked["entrySize"]
                         and is_register == (table["family"] == "register")]
                self.assertEqual(len(found), 1, (table["name"], asked))
                used.update(found)
        self.assertEqual(used, {memory[4] for memory in chip})

    def test_every_exact_match_table_has_a_database_of_the_chip(self):
        asked = []
        for table in CATALOGUE:
            if table["family"] != "exactMatch":
                continue
            self.assertEqual([memory["block"] for memory in table["memories"]], [282], table["name"])
            memory = table["memories"][0]
            name = re.sub(r"_(.)", lambda match: match[1], memory["name"].title()).replace("Mdbk", "mdbk")
            bits = sum(int(re.search(r"\d+", key["type"])[0]) for key in table["key"])
            asked.append((memory["physicalTableId"], name, table["presets"]["appId"],
                          table["presets"]["entryType"], 9 + bits - 1))
        self.assertEqual(sorted(asked), sorted(databases()))


if __name__ == "__main__":
    unittest.main()
