"""The folder as a whole: the list of tables, tables like others, and the catalogue that ships."""

import unittest

from folders import ARRAYS, DIRECT, EXACT, MDB, REAL_CATALOGUE, FolderTest, chip_text
from generator import model
from generator.catalogue import Catalogue

CLASS = "a string: a capital letter, then letters, digits and single underscores between them"


def twin(text: str, of: str) -> str:
    """A table without a layout of its own."""
    layout = min(text.find(mark) % len(text) for mark in ("fields =", "[[views]]"))
    head = [line for line in text[:layout].splitlines() if not line.startswith("presets")]
    return "\n".join([f'like = "{of}"', *head]) + "\n"


class ChipTest(FolderTest):
    def test_a_table_without_a_file(self):
        self.assertEqual(self.problems({"Rows": DIRECT}, chip_text(["Rows", "Cols"])),
                         ['Chip.toml: Chip: tables[1]: "Cols": a table that has a file, Cols.toml'])

    def test_a_file_that_is_not_listed(self):
        self.assertEqual(self.problems({"Rows": DIRECT, "Ads": MDB}, chip_text(["Rows"])),
                         ["Chip.toml: Chip: tables: Ads.toml is not listed: every file of the folder"])

    def test_a_table_listed_twice(self):
        self.assertEqual(self.problems({"Rows": DIRECT}, chip_text(["Rows", "Rows"])),
                         ['Chip.toml: Chip: tables[1]: "Rows": a table once only'])

    def test_names_and_numbers(self):
        chip = 'namespace = "namespace"\nchipType = -1\ntables = ["Rows", "cols"]\nchip = 3\n'
        self.assertEqual(self.problems({"Rows": DIRECT}, chip), [
            'Chip.toml: Chip: chip: 3: unknown key, the nearest is "chipType"; legal are namespace,'
            " chipType, tables",
            'Chip.toml: Chip: namespace: "namespace": a string: a small letter, then letters, digits and'
            " single underscores between them; no C++ keyword",
            "Chip.toml: Chip: chipType: -1: an integer, 0 to 4294967295",
            f'Chip.toml: Chip: tables[1]: "cols": {CLASS}',
        ])

    def test_a_list_that_cannot_be_read_blames_no_file(self):
        [message] = self.problems({"Rows": DIRECT}, "tables = [\n")
        self.assertRegex(message, r"^Chip\.toml: Chip: line \d: .*: TOML, ")


class LikeTest(FolderTest):
    def table(self, tables: dict[str, str], name: str) -> model.Table:
        catalogue = Catalogue(self.write(tables))
        self.assertEqual([str(problem) for problem in catalogue.problems()], [])
        return model.build(catalogue, name)

    def test_fields_and_presets_are_those_of_the_other_table(self):
        tables = {"Tag": self.changed(twin(EXACT, "Label"), '"LABEL_DB"', '"TAG_DB"'), "Label": EXACT}
        tag, label = self.table(tables, "Tag"), self.table(tables, "Label")
        self.assertEqual(tag.fields, label.fields)
        self.assertEqual([(preset.field.name, preset.value) for preset in tag.presets],
                         [("vmv", 1), ("entryType", 2)])
        self.assertEqual((tag.chip_name, label.chip_name), ("TAG_DB", "LABEL_DB"))

    def test_views_are_those_of_the_other_table(self):
        tables = {"Tcam": ARRAYS, "Twin": twin(ARRAYS, "Tcam")}
        self.assertEqual(self.table(tables, "Twin").views, self.table(tables, "Tcam").views)

    def test_a_table_that_is_missing(self):
        self.assertEqual(self.problems({"Rows": DIRECT, "Twin": twin(DIRECT, "Row")}),
                         ['Twin.toml: Twin: like: "Row": another table of the catalogue,'
                          ' the nearest is "Rows"'])

    def test_itself(self):
        self.assertEqual(self.problems({"Rows": DIRECT, "Twin": twin(DIRECT, "Twin")}),
                         ['Twin.toml: Twin: like: "Twin": another table of the catalogue,'
                          ' the nearest is "Rows"'])

    def test_a_table_that_is_itself_like_another(self):
        tables = {"Rows": DIRECT, "Twin": twin(DIRECT, "Rows"), "Third": twin(DIRECT, "Twin")}
        self.assertEqual(self.problems(tables), [
            'Third.toml: Third: like: "Twin": a table that spells out its fields, this one is like "Rows"'])

    def test_two_tables_like_each_other(self):
        self.assertEqual(self.problems({"Left": twin(DIRECT, "Right"), "Right": twin(DIRECT, "Left")}), [
            'Left.toml: Left: like: "Right": a table that spells out its fields, this one is like "Left"',
            'Right.toml: Right: like: "Left": a table that spells out its fields, this one is like "Right"',
        ])

    def test_a_table_of_another_family(self):
        self.assertEqual(self.problems({"Rows": DIRECT, "Twin": twin(MDB, "Rows")}),
                         ['Twin.toml: Twin: like: "Rows": a table of family mdbDirect, this one is direct'])

    def test_an_entry_too_short_for_the_fields(self):
        short = self.changed(twin(DIRECT, "Rows"), "entryDataMaxSize = 8", "entryDataMaxSize = 4")
        self.assertEqual(self.problems({"Rows": DIRECT, "Twin": short}), [
            "Twin.toml: Twin: like.word.bits: [4, 35]: bits 0 to 31, the entry has 4 bytes",
            "Twin.toml: Twin: like.all.bits: [0, 63]: bits 0 to 31, the entry has 4 bytes",
        ])

    def test_fields_or_presets_beside_it(self):
        text = 'like = "Label"\n' + EXACT
        messages = self.problems({"Label": EXACT, "Twin": text})
        self.assertEqual([message.split(": ")[2] for message in messages], ["fields", "presets"])
        self.assertTrue(all(message.endswith(': none beside "like"') for message in messages))

    def test_a_key_that_is_no_field_of_the_other_table(self):
        text = self.changed(twin(EXACT, "Label"), '"bos"', '"bot"')
        self.assertEqual(self.problems({"Label": EXACT, "Twin": text}),
                         ['Twin.toml: Twin: key.bot.name: "bot": the name of a field of the table'])

    def test_the_other_tables_mistakes_are_told_once(self):
        self.assertEqual(self.problems({"Rows": self.changed(DIRECT, "[0, 3]", "[0, 4]"),
                                        "Twin": twin(DIRECT, "Rows")}),
                         ["Rows.toml: Rows: fields.low.bits: [0, 4]: 4 bits for type U4, not 5;"
                          " from bit 0 that is [0, 3]"])


class RealCatalogueTest(unittest.TestCase):
    def test_it_is_sound_and_has_36_tables(self):
        catalogue = Catalogue(REAL_CATALOGUE)
        self.assertEqual([str(problem) for problem in catalogue.problems()], [])
        tables = [model.build(catalogue, name) for name in catalogue.names]
        families = [table.family for table in tables]
        self.assertEqual([families.count(each) for each in ("direct", "exactMatch", "register", "mdbDirect")],
                         [17, 7, 1, 11])


if __name__ == "__main__":
    unittest.main()
