#!/usr/bin/env python3
"""What is installed serves hosts from there, whatever name they know the library by, and goes again.

Usage: install.py BUILD_FOLDER [CASE...]
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/tsyn"))

import programs  # noqa: E402
from network import BUILD, CABLE_NS, MASTER_IF, SLAVE_IF, WAIT_S, other_build  # noqa: E402
from simulated import EPOCH_S, Simulated  # noqa: E402

HOST = ROOT / "examples/host.c"
I386 = other_build()
# As make install: what there is once comes from this build.
BUILDS = {BUILD: ((),)}
ABIS = {"x86_64-linux-gnu": "-m64"}
if I386 is not None and (I386 / "packaging/libZebEthTimeSynDaemon.so").exists():
    BUILDS[I386] = tuple(("--component", name) for name in ("library", "development", "card"))
    ABIS["i386-linux-gnu"] = "-m32"


def run(*words, **environment):
    done = subprocess.run([str(word) for word in words], env={**os.environ, **environment},
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise AssertionError(f"{words[0]} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def manifests():
    return sorted(path for build in BUILDS for path in build.glob("install_manifest*.txt"))


def install(prefix, **environment):
    for build, parts in BUILDS.items():
        for part in parts:
            run("cmake", "--install", build, "--prefix", prefix, *part, **environment)


def uninstall(*words, **environment):
    return subprocess.run([str(word) for word in (ROOT / "scripts/uninstall", *words)], text=True,
                          env={**os.environ, **environment}, capture_output=True, check=False)


class Installation(unittest.TestCase):
    """An empty folder; what the user's own installation has noted stays."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        kept = {path: path.read_bytes() for path in manifests()}
        cls.addClassCleanup(lambda: [path.write_bytes(text) for path, text in kept.items()])
        cls.addClassCleanup(lambda: [path.unlink() for path in manifests()])
        for path in kept:
            path.unlink()


class Hosts(Installation, Simulated):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.prefix = cls.folder / "prefix"
        install(cls.prefix)
        for triplet, flag in ABIS.items():
            cls.gather(triplet, flag)

    @classmethod
    def libraries(cls, triplet):
        return cls.prefix / "lib" / triplet

    @classmethod
    def gather(cls, triplet, flag):
        """A folder of that ABI with the hosts that were linked anew and what runs them."""
        place = cls.folder / triplet
        place.mkdir()
        for name, target in (("tsyn", cls.prefix / "bin/tsyn"), *(
                (path.name, path) for path in cls.libraries(triplet).glob("libvirtual*"))):
            (place / name).symlink_to(target)
        known = {"PKG_CONFIG_LIBDIR": str(cls.libraries(triplet) / "pkgconfig")}
        flags = run("pkg-config", "--cflags", "--libs", "ZebEthTimeSyn", **known).split()
        for source in (HOST, ROOT / "tests/packaging/one_library.c"):
            run("cc", flag, "-std=c99", source, *flags, "-ldl", "-o", place / source.stem)

    def assert_follows(self, program, triplet):
        host = self.start(SLAVE_IF, program=program, build=self.folder / triplet)
        _, errors = host.communicate(timeout=WAIT_S)
        self.assertEqual(host.returncode, 0, errors)
        times = [float(line) for line in errors.splitlines() if line.replace(".", "").isdigit()]
        self.assertEqual(len(times), 10, errors)
        self.assertGreater(times[-1], EPOCH_S)

    def setUp(self):
        # For the hosts, which the timekeeper starts.
        path = ":".join(str(self.libraries(triplet)) for triplet in ABIS)
        os.environ["LD_LIBRARY_PATH"] = path
        self.addCleanup(os.environ.pop, "LD_LIBRARY_PATH")
        super().setUp()

    def assert_needs(self, name, program):
        self.assertIn(f"[{name}]", run("readelf", "-d", program))

    def test_slaves_of_every_origin_follow_the_installed_master(self):
        place = self.folder / next(iter(ABIS))
        shutil.copy(BUILD / "example_host", place / "old_host")
        master = self.start("run", MASTER_IF, "--role", "master", "--json", build=place)
        self.wait_for_state(master, "sending")
        slave = self.start("run", SLAVE_IF, "--role", "slave", "--json", "--propagation-delay",
                           CABLE_NS, build=place)
        self.wait_for_state(slave, "synchronised")
        self.end(slave)
        self.assert_needs("libZebEthTimeSynDaemon.so", place / "old_host")
        self.assert_follows("old_host", place.name)
        for triplet in ABIS:
            self.assert_needs("libZebEthTimeSynDaemon.so.1", self.folder / triplet / "host")
            self.assert_follows("host", triplet)
        self.end(master)

    def test_given_name_and_versioned_name_are_one_library(self):
        for triplet in ABIS:
            with self.subTest(triplet):
                run(self.folder / triplet / "one_library")

    def test_tsyn_finds_the_library_by_itself(self):
        told = run("env", "-u", "LD_LIBRARY_PATH", self.prefix / "bin/tsyn", "--help")
        self.assertIn("run", told)

    def test_pkg_config_tells_the_same_when_it_defines_the_prefix(self):
        for triplet in ABIS:
            known = {"PKG_CONFIG_LIBDIR": str(self.libraries(triplet) / "pkgconfig")}
            for option in ((), ("--define-prefix",)):
                with self.subTest(triplet, option=option):
                    told = run("pkg-config", *option, "--variable=libdir", "ZebEthTimeSyn", **known)
                    self.assertEqual(pathlib.Path(told.strip()).resolve(),
                                     self.libraries(triplet).resolve())

    def test_cmake_finds_the_package_of_each_abi(self):
        for triplet, flag in ABIS.items():
            with self.subTest(triplet):
                build = self.folder / f"consumer-{triplet}"
                run("cmake", "-G", "Ninja", "-S", ROOT / "tests/packaging/consumer", "-B", build,
                    f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_C_FLAGS={flag}",
                    f"-DCMAKE_LIBRARY_ARCHITECTURE={triplet}", f"-DHOST_SOURCE={HOST}")
                run("cmake", "--build", build)
                self.assert_needs("libZebEthTimeSynDaemon.so.1", build / "cmake_host")


class Removal(Installation):
    def left(self):
        return [str(path) for path in self.folder.rglob("*")
                if path.is_symlink() or not path.is_dir() or "ZebEthTimeSyn" in path.name]

    def test_takes_what_was_installed_and_nothing_else(self):
        # Without DESTDIR, such a prefix is nowhere.
        install(self.folder / "prefix", DESTDIR=str(self.folder))
        placed = self.folder / self.folder.relative_to("/") / "prefix"
        self.assertTrue((placed / "lib/x86_64-linux-gnu/libZebEthTimeSynDaemon.so").exists())
        others = placed / "include/others.h"
        others.touch()
        missed = uninstall(*manifests())
        self.assertEqual((missed.returncode, missed.stderr.count("\n")), (1, 1), missed.stderr)
        self.assertIn("DESTDIR", missed.stderr)
        done = uninstall(*manifests(), DESTDIR=str(self.folder))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual((self.left(), manifests()), ([str(others)], []))

    def test_without_an_installation_one_line_says_so(self):
        done = uninstall()
        self.assertEqual((done.returncode, done.stdout, done.stderr.count("\n")), (1, "", 1))
        self.assertIn("make install", done.stderr)


if __name__ == "__main__":
    programs.main(__file__)
