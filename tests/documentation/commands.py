"""The commands of the documents that are not simply run by the tests. All others are."""

_BUILDS = "takes minutes: CI runs it"
_MACHINE = "works on the machine itself: tests/packaging runs it on a copy"
_MACOS = "macOS alone has it"

# A command, and why no test of the documents runs it.
NOT_RUN = {
    "scripts/test": "this test is a part of it",
    "scripts/demo": "builds first; EndToEnd.demonstration runs what it shows",
    "scripts/check": _BUILDS,
    "scripts/fuzz 600": "takes an hour",
    "scripts/campaign": "takes an hour",
    "scripts/campaign valgrind": "takes an hour",
    "scripts/bench": "measures, which takes an idle machine",
    "scripts/bench --record": "measures, and changes the document",
    "scripts/check-instructions": _BUILDS,
    "cmake --preset debug && cmake --build --preset debug && ctest --preset debug": _BUILDS,
    "scripts/install": _MACHINE,
    "scripts/uninstall": _MACHINE,
    "scripts/uninstall --purge": _MACHINE,
    "scripts/release": _BUILDS,
    "scripts/release --check": _BUILDS,
    "scripts/release debian": _BUILDS,
    "sudo cmake --install BUILD": _MACHINE,
    "cmake --install BUILD --component NAME": "BUILD and NAME are the reader's; these tests install two components so",
    "sudo packaging/uninstall": _MACHINE,
    "apt install ./zekara4mac_1.0.0_amd64.deb": _MACHINE,
    "apt remove zekara4mac": _MACHINE,
    "apt purge zekara4mac": _MACHINE,
    "sudo ./install": _MACOS,
    "sudo ./install --tool-only": _MACOS,
    "sudo ./uninstall": _MACOS,
    "brew install cmake ninja googletest": _MACOS,
    "cmake -S . -B build -G Ninja && cmake --build build": _BUILDS,
    "sudo cmake --install build": _MACHINE,
}

# A command, what is run in its place, and why.
INSTEAD = {
    "ctest --preset release -R Security": (
        "ctest --preset release -R Security -N | grep 'Total Tests: [1-9]'", "the tests themselves run beside this one"),
}

# Exit statuses other than 0 that the documents say.
STATUSES = {
    "zkaconfig diff site.ini": 1,
}
