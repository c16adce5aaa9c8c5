"""What the README and the manual of runs show is what one gets: their commands are run, and the code is that
of the example."""

import os
import pathlib
import re
import subprocess
import tempfile
import textwrap
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
README = (ROOT / "README.md").read_text()
RUN = (ROOT / "docs/run.md").read_text()


def shown_commands(page):
    """(command, what is shown below it) of every prompt in an indented block that starts with one."""
    for block in re.findall(r"(?:^    \S.*\n(?:(?:    .*)?\n)*)", page, re.MULTILINE):
        text = textwrap.dedent(block).strip("\n")
        if text.startswith("$ "):
            for part in re.split(r"\n+(?=\$ )", text):
                command, _, shown = part.partition("\n")
                yield command[2:], shown.rstrip("\n")


def pattern_of(shown):
    """`<name>` stands for what differs from run to run, and may be longer or shorter than it."""
    return re.sub(r"<[a-z]+>", r"\\S+", re.sub(r"(\\ ){2,}", r"\\s+", re.escape(shown)))


class ReadmeTest(unittest.TestCase):
    def test_commands_print_what_is_shown(self):
        commands = [*shown_commands(README), *shown_commands(RUN)]
        self.assertEqual(len(commands), 11)
        with tempfile.TemporaryDirectory() as stores:
            environment = dict(os.environ, HWTABLES_ROOT=stores)
            for command, shown in commands:
                here = command.replace("build/release/bin", os.environ["HWTABLES_BIN_DIR"])
                run = subprocess.run(["sh", "-c", here], cwd=ROOT, env=environment, check=True,
                                     capture_output=True, text=True)
                self.assertRegex(run.stdout.rstrip("\n"), rf"\A{pattern_of(shown)}\Z", command)

    def test_code_is_that_of_the_example(self):
        (code,) = re.findall(r"```cpp\n(.*?)```", README, re.DOTALL)
        self.assertIn(textwrap.indent(code, "  "), (ROOT / "examples/records.cpp").read_text())

    def test_links_lead_to_files(self):
        for target in re.findall(r"\]\(([^)#:]+)\)", README):
            self.assertTrue((ROOT / target).exists(), target)


if __name__ == "__main__":
    unittest.main()
