"""What can be flipped in a C++ source as clang-format leaves it: binary operators have a space on both sides, template brackets,
references and unary operators have not."""
import collections
import re

# One change of a source: text[start:end] becomes new.
Flip = collections.namedtuple("Flip", "kind start end new")
Token = collections.namedtuple("Token", "kind text start")

TOKEN = re.compile(r"""(?P<skip> \s+ | //[^\n]* | /\*.*?\*/ | ^[ ]*\#(?:[^\n]*\\\n)*[^\n]*)
    | (?P<text> "(?:\\.|[^"\\\n])*" | '(?:\\.|[^'\\\n])+')
    | (?P<number> 0[xX][0-9a-fA-F]+[uUlL]* | \d+\.\d*(?:[eE][-+]?\d+)?[fF]? | \d+[uUlL]*)
    | (?P<word> [A-Za-z_]\w*)
    | (?P<sign> <<= | >>= | \.\.\. | -> | :: | \+\+ | -- | && | \|\| | << | >> | [-+*/%&|^=!<>]= | .)""", re.X | re.M | re.S)

# Operators with a space on both sides, and what becomes of them.
BINARY = {"relational": {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="},
          "arithmetic": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*"},
          "logical": {"&&": "||", "||": "&&"},
          "bit": {"&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<"},
          "assignment": {"+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "%=": "*=", "&=": "|=", "|=": "&=", "^=": "&=",
                         "<<=": ">>=", ">>=": "<<="}}
KINDS = [*BINARY, "number", "bool", "text", "return", "call"]
NO_CALL = {"return", "if", "for", "while", "switch", "sizeof", "static_cast", "throw", "delete", "new", "else", "do", "case"}
BOOL_FUNCTION = re.compile(r"^( *)(?:inline |static |constexpr |virtual )*bool [^;{}=]*\n\1\{\n.*?^\1\}", re.M | re.S)


def tokens_of(text):
    """The tokens of a source, without its comments, preprocessor lines, static assertions and explicit instantiations."""
    tokens = []
    left_out = False
    for match in TOKEN.finditer(text):
        if match.lastgroup == "skip":
            continue
        token = Token(match.lastgroup, match.group(), match.start())
        if token.text == "static_assert" or re.match(r"(extern )?template [^<]", text[token.start:]):
            left_out = True
        if not left_out:
            tokens.append(token)
        elif token.text == ";":
            left_out = False
    return tokens


def matching(tokens, opened):
    """The index of the bracket that closes the one at an index."""
    depth = 0
    for index in range(opened, len(tokens)):
        depth += (tokens[index].text in "([{") - (tokens[index].text in ")]}")
        if depth == 0:
            return index
    return len(tokens) - 1


def of_sign(token, before, spaced, in_for_head):
    if before.text == "operator":
        return
    for kind, table in BINARY.items():
        if spaced and token.text in table:
            yield kind, table[token.text]
    if token.text == "!":
        yield "logical", ""
    if token.text == "~" and before.kind == "sign" and before.text not in ("::", ";", "}", ":", ">"):
        yield "bit", ""
    if token.text in ("++", "--") and not in_for_head:  # a loop that runs the wrong way does not go unnoticed
        yield "arithmetic", "--" if token.text == "++" else "++"


def of_number(text):
    digits, suffix = re.fullmatch(r"(0[xX][0-9a-fA-F]+|[\d.]+(?:[eE][-+]?\d+)?)(\w*)", text).groups()
    if "." in digits:
        return [f"{float(digits) + 1}{suffix}"]
    value = int(digits, 0)
    show = hex if digits[:2] in ("0x", "0X") else str
    return [show(other) + suffix for other in ([value + 1, value - 1] if value < 2 else [value + 1])]


def of_text(text):
    """One letter in the middle of a text changed; escapes and conversions are left alone."""
    letters = [match.start(1) for match in re.finditer(r"(?:\\.|%[-+ #0-9.*]*[a-z]+|([^\\%\"']))", text) if match.start(1) > 0]
    if not letters:
        return []
    place = letters[len(letters) // 2]
    return [text[:place] + ("x" if text[place] != "x" else "y") + text[place + 1:]]


def of_calls(tokens):
    """Statements that are a simple call, dropped."""
    depth = 0
    for index, token in enumerate(tokens):
        depth += (token.text == "{") - (token.text == "}")
        if not depth or token.kind != "word" or token.text in NO_CALL or tokens[index - 1].text not in (";", "{", "}"):
            continue
        end = index + 1
        while tokens[end].text in (".", "->", "::") and tokens[end + 1].kind == "word":
            end += 2
        if tokens[end].text == "(" and tokens[matching(tokens, end) + 1].text == ";":
            yield Flip("call", token.start, tokens[matching(tokens, end) + 1].start, "")


def of_returns(text, tokens):
    """What a bool function returns, negated."""
    functions = [match.span() for match in BOOL_FUNCTION.finditer(text)]
    for index, token in enumerate(tokens):
        if token.text != "return" or not any(start < token.start < end for start, end in functions):
            continue
        end = index + 1
        while tokens[end].text != ";":
            end = matching(tokens, end) + 1 if tokens[end].text in ("(", "[", "{") else end + 1
        start, end = tokens[index + 1].start, tokens[end].start
        if text[start:end] not in ("true", "false", ""):
            yield Flip("return", start, end, f"!({text[start:end]})")


def flips_of(text):
    """Every flip of a source, in the order of the source."""
    tokens = tokens_of(text)
    flips = []
    for_head = 0  # index of the bracket that ends the head of a loop
    for index, token in enumerate(tokens):
        before = tokens[index - 1]
        if token.text == "for":
            for_head = matching(tokens, index + 1)
        end = token.start + len(token.text)
        spaced = text[token.start - 1:token.start].isspace() and text[end:end + 1].isspace()
        found = []
        if token.kind == "sign":
            found = of_sign(token, before, spaced, index < for_head)
        elif token.kind == "number":
            found = [("number", new) for new in of_number(token.text)]
        elif token.text in ("true", "false"):
            found = [("bool", "false" if token.text == "true" else "true")]
        elif token.kind == "text":
            found = [("text", new) for new in of_text(token.text)]
        flips += [Flip(kind, token.start, end, new) for kind, new in found]
    return sorted([*flips, *of_calls(tokens), *of_returns(text, tokens)], key=lambda flip: (flip.start, flip.end, flip.new))
