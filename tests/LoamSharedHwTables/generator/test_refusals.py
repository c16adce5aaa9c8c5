"""What a wrong table file is refused with, to the letter."""

import unittest

from folders import DIRECT, EXACT, SOUND, FolderTest
from generator.catalogue import Catalogue

MEMBER = "a string: a small letter, then letters, digits and single underscores between them; no C++ keyword"
CLASS = "a string: a capital letter, then letters, digits and single underscores between them"
TYPES = 'one of "U1" to "U63" but for U8, U16 and U32; or "8-bit", "16-bit", "32-bit", "64-bit"'
LOW = '{ name = "low", type = "U4", bits = [0, 3] }'


class SoundTest(FolderTest):
    def test_the_unchanged_tables_are_accepted(self):
        self.assertEqual(self.problems(SOUND), [])

    def test_overlapping_fields_are_accepted(self):
        both = (LOW + ', { name = "twin", type = "U4", bits = [0, 3] }'
                ', { name = "across", type = "U6", bits = [2, 7] }')
        self.assertEqual(self.problems({"Rows": self.changed(DIRECT, LOW, both)}), [])


class FieldTest(FolderTest):
    def test_ranges(self):
        self.check_cases("Rows", [
            ("[0, 63]", "[0, 64]", ["fields.all.bits: [0, 64]: bits 0 to 63, the entry has 8 bytes"]),
            ("[0, 3]", "[3, 0]", ["fields.low.bits: [3, 0]: low at most high, 0 to 0"]),
            ("[0, 3]", "[0, 4]",
             ["fields.low.bits: [0, 4]: 4 bits for type U4, not 5; from bit 0 that is [0, 3]"]),
            ("[4, 35]", "[4, 34]",
             ["fields.word.bits: [4, 34]: 32 bits for type 32-bit, not 31; from bit 4 that is [4, 35]"]),
            ("[0, 3]", "[-1, 2]", ["fields.low.bits: [-1, 2]: two integers [low, high], 0 to 524279"]),
            ("[0, 3]", "[0]", ["fields.low.bits: [0]: two integers [low, high], 0 to 524279"]),
            ("[0, 3]", "[0, true]", ["fields.low.bits: [0, true]: two integers [low, high], 0 to 524279"]),
            ("[0, 3]", '"0..3"', ['fields.low.bits: "0..3": two integers [low, high], 0 to 524279']),
        ])

    def test_a_bitmap_has_at_most_1024_bits(self):
        larger = self.changed(DIRECT, "entryDataMaxSize = 8", "entryDataMaxSize = 129")
        told = "Rows.toml: Rows: fields.all.bits: [0, 1024]: a bitmap of at most 1024 bits, not 1025"
        self.assertEqual(self.problems({"Rows": self.changed(larger, "[0, 63]", "[0, 1023]")}), [])
        self.assertEqual(self.problems({"Rows": self.changed(larger, "[0, 63]", "[0, 1024]")}), [told])

    def test_types(self):
        legal = TYPES + ', "bitmap"'
        self.check_cases("Rows", [
            ('"U4"', f'"{name}"', [f'fields.low.type: "{name}": {legal}'])
            for name in ("U0", "U04", "U8", "U16", "U32", "U64", "U100", "u4", "4-bit", "128-bit",
                         "Bitmap", "")
        ])

    def test_every_bounded_width_but_the_plain_ones_is_legal(self):
        for width in set(range(1, 64)) - {8, 16, 32}:
            field = f'{{ name = "low", type = "U{width}", bits = [0, {width - 1}] }}'
            with self.subTest(width=width):
                self.assertEqual(self.problems({"Rows": self.changed(DIRECT, LOW, field)}), [])

    def test_names(self):
        cases = [('name = "low"', f'name = "{name}"', [f'fields.{name}.name: "{name}": {MEMBER}'])
                 for name in ("Low", "a__b", "_low", "low_", "9low", "lo-w", "class", "co_await")]
        other = "a name that no member or setter of the record has"
        cases += [
            ('name = "low"', 'name = ""', [f'fields[0].name: "": {MEMBER}']),
            ('name = "low"', 'name = 7', [f"fields[0].name: 7: {MEMBER}"]),
            ('name = "low"', 'name = "entryKey"', [f'fields.entryKey.name: "entryKey": {other}']),
            ('name = "low"', 'name = "wordIs"', [f'fields.wordIs.name: "wordIs": {other}']),
            ('name = "all"', 'name = "low"',
             ['fields.low.name: "low": a name that no other of these 3 fields has']),
        ]
        self.check_cases("Rows", cases)

    def test_only_a_bitmap_is_whole(self):
        legal = "false, where the type is not bitmap"
        self.check_cases("Rows", [
            ("[0, 3]", "[0, 3], whole = true", [f"fields.low.whole: true: {legal}"]),
            ("[4, 35]", "[4, 35], whole = true", [f"fields.word.whole: true: {legal}"]),
            ("[0, 63]", '[0, 63], whole = "yes"', ['fields.all.whole: "yes": true or false']),
            ('"low", type = "U4",', '"low", whole = true,',
             [f'fields.low.type: missing: required, {TYPES}, "bitmap"']),
        ])
        for old, new in (("[0, 63]", "[0, 63], whole = true"), ("[0, 3]", "[0, 3], whole = false")):
            self.assertEqual(self.problems({"Rows": self.changed(DIRECT, old, new)}), [])


class KeyTest(FolderTest):
    def test_unknown_and_missing_keys(self):
        keys = ("family, chipName, groupName, tag, entryDataMaxSize, hasParitySupport, blocks, rank,"
                " sharedShadow, shadowMode, initialContents, options, like, key, memories,"
                " fields, views")
        self.check_cases("Rows", [
            ("hasParitySupport = false", "hasParity = false", [
                f'hasParity: false: unknown key, the nearest is "hasParitySupport"; legal are {keys}',
                "hasParitySupport: missing: required, true or false",
            ]),
            ("entryCount = 16", "entryCount = 16, adress = 1", [
                'memories.rows.adress: 1: unknown key, the nearest is "address"; legal are name, block,'
                " address, firstArray, arrayCount, entryCount",
            ]),
            ('groupName = "RowsHw"\n', "",
             ["groupName: missing: required, a string of letters, digits and underscores"]),
            (', type = "U4"', "", [f'fields.low.type: missing: required, {TYPES}, "bitmap"']),
            ('family = "direct"\n', "",
             ['family: missing: required, one of "direct", "exactMatch", "register", "mdbDirect"']),
            ('"direct"', '"Direct"',
             ['family: "Direct": one of "direct", "exactMatch", "register", "mdbDirect"']),
            ("hasParitySupport = false", "hasParitySupport = false\nmdbTableId = 3",
             ["mdbTableId: 3: legal only in family mdbDirect"]),
            ("entryCount = 16", "entryCount = 16, physicalTableId = 1",
             ["memories.rows.physicalTableId: 1: legal only in family exactMatch"]),
        ])

    def test_a_key_of_the_descriptor_has_no_place_in_an_mdb_table(self):
        self.check_cases("Ads", [
            ("mdbTableId = 5", 'mdbTableId = 5\ngroupName = "Ads"',
             ['groupName: "Ads": legal only in family direct, exactMatch and register']),
        ])

    def test_values_of_a_wrong_type_or_out_of_range(self):
        number = "an integer, 0 to 4294967295"
        self.check_cases("Rows", [
            ("entryDataMaxSize = 8", "entryDataMaxSize = 0", ["entryDataMaxSize: 0: an integer, 1 to 65535"]),
            ("entryDataMaxSize = 8", 'entryDataMaxSize = "8"',
             ['entryDataMaxSize: "8": an integer, 1 to 65535']),
            ("entryDataMaxSize = 8", "entryDataMaxSize = 8.0",
             ["entryDataMaxSize: 8.0: an integer, 1 to 65535"]),
            ("entryDataMaxSize = 8", "entryDataMaxSize = 65536",
             ["entryDataMaxSize: 65536: an integer, 1 to 65535"]),
            ("= false", "= 0", ["hasParitySupport: 0: true or false"]),
            ("[151]", "[]", ["blocks: []: a list of one or more integers, 0 to 4294967295"]),
            ("[151]", "[151, -1]", ["blocks: [151, -1]: a list of one or more integers, 0 to 4294967295"]),
            ("= true", '= true\nrank = 0', ["rank: 0: an integer, 1 to 4294967295"]),
            ("= true", '= true\nshadowMode = "half"', ['shadowMode: "half": one of "full", "partial"']),
            ("= true", '= true\noptions = 1', ['options: 1: none without "initialContents"']),
            ('"RowsHw"', '"Rows Hw"', ['groupName: "Rows Hw": a string of letters, digits and underscores']),
            ('"ROWS"', '"RO\\"WS"',
             ['chipName: "RO\\"WS": a string of letters, digits, underscores and dots']),
            ("block = 3", "block = 0x100000000", [f"memories.rows.block: 4294967296: {number}"]),
            ("block = 3", "block = true", [f"memories.rows.block: true: {number}"]),
            ("address = 0x10", "address = -1", [f"memories.rows.address: -1: {number}"]),
            ("entryCount = 16", "entryCount = 0",
             ["memories.rows.entryCount: 0: an integer, 1 to 4294967295"]),
            ("entryCount = 16", "firstArray = 256, entryCount = 16",
             ["memories.rows.firstArray: 256: an integer, 0 to 255"]),
            ("key = [{", "key = [3, {",
             ['key: [3, { name = "value", type = "32-bit", null = 16 }]: a list of one or more key members']),
        ])

    def test_empty_lists(self):
        text = DIRECT[:DIRECT.index("fields")] + "fields = []\n"
        self.assertEqual(self.problems({"Rows": text}),
                         ["Rows.toml: Rows: fields: []: a list of one or more fields"])


class EntryKeyTest(FolderTest):
    def test_value_keys(self):
        self.check_cases("Rows", [
            ('"value"', '"index"', ['key: ["index"]: the members "arrayIndex", "entryIndex" or "value"']),
            ('"value", type = "32-bit"', '"value", type = "16-bit"', ['key.value.type: "16-bit": "32-bit"']),
            (", null = 16", "", ["key.value.null: missing: required, an integer, 0 to 4294967295"]),
            ("null = 16", "null = 16, max = 15", ['key.value.max: 15: none, its bound is "null"']),
            ('"value", type = "32-bit"', '"value", type = "bitmap"', [f'key.value.type: "bitmap": {TYPES}']),
        ])

    def test_array_keys(self):
        self.check_cases("Tcam", [
            ("max = 3", "max = 255", [
                "key.arrayIndex.max: 255: an integer, 0 to 254",
                "memories.tcamA.arrayCount: 4: 256, what the key can name",
                "memories.tcamB.arrayCount: 4: 256, what the key can name",
            ]),
            ("max = 99", "null = 99", [
                "key.entryIndex.max: missing: required, an integer, 0 to 4294967294",
                'key.entryIndex.null: 99: none, its bound is "max"',
            ]),
        ])

    def test_an_mdb_table_has_no_array_key(self):
        two = '"arrayIndex", type = "8-bit", max = 0 }, { name = "entryIndex", type = "32-bit", max'
        self.check_cases("Ads", [
            ('"value", type = "32-bit", null', two,
             ['key: ["arrayIndex", "entryIndex"]: the members "value"']),
        ])

    def test_field_keys(self):
        self.check_cases("Label", [
            ('{ name = "bos", type = "U1" }', '{ name = "bot", type = "U1" }',
             ['key.bot.name: "bot": the name of a field of the table']),
            ('{ name = "bos", type = "U1" }', '{ name = "bos", type = "U2" }',
             ['key.bos.type: "U2": "U1", the type of the field']),
            ('{ name = "bos", type = "U1" }', '{ name = "label", type = "U5" }',
             ['key.label.name: "label": a name that no other member has']),
            ('{ name = "bos", type = "U1" }', '{ name = "bos", type = "U1", max = 1 }',
             ["key.bos.max: 1: none in a field key, its type alone bounds it"]),
        ])


class PresetTest(FolderTest):
    def test_exact_match_presets(self):
        self.check_cases("Label", [
            ("vmv = 1,", "vmv = 4,", ["presets.vmv: 4: an integer, 0 to 3, for type U2"]),
            ("vmv = 1,", "vmv = -1,", ["presets.vmv: -1: an integer, 0 to 18446744073709551615",
                                       "presets.vmv: missing: required in family exactMatch"]),
            ("vmv = 1,", "", ["presets.vmv: missing: required in family exactMatch"]),
            ("vmv = 1,", "vmv = 1, appId = 2,", ["presets.appId: 2: the name of a field"]),
            ("vmv = 1,", "vmv = 1, entry = 2,", ["presets.entry: 2: a field that is no bitmap"]),
            ("presets = { vmv = 1, entryType = 2 }\n", "",
             ['presets: missing: required unless "like" stands']),
            ("presets = {", "presets = 3 # {",
             ["presets: 3: a table of field names, each with an integer, 0 to 18446744073709551615"]),
            ('{ name = "command", type = "U2", bits = [0, 1] },', "",
             ["fields.command: missing: required in family exactMatch"]),
        ])

    def test_a_direct_table_has_none_of_its_own(self):
        self.check_cases("Rows", [
            ("key =", "presets = { low = 1 }\nkey =",
             ["presets: { low = 1 }: legal only in family exactMatch"]),
        ])


class ViewTest(FolderTest):
    def test_views(self):
        self.check_cases("Tcam", [
            ('"ReplyEntry"', '"CommandEntry"',
             ['views.CommandEntry.name: "CommandEntry": a name that no other view has']),
            ('"reply"', '"command"', ['views.ReplyEntry.viewT: "command": a name that no other view has']),
            ('"ReplyEntry"', '"Entry"',
             ['views.Entry.name: "Entry": a name that no other class of a table has']),
            ('"ReplyEntry"', '"replyEntry"', [f'views.replyEntry.name: "replyEntry": {CLASS}']),
            ("bank = 3", "bank = 4", ["views.CommandEntry.presets.bank: 4: an integer, 0 to 3, for type U2"]),
            ("bank = 3", "bonk = 3", ["views.CommandEntry.presets.bonk: 3: the name of a field"]),
            ("[2, 47]", "[2, 48]",
             ["views.CommandEntry.fields.data.bits: [2, 48]: bits 0 to 47, the entry has 6 bytes"]),
            ('"data", type = "bitmap", bits = [2, 47]', '"entry", type = "bitmap", bits = [2, 47]',
             ['views.CommandEntry.fields.entry.name: "entry": a name that no member or setter of the'
              " record has"]),
            ('viewT = "reply"\n', "", [f"views.ReplyEntry.viewT: missing: required, {MEMBER}"]),
        ])

    def test_two_views_may_have_fields_of_one_name(self):
        self.assertEqual(self.problems({"Tcam": SOUND["Tcam"]}), [])

    def test_fields_beside_views(self):
        self.check_cases("Tcam", [
            ("[[views]]\nname = \"CommandEntry\"", 'fields = [{ name = "x", type = "U1", bits = [0, 0] }]\n'
             "[[views]]\nname = \"CommandEntry\"",
             ['views: [{ name = "CommandEntry", viewT = "command", presets = { bank = 3 }, fields =...:'
              ' none beside "fields"']),
        ])


class MemoryTest(FolderTest):
    def test_several_memories(self):
        self.check_cases("Tcam", [
            ('"tcamB"', '"tcamA"',
             ['memories.tcamA.name: "tcamA": a name that no other memory of the table has']),
            ('"TCAM_A.TCAM_B"', '"TCAM_A"', ["memories: 2 memories: 1, as many as chipName has names"]),
            ("address = 0x20, arrayCount = 4", "address = 0x20, firstArray = 1, arrayCount = 4",
             ["memories.tcamB.firstArray: 1: 0, as in the table's first memory"]),
            ("address = 0x20, arrayCount = 4, entryCount = 100",
             "address = 0x20, arrayCount = 4, entryCount = 99", [
                "memories.tcamB.entryCount: 99: 100, as in the table's first memory",
                "memories.tcamB.entryCount: 99: 100, what the key can name",
            ]),
        ])

    def test_one_memory(self):
        self.check_cases("Rows", [
            ("null = 16", "null = 15", ["memories.rows.entryCount: 16: 15, what the key can name"]),
            ("address = 0x10", "address = 0xFFFFFFF1",
             ["memories.rows.address: 4294967281: an integer, 0 to 4294967280 with 16 entries"]),
            ("address = 0x10", "address = 0x10, firstArray = 255, arrayCount = 2", [
                "memories.rows.firstArray: 255: an integer, 0 to 254 with 2 arrays",
                "memories.rows.arrayCount: 2: 1, what the key can name",
            ]),
        ])

    def test_the_last_address_is_legal(self):
        text = self.changed(DIRECT, "address = 0x10", "address = 0xFFFFFFF0")
        self.assertEqual(self.problems({"Rows": text}), [])


class FileTest(FolderTest):
    def test_a_syntax_error_is_told_with_its_line(self):
        [message] = self.problems({"Rows": self.changed(DIRECT, "entryDataMaxSize = 8",
                                                        "entryDataMaxSize 8")})
        self.assertRegex(message, r"^Rows\.toml: Rows: line 4: entryDataMaxSize 8: TOML, .*column 18")

    def test_bytes_that_are_no_utf8(self):
        folder = self.write({"Rows": DIRECT})
        (folder / "Rows.toml").write_bytes(b"# \xff\n" + DIRECT.encode())
        told = [str(problem) for problem in Catalogue(folder).problems()]
        self.assertEqual(told, [f"{folder}/Rows.toml: Rows: byte 2: 0xff: UTF-8 text"])

    def test_a_key_given_twice(self):
        [message] = self.problems({"Rows": DIRECT + 'family = "direct"\n'})
        self.assertRegex(message, r'^Rows\.toml: Rows: line 15: family = "direct": TOML, ')

    def test_all_errors_of_a_file_are_told_at_once(self):
        text = self.changed(DIRECT, "entryDataMaxSize = 8", "entryDataMaxSize = 7")
        text = self.changed(text, "[0, 3]", "[3, 0]")
        text = self.changed(text, "block = 3", 'block = "3"')
        text = self.changed(text, '"ROWS"', '"ROWS.MORE"')
        text = self.changed(text, '"word"', '"while"')
        self.assertEqual(self.problems({"Rows": text}), [
            'Rows.toml: Rows: memories.rows.block: "3": an integer, 0 to 4294967295',
            f'Rows.toml: Rows: fields.while.name: "while": {MEMBER}',
            "Rows.toml: Rows: memories: 1 memories: 2, as many as chipName has names",
            "Rows.toml: Rows: fields.low.bits: [3, 0]: low at most high, 0 to 0",
            "Rows.toml: Rows: fields.all.bits: [0, 63]: bits 0 to 55, the entry has 7 bytes",
        ])

    def test_the_errors_of_all_files_are_told_at_once(self):
        wrong = {"Rows": self.changed(DIRECT, "[0, 3]", "[3, 0]"),
                 "Label": self.changed(EXACT, "vmv = 1,", "")}
        self.assertEqual(self.problems(wrong), [
            "Rows.toml: Rows: fields.low.bits: [3, 0]: low at most high, 0 to 0",
            "Label.toml: Label: presets.vmv: missing: required in family exactMatch",
        ])


if __name__ == "__main__":
    unittest.main()
