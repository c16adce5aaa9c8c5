"""The units of a small catalogue, as they stand in golden/: a table of each family, with every shape of key.

After a change of the templates that is meant, write them anew and read the difference:
    HWTABLES_WRITE_GOLDEN=1 ctest --preset release -R generator.golden; git diff tests
"""

import os
import unittest
from pathlib import Path

from generator import model, render
from generator.catalogue import Catalogue

GOLDEN = Path(__file__).resolve().parent / "golden"
# Neither compiled nor formatted: what is generated is not laid out for the eye.
SUFFIX = ".golden"


def units() -> dict[str, str]:
    catalogue = Catalogue(GOLDEN / "catalogue")
    texts = {}
    for name in catalogue.names:
        texts |= render.render(model.build(catalogue, name))
    return texts


def golden() -> dict[str, str]:
    return {path.name.removesuffix(SUFFIX): path.read_text() for path in GOLDEN.glob(f"*{SUFFIX}")}


def write() -> None:
    for path in GOLDEN.glob(f"*{SUFFIX}"):
        path.unlink()
    for name, text in units().items():
        (GOLDEN / (name + SUFFIX)).write_text(text)


class GoldenTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        if os.environ.get("HWTABLES_WRITE_GOLDEN"):
            write()

    def test_the_catalogue_is_sound(self):
        self.assertEqual([str(problem) for problem in Catalogue(GOLDEN / "catalogue").problems()], [])

    def test_every_unit_has_a_golden_one_and_no_other_is_there(self):
        self.assertEqual(sorted(golden()), sorted(units()))

    def test_units_are_the_golden_ones(self):
        stored = golden()
        for name, text in units().items():
            with self.subTest(name):
                self.assertMultiLineEqual(stored.get(name, ""), text)


if __name__ == "__main__":
    unittest.main()
