"""The check and repair of the tool's own owner and mode, at every start."""

import os
import stat

from support import sandbox, tool, tracing
from support.case import ToolTestCase, requires_real_root, requires_set_user_id

COPY = sandbox.SCRATCH_DIRECTORY + "/Zekara4MacTool"
NOBODY = 65534

PASSED = ["Self-check passed", "Running on pipe"]
REPAIRED = ["Self-reparing complete", "Running on pipe"]


def attributes(path):
    status = os.stat(path)
    return status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)


def refused(path):
    return [f"Can't change owner on {path}", "Terminated with error"]


class SelfCheck(ToolTestCase):
    def test_owner_0_group_0_and_mode_04755_pass_and_nothing_is_changed(self):
        tool.copy_tool(COPY)
        before = os.stat(COPY)
        result = tool.run("pipe", name=COPY)
        self.assertEqual((result.status, result.log), (0, PASSED))
        after = os.stat(COPY)
        self.assertEqual(after.st_ctime_ns, before.st_ctime_ns)

    def test_every_other_mode_is_repaired(self):
        for mode in (0o755, 0o700, 0o4711, 0o4777, 0o6755, 0o5755, 0o7755, 0o2755, 0o4555, 0o4754):
            with self.subTest(mode=oct(mode)):
                tool.copy_tool(COPY, mode=mode)
                result = tool.run("pipe", name=COPY)
                self.assertEqual((result.status, result.log), (0, REPAIRED))
                self.assertEqual(attributes(COPY), (0, 0, 0o4755))
                self.assertEqual(tool.run("pipe", name=COPY).log, PASSED)

    @requires_real_root
    def test_every_other_owner_or_group_is_repaired_and_the_mode_is_right_afterwards(self):
        for owner in ((1000, 1000), (0, 1000), (1000, 0)):
            with self.subTest(owner=owner):
                tool.copy_tool(COPY, owner=owner)
                # A file of another account with the set-user-id bit would take root's rights away from root.
                os.chmod(COPY, 0o755)
                result = tool.run("pipe", name=COPY)
                self.assertEqual((result.status, result.log), (0, REPAIRED))
                self.assertEqual(attributes(COPY), (0, 0, 0o4755))

    @requires_real_root
    def test_a_wrong_owner_with_the_right_mode_gets_the_mode_set_again(self):
        decoy = sandbox.SCRATCH_DIRECTORY + "/decoy"
        tool.copy_tool(decoy, owner=(1000, 1000), mode=0o4755)
        result = tool.run("pipe", name=decoy, program=tool.TOOL)
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(attributes(decoy), (0, 0, 0o4755))

    @tracing.requires_strace
    def test_owner_and_group_are_set_together_and_before_the_mode_even_where_only_the_mode_is_wrong(self):
        tool.copy_tool(COPY, mode=0o755)
        calls = "chown,fchown,lchown,fchownat,chmod,fchmod,fchmodat"
        _, lines = tracing.run("pipe", name=COPY, calls=calls)
        self.assertEqual(len(lines), 2, lines)
        self.assertRegex(lines[0], r"chown\w*\(.*\b0, 0\b.*= 0$")
        self.assertRegex(lines[1], r"chmod\w*\(.*04755.*= 0$")

    @tracing.requires_strace
    def test_a_mode_that_cannot_be_changed_ends_with_status_2_and_its_own_message(self):
        tool.copy_tool(COPY, mode=0o755)
        calls = "chmod,fchmod,fchmodat"
        result, _ = tracing.run("pipe", name=COPY, calls=calls, options=["-e", f"inject={calls}:error=EPERM"])
        self.assertEqual((result.status, result.output), (2, b""))
        self.assertEqual(result.log, [f"Can't change attributes on {COPY}", "Terminated with error"])

    @tracing.requires_strace
    def test_an_owner_that_cannot_be_changed_ends_with_status_2_and_the_mode_is_not_touched(self):
        tool.copy_tool(COPY, mode=0o755)
        calls = "chown,fchown,lchown,fchownat"
        result, _ = tracing.run("pipe", name=COPY, calls=calls, options=["-e", f"inject={calls}:error=EPERM"])
        self.assertEqual((result.status, result.output), (2, b""))
        self.assertEqual(result.log, refused(COPY))
        self.assertEqual(attributes(COPY), (0, 0, 0o755))

    def test_a_start_with_arguments_that_name_no_mode_repairs_too(self):
        tool.copy_tool(COPY, mode=0o755)
        result = tool.run("no", "mode", name=COPY)
        self.assertEqual((result.status, result.log), (1, ["Self-reparing complete"]))
        self.assertEqual(attributes(COPY), (0, 0, 0o4755))

    def test_the_post_install_task_repairs_first(self):
        tool.copy_tool(COPY, mode=0o755)
        self.start_filed()
        result = tool.run(name=COPY)
        self.assertEqual((result.status, result.log), (1, ["Self-reparing complete", "PostInstall task"]))

    def test_a_bare_name_found_through_the_search_path_ends_with_status_2_and_no_run_mode(self):
        environment = {"PATH": str(sandbox.TOOL_DIRECTORY)}
        for arguments in ((), ("pipe",), ("x",)):
            with self.subTest(arguments=arguments):
                command = ["Zekara4MacTool", *arguments]
                result = tool.run(*arguments, name=command[0], program=tool.TOOL, cwd="/", env=environment)
                self.assertEqual((result.status, result.output), (2, b""))
                self.assertEqual(result.log, refused("Zekara4MacTool"))
                self.assert_config(None)

    def test_a_shell_that_finds_the_tool_through_its_search_path_gets_status_2(self):
        script = "cd /; PATH=$1:$PATH; Zekara4MacTool pipe"
        shell = sandbox.add_program("/bin/sh", sandbox.SCRATCH_DIRECTORY + "/sh")
        ended = tool.run("-c", script, "sh", sandbox.TOOL_DIRECTORY, name=shell)
        self.assertEqual((ended.status, ended.output), (2, b""))

    def test_a_bare_name_from_the_tools_own_directory_names_the_file(self):
        tool.copy_tool(COPY, mode=0o755)
        result = tool.run("pipe", name="Zekara4MacTool", program=COPY, cwd=sandbox.SCRATCH_DIRECTORY)
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(attributes(COPY), (0, 0, 0o4755))

    def test_a_relative_path_names_the_file(self):
        tool.copy_tool(COPY)
        result = tool.run("pipe", name="./../scratch/Zekara4MacTool", program=COPY, cwd=sandbox.SCRATCH_DIRECTORY)
        self.assertEqual((result.status, result.log), (0, PASSED))

    def test_an_empty_start_path_ends_with_status_2(self):
        result = tool.run("pipe", name="", program=tool.TOOL)
        self.assertEqual((result.status, result.log), (2, refused("")))

    def test_a_symbolic_link_to_a_correct_file_passes(self):
        tool.copy_tool(COPY)
        link = sandbox.SCRATCH_DIRECTORY + "/link"
        os.symlink(str(COPY), link)
        result = tool.run("pipe", name=link)
        self.assertEqual((result.status, result.log), (0, PASSED))

    def test_through_a_symbolic_link_the_file_is_repaired_and_the_link_stays(self):
        tool.copy_tool(COPY, mode=0o755)
        link = sandbox.SCRATCH_DIRECTORY + "/link"
        os.symlink("Zekara4MacTool", link)
        result = tool.run("pipe", name=link)
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(attributes(COPY), (0, 0, 0o4755))
        self.assertEqual(os.readlink(link), "Zekara4MacTool")

    def test_a_link_that_leads_nowhere_ends_with_status_2(self):
        link = sandbox.SCRATCH_DIRECTORY + "/link"
        os.symlink("gone", link)
        result = tool.run("pipe", name=link, program=tool.TOOL)
        self.assertEqual((result.status, result.log), (2, refused(link)))

    def test_root_has_whatever_file_the_start_path_names_repaired(self):
        decoy = sandbox.SCRATCH_DIRECTORY + "/decoy"
        with open(decoy, "wb"):
            pass
        os.chmod(decoy, 0o600)
        result = tool.run("pipe", name=decoy, program=tool.TOOL)
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(attributes(decoy), (0, 0, 0o4755))

    def test_format_directives_in_the_start_path_are_logged_as_they_are(self):
        for name in ("%s%s%n%n", "%@%@", "%100000d", "a\\nb"):
            with self.subTest(name=name):
                result = tool.run("pipe", name=name, program=tool.TOOL, cwd="/")
                self.assertEqual((result.status, result.log), (2, refused(name)))


class SelfCheckWithoutRootsRights(ToolTestCase):
    def setUp(self):
        super().setUp()
        os.chmod(sandbox.SCRATCH_DIRECTORY, 0o755)

    @requires_real_root
    def test_a_start_without_roots_rights_cannot_repair_and_enters_no_run_mode(self):
        for owner in ((0, 0), (NOBODY, NOBODY)):
            with self.subTest(owner=owner):
                tool.copy_tool(COPY, owner=owner, mode=0o755)
                result = tool.run("pipe", name=COPY, **tool.drop_privileges_arguments())
                self.assertEqual((result.status, result.output), (2, b""))
                self.assertEqual(result.log, refused(COPY))
                self.assertEqual(attributes(COPY), (*owner, 0o755))

    @requires_set_user_id
    def test_the_installed_tool_changes_a_setting_for_an_account_without_rights(self):
        tool.write_config(b"[UpdateD]\nMode = Auto\n\n")
        os.chmod(tool.CONFIG, 0o444)
        updated = self.start_updated()
        request = tool.encode(tool.request({"UpdateD": {"Mode": "Manual"}}))
        result = tool.run_pipe(request, **tool.drop_privileges_arguments())
        self.assert_succeeds(result)
        self.assertEqual(result.log, PASSED)
        self.assert_config(b"[UpdateD]\nMode = Manual\n\n")
        self.assertEqual(updated.signals(), [1])

    @requires_set_user_id
    def test_the_installed_tool_runs_the_post_install_task_for_an_account_without_rights(self):
        filed = self.start_filed()
        result = tool.run(**tool.drop_privileges_arguments())
        self.assertEqual(result.status, 1)
        self.assert_config(b"[MacOSWardex]\nIsActive = Yes\n\n")
        self.assertEqual(filed.signals(), [1, 15])

    @requires_set_user_id
    def test_a_file_created_for_an_account_without_rights_belongs_to_root_and_is_read_only(self):
        result = tool.run_pipe(tool.encode(tool.request({"A": {"k": "v"}})), **tool.drop_privileges_arguments())
        self.assert_succeeds(result)
        self.assertEqual(attributes(tool.CONFIG), (0, 0, 0o444))

    @sandbox.requires_mounts
    @requires_set_user_id
    def test_the_installed_tool_repairs_its_own_mode_for_an_account_without_rights(self):
        tool.copy_tool(COPY, mode=0o4711)
        result = tool.run("pipe", name=COPY, **tool.drop_privileges_arguments())
        self.assertEqual((result.status, result.log), (0, REPAIRED))
        self.assertEqual(attributes(COPY), (0, 0, 0o4755))

    @requires_set_user_id
    def test_a_foreign_file_in_the_start_path_is_not_touched_for_an_account_without_rights(self):
        decoy = sandbox.SCRATCH_DIRECTORY + "/decoy"
        with open(decoy, "wb"):
            pass
        os.chown(decoy, NOBODY, NOBODY)
        os.chmod(decoy, 0o755)
        result = tool.run("pipe", name=decoy, program=tool.TOOL, **tool.drop_privileges_arguments())
        self.assertEqual((result.status, result.log), (2, refused(decoy)))
        self.assertEqual(attributes(decoy), (NOBODY, NOBODY, 0o755))
