"""What the table bundle exports: the factories of its tables and what belongs to tables, and nothing else."""

import os
import re
import subprocess
import unittest
from pathlib import Path

from generator.catalogue import Catalogue
from generator.model import Table, build

ROOT = Path(__file__).resolve().parents[2]
BIN = Path(os.environ.get("HWTABLES_BIN_DIR", ROOT / "build/release/bin"))
BUNDLE = BIN.parent / "lib/libbcm88490_a0.so"

ARGUMENTS = ("(Dovel::Impl::StrB const&, LoamAsicUtils::HwTableKey const&,"
             " Dovel::Ptr<LoamAsicUtils::TableManager> const&)")
REGISTRY_ARGUMENTS = ("(Hardware::Loam::FapRevision const&, Dovel::Ptr<LoamAsicUtils::TableManager> const&,"
                      " Dovel::Ptr<LoamMdb::TableManager> const&)")
# What a symbol is of: a table or a family's template, or the type information of such a one.
OWN = re.compile(r"(typeinfo for |typeinfo name for |vtable for |guard variable for )?"
                 r"(\S+ )?(bcm88490_a0|LoamSharedHwTables)::")


def exported() -> set[str]:
    listed = subprocess.run(["nm", "-DC", "--defined-only", BUNDLE], capture_output=True, text=True,
                            check=True)
    return {line.split(" ", 2)[2] for line in listed.stdout.splitlines()}


def direct_tables() -> list[Table]:
    catalogue = Catalogue(ROOT / "LoamSharedHwTables/Qumran3a")
    tables = [build(catalogue, name) for name in catalogue.names]
    return [table for table in tables if table.family == "direct"]


class ExportsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.exported = exported()
        cls.tables = direct_tables()

    def test_every_direct_table_has_its_factory_and_no_other_is_there(self):
        factories = {name for name in self.exported if re.match(r"bcm88490_a0::\w+Factory\(", name)}
        self.assertEqual(len(self.tables), 17)
        self.assertEqual(factories, {f"{table.namespace}::{table.function_name}Factory{ARGUMENTS}"
                                     for table in self.tables})

    def test_every_direct_table_has_a_static_creator_of_the_same_arguments(self):
        for table in self.tables:
            self.assertIn(f"{table.type_name}::{table.name}Is{ARGUMENTS}", self.exported)

    def test_tables_with_initial_contents_have_the_factory_of_the_registry(self):
        having = {table.name for table in self.tables
                  if f"{table.type_name}::factory{REGISTRY_ARGUMENTS}" in self.exported}
        self.assertEqual(having, {"MainHdrProfMapHwDirect", "EmAccessCmdHwDirect", "EgrAddHdrProfMapHwDirect",
                                  "IpkgvHwDirect", "EsemDefaultResultHwDirect",
                                  "EtppbTrapForwardActionTableHwDirect", "ItppSniffSysHdrInfoHwDirect"})

    def test_nothing_is_exported_that_is_not_of_tables(self):
        self.assertEqual([name for name in sorted(self.exported) if not OWN.match(name)], [])


if __name__ == "__main__":
    unittest.main()
