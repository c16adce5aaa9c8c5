"""Writes the unit of a table, and what it was made of for the build."""

from pathlib import Path

import jinja2

from .catalogue import CHIP_FILE, Catalogue
from .model import Table

SOURCE_FOLDER = Path(__file__).resolve().parent
TEMPLATE_FOLDER = SOURCE_FOLDER / "templates"
TEMPLATES = {".h": "Unit.h.j2", ".cpp": "Unit.cpp.j2"}


def render(table: Table) -> dict[str, str]:
    """The unit's text by file name."""
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(TEMPLATE_FOLDER), undefined=jinja2.StrictUndefined, trim_blocks=True,
        lstrip_blocks=True, keep_trailing_newline=True, autoescape=False)
    return {table.name + suffix: environment.get_template(template).render(table=table)
            for suffix, template in TEMPLATES.items()}


def write_if_changed(path: Path, text: str) -> bool:
    """Leaves a file with the same text alone, so that nothing is compiled again for it."""
    if path.is_file() and path.read_text() == text:
        return False
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return True


def inputs(catalogue: Catalogue, table: Table) -> list[Path]:
    paths = [catalogue.path(table.name), catalogue.folder / CHIP_FILE]
    if table.like:
        paths.append(catalogue.path(table.like))
    return paths + sorted(TEMPLATE_FOLDER.glob("*.j2")) + sorted(SOURCE_FOLDER.glob("*.py"))


def depfile_text(outputs: list[Path], used: list[Path]) -> str:
    def escaped(path: Path) -> str:
        return str(path.absolute()).replace(" ", "\\ ").replace("#", "\\#").replace("$", "$$")

    return " ".join(map(escaped, outputs)) + ":" + "".join(f" \\\n  {escaped(path)}" for path in used) + "\n"
