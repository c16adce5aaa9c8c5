"""One file of the catalogue: read, checked, and what is sound of it."""

import re
import tomllib
from dataclasses import dataclass
from pathlib import Path

from . import names, rules, structure
from .problems import Problems
from .schema import CHIP, FAMILIES, TABLE, Section


@dataclass
class TableFile:
    """`data` holds what is sound; it is None when the file could not be read as TOML at all."""

    path: Path
    name: str
    data: dict | None
    problems: Problems

    @property
    def view_list(self) -> list[dict]:
        return (self.data or {}).get("views", [])

    @property
    def field_list(self) -> list[dict]:
        return (self.data or {}).get("fields", [])


def read_chip(path: Path) -> TableFile:
    file = _read(path, CHIP)
    seen = set()
    for index, name in enumerate((file.data or {}).get("tables", [])):
        if name in seen:
            file.problems.add(f"tables[{index}]", name, "a table once only")
        seen.add(name)
    return file


def read_table(path: Path) -> TableFile:
    """Everything but what concerns the table that this one may be like."""
    file = _read(path, TABLE)
    if file.data is None:
        return file
    table, problems = file.data, file.problems
    rules.check_key(table, problems)
    rules.check_memories(table, problems)
    if "fields" in table:
        rules.check_fields("fields", table["fields"], table.get("entryDataMaxSize"), names.RESERVED_FIELDS,
                           problems)
    _check_views(table, problems)
    rules.check_options(table, problems)
    if "fields" in table:
        check_exact_match(table, table.get("fields", []), problems)
    return file


def check_exact_match(table: dict, fields: list[dict], problems: Problems) -> None:
    """The key and the presets, against the fields that the table has of its own or by likeness."""
    rules.check_key_fields(table, fields, problems)
    if table.get("family") == "exactMatch" and "presets" in table:
        rules.check_presets("presets", table["presets"], fields, problems)
        for name in rules.EXACT_MATCH_PRESETS:
            if name not in table["presets"]:
                problems.add_text(f"presets.{name}", "missing", "required in family exactMatch")


def _read(path: Path, section: Section) -> TableFile:
    problems = Problems(str(path), path.stem)
    raw = _read_toml(path, problems)
    if raw is None:
        return TableFile(path, path.stem, None, problems)
    family = raw.get("family") if raw.get("family") in FAMILIES else None
    data = structure.checked(section, raw, family, "", problems)
    if section is TABLE:
        _check_sources(raw, problems)
    return TableFile(path, path.stem, data, problems)


def _read_toml(path: Path, problems: Problems) -> dict | None:
    content = path.read_bytes()
    try:
        text = content.decode()
        return tomllib.loads(text)
    except UnicodeDecodeError as error:
        problems.add_text(f"byte {error.start}", f"{content[error.start]:#x}", "UTF-8 text")
    except tomllib.TOMLDecodeError as error:
        # The parser tells the place in its message alone.
        place = re.search(r"at line (\d+)", str(error))
        lines = text.splitlines()
        number = int(place[1]) if place else len(lines)
        line = lines[number - 1].strip() if 0 < number <= len(lines) else ""
        problems.add_text(f"line {number}", line, f"TOML, {error}")
    return None


def _check_sources(raw: dict, problems: Problems) -> None:
    """The keys as written count here: one that is wrong in itself is not missing as well."""
    sources = [name for name in ("like", "fields", "views") if name in raw]
    if not sources:
        problems.add_text("fields", "missing", 'required unless "views" or "like" stands')
    for name in sources[1:]:
        problems.add(name, raw[name], f'none beside "{sources[0]}"')
    if "like" in raw and "presets" in raw:
        problems.add("presets", raw["presets"], 'none beside "like"')
    if raw.get("family") == "exactMatch" and "like" not in raw and "presets" not in raw:
        problems.add_text("presets", "missing", 'required unless "like" stands')


def _check_views(table: dict, problems: Problems) -> None:
    seen = set()
    for index, view in enumerate(table.get("views", [])):
        here = structure.item_path("views", index, view)
        for key in ("name", "viewT"):
            if view.get(key) in seen:
                problems.add(f"{here}.{key}", view[key], "a name that no other view has")
            seen.add(view.get(key, (index, key)))
        if view.get("name") in names.RESERVED_CLASSES:
            problems.add(f"{here}.name", view["name"], "a name that no other class of a table has")
        fields = view.get("fields", [])
        rules.check_fields(f"{here}.fields", fields, table.get("entryDataMaxSize"),
                           names.RESERVED_VIEW_FIELDS, problems)
        rules.check_presets(f"{here}.presets", view.get("presets", {}), fields, problems)
