"""A sound table as the templates see it."""

from dataclasses import dataclass
from typing import ClassVar

from . import fieldtypes, layout, rules, schema
from .catalogue import Catalogue


# The numbers that table code knows the modes by.
SHADOW_MODES = {"full": 2, "partial": 3}


@dataclass(frozen=True)
class KeyMember:
    """`max` is the largest legal value of an array index or of a field; a value key has its `null` there."""

    is_pad: ClassVar[bool] = False
    name: str
    type: str
    cpp_type: str
    width: int
    storage_bytes: int
    max: int
    null: int | None


@dataclass(frozen=True)
class Field:
    """`low` and `high` are both inclusive; `view` is the view's class name; `max` and `storage_bytes` are
    None for a bitmap. `order` counts through the whole table, over its views."""

    order: int
    view: str | None
    name: str
    type: str
    cpp_type: str
    low: int
    high: int
    storage_bytes: int | None
    whole: bool

    @property
    def width(self) -> int:
        return self.high - self.low + 1

    @property
    def is_bitmap(self) -> bool:
        return self.storage_bytes is None

    @property
    def max(self) -> int | None:
        return None if self.is_bitmap else (1 << self.width) - 1


@dataclass(frozen=True)
class Preset:
    field: Field
    value: int


@dataclass(frozen=True)
class View:
    name: str
    view_t: str
    number: int
    presets: tuple[Preset, ...]
    fields: tuple[Field, ...]


@dataclass(frozen=True)
class Memory:
    id: int
    name: str
    block: int
    address: int
    first_array: int
    array_count: int
    entry_count: int
    physical_table_id: int | None


@dataclass(frozen=True)
class Table:
    """`fields` are those of the entry itself, `all_fields` also those of the views, in catalogue order.

    The key's struct is `key_layout`: its members with the padding between and after them. The entry's struct
    is the key, `entry_data_max_size` bytes, in a table with views `view_padding` bytes and a 4-byte number,
    and `entry_padding` bytes.
    """

    name: str
    namespace: str
    chip_type: int
    order: int
    family: str
    shape: str
    chip_name: str
    group_name: str | None
    tag: str
    entry_data_max_size: int
    has_parity_support: bool
    mdb_table_id: int | None
    map_hash_constant: int | None
    like: str | None
    key: tuple[KeyMember, ...]
    key_layout: tuple[KeyMember | layout.Pad, ...]
    key_size: int
    key_align: int
    view_padding: int
    entry_padding: int
    entry_size: int
    fields: tuple[Field, ...]
    views: tuple[View, ...]
    presets: tuple[Preset, ...]
    memories: tuple[Memory, ...]
    blocks: tuple[int, ...]
    rank: int
    shared_shadow: bool
    shadow_mode: int
    initial_contents: str | None
    options: int

    @property
    def type_name(self) -> str:
        return f"{self.namespace}::{self.name}"

    @property
    def function_name(self) -> str:
        """What the names of the table's functions start with."""
        return self.name[0].lower() + self.name[1:]

    @property
    def has_shadows(self) -> bool:
        return self.family in schema.WITH_SHADOWS

    @property
    def write_command(self) -> str:
        """The class of an exact-match table's commands."""
        return self.name.removesuffix("Em") + "WriteCommand"

    @property
    def write_command_function(self) -> str:
        return self.write_command[0].lower() + self.write_command[1:]

    @property
    def preset_view(self) -> View | None:
        """The view whose presets are the payload of rows that have no entry."""
        return next((view for view in self.views if view.presets), None)

    @property
    def entry_data_max_size_bits(self) -> int:
        return self.entry_data_max_size * 8

    @property
    def all_fields(self) -> tuple[Field, ...]:
        return self.fields + tuple(field for view in self.views for field in view.fields)

    @property
    def key_padding(self) -> int:
        return sum(part.bytes for part in self.key_layout if part.is_pad)

    def field(self, name: str) -> Field | None:
        """A field of the entry itself."""
        return next((field for field in self.fields if field.name == name), None)

    def preset(self, name: str) -> int | None:
        return next((preset.value for preset in self.presets if preset.field.name == name), None)


def build(catalogue: Catalogue, name: str) -> Table:
    """Only for a table without problems."""
    file = catalogue.table(name)
    data, shared = file.data, catalogue.layout_of(file).data
    key = tuple(_key_member(member) for member in data["key"])
    fields = _fields(shared.get("fields", []), None, 0)
    views = _views(shared.get("views", []))
    record = layout.record(key, data["entryDataMaxSize"], bool(views))
    return Table(
        name=name, namespace=catalogue.namespace, chip_type=catalogue.chip.data["chipType"],
        order=catalogue.names.index(name), family=data["family"],
        shape=rules.key_shape(data), chip_name=data["chipName"], group_name=data.get("groupName"),
        tag=data["tag"], like=data.get("like"), entry_data_max_size=data["entryDataMaxSize"],
        has_parity_support=data.get("hasParitySupport", False),
        mdb_table_id=data.get("mdbTableId"), map_hash_constant=data.get("mapHashConstant"),
        key=key, key_layout=record.key.parts, key_size=record.key.size, key_align=record.key.align,
        view_padding=record.view_padding, entry_padding=record.tail_padding, entry_size=record.size,
        fields=fields, views=views, presets=_presets(shared.get("presets", {}), fields),
        memories=tuple(_memory(index, memory) for index, memory in enumerate(data.get("memories", []))),
        blocks=tuple(data.get("blocks", [])), rank=data.get("rank", 0),
        shared_shadow=data.get("sharedShadow", False),
        shadow_mode=SHADOW_MODES[data.get("shadowMode", "full")],
        initial_contents=data.get("initialContents"), options=data.get("options", 0))


def _key_member(member: dict) -> KeyMember:
    parsed = fieldtypes.parse(member["type"])
    largest = member.get("max", member.get("null", (1 << parsed.width) - 1))
    return KeyMember(member["name"], parsed.name, parsed.cpp_type, parsed.width, parsed.storage_bytes,
                     largest, member.get("null"))


def _fields(fields: list[dict], view: str | None, first: int) -> tuple[Field, ...]:
    types = [fieldtypes.parse(field["type"]) for field in fields]
    return tuple(Field(first + index, view, field["name"], parsed.name, parsed.cpp_type, *field["bits"],
                       parsed.storage_bytes, field["whole"])
                 for index, (field, parsed) in enumerate(zip(fields, types)))


def _views(views: list[dict]) -> tuple[View, ...]:
    built: list[View] = []
    count = 0
    for number, view in enumerate(views):
        fields = _fields(view["fields"], view["name"], count)
        count += len(fields)
        built.append(View(view["name"], view["viewT"], number, _presets(view["presets"], fields), fields))
    return tuple(built)


def _presets(presets: dict, fields: tuple[Field, ...]) -> tuple[Preset, ...]:
    by_name = {field.name: field for field in fields}
    return tuple(Preset(by_name[name], value) for name, value in presets.items())


def _memory(index: int, memory: dict) -> Memory:
    return Memory(index, memory["name"], memory["block"], memory["address"], memory["firstArray"],
                  memory["arrayCount"], memory["entryCount"], memory.get("physicalTableId"))
