"""Prints the manual of the format from the schema."""

import json
from textwrap import fill

from . import rules
from .schema import CHIP, FAMILIES, FIELD, KEY_MEMBER, MEMORY, TABLE, VIEW, Key, Section, Values

_WIDTH = 120

_OPENING = """\
# The table catalogue

A table of the chip is data: `LoamSharedHwTables/Qumran3a/<Table>.toml` is the one place where its names,
constants, key, chip memories, presets and bit ranges stand. The build makes `<Table>.h` and `<Table>.cpp` of
it. `Chip.toml` beside the tables lists them in catalogue order.

This page is printed by the generator from the schema that checks the files; after a change of the schema run
`PYTHONPATH=LoamSharedHwTables python3 -m generator manual > docs/catalogue-format.md`.

A wrong catalogue stops the build. All mistakes are told at once, one line each:

    <file>: <table>: <key or field>: <value>: <what is legal>
"""

_EXAMPLE = """\
## Example

```toml
family = "exactMatch"
chipName = "MPLS_TERMINATION_SINGLE_LABEL_WITH_BOS_DB"
groupName = "MplsIsemHw"
entryDataMaxSize = 24
key = [
  { name = "mplsLabel", type = "U20" },
  { name = "mplsBos", type = "U1" },
]
memories = [
  { name = "MDBK_ISEM", block = 282, address = 0x4000, entryCount = 1024, physicalTableId = 64 },
]
presets = { vmv = 1, appId = 0, entryType = 1 }
fields = [
  { name = "mplsLabel", type = "U20", bits = [9, 28] },
  { name = "mplsBos", type = "U1", bits = [29, 29] },
  # and so on
]
```
"""


def text() -> str:
    sections = (("Chip.toml", CHIP), ("<Table>.toml", TABLE), ("`key`", KEY_MEMBER), ("`memories`", MEMORY),
                ("`fields`", FIELD), ("`views`", VIEW))
    chapters = (_section(title, section) for title, section in sections)
    return "\n".join([_OPENING, *chapters, _rules(), _EXAMPLE])


def _section(title: str, section: Section) -> str:
    rows = ["| Key | Legal | Without it | Meaning |", "|---|---|---|---|", *map(_row, section.keys)]
    return f"## {title}\n\n{fill(section.meaning, _WIDTH)}\n\n" + "\n".join(rows) + "\n"


def _row(key: Key) -> str:
    families = "" if key.families == FAMILIES else f" Only in {key.family_text}."
    return f"| `{key.name}` | {key.kind.legal} | {_without(key)} | {key.meaning}{families} |"


def _without(key: Key) -> str:
    if key.required:
        return "refused"
    if key.default is None or isinstance(key.kind, Values):
        return "none"
    return json.dumps(key.default)


def _rules() -> str:
    lines = [fill(rule, _WIDTH, initial_indent="- ", subsequent_indent="  ") for rule in rules.RULES]
    return "## What must fit together\n\n" + "\n".join(lines) + "\n"
