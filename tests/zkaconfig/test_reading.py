"""The commands that only read."""

import fcntl
import os

from support import sandbox, tool
from support.case import requires_real_root, requires_set_user_id

from front_end import (CONTENT, DIFFERS, DONE, PROGRAM, UNREADABLE, USAGE, FrontEndTestCase, run,
                       run_in_terminal)


class Show(FrontEndTestCase):
    def test_the_files_settings_come_first_and_what_it_lacks_is_marked_as_default(self):
        self.assertEqual(
            self.assert_done("show", "UpdateD").output,
            "[UpdateD]\nInterval = 3600\nMode = Auto                             ; default\n\n",
        )

    def test_without_a_section_all_are_shown_unknown_ones_as_they_are(self):
        output = self.assert_done("show").output
        headers = [line for line in output.splitlines() if line.startswith("[")]
        self.assertEqual(headers, ["[MacOSWardex]", "[Other]", "[UpdateD]"])
        self.assertIn('[Other]\nname = "a b"\n\n', output)

    def test_without_defaults_only_the_file_is_shown(self):
        self.assertEqual(self.assert_done("show", "--no-defaults").output, CONTENT.decode())

    def test_what_is_shown_can_be_applied_and_changes_nothing_but_the_defaults(self):
        self.start_filed()
        self.start_updated()
        shown = self.assert_done("show").output.encode()
        self.assert_done("apply", "-", data=shown)
        settings = run("show", "--json").json
        self.assertFalse(any(key["default"] for section in settings.values() for key in section.values()))
        self.assertEqual(self.assert_done("diff", "-", data=shown).output, "")

    def test_programs_get_booleans_numbers_and_the_origin_of_each_value(self):
        for form in ("json", "plist"):
            with self.subTest(form=form):
                settings = getattr(self.assert_done("show", f"--{form}", "MacOSWardex"), form)["MacOSWardex"]
                self.assertIs(settings["IsActive"]["value"], False)
                self.assertIs(settings["IsActive"]["default"], False)
                self.assertEqual(settings["SkipArchives"], {"value": True, "default": True})
                self.assertEqual(settings["FileTimeout"], {"value": 30, "default": True})
                self.assertEqual(settings["ExcludedPaths"], {"value": ["/dev", "/Network"], "default": False})

    def test_a_boolean_that_the_file_holds_as_a_number_is_shown_as_what_it_means(self):
        tool.write_config(b"[MacOSWardex]\nIsActive = 1\n\n")
        self.assertIn("\nIsActive = Yes\n", self.assert_done("show").output)
        self.assertIs(run("show", "--json").json["MacOSWardex"]["IsActive"]["value"], True)

    def test_actions_are_shown_as_codes_on_request(self):
        settings = self.assert_done("show", "--action-codes", "--json", "MacOSWardex").json["MacOSWardex"]
        self.assertEqual(settings["InfectedFiles"]["value"], 2)
        self.assertEqual(settings["IncurableFiles"]["value"], 4)
        self.assertEqual(settings["SuspiciousFiles"]["value"], 32)

    def test_the_scanning_daemons_section_has_defaults_once_it_is_named(self):
        self.assertNotIn("Scan", run("show", "--json").json)
        settings = self.assert_done("show", "--json", "--daemon-section=Scan").json
        self.assertEqual(settings["Scan"]["MaxChildren"], {"value": 16, "default": True})
        self.assertIs(settings["Scan"]["RunForeground"]["value"], True)
        self.assertEqual(settings["Scan"]["PreFork"]["value"], "No")

    def test_an_unknown_section_is_told_with_the_one_that_was_probably_meant(self):
        result = self.assert_fails(DIFFERS, "there is no section updated; did you mean UpdateD?", "show", "updated")
        self.assertEqual(result.output, "")

    def test_control_characters_do_not_reach_the_terminal(self):
        tool.write_config(b'[Other]\nk = "\x1b]0;title\x07"\n\n')
        self.assertEqual(self.assert_done("show", "Other").output, '[Other]\nk = "\\x1b]0;title\\x07"\n\n')
        self.assertEqual(run("show", "Other", "--json").json["Other"]["k"]["value"], "\x1b]0;title\x07")

    def test_another_file_is_read_on_request(self):
        path = sandbox.SCRATCH_DIRECTORY + "/other.ini"
        with open(path, "wb") as file:
            file.write(b"[UpdateD]\nMode = Manual\n\n")
        self.assertEqual(self.assert_done("--config", path, "get", "UpdateD", "Mode").output, "Manual\n")


class Get(FrontEndTestCase):
    def test_a_value_is_written_plainly_and_a_list_on_lines(self):
        self.assertEqual(self.assert_done("get", "UpdateD", "Interval").output, "3600\n")
        self.assertEqual(self.assert_done("get", "Other", "name").output, "a b\n")
        self.assertEqual(self.assert_done("get", "MacOSWardex", "ExcludedPaths").output, "/dev\n/Network\n")

    def test_a_default_is_marked_for_programs(self):
        expected = {"section": "UpdateD", "key": "Mode", "value": "Auto", "default": True}
        self.assertEqual(self.assert_done("get", "UpdateD", "Mode", "--json").json, expected)
        self.assertEqual(self.assert_done("get", "UpdateD", "Mode", "--plist").plist, expected)
        self.assertIs(run("get", "UpdateD", "Interval", "--json").json["default"], False)

    def test_an_unset_key_is_told_by_the_exit_status(self):
        self.assertEqual(self.assert_fails(DIFFERS, "did you mean Mode?", "get", "UpdateD", "mode").output, "")
        self.assert_fails(DIFFERS, "Mode is unset", "get", "UpdateD", "Mode", "--no-defaults")
        self.assert_fails(DIFFERS, "there is no section", "get", "Nowhere", "Mode")


    def test_several_keys_are_written_as_lines_of_an_ini_file(self):
        self.assertEqual(self.assert_done("get", "UpdateD", "Interval", "Mode").output, "Interval = 3600\nMode = Auto\n")
        values = self.assert_done("get", "UpdateD", "Interval", "Mode", "--json").json
        self.assertEqual([(one["key"], one["value"], one["default"]) for one in values],
                         [("Interval", 3600, False), ("Mode", "Auto", True)])

    def test_of_several_keys_those_that_are_set_are_written_though_one_is_unset(self):
        result = self.assert_fails(DIFFERS, "Colour is unset", "get", "UpdateD", "Colour", "Interval")
        self.assertEqual(result.output, "Interval = 3600\n")
        self.assertEqual(run("get", "UpdateD", "Colour", "Shape", "--json").json, [])

    def test_an_unset_key_gets_the_given_default_in_the_form_that_set_would_store(self):
        self.assertEqual(self.assert_done("get", "UpdateD", "Colour", "--default=red").output, "red\n")
        self.assertEqual(self.assert_done("get", "Nowhere", "Colour", "--default", "").output, "\n")
        self.assertEqual(self.assert_done("get", "UpdateD", "Interval", "--default=red").output, "3600\n")
        self.assertEqual(self.assert_done("get", "UpdateD", "x", "--default=1,b", "--json").json,
                         {"section": "UpdateD", "key": "x", "value": [1, "b"], "default": True})
        self.assertEqual(self.assert_done("get", "UpdateD", "x", "--default=1,b", "--string").output, "1,b\n")
        self.assert_fails(USAGE, "--default is for \"get\" alone", "show", "--default=1")

    def test_for_scripts_values_are_as_they_are_and_end_in_nul(self):
        tool.write_config(b'[Other]\nk = "\x1b[0m", "b c"\nl = 1\n\n')
        self.assertEqual(self.assert_done("get", "--null", "Other", "k").output, "\x1b[0m\0b c\0")
        self.assertEqual(self.assert_done("get", "-z", "Other", "k", "l").output, "k\n\x1b[0m\0k\nb c\0l\n1\0")
        self.assertEqual(self.assert_done("show", "-z", "Other").output,
                         "Other\nk\n\x1b[0m\0Other\nk\nb c\0Other\nl\n1\0")
        self.assert_fails(USAGE, '"diff" has no output for --null', "diff", "-z", "-")


class Describe(FrontEndTestCase):
    def test_a_setting_is_told_with_type_default_words_and_reader(self):
        self.assertEqual(
            self.assert_done("describe", "MacOSWardex", "InfectedFiles").output,
            "[MacOSWardex]\n"
            "Read by the file monitor, FileD; told of a change by SIGHUP, after each request that names the section.\n"
            "\n"
            "InfectedFiles: What is done with infected files.\n"
            "\n"
            "  Type:     action\n"
            "  Default:  Cure\n"
            "  Words:    Cure        cures the object\n"
            "            Delete      deletes the object\n"
            "            Ignore      leaves the object alone\n"
            "            Quarantine  moves the object to the quarantine\n"
            "            Report      reports the object and leaves it alone\n",
        )

    def test_every_setting_that_has_a_default_is_described_with_it(self):
        os.unlink(tool.CONFIG)
        described = self.assert_done("describe", "--json", "--daemon-section=Scan").json
        settings = run("show", "--json", "--daemon-section=Scan").json
        defaults = {name: {key: one["default"] for key, one in section["settings"].items()}
                    for name, section in described.items()}
        self.assertEqual(defaults, {name: {key: one["value"] for key, one in section.items()}
                                    for name, section in settings.items()})
        self.assertEqual([section["notified"] for section in described.values()], [True, True, False])

    def test_the_words_described_are_those_that_are_listed_and_accepted(self):
        for section, key in (("MacOSWardex", "InfectedFiles"), ("MacOSWardex", "IsActive")):
            words = list(self.assert_done("describe", section, key, "--json").json[section]["settings"][key]["words"])
            self.assertEqual(self.assert_done("list", section, key).output.split(), words)
            for word in words:
                self.assert_done("set", "-n", section, f"{key}={word}")

    def test_an_unknown_name_is_told_with_the_one_that_was_probably_meant(self):
        self.assert_fails(DIFFERS, "no section updated; did you mean UpdateD?", "describe", "updated")
        self.assert_fails(DIFFERS, "did you mean Interval?", "describe", "UpdateD", "Intervall")
        self.assert_fails(DIFFERS, "no section Other", "describe", "Other")

    def test_a_file_that_cannot_be_read_does_not_matter(self):
        tool.write_config(b"]\n\n")
        self.assertIn("Interval = 43200\n    number: ", self.assert_done("describe", "UpdateD").output)


class Terminals(FrontEndTestCase):
    PLAIN = "[UpdateD]\nInterval = 3600\nMode = Auto                             ; default\n\n"

    def test_a_terminal_gets_colours(self):
        shown = run_in_terminal("show", "UpdateD")
        self.assertEqual(
            shown,
            "\x1b[1m[UpdateD]\x1b[0m\nInterval = 3600\n"
            "\x1b[2mMode = Auto                             ; default\x1b[0m\n\n",
        )
        shown = run_in_terminal("set", "-n", "UpdateD", "Interval=5")
        self.assertEqual(shown, "\x1b[1m[UpdateD]\x1b[0m\n\x1b[31m-Interval = 3600\x1b[0m\n\x1b[32m+Interval = 5\x1b[0m\n")

    def test_a_terminal_whose_user_refuses_colours_or_that_has_none_gets_none(self):
        for variables in ({"NO_COLOR": "1"}, {"TERM": "dumb"}, {"TERM": ""}):
            with self.subTest(variables=variables):
                self.assertEqual(run_in_terminal("show", "UpdateD", variables=variables), self.PLAIN)

    def test_a_pipe_and_programs_get_no_colours(self):
        self.assertEqual(self.assert_done("show", "UpdateD", env={**os.environ, "TERM": "xterm"}).output, self.PLAIN)
        self.assertNotIn("\x1b", run_in_terminal("show", "UpdateD", "--json"))
        self.assertEqual(run_in_terminal("get", "UpdateD", "Interval"), "3600\n")

    @requires_set_user_id
    def test_an_account_without_rights_reads_and_changes_in_a_terminal(self):
        user = tool.drop_privileges_arguments()
        self.assertEqual(run_in_terminal("get", "UpdateD", "Interval", **user), "3600\n")
        self.assertEqual(run_in_terminal("set", "Other", "name=x", **user),
                         '\x1b[1m[Other]\x1b[0m\n\x1b[31m-name = "a b"\x1b[0m\n\x1b[32m+name = x\x1b[0m\n')
        self.assert_config(CONTENT.replace(b'"a b"', b"x"))

    def test_an_answer_is_not_paged_and_a_remark_reaches_the_terminal(self):
        self.assertEqual(run_in_terminal("list", "Nowhere"), "zkaconfig: there is no section Nowhere\n")


class List(FrontEndTestCase):
    def test_sections_keys_and_words_are_listed_one_a_line(self):
        self.assertEqual(self.assert_done("list").output, "MacOSWardex\nOther\nUpdateD\n")
        self.assertEqual(self.assert_done("list", "UpdateD").output, "Interval\nMode\n")
        self.assertEqual(self.assert_done("list", "MacOSWardex", "IsActive").output, "Yes\nNo\n")
        self.assertEqual(self.assert_done("list", "UpdateD", "Mode").output, "")
        self.assertEqual(self.assert_done("list", "--null").output, "MacOSWardex\0Other\0UpdateD\0")

    def test_an_unknown_section_or_key_is_told_as_show_and_get_tell_it(self):
        self.assert_fails(DIFFERS, "there is no section updated; did you mean UpdateD?", "list", "updated")
        self.assert_fails(DIFFERS, "there is no section Nowhere", "list", "Nowhere", "Mode")
        self.assert_fails(DIFFERS, "mode is unset in section UpdateD; did you mean Mode?", "list", "UpdateD", "mode")

    def test_a_file_that_cannot_be_read_is_passed_over(self):
        tool.write_config(b"]\n\n")
        self.assertEqual(self.assert_done("list").output, "MacOSWardex\nUpdateD\n")


class FilesThatCannotBeRead(FrontEndTestCase):
    def test_a_missing_configuration_file_leaves_the_defaults_with_a_remark(self):
        os.unlink(tool.CONFIG)
        result = run("show", "UpdateD")
        self.assertEqual(result.status, DONE)
        self.assertIn("zekara32.ini does not exist; all settings are the defaults", result.errors)
        self.assertIn("Mode = Auto", result.output)

    def test_another_file_that_is_missing_is_an_error(self):
        self.assert_fails(UNREADABLE, "/nowhere.ini does not exist", "show", "--config", "/nowhere.ini")

    @requires_real_root
    def test_a_file_that_the_account_may_not_read_is_told_with_advice(self):
        os.chmod(tool.CONFIG, 0o600)
        result = self.assert_fails(UNREADABLE, "Permission denied", "show", **tool.drop_privileges_arguments())
        self.assertIn("Your account may not read it", result.errors)

    def test_a_directory_is_told_as_such(self):
        self.assert_fails(UNREADABLE, "it is not a regular file", "show", "--config", "/")
        self.assert_fails(UNREADABLE, "/: cannot read: Is a directory", "diff", "/")

    def test_a_syntax_error_is_told_with_its_line(self):
        tool.write_config(b"[A]\nx = 1\ny\nz = 2\n\n")
        self.assert_fails(UNREADABLE, "on or just after line 3: unexpected token", "show")

    def test_a_byte_beyond_ascii_is_warned_of(self):
        tool.write_config("[A]\nx = 1\n; für\ny = 2\n\n".encode())
        result = run("show", "A")
        self.assertEqual((result.status, result.output), (DONE, "[A]\nx = 1\n\n"))
        self.assertIn("holds a byte on line 3 that is not 7-bit ASCII", result.errors)

    def test_a_locked_file_is_waited_for_only_so_long_and_read_without_the_lock_on_request(self):
        with open(tool.CONFIG, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            self.assert_fails(UNREADABLE, "keeps it locked", "show", "--timeout=1")
            self.assert_done("show", "--no-lock")

    def test_output_that_cannot_be_written_is_an_error(self):
        sandbox.require_linux("/dev/full")
        with open("/dev/full", "wb") as full:
            process = tool.start("show", name=PROGRAM, stdout=full)
            result = tool.finish(process)
        self.assertEqual(result.status, UNREADABLE)
        self.assertIn(b"cannot write the output: No space left on device", result.errors)
