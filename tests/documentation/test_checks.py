"""What can be checked in the documents without running their commands."""

import json
import os
import re
import unittest

import commands
import extraction

MARKDOWN = [document for document in extraction.documents() if document.suffix == ".md"]


class Checks(unittest.TestCase):
    def test_every_command_is_run_or_the_reason_why_it_is_not_is_given(self):
        for document in extraction.documents():
            for found in extraction.commands(document):
                is_run = commands.to_run(found.text) is not None
                self.assertNotEqual(is_run, found.text in commands.NOT_RUN, f"{found}: tests/documentation/commands.py has to say")

    def test_commands_that_are_not_run_name_programs_and_presets_that_exist(self):
        presets = json.loads((extraction.REPOSITORY / "CMakePresets.json").read_text(encoding="utf-8"))
        names = {preset["name"] for preset in presets["configurePresets"]}
        for command in commands.NOT_RUN:
            for word in re.findall(r"\b(?:scripts|packaging|tests|examples)/[\w./-]+", command):
                self.assertTrue(os.access(extraction.REPOSITORY / word, os.X_OK), f"there is no program {word}")
            self.assertEqual(set(re.findall(r"--preset (\w+)", command)) - names, set(), command)

    def test_tables_name_only_commands_that_documents_give(self):
        given = {found.text for document in extraction.documents() for found in extraction.commands(document)}
        for table in (commands.NOT_RUN, commands.STATUSES):
            self.assertEqual(set(table) - given, set(), "no document gives these commands any more")

    def test_every_block_of_code_names_its_language(self):
        for document in MARKDOWN:
            self.assertEqual(extraction.unmarked_blocks(document), [], document.name)

    def test_every_link_and_every_file_that_is_named_is_there(self):
        for document in MARKDOWN:
            for found in extraction.links(document):
                self.assertTrue((document.parent / found.text).exists(), found)
            for found in extraction.names_of_files(document):
                named = extraction.REPOSITORY / found.text.rstrip("/")
                is_module = any(named.parent.glob(f"{named.name}.*")) if named.parent.is_dir() else False
                self.assertTrue(named.exists() or is_module, found)

    def test_the_table_of_dependencies_names_every_package_that_is_installed(self):
        script = (extraction.REPOSITORY / "scripts/install-dependencies").read_text(encoding="utf-8")
        groups = re.search(r"packages=\((.*?)^\)", script, re.MULTILINE | re.DOTALL).group(1)
        installed = {name for group in re.findall(r'\]="([^"]*)"', groups) for name in group.split()}
        document = (extraction.REPOSITORY / "docs/dependencies.md").read_text(encoding="utf-8")
        named = {name for row in re.findall(r"^\| ([^|`]*)", document, re.MULTILINE) for name in re.split(r",? +", row.strip())}
        self.assertEqual(installed - named, set(), "docs/dependencies.md does not say what these packages are for")


if __name__ == "__main__":
    unittest.main()
