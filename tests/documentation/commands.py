"""Says which commands of the documents the tests run as they are, and why they do not run the others.

The private root shows the machine's own files, so only commands that change nothing but the suite's files are run.
"""

# The programs whose commands are run. Every command of another program must be in the table of those that are not run.
RUN = {"change_setting", "c++", "examples/client.py", "pkg-config", "zkaconfig", "Zekara4MacTool"}

_BUILDS = "takes minutes: CI runs it"
_MACHINE = "works on the machine itself: tests/packaging runs it on a copy"
_PLACES = "its words in capitals are the reader's: the tests install two components in the same way"
_MACOS = "macOS alone has it"

# A command, and the reason why it is not run.
NOT_RUN = {
    "scripts/test": "this test is a part of it",
    "scripts/demo": "builds first; EndToEnd.demonstration runs what it shows",
    "scripts/check": _BUILDS,
    "scripts/check user": _BUILDS,
    "scripts/check container": _BUILDS,
    "scripts/check sanitizers": _BUILDS,
    "scripts/fuzz 600": "takes an hour",
    "scripts/campaign": "takes hours",
    "scripts/test-machines": "takes hours",
    "scripts/campaign valgrind": "takes an hour",
    "scripts/bench": "measures, which takes an idle machine",
    "scripts/bench --check": _BUILDS,
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
    "cmake --install BUILD --component NAME": _PLACES,
    "cmake --install build/release --prefix DIRECTORY --component Library": _PLACES,
    "sudo packaging/uninstall": _MACHINE,
    "apt install ./zekara4mac_1.0.0_amd64.deb": _MACHINE,
    "apt remove zekara4mac": _MACHINE,
    "apt purge zekara4mac": _MACHINE,
    "sudo ./install": _MACOS,
    "sudo ./install --tool-only": _MACOS,
    "sudo ./uninstall": _MACOS,
    "brew install cmake ninja googletest nlohmann-json": _MACOS,
    "tar -xzf Zekara4Mac-1.0.0-macOS.tar.gz": _MACOS,
    "cd Zekara4Mac-1.0.0-macOS && sudo ./prove": _MACOS,
    "scripts/check macos": _BUILDS,
    'codesign --force --options runtime --timestamp --sign "Developer ID Application: YOUR NAME (TEAM)" root/usr/local/bin/zkaconfig root/Library/*/Zekara/Zekara4MacTool': _MACOS,
    "codesign --verify --strict --verbose=2 root/usr/local/bin/zkaconfig root/Library/*/Zekara/Zekara4MacTool": _MACOS,
    "pkgbuild --root root --identifier com.example.zekara4mac --version 1.0.0 --ownership recommended --scripts scripts unsigned.pkg": _MACOS,
    'productsign --sign "Developer ID Installer: YOUR NAME (TEAM)" unsigned.pkg Zekara4Mac.pkg': _MACOS,
    "xcrun notarytool submit Zekara4Mac.pkg --keychain-profile YOUR-PROFILE --wait": _MACOS,
    "xcrun stapler staple Zekara4Mac.pkg": _MACOS,
    "cmake -S . -B build -G Ninja && cmake --build build": _BUILDS,
    "sudo cmake --install build": _MACHINE,
}

# Exit statuses other than 0 that the documents say.
STATUSES = {
    "zkaconfig diff site.ini": 1,
}


def to_run(command):
    """Returns what the tests run for a command, or None if they run nothing for it."""
    if command in NOT_RUN:
        return None
    if command.startswith("ctest --preset release "):
        # Only lists the tests, which run beside this one, and there has to be one.
        return f"{command} -N | grep 'Total Tests: [1-9]'"
    return command if command.split()[0] in RUN else None
