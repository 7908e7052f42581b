#!/usr/bin/env python3
"""Tests of comments.py. scripts/docs runs them first."""

import unittest

from comments import Filter


def filtered(*lines):
    return Filter("Some.h", list(lines)).run().rstrip("\n").split("\n")


class CommentsOfTheReference(unittest.TestCase):
    def test_a_comment_at_the_beginning_is_about_the_file(self):
        self.assertEqual(filtered("// Some: a header.", "#pragma once")[0], "/// @file Some.h Some: a header.")

    def test_a_comment_above_a_declaration_is_about_it(self):
        self.assertEqual(filtered("#pragma once", "// Does.", "void f();")[1:], ["/// Does.", "void f();"])

    def test_a_comment_covers_the_declarations_of_its_run(self):
        out = filtered("#pragma once", "// Do.", "void f();", "void g(int a,", "       int b);")
        self.assertEqual(out[1:], ["/// Do.", "void f();", "/** Do. */ void g(int a,", "       int b);"])

    def test_an_empty_line_ends_a_run(self):
        self.assertEqual(filtered("#pragma once", "// Does.", "void f();", "", "void g();")[4], "void g();")

    def test_a_type_ends_a_run(self):
        out = filtered("#pragma once", "// A pair.", "struct S {", "    int a;", "};", "void g();")
        self.assertEqual(out[3:], ["    int a;", "};", "void g();"])

    def test_a_body_ends_its_declaration(self):
        out = filtered("#pragma once", "// Reads.", "int f() {", "    // Quick.", "    return 1;", "}", "int g() { return 2; }")
        self.assertEqual(out[3], "    // Quick.")
        self.assertEqual(out[6], "/** Reads. */ int g() { return 2; }")

    def test_the_body_of_a_template_is_no_type(self):
        out = filtered("#pragma once", "template <class T>", "T f() {", "    // Quick.", "    return {};", "}", "int a; // a count")
        self.assertEqual((out[3], out[6]), ("    // Quick.", "int a; ///< a count"))

    def test_values_of_an_enumeration_are_declarations(self):
        out = filtered("#pragma once", "enum E {", "    kA, // the first", "    kB  // the second", "};")
        self.assertEqual(out[2:4], ["    kA, ///< the first", "    kB  ///< the second"])

    def test_a_comment_behind_a_declaration_is_about_it(self):
        self.assertEqual(filtered("#pragma once", "int a; // a count")[1], "int a; ///< a count")

    def test_a_comment_with_an_empty_line_below_stays(self):
        self.assertEqual(filtered("#pragma once", "// ---- Counts", "", "int a;")[1], "// ---- Counts")

    def test_code_in_backticks_stays_on_one_line(self):
        out = filtered("#pragma once", "// Call `delete", "// it` or not.", "void f();")
        self.assertEqual(out[1:3], ["/// Call `delete it`", "///  or not."])

    def test_access_specifiers_are_no_declarations(self):
        out = filtered("#pragma once", "class C {", "public:", "    // Does.", "    void f();", "};")
        self.assertEqual(out[3], "    /// Does.")

    def test_a_deleted_function_says_so(self):
        self.assertEqual(
            filtered("#pragma once", "struct S {", "    S(const S&) = delete;")[2],
            "/** Deleted: there is no such operation. */     S(const S&) = delete;",
        )

    def test_assertions_are_left_out(self):
        self.assertEqual(filtered("#pragma once", "static_assert(sizeof(int) == 4 &&", '  "{");', "int a;")[1:], ["", "", "int a;"])

    def test_angle_brackets_are_escaped_outside_backticks(self):
        self.assertEqual(filtered("#pragma once", "// A KvVector<T>, `a<b>`.", "int a;")[1], "/// A KvVector&lt;T&gt;, `a<b>`.")

    def test_a_repeated_comment_keeps_paragraphs_and_lists(self):
        out = filtered("#pragma once", "// Either:", "//  - one;", "//  - the", "//    other.", "//", "// O(1).", "void f();", "void g();")
        self.assertEqual(out[8], "/** Either: <ul> <li>one; </li> <li>the other. </li></ul> <p> O(1). */ void g();")


if __name__ == "__main__":
    unittest.main()
