"""What must fit together inside a table, beyond the shape of each single key.

Every rule looks at what is sound and skips what has been told already, so that one mistake gives one message.
`RULES` are the same rules in words, for the manual.
"""

from . import fieldtypes, names
from .problems import Problems
from .schema import WORD_MAX
from .structure import item_path

RULES = (
    "A range ends inside the entry, its low bit is at most its high bit, and its width is the type's.",
    "Ranges may overlap: a wide field can be another reading of the bits of narrow ones, and two fields may"
    " share all their bits.",
    "A field's name stands once in a table, or once in a view, and is neither another field's setter nor a"
    " member that all records have.",
    "An array key is `arrayIndex` (8-bit) and `entryIndex` (32-bit), each with `max`; a value key is"
    " `value` (32-bit) with `null`; a field key has fields of the table, of the same type. Direct tables have"
    " an array or a value key, exact match tables a field key, the others a value key.",
    "There are as many memories as `chipName` has names. Their names differ, their geometry is the same.",
    "A memory ends inside 32 bits of address, and its arrays inside 256.",
    "Outside the exact match family a memory has exactly the arrays and entries that the key can name.",
    "A table that is `like` another is of the same family and long enough for the other's fields.",
)

SHAPES = {
    "array": (("arrayIndex", "8-bit", "max", 254), ("entryIndex", "32-bit", "max", WORD_MAX - 1)),
    "value": (("value", "32-bit", "null", WORD_MAX),),
}
FAMILY_SHAPES = {"direct": ("array", "value"), "register": ("value",), "mdbDirect": ("value",)}
# Commands and flush rules of the exact match family are built from these.
EXACT_MATCH_FIELDS = ("command", "entry", "vmv", "entryType")
EXACT_MATCH_PRESETS = ("vmv", "entryType")


def key_shape(table: dict) -> str | None:
    """"array", "value" or "fields"; None when the key fits no shape that the family has."""
    if table.get("family") == "exactMatch":
        return "fields"
    found = [member.get("name") for member in table.get("key", [])]
    return next((shape for shape in FAMILY_SHAPES.get(table.get("family"), ())
                 if found == [member[0] for member in SHAPES[shape]]), None)


def check_key(table: dict, problems: Problems) -> None:
    if "family" not in table or "key" not in table:
        return
    shape = key_shape(table)
    if shape is None:
        shapes = [", ".join(f'"{member[0]}"' for member in SHAPES[each])
                  for each in FAMILY_SHAPES[table["family"]]]
        problems.add("key", [member.get("name", "") for member in table["key"]],
                     "the members " + " or ".join(shapes))
    elif shape == "fields":
        for index, member in enumerate(table["key"]):
            for bound in ("max", "null"):
                if bound in member:
                    problems.add(item_path("key", index, member) + "." + bound, member[bound],
                                 "none in a field key, its type alone bounds it")
    else:
        for member, legal in zip(table["key"], SHAPES[shape]):
            _check_bounded_member(member, *legal, problems)


def _check_bounded_member(member: dict, name: str, type_name: str, bound: str, highest: int,
                          problems: Problems) -> None:
    if member.get("type", type_name) != type_name:
        problems.add(f"key.{name}.type", member["type"], f'"{type_name}"')
    if bound not in member:
        problems.add_text(f"key.{name}.{bound}", "missing", f"required, an integer, 0 to {highest}")
    elif member[bound] > highest:
        problems.add(f"key.{name}.{bound}", member[bound], f"an integer, 0 to {highest}")
    other = "null" if bound == "max" else "max"
    if other in member:
        problems.add(f"key.{name}.{other}", member[other], f'none, its bound is "{bound}"')


def check_key_fields(table: dict, fields: list[dict], problems: Problems) -> None:
    """A field key's members against the table's fields, which may be another table's."""
    if table.get("family") != "exactMatch":
        return
    types = {field["name"]: field.get("type") for field in fields if "name" in field}
    seen = set()
    for index, member in enumerate(table.get("key", [])):
        name = member.get("name")
        here = item_path("key", index, member)
        if name is None:
            continue
        if name in seen:
            problems.add(f"{here}.name", name, "a name that no other member has")
        elif name not in types:
            problems.add(f"{here}.name", name, "the name of a field of the table")
        elif types[name] is not None and member.get("type", types[name]) != types[name]:
            problems.add(f"{here}.type", member["type"], f'"{types[name]}", the type of the field')
        seen.add(name)
    for name in EXACT_MATCH_FIELDS:
        if name not in types:
            problems.add_text(f"fields.{name}", "missing", "required in family exactMatch")


def check_fields(path: str, fields: list[dict], size: int | None, reserved: frozenset[str],
                 problems: Problems) -> None:
    """The fields of a table or of one view; `size` is None when the entry's size is not known."""
    setters = {field["name"] + "Is" for field in fields if "name" in field}
    seen = set()
    for index, field in enumerate(fields):
        here = item_path(path, index, field)
        name = field.get("name")
        if name is not None:
            if name in seen:
                problems.add(f"{here}.name", name, f"a name that no other of these {len(fields)} fields has")
            if name in reserved or name in setters:
                problems.add(f"{here}.name", name, "a name that no member or setter of the record has")
            seen.add(name)
        if "bits" in field:
            check_range(here, field, size, problems)
        if field.get("whole") and field.get("type", "bitmap") != "bitmap":
            problems.add(f"{here}.whole", True, "false, where the type is not bitmap")


def check_range(path: str, field: dict, size: int | None, problems: Problems) -> None:
    low, high = field["bits"]
    if low > high:
        problems.add(f"{path}.bits", field["bits"], f"low at most high, 0 to {high}")
        return
    if size is not None and high >= size * 8:
        problems.add(f"{path}.bits", field["bits"], f"bits 0 to {size * 8 - 1}, the entry has {size} bytes")
    if field.get("type") == "bitmap" and high - low >= fieldtypes.MAX_BITMAP_BITS:
        problems.add(f"{path}.bits", field["bits"],
                     f"a bitmap of at most {fieldtypes.MAX_BITMAP_BITS} bits, not {high - low + 1}")
    width = fieldtypes.parse(field["type"]).width if "type" in field else None
    if width is not None and width != high - low + 1:
        problems.add(f"{path}.bits", field["bits"],
                     f"{width} bits for type {field['type']}, not {high - low + 1};"
                     f" from bit {low} that is [{low}, {low + width - 1}]")


def check_presets(path: str, presets: dict, fields: list[dict], problems: Problems) -> None:
    by_name = {field["name"]: field for field in fields if "name" in field}
    for name, value in presets.items():
        here = f"{path}.{name}"
        field_type = fieldtypes.parse(by_name[name]["type"]) if "type" in by_name.get(name, {}) else None
        if name not in by_name:
            problems.add(here, value, "the name of a field")
        elif field_type is not None and field_type.is_bitmap:
            problems.add(here, value, "a field that is no bitmap")
        elif field_type is not None and value >= 1 << field_type.width:
            problems.add(here, value,
                         f"an integer, 0 to {(1 << field_type.width) - 1}, for type {field_type.name}")


def check_options(table: dict, problems: Problems) -> None:
    if table.get("options") and "initialContents" not in table:
        problems.add("options", table["options"], 'none without "initialContents"')


def check_memories(table: dict, problems: Problems) -> None:
    memories = table.get("memories", [])
    seen = set()
    for index, memory in enumerate(memories):
        here = item_path("memories", index, memory)
        if memory.get("name") in seen:
            problems.add(f"{here}.name", memory["name"], "a name that no other memory of the table has")
        seen.add(memory.get("name", index))
        _check_extent(here, memory, problems)
        _check_geometry(here, memory, memories[0], problems)
        if table.get("family") in FAMILY_SHAPES:
            _check_against_key(here, memory, table, problems)
    names_in_chip = table.get("chipName", "").split(".")
    if memories and "chipName" in table and len(memories) != len(names_in_chip):
        problems.add_text("memories", f"{len(memories)} memories",
                          f"{len(names_in_chip)}, as many as chipName has names")


def _check_extent(path: str, memory: dict, problems: Problems) -> None:
    if memory.get("address", 0) + memory.get("entryCount", 1) - 1 > WORD_MAX:
        problems.add(f"{path}.address", memory["address"],
                     f"an integer, 0 to {WORD_MAX - memory['entryCount'] + 1}"
                     f" with {memory['entryCount']} entries")
    if memory.get("firstArray", 0) + memory.get("arrayCount", 1) > 256:
        problems.add(f"{path}.firstArray", memory["firstArray"],
                     f"an integer, 0 to {256 - memory['arrayCount']} with {memory['arrayCount']} arrays")


def _check_geometry(path: str, memory: dict, first: dict, problems: Problems) -> None:
    for name in ("firstArray", "arrayCount", "entryCount"):
        if name in memory and name in first and memory[name] != first[name]:
            problems.add(f"{path}.{name}", memory[name], f"{first[name]}, as in the table's first memory")


def _check_against_key(path: str, memory: dict, table: dict, problems: Problems) -> None:
    shape = key_shape(table)
    if shape == "array":
        arrays, entries = (member["max"] + 1 if "max" in member else None for member in table["key"])
    elif shape == "value":
        arrays, entries = 1, table["key"][0].get("null")
    else:
        return
    for name, legal in (("arrayCount", arrays), ("entryCount", entries)):
        if legal is not None and memory.get(name, legal) != legal:
            problems.add(f"{path}.{name}", memory[name], f"{legal}, what the key can name")
