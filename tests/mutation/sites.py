"""Mutation sites of C++ sources, found on libclang's syntax tree.

Each mutant replaces one byte range of one file. Its identifier names the
file, the operator, the replaced text, the replacement and which occurrence
of that same change in the file it is: it stays the same when unrelated
lines move.
"""

import re
from dataclasses import dataclass

import clang.cindex as ci

K = ci.CursorKind


@dataclass(frozen=True)
class Mutant:
    path: str          # as given to find_mutants (relative to the project)
    operator: str
    start: int         # byte offsets into the file
    end: int
    original: str
    replacement: str
    line: int
    occurrence: int = 0
    header: str = ""   # put before the file's first line, for what the replacement needs

    @property
    def identifier(self):
        return "\t".join([self.path, self.operator, squeeze(self.original),
                          squeeze(self.replacement), str(self.occurrence)])

    def apply(self, source):
        return self.header.encode() + source[:self.start] + self.replacement.encode() + source[self.end:]


def squeeze(text):
    """One line of text: runs of blanks become one space."""
    return re.sub(r"\s+", " ", text).strip() or "<nothing>"


RELATIONAL = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGICAL = {"&&": "||", "||": "&&"}
SYSTEM_CALLS = {"socket", "bind", "sendto", "connect", "send", "recv", "close", "kill", "open", "read", "write",
                "fcntl"}
# Flags that a system call accepts in the same argument: each one named in
# a call's argument is replaced by every other of its group, so that the
# mutant still runs and only behaves otherwise.
FLAG_GROUPS = [("AF_UNIX", "AF_INET", "AF_INET6"), ("AF_LOCAL", "AF_INET", "AF_INET6"),
               ("SOCK_DGRAM", "SOCK_STREAM", "SOCK_SEQPACKET"),
               ("SIGTERM", "SIGINT", "SIGHUP", "SIGKILL", "SIGUSR1"),
               ("O_RDONLY", "O_WRONLY", "O_RDWR"), ("O_TRUNC", "O_APPEND"), ("O_CLOEXEC", "O_NONBLOCK"),
               ("F_GETFL", "F_GETFD"), ("F_SETFL", "F_SETFD"),
               ("MSG_DONTWAIT", "MSG_NOSIGNAL")]
FLAGS = {name: [other for other in group if other != name] for group in FLAG_GROUPS for name in group}
# Calls whose flags argument (by position) may be given as a plain 0: the
# flag it then takes instead.
ZERO_FLAGS = {("sendto", 3): "MSG_DONTWAIT", ("send", 3): "MSG_DONTWAIT", ("recv", 3): "MSG_DONTWAIT"}
DELETABLE = {K.CALL_EXPR, K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR, K.UNARY_OPERATOR,
             K.CXX_THROW_EXPR, K.CXX_DELETE_EXPR, K.BREAK_STMT, K.CONTINUE_STMT, K.UNEXPOSED_EXPR}
RESULT_FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONVERSION_FUNCTION, K.FUNCTION_TEMPLATE}
FUNCTIONS = RESULT_FUNCTIONS | {K.LAMBDA_EXPR, K.CONSTRUCTOR, K.DESTRUCTOR}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "|=", "&=", "^=", "<<=", ">>=", "%="}


class SiteFinder:
    """Collects the mutants of the wanted files from one translation unit."""

    def __init__(self, source_path, wanted, relative):
        self.wanted = wanted            # absolute path -> bytes of the file
        self.relative = relative        # absolute path -> reported path
        self.source_path = source_path
        self.mutants = []
        self.macro_ranges = {}
        self.functions = []             # (path, start, end, result type or None)
        self.bounds = set()             # (path, offset) of array bounds
        self.asserted = []              # static assertions: checked, not run

    # ---- helpers -----------------------------------------------------------

    def file_of(self, cursor):
        location = cursor.extent.start
        return location.file.name if location.file else None

    def text(self, path, start, end):
        return self.wanted[path][start:end].decode()

    def in_macro(self, path, start, end):
        """Whether the range cuts into a macro's use: a whole use may go."""
        return any((s < end and start < e) and not (start <= s and e <= end)
                   for s, e in self.macro_ranges.get(path, ()))

    def add(self, cursor, operator, start, end, replacement, path=None, header=""):
        path = path or self.file_of(cursor)
        original = self.text(path, start, end)
        if original == replacement or self.in_macro(path, start, end) or (path, start) in self.bounds or \
                any(p == path and s <= start < e for p, s, e in self.asserted):
            return
        line = self.wanted[path][:start].count(b"\n") + 1
        self.mutants.append(Mutant(self.relative[path], operator, start, end, original, replacement, line,
                                   header=header))

    @staticmethod
    def span(cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def tokens(self, cursor):
        return list(cursor.get_tokens())

    def operator_token(self, cursor):
        """The operator token of a binary operator: the first after its left side."""
        children = list(cursor.get_children())
        if len(children) != 2:
            return None
        after = children[0].extent.end.offset
        for token in cursor.get_tokens():
            if token.extent.start.offset >= after:
                return token
        return None

    def statement_end(self, path, cursor):
        """End of a statement, its own semicolon included."""
        tokens = self.tokens(cursor)
        end = cursor.extent.end.offset
        if tokens and tokens[-1].spelling in (";", "}"):
            return end
        rest = self.wanted[path][end:]
        match = re.match(rb"\s*;", rest)
        return end + match.end() if match else end

    # ---- the walk ------------------------------------------------------------

    def cursors(self, translation_unit):
        """Every cursor of the wanted files, skipping the included headers'
        declarations whole."""
        for top in translation_unit.cursor.get_children():
            if self.file_of(top) in self.wanted:
                yield from top.walk_preorder()

    def run(self, translation_unit):
        for cursor in self.cursors(translation_unit):
            path = self.file_of(cursor)
            if path not in self.wanted:
                continue
            if cursor.kind == K.MACRO_INSTANTIATION:
                self.macro_ranges.setdefault(path, []).append(self.span(cursor))
            elif cursor.kind in FUNCTIONS:
                result = cursor.result_type if cursor.kind in RESULT_FUNCTIONS else None
                self.functions.append((path, *self.span(cursor), result))
        for cursor in self.cursors(translation_unit):
            path = self.file_of(cursor)
            if path not in self.wanted:
                continue
            start, end = self.span(cursor)
            if end <= start:
                continue
            self.visit(cursor, path)
        return self.mutants

    def visit(self, cursor, path):
        kind = cursor.kind
        if kind in (K.VAR_DECL, K.FIELD_DECL):
            # An array's declared bound is the layout of exported data, and a
            # definition's must match its declaration: no mutant of it builds.
            for child in cursor.get_children():
                if child.kind == K.INTEGER_LITERAL and self.wanted[path][:child.extent.start.offset].rstrip() \
                        .endswith(b"["):
                    self.bounds.add((path, child.extent.start.offset))
        elif kind == K.STATIC_ASSERT:
            self.asserted.append((path, *self.span(cursor)))
        if kind == K.BINARY_OPERATOR:
            self.binary(cursor)
        elif kind == K.INTEGER_LITERAL:
            self.integer(cursor, path)
        elif kind in (K.IF_STMT, K.WHILE_STMT, K.DO_STMT, K.CONDITIONAL_OPERATOR, K.FOR_STMT):
            self.condition(cursor, path)
        elif kind == K.COMPOUND_STMT:
            self.block(cursor, path)
        elif kind in (K.STRING_LITERAL, K.CHARACTER_LITERAL):
            self.literal(cursor)
        elif kind == K.CALL_EXPR:
            self.call(cursor, path)
        elif kind == K.CXX_CATCH_STMT:
            self.catch(cursor, path)
        if kind in (K.IF_STMT, K.WHILE_STMT, K.FOR_STMT):
            # A body or branch that is a single statement.
            children = list(cursor.get_children())
            for child in children[1:] if kind == K.IF_STMT else children[-1:]:
                if child.kind not in (K.COMPOUND_STMT, K.IF_STMT):
                    self.delete(child, path)

    # ---- operators -------------------------------------------------------------

    def binary(self, cursor):
        token = self.operator_token(cursor)
        if token is None:
            return
        start, end = token.extent.start.offset, token.extent.end.offset
        if token.spelling in RELATIONAL:
            self.add(cursor, "relational", start, end, RELATIONAL[token.spelling])
        elif token.spelling in LOGICAL:
            self.add(cursor, "logical", start, end, LOGICAL[token.spelling])

    def integer(self, cursor, path):
        start, end = self.span(cursor)
        text = self.text(path, start, end)
        match = re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)", text)
        if not match:
            return
        value = int(match.group(1), 0)
        for changed in sorted({value + 1, value - 1, 0} - {value, -1}):
            self.add(cursor, "constant", start, end, str(changed) + match.group(2))

    def condition(self, cursor, path):
        children = list(cursor.get_children())
        if cursor.kind == K.FOR_STMT:
            condition = self.for_condition(cursor, path)
            if condition:
                self.add(cursor, "negate", *condition, "!(" + self.text(path, *condition) + ")")
            return
        if not children:
            return
        condition = children[-1] if cursor.kind == K.DO_STMT else children[0]
        if condition.kind in (K.DECL_STMT, K.VAR_DECL):
            return
        start, end = self.span(condition)
        self.add(cursor, "negate", start, end, "!(" + self.text(path, start, end) + ")")

    def for_condition(self, cursor, path):
        depth = 0
        semicolons = []
        for token in cursor.get_tokens():
            if token.spelling == "(":
                depth += 1
            elif token.spelling == ")":
                depth -= 1
                if depth == 0:
                    break
            elif token.spelling == ";" and depth == 1:
                semicolons.append(token)
        if len(semicolons) != 2:
            return None
        start, end = semicolons[0].extent.end.offset, semicolons[1].extent.start.offset
        text = self.text(path, start, end)
        if not text.strip():
            return None
        stripped = len(text) - len(text.lstrip())
        return start + stripped, start + len(text.rstrip())

    def block(self, cursor, path):
        statements = list(cursor.get_children())
        for statement in statements:
            self.delete(statement, path)
        for first, second in zip(statements, statements[1:]):
            self.swap(first, second, path)
        for index, statement in enumerate(statements):
            self.move(statements, index, path)

    def delete(self, statement, path):
        kind = statement.kind
        start, end = self.span(statement)
        if kind == K.RETURN_STMT:
            values = list(statement.get_children())
            if not values:
                self.add(statement, "delete", start, end, "")
            elif values[0].kind != K.INTEGER_LITERAL:  # a constant's own mutants give 0
                value = values[0]
                returned = self.returned_type(statement)
                if returned is not None and returned.get_canonical().kind not in (ci.TypeKind.LVALUEREFERENCE,
                                                                                  ci.TypeKind.RVALUEREFERENCE):
                    self.add(statement, "delete", *self.span(value), "{}")
            return
        if kind not in DELETABLE:
            return
        if kind == K.BINARY_OPERATOR:
            token = self.operator_token(statement)
            if token is None or token.spelling not in ASSIGNMENTS:
                return
        if kind == K.UNARY_OPERATOR and not any(t.spelling in ("++", "--") for t in statement.get_tokens()):
            return
        if kind == K.UNEXPOSED_EXPR and not any(c.kind == K.CALL_EXPR for c in statement.walk_preorder()):
            return
        self.add(statement, "delete", start, end, "")

    def returned_type(self, statement):
        """The declared result type of the function around a return, or None
        inside a lambda (whose type the return itself decides)."""
        path, offset = self.file_of(statement), statement.extent.start.offset
        around = [f for f in self.functions if f[0] == path and f[1] <= offset < f[2]]
        if not around:
            return None
        return max(around, key=lambda f: f[1])[3]

    def swap(self, first, second, path):
        if second.kind in (K.RETURN_STMT, K.BREAK_STMT, K.CONTINUE_STMT, K.NULL_STMT):
            return
        if first.kind == K.DECL_STMT:
            declared = {c.spelling for c in first.get_children() if c.kind == K.VAR_DECL}
            if declared & {t.spelling for t in second.get_tokens()}:
                return
        start = first.extent.start.offset
        first_end = self.statement_end(path, first)
        second_start = second.extent.start.offset
        end = self.statement_end(path, second)
        first_text = self.text(path, start, first_end)
        second_text = self.text(path, second_start, end)
        if first_text == second_text:
            return
        between = self.text(path, first_end, second_start)
        self.add(first, "swap", start, end, second_text + between + first_text)

    @staticmethod
    def holds_call(statement):
        return any(c.kind == K.CALL_EXPR for c in statement.walk_preorder())

    def move(self, statements, index, path):
        """The statement moved down past the next call beyond its neighbour:
        after the first later statement that calls anything, at least two
        statements on (the swap moves it past one)."""
        later = statements[index + 2:]
        target = next((n for n, s in enumerate(later, index + 2) if self.holds_call(s)), None)
        if target is None:
            return
        moved, passed = statements[index], statements[index + 1:target + 1]
        if any(s.kind in (K.RETURN_STMT, K.BREAK_STMT, K.CONTINUE_STMT, K.NULL_STMT) for s in passed):
            return
        if moved.kind == K.DECL_STMT:
            declared = {c.spelling for c in moved.get_children() if c.kind == K.VAR_DECL}
            if declared & {t.spelling for s in passed for t in s.get_tokens()}:
                return
        start = moved.extent.start.offset
        moved_end = self.statement_end(path, moved)
        passed_start = passed[0].extent.start.offset
        end = self.statement_end(path, passed[-1])
        self.add(moved, "move", start, end, self.text(path, passed_start, end) +
                 self.text(path, moved_end, passed_start) + self.text(path, start, moved_end))

    def literal(self, cursor):
        path = self.file_of(cursor)
        for token in cursor.get_tokens():
            if token.kind != ci.TokenKind.LITERAL:
                continue
            spelling = token.spelling
            quote = spelling[0]
            if quote not in "\"'" or spelling[-1] != quote:
                continue
            units = re.findall(r"\\(?:x[0-9a-fA-F]+|[0-7]{1,3}|.)|.", spelling[1:-1], re.S)
            start = token.extent.start.offset + 1
            if not units:
                self.add(cursor, "literal", start, start, "X", path)
                continue
            self.add(cursor, "literal", start, start + len(units[0].encode()), changed_unit(units[0]), path)

    def call(self, cursor, path):
        name = cursor.spelling
        children = list(cursor.get_children())
        if name == "operator<<" and len(children) == 3:
            self.insertion(cursor, children[0], children[2], path)
        elif name in SYSTEM_CALLS and cursor.referenced is not None and \
                cursor.referenced.location.file is not None and \
                cursor.referenced.location.file.name.startswith("/usr/include/"):
            arguments = list(cursor.get_arguments())
            for position, argument in enumerate(arguments):
                self.system_call_argument(argument, path)
                self.flag_argument(name, position, argument, path)
            if name == "kill" and len(arguments) == 2 and \
                    re.fullmatch(r"(::)?getpid\(\s*\)", self.text(path, *self.span(arguments[0]))):
                # The process's own signal raised instead: it then goes to
                # the calling thread only, not to whichever thread takes it.
                self.add(cursor, "raise", *self.span(cursor),
                         "raise(" + self.text(path, *self.span(arguments[1])) + ")")

    def flag_argument(self, name, position, argument, path):
        start, end = self.span(argument)
        if self.text(path, start, end) == "0" and (name, position) in ZERO_FLAGS:
            self.add(argument, "flag", start, end, ZERO_FLAGS[(name, position)])
            return
        # By the text: a macro's use has no tokens of its own.
        for word in re.finditer(r"\w+", self.text(path, start, end)):
            for other in FLAGS.get(word.group(), ()):
                self.add(argument, "flag", start + word.start(), start + word.end(), other)

    @staticmethod
    def stream_owned_here(stream):
        """Whether the stream a chain of insertions starts from is a local
        variable or a data member: no one else can set a width on it."""
        root = stream
        while True:
            children = list(root.get_children())
            if root.kind == K.CALL_EXPR and root.spelling == "operator<<" and children:
                root = children[0]
            elif root.kind == K.UNEXPOSED_EXPR and children:
                root = children[0]
            else:
                break
        declaration = root.referenced
        if declaration is None:
            return False
        if declaration.kind == K.FIELD_DECL:
            return True
        parent = declaration.semantic_parent
        return declaration.kind == K.VAR_DECL and parent is not None and parent.kind in FUNCTIONS

    def insertion(self, cursor, stream, value, path):
        if "basic_ostream" not in stream.type.get_canonical().spelling:
            return
        start, end = self.span(cursor)
        stream_text = self.text(path, *self.span(stream))
        value_text = self.text(path, *self.span(value))
        referenced = [c for c in value.walk_preorder() if c.kind == K.DECL_REF_EXPR]
        if referenced and referenced[0].spelling in ("endl", "flush") and len(value_text.split("::")[-1]) <= 5:
            if referenced[0].spelling == "endl":
                self.add(value, "endl", *self.span(value), '"\\n"')
            else:
                self.add(cursor, "flush", start, end, stream_text)
            return
        if self.stream_owned_here(stream):
            return
        self.manipulators(stream, value, path)
        value_type = value.type.get_canonical()
        type_name = value_type.spelling
        if "basic_string<char" in type_name:
            write = "write(({0}).data(), static_cast<std::streamsize>(({0}).size()))".format(value_text)
        elif value_type.kind in (ci.TypeKind.CONSTANTARRAY, ci.TypeKind.POINTER) and \
                type_name.replace("const ", "").startswith("char"):
            write = "write({0}, std::char_traits<char>::length({0}))".format(value_text)
        elif value_type.kind in (ci.TypeKind.CHAR_S, ci.TypeKind.CHAR_U, ci.TypeKind.UCHAR, ci.TypeKind.SCHAR):
            write = "put({0})".format(value_text)
        else:
            return
        self.add(cursor, "unformatted", start, end, "({0}).{1}".format(stream_text, write))

    def manipulators(self, stream, value, path):
        """A manipulator before a formatted insertion into a stream others
        share: the insertion follows the state another module left, and the
        state it leaves is theirs."""
        start, end = self.span(value)
        value_text = self.text(path, start, end)
        for manipulator in ("std::dec", "std::hex"):
            self.add(value, "manipulator", start, end, manipulator + " << " + value_text)
        # Each formatted insertion leaves a width of 0: only the first one
        # of a chain can meet a width.
        if not (stream.kind == K.CALL_EXPR and stream.spelling == "operator<<"):
            header = "" if b"#include <iomanip>" in self.wanted[path] else "#include <iomanip>\n"
            self.add(value, "manipulator", start, end, "std::setw(0) << " + value_text, header=header)

    def system_call_argument(self, argument, path):
        start, end = self.span(argument)
        text = self.text(path, start, end)
        canonical = argument.type.get_canonical().kind
        if re.fullmatch(r"\d+", text) or text in FLAGS:
            return  # the constants' and the flags' own mutants change it already
        if canonical in (ci.TypeKind.UINT, ci.TypeKind.ULONG, ci.TypeKind.ULONGLONG):
            self.add(argument, "system-call", start, end, "(" + text + ") - 1")
        elif canonical in (ci.TypeKind.INT, ci.TypeKind.LONG):
            self.add(argument, "system-call", start, end, "(" + text + ") + 1")

    def catch(self, cursor, path):
        tokens = self.tokens(cursor)
        if len(tokens) < 3 or tokens[1].spelling != "(":
            return
        depth = 0
        for token in tokens[1:]:
            depth += {"(": 1, ")": -1}.get(token.spelling, 0)
            if depth == 0:
                close = token
                break
        else:
            return
        start, end = tokens[2].extent.start.offset, close.extent.start.offset
        declaration = self.text(path, start, end)
        if declaration.strip() == "...":
            self.add(cursor, "catch", start, end, "std::exception const&")
        elif not re.match(rb"\s*catch\b", self.wanted[path][cursor.extent.end.offset:]):
            # Only the last handler may catch everything.
            self.add(cursor, "catch", start, end, "...")


def changed_unit(unit):
    """Another byte for one character (or escape) of a literal."""
    if len(unit) == 1 and unit.isalpha():
        return unit.swapcase()
    if len(unit) == 1 and unit.isdigit():
        return str((int(unit) + 1) % 10)
    return "-" if unit == "_" else "_"


def find_mutants(translation_units, files):
    """The mutants of files (absolute path -> reported path) found in the
    translation units (source path, compiler arguments), in file order,
    each counted among the identical changes of its file."""
    index = ci.Index.create()
    wanted = {path: open(path, "rb").read() for path in files}
    found = {}
    for source, arguments in translation_units:
        unit = index.parse(source, args=arguments,
                           options=ci.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [d for d in unit.diagnostics if d.severity >= ci.Diagnostic.Error]
        if errors:
            raise RuntimeError("{}: {}".format(source, errors[0]))
        for mutant in SiteFinder(source, wanted, files).run(unit):
            found.setdefault((mutant.path, mutant.start, mutant.end, mutant.replacement, mutant.operator), mutant)
    ordered = sorted(found.values(), key=lambda m: (m.path, m.start, m.end, m.operator, m.replacement))
    counts = {}
    numbered = []
    for mutant in ordered:
        key = (mutant.path, mutant.operator, squeeze(mutant.original), squeeze(mutant.replacement))
        counts[key] = counts.get(key, -1) + 1
        numbered.append(Mutant(**{**mutant.__dict__, "occurrence": counts[key]}))
    return numbered
