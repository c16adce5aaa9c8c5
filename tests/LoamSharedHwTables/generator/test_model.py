"""How records lie in memory, and what the templates get to see."""

import unittest

from folders import ARRAYS, REAL_CATALOGUE, FolderTest
from generator import fieldtypes, layout, model
from generator.catalogue import Catalogue


def members(*types: str) -> list[fieldtypes.FieldType]:
    return [fieldtypes.parse(name) for name in types]



class LayoutTest(unittest.TestCase):
    def key(self, *types: str) -> tuple[list, int, int]:
        key = layout.key(members(*types))
        parts = [f"pad {part.bytes}" if isinstance(part, layout.Pad) else part.name for part in key.parts]
        return parts, key.size, key.align

    def test_padding_stands_before_the_member_that_needs_it(self):
        self.assertEqual(self.key("8-bit", "32-bit"), (["8-bit", "pad 3", "32-bit"], 8, 4))
        self.assertEqual(self.key("U9", "U18"), (["U9", "pad 2", "U18"], 8, 4))

    def test_padding_stands_after_the_last_member(self):
        self.assertEqual(self.key("U20", "U1"), (["U20", "U1", "pad 3"], 8, 4))

    def test_padding_stands_on_both_sides(self):
        self.assertEqual(self.key("U4", "32-bit", "16-bit"),
                         (["U4", "pad 3", "32-bit", "16-bit", "pad 2"], 12, 4))

    def test_members_that_fit_need_none(self):
        self.assertEqual(self.key("U14", "16-bit"), (["U14", "16-bit"], 4, 2))
        self.assertEqual(self.key("U12", "U9", "U18"), (["U12", "U9", "U18"], 8, 4))
        self.assertEqual(self.key("U3"), (["U3"], 1, 1))

    def test_a_wide_member_aligns_the_whole_key(self):
        self.assertEqual(self.key("U1", "U60"), (["U1", "pad 7", "U60"], 16, 8))

    def test_pads_have_names_of_their_own(self):
        pads = [part.name for part in layout.key(members("U4", "32-bit", "16-bit")).parts
                if isinstance(part, layout.Pad)]
        self.assertEqual(pads, ["pad0", "pad1"])

    def record(self, types: list[str], size: int, views: bool = False) -> tuple[int, int, int]:
        record = layout.record(members(*types), size, views)
        return record.size, record.view_padding, record.tail_padding

    def test_an_entry_ends_at_its_keys_alignment(self):
        self.assertEqual(self.record(["32-bit"], 15), (20, 0, 1))
        self.assertEqual(self.record(["U14", "U14"], 23), (28, 0, 1))
        self.assertEqual(self.record(["U3"], 15), (16, 0, 0))
        self.assertEqual(self.record(["32-bit"], 16), (20, 0, 0))

    def test_the_views_number_lies_at_a_multiple_of_four(self):
        self.assertEqual(self.record(["8-bit", "32-bit"], 24, views=True), (36, 0, 0))
        self.assertEqual(self.record(["8-bit", "32-bit"], 6, views=True), (20, 2, 0))
        self.assertEqual(self.record(["8-bit"], 6, views=True), (12, 1, 0))
        self.assertEqual(self.record(["U60"], 6, views=True), (24, 2, 4))


class TypeTest(unittest.TestCase):
    def test_the_smallest_word_that_fits(self):
        widths = {name: fieldtypes.parse(name).storage_bytes
                  for name in ("U1", "U7", "8-bit", "U9", "U15", "16-bit", "U17", "U31", "32-bit", "U33",
                               "U63", "64-bit")}
        self.assertEqual(list(widths.values()), [1, 1, 1, 2, 2, 2, 4, 4, 4, 8, 8, 8])

    def test_cpp_names(self):
        self.assertEqual([fieldtypes.parse(name).cpp_type for name in ("U20", "8-bit", "64-bit", "bitmap")],
                         ["Orlo::U20", "std::uint8_t", "std::uint64_t", "Keel::PerUnitBitmap"])


class RealTableTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.catalogue = Catalogue(REAL_CATALOGUE)

    def test_record_sizes(self):
        golden = {"MplsIsemHwEm": (8, 4, 32, 0), "TcamHwDirect": (8, 4, 36, 0),
                  "Ip4UdpTtMpIsemHwEm": (12, 4, 36, 0), "BigAdsHwMdb": (4, 4, 20, 1),
                  "Srv6LocalSidIsemHwEm": (4, 2, 28, 0), "BigBbXlHwMdb": (4, 4, 64, 0)}
        for name, expected in golden.items():
            with self.subTest(name):
                table = model.build(self.catalogue, name)
                self.assertEqual((table.key_size, table.key_align, table.entry_size, table.entry_padding),
                                 expected)

    def test_shapes(self):
        shapes = {name: model.build(self.catalogue, name).shape
                  for name in ("SmallBbHwDirect", "SmallAdsHwDirect", "MplsIsemHwEm",
                               "IppeRecycFwdProfileMappingHwReg")}
        self.assertEqual(list(shapes.values()), ["array", "value", "fields", "value"])

    def test_key_bounds(self):
        bounds = {name: [(member.max, member.null) for member in model.build(self.catalogue, name).key]
                  for name in ("TcamHwDirect", "SmallAdsHwDirect", "MplsIsemHwEm")}
        self.assertEqual(list(bounds.values()),
                         [[(1, None), (4095, None)], [(2048, 2048)], [(0xFFFFF, None), (1, None)]])

    def test_presets_keep_the_order_of_the_file(self):
        table = model.build(self.catalogue, "VsiToVniEsemHwEm")
        self.assertEqual([(preset.field.name, preset.value) for preset in table.presets],
                         [("resultType", 45), ("vmv", 1), ("appId", 2), ("entryType", 0)])


class ViewTest(FolderTest):
    def test_views_number_their_fields_through_the_table(self):
        table = model.build(Catalogue(self.write({"Tcam": ARRAYS})), "Tcam")
        self.assertEqual([(field.order, field.view, field.name) for field in table.all_fields],
                         [(0, "CommandEntry", "bank"), (1, "CommandEntry", "data"),
                          (2, "ReplyEntry", "data")])
        self.assertEqual([(view.number, view.view_t) for view in table.views], [(0, "command"), (1, "reply")])
        self.assertEqual([(preset.field.name, preset.value) for preset in table.views[0].presets],
                         [("bank", 3)])
        self.assertEqual((table.fields, table.memories[1].array_count, table.memories[1].id), ((), 4, 1))


if __name__ == "__main__":
    unittest.main()
