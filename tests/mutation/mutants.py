"""Small changes to C++ sources, each of which some test should notice."""

import hashlib
import re
from collections import namedtuple

Token = namedtuple("Token", "kind text begin end")
# `begin` and `end` are offsets into the file; `after` is what replaces `before`.
Mutant = namedtuple("Mutant", "file line rule begin end before after")

LEXER = re.compile(
    r"""(?P<blank>\s+|//[^\n]*|/\*.*?\*/|^[ ]*\#(?:[^\n]*\\\n)*[^\n]*)
      | (?P<string>"(?:\\.|[^"\\\n])*")
      | (?P<char>'(?:\\.|[^'\\\n])+')
      | (?P<number>\d[\w.']*)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<sign><=>|<<=|>>=|\.\.\.|->|::|\+\+|--|&&|\|\||[-+*/%&|^=!<>]=|<<|>>|[^\s\w])""",
    re.VERBOSE | re.DOTALL | re.MULTILINE)

SIGNS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&",
         "+": "-", "-": "+", "*": "/", "/": "*", "|": "&", "++": "--", "--": "++", "+=": "-=",
         "-=": "+=", "!": ""}
OPENING = {"(": ")", "[": "]", "{": "}"}
# What may begin a statement that is more than a call or an assignment.
KEYWORDS = set("return if for while switch case default do else using namespace class struct enum "
               "public private protected template static constexpr const auto throw break continue "
               "friend explicit virtual typedef inline extern try catch static_assert".split())
# "Type name", as opposed to "name = " and "name(".
DECLARATION = re.compile(r"[\w:]+(<[^;=]*>)?[\s*&]+(?!and\b|or\b)[A-Za-z_][\w:]*\s*[^\w\s]")
# What begins a line whose "{" opens a branch or a loop.
BRANCH = re.compile(r"\s*(\} )?(if|else|for|while)\b")
ONE_LINE_BODY = re.compile(r"\{ ([^{}]*;) \}")


def tokens_of(text):
    return [Token(match.lastgroup, match.group(), match.start(), match.end())
            for match in LEXER.finditer(text) if match.lastgroup != "blank"]


def partner(tokens, index):
    """The index of the bracket that closes the one at `index`."""
    depth = 0
    for i in range(index, len(tokens)):
        if tokens[i].text in OPENING:
            depth += 1
        elif tokens[i].text in OPENING.values():
            depth -= 1
            if depth == 0:
                return i
    return len(tokens) - 1


def indent_of(line):
    return len(line) - len(line.lstrip())


def length_of_statement(lines):
    """Of the one that the first line begins with, in clang-format's layout; 0 if it begins with anything else."""
    text = ""
    for line in lines:
        text += line
        tokens = tokens_of(text)
        depth = sum((token.text in OPENING) - (token.text in OPENING.values()) for token in tokens)
        if depth < 0 or not tokens or (depth == 0 and tokens[-1].text in "{}:"):
            return 0
        if depth == 0 and tokens[-1].text == ";":
            return tokens[-1].end
    return 0


def is_simple(statement):
    """Whether it is a call or an assignment."""
    tokens = tokens_of(statement)[:-1]
    if not tokens or tokens[0].text in KEYWORDS or tokens[0].text == "[" or tokens[-1].text in ("delete", "default"):
        return False
    if DECLARATION.match(statement):
        return False
    return tokens[-1].text == ")" or any(token.text in ("=", "+=", "-=", "++", "--") for token in tokens)


def is_in_branch(lines):
    """Whether the last line is directly in a branch or a loop."""
    outer = next((line for line in reversed(lines) if line.strip() and indent_of(line) < indent_of(lines[-1])), "")
    return bool(BRANCH.match(outer))


class Finder:
    """Finds every mutant of one file."""

    def __init__(self, file, text):
        self.file, self.text, self.tokens = file, text, tokens_of(text)
        self.found = []

    def add(self, rule, begin, end, after):
        before = self.text[begin:end]
        if before != after:
            line = self.text.count("\n", 0, begin) + 1
            self.found.append(Mutant(self.file, line, rule, begin, end, before, after))

    def all(self):
        for index, token in enumerate(self.tokens):
            self.signs_and_constants(index, token)
            if token.text in ("if", "while"):
                self.conditions(index)
        self.statements()
        return self.found

    def signs_and_constants(self, index, token):
        begin, end = token.begin, token.end
        if token.kind == "sign" and token.text in SIGNS:
            # The layout distinguishes a comparison from a template, "a && b" from "T&& b".
            is_binary = self.text[begin - 1].isspace() and self.text[end].isspace()
            if is_binary or token.text in ("!", "++", "--"):
                self.add("operator", begin, end, SIGNS[token.text])
        elif token.kind == "number":
            # The size of a buffer may be larger.
            if self.tokens[index + 1].text != ">" or self.text[end] != ">":
                self.add("constant", begin, end, f"({token.text} + 1)")
        elif token.kind == "string":
            self.add("constant", begin, end, '"~' + token.text[1:])
        elif token.kind == "char":
            self.add("constant", begin, end, "'~'")
        elif token.text in ("true", "false"):
            self.add("constant", begin, end, "false" if token.text == "true" else "true")

    def conditions(self, index):
        opening = index + 1
        if self.tokens[opening].text != "(":
            return
        inner = self.tokens[opening + 1:partner(self.tokens, opening)]
        begin, end = inner[0].begin, inner[-1].end
        condition = self.text[begin:end]
        if any(token.text == ";" for token in inner):
            return
        if any(token.text == "=" for token in inner):
            if self.tokens[index].text == "if":
                self.add("condition", begin, end, condition + "; false")
            return
        # "!a", "a == b" and "a != b" on their own are turned round as operators.
        signs = {token.text for token in inner}
        if not signs & {"!", "==", "!="} or signs & {"&&", "||"}:
            self.add("condition", begin, end, f"!({condition})")
        if self.tokens[index].text == "if":
            self.add("condition", begin, end, "false")
            self.add("condition", begin, end, "true")

    def statements(self):
        lines, begin, last_sign, previous = self.text.splitlines(keepends=True), 0, ";", None
        for number, line in enumerate(lines):
            tokens = tokens_of(line)
            if tokens and last_sign in "{};:":
                first = begin + tokens[0].begin
                last = first + length_of_statement([line[tokens[0].begin:], *lines[number + 1:]])
                body = ONE_LINE_BODY.search(line)
                if last == first and body:
                    first, last = begin + body.start(1), begin + body.end(1)
                self.statement(first, last, lines[:number + 1], previous)
                previous = (first, last) if is_simple(self.text[first:last]) else None
            last_sign = tokens[-1].text if tokens else last_sign
            begin += len(line)

    def statement(self, first, last, lines, previous):
        text = self.text[first:last]
        if is_simple(text):
            self.add("dropped statement", first, last, ";")
            if previous and previous[1] < first:
                self.add("swapped order", previous[0], last, f"{text} {self.text[slice(*previous)]}")
        elif text in ("break;", "continue;"):
            self.add("dropped statement", first, last, ";")
        elif text.startswith("return "):
            if is_in_branch(lines):
                self.add("return", first, last, ";")
            elif text != "return std::nullopt;":
                self.add("return", first, last, "return {};")


def mutants_of(file, text):
    return Finder(file, text).all()


def sample(mutants, count, seed):
    """`count` of them, spread over all files by their number there and over the rules within each.

    The choice depends on the seed and the sources alone, and the same lines stay chosen when others change.
    """
    def rank(mutant):
        key = f"{seed} {mutant.file} {mutant.rule} {mutant.before} {mutant.after}"
        return hashlib.sha256(key.encode()).digest()

    by_file = {}
    for mutant in mutants:
        by_file.setdefault(mutant.file, {}).setdefault(mutant.rule, []).append(mutant)
    chosen = []
    for file in sorted(by_file):
        rules = [sorted(each, key=rank) for _, each in sorted(by_file[file].items())]
        total = sum(len(each) for each in rules)
        quota = max(2, round(count * total / len(mutants)))
        in_turn = sorted(((place, rank(mutant), mutant) for each in rules
                          for place, mutant in enumerate(each)), key=lambda entry: entry[:2])
        chosen += sorted((mutant for _, _, mutant in in_turn[:quota]), key=lambda m: (m.begin, m.end))
    return chosen
