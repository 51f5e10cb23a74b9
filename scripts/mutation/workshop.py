"""A worker's copy of the tree and its build, in which one fault at a time is tried."""

import filecmp
import os
import shutil
import time

from mutation.suite import ROOM_TESTS, Run, at_a_time, cases_of

# As optimised code is shipped, but neither debug data nor the slow passes.
CONFIGURATION = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=", "-DCMAKE_CXX_FLAGS=-O1",
                 "-DCMAKE_C_FLAGS=-O1", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
BINARY_MAGIC = (b"\x7fELF", b"!<ar")


class Unusable(Exception):
    """The tree cannot be tested for faults."""


class Workshop:
    def __init__(self, folder, children, suites, compilers):
        self.tree = os.path.join(folder, "tree")
        self.build = os.path.join(folder, "build")
        self.pristine = os.path.join(folder, "pristine")
        self.children = children
        self.suites = suites
        self.compilers = compilers
        self.cases = {}
        self.outputs = {}  # path below the build -> modification time
        self.spent = {"building": 0.0, "testing": 0.0}

    def prepare(self, root, files, rooms):
        """Brings copy and build up to date and learns the cases of the rooms' tests."""
        self._copy(root, files)
        status, output = self.children.run(
            ["cmake", "-S", self.tree, "-B", self.build, *CONFIGURATION])
        if status != 0:
            raise Unusable("cmake failed: " + output.strip()[-300:])
        if self._compile([f"zeb_{room}_test" for room in rooms]) != 0:
            raise Unusable("the unchanged tree does not build in " + self.build)
        self._keep_outputs()
        self.cases = {room: cases_of(self.children, self.build, room) for room in rooms}
        for room, cases in self.cases.items():
            if not cases:
                raise Unusable(f"ctest knows no case of {room}")

    def _copy(self, root, files):
        wanted = set(files)
        for folder, _, names in os.walk(self.tree):
            for name in names:
                path = os.path.join(folder, name)
                if os.path.relpath(path, self.tree) not in wanted:
                    os.remove(path)
        for name in files:
            source, target = os.path.join(root, name), os.path.join(self.tree, name)
            if not os.path.exists(target) or not filecmp.cmp(source, target, shallow=False):
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copy(source, target)

    def _compile(self, targets):
        status, self.output = self.children.run(
            ["cmake", "--build", self.build, "-j", str(self.compilers), "--target", *targets])
        return status

    def _keep_outputs(self):
        """Keeps what the unchanged tree builds to, for putting it back without compiling."""
        shutil.rmtree(self.pristine, ignore_errors=True)
        for folder, _, names in os.walk(self.build):
            for name in names:
                path = os.path.join(folder, name)
                with open(path, "rb") as file:
                    if file.read(4) not in BINARY_MAGIC:
                        continue
                relative = os.path.relpath(path, self.build)
                self.outputs[relative] = os.stat(path).st_mtime_ns
                kept = os.path.join(self.pristine, relative)
                os.makedirs(os.path.dirname(kept), exist_ok=True)
                shutil.copy2(path, kept)

    def _changed_outputs(self):
        def time_of(relative):
            try:
                return os.stat(os.path.join(self.build, relative)).st_mtime_ns
            except FileNotFoundError:
                return None
        return [path for path, then in self.outputs.items() if time_of(path) != then]

    def _put_back(self, output):
        # Renamed into place, since a program that is still dying cannot be written to.
        copy = os.path.join(self.build, output + ".kept")
        shutil.copy2(os.path.join(self.pristine, output), copy)
        os.replace(copy, os.path.join(self.build, output))

    def _same_objects(self, changed):
        objects = [path for path in changed if path.endswith(".o")]
        return bool(objects) and all(
            filecmp.cmp(os.path.join(self.build, path), os.path.join(self.pristine, path),
                        shallow=False) for path in objects)

    def check(self):
        """Name of a case that fails in the unchanged tree, or None."""
        for room, cases in self.cases.items():
            failed = Run(self.children, self.suites, at_a_time(room)).first_failure(cases)
            if failed:
                return failed
        return None

    def judge(self, mutant):
        """What becomes of a fault: (verdict, name of the case that noticed it)."""
        path = os.path.join(self.tree, mutant.file)
        with open(path, encoding="utf-8", newline="") as file:
            text = file.read()
        times = os.stat(path)
        try:
            with open(path, "w", encoding="utf-8", newline="") as file:
                file.write(mutant.apply(text))
            return self._judge_in_place(mutant)
        finally:
            # The outputs first: a copy that is left behind half restored then builds anew.
            for output in self._changed_outputs():
                self._put_back(output)
            with open(path, "w", encoding="utf-8", newline="") as file:
                file.write(text)
            os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))

    def _judge_in_place(self, mutant):
        room = mutant.file.split("/")[0]
        for tests in (name for name in ROOM_TESTS[room] if name in self.cases):
            began = time.monotonic()
            status = self._compile([f"zeb_{tests}_test"])
            changed = self._changed_outputs()
            self.spent["building"] += time.monotonic() - began
            if status != 0:
                return "not compiled", ""
            if f"zeb_{tests}_test" not in changed:
                continue
            if self._same_objects(changed):
                return "same code", ""
            began = time.monotonic()
            cases = self.suites.in_order(self.cases[tests], mutant.file)
            failed = Run(self.children, self.suites, at_a_time(tests)).first_failure(cases)
            self.spent["testing"] += time.monotonic() - began
            if failed:
                with self.suites.lock:
                    self.suites.kills[failed.removesuffix(" (timeout)")] += 1
                return "killed", failed
        return "survived", ""
