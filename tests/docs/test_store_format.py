"""The worked dumps of docs/store-format.md are those of files that a writer has made; what differs from run
to run is shown as dots. HWTABLES_WRITE_GOLDEN=1 writes them anew."""

import os
import pathlib
import re
import struct
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PAGE = ROOT / "docs/store-format.md"
SAMPLE = pathlib.Path(os.environ["HWTABLES_BIN_DIR"]) / "example_store_sample"
# The hash seed is random, too, and the order of records follows from it. Files without records take any.
SEED = 7
NIL = 0xBFFFFFFF

# offset, width, name, kind
SLOTS_HEADER = (
    (0, 4, "magic", "text"), (4, 2, "header size", "number"), (6, 2, "format version", "number"),
    (8, 4, "value size", "number"), (12, 4, "slot size", "number"), (16, 4, "generation", "masked"),
    (20, 4, "capacity", "number"), (24, 4, "maximum size", "number"), (28, 4, "marshalled size", "number"),
    (32, 4, "flags", "number"), (36, 512, "type name", "text"), (558, 2, "runtime flags", "number"),
    (564, 4, "occupied slots", "number"), (568, 4, "free list", "slot"), (572, 4, "peak slots", "number"),
    (576, 4, "hash seed", "number"), (580, 4, "sequence watermark", "number"),
    (584, 4, "version of slots", "number"), (588, 4, "slots", "number"),
    (592, 4, "largest occupied", "number"), (600, 8, "scratchpad", "number"),
)
SLOT = (
    (0, 4, "sequence", "sequence"), (4, 4, "next", "link"), (8, 32, "value", "bytes"),
    (40, 4, "hash", "hash"),
)
BUCKETS_HEADER = (
    (0, 4, "magic", "text"), (4, 4, "element size", "number"), (8, 4, "generation", "masked"),
    (16, 4, "version of buckets", "number"), (20, 4, "buckets", "number"),
)
HEAD = ((0, 4, "sequence", "changes"), (4, 4, "next", "link"))
EMBER = ((0, 4, "generation", "masked"),)
OWNER = (
    (0, 4, "magic", "text"), (4, 4, "version", "number"), (8, 8, "sequence", "number"),
    (16, 4, "wiped", "number"), (20, 4, "shared-memory type", "number"), (24, 4, "pid", "masked"),
    (32, 8, "start time", "masked"), (40, 40, "boot id", "masked"), (80, 108, "socket name", "text"),
    (188, 256, "type name", "text"), (1020, 4, "crc32c", "masked"),
)


def number(data):
    return int.from_bytes(data, "little")


def target(link):
    link &= ~0x40000000
    if link == NIL:
        return "nil"
    return f"end, bucket {link & 0x3FFFFFFF}" if link >> 31 else f"slot {link}"


def changes_text(value):
    return f"{value}, changes: {value >> 2}"


def sequence_text(value):
    return f"{changes_text(value)}, {'occupied' if value & 1 else 'free'}"


def meaning(data, kind):
    if kind == "text":
        return '"' + data.partition(b"\0")[0].decode() + '"'
    if kind == "hash":
        return f"{number(data):#010x}"
    texts = {"number": str, "slot": target, "link": target, "sequence": sequence_text,
             "changes": changes_text}
    return texts[kind](number(data)) if kind in texts else ""


def hex_rows(data):
    """Eight bytes a row; what is zero up to the end is told, not shown."""
    used = data.rstrip(b"\0")
    shown = data if len(data) <= 8 else data[:(len(used) + 7) // 8 * 8]
    for at in range(0, len(shown), 8):
        yield shown[at:at + 8].hex(" ")
    if len(shown) < len(data):
        yield f"{len(data) - len(shown)} zero bytes"


def field_lines(data, fields, base=0):
    for offset, width, name, kind in fields:
        piece = data[offset:offset + width]
        rows = [" ".join([".."] * min(width, 8))] if kind == "masked" else list(hex_rows(piece))
        yield f"{base + offset:>6}  {rows[0]:<23}  {name:<20} {meaning(piece, kind)}".rstrip()
        for row, text in enumerate(rows[1:], 1):
            yield f"{base + offset + row * 8:>6}  {text}"


class Sample:
    """The files of a store of three rows, made by a writer in a directory of its own."""

    def __init__(self, root):
        self.environment = dict(os.environ, HWTABLES_ROOT=root)
        self.directory = pathlib.Path(root) / "sample"
        self.write_rows(0)
        with open(self.directory / "slots", "r+b") as slots:
            slots.seek(576)
            slots.write(struct.pack("<I", SEED))
        self.write_rows(3)
        self.slots, self.buckets, self.ember, self.owner = (
            (self.directory / name).read_bytes() for name in ("slots", "buckets", "ember", "owner"))

    def write_rows(self, count):
        subprocess.run([SAMPLE, str(count)], env=self.environment, check=True, stdout=subprocess.DEVNULL)

    def slot_at(self, slot):
        return 656 + slot * 48

    def slot(self, slot):
        return self.slots[self.slot_at(slot):self.slot_at(slot) + 48]

    def head(self, bucket):
        return self.buckets[24 + bucket * 8:32 + bucket * 8]

    def slot_lines(self):
        for slot in range(4):
            yield f"slot {slot}"
            yield from field_lines(self.slot(slot), SLOT, self.slot_at(slot))

    def head_lines(self):
        yield from field_lines(self.buckets, BUCKETS_HEADER)
        for bucket in range(4):
            yield f"bucket {bucket}"
            yield from field_lines(self.head(bucket), HEAD, 24 + bucket * 8)

    def walk_lines(self):
        """Every bucket in the order of iteration, with what its chain leads to."""
        bucket = 0
        while True:
            steps = [f"bucket {bucket}:"]
            link = number(self.head(bucket)[4:])
            while not link >> 31:
                steps.append(f"slot {link} (hash {number(self.slot(link)[40:44]):#010x}),")
                link = number(self.slot(link)[4:8])
            yield " ".join(steps + [target(link)])
            if link == NIL:
                return
            bucket = link & 0x3FFFFFFF

    def newer_owner(self):
        return max(self.owner[:1024], self.owner[1024:], key=lambda record: number(record[8:16]))

    def parts(self):
        return {
            "slots header": field_lines(self.slots, SLOTS_HEADER),
            "slots": self.slot_lines(),
            "buckets": self.head_lines(),
            "walk": self.walk_lines(),
            "ember": field_lines(self.ember, EMBER),
            "owner": field_lines(self.newer_owner(), OWNER),
        }


def unnamed_bytes(data, fields):
    rest = bytearray(data)
    for offset, width, _, _ in fields:
        rest[offset:offset + width] = bytes(width)
    return bytes(rest)


class StoreFormatTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as root:
            cls.sample = Sample(root)

    def test_dumps_are_those_of_real_files(self):
        made = {name: "".join(line + "\n" for line in lines) for name, lines in self.sample.parts().items()}
        page = PAGE.read_text()
        pattern = re.compile(r"(<!-- made: (.*?) -->\n```\n)(.*?)(```\n)", re.DOTALL)
        if os.environ.get("HWTABLES_WRITE_GOLDEN") == "1":
            page = pattern.sub(lambda match: match[1] + made[match[2]] + match[4], page)
            PAGE.write_text(page)
        shown = {match[2]: match[3] for match in pattern.finditer(page)}
        self.assertEqual(list(shown), list(made))
        for name, text in made.items():
            self.assertEqual(shown[name], text, name)

    def test_bytes_that_are_no_field_are_zero(self):
        sample = self.sample
        self.assertEqual(unnamed_bytes(sample.slots[:608], SLOTS_HEADER), bytes(608))
        for slot in range(64):
            self.assertEqual(unnamed_bytes(sample.slot(slot), SLOT), bytes(48), slot)
        self.assertEqual(unnamed_bytes(sample.buckets[:24], BUCKETS_HEADER), bytes(24))
        self.assertEqual(unnamed_bytes(sample.ember, EMBER), bytes(64))
        for record in (sample.owner[:1024], sample.owner[1024:]):
            self.assertEqual(unnamed_bytes(record, OWNER), bytes(1024))

    def test_files_have_the_sizes_that_are_told(self):
        self.assertEqual(len(self.sample.slots), 4096)
        self.assertEqual(len(self.sample.ember), 64)
        self.assertEqual(len(self.sample.owner), 2048)


if __name__ == "__main__":
    unittest.main()
