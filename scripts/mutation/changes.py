"""The small changes that can be made to a C++ source, one at a time."""

import dataclasses
import random
import re

COMMENT_OR_TEXT = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"\(.*?\)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', re.S)
DIRECTIVE = re.compile(r"^[ \t]*#[^\n]*(?:\\\n[^\n]*)*", re.M)

SIGNS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&",
         "+": "-", "-": "+", "*": "/", "/": "*", "+=": "-=", "-=": "+=", "&": "|", "|": "&",
         "%": "*", "<<": ">>", ">>": "<<"}
SIGN = re.compile(r"(?<= )(?:%s)(?= )" % "|".join(sorted(map(re.escape, SIGNS), key=len, reverse=True)))
WORDS = {"true": "false", "false": "true", "TRUE": "FALSE", "FALSE": "TRUE"}
WORD = re.compile(r"\b(?:true|false|TRUE|FALSE)\b")
NUMBER = re.compile(r"(?<![\w.])\d+(?![\w.'])")
NEGATION = re.compile(r"(?<![\w)])!(?=[\w(])")
ARGUMENTS = re.compile(r"(?<=[(,])( ?)([\w.>*&\[\]-]+), ([\w.>*&\[\]-]+)(?=[,)])")
STATEMENT = re.compile(r"^( +)(?!return\b|break;|continue;|using\b|delete\b)[^\n{}]*;$", re.M)
CALL = re.compile(r"^( +)((?!return\b|throw\b)[\w:.>~-]+\([^\n{}=]*\);)$", re.M)
LETTER = re.compile(r"[A-Za-z]")
NOT_SHOWN = re.compile(r"%[-+ #0-9.*]*(?:hh|h|ll|l|z|j)?\w|\\(?:x[0-9a-fA-F]+|\w)")


@dataclasses.dataclass(frozen=True)
class Change:
    path: str
    start: int
    end: int
    new: str
    kind: str

    def applied(self, source: str) -> str:
        return source[:self.start] + self.new + source[self.end:]

    def shown(self, source: str) -> str:
        """The place and the lines before and after, on one line."""
        first = source.rfind("\n", 0, self.start) + 1
        last = (source + "\n").find("\n", self.end)
        before = source[first:last]
        after = source[first:self.start] + self.new + source[self.end:last]
        number = source.count("\n", 0, first) + 1
        one, other = (" ".join(text.split()) for text in (before, after))
        return f"{self.path}:{number} ({self.kind}): {one}  =>  {other}"


def blanked(source: str, pattern: re.Pattern) -> str:
    """The source with what matches replaced by as many blanks; lines stay where they are."""
    return pattern.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), source)


def codeOf(source: str) -> str:
    """The source without comments, texts and directives, of the same length."""
    return blanked(blanked(source, DIRECTIVE), COMMENT_OR_TEXT)


def replacements(path: str, code: str) -> list[Change]:
    """Signs, numbers, words of truth and negations."""
    changes = []
    for found in SIGN.finditer(code):
        changes.append(Change(path, *found.span(), SIGNS[found[0]], "sign"))
    for found in WORD.finditer(code):
        changes.append(Change(path, *found.span(), WORDS[found[0]], "truth"))
    for found in NUMBER.finditer(code):
        changes.append(Change(path, *found.span(), str(int(found[0]) + 1), "constant"))
    for found in NEGATION.finditer(code):
        changes.append(Change(path, *found.span(), "", "negation"))
    return changes


def swappedArguments(path: str, code: str) -> list[Change]:
    return [Change(path, *found.span(), f"{found[1]}{found[3]}, {found[2]}", "arguments")
            for found in ARGUMENTS.finditer(code) if found[2] != found[3]]


def droppedCalls(path: str, source: str, code: str) -> list[Change]:
    return [Change(path, *found.span(2), "", "dropped call")
            for found in CALL.finditer(code) if isStatement(code, found.start())]


def isStatement(code: str, start: int) -> bool:
    """Whether a line begins a statement: what is before it has ended."""
    before = code[:start].rstrip()
    return before == "" or before[-1] in ";{}:"


def swappedStatements(path: str, source: str, code: str) -> list[Change]:
    """Two statements of one line each, one behind the other."""
    changes = []
    lines = list(STATEMENT.finditer(code))
    for first, second in zip(lines, lines[1:]):
        isPair = first.end() + 1 == second.start() and first[1] == second[1]
        if isPair and isStatement(code, first.start()):
            new = source[second.start():second.end()] + "\n" + source[first.start():first.end()]
            changes.append(Change(path, first.start(), second.end(), new, "order"))
    return changes


def changedTexts(path: str, source: str, chance: random.Random) -> list[Change]:
    """One letter of each text, which no format reads as its own."""
    changes = []
    directives = {at for found in DIRECTIVE.finditer(source) for at in range(*found.span())}
    for text in COMMENT_OR_TEXT.finditer(source):
        if text[0].startswith(("/", "'")) or text.start() in directives:
            continue
        body = blanked(text[0], NOT_SHOWN)
        begin = 3 if body.startswith("R") else 1
        letters = [found.start() for found in LETTER.finditer(body, begin)]
        if letters:
            at = text.start() + chance.choice(letters)
            changes.append(Change(path, at, at + 1, source[at].swapcase(), "text"))
    return changes


def changesOf(path: str, source: str, chance: random.Random) -> list[Change]:
    """Every change to a source; which letter of a text is changed is left to chance."""
    code = codeOf(source)
    return (replacements(path, code) + swappedArguments(path, code)
            + droppedCalls(path, source, code) + swappedStatements(path, source, code)
            + changedTexts(path, source, chance))


def chosen(sources: dict[str, str], chance: random.Random) -> list[Change]:
    """All changes in an order of chance in which the kinds take turns: there are many texts and
    constants and few of the others."""
    kinds: dict[str, list[Change]] = {}
    for path in sorted(sources):
        for change in changesOf(path, sources[path], chance):
            kinds.setdefault(change.kind, []).append(change)
    for kind in sorted(kinds):
        chance.shuffle(kinds[kind])
    order = []
    while any(kinds.values()):
        order += [kinds[kind].pop() for kind in sorted(kinds) if kinds[kind]]
    return order
