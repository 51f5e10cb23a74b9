"""The kinds of deliberate faults, and where a source offers a place for each."""

import re
from typing import NamedTuple

from mutation.lexer import OPENING, Source

COMPARISONS = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
               "==": ("!=",), "!=": ("==",)}
SIGNS = {"+": "-", "-": "+", "+=": "-=", "-=": "+=", "++": "--", "--": "++"}
ARITHMETIC = {"*": "/", "/": "*", "%": "*", "*=": "/=", "/=": "*=", "%=": "*="}
BITS = {"&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<", "&=": "|=", "|=": "&=", "^=": "&=",
        "<<=": ">>=", ">>=": "<<="}
LEVELS = {"kAlways": "kDebug", "kInfo": "kError", "kDebug": "kAlways", "kError": "kInfo"}
SYMMETRIC = {"min", "max", "minmax"}
NO_CALL = {"if", "for", "while", "switch", "return", "sizeof", "catch", "defined"}
INTEGER = re.compile(r"(0[xX])?([\da-fA-F]+)([uUlL]*)\Z")
CAST = re.compile(r"\w+_cast<[^()]*>\(")
REAL = re.compile(r"(\d+)(\.\d*)([fFlL]?)\Z")


class Mutant(NamedTuple):
    file: str
    line: int
    kind: str
    start: int
    end: int
    replacement: str

    def apply(self, text):
        return text[:self.start] + self.replacement + text[self.end:]


class Change(NamedTuple):
    kind: str
    first: int  # token index
    last: int
    replacement: str


def operators(source):
    """One operator for another of its family."""
    for i, token in enumerate(source.tokens):
        text = token.text
        if token.kind != "operator":
            continue
        if token.binary:
            for other in COMPARISONS.get(text, ()):
                yield Change("comparison", i, i, other)
            for kind, family in (("sign", SIGNS), ("arithmetic", ARITHMETIC), ("bits", BITS)):
                if text in family:
                    yield Change(kind, i, i, family[text])
            if text in ("&&", "||"):
                yield Change("logical", i, i, "||" if text == "&&" else "&&")
        elif text in ("++", "--"):
            yield Change("sign", i, i, SIGNS[text])
        elif text in ("!", "~"):
            yield Change("logical" if text == "!" else "bits", i, i, "")
        elif text == "-" and source.word(i - 1) not in (")", "]"):
            yield Change("sign", i, i, "")


def neighbours(token):
    """What a literal is replaced with."""
    if token.kind == "char":
        return ["'x'" if token.text != "'x'" else "'y'"]
    integer = INTEGER.match(token.text)
    if integer:
        prefix, digits, suffix = integer.group(1) or "", integer.group(2), integer.group(3)
        if prefix:
            form, value = "{}{:0" + str(len(digits)) + "X}{}", int(digits, 16)
        elif digits.isdigit() and not (len(digits) > 1 and digits[0] == "0"):
            form, value = "{}{}{}", int(digits)
        else:
            form, value = "{}0{:o}{}", int(digits, 8)
        return [form.format(prefix, value + step, suffix)
                for step in (1, -1) if value + step >= 0]
    real = REAL.match(token.text)
    if real:
        return [f"{int(real.group(1)) + step}{real.group(2)}{real.group(3)}"
                for step in (1, -1) if int(real.group(1)) + step >= 0]
    return {"true": ["false"], "false": ["true"]}.get(token.text, [])


def constants(source):
    for i, token in enumerate(source.tokens):
        if token.kind in ("number", "char") or token.text in ("true", "false"):
            for other in neighbours(token):
                yield Change("constant", i, i, other)


def conditions(source):
    for i, token in enumerate(source.tokens):
        close = source.partner.get(i + 1)
        if token.text in ("if", "while") and source.word(i + 1) == "(" and close:
            inside = source.tokens[i + 2:close]
            # A declaration cannot be negated; a lone comparison or negation is by its own kind.
            lone = inside[0].text == "!" or sum(t.binary and t.text in COMPARISONS
                                                for t in inside) == 1
            joined = any(t.text in ("&&", "||") for t in inside)
            if not any(t.text in ("=", ";") for t in inside) and (joined or not lone):
                text = source.text[inside[0].start:inside[-1].end]
                yield Change("logical", i + 2, close - 1, f"!({text})")


def levels(source):
    for i, token in enumerate(source.tokens):
        if token.text.startswith("ZEB_LOG") and source.word(i + 1) == "(":
            for j in range(i + 2, source.partner[i + 1]):
                if source.word(j) in LEVELS:
                    yield Change("log level", j, j, LEVELS[source.word(j)])


def arguments(source, opening):
    """Token ranges of the arguments of a call; empty ones are left out."""
    close = source.partner[opening]
    found, first, angles, i = [], opening + 1, 0, opening + 1
    while i < close:
        token = source.tokens[i]
        if token.text == "<" and not token.binary:
            angles += 1
        elif token.text == ">" and not token.binary:
            angles -= 1
        elif token.text == "," and angles <= 0:
            found.append((first, i - 1))
            first = i + 1
        i = source.partner[i] + 1 if token.text in OPENING and i in source.partner else i + 1
    found.append((first, close - 1))
    return [pair for pair in found if pair[0] <= pair[1]]


def text_of(source, pair):
    return source.text[source.tokens[pair[0]].start:source.tokens[pair[1]].end]


def swapped(source, kind, one, other):
    a, b = text_of(source, one), text_of(source, other)
    between = source.text[source.tokens[one[1]].end:source.tokens[other[0]].start]
    return Change(kind, one[0], other[1], b + between + a)


def calls(source):
    for i, token in enumerate(source.tokens):
        opening = i + 1
        is_call = token.kind == "name" and source.word(opening) == "(" and source.code[i]
        if not is_call or token.text in NO_CALL | SYMMETRIC or opening not in source.partner:
            continue
        found = arguments(source, opening)
        for one, other in zip(found, found[1:]):
            # A text in the place of anything else does not compile.
            texts = [source.tokens[pair[0]].kind == "string" for pair in (one, other)]
            if text_of(source, one) != text_of(source, other) and texts[0] == texts[1]:
                yield swapped(source, "swapped arguments", one, other)


def depend(source, one, other):
    """Whether the order of two statements may show: both call something, or one stores what the
    other uses."""
    words = [[source.tokens[i] for i in range(s.first, s.last)] for s in (one, other)]
    texts = ["".join(t.text for t in tokens) for tokens in words]
    if all("(" in CAST.sub("", text) for text in texts):
        return True
    stores = [re.match(r"([\w.\[\]>-]+?)(?:[-+|&*/]|<<|>>)?=(?!=)", text) for text in texts]
    if all(stores):
        return stores[0].group(1) in texts[1] or stores[1].group(1) in texts[0]
    names = [{t.text for t in tokens if t.kind == "name"} for tokens in words]
    return bool(names[0] & names[1])


def statements(source):
    for block in source.blocks:
        for i, one in enumerate(block):
            yield Change("deleted statement", one.first, one.last, ";")
            other = block[i + 1] if i + 1 < len(block) else None
            if other and other.first == one.last + 1 and depend(source, one, other):
                if text_of(source, one) != text_of(source, other):
                    yield swapped(source, "swapped statements", one, other)


MAKERS = (operators, constants, conditions, levels, calls, statements)


def used_names(sources):
    """How often a name stands anywhere that counts."""
    counts = {}
    for source in sources:
        for i, token in enumerate(source.tokens):
            if token.kind == "name" and i not in source.skipped:
                counts[token.text] = counts.get(token.text, 0) + 1
    return counts


def idle_constants(source, counts):
    """Tokens of constants that nothing but a static_assert reads."""
    idle = set()
    for i, token in enumerate(source.tokens):
        if token.kind == "name" and source.word(i + 1) == "=" and counts.get(token.text) == 1:
            line = source.text[source.text.rfind("\n", 0, token.start) + 1:token.start]
            if re.search(r"\bconst(expr)?\b", line) and "*" not in line:
                idle.update(range(i, source._until(i, ";") + 1))
    return idle


def mutants_of(file, source, idle=frozenset()):
    """Every mutant of a source in the order of the text."""
    found = []
    for maker in MAKERS:
        for change in maker(source):
            if not any(i in source.skipped or i in idle
                       for i in range(change.first, change.last + 1)):
                start, end = source.tokens[change.first].start, source.tokens[change.last].end
                found.append(Mutant(file, source.line(start), change.kind, start, end,
                                    change.replacement))
    return sorted(found, key=lambda m: (m.start, m.kind, m.replacement))


def mutants_of_text(text):
    """Mutants of a snippet as (kind, text after)."""
    return [(m.kind, m.apply(text)) for m in mutants_of("snippet", Source(text))]
