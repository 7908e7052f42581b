"""Finds the places of a C++ file that can be mutated, by means of libclang."""

import re
import subprocess
from bisect import bisect_left
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable, Iterable, Iterator, Optional

from clang.cindex import Config, Cursor, CursorKind, Index, TranslationUnit, TypeKind

VERSION = 14

# How a mutant is written into the source.
VALUE = "value"  # an expression: the mutated one, or the original one
NEGATION = "negation"  # a condition: its opposite, or itself
DECLARED = "declared"  # a condition that declares a variable: behind it, the opposite of the variable
STATEMENT = "statement"  # a statement: left out, or not
RETURN = "return"  # a return statement: before it, one that returns something else

RELATIONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGIC = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<"}
BINARY = {**RELATIONS, **LOGIC, **ARITHMETIC}

# Their result does not depend on the order of their arguments.
COMMUTATIVE = {"max", "min", "swap", "isSame", "isSameGroup", "isGsMarkEqual", "isMatrixEqual"}
ATOMIC_CALLS = {"load", "store", "exchange", "fetch_add", "fetch_sub", "fetch_or", "fetch_and"}
COUNT = re.compile(r"^(\+\+|--)|(\+\+|--);$|^[^=()]*[+-]=|\b(fetch_add|fetch_sub|raise|raiseAll|noteChanged|addOwner)\(")
STRONG_ORDERS = {"memory_order_acquire", "memory_order_release", "memory_order_acq_rel", "memory_order_seq_cst"}

FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
             CursorKind.FUNCTION_TEMPLATE, CursorKind.CONVERSION_FUNCTION}
CLASSES = {CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL, CursorKind.CLASS_TEMPLATE,
           CursorKind.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION}
UNEVALUATED = {CursorKind.STATIC_ASSERT, CursorKind.CXX_UNARY_EXPR, CursorKind.TYPE_REF, CursorKind.TEMPLATE_REF,
               CursorKind.NAMESPACE_REF, CursorKind.PARM_DECL}
LOOPS = {CursorKind.WHILE_STMT, CursorKind.DO_STMT, CursorKind.FOR_STMT}


@dataclass(frozen=True)
class Mutant:
    """One change of a file. The offsets are of bytes."""

    path: str
    start: int
    end: int
    form: str
    kind: str
    mutated: str  # what replaces the text; for people unless `form` is VALUE
    line: int = field(compare=False)
    function: str = field(compare=False)
    original: str = field(compare=False)
    source_line: str = field(compare=False)

    @property
    def change(self) -> str:
        return f"{shortened(self.original)} -> {shortened(self.mutated)}"

    @property
    def place(self) -> str:
        """Survives edits elsewhere in the file."""
        return f"{self.path}: {self.function}: {self.source_line} [{self.change}]"


def shortened(text: str) -> str:
    return re.sub(r"\s+", " ", re.sub(r"//[^\n]*", "", text)).strip()


def without_comments(text: str) -> str:
    return re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.DOTALL).strip()


def closing(text: bytes, opening: int) -> int:
    """The offset of the parenthesis that closes the one at `opening`."""
    depth = 0
    for found in re.compile(rb'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|//[^\n]*|/\*.*?\*/|[()]', re.DOTALL).finditer(text, opening):
        depth += {b"(": 1, b")": -1}.get(found.group(), 0)
        if depth == 0:
            return found.start()
    raise ValueError("unbalanced parentheses")


class Visitor:
    """Walks through one file's functions, and collects mutants of them."""

    def __init__(self, path: str, text: bytes, macros: list[tuple[int, int]]):
        self.path = path
        self.text = text
        self.lines = text.decode("utf-8").splitlines()
        self.line_ends = [found.start() for found in re.finditer(rb"\n", text)]
        self.macros = macros
        self.function = ""
        self.found: set[Mutant] = set()
        self.steps: set[tuple[int, int]] = set()  # increments and decrements that are no mutants as values

    # ---- text

    def span(self, cursor: Cursor) -> tuple[int, int]:
        return cursor.extent.start.offset, cursor.extent.end.offset

    def slice(self, start: int, end: int) -> str:
        return self.text[start:end].decode("utf-8")

    def source(self, cursor: Cursor) -> str:
        return self.slice(*self.span(cursor))

    def is_usable(self, start: int, end: int) -> bool:
        """Whether the text can be replaced: a macro or a preprocessor line can not."""
        if start >= end or any(first <= start and end <= last for first, last in self.macros):
            return False
        return not re.search(r"^\s*#", self.slice(start, end), re.MULTILINE)

    def add(self, span: tuple[int, int], form: str, kind: str, mutated: str, original: Optional[str] = None) -> None:
        start, end = span
        if not self.is_usable(start, end):
            return
        line = bisect_left(self.line_ends, start) + 1
        source_line = re.sub(r" +// .*", "", self.lines[line - 1].strip())
        shown = self.slice(start, end) if original is None else original
        self.found.add(Mutant(self.path, start, end, form, kind, mutated, line, self.function, shown, source_line))

    # ---- declarations

    def visit_declaration(self, cursor: Cursor) -> None:
        if cursor.kind in FUNCTIONS:
            if cursor.is_definition():
                self.function = qualified(cursor)
                for child in cursor.get_children():
                    if child.kind not in UNEVALUATED:
                        self.visit(child)
        elif cursor.kind == CursorKind.FIELD_DECL:
            self.function = qualified(cursor)
            self.visit_initialiser(cursor)
        elif cursor.kind in CLASSES or cursor.kind in (CursorKind.NAMESPACE, CursorKind.LINKAGE_SPEC,
                                                       CursorKind.UNEXPOSED_DECL):
            for child in cursor.get_children():
                self.visit_declaration(child)

    def visit_initialiser(self, cursor: Cursor) -> None:
        """Of a field or local variable. Leaves out the parts of its type, for example the length of an array."""
        for child in cursor.get_children():
            start, end = self.span(child)
            between = self.slice(cursor.location.offset, max(start, cursor.location.offset))
            is_initialiser = re.search(r"[={(]", between) or self.slice(start, end).startswith(("{", "("))
            if child.kind.is_expression() and (is_initialiser or child.kind == CursorKind.CALL_EXPR):
                self.visit(child)

    def visit_variable(self, cursor: Cursor) -> None:
        start, _ = self.span(cursor)
        specifiers = self.slice(start, cursor.location.offset)
        if not re.search(r"\b(constexpr|static|thread_local)\b", specifiers):
            self.visit_initialiser(cursor)

    # ---- statements and expressions

    def visit(self, cursor: Cursor) -> None:
        kind = cursor.kind
        if kind in UNEVALUATED:
            return
        if kind == CursorKind.VAR_DECL:
            self.visit_variable(cursor)
            return
        if kind in CLASSES:
            self.visit_declaration(cursor)
            return
        mutate = MUTATIONS.get(kind)
        if mutate:
            mutate(self, cursor)
        children = list(cursor.get_children())
        if kind == CursorKind.CASE_STMT:
            children = children[1:]
        if kind == CursorKind.IF_STMT and self.source(cursor).startswith("if constexpr"):
            children = children[1:]
        for child in children:
            self.visit(child)

    def head(self, cursor: Cursor) -> tuple[int, int]:
        """What is between the parentheses of an if or loop."""
        start, end = self.span(cursor)
        if cursor.kind == CursorKind.DO_STMT:
            start = self.text.rindex(b"while", start, end)
        opening = self.text.index(b"(", start)
        return opening + 1, closing(self.text, opening)

    def mutate_branch(self, cursor: Cursor) -> None:
        if self.source(cursor).startswith("if constexpr"):
            return
        first, last = self.head(cursor)
        parts = [child for child in cursor.get_children() if first <= self.span(child)[0] and self.span(child)[1] <= last]
        declared = [part for part in parts if part.kind in (CursorKind.DECL_STMT, CursorKind.VAR_DECL)]
        if declared:
            self.negate_declared(cursor, declared, last)
        elif parts:
            self.negate(parts[-1])
        self.drop_body(cursor)

    def negate_declared(self, cursor: Cursor, declared: list[Cursor], last: int) -> None:
        variables = [child for part in declared for child in (part, *part.get_children()) if child.kind == CursorKind.VAR_DECL]
        if cursor.kind != CursorKind.IF_STMT or not variables or b";" in self.text[self.head(cursor)[0]:last]:
            return
        name = variables[0].spelling
        self.add((variables[0].extent.start.offset, last), DECLARED, "condition", f"!{name}", name)

    def mutate_for(self, cursor: Cursor) -> None:
        first, last = self.head(cursor)
        semicolons = [found.start() for found in re.finditer(rb";", self.text[first:last])]
        if len(semicolons) == 2:
            for child in cursor.get_children():
                start, end = self.span(child)
                if first + semicolons[0] < start and end <= first + semicolons[1]:
                    self.negate(child)
                elif first + semicolons[1] < start and end <= last:
                    self.steps.add((start, end))  # the loop would not end
        self.drop_body(cursor)

    def mutate_conditional(self, cursor: Cursor) -> None:
        self.negate(next(cursor.get_children()))

    def negate(self, cursor: Cursor) -> None:
        """Unless a mutant of the condition's own operator does the same."""
        inner = stripped(cursor)
        if self.is_judged_by_operator(inner):
            return
        text = self.source(inner)
        shown = text[1:] if text.startswith("!") else f"!({text})" if re.search(r"[^\w.:>()\-*&]", text) else f"!{text}"
        self.add(self.span(inner), NEGATION, "condition", shown)

    def operator(self, cursor: Cursor) -> Optional[tuple[str, Cursor, Cursor]]:
        """The operator of two operands, built in or overloaded, with the operands."""
        children = list(cursor.get_children())
        if cursor.kind == CursorKind.CALL_EXPR and len(children) == 3:
            children = [children[0], children[2]]
        elif cursor.kind != CursorKind.BINARY_OPERATOR or len(children) != 2:
            return None
        begin, end = self.span(children[0])[1], self.span(children[1])[0]
        text = without_comments(self.slice(begin, end)) if begin < end else ""
        whole = self.span(cursor)
        if text not in BINARY or whole != (self.span(children[0])[0], self.span(children[1])[1]):
            return None
        return text, children[0], children[1]

    def operand(self, cursor: Cursor) -> str:
        """In parentheses if it would be another operator's operand otherwise."""
        return f"({self.source(cursor)})" if stripped(cursor).kind == CursorKind.BINARY_OPERATOR else self.source(cursor)

    def mutate_operator(self, cursor: Cursor) -> None:
        found = self.operator(cursor)
        if not found:
            return
        operator, left, right = found
        is_overloaded = cursor.kind == CursorKind.CALL_EXPR
        a, b = self.operand(left), self.operand(right)
        changed = f"{a} {BINARY[operator]} {b}"
        if operator in RELATIONS:
            if operator in ("==", "!="):
                changed = f"!({a} {operator} {b})"
            elif is_overloaded:
                changed = f"!({b} {operator[0]} {a})" if operator in ("<", ">") else f"!({b} {operator} {a})"
            self.add(self.span(cursor), VALUE, "relation", changed)
        elif operator in LOGIC:
            self.add(self.span(cursor), VALUE, "logic", changed)
            self.negate(left)
            self.negate(right)
        elif not is_overloaded:
            self.add(self.span(cursor), VALUE, "arithmetic", changed)

    def mutate_call(self, cursor: Cursor) -> None:
        self.mutate_operator(cursor)
        self.swap_arguments(cursor)
        self.weaken_default_order(cursor)

    def swap_arguments(self, cursor: Cursor) -> None:
        arguments = list(cursor.get_arguments())
        text = self.source(cursor)
        if cursor.spelling in COMMUTATIVE or cursor.spelling.startswith("operator") or not text.endswith(")"):
            return
        for first, second in zip(arguments, arguments[1:]):
            (start, end), (other_start, other_end) = self.span(first), self.span(second)
            if not start < end <= other_start < other_end or not is_same_type(first, second):
                continue
            if self.slice(start, end) == self.slice(other_start, other_end):
                continue
            begin, last = self.span(cursor)
            swapped = (self.slice(begin, start) + self.slice(other_start, other_end) + self.slice(end, other_start) +
                       self.slice(start, end) + self.slice(other_end, last))
            self.add((begin, last), VALUE, "arguments", swapped)

    def weaken_default_order(self, cursor: Cursor) -> None:
        """Of a call on an atomic value that names no order: it is the strongest."""
        callee = cursor.referenced
        text = self.source(cursor)
        if (cursor.spelling not in ATOMIC_CALLS or not callee or "atomic" not in callee.semantic_parent.spelling.lower() or
                "memory_order" in text or not text.endswith(")")):
            return
        order = "std::memory_order_relaxed"
        separator = "" if re.search(r"\(\s*\)$", text) else ", "
        self.add(self.span(cursor), VALUE, "order", f"{text[:-1]}{separator}{order})")

    def mutate_reference(self, cursor: Cursor) -> None:
        name = cursor.spelling
        if name in STRONG_ORDERS:
            self.add(self.span(cursor), VALUE, "order", "std::memory_order_relaxed")
        elif re.match(r"k[A-Z]", name) and is_number(cursor):
            text = self.source(cursor)
            self.add(self.span(cursor), VALUE, "constant", f"{text} + 1")
            self.add(self.span(cursor), VALUE, "constant", f"{text} - 1")

    def mutate_number(self, cursor: Cursor) -> None:
        text = self.source(cursor)
        plain = re.fullmatch(r"(\d+)([uUlL]*)", text)
        if not plain:
            self.add(self.span(cursor), VALUE, "constant", f"{text} + 1")
            self.add(self.span(cursor), VALUE, "constant", f"{text} - 1")
            return
        value, suffix = int(plain[1]), plain[2]
        self.add(self.span(cursor), VALUE, "constant", f"{value + 1}{suffix}")
        if value > 0:
            self.add(self.span(cursor), VALUE, "constant", f"{value - 1}{suffix}")

    def mutate_truth(self, cursor: Cursor) -> None:
        text = self.source(cursor)
        if text in ("true", "false"):
            self.add(self.span(cursor), VALUE, "constant", "false" if text == "true" else "true")

    def mutate_unary(self, cursor: Cursor) -> None:
        text = self.source(cursor)
        if self.span(cursor) in self.steps:
            return
        if text.startswith(("++", "--")):
            self.add(self.span(cursor), VALUE, "count", text[2:].strip())
        elif text.endswith(("++", "--")):
            self.add(self.span(cursor), VALUE, "count", text[:-2].strip())

    def mutate_return(self, cursor: Cursor) -> None:
        children = list(cursor.get_children())
        span = self.statement_span(cursor)
        if not children:
            self.drop(cursor)
        elif span and not self.is_constant(children[0]) and not self.is_judged_by_operator(children[0]):
            value = self.source(children[0])
            self.add(span, RETURN, "return", "return {}" if value.startswith("{") else f"return kvmutant::other({value})",
                     self.slice(*span)[:-1])

    def is_constant(self, cursor: Cursor) -> bool:
        return re.fullmatch(r"nullptr|\{\}|true|false|\d\w*|\*this", self.source(cursor)) is not None

    def is_judged_by_operator(self, cursor: Cursor) -> bool:
        """Whether a mutant of the operator, or those of its operands, say the same."""
        operator = self.operator(stripped(cursor))
        return operator is not None and operator[0] in ("==", "!=", "&&", "||")

    # ---- dropped statements

    def statement_span(self, cursor: Cursor) -> Optional[tuple[int, int]]:
        start, end = self.span(cursor)
        semicolon = re.compile(rb"\s*;").match(self.text, end)
        return (start, semicolon.end()) if semicolon else None

    def drop(self, cursor: Cursor) -> None:
        span = self.statement_span(cursor)
        if not span:
            return
        text = self.slice(*span)
        self.steps.add(self.span(cursor))
        self.add(span, STATEMENT, "count" if COUNT.search(text) else "statement", "", text)

    def mutate_block(self, cursor: Cursor) -> None:
        for child in cursor.get_children():
            self.drop_if_possible(child)

    def drop_body(self, cursor: Cursor) -> None:
        """Statements of an if or loop that are in no block."""
        _, last = self.head(cursor)
        for child in cursor.get_children():
            if self.span(child)[0] > last or cursor.kind == CursorKind.DO_STMT:
                self.drop_if_possible(child)

    def drop_if_possible(self, child: Cursor) -> None:
        if child.kind.is_expression() or child.kind in (CursorKind.CONTINUE_STMT, CursorKind.BREAK_STMT):
            self.drop(child)


def stripped(cursor: Cursor) -> Cursor:
    """Without conversions that the source does not spell."""
    while cursor.kind == CursorKind.UNEXPOSED_EXPR:
        children = list(cursor.get_children())
        if len(children) != 1 or children[0].extent != cursor.extent:
            break
        cursor = children[0]
    return cursor


def is_number(cursor: Cursor) -> bool:
    """Whether the name is that of a constant number. Enumerators and truth values are none."""
    kind = cursor.type.get_canonical().kind
    declared = cursor.referenced
    if not declared or declared.kind != CursorKind.VAR_DECL:
        return False
    return TypeKind.CHAR_U.value <= kind.value <= TypeKind.INT128.value and kind != TypeKind.BOOL


def is_same_type(first: Cursor, second: Cursor) -> bool:
    def plain(cursor: Cursor) -> str:
        kind = cursor.type.get_canonical()
        return re.sub(r"\bconst\b|&|\s", "", kind.spelling)
    return plain(first) == plain(second) and "dependent" not in plain(first) and plain(first) != ""


def qualified(cursor: Cursor) -> str:
    names = [cursor.spelling]
    parent = cursor.semantic_parent
    while parent and parent.kind in CLASSES:
        names.insert(0, parent.spelling)
        parent = parent.semantic_parent
    return re.sub(r"<.*?>", "", "::".join(names))


MUTATIONS: dict[CursorKind, Callable[[Visitor, Cursor], None]] = {
    CursorKind.IF_STMT: Visitor.mutate_branch,
    CursorKind.WHILE_STMT: Visitor.mutate_branch,
    CursorKind.DO_STMT: Visitor.mutate_branch,
    CursorKind.FOR_STMT: Visitor.mutate_for,
    CursorKind.CXX_FOR_RANGE_STMT: Visitor.drop_body,
    CursorKind.CONDITIONAL_OPERATOR: Visitor.mutate_conditional,
    CursorKind.COMPOUND_STMT: Visitor.mutate_block,
    CursorKind.BINARY_OPERATOR: Visitor.mutate_operator,
    CursorKind.CALL_EXPR: Visitor.mutate_call,
    CursorKind.UNARY_OPERATOR: Visitor.mutate_unary,
    CursorKind.RETURN_STMT: Visitor.mutate_return,
    CursorKind.DECL_REF_EXPR: Visitor.mutate_reference,
    CursorKind.MEMBER_REF_EXPR: Visitor.mutate_reference,
    CursorKind.INTEGER_LITERAL: Visitor.mutate_number,
    CursorKind.CXX_BOOL_LITERAL_EXPR: Visitor.mutate_truth,
}


def compiler_directory() -> str:
    return subprocess.run([f"clang-{VERSION}", "-print-resource-dir"], text=True, stdout=subprocess.PIPE, check=True).stdout.strip()


def own_declarations(unit: TranslationUnit, root: Path) -> Iterator[tuple[str, Cursor]]:
    prefix = f"{root}/"
    for cursor in unit.cursor.get_children():
        file = cursor.location.file
        if file and file.name.startswith(prefix):
            yield file.name[len(prefix):], cursor


def macros_of(unit: TranslationUnit, root: Path) -> dict[str, list[tuple[int, int]]]:
    spans: dict[str, list[tuple[int, int]]] = {}
    for path, cursor in own_declarations(unit, root):
        if cursor.kind == CursorKind.MACRO_INSTANTIATION:
            spans.setdefault(path, []).append((cursor.extent.start.offset, cursor.extent.end.offset))
    return spans


def find(root: Path, sources: Iterable[str], is_measured: Callable[[str], bool]) -> list[Mutant]:
    """The mutants of the sources, and of the headers that they include, in the order of the tree."""
    Config.set_library_file(f"/usr/lib/llvm-{VERSION}/lib/libclang.so.1")
    index = Index.create()
    arguments = ["-x", "c++", "-std=c++17", f"-I{root}", "-resource-dir", compiler_directory()]
    seen: set[tuple[str, int]] = set()
    found: set[Mutant] = set()
    for source in sources:
        unit = index.parse(str(root / source), args=arguments, options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(diagnostic) for diagnostic in unit.diagnostics if diagnostic.severity >= 3]
        if errors:
            raise RuntimeError("\n".join(errors))
        macros = macros_of(unit, root)
        for path, cursor in own_declarations(unit, root):
            found |= mutants_of(root, path, cursor, macros, seen) if is_measured(path) else set()
    return sorted(found, key=lambda mutant: (mutant.path, mutant.start, mutant.end, mutant.kind, mutant.mutated))


def mutants_of(root: Path, path: str, cursor: Cursor, macros: dict[str, list[tuple[int, int]]],
               seen: set[tuple[str, int]]) -> set[Mutant]:
    """Of one declaration. A namespace is taken apart, since its headers are parsed again for each source."""
    place = (path, cursor.extent.start.offset)
    if place in seen:
        return set()
    seen.add(place)
    visitor = Visitor(path, (root / path).read_bytes(), macros.get(path, []))
    visitor.visit_declaration(cursor)
    return visitor.found
