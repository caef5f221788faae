# SPDX-License-Identifier: Apache-2.0
"""Tests that the faults found in a source are those that are meant, and that they can be woven."""

import pathlib
import subprocess
import sys
import tempfile
import types
import unittest
import unittest.mock

sys.dont_write_bytecode = True
import schemata  # noqa: E402
import worktree  # noqa: E402
from mutants import mutants_of, places  # noqa: E402


def faults(source, kind=None):
    """The lines that come of it, without the one that was there."""
    found = [m for m in mutants_of(source) if kind in (None, m.kind)]
    return {m.before_and_after(source)[1] for m in found}


def body(*lines):
    return "void f() {\n" + "".join(f"    {line}\n" for line in lines) + "}\n"


class Faults(unittest.TestCase):
    def test_comparisons_are_turned_and_their_bounds_moved(self):
        self.assertIn("if (a != b) {", faults(body("if (a == b) {", "}")))
        self.assertIn("while (a <= b) {", faults(body("while (a < b) {", "}")))
        self.assertIn("x = a > b;", faults(body("x = a >= b;")))

    def test_conditions_are_negated_but_not_twice(self):
        self.assertIn("if (!(a && b)) {", faults(body("if (a && b) {", "}")))
        self.assertEqual(faults(body("if (a == b) {", "}"), "negation"), set())
        self.assertEqual(faults(body("if (!a) {", "}"), "negation"), {"if (a) {"})

    def test_statements_are_dropped_and_declarations_are_not(self):
        dropped = faults(body("open(a);", "const int b = c;", "std::string d;", "d = b;"), "drop")
        self.assertEqual(dropped, {";"})
        self.assertEqual(len([m for m in mutants_of(body("const int b = c;")) if m.kind == "drop"]), 0)

    def test_neighbouring_calls_change_places(self):
        self.assertEqual(faults(body("second();", "first();"), "order"), {"first(); second();"})
        self.assertEqual(faults(body("a();", "if (b) {", "c();", "}"), "order"), set())

    def test_statements_whose_order_nobody_can_tell_stay_where_they_are(self):
        for lines in (
            ("Reader inside;", "take(a);"),
            ("f.a = b.c;", "f.d = b->e;"),
            ("char* a = nullptr;", "long b = 0;"),
        ):
            self.assertEqual(faults(body(*lines), "order"), set(), lines)
        for lines in (
            ("a = b;", "c = a;"),
            ("a = b;", "take(c);"),
            ("close(a);", "const Errno cause;"),
            ("Reader inside;", "take(inside);"),
        ):
            self.assertEqual(len(faults(body(*lines), "order")), 1, lines)
        for lines, count in ((("First a_;", "Second b_;"), 1), (("void a();", "void b();"), 0)):
            text = "class A {\n" + "".join(f"    {line}\n" for line in lines) + "};\n"
            self.assertEqual(len(faults(text, "order")), count)
            self.assertEqual(faults(text, "drop"), set())

    def test_numbers_and_texts_change(self):
        self.assertEqual(faults(body("x = 16;"), "constant"), {"x = 17;"})
        self.assertEqual(faults(body("x = 0x80U;"), "constant"), {"x = 0x81U;"})
        self.assertEqual(faults(body('say("a");'), "text"), {'say("a~");'})
        self.assertEqual(faults(body("x = ';';"), "text"), {"x = '~';"})

    def test_arguments_change_places_and_parameters_do_not(self):
        self.assertEqual(faults(body("call(a, b + 1);"), "operands"), {"call(b + 1, a);"})
        self.assertEqual(faults(body("x = std::min(a, b);"), "operands"), set())
        self.assertEqual(faults("void f(int a, const Text& b) {\n}\n", "operands"), set())

    def test_comments_texts_and_what_no_test_can_see_are_left_alone(self):
        self.assertEqual(faults("// a == b\n"), set())
        self.assertEqual(faults('#include "a/b.h"\n'), set())
        self.assertEqual(faults("static_assert(sizeof(a) == 16);\n"), set())
        self.assertEqual(faults(body('say("a == b");'), "comparison"), set())

    def test_each_fault_changes_one_place_of_the_source(self):
        source = body("if (a == 1 && b) {", "call(a, b);", "return;", "}")
        for mutant in mutants_of(source):
            changed = mutant.applied(source)
            self.assertNotEqual(changed, source)
            self.assertEqual(changed[: mutant.start], source[: mutant.start])
            self.assertTrue(changed.endswith(source[mutant.end :]))

    def test_a_fault_is_known_again_until_its_own_function_changes(self):
        other, function = "int g() {\n    return 1;\n}\n\n", "int f() {\n    return 2;\n}\n"

        def keys(source):
            return {m.text: m.key("a.cpp", source) for m in mutants_of(source)}

        alone = keys(function)["3"]
        self.assertEqual(keys(other + function)["3"], alone)
        self.assertEqual(keys(function.replace("return", "// Why.\n    return"))["3"], alone)
        self.assertNotEqual(keys(function.replace("int f", "int h"))["3"], alone)

    def test_a_fault_has_a_place_that_is_its_own(self):
        source = (
            "constexpr int a = 1;\n\nint A::f(int b) {\n    if (b) {\n        return 1;\n    }\n"
            "    return 1;\n}\n\nA::~A() {\n    end(1);\n}\n"
        )
        found = [m for m in mutants_of(source) if m.kind == "constant"]
        self.assertEqual(list(places(source, found)), ["", "f", "f 2", "~A"])


SOURCE = """#include <cstdio>
namespace {
constexpr int three = 3;
constexpr int four = three + 1;
constexpr int two = 2;
constexpr int added(int a) { return a + 10; }
struct Counter {
    explicit Counter(int start) : count{start} {
        count += 1;
    }
    int count;
    int first = 7;
};
int doubled(int a) {
    return a * two;
}
int halved(int a) {
    return a / two;
}
}
int main() {
    std::printf("%d %d %d %d %d", doubled(four), added(1), Counter(5).count, halved(6),
        Counter(0).first);
}
"""


def numbered(source):
    return list(enumerate(schemata.weavable(source, mutants_of(source)), 1))


class Weaving(unittest.TestCase):
    def woven_program(self, source, faults):
        """What the compiler says, and the program."""
        directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (directory / schemata.HEADER).write_text(schemata.HEADER_TEXT)
        (directory / "a.cpp").write_text(schemata.woven(source, "a.cpp", faults))
        command = ["g++", "-std=c++20", "-w", directory / "a.cpp", "-o", directory / "a"]
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        return result.stderr, directory / "a"

    def said(self, program, number):
        environment = {schemata.ENVIRONMENT: str(number)}
        return subprocess.run([program], env=environment, capture_output=True, text=True).stdout

    def test_a_function_does_what_the_number_says_and_otherwise_what_it_did(self):
        faults = [(number, m) for number, m in numbered(SOURCE) if m.kind != "operands"]
        errors, program = self.woven_program(SOURCE, faults)
        self.assertEqual(errors, "")
        self.assertEqual(self.said(program, 0), "8 11 6 3 7")
        said = {m.before_and_after(SOURCE)[1]: self.said(program, number) for number, m in faults}
        self.assertEqual(said["return a + two;"], "6 11 6 3 7")
        self.assertEqual(said["count -= 1;"], "8 11 4 3 7")
        self.assertEqual(said["constexpr int two = 3;"], "12 11 6 2 7")
        self.assertEqual(said["int first = 8;"], "8 11 6 3 8")

    def test_what_the_compiler_has_to_know_is_not_woven(self):
        woven = {m.before_and_after(SOURCE)[1] for _, m in numbered(SOURCE)}
        self.assertNotIn("constexpr int three = 4;", woven)  # another constant is made of it
        self.assertFalse([text for text in woven if "added(int a)" in text])
        without_numbers = schemata.weavable(SOURCE, mutants_of(SOURCE), numbers=False)
        left = {m.before_and_after(SOURCE)[1] for m in without_numbers}
        self.assertEqual(woven - left, {"int first = 8;"})
        self.assertFalse(numbered("auto f() {\n    return 1;\n}\n"))
        self.assertFalse(numbered("const Table table{\n    1,\n};\n"))

    def test_faults_that_do_not_compile_are_named_by_the_compiler(self):
        source = (
            "struct A {};\nint f(A a, int b) {\n    return b;\n}\n"
            "int main() {\n    f(A{}, 1);\n}\n"
        )
        faults = numbered(source)
        errors, _ = self.woven_program(source, faults)
        refused = [number for number, m in faults if m.kind == "operands"]
        self.assertEqual(schemata.numbers_in_errors(errors), set(refused))
        self.assertEqual(len(refused), 1)


class Copy(unittest.TestCase):
    """Of the sources, which the faults are put into."""

    def test_sources_with_faults_keep_them_and_are_there_from_the_beginning(self):
        directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        source, copy = directory / "source", directory / "copy"
        source.mkdir()
        listing = types.SimpleNamespace(stdout="a.cpp\nb.cpp\n")
        with unittest.mock.patch.multiple(
            worktree, ROOT=source, TREE=copy, run=lambda *_, **__: listing
        ):
            for text in ("first", "second"):
                for name in ("a.cpp", "b.cpp"):
                    (source / name).write_text(text)
                worktree.copy_tree({"a.cpp"})
        self.assertEqual((copy / "a.cpp").read_text(), "first")
        self.assertEqual((copy / "b.cpp").read_text(), "second")


if __name__ == "__main__":
    unittest.main()
