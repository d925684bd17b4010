"""The packages are the same, byte for byte, from every account and folder, with every umask and at any time."""

import hashlib
import os
import shutil
import time

from installation import BUILD, REPOSITORY, PackagingTest


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def change_dates(directory):
    """Gives every file below a directory another date."""
    for where, directories, files in os.walk(directory):
        for number, name in enumerate(directories + files):
            os.utime(os.path.join(where, name), (number * 86400, number * 86400))


class ThePackages(PackagingTest):
    def digests(self, name, **options):
        return {package: digest(path) for package, path in self.pack(name, **options).items()}

    def test_debian_packages_do_not_depend_on_folder_umask_time_zone_locale_or_date(self):
        first = self.digests("first")
        time.sleep(1.1)  # archives hold whole seconds
        environment = {**os.environ, "TZ": "Asia/Kathmandu", "LC_ALL": "C.UTF-8", "USER": "other", "HOME": self.scratch}
        second = self.digests("another folder", umask=0o077, env=environment)
        self.assertEqual(first, second)

    def test_archive_for_macos_does_not_depend_on_folder_umask_time_zone_or_date(self):
        digests = set()
        for name, umask, zone in (("first", 0o022, "UTC"), ("another folder", 0o077, "Asia/Kathmandu")):
            stage = f"{self.scratch}/{name}/root"
            self.succeed("cmake", "--install", BUILD, "--prefix", "/usr/local", umask=umask, env={**os.environ, "DESTDIR": stage})
            if umask == 0o022:
                change_dates(stage)
            package = f"{self.scratch}/{name}/package.tar.gz"
            self.succeed(REPOSITORY + "/packaging/macos/pack", stage, package, umask=umask, env={**os.environ, "TZ": zone})
            digests.add(digest(package))
        self.assertEqual(len(digests), 1)

    def test_date_is_that_of_the_changelog_without_a_git_repository(self):
        copy = self.scratch + "/packaging"
        shutil.copytree(REPOSITORY + "/packaging", copy)
        with open(copy + "/debian/changelog", encoding="utf-8") as file:
            text = file.read()
        with open(copy + "/debian/changelog", "w", encoding="utf-8") as file:
            file.write("zekara4mac (9) unstable; urgency=low\n\n  * x\n\n -- A <a@b.c>  Thu, 01 Jan 1970 02:00:01 +0100\n\n" + text)
        self.assertEqual(self.succeed(copy + "/source-date", env={**os.environ, "TZ": "Asia/Kathmandu"}).strip(), "3601")
