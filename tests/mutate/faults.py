"""Finds the places of a C++ text where one small fault can be planted, and says what it would be.

The text is cut into tokens and never parsed: a fault that is no C++ is found out by the compiler,
and another is drawn instead. The format of the sources is relied on in one point: binary operators
have spaces around them, template brackets, references and pointers have not."""

import random
import re
from typing import NamedTuple

TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/|\#(?:\\\n|[^\n])*)
    |(?P<raw>(?:u8|[uUL])?R"(?P<mark>[^()\\\s]*)\(.*?\)(?P=mark)")
    |(?P<text>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
    |(?P<char>'(?:\\.|[^'\\\n])+')
    |(?P<number>\.?\d(?:'?[\w.]|(?<=[eE])[+-])*)
    |(?P<name>[A-Za-z_]\w*)
    |(?P<op><=>|<<=|>>=|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.S | re.X)

COMPARISONS = {"<": ("<=", ">"), "<=": ("<", ">="), ">": (">=", "<"), ">=": (">", "<="),
               "==": ("!=",), "!=": ("==",)}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|",
              "|": "&", "^": "|", "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "|=": "&=",
              "&=": "|=", "^=": "|=", "<<=": ">>=", ">>=": "<<="}
OPPOSITES = {"0": "1", "1": "0", "true": "false", "false": "true"}

# Constants of the system that can stand for each other in the same call.
SYSTEM_OPTIONS = [set(line.split()) for line in """
O_RDONLY O_WRONLY O_RDWR
O_CREAT O_EXCL O_TRUNC O_CLOEXEC O_NONBLOCK O_APPEND O_NOFOLLOW
SEEK_SET SEEK_CUR SEEK_END
IPC_CREAT IPC_EXCL IPC_NOWAIT SEM_UNDO SHM_RDONLY
IPC_RMID IPC_STAT IPC_SET SETVAL GETVAL
SOL_SOCKET IPPROTO_IP IPPROTO_UDP
SOCK_DGRAM SOCK_STREAM
SO_SNDBUF SO_RCVBUF SO_BROADCAST SO_REUSEADDR SO_REUSEPORT
IP_MULTICAST_TTL IP_MULTICAST_LOOP IP_MULTICAST_IF IP_ADD_MEMBERSHIP IP_DROP_MEMBERSHIP
INADDR_ANY INADDR_LOOPBACK INADDR_BROADCAST
SIOCGIFCONF SIOCGIFFLAGS SIOCGIFADDR SIOCGIFBRDADDR SIOCGIFNETMASK
IFF_UP IFF_BROADCAST IFF_LOOPBACK IFF_MULTICAST IFF_RUNNING
CLOCK_REALTIME CLOCK_MONOTONIC CLOCK_BOOTTIME
SCHED_OTHER SCHED_FIFO SCHED_RR
PTHREAD_MUTEX_NORMAL PTHREAD_MUTEX_RECURSIVE PTHREAD_MUTEX_ERRORCHECK
INT_MAX INT_MIN
INT32_MAX INT32_MIN
EINVAL EINTR ENOENT EEXIST EACCES EPERM ENOMEM ENOSPC EIDRM EAGAIN ENODEV EBADF ERANGE ENOBUFS
""".strip().splitlines()]

NO_STATEMENT = set(
    "return if else for while do switch case default break continue goto using typedef namespace "
    "template class struct union enum public private protected friend static constexpr const auto "
    "virtual explicit inline extern int unsigned signed long short char bool void float double "
    "static_assert throw try catch thread_local volatile".split())
NO_FIELD = NO_STATEMENT - set("int unsigned signed long short char bool void float double const "
                              "volatile".split()) | {"operator"}

KINDS = ("comparison", "constant", "boolean", "operator", "condition", "removed", "result", "text",
         "fields", "virtuals", "option")


class Token(NamedTuple):
    sort: str
    text: str
    start: int
    end: int


class Edit(NamedTuple):
    start: int
    end: int
    text: str


class Fault(NamedTuple):
    file: str
    kind: str
    edits: tuple

    def planted(self, text):
        for edit in sorted(self.edits, reverse=True):
            text = text[:edit.start] + edit.text + text[edit.end:]
        return text

    def line(self, text):
        return text.count("\n", 0, min(self.edits).start) + 1

    def change(self, text):
        """The changed lines as they were and as they are, without their indentation."""
        spans = []
        for edit in sorted(self.edits):
            start = text.rfind("\n", 0, edit.start) + 1
            end = text.find("\n", edit.end)
            if spans and start < spans[-1][1]:
                start = spans.pop()[0]
            spans.append((start, end if end >= 0 else len(text)))
        was, now = [], []
        for start, end in spans:
            inside = tuple(Edit(e.start - start, e.end - start, e.text)
                           for e in self.edits if start <= e.start <= end)
            was += text[start:end].splitlines()
            now += self._replace(edits=inside).planted(text[start:end]).splitlines()
        return tuple(s.strip() for s in was), tuple(s.strip() for s in now)


def TokensOf(text):
    """The tokens of `text`, but for static assertions, linkage names and operators' names."""
    tokens = [Token(m.lastgroup, m.group(), m.start(), m.end())
              for m in TOKEN.finditer(text) if m.lastgroup not in ("skip", "mark")]
    kept, i = [], 0
    while i < len(tokens):
        if tokens[i].text == "static_assert":
            while i < len(tokens) and tokens[i].text != ";":
                i += 1
        elif tokens[i].text in ("operator", "extern"):
            kept.append(tokens[i])
            i += 1
        else:
            kept.append(tokens[i])
        i += 1
    return kept


def EnumeratorsOf(texts):
    """Sets of names: the enumerators of each enumeration defined in `texts`."""
    definition = re.compile(r"\benum\b[^;{()]*\{([^}]*)\}")
    comment = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
    found = []
    for text in texts:
        for match in definition.finditer(comment.sub("", text)):
            found.append(set(re.findall(r"(?:^|,)\s*([A-Za-z_]\w*)", match.group(1))))
    return [names for names in found if len(names) > 1]


class Finder:
    """Collects the faults of one file. `families` are sets of constants that can be exchanged."""

    def __init__(self, file, text, families, seed):
        self.file, self.text, self.families = file, text, families
        self.random = random.Random(f"{seed} {file}")
        self.tokens = TokensOf(text)
        self.partner = self._PartnersOf()
        self.found = {}

    def Faults(self):
        for i in range(len(self.tokens)):
            self._Result(i)
            self._Operator(i)
            self._Condition(i)
            self._Ternary(i)
            self._Statement(i)
            self._Constant(i)
            self._Text(i)
            self._Option(i)
        if self.file.endswith(".h"):
            self._Members()
        return list(self.found.values())

    def _PartnersOf(self):
        partner, open_ = {}, []
        for i, token in enumerate(self.tokens):
            if token.sort == "op" and token.text in "([{":
                open_.append(i)
            elif token.sort == "op" and token.text in ")]}" and open_:
                partner[i] = open_.pop()
                partner[partner[i]] = i
        return partner

    def _Add(self, kind, *edits):
        edits = tuple(Edit(*e) for e in edits)
        if all(self.text[e.start:e.end] == e.text for e in edits):
            return
        self.found.setdefault(edits, Fault(self.file, kind, edits))

    def _Replace(self, kind, first, last, text):
        self._Add(kind, (self.tokens[first].start, self.tokens[last].end, text))

    def _Wrap(self, kind, first, last, before, after):
        start, end = self.tokens[first].start, self.tokens[last].end
        self._Add(kind, (start, start, before), (end, end, after))

    def _TextAt(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def _IsOperand(self, i):
        """Whether what ends at token `i` is a value, so that a minus after it is a subtraction."""
        return 0 <= i and (self.tokens[i].sort in ("name", "number", "char") and
                           self.tokens[i].text != "return" or self.tokens[i].text in (")", "]"))

    def _IsSpaced(self, i):
        token = self.tokens[i]
        return self.text[token.start - 1].isspace() and self.text[token.end:token.end + 1].isspace()

    def _Forward(self, i, stops):
        """The first token from `i` on, at the same depth, that is one of `stops` or closes the
        brackets around."""
        while i < len(self.tokens) and self._TextAt(i) not in stops:
            if self._TextAt(i) in (")", "]", "}"):
                break
            i = self._After(i)
        return i

    def _After(self, i):
        """The token after token `i`, or after the brackets that open there."""
        return max(i, self.partner.get(i, i)) + 1

    def _Before(self, i):
        """The token before token `i`, or the one that opens the brackets that close there."""
        return min(i - 1, self.partner.get(i - 1, i - 1))

    def _Result(self, i):
        texts = [self._TextAt(i + k) for k in range(4)]
        if texts[0] == "return" and texts[2] == ";":
            if texts[1] in OPPOSITES:
                self._Replace("result", i + 1, i + 1, OPPOSITES[texts[1]])
            elif re.search(r"\*\s*%s\b" % re.escape(texts[1]), self.text):
                self._Replace("result", i + 1, i + 1, "nullptr")
        elif texts[0] == "return" and texts[1] == "-" and texts[3] == ";":
            self._Replace("result", i + 1, i + 2, "0")
        elif texts[0] == "?" and texts[1] in OPPOSITES and texts[3] == OPPOSITES[texts[1]]:
            self._Replace("result", i + 1, i + 3, f"{texts[3]} : {texts[1]}")
        elif texts[0] in ("true", "false"):
            self._Replace("result", i, i, OPPOSITES[texts[0]])

    def _Operator(self, i):
        token = self.tokens[i]
        if token.sort != "op":
            return
        if token.text == "!":
            self._Replace("boolean", i, i, "")
        elif token.text == "~" and self.tokens[i + 1].sort != "name":
            self._Replace("operator", i, i, "")
        elif token.text in ("++", "--"):
            self._Replace("operator", i, i, "--" if token.text == "++" else "++")
        elif token.text == "-" and not self._IsOperand(i - 1):
            if self.tokens[i + 1].sort != "number":
                self._Replace("operator", i, i, "")
        elif self._IsSpaced(i):
            self._Binary(i, token.text)

    def _Binary(self, i, text):
        for other in COMPARISONS.get(text, ()):
            self._Replace("comparison", i, i, other)
        if text in ARITHMETIC:
            self._Replace("operator", i, i, ARITHMETIC[text])
        if text in ("&&", "||"):
            self._Replace("boolean", i, i, "||" if text == "&&" else "&&")
            end = self._Forward(i + 1, ("&&", "||", "?", ":", ",", ";"))
            self._Add("condition", (self.tokens[i - 1].end, self.tokens[end - 1].end, ""))

    def _Condition(self, i):
        word = self._TextAt(i)
        if word not in ("if", "while", "for"):
            return
        i += 2 if self._TextAt(i + 1) == "constexpr" else 1
        if self._TextAt(i) != "(" or i not in self.partner:
            return
        first, last = i + 1, self.partner[i] - 1
        middle = self._Forward(first, (";",))
        if middle <= last:
            first = middle + 1
            if word == "for":
                last = self._Forward(first, (";",)) - 1
        elif word == "for":
            return
        if first > last:
            return
        self._Wrap("condition", first, last, "!(", ")")
        if word != "for":
            self._Wrap("condition", first, last, "(", ") && false")
        if word == "if":
            self._Wrap("condition", first, last, "(", ") || true")

    def _Ternary(self, i):
        if self._TextAt(i) != "?":
            return
        first = i
        while first > 0 and self._TextAt(first - 1) not in (
                "=", "return", "(", "[", "{", "}", ",", ";", "?", ":", "+=", "-=", "|=", "&="):
            first = self._Before(first)
        if first < i:
            self._Wrap("condition", first, i - 1, "!(", ")")

    def _IsStatementStart(self, i):
        before = self._TextAt(i - 1)
        if before == ")":
            opener = self.partner.get(i - 1, 0)
            return self._TextAt(opener - 1) in ("if", "for", "while", "constexpr")
        if before == ":":
            return "case" in [self._TextAt(k) for k in range(i - 5, i)] or \
                self._TextAt(i - 2) == "default"
        return i > 0 and before in (";", "{", "}", "else", "do")

    def _Statement(self, i):
        token = self.tokens[i]
        if not (token.sort == "name" and token.text not in NO_STATEMENT or
                token.text in ("*", "++", "--")) or not self._IsStatementStart(i):
            return
        end = self._Forward(i, (";",))
        if self._TextAt(end) != ";":
            return
        equals = self._Forward(i, (";", "{", "=", *(a for a in ARITHMETIC if a.endswith("="))))
        steps = "++", "--"
        if self._TextAt(equals) == "{" or self._IsDeclaration(i, equals) or \
                self._TextAt(equals) == ";" and self._TextAt(end - 1) not in (")", *steps) and \
                token.text not in ("delete", *steps):
            return
        self._Replace("removed", i, end, "{}")

    def _IsDeclaration(self, i, end):
        """Whether a type stands before a name between `i` and `end`."""
        start = i
        while i < end:
            after = self._After(i)
            is_type = self.tokens[i].sort == "name" and self._TextAt(i) != "delete" or \
                i > start and self._TextAt(i) in ("*", "&", "&&", ">")
            if is_type and after < end and self.tokens[after].sort == "name":
                return True
            i = after
        return False

    def _Constant(self, i):
        token = self.tokens[i]
        if token.sort != "number":
            return
        match = re.fullmatch(
            r"(0[xX](?=[\da-fA-F'])|0[bB](?=\d)|0(?=\d)|(?=[\d']+[uUlLzZ]*$))([\da-fA-F']+?)([uUlLzZ]*)",
            token.text)
        if match is None:
            match = re.fullmatch(r"(\d+)((?:\.\d*)?(?:[eE][-+]?\d+)?)", token.text)
            if match:
                self._Replace("constant", i, i, f"{int(match[1]) + 1}{match[2]}")
            return
        prefix, digits, suffix = match[1] or "", match[2].replace("'", ""), match[3]
        base, form = {"0x": (16, "x"), "0b": (2, "b"), "0": (8, "o")}.get(prefix.lower(), (10, "d"))
        value = int(digits, base)
        negative = self._TextAt(i - 1) == "-" and not self._IsOperand(i - 2)
        for other in (value + 1, value - 1):
            if other >= 0:
                text = f"{prefix}{other:0{len(digits)}{form}}{suffix}"
                self._Replace("constant", i - negative, i, "-" * (negative and other > 0) + text)

    def _Text(self, i):
        token = self.tokens[i]
        if token.sort not in ("text", "char"):
            return
        # Conversions and escapes stay as they are: the compiler knows about the former.
        places = set(range(token.text.index(token.text[-1]) + 1, len(token.text) - 1))
        for match in re.finditer(r"\\.|%[-+ #0]*[\d*]*(?:\.[\d*]+)?[hlzjtL]*[A-Za-z%]", token.text):
            places -= set(range(*match.span()))
        if places:
            place = token.start + self.random.choice(sorted(places))
            self._Add("text", (place, place + 1, CharacterAfter(self.text[place])))
        if token.sort == "text" and token.text.endswith("\\n\""):
            self._Add("text", (token.end - 3, token.end - 1, ""))

    def _Option(self, i):
        name = self._TextAt(i)
        if self.tokens[i].sort != "name" or self._IsInEnumeration(i):
            return
        for family in self.families:
            if name in family:
                other = self.random.choice(sorted(family - {name}))
                self._Replace("option", i, i, other)

    def _IsInEnumeration(self, i):
        start = i
        while start > 0 and self._TextAt(start - 1) not in ("{", ";", "}"):
            start = self._Before(start)
        before = [self._TextAt(k) for k in range(start - 8, start)]
        return self._TextAt(start - 1) == "{" and "enum" in before

    def _Members(self):
        """Of headers that programs include: nobody is linked against the order of the others."""
        if "/internal/" in self.file or "/linux/" in self.file:
            return
        for i, token in enumerate(self.tokens):
            if token.text not in ("class", "struct") or self._TextAt(i - 1) == "enum":
                continue
            body = self._Forward(i, (";", "{"))
            if self._TextAt(body) == "{" and body in self.partner:
                self._MembersExchange(body + 1, self.partner[body])

    def _MembersExchange(self, i, end):
        earlier = None
        while i < end:
            first = i
            while i < end and self._TextAt(i) not in (";", ":") and not self._IsBody(i):
                i = self._After(i)
            last = self.partner[i] if self._IsBody(i) else i
            i = last + 1
            if self._TextAt(i) == ";" and self._TextAt(last) == "}":
                i += 1
            member = self._MemberKind(first, last), first, last
            if member[0] and earlier and earlier[0] == member[0]:
                one, two = [(self.tokens[f].start, self.tokens[l].end)
                            for _, f, l in (earlier, member)]
                self._Add(member[0], (*one, self.text[slice(*two)]), (*two, self.text[slice(*one)]))
            earlier = member

    def _IsBody(self, i):
        """Whether token `i` opens a function's body, and no initializer."""
        return self._TextAt(i) == "{" and (
            self._TextAt(i - 1) in (")", "const", "override", "noexcept") or
            self._TextAt(self._After(i)) != ";")

    def _MemberKind(self, first, last):
        texts = [self._TextAt(k) for k in range(first, last + 1)]
        if "virtual" in texts:
            return "virtuals"
        head = texts[:texts.index("=")] if "=" in texts else texts
        is_call = "(" in head and head[head.index("(") + 1] != "*"
        if texts[-1] != ";" or len(texts) < 3 or is_call or NO_FIELD & set(texts[:1]):
            return None
        return "fields"


def CharacterAfter(character):
    if character.isalpha() and character.isascii():
        return chr(ord(character) + 1) if character not in "zZ" else chr(ord(character) - 1)
    if character.isdigit():
        return str((int(character) + 1) % 10)
    return {" ": "_", ".": ",", ",": "."}.get(character, "#")


def FaultsOf(file, text, families, seed):
    """All faults that this module knows for `text`, in a fixed order for a seed."""
    return Finder(file, text, families, seed).Faults()


def FaultsShuffled(faults, seed):
    """The faults in the order in which they are drawn. A kind's share grows with the square root
    of its number: constants do not crowd out the exchanged fields, and these do not come first."""
    chance = random.Random(seed)
    piles = {kind: [f for f in faults if f.kind == kind] for kind in KINDS}
    piles = {kind: pile for kind, pile in piles.items() if pile}
    weights = {kind: len(pile) ** 0.5 for kind, pile in piles.items()}
    for pile in piles.values():
        chance.shuffle(pile)
    while piles:
        kind, = chance.choices(list(piles), [weights[k] for k in piles])
        yield piles[kind].pop()
        if not piles[kind]:
            del piles[kind]
