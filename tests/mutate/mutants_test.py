# SPDX-License-Identifier: Apache-2.0
"""Tests that the faults found in a source are those that are meant."""

import sys
import unittest

sys.dont_write_bytecode = True
from mutants import mutants_of  # noqa: E402


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

    def test_numbers_and_texts_change(self):
        self.assertEqual(faults(body("x = 16;"), "constant"), {"x = 17;"})
        self.assertEqual(faults(body("x = 0x80U;"), "constant"), {"x = 0x81U;"})
        self.assertEqual(faults(body('say("a");'), "text"), {'say("a~");'})
        self.assertEqual(faults(body("x = ';';"), "text"), {"x = '~';"})

    def test_arguments_change_places_and_parameters_do_not(self):
        self.assertEqual(faults(body("call(a, b + 1);"), "operands"), {"call(b + 1, a);"})
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


if __name__ == "__main__":
    unittest.main()
