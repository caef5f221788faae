# SPDX-License-Identifier: Apache-2.0
"""Finds the small faults that can be put into a C++ source: one replacement of text each.

Nothing here parses C++: a fault that does not compile is found out by the compiler. Comments,
preprocessor lines and static assertions are left alone, since no test could tell.
"""

import collections
import dataclasses
import hashlib
import re


@dataclasses.dataclass(frozen=True)
class Mutant:
    kind: str
    start: int  # offsets in the source, which is replaced from start up to end
    end: int
    text: str

    def applied(self, source):
        return source[: self.start] + self.text + source[self.end :]

    def line(self, source):
        """Number of the line where it starts."""
        return source.count("\n", 0, self.start) + 1

    def before_and_after(self, source):
        """The lines that it touches, each in one line, blanks counting once."""
        first = source.rfind("\n", 0, self.start) + 1
        last = source.find("\n", self.end)
        last = len(source) if last == -1 else last
        before = source[first:last]
        after = source[first : self.start] + self.text + source[self.end : last]
        return " ".join(before.split()), " ".join(after.split())

    def key(self, name, source):
        """The same for as long as the code around it is: its function, or its declarations."""
        start, end = surroundings(source, self.start, self.end)
        before, after = source[start : self.start], source[self.end : end]
        parts = [name, plain(before), self.text, plain(after)]
        return hashlib.sha256("\0".join(parts).encode()).hexdigest()


# A comment, a raw or ordinary string, a character, a digit separator's number.
TOKENS = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<raw>R"(?P<fence>[^(\s]*)\(.*?\)(?P=fence)")
      | (?P<string>"(?:[^"\\\n]|\\.)*")
      | (?P<char>'(?:[^'\\\n]|\\.)')""",
    re.VERBOSE | re.DOTALL,
)
UNTESTABLE = re.compile(
    r"^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*|\bstatic_assert\b[^;]*;|__attribute__\(\(.*?\)\)"
    r"|\bpelbinName\b[^;]*;",  # a name for statistics
    re.MULTILINE | re.DOTALL,
)


def blanked(match):
    return re.sub(r"[^\n]", " ", match.group())


def code_of(source):
    """The source with everything blanked that is not code; offsets stay as they are."""

    def hide(match):
        text = match.group()
        if match.lastgroup == "comment":
            return blanked(match)
        return text[0] + "_" * (len(text) - 2) + text[-1]

    return UNTESTABLE.sub(blanked, TOKENS.sub(hide, source))


def surroundings(source, start, end):
    """From one line that begins outside of all braces, behind a blank line, to the next."""
    starts = [match.end() for match in re.finditer(r"\n\n(?=[^\s])", source)]
    first = max([0, *(at for at in starts if at <= start)])
    return first, min([len(source), *(at for at in starts if at >= end)])


def plain(text):
    """Without comments, blanks counting once."""
    text = TOKENS.sub(lambda match: "" if match["comment"] else match.group(), text)
    return " ".join(text.split())


SWAPPED = [
    ("comparison", r"==", "!="),
    ("comparison", r"!=", "=="),
    ("comparison", r"(?<=\s)<=(?=\s)", "<"),
    ("comparison", r"(?<=\s)>=(?=\s)", ">"),
    ("comparison", r"(?<=\s)<(?=\s)", "<="),
    ("comparison", r"(?<=\s)>(?=\s)", ">="),
    ("logic", r"&&(?=\s)(?! [a-z]+\))", "||"),
    ("logic", r"\|\|", "&&"),
    ("arithmetic", r"(?<=\s)\+(?=\s)", "-"),
    ("arithmetic", r"(?<=\s)-(?=\s)", "+"),
    ("arithmetic", r"\+=", "-="),
    ("arithmetic", r"(?<=\s)\*(?=\s)", "+"),
    ("arithmetic", r"(?<=\s)&(?=\s)", "|"),
    ("arithmetic", r"(?<=\s)\|(?=\s)", "&"),
    ("arithmetic", r"(?<=\s)\^(?=\s)", "&"),
    ("arithmetic", r"(?<=\s)>>(?=\s)", "<<"),
    ("arithmetic", r"(?<=\s)<<(?=\s)", ">>"),
    ("constant", r"\btrue\b", "false"),
    ("constant", r"\bfalse\b", "true"),
    ("constant", r"\bcontinue;", "break;"),
    ("constant", r"\bbreak;", "continue;"),
    ("step", r"\+\+(?=\w)", "--"),
    ("step", r"--(?=\w)", "++"),
]


def swaps(code):
    for kind, pattern, text in SWAPPED:
        for match in re.finditer(pattern, code):
            yield Mutant(kind, match.start(), match.end(), text)


def closing(code, opening):
    """The offset of the bracket that closes the one at `opening`, or -1."""
    depth = 0
    for at in range(opening, len(code)):
        if code[at] in "([{":
            depth += 1
        elif code[at] in ")]}":
            depth -= 1
            if depth == 0:
                return at
    return -1


# One comparison or one "!": other faults turn these round already.
PLAIN = re.compile(r"\(?!?[^!&|=<>?]*(?:[=!]=[^!&|=<>?]*)?\)?")


def turns_round_elsewhere(condition):
    return "!" in condition.replace("!=", "") and PLAIN.fullmatch(condition) or (
        re.search("[=!]=", condition) and PLAIN.fullmatch(condition)
    )


def conditions(source, code):
    """Conditions of statements, each negated, and each part of one negated."""
    for match in re.finditer(r"\b(?:if|while) (?:constexpr )?\(", code):
        start, end = match.end(), closing(code, match.end() - 1)
        if end == -1 or "=" in re.sub(r"[=!<>]=", "", code[start:end]):
            continue  # a declaration
        if turns_round_elsewhere(code[start:end]):
            continue
        yield Mutant("negation", start, end, f"!({source[start:end]})")
    for match in re.finditer(r"(?<=[(\s])!(?=[\w(])", code):
        yield Mutant("negation", match.start(), match.end(), "")
    for match in re.finditer(r"(?<=[(\s])(?P<test>\(?[\w.>()\[\]-]+) \? ", code):
        yield Mutant("negation", match.start("test"), match.end("test"), f"!({match['test']})")
    for match in re.finditer(r"\breturn (?!\{|!)(?P<value>[^;{}]*(?:==|!=|&&|\|\||\(\))[^;{}]*);", code):
        start, end = match.span("value")
        if turns_round_elsewhere(code[start:end]):
            continue
        yield Mutant("negation", start, end, f"!({source[start:end]})")


def numbers(code):
    pattern = r"(?<![\w.\"'])(?P<digits>0x[0-9a-fA-F]+|\d+)(?P<suffix>[uUlL]*)(?![\w.\"'])"
    for match in re.finditer(pattern, code):
        digits = match["digits"]
        value = int(digits, 0 if digits.startswith("0x") else 10)
        text = (hex(value + 1) if digits.startswith("0x") else str(value + 1)) + match["suffix"]
        yield Mutant("constant", match.start(), match.end(), text)


def texts(source, code):
    visible = {match.start() for match in re.finditer(r"[\"']", code)}
    for match in TOKENS.finditer(source):
        start, end = match.span()
        if match.lastgroup == "string" and start in visible:
            yield Mutant("text", start, end, source[start : end - 1] + '~"')
        elif match.lastgroup == "char" and start in visible:
            yield Mutant("text", start, end, "'~'" if match.group() != "'~'" else "'-'")


STATEMENT = re.compile(
    r"(?<=[;{}:\n])[ ]*\n(?P<indent>[ ]{4,})"
    r"(?P<text>(?!return\b|case\b|default\b|using\b|else\b|throw\b|public|private|friend\b)"
    r"[\w:>*(~][^;{}]*;)(?=[ ]*\n)"
)


def statements(code):
    """The simple statements of a source, as spans; declarations are among them."""
    at = 0
    while match := STATEMENT.search(code, at):
        yield match.span("text"), match["indent"]
        at = match.end()  # the line end before the next statement is not part of this match


# What others use cannot be dropped.
DECLARATION = re.compile(
    r"(?:const|constexpr|static|auto|struct|virtual|explicit)\b"
    r"|[\w:]+(?:<[^;=]*>)?[&*]? [&*]?\w+(?:\(|;| = |\{|\[)"
)


def drops(code, bodies):
    for (start, end), _ in statements(code):
        if is_inside(bodies, start, end) and not DECLARATION.match(code, start, end):
            yield Mutant("drop", start, end, ";")
    for match in re.finditer(r"\breturn;", code):
        yield Mutant("drop", match.start(), match.end(), ";")


# A declaration, or an assignment that calls nothing; its name is that of what is written.
PLAIN_WRITE = re.compile(
    r"(?:[\w:<>*&]+ )*[*&]?(?P<name>[\w.>-]+)(?: = (?P<value>(?:[^()\[\]+-]|->)*))?;"
)
MAKES = re.compile(r"const [^=]*;")  # what has no value and never gets one works by being made


def independent(first, second):
    """Whether nobody can tell which of two statements was first: each writes what the other leaves
    alone, and one of them does nothing else."""
    writes = [PLAIN_WRITE.fullmatch(" ".join(text.split())) for text in (first, second)]
    if not any(writes) or MAKES.match(first) or MAKES.match(second):
        return False
    names = [write["name"] if write else None for write in writes]
    return not any(
        name and re.search(rf"(?<![\w.]){re.escape(name)}\b", other)
        for name, other in zip(names, (second, first))
    ) and (all(writes) or any(write and write["value"] is None for write in writes))


MEMBER = re.compile(r"(?!static\b)[^()=]*\b\w+_(?: = .*|\{.*)?;", re.DOTALL)


def is_inside(bodies, start, end):
    return any(opening <= start and end <= close for opening, close in bodies)


def reorders(source, code, bodies):
    """Two statements that follow each other, the other way round. Outside of functions only the
    members of classes have an order that counts, that of their making and of their end."""
    found = list(statements(code))
    for ((start, end), indent), ((following, last), other) in zip(found, found[1:]):
        if indent == other and not code[end:following].strip():
            first, second = code[start:end], code[following:last]
            if is_inside(bodies, start, last):
                if independent(first, second):
                    continue
            elif not (MEMBER.fullmatch(first) and MEMBER.fullmatch(second)):
                continue
            text = source[following:last] + source[end:following] + source[start:end]
            yield Mutant("order", start, last, text)


def arguments(code, opening, end):
    """The spans of what stands between commas at the first level."""
    spans, depth, start = [], 0, opening + 1
    for at in range(opening + 1, end + 1):
        if (code[at] == "," and depth == 0) or at == end:
            spans.append((start, at))
            start = at + 1
        elif code[at] in "([{":
            depth += 1
        elif code[at] in ")]}":
            depth -= 1
    return spans


# Calls whose arguments mean the same in either order.
SYMMETRIC = re.compile(r"\b(?:equal|same|min|max)$")

# "Type& name", as a function's own parameter.
PARAMETER = re.compile(r"\w>?[&*]* [&*]?\w+$")


def operands(source, code):
    """Neighbouring arguments of calls, the other way round."""
    for match in re.finditer(r"(?<=\w)\(", code):
        opening, end = match.start(), closing(code, match.start())
        if end == -1 or re.search(r"\b(?:if|for|while|switch|catch)[ ]?$", code[:opening]):
            continue
        if SYMMETRIC.search(code[:opening]):
            continue
        spans = [trimmed(code, span) for span in arguments(code, opening, end)]
        if any(PARAMETER.search(code[slice(*span)]) for span in spans):
            continue
        if re.search(r"\bDUOLOG\w*$", code[:opening]):
            spans = spans[1:]
        for (start, stop), (following, last) in zip(spans, spans[1:]):
            if source[start:stop] != source[following:last]:
                text = source[following:last] + source[stop:following] + source[start:stop]
                yield Mutant("operands", start, last, text)


def trimmed(code, span):
    start, end = span
    while start < end and code[start].isspace():
        start += 1
    while end > start and code[end - 1].isspace():
        end -= 1
    return start, end


# What stands before a brace that is no function's, but may have functions inside.
TRANSPARENT = re.compile(
    r"(?:template\b.*>\s*)?(?:inline\s+)?(?:namespace|class|struct|extern)\b[^()]*", re.DOTALL
)


def functions(code):
    """What stands before the brace of every function, and the span between its braces."""
    start, at = 0, 0
    while at < len(code):
        char = code[at]
        if char == "(":
            at = max(closing(code, at), at)
        elif char in ";}":
            start = at + 1
        elif char == "{":
            end, head = closing(code, at), code[start:at]
            if end == -1:
                return
            if TRANSPARENT.fullmatch(head.strip()):
                start = at + 1
            elif re.search(r"(?:\w|=\s*)$", head):
                at = end  # an initialiser
            else:
                if "(" in head:
                    yield head, (at + 1, end)
                at, start = end, end + 1
        at += 1


def function_bodies(code):
    return [span for _, span in functions(code)]


def name_of(head):
    """The function's own name, of what stands before its brace."""
    return re.search(r"(?P<name>~?\w+|operator[^(]*)\s*\(", head)["name"]


def places(source, mutants):
    """Where each fault is: the name of its function, if it is in one, and a number after the first
    of several with the same lines."""
    code = code_of(source)
    named = [(name_of(head), *span) for head, span in functions(code)]
    seen = collections.Counter()
    for mutant in mutants:
        inside = [name for name, start, end in named if start <= mutant.start < end]
        key = (*inside, *mutant.before_and_after(source))
        seen[key] += 1
        yield " ".join([*inside, *([str(seen[key])] if seen[key] > 1 else [])])


def mutants_of(source):
    """Every fault, in the order of the source, each text once."""
    code = code_of(source)
    bodies = function_bodies(code)
    found = [
        *swaps(code),
        *conditions(source, code),
        *numbers(code),
        *texts(source, code),
        *drops(code, bodies),
        *reorders(source, code, bodies),
        *operands(source, code),
    ]
    seen, result = set(), []
    for mutant in sorted(found, key=lambda m: (m.start, m.end, m.kind)):
        changed = mutant.applied(source)
        if changed != source and changed not in seen:
            seen.add(changed)
            result.append(mutant)
    return result
