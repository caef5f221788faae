# SPDX-License-Identifier: Apache-2.0
"""Weaves many faults into one source: each function holds its body once for each fault of it, and
the number in the environment decides which one runs. So all are compiled at once. The value that a
member has from the beginning is chosen likewise.

Faults elsewhere, and in functions that have to be known to the compiler, are left to be compiled
one by one.
"""

import re

from mutants import code_of, functions

ENVIRONMENT = "VESTREL_MUTANT"
HEADER = "vestrel-mutant.h"
HEADER_TEXT = f"""#pragma once
#include <cstdlib>
inline int vestrelMutant() {{
    static const int chosen = [] {{
        const char* const text = std::getenv("{ENVIRONMENT}");
        return text == nullptr ? 0 : std::atoi(text);
    }}();
    return chosen;
}}
"""

# Deduced results have to agree in all bodies, and what is known to the compiler knows no number.
UNWOVEN = re.compile(r"\b(?:constexpr|consteval|auto|operator\s*\"\")\b")


def bodies(code):
    """The spans between the braces of every function that can be woven."""
    return [span for head, span in functions(code) if not UNWOVEN.search(head)]


# A constant of the file, which a body can have differently by a constant of its own.
CONSTANT = re.compile(r"^constexpr [^;()]*?\b(?P<name>\w+)(?: = |\{)[^;]*;", re.MULTILINE)

# A number that a member has from the beginning.
INITIALISER = re.compile(
    r"^[ ]+(?!static\b|constexpr\b|const\b|return\b)[\w:]+ \w+ = (?P<value>\w+);", re.MULTILINE
)


def initialisers(code, spans):
    """The spans of such numbers; what is local in a function is none."""
    found = [match.span("value") for match in INITIALISER.finditer(code)]
    return [span for span in found if not any(a <= span[0] < b for a, b in spans)]


def within(spans, mutant):
    return next((span for span in spans if span[0] <= mutant.start and mutant.end <= span[1]), None)


def users(code, spans, constant):
    """The bodies that use a constant; none where it is used elsewhere as well."""
    found = []
    for match in re.finditer(rf"\b{constant['name']}\b", code):
        if constant.start() <= match.start() < constant.end():
            continue
        span = next((span for span in spans if span[0] <= match.start() < span[1]), None)
        if span is None:
            return []
        found.append(span)
    return sorted(set(found))


def places(source, mutants, numbers=True):
    """For each fault that can be woven: the bodies that it changes, and the constant that it is in,
    if it is in one. `numbers` tells whether those that members begin with are free to be woven."""
    code = code_of(source)
    spans = bodies(code)
    values = initialisers(code, [span for _, span in functions(code)]) if numbers else []
    constants = {match.span(): match for match in CONSTANT.finditer(code)}
    for mutant in mutants:
        if span := within(spans, mutant):
            yield mutant, [span], None
        elif around := within(constants, mutant):
            if used := users(code, spans, constants[around]):
                yield mutant, used, around
        elif value := within(values, mutant):
            yield mutant, [value], None


def weavable(source, mutants, numbers=True):
    """Those of the faults that can be woven."""
    return [mutant for mutant, _, _ in places(source, mutants, numbers)]


def line(source, at, name):
    return f'\n#line {source.count(chr(10), 0, at) + 1} "{name}"\n'


def changed(source, span, mutant):
    start, end = span
    return source[start : mutant.start] + mutant.text + source[mutant.end : end]


def case(label, source, span, name, body):
    return f"{label}: {{{line(source, span[0], name)}{body}}} break;\n"


def body_with(source, span, mutant, constant):
    if constant is None:
        return changed(source, span, mutant)
    return f"static {changed(source, constant, mutant)} {source[slice(*span)]}"


def woven(source, path, numbered):
    """The source with all the faults, `numbered` being pairs of number and fault."""
    cases, values = {}, initialisers(code_of(source), [])
    number_of = {mutant: number for number, mutant in numbered}
    for mutant, spans, constant in places(source, number_of):
        number = number_of[mutant]
        for span in spans:
            if span in values:
                chosen = f"vestrelMutant() == {number} ? {changed(source, span, mutant)} : "
                cases.setdefault(span, []).append(chosen)
                continue
            body = body_with(source, span, mutant, constant)
            text = case(f"case {number}", source, span, f"mutant-{number}", body)
            cases.setdefault(span, []).append(text)
    text, done = f'#include "{HEADER}"\n#line 1 "{path}"\n', 0
    for start, end in sorted(cases):
        if (start, end) in values:
            text += source[done:start] + "".join(cases[start, end])
            done = start
            continue
        original = case("default", source, (start, end), path, source[start:end])
        text += source[done:start] + " switch (vestrelMutant()) {\n"
        text += "".join(cases[start, end]) + original + "}" + line(source, end, path)
        done = end
    return text + source[done:]


def numbers_in_errors(output):
    """The faults that the compiler complains of: those its errors name, or are in the course of."""
    found, pending = set(), []
    for line in output.splitlines():
        pending += re.findall(r"mutant-(\d+)\b", line)
        if re.search(r"\berror: ", line):
            named = re.match(r"\S*mutant-(\d+):", line)
            found.update(map(int, [named[1]] if named else pending[-1:]))
            pending = []
    return found
