"""Which faults scripts/mutants makes of literal snippets."""

import os
import select
import signal
import subprocess
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "scripts"))

from mutation.children import Children, Stopped  # noqa: E402
from mutation.kinds import idle_constants, mutants_of, mutants_of_text, used_names  # noqa: E402
from mutation.lexer import Source  # noqa: E402
from mutation.report import Report  # noqa: E402


def body(statements):
    return "void f() {\n" + statements + "\n}\n"


class Kinds(unittest.TestCase):
    def assert_made(self, text, expected):
        self.assertEqual(sorted(expected), sorted(mutants_of_text(text)))

    def assert_made_in_body(self, text, expected):
        self.assert_made(body(text), [(kind, body(after)) for kind, after in expected])

    def test_comparison_moves_its_border_and_turns_round(self):
        self.assert_made_in_body("bool x = a < b;", [("comparison", "bool x = a <= b;"),
                                                     ("comparison", "bool x = a >= b;")])

    def test_constants_move_by_one_and_keep_their_form(self):
        self.assert_made("constexpr int kA = 0x0F;\n", [("constant", "constexpr int kA = 0x10;\n"),
                                                       ("constant", "constexpr int kA = 0x0E;\n")])
        self.assert_made("constexpr double kB = 8.5;\n",
                         [("constant", "constexpr double kB = 9.5;\n"),
                          ("constant", "constexpr double kB = 7.5;\n")])
        self.assert_made("bool c = true;\n", [("constant", "bool c = false;\n")])
        self.assert_made("char d = '1';\n", [("constant", "char d = 'x';\n")])

    def test_a_zero_has_no_lower_neighbour(self):
        self.assert_made("int a = 0u;\n", [("constant", "int a = 1u;\n")])

    def test_operators_change_within_their_family(self):
        self.assert_made("int x = a + b;\n", [("sign", "int x = a - b;\n")])
        self.assert_made("int x = -b;\n", [("sign", "int x = b;\n")])
        self.assert_made("int x = a * b;\n", [("arithmetic", "int x = a / b;\n")])
        self.assert_made("int x = a << b;\n", [("bits", "int x = a >> b;\n")])
        self.assert_made("int x = ~b;\n", [("bits", "int x = b;\n")])
        self.assert_made("bool x = a && !b;\n", [("logical", "bool x = a || !b;\n"),
                                                ("logical", "bool x = a && b;\n")])

    def test_types_and_pointers_are_no_operators(self):
        self.assert_made("std::map<int, char*>& f(int&& a, const char* b);\n", [])

    def test_a_condition_is_negated_unless_another_kind_does_it(self):
        self.assert_made_in_body("if (ready()) {\n}",
                                 [("logical", "if (!(ready())) {\n}")])
        self.assert_made_in_body("while (a == b) {\n}", [("comparison", "while (a != b) {\n}")])
        self.assert_made_in_body("if (Node* node = next()) {\n}", [])

    def test_statements_are_deleted_but_declarations_kept(self):
        self.assert_made_in_body("Lock lock(mutex);\nint a{};\nconst auto b = c;\na = b;",
                                 [("deleted statement",
                                   "Lock lock(mutex);\nint a{};\nconst auto b = c;\n;")])
        self.assert_made_in_body("delete a;", [("deleted statement", ";")])
        self.assert_made("class A {\n    A();\n};\n", [])

    def test_a_loop_head_holds_no_statement(self):
        self.assert_made_in_body("for (;; next()) {\n}", [])

    def test_statements_of_a_lambda_are_found(self):
        self.assert_made_in_body("const auto send = [&] { go(); };",
                                 [("deleted statement", "const auto send = [&] { ; };")])

    def test_arguments_are_swapped_in_pairs(self):
        self.assert_made_in_body("return f<a, b>(c, g(d), d);",
                                 [])
        self.assert_made_in_body("return f(c, g<a, b>(d), c);",
                                 [("swapped arguments", "return f(g<a, b>(d), c, c);"),
                                  ("swapped arguments", "return f(c, c, g<a, b>(d));")])
        self.assert_made_in_body('return std::max(a, b) ? f("text", a) : f(a, a);', [])

    def test_statements_are_swapped_when_their_order_may_show(self):
        self.assert_made_in_body("a = b;\nb = c;", [
            ("deleted statement", ";\nb = c;"), ("deleted statement", "a = b;\n;"),
            ("swapped statements", "b = c;\na = b;")])
        self.assert_made_in_body("r.a = b;\nr.c = b;", [
            ("deleted statement", ";\nr.c = b;"), ("deleted statement", "r.a = b;\n;")])

    def test_a_cast_is_no_call_whose_order_may_show(self):
        made = mutants_of_text(body("r.a = static_cast<int>(b);\nr.c = static_cast<int>(d);"))
        self.assertNotIn("swapped statements", [kind for kind, _ in made])

    def test_log_levels_are_exchanged(self):
        made = mutants_of_text(body("return ZEB_LOG(kInfo, kText);"))
        self.assertIn(("log level", body("return ZEB_LOG(kError, kText);")), made)

    def test_what_does_not_run_is_left_alone(self):
        self.assert_made('#define A 1 + \\\n    2\n#include "b-1.h"\n// 1 < 2\n/* 3\n 4 */\n'
                         'static_assert(sizeof(A) == 4, "four");\nenum B { kB = 1 };\n'
                         'using C = D<3>;\nvirtual int e() = 0;\nconst char* f = "1 + 2";\n'
                         'ASSERT_OFFSET(a, 12);\nE g = {};\n[[gnu::aligned(4)]] int h;\n', [])
        self.assert_made_in_body("list.reserve(4);", [])

    def test_a_constant_that_only_an_assertion_reads_is_left_alone(self):
        source = Source('constexpr int kSize = 4;\nstatic_assert(kSize == 4, "four");\n')
        idle = idle_constants(source, used_names([source]))
        self.assertEqual([], mutants_of("a.h", source, idle))
        other = Source("int size() { return kSize; }\n")
        idle = idle_constants(source, used_names([source, other]))
        self.assertEqual(2, len(mutants_of("a.h", source, idle)))


class Reports(unittest.TestCase):
    TEXT = "int a = 1;\nint x = b + c;\nint d = 2;\n"

    def test_a_survivor_shows_its_line_before_and_after(self):
        report = Report(1, 0, {"a/a.cpp": self.TEXT})
        mutant = [m for m in mutants_of("a/a.cpp", Source(self.TEXT)) if m.kind == "sign"][0]
        report.add(mutant, "survived", "")
        self.assertEqual([("a/a.cpp", 2, "int x = b + c;", "int x = b - c;")],
                         [(r["file"], r["line"], r["before"], r["after"]) for r in report.results])

    def test_only_faults_that_can_show_count(self):
        report = Report(3, 0, {"a/a.cpp": self.TEXT})
        mutants = mutants_of("a/a.cpp", Source(self.TEXT))
        for mutant, verdict in zip(mutants, ("killed", "survived", "not compiled", "same code")):
            report.add(mutant, verdict, "")
        self.assertEqual((1, 2), report.score("a"))
        self.assertEqual((0, 0), report.score("b"))
        self.assertEqual(50.0, report.percent())


class ChildProcesses(unittest.TestCase):
    def test_stopping_ends_descendants_and_starts_no_more(self):
        children = Children()
        child = children.start(["sh", "-c", "sleep 60 & echo started; wait"],
                               stdout=subprocess.PIPE, text=True)
        self.assertEqual("started\n", child.stdout.readline())
        children.stop()
        child.wait()
        # The pipe ends once no descendant holds it.
        self.assertEqual("", child.stdout.read())
        child.stdout.close()
        self.assertRaises(Stopped, children.start, ["true"])

    def test_stopping_lets_a_build_end_what_it_put_into_other_groups(self):
        children = Children()
        child = children.start(
            ["bash", "-c", "set -m; sleep 60 & trap 'kill $!; exit' TERM; echo started; wait"],
            stdout=subprocess.PIPE, text=True)
        self.assertEqual("started\n", child.stdout.readline())
        children.stop()
        child.wait()
        # The pipe ends once no descendant holds it.
        ended, _, _ = select.select([child.stdout], [], [], 10)
        self.assertEqual([child.stdout], ended)
        child.stdout.close()

    def test_stopping_ends_what_does_not_heed_the_request(self):
        children = Children()
        child = children.start(["sh", "-c", "trap '' TERM; echo started; while :; do sleep 1; done"],
                               stdout=subprocess.PIPE, text=True)
        self.assertEqual("started\n", child.stdout.readline())
        children.stop()
        self.assertEqual(-signal.SIGKILL, child.wait())
        child.stdout.close()


if __name__ == "__main__":
    unittest.main()
