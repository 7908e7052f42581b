#!/usr/bin/env python3
"""Doxygen's filter for the public headers: makes their plain comments comments of the reference.

Reads one header and writes it with as many lines, since Doxygen reports places by line numbers.

- The comment at the beginning of a file is about the file.
- A comment above a declaration is about that declaration, and about those that follow it without an empty
  line or a comment between them. So each of them shows it.
- A comment behind a declaration is about that declaration.
- A comment in the body of a function, or with an empty line below it, is for readers of the header only.
"""

import html
import re
import sys

COMMENT = re.compile(r"^\s*//( |$)(.*)$")
TRAILING = re.compile(r"^(.*[;,{}\w)])(\s*)// (.*)$")
TEMPLATE = re.compile(r"\btemplate\s*<(?:[^<>]|<(?:[^<>]|<[^<>]*>)*>)*>")
TYPE = re.compile(r'^\s*(inline\s+)?(class|struct|union|namespace|extern\s+"")(\s|$)')
ENUM = re.compile(r"^\s*enum\b")
DELETED = "Deleted: there is no such operation."


def escaped(text):
    """Escapes what Doxygen would read as HTML or as a command. Text in backticks stays."""
    pieces = re.split(r"(`[^`]*`)", text)
    return "".join(p if p.startswith("`") else html.escape(p, quote=False).replace("@", "\\@") for p in pieces)


def with_whole_code(lines):
    """Joins the lines of a comment, with the ends of lines moved out of code in backticks."""

    def moved(code):
        return code.group().replace("\n", " ") + "\n" * code.group().count("\n")

    return re.sub(r"`[^`]*`", moved, "\n".join(lines))


def in_one_line(lines):
    """Writes a comment of several paragraphs and lists in a single line."""
    out, item_open, list_open = [], False, False
    for line in with_whole_code(lines).split("\n"):
        item = re.match(r"^ ?(- |\d+\. )(.*)$", line)
        if item:
            out.append("</li>" if item_open else "<ul>")
            out.append("<li>" + escaped(item.group(2)))
            item_open = list_open = True
            continue
        if not line.strip() or (list_open and not line.startswith("  ")):
            if list_open:
                out.append("</li></ul>")
                item_open = list_open = False
            if not line.strip():
                out.append("<p>")
                continue
        out.append(escaped(line.strip()))
    if list_open:
        out.append("</li></ul>")
    return " ".join(out)


def code_of(line):
    """Returns the line without strings and comments."""
    line = re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])*\'', '""', line)
    return re.sub(r"//.*$|/\*.*?\*/", "", line)


class Filter:
    def __init__(self, name, lines):
        self.name = name
        self.lines = lines
        self.out = []
        self.scopes = []  # for each open brace: what it opens, "type", "enum" or "body"
        self.statement = ""  # what stands since the last statement or scope
        self.covering = None  # the comment of the run of declarations
        self.is_first_of_run = False

    def in_body(self):
        return "body" in self.scopes

    def begins_declaration(self):
        return not self.in_body() and not self.statement.strip()

    def opened_by(self):
        """Returns what the next brace opens."""
        if self.in_body():
            return "body"
        statement = TEMPLATE.sub("", self.statement)
        if ENUM.match(statement):
            return "enum"
        return "type" if TYPE.match(statement) and "=" not in statement else "body"

    def read_code(self, line):
        """Follows braces and the ends of statements. Returns whether a type, an enumeration or a namespace was opened."""
        has_opened = False
        for sign in code_of(line):
            if sign == "{":
                self.scopes.append(self.opened_by())
                if self.scopes[-1] != "body":
                    has_opened = True
                    self.statement = ""
            elif sign == "}" and self.scopes:
                closed = self.scopes.pop()
                # A body ends its declaration. The braces of an initialiser do not: a semicolon follows.
                if closed != "body" or not (self.in_body() or self.is_initialiser()):
                    self.statement = ""
            elif self.in_body():
                continue
            elif sign == ";" or (sign == "," and self.scopes and self.scopes[-1] == "enum"):
                self.statement = ""
            else:
                self.statement += sign
        return has_opened

    def is_initialiser(self):
        """Returns whether the statement initialises a variable, and defines no function."""
        before_parameters = TEMPLATE.sub("", self.statement).split("(")[0]
        return "=" in re.sub(r"operator\s*\S+", "", before_parameters)

    def comment_block(self, at):
        """Returns the index behind the comment that begins at a line."""
        while at < len(self.lines) and COMMENT.match(self.lines[at]):
            at += 1
        return at

    def emit_block(self, begin, end, opening="///"):
        texts = escaped(with_whole_code([COMMENT.match(line).group(2) for line in self.lines[begin:end]])).split("\n")
        for line, text in zip(self.lines[begin:end], texts):
            indent = re.match(r"^\s*", line).group()
            self.out.append(f"{indent}{opening} {text}".rstrip())
            opening = "///"

    def run(self):
        at = self.comment_block(0)
        if at:
            self.emit_block(0, at, f"/// @file {self.name}")
        while at < len(self.lines):
            line = self.lines[at]
            if COMMENT.match(line):
                at = self.take_comment(at)
                continue
            self.take_code(line)
            at += 1
        return "\n".join(self.out) + "\n"

    def take_comment(self, at):
        end = self.comment_block(at)
        is_about_next = end < len(self.lines) and self.lines[end].strip() not in ("", "}", "};")
        if self.in_body() or not self.begins_declaration() or not is_about_next:
            self.out.extend(self.lines[at:end])
            return end
        self.emit_block(at, end)
        self.covering = [COMMENT.match(l).group(2) for l in self.lines[at:end]]
        self.is_first_of_run = True
        return end

    def take_code(self, line):
        if re.match(r"^\s*(public|protected|private):$", line):
            self.covering = None
            self.out.append(line)
            return
        if not line.strip():
            if not self.in_body():
                self.covering = None
            self.out.append(line)
            return
        if line.lstrip().startswith("#") or self.continues_directive():
            self.out.append(line)
            return
        if re.match(r"^\s*(static_assert|friend)\b", line) or self.statement.lstrip().startswith("static_assert"):
            self.read_code(line)
            self.out.append("")
            return
        begins = self.begins_declaration()
        documented = self.with_comment(line, begins)
        if self.read_code(line):
            self.covering = None
        self.out.append(documented)

    def continues_directive(self):
        """Returns whether the line above is part of a preprocessor directive that goes on."""
        return bool(self.out) and self.out[-1].endswith("\\")

    def with_comment(self, line, begins):
        trailing = TRAILING.match(line)
        if trailing and not self.in_body():
            line = f"{trailing[1]}{trailing[2]}///< {escaped(trailing[3])}"
        if not begins or line.lstrip().startswith("}"):
            return line
        if line.rstrip().endswith("= delete;"):
            return f"/** {DELETED} */ {line}"
        if self.is_first_of_run:
            self.is_first_of_run = False
            return line
        if self.covering:
            return f"/** {in_one_line(self.covering)} */ {line}"
        return line


def main():
    path = sys.argv[1]
    with open(path, encoding="utf-8") as file:
        lines = file.read().split("\n")
    if lines and not lines[-1]:
        lines.pop()
    sys.stdout.write(Filter(path, lines).run())


if __name__ == "__main__":
    main()
