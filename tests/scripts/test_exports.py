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
STATUS = "Dovel::Ptr<Hardware::Loam::Status const> const&"
MDB_STATUS = "Dovel::Ptr<Hardware::Loam::MdbStatus const> const&"
EXACT_MATCH_ARGUMENTS = f"{ARGUMENTS[:-1]}, {MDB_STATUS})"
FLUSH_TABLE_ARGUMENTS = f"(LoamAsicUtils::HwTableKey const&, {STATUS}, {MDB_STATUS})"
FLUSH_REGISTRY_ARGUMENTS = f"(Hardware::Loam::FapRevision const&, {STATUS}, {MDB_STATUS})"
REGISTRY_ARGUMENTS = ("(Hardware::Loam::FapRevision const&, Dovel::Ptr<LoamAsicUtils::TableManager> const&,"
                      " Dovel::Ptr<LoamMdb::TableManager> const&)")
# What a symbol is of: a table or a family's template, or the type information of such a one.
OWN = re.compile(r"(typeinfo for |typeinfo name for |vtable for |guard variable for )?"
                 r"(\S+ )?(bcm88490_a0|LoamSharedHwTables)::")


def exported() -> set[str]:
    listed = subprocess.run(["nm", "-DC", "--defined-only", BUNDLE], capture_output=True, text=True,
                            check=True)
    return {line.split(" ", 2)[2] for line in listed.stdout.splitlines()}


def tables_of(family: str) -> list[Table]:
    catalogue = Catalogue(ROOT / "LoamSharedHwTables/Qumran3a")
    tables = [build(catalogue, name) for name in catalogue.names]
    return [table for table in tables if table.family == family]


def write_command_arguments(table: Table) -> str:
    return (f"(Sluice::Fapmask const&, {STATUS}, LoamMdb::PhysicalTableId, Hardware::Loam::CoreInfo,"
            " Dovel::Ptr<Asic::LogEntryWrapperBase> const&, bool, bool, Hardware::Loam::FapRevision const&,"
            f" Dovel::Ptr<LoamAsicUtils::BcmRegMemInfo const> const&, {table.type_name}Unit::Entry const&)")


def exact_match_factories(table: Table) -> set[str]:
    name = f"{table.namespace}::{table.function_name}"
    return {f"{name}Factory{EXACT_MATCH_ARGUMENTS}",
            f"{name}FlushTableFactory{FLUSH_TABLE_ARGUMENTS}",
            f"{name}FlushEntityFactory(Dovel::Impl::StrB const&)",
            f"{table.namespace}::{table.write_command_function}Factory{write_command_arguments(table)}"}


class ExportsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.exported = exported()
        cls.tables = tables_of("direct")
        cls.exact_match = tables_of("exactMatch")

    def test_every_table_has_its_factories_and_no_other_is_there(self):
        factories = {name for name in self.exported if re.match(r"bcm88490_a0::\w+Factory\(", name)}
        self.assertEqual((len(self.tables), len(self.exact_match)), (17, 7))
        expected = {f"{table.namespace}::{table.function_name}Factory{ARGUMENTS}" for table in self.tables}
        self.assertEqual(factories, expected.union(*map(exact_match_factories, self.exact_match)))

    def test_every_class_of_an_exact_match_table_has_a_static_creator(self):
        for table in self.exact_match:
            command = f"{table.namespace}::{table.write_command}"
            self.assertIn(f"{table.type_name}::{table.name}Is{EXACT_MATCH_ARGUMENTS}", self.exported)
            self.assertIn(f"{command}::{table.write_command}Is{write_command_arguments(table)}",
                          self.exported)
            self.assertIn(f"{table.type_name}FlushTable::{table.name}FlushTableIs{FLUSH_TABLE_ARGUMENTS}",
                          self.exported)
            entity = f"{table.type_name}FlushEntity::{table.name}FlushEntityIs"
            self.assertIn(f"{entity}(Dovel::Impl::StrB const&)", self.exported)

    def test_flush_tables_have_the_factory_of_their_registry(self):
        for table in self.exact_match:
            factory = rf"LoamSharedHwTables::ExactMatchFlushTable<{table.type_name}FlushTable, .*>::factory"
            self.assertTrue(any(re.search(factory + re.escape(FLUSH_REGISTRY_ARGUMENTS), name)
                                for name in self.exported), table.name)

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
