#!/usr/bin/env python3
"""What scripts/install-packages does on machines of all kinds: put together from commands that only note their call.

    install_packages_test.py"""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parent.parent.parent / "scripts" / "install-packages"
BASH = shutil.which("bash")


class InstallPackages(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="voxlith-install-"))
        self.addCleanup(shutil.rmtree, self.folder)
        os.symlink(shutil.which("grep"), self.folder / "grep")
        os.symlink(shutil.which("env"), self.folder / "env")

    def command(self, name, body):
        file = self.folder / name
        file.write_text(f"#!{BASH}\n{body}\n")
        file.chmod(0o755)

    def machine(self, user, installed, commands):
        """A machine with some packages, on which the named commands write down how they were called."""
        self.command("id", f"echo {user}")
        names = "|".join(installed) or "none"
        self.command("dpkg-query", f'case "$3" in {names}) echo install ok installed;; *) exit 1;; esac')
        for name in commands:
            run = '"$@"' if name == "sudo" else ""
            self.command(name, f'echo {name} "$@" >>{self.folder}/calls\n{run}')

    def install(self, *words):
        done = subprocess.run([BASH, SCRIPT, *words], env={"PATH": str(self.folder)}, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        calls = self.folder / "calls"
        return done.returncode, done.stdout, calls.read_text().splitlines() if calls.exists() else []

    def test_nothing_is_called_when_nothing_is_missing(self):
        self.machine(1000, ["python3-matplotlib", "python3-numpy"], ["apt-get", "sudo"])
        self.assertEqual(self.install("plots"), (0, "", []))

    def test_root_installs_what_is_missing_and_no_more(self):
        self.machine(0, ["python3-numpy"], ["apt-get", "sudo"])
        status, shown, calls = self.install("plots")
        self.assertEqual(status, 0)
        self.assertEqual(calls, ["apt-get update -qq", "apt-get install -y -qq --no-install-recommends python3-matplotlib"])
        self.assertIn("lacks: python3-matplotlib\n", shown)

    def test_others_install_by_sudo(self):
        self.machine(1000, [], ["apt-get", "sudo"])
        status, _, calls = self.install("plots")
        self.assertEqual(status, 0)
        self.assertEqual([call for call in calls if call.startswith("sudo")],
                         ["sudo apt-get update -qq", "sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "
                          "--no-install-recommends python3-matplotlib python3-numpy"])

    def test_without_sudo_the_command_for_root_is_shown(self):
        self.machine(1000, ["g++", "cmake", "python3", "python3-numpy", "python3-vtk9"], ["apt-get"])
        status, shown, calls = self.install("build")
        self.assertEqual((status, calls), (1, []))
        self.assertIn("    apt-get update && apt-get install --no-install-recommends ninja-build python3-scipy python3-pandas "
                      "libcli11-dev libtbb-dev zlib1g-dev\n", shown)
        self.assertNotIn("command not found", shown)

    def test_another_system_is_told_what_is_missing(self):
        self.machine(0, [], [])
        (self.folder / "dpkg-query").unlink()
        status, shown, _ = self.install("build")
        self.assertEqual(status, 1)
        self.assertIn("g++ cmake ninja-build python3 python3-numpy python3-scipy python3-pandas python3-vtk9 libcli11-dev "
                      "libtbb-dev zlib1g-dev\n", shown)
        self.assertIn("there is no apt-get here", shown)


if __name__ == "__main__":
    unittest.main()
