"""Finds the places in a source file that mutation.py can change, and what to put there instead."""

import os
import re
from typing import NamedTuple

from clang import cindex
from clang.cindex import CursorKind, Diagnostic, TokenKind, TypeKind

OTHERS = {"==": "!=", "!=": "==", "<": "<=", ">": ">=", "&&": "||", "||": "&&", "+": "-",
          "-": "+", "++": "--", "+=": "=", "!": ""}
STATEMENTS = (CursorKind.CALL_EXPR, CursorKind.BINARY_OPERATOR, CursorKind.UNARY_OPERATOR,
              CursorKind.COMPOUND_ASSIGNMENT_OPERATOR, CursorKind.UNEXPOSED_EXPR,
              CursorKind.CXX_THROW_EXPR, CursorKind.BREAK_STMT, CursorKind.CSTYLE_CAST_EXPR,
              CursorKind.RETURN_STMT)
INTEGERS = (TypeKind.INT, TypeKind.UINT, TypeKind.USHORT, TypeKind.SHORT, TypeKind.LONG,
            TypeKind.ULONG)


class Mutant(NamedTuple):
    file: str
    start: int
    end: int
    new: str
    what: str
    line: int

    def applied(self, text):
        return text[:self.start] + self.new + text[self.end:]

    def key(self):
        """How equivalent.toml names it."""
        return self.file, self.what


def describe(text, start, end, new):
    """Its line, with the old and the new text."""
    line = text[text.rfind("\n", 0, start) + 1:text.find("\n", end)]
    old = " ".join(text[start:end].split())
    return f"{' '.join(line.split())}: '{old}' -> '{' '.join(new.split())}'"


class Finder:
    """Finds the places to change in one file, and what to put there instead."""

    def __init__(self, file, source, commands):
        """`source` is the file itself or, for a header, one that includes it; `commands` are
        libclang's database of the commands that compile the sources."""
        self.file = file
        self.path = os.path.abspath(file)
        with open(self.path, encoding="utf-8") as opened:
            self.text = opened.read()
        assert self.text.isascii(), "offsets are of bytes"
        _, *arguments = next(iter(commands.getCompileCommands(os.path.abspath(source)))).arguments
        self.unit = cindex.Index.create().parse(None, [*arguments, "-std=c++17"])
        errors = [d for d in self.unit.diagnostics if d.severity >= Diagnostic.Error]
        assert not errors, errors
        self.found = {}

    def add(self, start, end, new):
        if self.text[start:end] != new:
            what = describe(self.text, start, end, new)
            line = self.text.count("\n", 0, start) + 1
            self.found.setdefault((start, end, new),
                                  Mutant(self.file, start, end, new, what, line))

    def here(self, cursor):
        file = cursor.location.file
        return file is not None and file.name == self.path

    def mutants(self):
        for child in self.unit.cursor.get_children():
            if self.here(child):
                self.walk(child)
        file = self.unit.get_file(self.path)
        ends = [cindex.SourceLocation.from_offset(self.unit, file, at)
                for at in (0, len(self.text))]
        for token in self.unit.get_tokens(extent=cindex.SourceRange.from_locations(*ends)):
            self.token(token)
        self.rows()
        return sorted(self.found.values(), key=lambda mutant: mutant.start)

    def walk(self, cursor):
        for child in cursor.get_children():
            if self.here(child):
                self.place(child, cursor)
            self.walk(child)

    def place(self, cursor, parent):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        kind = cursor.kind
        if parent.kind == CursorKind.COMPOUND_STMT and kind in STATEMENTS:
            if kind != CursorKind.RETURN_STMT or self.text[start:end] == "return":
                self.add(start, end, "")
        if kind in (CursorKind.IF_STMT, CursorKind.CONDITIONAL_OPERATOR):
            condition = next(cursor.get_children()).extent
            for value in ("true", "false"):
                self.add(condition.start.offset, condition.end.offset, value)
        if kind == CursorKind.RETURN_STMT and self.text[start:end] != "return":
            self.returned(cursor)
        # For these, the order does not matter.
        if kind == CursorKind.CALL_EXPR and not cursor.spelling.startswith("operator") \
                and not re.match(r"std::(tie|swap|min|max)\b", self.text[start:end]):
            self.swap_arguments(cursor)
        if kind == CursorKind.DECL_REF_EXPR and cursor.referenced is not None \
                and cursor.referenced.kind == CursorKind.ENUM_CONSTANT_DECL:
            self.enumerator(cursor, start, end)

    def returned(self, cursor):
        value = next(cursor.get_children())
        start, end = value.extent.start.offset, value.extent.end.offset
        kind = value.type.get_canonical().kind
        if kind == TypeKind.BOOL and self.text[start:end] not in ("true", "false"):
            self.add(start, end, f"!({self.text[start:end]})")
        elif kind in INTEGERS:
            self.add(start, end, f"({self.text[start:end]}) + 1")

    def swap_arguments(self, cursor):
        arguments = [a for a in cursor.get_arguments() if a is not None]
        for one, other in zip(arguments, arguments[1:]):
            same = one.type.get_canonical().spelling == other.type.get_canonical().spelling
            a, b = one.extent, other.extent
            if same and a.end.offset < b.start.offset and self.here(one) and self.here(other):
                text = self.text
                self.add(a.start.offset, b.end.offset,
                         text[b.start.offset:b.end.offset] + text[a.end.offset:b.start.offset]
                         + text[a.start.offset:a.end.offset])

    def enumerator(self, cursor, start, end):
        every = list(cursor.referenced.semantic_parent.get_children())
        names = [c.spelling for c in every]
        at = names.index(cursor.referenced.spelling)
        following = next(c for c in [*every[at + 1:], *every]
                         if c.enum_value != cursor.referenced.enum_value)
        scope, at = [], following.semantic_parent
        while at is not None and at.kind != CursorKind.TRANSLATION_UNIT:
            if at.spelling and (at.kind != CursorKind.ENUM_DECL or at.is_scoped_enum()):
                scope.insert(0, at.spelling)
            at = at.semantic_parent
        self.add(start, end, "::".join([*scope, following.spelling]))

    def token(self, token):
        start, end = token.extent.start.offset, token.extent.end.offset
        kind = token.cursor.kind
        if token.kind == TokenKind.PUNCTUATION and token.spelling in OTHERS:
            if kind == CursorKind.BINARY_OPERATOR or token.spelling not in "<>" and kind in (
                    CursorKind.UNARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
                    CursorKind.CALL_EXPR, CursorKind.DECL_REF_EXPR, CursorKind.OVERLOADED_DECL_REF):
                self.add(start, end, OTHERS[token.spelling])
        elif token.kind == TokenKind.LITERAL:
            # Only the compiler sees what a static_assert says.
            before = re.split(r"[;{}]", self.text[:start])[-1]
            if "static_assert" in before or "#" in before:
                return
            if re.fullmatch(r"\d+", token.spelling):
                self.add(start, end, str(int(token.spelling) + 1))
            elif token.spelling.startswith('"'):
                # Not just longer: tests may look for a part of the text.
                self.add(start, end, '"X' + token.spelling[2 if len(token.spelling) > 2 else 1:])
        elif token.kind == TokenKind.KEYWORD and token.spelling in ("true", "false"):
            self.add(start, end, "false" if token.spelling == "true" else "true")

    def rows(self):
        """Exchanges neighboring rows in the tables of fields."""
        row = re.compile(r"TAVIDL_(?:ARGUMENT|FIELD)\([^()]*\)")
        found = [m for m in row.finditer(self.text) if "\\" not in m[0] and "#define" not in
                 self.text[self.text.rfind("\n", 0, m.start()) + 1:m.start()]]
        for one, other in zip(found, found[1:]):
            between = self.text[one.end():other.start()]
            if between.strip() == ",":
                self.add(one.start(), other.end(), other[0] + between + one[0])
