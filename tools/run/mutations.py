"""Small changes of a C++ source text, as a slip of the hand would make them.

mutations(text) reads the text with simple token rules, no compiler: a statement is what ends with ";" in the
body of a function. What it proposes need not compile."""

import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""(?P<blank>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
      | (?P<string>R"(?P<end>[^()\\\s]*)\(.*?\)(?P=end)"|"(?:[^"\\]|\\.)*")
      | (?P<char>'(?:[^'\\]|\\.)*')
      | (?P<number>\d[\w.']*)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<sign>->\*|<<=|>>=|<=>|\.\.\.|::|->|&&|\|\||==|!=|<=|>=|<<|>>|\+\+|--|[-+*/%|&^]=|.)""",
    re.X | re.S | re.M,
)
PAIRS = {"(": ")", "[": "]", "{": "}"}
# Each stands for the other: where one is right, the other is a plausible slip.
OTHER = {
    "&&": "||", "||": "&&", "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
    "+": "-", "-": "+", "+=": "-=", "-=": "+=", "++": "--", "--": "++",
    "true": "false", "false": "true", "fetch_add": "fetch_sub", "fetch_sub": "fetch_add",
}  # fmt: skip
BLANKED = {"<", ">", "<=", ">=", "+", "-"}  # operators only between blanks: else template brackets and signs


@dataclass(frozen=True)
class Mutation:
    line: int  # of the first change
    function: str  # where it is; "" outside of functions
    name: str  # what was done, with before and after
    edits: tuple  # (begin, end, new text), in order, not overlapping
    declaration: bool = False  # changes what other files see of a class

    def applied(self, text):
        """The changed text; it has as many lines as before."""
        parts, position = [], 0
        for begin, end, new in self.edits:
            lost = text.count("\n", begin, end) - new.count("\n")
            parts += [text[position:begin], new, "\n" * max(lost, 0)]
            position = end
        return "".join(parts) + text[position:]


class Token:
    def __init__(self, kind, text, begin):
        self.kind, self.text, self.begin, self.end = kind, text, begin, begin + len(text)
        self.partner = None  # index of the bracket that belongs to this one


class Statement:
    def __init__(self, kind, first, last, parts=()):
        self.kind, self.first, self.last = kind, first, last  # indices of tokens, both included
        self.parts = parts


def tokens_of(text):
    tokens = []
    position = 0
    while position < len(text):
        match = TOKEN.match(text, position)
        if match.lastgroup != "blank":
            tokens.append(Token(match.lastgroup, match.group(), match.start()))
        position = match.end()
    opened = []
    for index, token in enumerate(tokens):
        if token.kind == "sign" and token.text in PAIRS:
            opened.append(index)
        elif token.kind == "sign" and token.text in PAIRS.values():
            token.partner = opened.pop()
            tokens[token.partner].partner = index
    return tokens


class Reader:
    def __init__(self, text):
        self.text = text
        self.tokens = tokens_of(text)
        self.found = []
        self.functions = []  # (first, last, name, token of the first brace) of each
        self.classes = []  # (first, last) of each class body
        self.left_alone = []  # (first, last) of statements that are not changed

    # --- reading ------------------------------------------------------------------------------------------

    def is_(self, index, *texts):
        return index < len(self.tokens) and self.tokens[index].text in texts

    def line_of(self, index):
        return self.text.count("\n", 0, self.tokens[index].begin) + 1

    def source(self, first, last):
        return self.text[self.tokens[first].begin : self.tokens[last].end]

    def short(self, first, last):
        text = re.sub(r"\s+", " ", self.source(first, last))
        return text if len(text) <= 60 else text[:57] + "..."

    def function_at(self, index):
        best = ""
        for first, last, name, _ in self.functions:
            if first <= index <= last:
                best = name
        return best

    def body_at(self, index):
        return any(open_ <= index <= last for _, last, _, open_ in self.functions)

    def is_left_alone(self, index):
        return any(first <= index <= last for first, last in self.left_alone)

    def add(self, index, name, *edits, declaration=False):
        if not self.is_left_alone(index):
            self.found.append(
                Mutation(self.line_of(index), self.function_at(index), name, tuple(sorted(edits)), declaration)
            )

    def replace(self, first, last, new, name, **more):
        self.add(first, name, (self.tokens[first].begin, self.tokens[last].end, new), **more)

    def swap(self, first, second, name, **more):
        """Two ranges of tokens, the first before the second."""
        self.add(
            first[0],
            name,
            (self.tokens[first[0]].begin, self.tokens[first[1]].end, self.source(*second)),
            (self.tokens[second[0]].begin, self.tokens[second[1]].end, self.source(*first)),
            **more,
        )

    # --- structure ----------------------------------------------------------------------------------------

    def read_scope(self, first, end, in_class=False):
        """Declarations of a namespace or class, from token first up to end."""
        members = []
        begin = index = first
        while index < end:
            token = self.tokens[index]
            if token.text in ("(", "["):
                index = token.partner
            elif token.text == ":" and self.is_(index - 1, "public", "private", "protected"):
                begin = index + 1
            elif token.text == ";":
                if in_class:
                    members.append((begin, index))
                begin = index + 1
            elif token.text == "{":
                index = self.read_braces(begin, index)
                if self.is_(index + 1, ";"):
                    pass
                elif self.tokens[token.partner].partner is not None and index == token.partner:
                    if not self.is_initializer(begin, token.partner):
                        begin = index + 1
            index += 1
        if in_class:
            self.change_members(members)

    def is_initializer(self, begin, close):
        words = [t.text for t in self.tokens[begin : self.tokens[close].partner]]
        return not ({"namespace", "class", "struct", "union", "enum"} & set(words)) and "(" not in words

    def read_braces(self, begin, open_):
        close = self.tokens[open_].partner
        words = [t.text for t in self.tokens[begin:open_]]
        if "namespace" in words or "extern" in words:
            self.read_scope(open_ + 1, close)
        elif {"class", "struct", "union"} & set(words) and "(" not in words:
            self.change_bases(begin, open_)
            self.classes.append((open_, close))
            self.read_scope(open_ + 1, close, in_class=True)
        elif "(" in words and "enum" not in words:
            self.functions.append((begin, close, self.name_of(begin, open_), open_))
            self.read_block(open_)
        return close

    def name_of(self, begin, end):
        index = begin
        while index < end and self.tokens[index].text != "(":
            index += 1
        name = self.tokens[index - 1].text
        if self.is_(index - 2, "~", "operator"):
            name = self.tokens[index - 2].text + (" " if self.is_(index - 2, "operator") else "") + name
        return name

    def read_block(self, open_):
        close = self.tokens[open_].partner
        statements = []
        index = open_ + 1
        while index < close:
            statement = self.read_statement(index)
            statements.append(statement)
            index = statement.last + 1
        self.change_order(statements)
        return Statement("block", open_, close, statements)

    def read_statement(self, index):
        token = self.tokens[index]
        if token.text == "{":
            return self.read_block(index)
        if token.text == "if":
            condition = index + 2 if self.is_(index + 1, "constexpr") else index + 1
            body = self.read_statement(self.tokens[condition].partner + 1)
            last, other = body.last, None
            if self.is_(last + 1, "else"):
                other = self.read_statement(last + 2)
                last = other.last
            statement = Statement("if", index, last, (condition, body, other))
            self.change_if(statement)
            return statement
        if token.text in ("while", "for"):
            self.read_lambdas(index + 1, self.tokens[index + 1].partner)
            body = self.read_statement(self.tokens[index + 1].partner + 1)
            statement = Statement(token.text, index, body.last, (index + 1, body))
            self.change_loop(statement)
            return statement
        if token.text == "switch":
            body = self.read_statement(self.tokens[index + 1].partner + 1)
            return Statement("switch", index, body.last)
        if token.text == "try":
            last = self.read_block(index + 1).last
            while self.is_(last + 1, "catch"):
                last = self.read_block(self.tokens[last + 2].partner + 1).last
            return Statement("try", index, last)
        if token.text in ("case", "default"):
            while not self.is_(index, ":"):
                index += 1
            return Statement("label", self.tokens.index(token), index)
        last = index
        while not self.is_(last, ";"):
            last = (self.tokens[last].partner if self.tokens[last].text in PAIRS else last) + 1
        self.read_lambdas(index, last)
        statement = Statement("simple", index, last)
        self.change_statement(statement)
        return statement

    def read_lambdas(self, first, last):
        index = first
        while index < last:
            # "[...](...) {" and "[...] {": a body; any other brace in an expression is a list of values.
            if self.is_(index, "{") and self.is_(index - 1, ")", "]"):
                self.read_block(index)
                index = self.tokens[index].partner
            index += 1

    # --- changes of statements ----------------------------------------------------------------------------

    def change_statement(self, statement):
        first, last = statement.first, statement.last
        if self.is_(first, "SAL_ASSERT"):
            # Behind a "new" it cannot fail.
            if self.is_new_before(first):
                self.left_alone.append((first, last))
                return
        if first == last:
            return
        # Nobody looks at the pointers of what is gone.
        if self.function_at(first).startswith("~") and re.fullmatch(r"m_\w+ = nullptr;", self.source(first, last)):
            self.left_alone.append((first, last))
            return
        self.replace(first, last, ";", "dropped: " + self.short(first, last))
        if self.is_(first, "return") and last > first + 1:
            value = self.source(first + 1, last - 1)
            if value not in ("{}", "nullptr", "false", "true"):
                self.replace(first + 1, last - 1, "{}", f"returns {{}}: {self.short(first, last)}")
                self.replace(first + 1, last - 1, "true", f"returns true: {self.short(first, last)}")
        self.change_chain(first, last)
        self.change_stream(first, last)

    def is_new_before(self, first):
        index = first - 2
        while index > 0 and self.tokens[index].text not in (";", "{", "}"):
            if self.tokens[index].text == "new":
                return True
            index -= 1
        return False

    def change_order(self, statements):
        for one, two in zip(statements, statements[1:]):
            if "label" in (one.kind, two.kind) or self.is_(two.first, "return", "break", "continue"):
                continue
            # Where a plain variable is declared does not matter.
            if any(re.fullmatch(r"(?!delete|return|throw)[\w:<>,*& ]+ \w+;", self.source(s.first, s.last)) for s in (one, two)):
                continue
            self.swap(
                (one.first, one.last),
                (two.first, two.last),
                f"swapped: {self.short(one.first, one.last)} <> {self.short(two.first, two.last)}",
            )

    def change_if(self, statement):
        condition, body, other = statement.parts
        begin, end = condition + 1, self.tokens[condition].partner - 1
        shown = self.short(statement.first, end + 1)
        self.read_lambdas(begin, end)
        if other:
            self.replace(body.last + 1, other.last, "", f"dropped: else of {shown}")
        else:
            self.replace(statement.first, statement.last, ";", f"dropped: {shown} and what it does")
        if other:
            self.add(
                statement.first,
                f"dropped: {shown}, its else stays",
                (self.tokens[statement.first].begin, self.tokens[body.last + 1].end, ""),
            )
        declared = self.declared_in(begin, end)
        if declared:
            self.replace(begin, end, f"{self.source(begin, end)}; !{declared}", f"inverted: {shown}")
        else:
            self.replace(begin, end, f"!({self.source(begin, end)})", f"inverted: {shown}")
            self.replace(begin, end, f"true || ({self.source(begin, end)})", f"always: {shown}")

    def declared_in(self, begin, end):
        """The variable that a condition declares: "T* p = f()"."""
        for index in range(begin + 1, end):
            if self.is_(index, "=") and self.tokens[index - 1].kind == "word" and index - begin >= 2:
                return self.tokens[index - 1].text
            if self.tokens[index].text in PAIRS:
                break
        return None

    def change_loop(self, statement):
        condition, body = statement.parts
        begin, end = condition + 1, self.tokens[condition].partner - 1
        shown = self.short(statement.first, end + 1)
        self.replace(statement.first, statement.last, ";", f"dropped: {shown} and what it does")
        self.add(
            statement.first,
            f"only once: {shown}",
            (self.tokens[body.first].begin, self.tokens[body.first].begin, "{ "),
            (self.tokens[body.last].end, self.tokens[body.last].end, " break; }"),
        )
        if statement.kind == "while":
            self.replace(begin, end, f"!({self.source(begin, end)})", f"inverted: {shown}")

    def change_chain(self, first, last):
        """a.f(x).g(y): a link dropped, two neighbours swapped."""
        links = []
        for index in range(first, last):
            if self.is_(index, ".") and self.is_(index + 2, "("):
                links.append((index, self.tokens[index + 2].partner))
        for link in links:
            if self.is_(link[0] - 1, ")") or self.is_(link[1] + 1, "."):
                self.replace(*link, "", "dropped: " + self.short(*link))
        for one, two in zip(links, links[1:]):
            if one[1] + 1 == two[0] and self.source(*one) != self.source(*two):
                self.swap(one, two, f"swapped: {self.short(*one)} <> {self.short(*two)}")

    def change_stream(self, first, last):
        """a << b << c: a part dropped, two neighbours swapped."""
        parts, begin, index = [], None, first
        while index < last:
            if self.is_(index, "<<"):
                if begin is not None:
                    parts.append((begin, index - 1))
                begin = index
            index = (self.tokens[index].partner if self.tokens[index].text in PAIRS else index) + 1
        if begin is None:
            return
        parts.append((begin, last - 1))
        for part in parts:
            self.replace(*part, "", "dropped: " + self.short(*part))
        for one, two in zip(parts, parts[1:]):
            self.swap(one, two, f"swapped: {self.short(*one)} <> {self.short(*two)}")

    # --- changes of declarations --------------------------------------------------------------------------

    def change_members(self, members):
        for first, last in members:
            data = "(" not in [t.text for t in self.tokens[first:last]]
            for index in range(first, last):
                if data and self.is_(index, "="):
                    self.replace(index, last - 1, "", f"no initial value: {self.short(first, last)}")
                    break
                if data and self.is_(index, "{") and index > first + 1 and self.tokens[index].partner == last - 1:
                    self.replace(index, last - 1, "", f"no initial value: {self.short(first, last)}")
                    break
            if self.is_(first, "virtual"):
                self.replace(first, first, "", f"not virtual: {self.short(first, last)}", declaration=True)
        for one, two in zip(members, members[1:]):
            kinds = [self.member_kind(*member) for member in (one, two)]
            if one[1] + 1 == two[0] and kinds[0] == kinds[1] and kinds[0]:
                self.swap(one, two, f"swapped: {self.short(*one)} <> {self.short(*two)}", declaration=True)

    def member_kind(self, first, last):
        words = [t.text for t in self.tokens[first:last]]
        if {"friend", "using", "class", "struct", "static"} & set(words):
            return None
        if "virtual" in words:
            return "slot"
        return None if "(" in words else "data"

    def change_bases(self, begin, open_):
        bases, start, index = [], None, begin
        while index < open_:
            if self.is_(index, ":"):
                start = index + 1
            elif self.is_(index, ",") and start:
                bases.append((start, index - 1))
                start = index + 1
            index += 1
        if start:
            bases.append((start, open_ - 1))
        for one, two in zip(bases, bases[1:]):
            self.swap(one, two, f"swapped: {self.short(*one)} <> {self.short(*two)}", declaration=True)

    # --- changes of tokens --------------------------------------------------------------------------------

    def change_tokens(self):
        siblings = self.siblings()
        for index, token in enumerate(self.tokens):
            if token.kind == "string":
                self.change_string(index)
            elif token.kind == "char":
                other = "'_'" if token.text != "'_'" else "'-'"
                self.replace(index, index, other, f"{token.text} -> {other}")
            elif token.kind == "number":
                if re.fullmatch(r"\d+", token.text):
                    for new in (int(token.text) + 1, int(token.text) - 1):
                        self.replace(index, index, str(new), f"{token.text} -> {new} in {self.around(index)}")
            elif token.text in OTHER:
                if token.text not in BLANKED or self.text[token.begin - 1] == " " == self.text[token.end]:
                    new = OTHER[token.text]
                    self.replace(index, index, new, f"{token.text} -> {new} in {self.around(index)}")
            elif token.text == "!" and not self.is_(index + 1, "="):
                self.replace(index, index, "", f"without ! in {self.around(index)}")
            elif token.kind == "word":
                self.change_word(index, siblings)
            elif token.text in ("(", "{") and self.body_at(index):
                self.change_arguments(index)

    def around(self, index):
        """The line's text near the token, to tell it from others like it."""
        begin = self.text.rfind("\n", 0, self.tokens[index].begin) + 1
        end = self.text.find("\n", begin)
        line = self.text[begin:end]
        column = self.tokens[index].begin - begin
        return re.sub(r"\s+", " ", line[max(0, column - 25) : column + 25]).strip()

    def change_string(self, index):
        token = self.tokens[index]
        if self.is_(index - 1, "#include") or token.text == '"C++"':
            return
        units = re.findall(r"\\.|[^\\]", token.text[1:-1])
        if not units:
            self.replace(index, index, '"x"', '"" -> "x"')
            return
        middle = len(units) // 2
        variants = [units[:-1], units[:middle] + ["x" if units[middle] != "x" else "y"] + units[middle + 1 :]]
        if " " in units:
            blank = units.index(" ")
            variants.append(units[:blank] + units[blank + 1 :])
        for new in dict.fromkeys('"' + "".join(units) + '"' for units in variants):
            self.replace(index, index, new, f"{token.text} -> {new}")

    def siblings(self):
        """Names that could stand for one another, by kind: each with the next of its kind."""
        kinds = {}
        for index, token in enumerate(self.tokens):
            kind = None
            if token.kind != "word":
                continue
            if token.text.startswith("IID_"):
                kind = "IID"
            elif re.match(r"g_[a-z]", token.text):
                kind = "constant"
            elif re.match(r"m_p?[A-Za-z]", token.text):
                kind = "member"
            elif re.match(r"[A-Z]|e[A-Z]", token.text) and self.is_qualified(index):
                kind = "enumerator of " + self.tokens[index - 2].text
            elif self.is_(index - 2, "dynamic_cast", "getInterface") and self.is_(index - 1, "<"):
                kind = "cast"
            if kind and self.body_at(index):
                names = kinds.setdefault(kind, [])
                if token.text not in names:
                    names.append(token.text)
        after = {}
        for kind, names in kinds.items():
            for one, two in zip(names, names[1:] + names[:1]):
                if one != two:
                    after[kind, one] = two
        return after

    def is_qualified(self, index):
        """Class::name, and no further."""
        return (
            self.is_(index - 1, "::")
            and self.tokens[index - 2].text[0].isupper()
            and not self.is_(index + 1, "(", "::", "<")
        )

    def change_word(self, index, siblings):
        token = self.tokens[index]
        for (kind, name), other in siblings.items():
            if name != token.text or not self.body_at(index):
                continue
            if kind.startswith("enumerator") and not self.is_qualified(index):
                continue
            if kind == "cast" and not self.is_(index - 1, "<"):
                continue
            self.replace(index, index, other, f"{name} -> {other} in {self.around(index)}")
        if token.text == "endl":
            self.replace(index - 2, index, "'\\n'", f"not flushed: {self.around(index)}")
        elif token.text == "cout":
            self.replace(index, index, "cerr", f"standard error: {self.around(index)}")
        elif token.text in ("puts", "printf") and self.is_(index + 1, "("):
            call = 'fprintf(stderr, "%s\\n", ' if token.text == "puts" else "fprintf(stderr, "
            self.replace(index, index + 1, call, f"standard error: {self.around(index)}")

    def change_arguments(self, open_):
        if self.is_(open_ - 1, "if", "while", "for", "switch", "catch", ")", "]") or open_ == 0:
            return
        close = self.tokens[open_].partner
        arguments, begin, index = [], open_ + 1, open_ + 1
        while index < close:
            if self.is_(index, ";"):
                return
            if self.is_(index, ","):
                arguments.append((begin, index - 1))
                begin = index + 1
            index = (self.tokens[index].partner if self.tokens[index].text in PAIRS else index) + 1
        arguments.append((begin, close - 1))
        for one, two in zip(arguments, arguments[1:]):
            if self.source(*one) != self.source(*two):
                self.swap(one, two, f"swapped: {self.short(*one)} <> {self.short(*two)}")


def mutations(text):
    """Every change, in the order of the lines, none twice."""
    reader = Reader(text)
    reader.read_scope(0, len(reader.tokens))
    reader.change_tokens()
    unique = {}
    for mutation in reader.found:
        unique.setdefault(mutation.edits, mutation)
    return sorted(unique.values(), key=lambda m: (m.line, m.edits))
