"""Places in C++ sources where one operator, constant or statement can be changed.

Sources are read as clang-format leaves them: a binary operator stands between blanks, and the brackets
of templates do not."""
import re
from dataclasses import dataclass

KINDS = ("relation", "arithmetic", "logic", "constant", "condition", "statement", "result")

SWAPS = {
    "relation": {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="},
    "arithmetic": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "+=": "-=", "-=": "+=", "<<": ">>",
                   ">>": "<<", "&": "|", "|": "&", "^": "|", "&=": "|=", "|=": "&="},
    "logic": {"&&": "||", "||": "&&"},
}
OPERATOR = {kind: re.compile(r"(?<=[ \w)\]])(?<= )(" + "|".join(map(re.escape, sorted(swaps, key=len,
                             reverse=True))) + r")(?=[ \n])") for kind, swaps in SWAPS.items()}
STEP = re.compile(r"\+\+|--")
NUMBER = re.compile(r"(?<![\w.'])(-?)(0[xX][0-9A-Fa-f]+|\d+)([uUlL]*)(?![\w.'])")
WORD = re.compile(r"\b(true|false)\b")
CONDITION = re.compile(r"\b(?:if|while) \(")
RESULT = re.compile(r"\breturn ([^;\n]+);")
KEYWORD = re.compile(r"(return|break|continue|goto|using|typedef|case|default|delete|throw|static|const|"
                     r"constexpr|constinit|auto|public|private|protected|friend|template|namespace|struct|"
                     r"class|enum|union|extern|inline|else|do|unsigned|signed|static_assert|assert)\b")
DECLARATION = re.compile(r"[\w:]+(<.*>)?(::\w+)*( const)?( [*&]*|[*&]+ )\w+ ?([;={(\[]|$)")
NOTHING = re.compile(r"\{(nullptr|0|false)(, (nullptr|0|false))*\}")
STATEMENT = re.compile(r"(\+\+|--|\*|\()*[A-Za-z_][^;{}]*;$")
SILENT = re.compile(r"\b(static_)?assert\s*\(|\blog_\w+\s*\(")
TABLE = re.compile(r"\bconstexpr\b[^;{}()=]*=\s*\{|\bstatic const\b[^;{}()=]*\[[^;{}=]*\]\s*=\s*\{")


@dataclass(frozen=True)
class Place:
    path: str
    kind: str
    start: int
    end: int
    put: str
    line: int
    was: str  # the lines it is in, without indentation
    becomes: str
    nth: int  # among equal changes in the file

    def name(self):
        return f"{self.path}\t{self.kind}\t{self.was}\t{self.becomes}\t{self.nth}"

    def changed(self, text):
        return text[:self.start] + self.put + text[self.end:]


def close_of(text, at):
    """Where the bracket that opens at `at` closes; -1: nowhere."""
    depth = 0
    for i in range(at, len(text)):
        depth += (text[i] in "([{") - (text[i] in ")]}")
        if depth == 0:
            return i
    return -1


def hidden(text):
    """The text with everything that is no code, or is code for messages, replaced by \\x01."""
    def blank(match):
        return re.sub(r"[^\n]", "\x01", match.group())
    skipped = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|'
                         r"(?<!\w)(?:u8|[uUL])?'(?:\\.|[^'\\\n])+'|^[ \t]*\#(?:\\\n|[^\n])*|"
                         r"// clang-format off.*?// clang-format on", re.S | re.M)
    text = re.sub(r"// clang-format off.*?// clang-format on", blank, text, flags=re.S)
    text = skipped.sub(blank, text)
    for pattern in (SILENT, TABLE):
        at = 0
        while match := pattern.search(text, at):
            open_at = match.end() - 1
            end = close_of(text, open_at) + 1
            at = max(end, match.end())
            text = text[:open_at] + re.sub(r"[^\n]", "\x01", text[open_at:end]) + text[max(end, open_at):]
    return text


def operators(code):
    for kind, pattern in OPERATOR.items():
        for match in pattern.finditer(code):
            if "operator" in code[max(0, match.start() - 9):match.start()]:
                continue
            yield kind, match.start(1), match.end(1), SWAPS[kind][match.group(1)]
    for match in STEP.finditer(code):
        yield "arithmetic", match.start(), match.end(), "--" if match.group() == "++" else "++"


def constants(code):
    for match in NUMBER.finditer(code):
        sign, digits, suffix = match.groups()
        if re.match(r"\]\s*(;|=[^=]|,)", code[match.end():]):
            continue  # the size of an array
        if not sign and digits.startswith("0") and digits[1:2].isdigit():
            continue
        start = match.start()
        if sign and re.search(r"[\w)\]]$", code[:start]):
            sign, start = "", start + 1
        hexadecimal = digits[:2].lower() == "0x"
        value = int(digits, 16 if hexadecimal else 10)
        if sign and value:
            put = f"-{value - 1}" if value > 1 else "0"
        else:
            put = f"0x{value + 1:X}" if hexadecimal else str(value + 1)
        yield "constant", start, match.end(), put + suffix
    for match in WORD.finditer(code):
        yield "constant", match.start(), match.end(), "false" if match.group() == "true" else "true"


def conditions(text, code):
    for match in CONDITION.finditer(code):
        open_at = match.end() - 1
        close_at = close_of(code, open_at)
        inner = code[open_at + 1:close_at]
        if close_at < 0 or ";" in inner or re.search(r"[\w*&>] [*&]*\w+ = ", inner):
            continue
        yield "condition", open_at, close_at + 1, f"(!({text[open_at + 1:close_at]}))"


def statements(code):
    before = ";"
    at = 0
    for line in code.split("\n"):
        start, at = at, at + len(line) + 1
        stripped = line.replace("\x01", "").strip()
        begins = not before or before[-1] in ";{}:)" or before.endswith("else")
        before = stripped or before
        if not begins or not stripped.endswith(";"):
            continue
        first = start + len(line) - len(line.lstrip(" "))
        match = re.compile(r"(?:else )?(?:if|while|for) (?=\()|else ").match(code, first)
        if match:
            first = close_of(code, match.end()) + 2 if code[match.end()] == "(" else match.end()
        whole = code[first:start + len(line)].rstrip("\x01 ")
        if STATEMENT.match(whole) and not KEYWORD.match(whole) and not DECLARATION.match(whole):
            if re.search(r"[(=]|\+\+|--", whole):
                yield "statement", first, first + len(whole), ";"


def results(code):
    for match in RESULT.finditer(code):
        inner = match.group(1)
        if not re.fullmatch(r"-?\w+", inner) or re.fullmatch(r"[a-z_]\w*", inner):
            if inner not in ("true", "false", "nullptr", "{}", "this", "*this") and \
                    not NOTHING.fullmatch(inner):
                yield "result", match.start(1), match.end(1), "{}"


def places(path, text):
    """All places of one source, in order of kinds."""
    code = hidden(text)
    seen = {}
    found = []
    for kind, start, end, put in (*operators(code), *constants(code), *conditions(text, code),
                                  *statements(code), *results(code)):
        first = text.rfind("\n", 0, start) + 1
        last = text.find("\n", end)
        last = len(text) if last < 0 else last
        was = " ".join(text[first:last].split())
        becomes = " ".join((text[first:start] + put + text[end:last]).split())
        nth = seen[(kind, was, becomes)] = seen.get((kind, was, becomes), -1) + 1
        found.append(Place(path, kind, start, end, put, text.count("\n", 0, start) + 1, was, becomes, nth))
    return found
