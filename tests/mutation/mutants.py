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


def end_of_statement(tokens, index):
    """The index of the ";" of the statement that starts at `index`, or None if it has a body."""
    is_return = tokens[index].text == "return"
    while index < len(tokens):
        text = tokens[index].text
        if text == ";":
            return index
        if text == "}" or (text == "{" and not is_return):
            return None
        index = (partner(tokens, index) if text in OPENING else index) + 1
    return None


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
        tokens, index, previous, openings = self.tokens, 0, None, []
        while index < len(tokens):
            text = tokens[index].text
            last = end_of_statement(tokens, index)
            if text == "}" and openings:
                openings.pop()
            if last is None or text in ("}", "{", ";", ":"):
                # Step over whatever this is to the next place where a statement can begin.
                while tokens[index].text not in ("{", "}", ";"):
                    index = index if tokens[index].text == "{" else index + 1
                    if tokens[index].text in ("(", "["):
                        index = partner(tokens, index) + 1
                if tokens[index].text == "{":
                    openings.append(index)
                elif tokens[index].text == "}" and text != "}" and openings:
                    openings.pop()
                index, previous = index + 1, None
                continue
            if text in ("if", "for", "while", "switch"):
                index, previous = partner(tokens, index + 1) + 1, None
            elif text in ("case", "default"):
                while tokens[index].text != ":":
                    index += 1
                index, previous = index + 1, None
            else:
                self.statement(index, last, previous, openings)
                previous = (index, last) if self.is_simple(index, last) else None
                index = last + 1

    def is_simple(self, first, last):
        """Whether it is a call or an assignment."""
        start, rest = self.tokens[first], self.tokens[first:last]
        if start.text in KEYWORDS or start.text == "[" or rest[-1].text in ("delete", "default"):
            return False
        if DECLARATION.match(self.text, start.begin):
            return False
        return rest[-1].text == ")" or any(t.text in ("=", "+=", "-=", "++", "--") for t in rest)

    def statement(self, first, last, previous, openings):
        begin, end = self.tokens[first].begin, self.tokens[last].end
        word = self.tokens[first].text
        if self.is_simple(first, last):
            self.add("dropped statement", begin, end, ";")
            if previous:
                start = self.tokens[previous[0]].begin
                earlier = self.text[start:self.tokens[previous[1]].end]
                self.add("swapped order", start, end, f"{self.text[begin:end]} {earlier}")
        elif word in ("break", "continue"):
            self.add("dropped statement", begin, end, ";")
        elif word == "return" and last > first + 1:
            if openings and self.opens_branch(openings[-1]):
                self.add("return", begin, end, ";")
            elif "return std::nullopt;" != self.text[begin:end]:
                self.add("return", begin, end, "return {};")

    def opens_branch(self, opening):
        before = self.tokens[opening - 1].text
        if before == "else":
            return True
        for i in range(opening - 1, -1, -1):
            if self.tokens[i].text == "(" and partner(self.tokens, i) == opening - 1:
                return self.tokens[i - 1].text in ("if", "for", "while")
        return False


def mutants_of(file, text):
    return Finder(file, text).all()


def sample(mutants, count, seed):
    """`count` of them, spread over all files by their number there and over the rules within each.

    The choice hangs on the seed and the sources alone, and the same lines stay chosen when others change.
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
