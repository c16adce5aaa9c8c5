"""Small catalogues for the tests: sound ones, and what the generator says of them after a change."""

import tempfile
import unittest
from pathlib import Path

from generator.catalogue import Catalogue

ROOT = Path(__file__).resolve().parents[3]
REAL_CATALOGUE = ROOT / "LoamSharedHwTables" / "Qumran3a"

DIRECT = """\
family = "direct"
chipName = "ROWS"
groupName = "RowsHw"
entryDataMaxSize = 8
hasParitySupport = false
blocks = [151]
sharedShadow = true
key = [{ name = "value", type = "32-bit", null = 16 }]
memories = [{ name = "rows", block = 3, address = 0x10, entryCount = 16 }]
fields = [
  { name = "low", type = "U4", bits = [0, 3] },
  { name = "word", type = "32-bit", bits = [4, 35] },
  { name = "all", type = "bitmap", bits = [0, 63] },
]
"""

ARRAYS = """\
family = "direct"
chipName = "TCAM_A.TCAM_B"
groupName = "Tcam"
entryDataMaxSize = 6
hasParitySupport = true
blocks = [284]
sharedShadow = false
key = [{ name = "arrayIndex", type = "8-bit", max = 3 }, { name = "entryIndex", type = "32-bit", max = 99 }]
memories = [
  { name = "tcamA", block = 3, address = 0x10, arrayCount = 4, entryCount = 100 },
  { name = "tcamB", block = 4, address = 0x20, arrayCount = 4, entryCount = 100 },
]
[[views]]
name = "CommandEntry"
viewT = "command"
presets = { bank = 3 }
fields = [{ name = "bank", type = "U2", bits = [0, 1] }, { name = "data", type = "bitmap", bits = [2, 47] }]
[[views]]
name = "ReplyEntry"
viewT = "reply"
fields = [{ name = "data", type = "bitmap", bits = [0, 47] }]
"""

EXACT = """\
family = "exactMatch"
chipName = "LABEL_DB"
groupName = "Label"
entryDataMaxSize = 3
blocks = [9]
sharedShadow = true
key = [{ name = "label", type = "U5" }, { name = "bos", type = "U1" }]
memories = [{ name = "DB", block = 3, address = 0x10, entryCount = 16, physicalTableId = 7 }]
presets = { vmv = 1, entryType = 2 }
fields = [
  { name = "label", type = "U5", bits = [2, 6] },
  { name = "bos", type = "U1", bits = [7, 7] },
  { name = "vmv", type = "U2", bits = [8, 9] },
  { name = "entry", type = "bitmap", bits = [2, 9] },
  { name = "command", type = "U2", bits = [0, 1] },
  { name = "entryType", type = "U3", bits = [10, 12] },
]
"""

MDB = """\
family = "mdbDirect"
chipName = "ADS"
entryDataMaxSize = 2
mdbTableId = 5
key = [{ name = "value", type = "32-bit", null = 0 }]
fields = [{ name = "word", type = "16-bit", bits = [0, 15] }]
"""

SOUND = {"Rows": DIRECT, "Tcam": ARRAYS, "Label": EXACT, "Ads": MDB}


def chip_text(tables: list[str]) -> str:
    listed = ", ".join(f'"{name}"' for name in tables)
    return f'namespace = "chip_a0"\nchipType = 25\ntables = [{listed}]\n'


class FolderTest(unittest.TestCase):
    """Gives every test an empty folder."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = Path(holder.name)

    def write(self, tables: dict[str, str], chip: str | None = None) -> Path:
        folder = self.folder / "catalogue"
        folder.mkdir(exist_ok=True)
        (folder / "Chip.toml").write_text(chip_text(list(tables)) if chip is None else chip)
        for name, text in tables.items():
            (folder / f"{name}.toml").write_text(text)
        return folder

    def problems(self, tables: dict[str, str], chip: str | None = None) -> list[str]:
        folder = self.write(tables, chip)
        return [str(problem).removeprefix(f"{folder}/") for problem in Catalogue(folder).problems()]

    def changed(self, text: str, old: str, new: str) -> str:
        self.assertEqual(text.count(old), 1, f"{old!r} must stand once in the sound text")
        return text.replace(old, new)

    def check_cases(self, table: str, cases: list[tuple[str, str, list[str]]]) -> None:
        """Each case is one change to a sound table, and every message that it must give."""
        for old, new, messages in cases:
            with self.subTest(new=new):
                text = self.changed(SOUND[table], old, new)
                self.assertEqual(self.problems({table: text}),
                                 [f"{table}.toml: {table}: {each}" for each in messages])
