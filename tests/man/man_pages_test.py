#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The man pages say what is so: of idlctl's commands, options and exit codes, the scenarios' words, the tables' bytes; and man
shows them without a warning.

    tests/man/man_pages_test.py --idlctl PROGRAM --source FOLDER --pages FOLDER
"""

import argparse
import functools
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

OPTIONS = argparse.Namespace()
WATCHDOG = 60  # seconds, for any run
GENERAL = {"-h", "--help", "--help-all"}  # every command's
WORD = r"[a-z][a-z-]*"
OPTION = re.compile(r"(?<![\w-])--?[a-zA-Z][\w-]*")


class Told:
    """What is told of a command: its options, its arguments in order, its exit codes."""

    def __init__(self, options=(), arguments=(), codes=()):
        self.options, self.arguments, self.codes = set(options), tuple(arguments), set(codes)


@functools.lru_cache(maxsize=None)
def help_of(*command):
    done = subprocess.run([OPTIONS.idlctl, *command, "--help"], stdout=subprocess.PIPE, timeout=WATCHDOG, check=True)
    return done.stdout.decode()


def told_by_help(text):
    """Option lines stand under Options:, indented by two or, in a group, by four; their description is further right."""
    told = Told()
    part = text.split("\nOptions:\n", 1)[1]
    for line in re.split(r"\n(?:Subcommands:|Exit codes|Examples?:)", part)[0].splitlines():
        line = re.sub(r" (?:Needs|Excludes): .*", "", line)  # those name other options
        names = re.match(r"^ {2,4}(-{1,2}[a-zA-Z][\w,-]*)", line)
        if names:
            told.options.update(names.group(1).split(","))
    usage = re.search(r"^Usage: idlctl [a-z ]*\[OPTIONS\](.*)$", text, re.MULTILINE).group(1)
    told.arguments = tuple(usage.split())
    codes = text.partition("\nExit codes")[2]
    told.codes = {int(code) for code in re.findall(r"^  (\d+)  +\S", codes, re.MULTILINE)}
    return told


def commands_by_help(text, *before):
    """All commands, those of a command's own among them."""
    found = {}
    for name in re.findall(r"^  (%s)  +\S" % WORD, text.partition("\nSubcommands:\n")[2].split("\n\n")[0], re.MULTILINE):
        words = (*before, name)
        own = help_of(*words)
        further = commands_by_help(own, *words)
        found.update(further or {" ".join(words): told_by_help(own)})
    return found


def commands_by_page(page):
    found = {}
    for section in re.split(r"^## idlctl ", page.split("\n# EXIT STATUS")[0], flags=re.MULTILINE)[1:]:
        heading, _, text = section.partition("\n")
        name, _, arguments = heading.partition(" [options]")
        told = Told(arguments=arguments.split())
        for line in re.findall(r"^(\*-.*)\n\t", text, re.MULTILINE):
            told.options.update(OPTION.findall(line))
        told.codes = {int(code) for code in re.search(r"^Exit status: ([\d ]+)$", text, re.MULTILINE).group(1).split()}
        found[name] = told
    return found


def differences(page):
    """Each as a line; none when the page of idlctl tells what the program does."""
    lines = []
    text = help_of()
    general = page.split("\n# OPTIONS", 1)[1].split("\n# ", 1)[0]
    listed = set()
    for line in re.findall(r"^(\*-.*)\n\t", general, re.MULTILINE):
        listed.update(OPTION.findall(line))
    lines += ["the program's %s" % option for option in listed ^ told_by_help(text).options]
    ours, theirs = commands_by_page(page), commands_by_help(text)
    lines += ["the command %s" % name for name in ours.keys() ^ theirs.keys()]
    for name in ours.keys() & theirs.keys():
        lines += ["%s %s" % (name, option) for option in ours[name].options ^ (theirs[name].options - GENERAL)]
        lines += ["%s: exit code %d" % (name, code) for code in ours[name].codes ^ theirs[name].codes]
        if ours[name].arguments != theirs[name].arguments:
            lines.append("%s: arguments %s, %s" % (name, ours[name].arguments, theirs[name].arguments))
    codes = {int(code) for code in re.findall(r"^\*(\d+)\*$", page.split("\n# EXIT STATUS")[1], re.MULTILINE)}
    lines += ["the exit code %d" % code for code in codes ^ set().union(*(told.codes for told in theirs.values()))]
    return lines


def source(name):
    return (OPTIONS.source / name).read_text(encoding="utf-8")


def blocks(text):
    return re.findall(r"^```\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def warnings_of(page):
    done = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, env=dict(os.environ, LC_ALL="C.UTF-8", MANROFFSEQ="", MANWIDTH="80"), timeout=WATCHDOG,
                          check=False)
    return done.stderr.decode() or ("" if done.returncode == 0 else "man ended with %d" % done.returncode)


class TheManPages(unittest.TestCase):
    def test_TellWhatIdlctlsHelpTells(self):
        self.assertEqual(differences(source("docs/man/idlctl.1.scd")), [])

    def test_WouldBeMissedOfEachOptionCommandAndCode(self):
        """Without any one of them, and with one that is not there, the pages and the help differ."""
        page = source("docs/man/idlctl.1.scd")
        for entry in re.finditer(r"^\*-.*(?=\n\t)", page, re.MULTILINE):
            without = page[:entry.start()] + "*none*" + page[entry.end():]
            self.assertNotEqual(differences(without), [], entry.group())
        for old, new in (("## idlctl watch [options]", "## idlctl wach [options]"), ("Exit status: 0 2 124", "Exit status: 0 2"),
                         ("[options] what", "[options]"), ("*--explain*", "*--explain*, *--wrong*"), ("\n*124*\n", "\n*125*\n")):
            self.assertIn(old, page)
            self.assertNotEqual(differences(page.replace(old, new, 1)), [], old)

    def test_HaveEachCommandOfAScenario(self):
        page = source("docs/scenarios.md")
        told = re.findall(r"^\*(.*)\*\n\t", source("docs/man/idlctl-scenario.5.scd"), re.MULTILINE)

        usages = [" ".join(block.split()) for block in blocks(page[page.index("\n## phone"):page.index("\n## Longer")])]
        self.assertGreater(len(usages), 30)
        self.assertEqual(told, usages)

    def test_HaveScenariosThatThePageHas(self):
        """Those of the page are played by a test of theirs."""
        page = source("docs/scenarios.md")
        examples = blocks(source("docs/man/idlctl-scenario.5.scd"))

        self.assertEqual(len(examples), 2)
        for example in examples:
            self.assertIn(example, page)

    def test_HaveTheBytesOfEachTable(self):
        page = source("docs/architecture.md") + source("docs/writing-a-service.md")
        told = blocks(source("docs/man/integrated-device-list-tables.5.scd"))

        tables = [block for block in told if re.match(r"  \d", block)]
        self.assertEqual(len(tables), 5)
        for table in tables:
            self.assertIn("```\n" + table + "```", page)

    def test_AreShownWithoutAWarning(self):
        pages = sorted(path for path in OPTIONS.pages.iterdir() if re.search(r"\.[157]$", path.name))
        self.assertEqual(len(pages), 5)
        for page in pages:
            self.assertEqual(warnings_of(page), "", page)

    def test_WouldBeWarnedOf(self):
        with tempfile.TemporaryDirectory() as folder:
            page = pathlib.Path(folder) / "wrong.7"
            page.write_text(".TH wrong 7\n.SH NAME\nwrong\n.no-such-macro\n", encoding="ascii")
            self.assertNotEqual(warnings_of(page), "")


def main():
    options = argparse.ArgumentParser()
    options.add_argument("--idlctl", type=pathlib.Path, required=True)
    options.add_argument("--source", type=pathlib.Path, required=True)
    options.add_argument("--pages", type=pathlib.Path, required=True)
    _, rest = options.parse_known_args(namespace=OPTIONS)
    unittest.main(argv=sys.argv[:1] + rest)


main()
