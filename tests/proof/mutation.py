#!/usr/bin/python3
"""Changes one place of libTavIDL at a time, and sees whether a test notices.

    mutation.py BUILD [--list] [FILE...]    files under TavIDL/; by default all of libTavIDL's

BUILD is what script/proof builds: its tests run with each changed library in turn. A change that no
test notices must be in equivalent.toml, which says why none can. The last line has the same form as
in the other programs here.
"""

import os
import re
import resource
import subprocess
import sys
import tomllib
from typing import NamedTuple

from clang import cindex
from clang.cindex import CursorKind, TokenKind, TypeKind

HERE = os.path.dirname(os.path.abspath(__file__))
# What is compiled only into the library. Public headers are also compiled into the tests.
SOURCES = ("records/codec.cpp", "records/envelope.cpp", "records/records.cpp",
           "records/TAV_IDLConstants.cpp", "broker/TavBroker.cpp",
           "broker/TavBrokerOperations.cpp", "emp/TavEmp.cpp", "emp/TavEmpOperations.cpp",
           "event/TavEmpEvent.cpp", "event/TavEmpEventOperations.cpp")
# Each header with a source that includes it, and instantiates its templates as other sources do.
HEADERS = {"records/codec.h": "emp/TavEmpOperations.cpp",
           "records/envelope.h": "emp/TavEmpOperations.cpp"}
# The quick ones first: the search ends at the first one that notices the change.
TESTS = ("records/records_test", "emp/emp_test", "broker/broker_test", "event/event_test",
         "wire/wire_test", "proof/unknown_fields_test", "interop/interop_test", "proof/proof_calls",
         "modules/program_test", "proof/proof_differential --runs=20000", "proof/proof_messages",
         "proof/proof_allocations")
# For what only the address sanitizer notices; the other tests above are not made for it.
SANITIZED_TESTS = ("proof/unknown_fields_test", "emp/emp_test")
SECONDS = 60  # of processor time; a test that takes longer counts as a hang
BYTES = 1 << 30  # a test that does not end could also use up all memory

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

    def applied(self, text):
        return text[:self.start] + self.new + text[self.end:]


def describe(text, start, end, new):
    """A change's name in equivalent.toml: its line, with the old and the new text."""
    line = text[text.rfind("\n", 0, start) + 1:text.find("\n", end)]
    old = " ".join(text[start:end].split())
    return f"{' '.join(line.split())}: '{old}' -> '{' '.join(new.split())}'"


class Finder:
    """Finds the places to change in one file, and what to put there instead."""

    def __init__(self, file, source):
        self.path = os.path.join("TavIDL", file)
        self.file = file
        with open(self.path, encoding="utf-8") as opened:
            self.text = opened.read()
        assert self.text.isascii(), "offsets are of bytes"
        index = cindex.Index.create()
        self.unit = index.parse(os.path.join("TavIDL", source), ["-std=c++17", "-I."])
        # libclang knows a header by the folder in which it found it.
        self.unit_path = self.path if file == source else os.path.join(".", self.path)
        self.found = {}

    def add(self, start, end, new):
        if self.text[start:end] != new:
            what = describe(self.text, start, end, new)
            self.found.setdefault((start, end, new), Mutant(self.file, start, end, new, what))

    def here(self, cursor):
        file = cursor.location.file
        return file is not None and os.path.normpath(file.name) == self.path

    def mutants(self):
        self.walk(self.unit.cursor, None)
        file = self.unit.get_file(self.unit_path)
        ends = [cindex.SourceLocation.from_offset(self.unit, file, at) for at in (0, len(self.text))]
        for token in self.unit.get_tokens(extent=cindex.SourceRange.from_locations(*ends)):
            self.token(token)
        self.rows()
        return sorted(self.found.values(), key=lambda mutant: mutant.start)

    def walk(self, cursor, parent):
        for child in cursor.get_children():
            if parent is not None or child.location.file is None or self.here(child) \
                    or child.kind == CursorKind.NAMESPACE:
                if self.here(child):
                    self.place(child, cursor)
                self.walk(child, cursor)

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
        # When comparing and swapping, the order does not matter.
        if kind == CursorKind.CALL_EXPR and not cursor.spelling.startswith("operator") \
                and not re.match(r"std::(tie|swap)\(", self.text[start:end]):
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
                        CursorKind.UNARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR, CursorKind.CALL_EXPR,
                        CursorKind.DECL_REF_EXPR, CursorKind.OVERLOADED_DECL_REF):
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


class Library:
    """Builds the library with one change, next to the tests' own build."""

    def __init__(self, build):
        self.build = os.path.abspath(build)
        self.work = os.path.join(self.build, "mutation")
        self.sources = os.path.join(self.work, "source")
        subprocess.run(("rm", "-rf", self.work), check=True)
        os.makedirs(self.sources)
        subprocess.run(("cp", "-r", "TavIDL", self.sources), check=True)
        # Compiled once: libthrift's headers take three quarters of the time.
        self.common = os.path.join(self.work, "common.h")
        with open(self.common, "w", encoding="utf-8") as file:
            file.write("#include <TavIDL/thrift.h>\n#include <map>\n#include <string>\n")
        subprocess.run((*self.compiler(), "-x", "c++-header", self.common, "-o",
                        self.common + ".gch"), check=True)
        self.objects = {source: os.path.join(self.work, source.replace("/", "_") + ".o")
                        for source in SOURCES}
        for source in SOURCES:
            if not self.compile(source, self.objects[source]):
                sys.exit(f"mutation: {source} does not compile unchanged")

    def compiler(self):
        return ("g++", "-std=c++17", "-O0", "-w", "-fPIC", "-fvisibility=hidden",
                "-fvisibility-inlines-hidden", "-I" + self.sources)

    def compile(self, source, target, *flags):
        command = (*self.compiler(), *flags, "-include", self.common, "-c",
                   os.path.join(self.sources, "TavIDL", source), "-o", target)
        return subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode == 0

    def link(self, objects, *flags):
        subprocess.run(("g++", "-shared", "-Wl,-soname,libTavIDL.so.1",
                        "-Wl,--version-script=TavIDL/exports.map", *flags, *objects, "-lthrift",
                        "-o", os.path.join(self.work, "libTavIDL.so.1")), check=True)

    def build_with(self, mutant, sanitized=False):
        """Returns whether it compiles."""
        flags = ("-fsanitize=address",) if sanitized else ()
        place = os.path.join(self.sources, "TavIDL", mutant.file)
        with open(place, encoding="utf-8") as file:
            text = file.read()
        with open(place, "w", encoding="utf-8") as file:
            file.write(mutant.applied(text))
        try:
            changed = SOURCES if sanitized else [mutant.file] if mutant.file in SOURCES else [
                source for source in SOURCES if self.uses(source, mutant.file)]
            objects = dict(self.objects)
            for source in changed:
                objects[source] = os.path.join(self.work, f"changed{changed.index(source)}.o")
                if not self.compile(source, objects[source], *flags):
                    return False
            self.link(objects.values(), *flags)
            return True
        finally:
            with open(place, "w", encoding="utf-8") as file:
                file.write(text)

    @staticmethod
    def uses(source, header):
        with open(os.path.join("TavIDL", source), encoding="utf-8") as file:
            return f"<TavIDL/{header}>" in file.read()

    def run(self, test, **variables):
        """Returns the test if it notices something, or None."""
        program, *arguments = test.split()

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (SECONDS, SECONDS))
            if not variables:  # the sanitizer reserves more than there is
                resource.setrlimit(resource.RLIMIT_AS, (BYTES, BYTES))
        status = subprocess.run(
            (os.path.join(self.build, "tests", program), *arguments),
            env={**os.environ, "LD_LIBRARY_PATH": self.work, **variables}, preexec_fn=limit,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode
        return program if status != 0 else None

    def noticed_by(self):
        """Returns the test that notices the change, or None."""
        return next(filter(None, map(self.run, TESTS)), None)

    def noticed_by_sanitizer(self, mutant):
        self.build_with(mutant, sanitized=True)
        preloaded = subprocess.run(("g++", "-print-file-name=libasan.so"), check=True,
                                   capture_output=True, text=True).stdout.strip()
        return next(filter(None, (self.run(test, LD_PRELOAD=preloaded,
                                           ASAN_OPTIONS="detect_leaks=0")
                                  for test in SANITIZED_TESTS)), None)


def main():
    arguments = sys.argv[1:]
    listing = "--list" in arguments
    arguments = [a for a in arguments if a != "--list"]
    if not arguments:
        sys.exit(__doc__)
    build, *files = arguments
    files = [file.removeprefix("TavIDL/") for file in files] or [*SOURCES, *HEADERS]
    with open(os.path.join(HERE, "equivalent.toml"), "rb") as file:
        equivalent = {(entry["file"], entry["change"]): entry["reason"]
                      for entry in tomllib.load(file).get("mutant", [])}
    mutants = [m for file in files for m in Finder(file, HEADERS.get(file, file)).mutants()]
    if listing:
        for mutant in mutants:
            print(f"{mutant.file}: {mutant.what}")
        return
    library = Library(build)
    library.link(library.objects.values())
    noticed = library.noticed_by()
    if noticed:
        sys.exit(f"mutation: {noticed} fails with the unchanged library")
    alive, used, tried = [], set(), 0
    for mutant in mutants:
        key = (mutant.file, mutant.what)
        if not library.build_with(mutant):
            continue
        tried += 1
        test = library.noticed_by() or library.noticed_by_sanitizer(mutant)
        if test is None and key in equivalent:
            used.add(key)
        elif test is None:
            alive.append(mutant)
            print(f"FAILED: nothing notices {mutant.file}: {mutant.what}", flush=True)
        else:
            print(f"{test}: {mutant.file}: {mutant.what}", flush=True)
    unused = [key for key in equivalent if key[0] in files and key not in used]
    for file, what in unused:
        print(f"FAILED: not needed in equivalent.toml: {file}: {what}")
    print(f"proof: {tried} runs, {len(alive) + len(unused)} failures")
    sys.exit(1 if alive or unused else 0)


if __name__ == "__main__":
    main()
