"""Checks the shape of a file against the schema, key by key."""

from difflib import get_close_matches

from .problems import Problems
from .schema import Key, ListOf, NameList, Section, Values


def nearest(name: str, candidates: list[str]) -> str:
    return get_close_matches(name, candidates, n=1, cutoff=0.0)[0]


def item_path(list_path: str, index: int, item: object) -> str:
    """`fields.mplsLabel` where the item has a name, else `fields[3]`."""
    name = item.get("name") if isinstance(item, dict) else None
    return f"{list_path}.{name}" if isinstance(name, str) and name else f"{list_path}[{index}]"


def joined(path: str, name: str) -> str:
    return f"{path}.{name}" if path else name


def checked(section: Section, data: dict, family: str | None, path: str, problems: Problems) -> dict:
    """The sound part of `data`, with defaults filled in; the rest is told to `problems`.

    `family` is None while it is not known: then keys of all families are accepted and none is required.
    """
    legal_names = [key.name for key in section.keys if family is None or family in key.families]
    for name, value in data.items():
        _check_allowed(section.key(name), name, value, legal_names, path, problems)
    sound = {}
    for name in legal_names:
        key = section.key(name)
        here = joined(path, name)
        if name in data:
            value = _checked_value(key, data[name], family, here, problems)
            if value is not None:
                sound[name] = value
        elif key.required:
            if family is not None or len(key.families) > 1:
                problems.add_text(here, "missing", f"required, {key.kind.legal}")
        elif key.default is not None:
            sound[name] = key.default
    return sound


def _check_allowed(key: Key | None, name: str, value: object, legal_names: list[str], path: str,
                   problems: Problems) -> None:
    if key is None:
        problems.add(joined(path, name), value, f'unknown key, the nearest is "{nearest(name, legal_names)}";'
                     f' legal are {", ".join(legal_names)}')
    elif name not in legal_names:
        problems.add(joined(path, name), value, f"legal only in {key.family_text}")


def _checked_value(key: Key, value: object, family: str | None, path: str, problems: Problems) -> object:
    kind = key.kind
    if isinstance(kind, ListOf) and kind.accepts(value):
        return [checked(kind.section, item, family, item_path(path, index, item), problems)
                for index, item in enumerate(value)]
    if isinstance(kind, Values) and isinstance(value, dict):
        return _checked_items(kind, value, path, problems)
    if kind.accepts(value):
        return value
    if isinstance(kind, NameList) and isinstance(value, list) and value:
        return _checked_names(kind, value, path, problems)
    problems.add(path, value, kind.legal)
    return None


def _checked_items(kind: Values, value: dict, path: str, problems: Problems) -> dict:
    sound = {}
    for name, item in value.items():
        if kind.number.accepts(item):
            sound[name] = item
        else:
            problems.add(joined(path, name), item, kind.number.legal)
    return sound


def _checked_names(kind: NameList, value: list, path: str, problems: Problems) -> list:
    sound = []
    for index, item in enumerate(value):
        if kind.accepts([item]):
            sound.append(item)
        else:
            problems.add(f"{path}[{index}]", item, kind.item_legal)
    return sound
