"""docs/import.md shows what one gets, and what import and examples make are rows that the tables have."""

import json
import os
import pathlib
import re
import subprocess
import unittest

import test_readme

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PAGE = (ROOT / "docs/import.md").read_text()
EXAMPLE = ROOT / "examples/iproute2"
PROGRAM = pathlib.Path(os.environ["HWTABLES_BIN_DIR"]) / "hwtables"
CATALOGUE = {table["name"]: table for table in
             json.loads((ROOT / "tests/LoamSharedHwTables/expected_catalogue.json").read_text())["tables"]}
# Of these all FAPs share the rows.
SHARED = {"MplsIsemHwEm", "Srv6LocalSidIsemHwEm", "Ip4UdpTtMpIsemHwEm"}


def output_of(*command, cwd=ROOT):
    return subprocess.run(command, cwd=cwd, check=True, capture_output=True, text=True).stdout


def imported():
    files = [word for kind in ("mpls", "vlan", "route6", "link") for word in (f"--{kind}", f"{kind}.json")]
    return output_of(PROGRAM, "import", "iproute2", "--map", "map.json", *files, cwd=EXAMPLE)


class ImportPageTest(unittest.TestCase):
    def test_commands_print_what_is_shown(self):
        commands = list(test_readme.shown_commands(PAGE))
        self.assertEqual(len(commands), 2)
        for command, shown in commands:
            run = output_of("sh", "-c", command.replace("../../build/release/bin", str(PROGRAM.parent)))
            self.assertRegex(run.rstrip("\n"), rf"\A{test_readme.pattern_of(shown)}\Z", command)

    def test_links_lead_to_files(self):
        for target in re.findall(r"\]\(([^)#:]+)", PAGE):
            self.assertTrue((ROOT / "docs" / target).exists(), target)

    def test_map_of_the_example_knows_all_of_its_names(self):
        before = (EXAMPLE / "map.json").read_bytes()
        imported()
        self.assertEqual((EXAMPLE / "map.json").read_bytes(), before)


class RowsTest(unittest.TestCase):
    def check(self, operations, tables):
        keys = set()
        for line in operations.splitlines():
            operation = json.loads(line)
            table = CATALOGUE[operation["table"]]
            self.check_key(table, operation["key"], line)
            self.check_fields(table, operation["fields"], line)
            self.assertEqual(set(operation) - {"fap"}, {"op", "table", "key", "fields"}, line)
            self.assertEqual(operation["op"], "set", line)
            if table["name"] in SHARED:
                self.assertNotIn("fap", operation, line)
            keys.add((table["name"], operation.get("fap"), tuple(operation["key"].values())))
        self.assertEqual(len(keys), len(operations.splitlines()), "a key stands twice")
        self.assertEqual({name for name, *rest in keys}, tables)
        return len(keys)

    def check_key(self, table, key, line):
        self.assertEqual(list(key), [member["name"] for member in table["key"]], line)
        for member in table["key"]:
            self.assertTrue(member["min"] <= key[member["name"]] <= member["max"], line)

    def check_fields(self, table, fields, line):
        bits = {field["name"]: (field["low"], field["high"]) for field in table["fields"]}
        for name, value in fields.items():
            low, high = bits[name]
            self.assertTrue(0 <= value < 1 << (high - low + 1), line)

    def test_import_makes_rows_of_its_tables(self):
        self.check(imported(), SHARED | {"InAcSVlanHwEm", "InAcUntaggedHwEm", "VsiToVniEsemHwEm"})

    def test_edge_switch_has_tens_of_thousands_of_rows_of_all_exact_match_tables(self):
        made = output_of("examples/edge_labels.py", "examples/edge-labels.toml")
        tables = {name for name, table in CATALOGUE.items() if table["family"] == "exactMatch"}
        count = self.check(made, tables)
        self.assertGreater(count, 50_000)

    def test_rows_that_are_run_over_the_same_chips_have_no_key_in_common(self):
        made = output_of("examples/edge_labels.py", "examples/edge-labels.toml")
        withdrawn = (ROOT / "examples/withdrawn-labels.jsonl").read_text()
        tables = {name for name, table in CATALOGUE.items() if table["family"] == "exactMatch"}
        self.check(imported() + made + withdrawn, tables)


if __name__ == "__main__":
    unittest.main()
