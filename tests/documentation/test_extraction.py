"""The extraction finds what it promises: a command that it misses would never be run."""

import pathlib
import unittest

import extraction

MARKDOWN = """\
Run `zkaconfig get MacOSWardex IsActive`, `scripts/fuzz 600`, `scripts/uninstall [--purge] now` or `ctest --preset
release`; `zkaconfig` alone, `scripts/test` and `Plist::array` are names.

```sh
scripts/demo   # shows it
# a comment of its own
zkaconfig show |
  cat
cmake -S . \\
  -B build
```

```python
print("scripts/demo")
```
"""

PAGE = """\
.Dl $ zkaconfig get Other name\\&
.Bd -literal
$ zkaconfig show |
    cat
[Section]
$ true
.Ed
"""


def commands(name, text):
    return [(found.line, found.text) for found in extraction.commands(pathlib.Path(name), text)]


class Extraction(unittest.TestCase):
    def test_blocks_and_running_text_of_markdown_give_their_commands(self):
        self.assertEqual(commands("page.md", MARKDOWN), [
            (1, "zkaconfig get MacOSWardex IsActive"),
            (1, "scripts/fuzz 600"),
            (1, "scripts/uninstall now"),
            (1, "ctest --preset release"),
            (5, "scripts/demo"),
            (7, "zkaconfig show | cat"),
            (9, "cmake -S . -B build"),
        ])

    def test_prompts_of_manual_pages_give_their_commands(self):
        self.assertEqual(commands("page.1", PAGE), [
            (1, "zkaconfig get Other name"), (3, "zkaconfig show | cat"), (6, "true")])

    def test_prompts_in_comments_of_examples_give_their_commands(self):
        self.assertEqual(commands("example.cpp", "// Usage:\n//\n//   $ example one\nint main() {}\n"), [(3, "example one")])


if __name__ == "__main__":
    unittest.main()
