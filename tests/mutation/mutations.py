"""The mutations that script/mutate knows: from the text of a source to small changes of it.

They rely on the layout that script/format gives: blanks around operators, a statement to a line or more, and
a row of a table to a line. Left alone are locks, memory orders and what is printed for developers: a test of
behaviour cannot see them, and the thread sanitizer and helgrind look after the first two.
"""

import bisect
import dataclasses
import hashlib
import re


@dataclasses.dataclass(frozen=True)
class Mutation:
    """One change: the text from `begin` to `end` of `file` becomes `text`."""

    file: str
    begin: int
    end: int
    text: str
    kind: str
    line: int  # from 1
    place: str  # the function or table that it is in
    original: str  # what stands there, as far as it is needed to understand the change, on one line
    mutated: str  # and what it becomes; empty: nothing
    occurrence: int  # among those of this place that read the same, from 1

    def key(self):
        """What the explained survivors are known by: no line number, so that other lines may move."""
        return (self.file, self.place, self.occurrence, self.original, self.mutated)

    def rank(self, seed):
        """Those with the lowest ranks are chosen: a change of one source changes no choice in another."""
        return hashlib.sha256(repr((seed, self.kind) + self.key()).encode()).hexdigest()


def mask(source):
    """The source with comments, preprocessor lines and the insides of literals blanked, of the same length."""
    pattern = re.compile(
        r'//[^\n]*|/\*.*?\*/|^[ \t]*#[^\n]*(?:\\\n[^\n]*)*|"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)+\'|\d\'(?=\d)',
        re.DOTALL | re.MULTILINE)

    def blank(match):
        text = match.group()
        if re.match(r"\d'", text):  # a digit separator
            return text
        if text[0] in "\"'":
            return text[0] + "~" * (len(text) - 2) + text[0]
        return re.sub(r"[^\n]", " ", text)

    return pattern.sub(blank, source)


def one_line(text):
    return " ".join(text.split())


def matching(code, opening):
    """The position of the bracket that closes the one at `opening`."""
    pairs = {"(": ")", "{": "}", "[": "]"}
    stack = []
    for position in range(opening, len(code)):
        if code[position] in pairs:
            stack.append(pairs[code[position]])
        elif code[position] in ")}]":
            if not stack or stack.pop() != code[position]:
                return None
            if not stack:
                return position
    return None


def split_cells(code, begin, end):
    """The parts between the commas of a row, as (begin, end) without blanks around them."""
    cells, depth, start = [], 0, begin
    for position in range(begin, end + 1):
        if position == end or (code[position] == "," and depth == 0):
            text = code[start:position]
            cells.append((start + len(text) - len(text.lstrip()), start + len(text.rstrip())))
            start = position + 1
        elif code[position] in "({[":
            depth += 1
        elif code[position] in ")}]":
            depth -= 1
    return [cell for cell in cells if cell[0] < cell[1]]


def enumerations(headers):
    """The next constant of its enumeration, for each."""
    following = {}
    for header in headers:
        for body in re.findall(r"\benum\b[^{;]*\{(.*?)\}", mask(header), re.DOTALL):
            names = re.findall(r"\b(k[A-Z]\w*)", body)
            following.update(zip(names, names[1:] + names[:1]))
    return following


class _Source:
    def __init__(self, file, source, following):
        self.file = file
        self.source = source
        self.following = following
        self.code = mask(source)
        self.lines = self.code.split("\n")
        self.line_starts = [0] + [match.end() for match in re.finditer("\n", source)]
        self.found = []

    # --- where things are -----------------------------------------------------------------------

    def line_of(self, position):
        return bisect.bisect_right(self.line_starts, position)

    def place_of(self, position):
        """The function, table or constant that begins last before the position, at the line's begin."""
        for number in range(self.line_of(position) - 1, -1, -1):
            line = self.lines[number]
            if not re.match(r"\w", line) or re.match(r"(template|namespace|using)\b", line):
                continue
            match = re.search(r"([\w~:]+(?:::operator=)?|operator=)\s*(?:\(|\[|=|\{|;|$)", line)
            if match:
                return match.group(1)
        return "-"

    def statement_around(self, begin, end):
        """From behind the last end of a statement or row to its own end: what the reader is shown."""
        first = begin
        while first > 0 and self.code[first - 1] not in ";{}" and not (
                self.code[first - 1] == ":" and self.code[first:first + 1] == "\n"):
            first -= 1
        last = end
        while last < len(self.code) and self.code[last - 1] not in ";{}" and self.code[last] not in ";{}":
            last += 1
        if last < len(self.code) and self.code[last] in ";{":
            last += 1
        return first, max(last, end)

    # --- what is noted --------------------------------------------------------------------------

    def add(self, kind, begin, end, text, show=None):
        if self.source[begin:end] == text:
            return
        first, last = show or self.statement_around(begin, end)
        original = self.readable(self.source[first:last])
        mutated = self.readable(self.source[first:begin] + text + self.source[end:last])
        self.found.append((kind, begin, end, text, original, mutated))

    @staticmethod
    def readable(text):
        """On one line, without comments."""
        text = re.sub(r'("(?:[^"\\\n]|\\.)*")|//[^\n]*', lambda match: match.group(1) or "", text)
        return one_line(text)

    def mutations(self):
        for operator in (self.comparisons, self.operators, self.numbers, self.characters, self.texts, self.truths,
                         self.constants, self.conditions, self.choices, self.dropped, self.order, self.arguments,
                         self.rows):
            operator()
        count = {}
        result = []
        # Two operators may come to the same. By position, so that the occurrences of one text count from the top.
        changes = {change[1:4]: change for change in reversed(self.found)}
        for kind, begin, end, text, original, mutated in sorted(changes.values(), key=lambda change: change[1:4]):
            place = self.place_of(begin)
            occurrence = count[place, original, mutated] = count.get((place, original, mutated), 0) + 1
            result.append(Mutation(self.file, begin, end, text, kind, self.line_of(begin), place, original, mutated,
                                   occurrence))
        return result

    # --- the operators --------------------------------------------------------------------------

    def comparisons(self):
        others = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
                  ">=": [">", "<"]}
        for match in re.finditer(r"(?<= )(==|!=|<=|>=|<|>)(?=[ \n])", self.code):
            if "operator" in self.code[max(0, match.start() - 9):match.start()]:
                continue
            for other in others[match.group()]:
                self.add("comparison", match.start(), match.end(), other)

    def operators(self):
        others = {"&&": "||", "||": "&&", "+": "-", "-": "+", "*": "+", "/": "*", "%": "/", "&": "|", "|": "&",
                  "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|="}
        for match in re.finditer(r"(?<= )(&&|\|\||\+=|-=|\|=|&=|[-+*/%&|])(?=[ \n])", self.code):
            before, after = self.code[:match.start()].rstrip()[-1:], self.code[match.end():].lstrip()[:1]
            if match.group() in "+-" and '"' in (before, after):
                continue  # texts are put together with it
            self.add("operator", match.start(), match.end(), others[match.group()])
        for match in re.finditer(r"\+\+|--", self.code):
            self.add("operator", match.start(), match.end(), "--" if match.group() == "++" else "++")

    def numbers(self):
        for match in re.finditer(r"(?<![\w.'~\"])(0[xX][0-9A-Fa-f']+|\d[\d']*)(\.\d+)?([uUlLfF]*)(?![\w.'~])", self.code):
            whole, fraction, suffix = match.group(1).replace("'", ""), match.group(2) or "", match.group(3)
            if whole[:2] in ("0x", "0X"):
                value, form = int(whole, 16), "0x%0{}X".format(len(whole) - 2)
            else:
                value, form = int(whole, 10), "%d"
            for other in (value + 1, value - 1):
                if other >= 0:
                    self.add("number", match.start(), match.end(), form % other + fraction + suffix)

    def characters(self):
        for match in re.finditer(r"'~+'", self.code):
            text = self.source[match.start() + 1:match.end() - 1]
            escapes = {"\\r": "\\n", "\\n": "\\r", "\\0": "\\1"}
            if text in escapes:
                other = escapes[text]
            elif text.startswith("\\x"):
                other = "\\x%02X" % (int(text[2:], 16) ^ 1)
            elif text.startswith("\\"):
                continue
            else:
                other = chr(ord(text) ^ 1)
            self.add("character", match.start(), match.end(), "'" + other + "'")

    def texts(self):
        """A text loses its last character; one of a single character is exchanged, an empty one filled."""
        for match in re.finditer(r'"~*"', self.code):
            parts = re.findall(r"\\x[0-9A-Fa-f]+|\\.|.", self.source[match.start() + 1:match.end() - 1])
            other = "".join(parts[:-1]) if len(parts) > 1 else ("?" if parts != ["?"] else "!")
            self.add("text", match.start(), match.end(), '"' + other + '"')

    def truths(self):
        for match in re.finditer(r"\b(true|false)\b", self.code):
            self.add("truth", match.start(), match.end(), "false" if match.group() == "true" else "true")

    def constants(self):
        """A state, a type, a kind: the next one of its enumeration."""
        for match in re.finditer(r"\bk[A-Z]\w*", self.code):
            other = self.following.get(match.group())
            if other and not re.match(r"\s*(=[^=]|\[)", self.code[match.end():]):
                self.add("constant", match.start(), match.end(), other)

    def conditions(self):
        for match in re.finditer(r"\b(?:if|while) (\()", self.code):
            end = matching(self.code, match.start(1))
            if end is None:
                continue
            condition = self.source[match.start(1) + 1:end]
            if "!=" in condition or "==" in condition:
                # The negation of a lone comparison is among the comparisons.
                if not re.search(r"&&|\|\|", condition):
                    continue
            negated = condition[1:] if re.fullmatch(r"!\w+(\(\))?", condition) else "!(" + condition + ")"
            self.add("condition", match.start(1) + 1, end, negated, (match.start(), end + 1))

    def choices(self):
        """a ? b : c becomes a ? c : b, where b and c are short."""
        short = r"[\w.:*'\"~]+(?:\([\w.]*\))?"
        for match in re.finditer(r" \?\s+(" + short + r")\s+:\s+(" + short + r")(?=[;,)\s])", self.code):
            first, second = (self.source[match.start(group):match.end(group)] for group in (1, 2))
            between = self.source[match.end(1):match.start(2)]
            self.add("order", match.start(1), match.end(2), second + between + first)

    def statements(self):
        """The statements that are no declaration, as (begin, end); a block is none."""
        for match in re.finditer(r"(?<=[;{})])[ \t]*\n(?:[ \t]*\n)*([ \t]+)(?=\S)", self.code):
            begin = match.end()
            end = self.end_of_statement(begin)
            if end is None:
                continue
            text = self.code[begin:end]
            if re.match(r"(return|break|continue|throw)\b", text):
                if one_line(text) in ("return;", "break;", "continue;"):
                    yield begin, end
            elif re.match(r"(?:\+\+|--)?(?:[\w:]+(?:\.|->)?)+(?:\[|\(|\s(?:[-+|&]?=)\s|\+\+|--|;)", text) or \
                    re.match(r"\(this->\*", text):
                if not re.match(r"(if|for|while|switch|case|else|do|va_start|va_end|Make(?:Schedule|Meeting)Noise)\b", text):
                    yield begin, end

    def end_of_statement(self, begin):
        position = begin
        while position < len(self.code):
            character = self.code[position]
            if character == ";":
                return position + 1
            if character in "({[":
                if character == "{" and re.search(r"[)\w]\s*$", self.code[begin:position]) and \
                        re.match(r"(if|for|while|switch|do|else|try|catch)\b", self.code[begin:position]):
                    return None
                closing = matching(self.code, position)
                if closing is None:
                    return None
                position = closing
            elif character in "})]":
                return None
            position += 1
        return None

    def dropped(self):
        for begin, end in self.statements():
            self.add("dropped", begin, end, ";", (begin, end))

    def order(self):
        """Two calls, one behind the other, change places."""
        calls = [(begin, end) for begin, end in self.statements() if re.match(r"[\w:.>*-]+\(", self.code[begin:end])]
        for (begin, end), (next_begin, next_end) in zip(calls, calls[1:]):
            if self.code[end:next_begin].strip():
                continue
            between = self.source[end:next_begin]
            if "//" in between:
                between = "\n"
            text = self.source[next_begin:next_end] + between + self.source[begin:end]
            self.add("order", begin, next_end, text, (begin, next_end))

    def arguments(self):
        """The first two arguments of a call change places, where they are short."""
        short = r"[\w.:]+(?:\(\))?"
        for match in re.finditer(r"\w(?<!std::min)(?<!std::max)\((" + short + r"), (" + short + r")(?=[,)])", self.code):
            first, second = (self.source[match.start(group):match.end(group)] for group in (1, 2))
            self.add("order", match.start(1), match.end(2), second + ", " + first)
        for match in re.finditer(r"\bstd::(min|max)\b(?=[<(])", self.code):
            self.add("operator", match.start(1), match.end(1), "max" if match.group(1) == "min" else "min")

    def rows(self):
        """A table loses a row, reads the other way round, or has a cell of the next row."""
        for match in re.finditer(r"\bk\w+\[\] = (\{)", self.code):
            end = matching(self.code, match.start(1))
            if end is None:
                continue
            rows = split_cells(self.code, match.start(1) + 1, end)
            rows = [row for row in rows if self.code[row[0]] == "{"]
            if len(rows) < 2:
                continue
            for row in rows:
                comma = self.code.find(",", row[1]) + 1 if self.code[row[1]:end].lstrip().startswith(",") else row[1]
                self.add("row", row[0], comma, "", row)
            table = (match.start(1) + 1, end)
            backwards = ", ".join(self.source[begin:end] for begin, end in reversed(rows))
            name = self.source[match.start():match.start(1)] + "{"
            self.found.append(("row", table[0], table[1], backwards, name, name + " (the rows in reverse)"))
            cells = [split_cells(self.code, row[0] + 1, row[1] - 1) for row in rows]
            for number, row in enumerate(rows):
                following = cells[(number + 1) % len(rows)]
                for (begin, end_of_cell), (other_begin, other_end) in zip(cells[number], following):
                    self.add("row", begin, end_of_cell, self.source[other_begin:other_end], row)


def mutations_of(file, source, following):
    return _Source(file, source, following).mutations()
