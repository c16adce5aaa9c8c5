"""The folder of files as a whole: which tables there are, and which are like which."""

from pathlib import Path

from . import rules, structure, tablefile
from .problems import Problem
from .tablefile import TableFile

CHIP_FILE = "Chip.toml"


class Catalogue:
    """Reads files when they are first asked for, each once."""

    def __init__(self, folder: Path):
        self.folder = folder
        self._tables: dict[str, TableFile] = {}
        self.chip = self._chip()

    @property
    def names(self) -> list[str]:
        """The tables in catalogue order, as far as they are sound."""
        return list(dict.fromkeys((self.chip.data or {}).get("tables", [])))

    @property
    def namespace(self) -> str:
        return self.chip.data["namespace"]

    def table(self, name: str) -> TableFile:
        """The checked file of a table; raises KeyError for a name that the catalogue does not have."""
        if name not in self.names or not self.path(name).is_file():
            raise KeyError(name)
        if name not in self._tables:
            file = tablefile.read_table(self.path(name))
            if file.data is not None and "like" in file.data:
                self._check_like(file)
            self._tables[name] = file
        return self._tables[name]

    def layout_of(self, file: TableFile) -> TableFile:
        """The file that spells out the table's fields, views and presets."""
        return self.table(file.data["like"]) if "like" in file.data else file

    def needed_for(self, name: str) -> list[str]:
        """The tables whose files the unit of this one is made of."""
        if name not in self.names or not self.path(name).is_file():
            return []
        like = (self.table(name).data or {}).get("like")
        return [name, like] if like else [name]

    def path(self, name: str) -> Path:
        return self.folder / f"{name}.toml"

    def problems(self, only: list[str] | None = None) -> list[Problem]:
        """Those of Chip.toml, then those of the tables named, or of all."""
        found = list(self.chip.problems.found)
        for name in self.names if only is None else only:
            if self.path(name).is_file():
                found += self.table(name).problems.found
        return found

    def _chip(self) -> TableFile:
        chip = tablefile.read_chip(self.folder / CHIP_FILE)
        listed = (chip.data or {}).get("tables")
        if listed is None:
            return chip
        for index, name in enumerate(listed):
            if not self.path(name).is_file():
                chip.problems.add(f"tables[{index}]", name, f"a table that has a file, {name}.toml")
        for path in sorted(self.folder.glob("*.toml")):
            if path.name != CHIP_FILE and path.stem not in listed:
                chip.problems.add_text("tables", f"{path.name} is not listed", "every file of the folder")
        return chip

    def _check_like(self, file: TableFile) -> None:
        table, problems, name = file.data, file.problems, file.data["like"]
        others = [other for other in self.names if other != file.name]
        if name not in others or not self.path(name).is_file():
            hint = f', the nearest is "{structure.nearest(name, others)}"' if others else ""
            problems.add("like", name, "another table of the catalogue" + hint)
            del table["like"]
            return
        # Read apart from `table`: two tables that name each other must not read each other forever.
        target = tablefile.read_table(self.path(name))
        if target.data is None:
            del table["like"]
        elif "like" in target.data:
            problems.add("like", name,
                         f'a table that spells out its fields, this one is like "{target.data["like"]}"')
            del table["like"]
        elif target.data.get("family") != table.get("family"):
            problems.add("like", name,
                         f"a table of family {table.get('family')}, this one is {target.data.get('family')}")
        else:
            self._check_inherited(file, target)

    @staticmethod
    def _check_inherited(file: TableFile, target: TableFile) -> None:
        size = file.data.get("entryDataMaxSize")
        in_views = [field for view in target.view_list for field in view.get("fields", [])]
        for field in target.field_list + in_views:
            if size is not None and "bits" in field and field["bits"][1] >= size * 8:
                file.problems.add(f"like.{field.get('name')}.bits", field["bits"],
                                  f"bits 0 to {size * 8 - 1}, the entry has {size} bytes")
        rules.check_key_fields(file.data, target.field_list, file.problems)
