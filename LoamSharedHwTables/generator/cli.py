"""The command line: `unit`, `check` and `manual`."""

import argparse
import sys
from pathlib import Path

from .catalogue import CHIP_FILE, Catalogue


def main(arguments: list[str] | None = None) -> int:
    """0 when all is well, 1 when the catalogue is refused (told on stderr, one line a problem)."""
    options = _parser().parse_args(arguments)
    return options.run(options)


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="generator", description="Makes C++ units of the table catalogue.")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")

    unit = commands.add_parser("unit", help="write <Table>.h and <Table>.cpp of one table")
    unit.add_argument("--table", required=True, help="class name of the table")
    unit.add_argument("--out", type=Path, required=True, help="folder to write to")
    unit.add_argument("--depfile", type=Path, help="file that tells the build what the unit was made of")
    unit.set_defaults(run=_unit)

    check = commands.add_parser("check", help="check every file and write nothing")
    check.set_defaults(run=_check)
    for command in (unit, check):
        command.add_argument("--catalogue", type=Path, required=True, help=f"folder with {CHIP_FILE}")

    manual = commands.add_parser("manual", help="print the manual of the catalogue's format")
    manual.set_defaults(run=_manual)
    return parser


def _opened(folder: Path) -> Catalogue | None:
    if (folder / CHIP_FILE).is_file():
        return Catalogue(folder)
    print(f"{folder / CHIP_FILE}: no such file", file=sys.stderr)
    return None


def _refused(problems: list) -> bool:
    for problem in problems:
        print(problem, file=sys.stderr)
    return bool(problems)


def _check(options: argparse.Namespace) -> int:
    catalogue = _opened(options.catalogue)
    return 1 if catalogue is None or _refused(catalogue.problems()) else 0


def _unit(options: argparse.Namespace) -> int:
    # Jinja2 is needed here alone.
    from . import model, render

    catalogue = _opened(options.catalogue)
    if catalogue is None:
        return 1
    problems = catalogue.problems(catalogue.needed_for(options.table))
    if _refused(problems):
        return 1
    if options.table not in catalogue.names:
        print(f"{catalogue.chip.path}: {options.table}: no such table", file=sys.stderr)
        return 1
    table = model.build(catalogue, options.table)
    outputs = []
    for name, text in render.render(table).items():
        outputs.append(options.out / name)
        render.write_if_changed(outputs[-1], text)
    if options.depfile:
        render.write_if_changed(options.depfile,
                                render.depfile_text(outputs, render.inputs(catalogue, table)))
    return 0


def _manual(_: argparse.Namespace) -> int:
    from . import manual

    sys.stdout.write(manual.text())
    return 0
