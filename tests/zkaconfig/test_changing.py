"""The commands that change settings, and diff, with the real tool."""

import ctypes
import fcntl
import json
import os
import plistlib
import signal
import time

from support import sandbox, tool
from support.case import requires_real_root, requires_set_user_id

from front_end import CONTENT, DIFFERS, DONE, NO_ANSWER, REFUSED, UNREADABLE, USAGE, FrontEndTestCase, run


def refuse_new_privileges():
    """Makes set-user-id programs have no effect for this process and its children."""
    pr_set_no_new_privs = 38
    ctypes.CDLL(None).prctl(pr_set_no_new_privs, 1, 0, 0, 0)


class Set(FrontEndTestCase):
    def test_a_setting_is_changed_and_the_change_shown(self):
        result = self.assert_done("set", "Other", "name=new")
        self.assertEqual(result.output, '[Other]\n-name = "a b"\n+name = new\n')
        self.assert_config(CONTENT.replace(b'"a b"', b"new"))

    def test_several_settings_and_sections_are_changed_by_one_request(self):
        filed = self.start_filed()
        updated = self.start_updated()
        self.assert_done(
            "set", "MacOSWardex", "IsActive=on", "InfectedFiles=delete", "ExcludedPaths=/a b,/c", "ActionJokes=8",
            "UpdateD", "Interval=60", "Mode=",
        )
        self.assert_config(
            b'[MacOSWardex]\nIsActive = Yes\nExcludedPaths = "/a b", "/c"\nActionJokes = Ignore\nInfectedFiles = Delete\n\n'
            b'[Other]\nname = "a b"\n\n[UpdateD]\nInterval = 60\nMode = \n\n'
        )
        self.assertEqual((filed.signals(), updated.signals()), ([signal.SIGHUP], [signal.SIGHUP]))

    def test_a_repeated_key_is_a_list(self):
        self.assert_done("set", "Other", "name=a", "name=2", "name=c")
        self.assertIn(b"name = a, 2, c\n", tool.read_config())

    def test_with_string_commas_are_text(self):
        self.assert_done("set", "--string", "Other", "name=a, b")
        self.assertEqual(self.assert_done("get", "Other", "name").output, "a, b\n")

    def test_where_nothing_differs_nothing_is_sent_and_nobody_signalled(self):
        filed = self.start_filed()
        result = self.assert_done("set", "MacOSWardex", "IsActive=no", "ExcludedPaths=/dev,/Network")
        self.assertIn("Nothing to change", result.output)
        self.assert_config(CONTENT)
        self.assertEqual(filed.signals(), [])
        self.assert_done("set", "UpdateD", "Interval=3600", tool_path="/nowhere")

    def test_only_the_difference_is_sent(self):
        """The file monitor is signalled for every request that names it: it must not be named here."""
        filed = self.start_filed()
        updated = self.start_updated()
        self.assert_done("set", "MacOSWardex", "IsActive=No", "UpdateD", "Interval=5")
        self.assertEqual((filed.signals(), updated.signals()), ([], [signal.SIGHUP]))

    def test_a_dry_run_shows_the_difference_and_changes_nothing(self):
        result = self.assert_done("set", "-n", "UpdateD", "Interval=5", "Mode=Auto", tool_path="/nowhere")
        self.assertEqual(result.output, "[UpdateD]\n-Interval = 3600\n+Interval = 5\n+Mode = Auto\n")
        self.assert_config(CONTENT)

    def test_programs_are_told_what_was_sent(self):
        changes = {"UpdateD": {"Interval": {"old": 3600, "new": 5}, "Mode": {"new": "x"}}}
        arguments = ("UpdateD", "Interval=5", "Mode=x")
        self.assertEqual(self.assert_done("set", "--json", "-n", *arguments).json, {"changes": changes, "sent": False})
        self.start_updated()
        self.assertEqual(self.assert_done("set", "--plist", *arguments).plist, {"changes": changes, "sent": True})
        self.assertEqual(self.assert_done("set", "--json", *arguments).json, {"changes": {}, "sent": False})

    def test_quietly_nothing_is_written(self):
        self.assertEqual(self.assert_done("set", "-q", "Other", "name=x").output, "")
        self.assertEqual(self.assert_done("set", "-q", "Other", "name=x").output, "")
        self.assertIn(b"name = x\n", tool.read_config())

    def test_a_daemon_that_does_not_run_is_told(self):
        result = run("set", "UpdateD", "Interval=5")
        self.assertEqual(result.status, DONE)
        self.assertIn("a daemon has not been told", result.errors)
        self.assertIn("Can't signal 1 to /var/zekara/run/UpdateD.pid", result.errors)

    def test_the_log_is_shown_on_request(self):
        self.assertIn("Running on pipe", run("set", "-v", "Other", "name=x").errors)

    def test_the_file_is_made_when_it_is_missing(self):
        os.unlink(tool.CONFIG)
        self.assert_done("set", "Other", "name=x")
        self.assert_config(b"[Other]\nname = x\n\n")

    def test_values_that_the_file_cannot_give_back_are_refused_and_sent_by_force(self):
        cases = (
            ('name=a"b', "double quote", b'name = "a"b"\n'),
            ("name=a\nb", "line end", b'name = "a\nb"\n'),
            ("name=für", "7-bit ASCII", "name = für\n".encode()),
            ("name= a", "blank", b'name = " a"\n'),
            ("name=a,,b", "empty list element", b"name = a, , b\n"),
            ("name=2147483648", "give back the number 2147483647", b"name = 2147483648\n"),
        )
        for word, message, line in cases:
            with self.subTest(word=word):
                tool.write_config(CONTENT)
                self.assert_fails(USAGE, message, "set", "Other", word)
                result = run("set", "--force", "Other", word)
                self.assert_status(result, DONE)
                self.assertIn(message, result.errors)
                self.assertIn(line, tool.read_config())

    def test_a_value_that_makes_no_sense_is_refused(self):
        self.assert_fails(USAGE, "one of Cure, Delete, Ignore, Quarantine, Report", "set", "MacOSWardex", "InfectedFiles=eat")
        self.assert_fails(USAGE, "one of Yes, No", "set", "MacOSWardex", "IsActive=perhaps")
        self.assert_fails(USAGE, "is a number", "set", "UpdateD", "Interval=daily")

    def test_a_misspelt_name_is_refused_and_stored_by_force(self):
        self.start_updated()
        self.assert_fails(USAGE, "did you mean Interval?", "set", "UpdateD", "Intervall=5")
        self.assert_fails(USAGE, "section Updated is unknown; did you mean UpdateD?", "set", "Updated", "Mode=x")
        result = run("set", "--force", "UpdateD", "Intervall=5")
        self.assert_status(result, DONE)
        self.assertIn(b"Intervall = 5\n", tool.read_config())

    def test_a_misspelt_name_that_the_file_holds_already_is_only_remarked_upon(self):
        tool.write_config(b"[UpdateD]\nIntervall = 5\n\n")
        self.start_updated()
        result = run("set", "UpdateD", "Intervall=6")
        self.assert_status(result, DONE)
        self.assertIn("did you mean Interval?", result.errors)

    def test_an_unknown_name_that_is_like_no_other_is_stored_with_a_remark(self):
        self.start_updated()
        result = run("set", "UpdateD", "Colour=red")
        self.assert_status(result, DONE)
        self.assertIn('has no setting "Colour"', result.errors)
        self.assertIn(b"Colour = red\n", tool.read_config())

    def test_wrong_usage_is_told(self):
        self.assert_fails(USAGE, "needs a section and at least one KEY=VALUE", "set", "UpdateD")
        self.assert_fails(USAGE, "no setting follows section UpdateD", "set", "UpdateD", "Mode", "x=1")
        self.assert_fails(USAGE, "the section of Mode=x is missing", "set", "Mode=x", "y=1")
        self.assert_fails(USAGE, "a section needs a name", "set", "", "x=1")
        self.assert_fails(USAGE, "changes /Library/Application Support/Zekara/zekara32.ini and no other file",
                          "set", "--config", tool.CONFIG + ".old", "UpdateD", "Mode=x")

    def test_the_installed_tool_is_found_without_being_named(self):
        tool.copy_tool(sandbox.CONFIG_DIRECTORY + "/Zekara4MacTool")
        self.assert_done("set", "Other", "name=x", tool_path=None)
        self.assertIn(b"name = x\n", tool.read_config())

    @requires_set_user_id
    def test_an_account_without_rights_changes_a_setting_through_the_tool(self):
        os.chmod(tool.CONFIG, 0o444)
        self.assert_done("set", "Other", "name=x", **tool.drop_privileges_arguments())
        self.assertIn(b"name = x\n", tool.read_config())
        self.assertEqual(os.stat(tool.CONFIG).st_uid, 0)


class AddAndRemove(FrontEndTestCase):
    def test_elements_are_added_to_what_the_file_holds_once(self):
        self.start_filed()
        result = self.assert_done("add", "MacOSWardex", "ExcludedPaths", "/dev", "/a b,/c", "/c")
        shown = '[MacOSWardex]\n-ExcludedPaths = "/dev", "/Network"\n+ExcludedPaths = "/dev", "/Network", "/a b", "/c"\n'
        self.assertEqual(result.output, shown)
        self.assert_config(CONTENT.replace(b'"/Network"', b'"/Network", "/a b", "/c"'))
        self.assertIn("Nothing to change", self.assert_done("add", "MacOSWardex", "ExcludedPaths", "/c", "/dev").output)

    def test_elements_are_removed_and_those_that_are_not_there_passed_over(self):
        self.start_filed()
        self.assert_done("remove", "MacOSWardex", "ExcludedPaths", "/dev", "/elsewhere")
        self.assert_config(CONTENT.replace(b'"/dev", ', b""))
        self.assertIn("Nothing to change", self.assert_done("remove", "MacOSWardex", "ExcludedPaths", "/dev").output)

    def test_a_list_that_the_file_lacks_begins_with_its_default(self):
        self.start_filed()
        tool.write_config(b"[MacOSWardex]\nIsActive = No\n\n")
        self.assertIn("Nothing to change", self.assert_done("add", "MacOSWardex", "ExcludedPaths", "/dev").output)
        self.assert_done("add", "MacOSWardex", "ExcludedPaths", "/x")
        self.assertEqual(run("get", "MacOSWardex", "ExcludedPaths").output.split(),
                         ["/dev", "/private/var/log", "/private/var/zekara/run", "/private/var/zekara/log", "/Network", "/x"])
        tool.write_config(b"")
        self.assert_done("add", "--no-defaults", "MacOSWardex", "ExcludedPaths", "/x")
        self.assertIn(b'ExcludedPaths = "/x"\n', tool.read_config())

    def test_one_value_becomes_a_list_and_a_list_of_one_is_that_value(self):
        self.assert_done("add", "Other", "name", "7")
        self.assertIn(b'name = "a b", 7\n', tool.read_config())
        self.assert_done("remove", "Other", "name", "a b")
        self.assertIn(b"name = 7\n", tool.read_config())
        self.assert_done("add", "Other", "new", "x")
        self.assertIn(b"new = x\n", tool.read_config())

    def test_words_are_elements_as_they_are_but_for_commas(self):
        self.assert_done("add", "Other", "new", "[a]", "--", "-b")
        self.assertEqual(run("get", "Other", "new").output, "[a]\n-b\n")
        self.assert_done("add", "--string", "Other", "new", "c,d")
        self.assertEqual(run("get", "Other", "new").output, "[a]\n-b\nc,d\n")

    def test_the_last_element_is_not_removed(self):
        self.assert_fails(USAGE, "would be left without an element", "remove", "MacOSWardex", "ExcludedPaths", "/dev", "/Network")
        self.assert_fails(USAGE, "would be left without an element", "remove", "--force", "Other", "name", "a b")

    def test_a_setting_that_takes_one_value_gets_no_second_one(self):
        self.assert_fails(USAGE, "Mode takes one value, not a list", "add", "UpdateD", "Mode", "x")
        self.assert_fails(USAGE, "it is a number", "add", "UpdateD", "Interval", "5")
        self.assert_fails(USAGE, "did you mean ExcludedPaths?", "add", "MacOSWardex", "ExcludedPath", "/x")

    def test_a_dry_run_changes_nothing_and_programs_are_told(self):
        result = self.assert_done("add", "-n", "--json", "Other", "name", "x", tool_path="/nowhere")
        self.assertEqual(result.json, {"changes": {"Other": {"name": {"old": "a b", "new": ["a b", "x"]}}}, "sent": False})
        self.assert_config(CONTENT)


class Reset(FrontEndTestCase):
    def test_the_default_of_a_key_is_written(self):
        updated = self.start_updated()
        self.assertEqual(self.assert_done("reset", "UpdateD", "Interval").output,
                         "[UpdateD]\n-Interval = 3600\n+Interval = 43200\n")
        self.assert_config(CONTENT.replace(b"3600", b"43200"))
        self.assertEqual(updated.signals(), [signal.SIGHUP])

    def test_a_section_is_reset_without_writing_what_the_file_lacks(self):
        self.start_filed()
        tool.write_config(CONTENT.replace(b"[Other]", b"Colour = red\n\n[Other]").replace(b"\n\nColour", b"\nColour"))
        result = run("reset", "MacOSWardex")
        self.assert_status(result, DONE)
        self.assertIn("Colour has no default and stays as it is", result.errors)
        self.assertEqual(run("show", "MacOSWardex", "--no-defaults").output,
                         '[MacOSWardex]\nIsActive = No\nExcludedPaths = "/dev", "/private/var/log", '
                         '"/private/var/zekara/run", "/private/var/zekara/log", "/Network"\nColour = red\n\n')

    def test_where_the_defaults_are_in_force_nothing_is_sent(self):
        self.assertIn("Nothing to change", self.assert_done("reset", "UpdateD", "Mode", tool_path="/nowhere").output)

    def test_a_key_or_section_without_a_default_is_told(self):
        self.assert_fails(USAGE, "interval in section UpdateD has no default; did you mean Interval?",
                          "reset", "UpdateD", "Interval", "interval")
        result = self.assert_fails(USAGE, "the suite has no defaults for section Other", "reset", "Other")
        self.assertIn("--daemon-section", result.errors)

    def test_words_for_removal_lead_to_reset(self):
        for word in ("unset", "delete", "rm"):
            result = self.assert_fails(USAGE, "the tool can remove nothing from the file", word, "UpdateD", "Mode")
            self.assertIn('"zkaconfig reset SECTION KEY" writes the default', result.errors)


class ApplyAndDiff(FrontEndTestCase):
    PATCH = {"UpdateD": {"Interval": 60, "Mode": "Auto"}, "Other": {"name": "a b"}, "New": {"list": ["x y", 1]}}
    INI = b'[UpdateD]\nInterval = 60\nMode = Auto\n[Other]\nname = "a b"\n[New]\nlist = "x y", 1'
    SHOWN = '[UpdateD]\n-Interval = 3600\n+Interval = 60\n+Mode = Auto\n[New]\n+list = "x y", 1\n'

    def patch_file(self, content, name="patch"):
        path = sandbox.SCRATCH_DIRECTORY + "/" + name
        with open(path, "wb") as file:
            file.write(content)
        return path

    def test_an_ini_file_a_property_list_and_json_are_applied_alike(self):
        for content in (self.INI, plistlib.dumps(self.PATCH, sort_keys=False), json.dumps(self.PATCH).encode()):
            with self.subTest(content=content[:5]):
                tool.write_config(CONTENT)
                self.start_updated()
                path = self.patch_file(content)
                before = run("diff", path)
                self.assertEqual((before.status, before.output, before.errors), (DIFFERS, self.SHOWN, ""))
                self.assert_config(CONTENT)
                self.assertEqual(self.assert_done("apply", path).output, self.SHOWN)
                self.assert_config(CONTENT.replace(b"3600", b"60\nMode = Auto") + b'[New]\nlist = "x y", 1\n\n')
                self.assertEqual(self.assert_done("diff", path).output, "")
                self.assertIn("Nothing to change", self.assert_done("apply", path).output)

    def test_property_list_booleans_and_digits_take_the_files_form(self):
        patch = {"MacOSWardex": {"IsActive": True, "SkipArchives": False}, "UpdateD": {"Interval": "60"}}
        self.start_filed()
        self.start_updated()
        self.assert_done("apply", "-", data=plistlib.dumps(patch))
        content = tool.read_config()
        for line in (b"IsActive = Yes\n", b"SkipArchives = No\n", b"Interval = 60\n"):
            self.assertIn(line, content)
        self.assertEqual(self.assert_done("diff", "-", data=plistlib.dumps(patch)).output, "")

    def test_a_difference_can_be_taken_to_another_file(self):
        other = self.patch_file(CONTENT.replace(b"3600", b"60"), "other.ini")
        self.assertEqual(run("diff", "--config", other, tool.CONFIG).output, "[UpdateD]\n-Interval = 60\n+Interval = 3600\n")

    def test_an_export_of_the_files_settings_is_no_difference(self):
        self.assertEqual(self.assert_done("diff", tool.CONFIG).output, "")
        self.assertEqual(self.assert_done("diff", tool.CONFIG, "--json").json, {"changes": {}, "sent": False})

    def test_what_show_writes_for_programs_changes_nothing(self):
        """The file holds what zkaconfig itself would spell otherwise: a boolean as a number, an action in small letters."""
        content = b"[MacOSWardex]\nIsActive = 1\nInfectedFiles = cure\nIsActve = No\n\n[Other]\nk = \"\x1b\", \"a,b\", 5\n\n"
        tool.write_config(content)
        for options in ([], ["--action-codes"], ["--no-defaults"], ["--daemon-section=Scan"]):
            for form in ("--json", "--plist"):
                with self.subTest(form=form, options=options):
                    shown = self.assert_done("show", form, *options).output.encode()
                    self.assertEqual(self.assert_done("diff", "-", data=shown).output, "")
                    self.assertIn("Nothing to change", self.assert_done("apply", "-", data=shown, tool_path="/nowhere").output)
        self.assert_config(content)

    def test_what_show_wrote_elsewhere_brings_the_same_settings_into_force(self):
        self.start_filed()
        self.start_updated()
        tool.write_config(b"[UpdateD]\nInterval = 5\n\n")
        shown = run("show", "--json")
        tool.write_config(b"[UpdateD]\nMode = Manual\n\n[MacOSWardex]\nIsActive = Yes\n\n")
        self.assert_done("apply", "-", data=shown.output.encode())
        self.assertEqual({name: {key: one["value"] for key, one in section.items()}
                          for name, section in run("show", "--json").json.items()},
                         {name: {key: one["value"] for key, one in section.items()} for name, section in shown.json.items()})
        self.assertNotIn(b"FileTimeout", tool.read_config())

    def test_an_edited_export_is_applied_with_the_edited_settings_alone(self):
        settings = run("show", "--json").json
        settings["UpdateD"]["Interval"]["value"] = 60
        settings["MacOSWardex"]["SkipArchives"]["value"] = False
        result = run("diff", "-", data=json.dumps(settings).encode())
        self.assert_status(result, DIFFERS)
        self.assertEqual(result.output, "[MacOSWardex]\n+SkipArchives = No\n[UpdateD]\n-Interval = 3600\n+Interval = 60\n")

    def test_files_that_hold_no_patch_are_refused(self):
        self.assert_fails(UNREADABLE, "standard input is not JSON: parse error at line 1", "apply", "-", data=b'{"A" 1}')
        self.assert_fails(UNREADABLE, "holds null, which no setting can be", "apply", "-", data=b'{"A": {"x": null}}')
        self.assert_fails(USAGE, "section A is not a dictionary", "apply", "-", data=b'{"A": 1}')
        self.assert_fails(UNREADABLE, "not a property list", "apply", "-", data=b"<plist><dict>")
        self.assert_fails(UNREADABLE, "an array instead of a dictionary", "apply", "-", data=plistlib.dumps([1]))
        self.assert_fails(USAGE, "section Other is not a dictionary", "apply", "--force", "-", data=plistlib.dumps({"Other": "x"}))
        self.assert_fails(UNREADABLE, "standard input is not an INI file on or just after line 2", "apply", "-", data=b"[A]\nx\n")
        self.assert_fails(UNREADABLE, "that is not 7-bit ASCII", "apply", "-", data="[A]\nx = ü\n".encode())
        self.assert_fails(UNREADABLE, "No such file", "apply", "/nowhere")
        self.assert_fails(USAGE, "give back the text", "apply", "-", data=plistlib.dumps({"A": {"x": -1}}))


class ToolsThatFail(FrontEndTestCase):
    def test_a_refusal_is_told_in_the_tools_words(self):
        os.unlink(tool.CONFIG)
        os.rmdir(sandbox.CONFIG_DIRECTORY)
        self.assert_fails(REFUSED, "can't open ini file", "set", "Other", "name=x")

    def test_a_tool_that_is_not_there_is_told(self):
        self.assert_fails(NO_ANSWER, "cannot start /nowhere: No such file", "set", "Other", "name=x", tool_path="/nowhere")
        result = self.assert_fails(NO_ANSWER, "Permission denied", "set", "Other", "name=x", tool_path=str(tool.CONFIG))
        self.assertIn("Your account may not start it", result.errors)

    @sandbox.requires_machine
    def test_a_program_that_is_not_the_tool_is_told_without_a_line_of_the_library(self):
        result = self.assert_fails(NO_ANSWER, "/bin/true has ended without an answer", "set", "Other", "name=x", tool_path="/bin/true")
        self.assertEqual(result.errors.splitlines()[0], "zkaconfig: /bin/true has ended without an answer")

    @requires_real_root
    def test_an_account_whose_processes_may_not_gain_rights_is_told_why_the_file_cannot_be_opened(self):
        sandbox.require_linux("a process that may not gain rights")
        os.chmod(tool.CONFIG, 0o444)
        result = self.assert_fails(REFUSED, "can't open ini file", "set", "Other", "name=x",
                                   preexec_fn=refuse_new_privileges, **tool.drop_privileges_arguments())
        self.assertIn("the tool was not given root's rights", result.errors)

    @requires_set_user_id
    def test_a_tool_that_lacks_its_rights_is_told_with_its_log(self):
        broken = tool.copy_tool(sandbox.SCRATCH_DIRECTORY + "/broken", owner=(65534, 65534), mode=0o755)
        os.chmod(tool.CONFIG, 0o444)
        result = self.assert_fails(NO_ANSWER, "is not set-user-id root and cannot change the file", "set", "Other", "name=x", tool_path=broken,
                                   **tool.drop_privileges_arguments())
        self.assertIn("Can't change owner on", result.errors)
        self.assertIn("owner 0, group 0", result.errors)

    def test_a_tool_that_waits_for_the_lock_is_left_to_it_after_the_limit_and_makes_the_change_later(self):
        with open(tool.CONFIG, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH)
            self.assert_fails(NO_ANSWER, "has not answered in time", "set", "--timeout=1", "Other", "name=x")
        deadline = time.monotonic() + tool.PATIENCE
        while b"name = x\n" not in tool.read_config():
            self.assertLess(time.monotonic(), deadline, "the tool has not made the change")
            time.sleep(0.01)

    def test_with_closed_standard_streams_the_change_is_made_and_the_status_tells_of_the_lost_report(self):
        for options, status in (([], UNREADABLE), (["-q"], DONE)):
            with self.subTest(options=options):
                tool.write_config(CONTENT)
                closed = run("set", *options, "Other", "name=x", preexec_fn=lambda: os.closerange(0, 3))
                self.assertEqual((closed.status, closed.output, closed.errors), (status, "", ""))
                self.assert_config(CONTENT.replace(b'"a b"', b"x"))
