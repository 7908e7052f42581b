"""Writes all mutants of a file into one source. A program chooses one of them when it runs: see tests/mutants/Mutant.h."""

from collections import defaultdict
from dataclasses import dataclass, field
from typing import Optional

from mutant_sites import DECLARED, NEGATION, RETURN, STATEMENT, Mutant

FORMS = [STATEMENT, RETURN, NEGATION, DECLARED]  # of mutants of the same text, the outer ones first; then values


@dataclass
class Node:
    """A mutant and those within its text."""

    mutant: Mutant
    number: int
    inner: list["Node"] = field(default_factory=list)


@dataclass
class Span:
    """What a mutant has become in the written source: the whole, and the part that runs if it is chosen."""

    mutant: Mutant
    begin: int
    end: int


@dataclass
class Written:
    """A source with mutants."""

    text: bytes
    spans: list[Span]
    lines: list[int]  # the offset of each line

    def mutant_at(self, line: int, column: int) -> Optional[Mutant]:
        """The innermost one."""
        if not 0 < line <= len(self.lines):
            return None
        offset = self.lines[line - 1] + column - 1
        around = [span for span in self.spans if span.begin <= offset < span.end]
        return min(around, key=lambda span: span.end - span.begin).mutant if around else None


def order(mutant: Mutant) -> tuple[int, int, int, str]:
    rank = FORMS.index(mutant.form) if mutant.form in FORMS else len(FORMS)
    return mutant.start, -mutant.end, rank, mutant.mutated


def nested(numbers: dict[Mutant, int]) -> list[Node]:
    """The outermost mutants of a file."""
    roots: list[Node] = []
    open_nodes: list[Node] = []
    for mutant in sorted(numbers, key=order):
        node = Node(mutant, numbers[mutant])
        while open_nodes and open_nodes[-1].mutant.end <= mutant.start:
            open_nodes.pop()
        if open_nodes and open_nodes[-1].mutant.end < mutant.end:
            continue  # it overlaps another one
        (open_nodes[-1].inner if open_nodes else roots).append(node)
        open_nodes.append(node)
    return roots


class Writer:
    def __init__(self, source: bytes):
        self.source = source
        self.out = bytearray()
        self.spans: list[Span] = []

    def put(self, text: str) -> None:
        self.out += text.encode("utf-8")

    def range(self, start: int, end: int, nodes: list[Node]) -> None:
        for node in nodes:
            self.out += self.source[start:node.mutant.start]
            self.node(node)
            start = node.mutant.end
        self.out += self.source[start:end]

    def node(self, node: Node) -> None:
        mutant = node.mutant
        begin = len(self.out)
        chosen = f"kvmutant::{'onOrder' if mutant.kind == 'order' else 'on'}({node.number})"

        def original() -> None:
            self.range(mutant.start, mutant.end, node.inner)

        if mutant.form == STATEMENT:
            self.put(f"{{ if (!{chosen}) {{ ")
            original()
            self.put(" } }")
        elif mutant.form == RETURN:
            self.put(f"{{ if ({chosen}) {mutant.mutated}; ")
            original()
            self.put(" }")
        elif mutant.form == NEGATION:
            self.put(f"({chosen} != !!(")
            original()
            self.put("))")
        elif mutant.form == DECLARED:
            original()
            self.put(f"; ({chosen} != !!({mutant.original}))")
        else:
            self.put(f"({chosen} ? ({mutant.mutated}) : (")
            original()
            self.put("))")
        self.spans.append(Span(mutant, begin, len(self.out)))


def written(source: bytes, numbers: dict[Mutant, int]) -> Written:
    """The source with these mutants, each chosen by its number."""
    writer = Writer(source)
    writer.range(0, len(source), nested(numbers))
    text = bytes(writer.out)
    lines = [0]
    for line in text.split(b"\n"):
        lines.append(lines[-1] + len(line) + 1)
    return Written(text, writer.spans, lines[:-1])


def by_file(mutants: list[Mutant]) -> dict[str, list[Mutant]]:
    files: dict[str, list[Mutant]] = defaultdict(list)
    for mutant in mutants:
        files[mutant.path].append(mutant)
    return files
