"""That each breach of the floors is found, on literal snippets."""

import os
import tempfile
import unittest

import floors
import house_test

INCLUDE = '#include "{}"\n'


def files(**rooms):
    """files(base_a_h="...") is {"base/a.h": "..."}."""
    return {name.replace("__", "/").replace("_h", ".h").replace("_cpp", ".cpp"): text
            for name, text in rooms.items()}


class Includes(unittest.TestCase):
    def assert_upward(self, expected, tree):
        self.assertEqual(expected, [finding.split(": ")[0]
                                    for finding in floors.upward_includes(tree)])

    def test_run_downwards_and_within_a_room(self):
        self.assert_upward([], files(
            base__a_h="", ptp__b_h=INCLUDE.format("base/a.h"),
            ptp__c_cpp=INCLUDE.format("ptp/b.h"), tools__d_cpp=INCLUDE.format("ptp/b.h")))

    def test_upwards_are_found_with_file_line_and_what_is_allowed(self):
        tree = files(ptp__b_h="", wire__a_cpp="#include <map>\n\n" + INCLUDE.format("ptp/b.h"))
        self.assertEqual(["wire/a.cpp:3: includes ptp/b.h: wire/ may include include, base, wire"],
                         floors.upward_includes(tree))

    def test_rooms_of_one_floor_do_not_see_each_other(self):
        for one, other in (("timebase", "platform"), ("platform", "timebase")):
            self.assert_upward([f"{one}/b.cpp:1"], {
                f"{other}/a.h": "", f"{one}/b.cpp": INCLUDE.format(f"{other}/a.h")})

    def test_the_profile_lies_between_handlers_and_control(self):
        tree = files(ptp__a_h="", profile__b_h=INCLUDE.format("ptp/a.h"),
                     api__c_h=INCLUDE.format("profile/b.h"))
        self.assert_upward([], tree)
        tree["ptp/d.cpp"] = INCLUDE.format("profile/b.h")
        self.assert_upward(["ptp/d.cpp:1"], tree)

    def test_what_hosts_include_is_open_to_all_and_rests_on_nothing(self):
        tree = files(include__a_h="", include__b_h=INCLUDE.format("a.h"), base__c_h="",
                     base__d_cpp=INCLUDE.format("include/a.h"))
        self.assert_upward([], tree)
        tree["include/e.h"] = INCLUDE.format("base/c.h")
        self.assert_upward(["include/e.h:1"], tree)

    def test_the_shared_block_is_open_above_wire_only(self):
        shared = INCLUDE.format("api/InterfaceDataManager.h")
        tree = {"api/InterfaceDataManager.h": "", "api/DaemonState.h": "",
                "platform/a.cpp": shared, "timebase/b.cpp": shared, "ptp/c.h": shared}
        self.assert_upward([], tree)
        tree["base/d.cpp"] = tree["wire/e.cpp"] = shared
        tree["ptp/f.cpp"] = INCLUDE.format("api/DaemonState.h")
        self.assert_upward(["base/d.cpp:1", "ptp/f.cpp:1", "wire/e.cpp:1"], tree)

    def test_a_detour_through_the_parent_folder_is_seen(self):
        self.assert_upward(["base/b.cpp:1"], files(
            ptp__a_h="", base__b_cpp=INCLUDE.format("../ptp/a.h")))

    def test_a_file_outside_the_rooms_is_found(self):
        self.assert_upward(["base/a.cpp:1"], files(base__a_cpp=INCLUDE.format("tests/a.h")))

    def test_an_include_in_a_comment_is_none(self):
        self.assert_upward([], files(
            api__a_h="", base__b_cpp="/*\n" + INCLUDE.format("api/a.h") + "*/\n"))

    def test_folders_that_include_each_other_are_found(self):
        tree = {"tools/one/a.h": "", "tools/two/b.h": INCLUDE.format("tools/one/a.h")}
        self.assertEqual([], floors.mutual_includes(tree))
        tree["tools/one/c.cpp"] = "\n" + INCLUDE.format("tools/two/b.h")
        self.assertEqual(
            ["tools/one/c.cpp:2: tools/one/ includes tools/two/, which includes tools/one/ at "
             "tools/two/b.h:1: folders may include each other in one direction only"],
            floors.mutual_includes(tree))

    def test_the_main_source_of_a_program_makes_no_pair(self):
        self.assertEqual([], floors.mutual_includes({
            "tools/a/b.h": "", "tools/a/run/c.h": INCLUDE.format("tools/a/b.h"),
            "tools/a/main.cpp": INCLUDE.format("tools/a/run/c.h")}))

    def test_the_shared_block_makes_no_pair(self):
        self.assertEqual([], floors.mutual_includes({
            "api/InterfaceDataManager.h": "", "ptp/a.h": INCLUDE.format(floors.SHARED),
            "api/b.cpp": INCLUDE.format("ptp/a.h")}))


class Words(unittest.TestCase):
    def test_extern_in_a_source_is_found(self):
        found = floors.externs(files(base__a_cpp="int a;\n  extern char b;\n"))
        self.assertEqual(["base/a.cpp:2"], [finding.split(": ")[0] for finding in found])

    def test_extern_in_header_comment_or_text_is_allowed(self):
        self.assertEqual([], floors.externs(files(
            base__a_h="extern int a;\n",
            base__b_cpp='// extern\n/* extern */\nconst char* c = "extern";\nint externs;\n')))

    def test_visibility_by_pragma_is_found(self):
        found = floors.visibility_pragmas(files(
            base__a_h="\n#pragma GCC visibility push(default)\n",
            base__b_cpp='_Pragma("GCC visibility pop")\n',
            base__c_h="#pragma once\n// #pragma GCC visibility pop\n"))
        self.assertEqual(["base/a.h:2", "base/b.cpp:1"],
                         [finding.split(": ")[0] for finding in found])


class Lengths(unittest.TestCase):
    def test_four_hundred_lines_are_allowed_and_one_more_is_not(self):
        self.assertEqual(["base/b.cpp:401: 401 lines: 400 at most"], floors.long_files(files(
            base__a_cpp="\n" * 400, base__b_cpp="\n" * 401)))


class HeadersAlone(unittest.TestCase):
    def findings(self, text, room="base"):
        with tempfile.TemporaryDirectory() as folder:
            os.mkdir(os.path.join(folder, room))
            header = os.path.join(room, "a.h")
            with open(os.path.join(folder, header), "w", encoding="utf-8") as file:
                file.write(text)
            root, house_test.ROOT = house_test.ROOT, folder
            try:
                return house_test.headers_alone([header], "c++", "cc", [])
            finally:
                house_test.ROOT = root

    def test_a_header_that_names_what_it_does_not_include_is_found(self):
        self.assertEqual([], self.findings("#pragma once\n#include <string>\nstd::string f();\n"))
        found = self.findings("#pragma once\nstd::string f();\n")
        self.assertEqual(["base/a.h:1"], [finding.split(": ")[0] for finding in found])
        self.assertIn("as c++17", found[0])

    def test_what_hosts_include_is_c_as_well(self):
        self.assertEqual([], self.findings("#pragma once\nint f(int a);\n", "include"))
        found = self.findings("#pragma once\nclass A;\n", "include")
        self.assertIn("as c99", found[0])


if __name__ == "__main__":
    unittest.main()
