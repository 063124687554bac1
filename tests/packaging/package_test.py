#!/usr/bin/env python3
"""Builds the Debian packages of a build folder, installs them into a root of its own, runs what they hold, removes them.

    package_test.py --build build/release

What must hold: dpkg takes the package and gives every file back on removal; the installed programs run an example's files;
the spline library is found by another project; completion offers the subcommands; manual pages are where man looks."""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parent.parent
BUILD = None


def run(*command, **options):
    """Runs a command; its output is part of the failure when it fails."""
    done = subprocess.run([str(word) for word in command], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(str(word) for word in command)}\nstatus {done.returncode}\n{done.stdout}")
    return done.stdout


def dpkg(root, *words):
    """dpkg on a root of its own, as root or under fakeroot. Nothing but files is in the package: no scripts are run."""
    command = [] if os.geteuid() == 0 else ["fakeroot"]
    # A root without a dependency in it: what the package needs is checked apart.
    command += ["dpkg", f"--root={root}", "--force-depends", "--force-not-root", f"--log={root}/dpkg.log"]
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    return run(*command, *words, env=dict(os.environ, PATH=path))


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(tempfile.mkdtemp(prefix="voxlith-package-"))
        cls.addClassCleanup(shutil.rmtree, cls.work)
        run("cpack", "-G", "DEB", "--config", BUILD / "CPackConfig.cmake", "-B", cls.work / "package", cwd=cls.work)
        packages = {path.name.split("_")[0]: path for path in (cls.work / "package").glob("*.deb")}
        assert set(packages) - {"voxlith-mpi"} == {"voxlith"}, packages
        cls.package = packages["voxlith"]
        cls.mpi_package = packages.get("voxlith-mpi")
        cls.root = cls.work / "root"
        for folder in ("info", "updates", "triggers"):
            (cls.root / "var/lib/dpkg" / folder).mkdir(parents=True)
        for name in ("status", "available"):
            (cls.root / "var/lib/dpkg" / name).touch()
        dpkg(cls.root, "--install", *filter(None, [cls.package, cls.mpi_package]))

    def test_the_description_is_one_paragraph(self):
        """A line that begins with two blanks is shown as it stands, broken off from the text around it."""
        for package in filter(None, [self.package, self.mpi_package]):
            lines = run("dpkg-deb", "--field", package, "Description").splitlines()
            self.assertGreater(len(lines), 2)
            for line in lines[1:]:
                self.assertRegex(line, r"^( \S.*|\S.*)$")

    def test_dependencies_are_the_language_libraries_tbb_zlib_and_numpy(self):
        needed = run("dpkg-deb", "--field", self.package, "Depends").strip()
        names = {entry.split()[0] for entry in needed.split(",")}
        self.assertLessEqual(names, {"libc6", "libgcc-s1", "libstdc++6", "libm6", "libtbb12", "python3",
                                     "python3-numpy", "zlib1g"}, needed)

    def test_mpi_package_holds_one_program_and_needs_an_mpi(self):
        if self.mpi_package is None:
            self.skipTest("the build has no MPI")
        needed = run("dpkg-deb", "--field", self.mpi_package, "Depends").strip()
        names = {entry.split()[0] for entry in needed.split(",")}
        self.assertLessEqual(names, {"voxlith", "openmpi-bin", "libopenmpi3", "mpich", "libmpich12", "libc6", "libgcc-s1", "libm6",
                                     "libstdc++6", "zlib1g"}, needed)
        self.assertTrue({"openmpi-bin", "libopenmpi3"} <= names or {"mpich", "libmpich12"} <= names, needed)
        files = {line.split()[-1] for line in run("dpkg-deb", "--contents", self.mpi_package).splitlines() if not line.endswith("/")}
        self.assertEqual(files, {"./usr/bin/voxlith-run-mpi", "./usr/share/man/man1/voxlith-run-mpi.1",
                                 "./usr/share/doc/voxlith-mpi/copyright"})
        self.assertIn("voxlith-run-mpi", run(self.root / "usr/bin/voxlith-run-mpi", "--help", cwd=self.work))

    def test_every_kind_of_file_is_there(self):
        usr = self.root / "usr"
        for name in ("bin/voxlith", "bin/voxlith-run", "bin/voxlith-tools", "bin/voxlith-plot", "share/man/man1/voxlith.1",
                     "share/man/man1/voxlith-run.1", "share/man/man1/voxlith-tools.1", "share/man/man1/voxlith-plot.1", "share/man/man5/voxlith-inp.5", "share/man/man5/voxlith-mtx.5",
                     "share/doc/voxlith/LICENSE", "share/doc/voxlith/copyright", "share/doc/voxlith/CHANGELOG.md", "share/doc/voxlith/docs/formats.md",
                     "share/bash-completion/completions/voxlith-tools", "share/zsh/vendor-completions/_voxlith",
                     "share/fish/vendor_completions.d/voxlith-tools.fish", "include/voxlith_spline.h",
                     "libexec/voxlith/voxlith-forward", "lib/python3/dist-packages/voxlith/py.typed",
                     "lib/python3/dist-packages/voxlith/io/mtx_file.py", "lib/python3/dist-packages/voxlith/cli/tools.py",
                     "lib/python3/dist-packages/voxlith/report/page/report.js"):
            found = (usr / name).is_file() or (usr / (name + ".gz")).is_file()
            self.assertTrue(found, name)

    def test_installed_programs_recover_the_blocks(self):
        """The first example, with the installed programs in place of the build's."""
        build = self.work / "as-build"
        (build / "tools").mkdir(parents=True)
        (build / "voxlith").symlink_to(self.root / "usr/bin/voxlith")
        (build / "tools/voxlith-tools").symlink_to(self.root / "usr/bin/voxlith-tools")
        run(sys.executable, TOP / "examples/run_example.py", "two_blocks", "--build", build, "--work", self.work / "two_blocks", "--check")

    def test_installed_plot_program_finds_its_modules(self):
        text = run(self.root / "usr/bin/voxlith-plot", "--help", cwd=self.work)
        self.assertIn("convergence", text)

    def test_spline_library_is_found_by_another_project(self):
        client = self.work / "client"
        client.mkdir()
        shutil.copy(TOP / "tests/spline/plain_c_client.c", client)
        (client / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(client LANGUAGES C CXX)\nfind_package(voxlith_spline 2 REQUIRED)\n"
            "add_executable(client plain_c_client.c)\ntarget_link_libraries(client PRIVATE voxlith::voxlith_spline)\n")
        run("cmake", "-S", client, "-B", client / "build", f"-DCMAKE_PREFIX_PATH={self.root}/usr")
        run("cmake", "--build", client / "build")
        self.assertEqual(run(client / "build/client").strip(), "integral 6")

    def complete(self, *words):
        """What bash offers behind these words of a command line."""
        script = self.root / "usr/share/bash-completion/completions/voxlith-tools"
        code = (f'source "{script}"; compopt() {{ :; }}; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
                'handler=$(complete -p "$(basename "$1")" | sed "s/.*-F \\([^ ]*\\).*/\\1/"); "$handler"; printf "%s\\n" "${COMPREPLY[@]}"')
        return run("bash", "-c", code, "bash", *words, cwd=self.work).split()

    def test_completion_offers_subcommands_and_options(self):
        tools = self.root / "usr/bin/voxlith-tools"
        self.assertEqual(self.complete(tools, "pre"), ["predict"])
        self.assertIn("--tolerance", self.complete(tools, "mtx", "--to"))
        self.assertEqual(self.complete(tools, "mtx", "--type", "gx"), ["gxx", "gxy", "gxz"])
        self.assertEqual(self.complete(tools, "init", "--sign", ""), ["auto", "negative", "either", "positive"])
        (self.work / "mesh_of_mine.msh").touch()
        self.assertEqual(self.complete(tools, "mtx", "--mesh", "mesh_of"), ["mesh_of_mine.msh"])
        self.assertEqual(self.complete("voxlith", "voxlith.inp", "Tr"), ["Tradeoff="])

    def test_completion_offers_what_a_picture_can_be(self):
        plot = self.root / "usr/bin/voxlith-plot"
        self.assertIn("--only", self.complete(plot, "--on"))
        (self.work / "run of mine").mkdir()
        (self.work / "runlog.txt").touch()
        self.assertEqual(self.complete(plot, "run"), ["run", "of", "mine"])
        help_text = run(plot, "--help", cwd=self.work)
        for option in ("--only", "--format"):
            offered = self.complete(plot, ".", option, "")
            self.assertGreater(len(offered), 1)
            for word in offered:
                self.assertIn(word, help_text)
            self.assertEqual(self.complete(plot, ".", option, offered[0], offered[1]), [offered[1]])
        self.assertIn("runlog.txt", self.complete(plot, ".", "--true", "run"))

    def test_removal_leaves_nothing(self):
        """On a root of its own, so that the order of the tests does not matter."""
        second = self.work / "second-root"
        shutil.copytree(self.root / "var", second / "var")
        for path in (second / "var/lib/dpkg/info").glob("voxlith*"):
            path.unlink()
        (second / "var/lib/dpkg/status").write_text("")
        packages = {"voxlith": self.package, "voxlith-mpi": self.mpi_package} if self.mpi_package else {"voxlith": self.package}
        dpkg(second, "--install", *packages.values())
        self.assertIn("usr/bin/voxlith", files_below(second))
        dpkg(second, "--remove", *packages)
        left = [name for name in files_below(second) if not name.startswith("var/lib/dpkg") and name != "dpkg.log"]
        self.assertEqual(left, [])
        self.assertFalse((second / "usr").exists())


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("--build", type=pathlib.Path, required=True, help="folder of a finished build")
    given, rest = arguments.parse_known_args()
    BUILD = given.build.resolve()
    unittest.main(argv=[sys.argv[0], *rest])
