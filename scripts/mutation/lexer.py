"""Cuts C++ as this project formats it into tokens, scopes and statements.

clang-format keeps blanks on both sides of a binary operator and of nothing else, so `a < b` and
`static_cast<int>` are told apart by their blanks alone.
"""

import re
from typing import NamedTuple

PATTERN = re.compile(r"""
    (?P<blank>\s+|//[^\n]*|/\*.*?\*/)
  | (?P<directive>(?<![^\n])[ \t]*\#(?:[^\n\\]|\\.)*)
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)+')
  | (?P<number>\.?\d(?:[eEpP][+-](?=\d)|'\d|[\w.])*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<operator><<=|>>=|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
""", re.VERBOSE | re.DOTALL)

OPENING = {"(": ")", "[": "]", "{": "}"}
CLOSING = set(OPENING.values())
# No expression statement starts with one of these, whatever follows.
STATEMENT_WORDS = {
    "return", "break", "continue", "goto", "throw", "case", "default", "else", "do", "try", "catch",
    "if", "for", "while", "switch", "using", "typedef", "static_assert", "template", "namespace",
    "struct", "class", "enum", "union", "const", "constexpr", "static", "extern", "auto", "public",
    "private", "protected", "thread_local"}


class Token(NamedTuple):
    kind: str
    text: str
    start: int
    end: int
    binary: bool  # blanks on both sides


class Statement(NamedTuple):
    first: int  # index of its first token
    last: int  # index of its semicolon


def tokenize(source):
    found = [m for m in PATTERN.finditer(source) if m.lastgroup not in ("blank", "directive")]
    return [Token(m.lastgroup, m.group(), m.start(), m.end(),
                  source[m.start() - 1:m.start()].isspace() and source[m.end():m.end() + 1].isspace())
            for m in found]


class Source:
    """Tokens of a file, which of them stand in function bodies, and the statements there."""

    def __init__(self, text):
        self.text = text
        self.tokens = tokenize(text)
        self.partner = self._partners()
        self.skipped = self._skipped()
        self.code = [False] * len(self.tokens)
        self.blocks = []  # one list of simple statements a block
        self._walk()

    def word(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def line(self, position):
        return self.text.count("\n", 0, position) + 1

    def _partners(self):
        partner, opened = {}, []
        for i, token in enumerate(self.tokens):
            if token.kind == "operator" and token.text in OPENING:
                opened.append(i)
            elif token.kind == "operator" and token.text in CLOSING and opened:
                partner[i] = opened.pop()
                partner[partner[i]] = i
        return partner

    def _until(self, index, ends):
        while index < len(self.tokens) and self.word(index) not in ends:
            index = self.partner.get(index, index) + 1
        return index

    def _skipped(self):
        """Tokens whose change is noticed by the compiler, or by nobody."""
        skipped = set()
        for i, token in enumerate(self.tokens):
            last = i - 1
            if token.text in ("static_assert", "__attribute__", "__asm__", "reserve", "alignas"):
                last = self.partner.get(i + 1, i)
            elif token.text in ("using", "typedef", "enum"):
                last = self._until(i, ";")
            elif token.text == "[" and self.word(i + 1) == "[":
                last = self.partner[i]
            elif token.text == "template" and self.word(i + 1) == "<":
                last = self._angle_end(i + 1)
            elif token.text == "=" and self.word(i + 1) == "0" and self.word(i + 2) == ";":
                # A pure virtual function.
                last = i + 1 if self.word(i - 1) in (")", "const", "noexcept") else last
            skipped.update(range(i, last + 1))
        return skipped

    def _angle_end(self, index):
        depth = 0
        while index < len(self.tokens):
            text = self.word(index)
            depth += {"<": 1, ">": -1, ">>": -2}.get(text, 0)
            if depth <= 0:
                return index
            index += 1
        return index

    def _is_body(self, index, inside_code, inside_body):
        """Whether the brace at index opens statements rather than values or members."""
        before = self.word(index - 1)
        if before in (")", "else", "do", "try", "const", "noexcept", "override"):
            return True
        if inside_code:
            return before == "]" or (inside_body and before in ("{", "}", ";", ":"))
        return before == "}" and index - 1 not in self.bodies  # behind a list of initialisers

    def _walk(self):
        """Marks the tokens of function bodies and collects their simple statements."""
        self.bodies = set()  # closing braces of bodies
        opened = []  # for each brace: code, body, the statement and parentheses it interrupts
        block, first, depth = [], 0, 0
        for i, token in enumerate(self.tokens):
            code, body = opened[-1][:2] if opened else (False, False)
            self.code[i] = code
            if not code and token.kind == "name" and token.text.isupper() and i + 1 in self.partner:
                # A macro at file scope checks or declares.
                self.skipped.update(range(i, self.partner[i + 1] + 1))
            depth += {"(": 1, ")": -1}.get(token.text, 0)
            if token.text == "{":
                is_body = self._is_body(i, code, body)
                opened.append((code or is_body, is_body, first, depth, block))
                depth = 0
                first, block = (i + 1, []) if is_body else (first, block)
            elif token.text == "}" and opened:
                _, was_body, outer_first, depth, outer_block = opened.pop()
                if was_body:
                    self.bodies.add(i)
                    self.blocks.append(block)
                    # A lambda ends in the midst of a statement.
                    first = outer_first if self.word(i + 1) in (";", ")", ",", "(") else i + 1
                block = outer_block
            elif token.text == ";" and depth == 0:
                if body and self._is_simple(first, i):
                    block.append(Statement(first, i))
                first = i + 1
            elif token.text == ":" and self._is_label(first, i):
                first = i + 1

    def _is_label(self, first, colon):
        return self.word(first) in ("case", "default") and "?" not in (
            self.word(i) for i in range(first, colon))

    def _is_simple(self, first, last):
        if first >= last or self.word(first) in STATEMENT_WORDS:
            return False
        if any(self.partner.get(i) in self.bodies for i in range(first, last)):
            return False
        # Two names beside each other, also as `Type* name`, declare something.
        for i in range(first, last):
            if self.word(i) in ("(", "=", "{", "["):
                break
            here, following = self.tokens[i], self.tokens[i + 1]
            ends_type = here.kind == "name" or (here.text in ("*", "&", ">") and not here.binary
                                                and i > first)
            if ends_type and following.kind == "name" and here.text != "delete":
                return False
        return self.word(first) not in (";", ")", "}")
