"""The types of fields and key members: their spelling, width and C++ form."""

import re
from dataclasses import dataclass

LEGAL = 'one of "U1" to "U63" but for U8, U16 and U32; or "8-bit", "16-bit", "32-bit", "64-bit"'
LEGAL_WITH_BITMAP = LEGAL + ', "bitmap"'

# The records copy a bitmap through a buffer of this size: kMaxBitmapWidth in EntryRecord.h.
MAX_BITMAP_BITS = 1024

_BOUNDED = re.compile(r"U([1-9][0-9]?)")
_PLAIN = {"8-bit": 8, "16-bit": 16, "32-bit": 32, "64-bit": 64}


@dataclass(frozen=True)
class FieldType:
    """`width` is None for a bitmap, which takes the width of its range."""

    name: str
    width: int | None

    @property
    def is_bitmap(self) -> bool:
        return self.width is None

    @property
    def storage_bytes(self) -> int | None:
        """Bytes of the smallest machine word that holds the type; None for a bitmap."""
        if self.width is None:
            return None
        return next(size for size in (1, 2, 4, 8) if self.width <= size * 8)

    @property
    def cpp_type(self) -> str:
        if self.width is None:
            return "Keel::PerUnitBitmap"
        return f"std::uint{self.width}_t" if self.name in _PLAIN else f"Orlo::{self.name}"


def parse(name: str) -> FieldType | None:
    """None when no such type exists."""
    if name == "bitmap":
        return FieldType(name, None)
    if name in _PLAIN:
        return FieldType(name, _PLAIN[name])
    bounded = _BOUNDED.fullmatch(name)
    if not bounded:
        return None
    width = int(bounded[1])
    return FieldType(name, width) if width <= 63 and width not in (8, 16, 32) else None
