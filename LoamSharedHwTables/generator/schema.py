"""Every key that a catalogue file may hold, told once: what checks a file also prints the manual."""

import re
from dataclasses import dataclass

from . import fieldtypes, names

FAMILIES = ("direct", "exactMatch", "register", "mdbDirect")
WITH_DESCRIPTOR = ("direct", "exactMatch", "register")
WITH_SHADOWS = ("direct", "exactMatch")
WORD_MAX = 0xFFFFFFFF


@dataclass(frozen=True)
class Integer:
    low: int
    high: int

    @property
    def legal(self) -> str:
        return f"an integer, {self.low} to {self.high}"

    def accepts(self, value: object) -> bool:
        return isinstance(value, int) and not isinstance(value, bool) and self.low <= value <= self.high


@dataclass(frozen=True)
class Flag:
    legal: str = "true or false"

    def accepts(self, value: object) -> bool:
        return isinstance(value, bool)


@dataclass(frozen=True)
class Choice:
    values: tuple[str, ...]

    @property
    def legal(self) -> str:
        return "one of " + ", ".join(f'"{value}"' for value in self.values)

    def accepts(self, value: object) -> bool:
        return isinstance(value, str) and value in self.values


@dataclass(frozen=True)
class Text:
    """`pattern` also keeps the text legal inside a C++ string literal."""

    pattern: str
    legal: str

    def accepts(self, value: object) -> bool:
        return isinstance(value, str) and re.fullmatch(self.pattern, value) is not None


@dataclass(frozen=True)
class MemberName:
    legal: str = names.MEMBER_LEGAL

    def accepts(self, value: object) -> bool:
        return isinstance(value, str) and names.is_member(value)


@dataclass(frozen=True)
class ClassName:
    legal: str = names.CLASS_LEGAL

    def accepts(self, value: object) -> bool:
        return isinstance(value, str) and names.is_class(value)


@dataclass(frozen=True)
class TypeName:
    bitmap: bool

    @property
    def legal(self) -> str:
        return fieldtypes.LEGAL_WITH_BITMAP if self.bitmap else fieldtypes.LEGAL

    def accepts(self, value: object) -> bool:
        parsed = fieldtypes.parse(value) if isinstance(value, str) else None
        return parsed is not None and (self.bitmap or not parsed.is_bitmap)


@dataclass(frozen=True)
class BitRange:
    legal: str = "two integers [low, high], 0 to 524279"
    number: Integer = Integer(0, 524279)

    def accepts(self, value: object) -> bool:
        return (isinstance(value, list) and len(value) == 2
                and all(self.number.accepts(item) for item in value))


@dataclass(frozen=True)
class Values:
    legal: str = "a table of field names, each with an integer, 0 to 18446744073709551615"
    number: Integer = Integer(0, (1 << 64) - 1)

    def accepts(self, value: object) -> bool:
        return isinstance(value, dict) and all(self.number.accepts(item) for item in value.values())


@dataclass(frozen=True)
class NameList:
    item_legal: str = names.CLASS_LEGAL
    legal: str = (
        "a list of one or more strings, each a capital letter, then letters, digits and single underscores")

    def accepts(self, value: object) -> bool:
        return isinstance(value, list) and len(value) > 0 and all(ClassName().accepts(item) for item in value)


@dataclass(frozen=True)
class NumberList:
    legal: str = f"a list of one or more integers, 0 to {WORD_MAX}"

    def accepts(self, value: object) -> bool:
        return (isinstance(value, list) and len(value) > 0
                and all(Integer(0, WORD_MAX).accepts(item) for item in value))


@dataclass(frozen=True)
class ListOf:
    section: "Section"

    @property
    def legal(self) -> str:
        return f"a list of one or more {self.section.plural}"

    def accepts(self, value: object) -> bool:
        return isinstance(value, list) and len(value) > 0 and all(isinstance(item, dict) for item in value)


Kind = (
    Integer | Flag | Choice | Text | MemberName | ClassName | TypeName | BitRange | Values | NameList
    | NumberList | ListOf)


@dataclass(frozen=True)
class Key:
    name: str
    kind: Kind
    meaning: str
    required: bool = True
    default: object = None
    families: tuple[str, ...] = FAMILIES

    @property
    def family_text(self) -> str:
        """"family a" or "family a, b and c"."""
        head, last = self.families[:-1], self.families[-1]
        return "family " + (", ".join(head) + f" and {last}" if head else last)


@dataclass(frozen=True)
class Section:
    plural: str
    meaning: str
    keys: tuple[Key, ...]

    def key(self, name: str) -> Key | None:
        return next((key for key in self.keys if key.name == name), None)


_NAME = Text(r"[A-Za-z0-9_]+", "a string of letters, digits and underscores")

CHIP = Section("chips", "What all tables share, and which tables there are.", (
    Key("namespace", MemberName(), "C++ namespace of the units; also the chip's name."),
    Key("chipType", Integer(0, WORD_MAX), "Chip type number that the units are registered under."),
    Key("tables", NameList(),
        "The tables in catalogue order. Each has a file `<Table>.toml` beside this one."),
))

_KEY_MEMBER = "One member of the table's `EntryKey`. The members give the key its shape."

KEY_MEMBER = Section("key members", _KEY_MEMBER, (
    Key("name", MemberName(),
        "Name of the member: `arrayIndex` and `entryIndex` in an array key, `value` in a value"
        " key, a field's name in a field key."),
    Key("type", TypeName(bitmap=False), "Type of the member. In a field key it is the field's type."),
    Key("max", Integer(0, WORD_MAX - 1), "Array key only, required there: the largest legal value.",
        required=False),
    Key("null", Integer(0, WORD_MAX),
        "Value key only, required there: the value that means no row. It is legal, and"
        " one past the last row.", required=False),
))

_MEMORY = ("One chip memory, register or physical database of the table. All memories of a table have the"
           " same geometry.")

MEMORY = Section("memories", _MEMORY, (
    Key("name", _NAME, "Name that the descriptor stores. The memory's id is its place in the list."),
    Key("block", Integer(0, WORD_MAX), "Chip block, as commands number it."),
    Key("address", Integer(0, WORD_MAX), "Base address in the block, or the register's address."),
    Key("firstArray", Integer(0, 255), "The smallest array index.", required=False, default=0),
    Key("arrayCount", Integer(1, 255),
        "How many arrays. In a table with an array key it is `arrayIndex`'s `max` + 1.",
        required=False, default=1),
    Key("entryCount", Integer(1, WORD_MAX),
        "Entries in an array. Outside the exact match family it is the number of"
        " rows that the key can name."),
    Key("physicalTableId", Integer(0, WORD_MAX), "Number of the physical database.",
        families=("exactMatch",)),
))

FIELD = Section("fields", "One field of the entry: a pair of accessors over a bit range of the data bytes.", (
    Key("name", MemberName(), "Name of the getter; the setter is the name followed by `Is`."),
    Key("type", TypeName(bitmap=True),
        "Type of the value. Its width is the width of the range; a bitmap takes any"
        f" up to {fieldtypes.MAX_BITMAP_BITS}."),
    Key("bits", BitRange(), "First and last bit, both inclusive, counted from bit 0 of byte 0."),
    Key("whole", Flag(),
        "Bitmaps only: the setter refuses a bitmap shorter than the range with `std::out_of_range`."
        " Otherwise the bits past a short bitmap's end are written as 0.", required=False, default=False),
))

_PRESETS = "The names are fields, the values fit them."

_VIEW = ("One reading of the bytes of a table whose rows have several. Its place in the list is its number in"
         " `ViewT`.")

VIEW = Section("views", _VIEW, (
    Key("name", ClassName(), "Class name of the view."),
    Key("viewT", MemberName(), "The view's enumerator in `ViewT`."),
    Key("presets", Values(), "Values that a view has when it is built directly. " + _PRESETS, required=False,
        default={}),
    Key("fields", ListOf(FIELD), "The fields of the view, in catalogue order."),
))

TABLE = Section("tables", "One table. The file's name is the table's class name.", (
    Key("family", Choice(FAMILIES), "The hand-written family that the table belongs to."),
    Key("chipName", Text(r"[A-Za-z0-9_.]+", "a string of letters, digits, underscores and dots"),
        "Name of the memory, register or database in the chip's own terms. In the direct family the names of"
        " several memories stand in one string, joined by dots."),
    Key("groupName", _NAME, "Name of the descriptor group.", families=WITH_DESCRIPTOR),
    Key("tag", _NAME, "Tag that rules look tables up by.", required=False, default="noTag"),
    Key("entryDataMaxSize", Integer(1, 65535), "Bytes of a row's data."),
    Key("hasParitySupport", Flag(), "Whether the memory carries parity or ECC.", families=("direct",)),
    Key("blocks", NumberList(),
        "The chip's blocks that the table tells the table manager of, in order; not the numbers that commands"
        " use.", families=WITH_SHADOWS),
    Key("rank", Integer(1, WORD_MAX), "Place among tables that refer to each other: those of lower rank are"
        " written first. A table without one is written before all that have one.", required=False,
        families=("direct",)),
    Key("sharedShadow", Flag(), "Whether one shadow serves all FAPs of the table.", families=WITH_SHADOWS),
    Key("shadowMode", Choice(("full", "partial")), "Whether a download writes every row, or only what is"
        " stored.", required=False, default="full", families=("direct",)),
    Key("initialContents", ClassName(), "The class in `Jericho3AndAbove` that writes what the table starts"
        " with. Such a table has a registered factory.", required=False, families=("direct",)),
    Key("options", Integer(1, 2), "How many of the two option bytes the factory sets. Only with"
        " `initialContents`.", required=False, default=0, families=("direct",)),
    Key("mdbTableId", Integer(0, WORD_MAX), "Table number in the modular database.", families=("mdbDirect",)),
    Key("mapHashConstant", Integer(0, WORD_MAX),
        "What the hash seed of read-result maps is mixed with, where it is"
        " laid down; else it comes from the table's name.", required=False, families=("exactMatch",)),
    Key("like", ClassName(),
        "Another table, whose fields, views and presets are this one's too. That table spells"
        " them out itself.", required=False),
    Key("key", ListOf(KEY_MEMBER), "The members of the key, in order."),
    Key("memories", ListOf(MEMORY), "Where the data lies in the chip, in the order of memory ids.",
        families=WITH_DESCRIPTOR),
    Key("presets", Values(),
        "Fields that an entry built from a key starts with, in the order they are stamped."
        " `vmv` and `entryType` are among them. " + _PRESETS + " Required unless `like` stands.",
        required=False, families=("exactMatch",)),
    Key("fields", ListOf(FIELD),
        "The fields in catalogue order. A table has exactly one of `fields`, `views` and"
        " `like`.", required=False),
    Key("views", ListOf(VIEW), "The views in the order of their numbers.", required=False,
        families=("direct",)),
))
