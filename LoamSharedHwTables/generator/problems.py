"""Collects what is wrong with a catalogue, so that a person sees all of it at once."""

from dataclasses import dataclass, field


def shown(value: object) -> str:
    """The value as it would be written in TOML."""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, str):
        return '"' + value.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'
    if isinstance(value, list):
        return "[" + ", ".join(shown(item) for item in value) + "]"
    if isinstance(value, dict):
        items = ", ".join(f"{key} = {shown(item)}" for key, item in value.items())
        return f"{{ {items} }}" if value else "{}"
    return str(value)


@dataclass(frozen=True)
class Problem:
    file: str
    table: str
    where: str
    value: str
    legal: str

    def __str__(self) -> str:
        return ": ".join((self.file, self.table, self.where, self.value, self.legal))


@dataclass
class Problems:
    """The problems of one file, in the order they were found."""

    file: str
    table: str
    found: list[Problem] = field(default_factory=list)

    def add(self, where: str, value: object, legal: str) -> None:
        text = shown(value)
        self.add_text(where, text if len(text) <= 80 else text[:77] + "...", legal)

    def add_text(self, where: str, value: str, legal: str) -> None:
        self.found.append(Problem(self.file, self.table, where, value, legal))
