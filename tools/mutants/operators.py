# SPDX-License-Identifier: MIT
"""The mutation operators: each looks at one node of the syntax tree and yields changes (begin, end, new text)."""

import re

from .syntax import INVISIBLE

RELATIONAL = {
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "==": ["!=", "<=", ">="],
    "!=": ["==", "<", ">"],
}
ARITHMETIC = {
    "+": ["-"],
    "-": ["+"],
    "*": ["/"],
    "/": ["*", "%"],
    "%": ["/", "*"],
    "&": ["|", "^"],
    "|": ["&"],  # what is joined are separate bits, for which ^ does the same
    "^": ["&", "|"],
    "<<": [">>"],
    ">>": ["<<"],
}
LOGICAL = {"&&": ["||"], "||": ["&&"]}
ASSIGNMENT = {
    "+=": ["-=", "="],
    "-=": ["+=", "="],
    "*=": ["/=", "="],
    "/=": ["*=", "="],
    "%=": ["="],
    "&=": ["|=", "="],
    "|=": ["&=", "="],
    "^=": ["|=", "="],
    "<<=": [">>=", "="],
    ">>=": ["<<=", "="],
}
NARROWER = {
    "uint64_t": "uint32_t",
    "uint32_t": "uint16_t",
    "uint16_t": "uint8_t",
    "int64_t": "int32_t",
    "int32_t": "int16_t",
    "int16_t": "int8_t",
    "size_t": "uint32_t",
    "ssize_t": "int32_t",
    "uintptr_t": "uint32_t",
    "int": "signed char",
    "unsigned": "unsigned char",
    "long": "int",
}
INTEGERS = {
    "char", "signed char", "unsigned char", "short", "unsigned short", "int", "unsigned int", "long",
    "unsigned long", "long long", "unsigned long long",
}  # fmt: skip
LITERALS = {"IntegerLiteral", "CharacterLiteral", "FloatingLiteral", "CXXBoolLiteralExpr", "StringLiteral"}
DELETABLE = {
    "AtomicExpr", "CallExpr", "CXXMemberCallExpr", "CXXOperatorCallExpr", "CompoundAssignOperator", "CXXDeleteExpr",
    "CStyleCastExpr", "BreakStmt", "ContinueStmt",
}  # fmt: skip
TAKERS = {"CallExpr", "CXXMemberCallExpr", "CXXConstructExpr", "CXXTemporaryObjectExpr", "InitListExpr"}
ALLOCATORS = {"malloc", "calloc", "norv_malloc", "norv_zalloc"}
CHOICES = {"std::min", "std::max", "calloc"}
# Asked only whether two texts are the same, which is the same in either order.
COMPARISONS = {"strcmp", "strncmp", "strcasecmp", "memcmp", "norv_strncmp", "norv_memcmp"}
LOOPS = {"ForStmt", "WhileStmt", "DoStmt"}
COMMENTS = re.compile(rb"//[^\n]*|/\*.*?\*/", re.DOTALL)
TYPE_NAME = re.compile(rb"\b(?:std::)?(" + "|".join(NARROWER).encode() + rb")\b")
# A conversion of printf(3) or scanf(3), an escape sequence, or one character.
FORMAT_PART = re.compile(rb"%[-#0 +*]*\d*(?:\.\d+|\.\*)?(?:hh|h|ll|l|z|j)?[a-zA-Z%]|\\(?:x[0-9a-fA-F]+|[0-7]+|.)|.")
CONVERSIONS = {b"d": b"u", b"i": b"u", b"u": b"d", b"x": b"d", b"X": b"d", b"c": b"d", b"o": b"d"}


def is_integer(node):
    return re.sub(r"\b(const|volatile)\b ?", "", node.type) in INTEGERS


def is_boolean(node):
    return node.type in ("bool", "const bool")


def is_pointer(node):
    return node.type.rstrip("const ").endswith("*")


def whole(node, text):
    return node.begin, node.end, text


def shown_parent(node):
    parent = node.parent
    while parent is not None and parent.kind in INVISIBLE:
        parent = parent.parent
    return parent


def negated(node):
    return whole(node, b"!(" + node.text + b")")


def is_own_negation(node):
    """Whether another operator negates the expression already."""
    bare = node.bare()
    return bare.opcode == "!" or bare.opcode in RELATIONAL


# ---- Operators between two operands ----


def operands(node):
    """The operands of a binary operator that the source shows."""
    if node.kind in ("BinaryOperator", "CompoundAssignOperator"):
        return node.children if len(node.children) == 2 else None
    if node.kind == "CXXOperatorCallExpr" and len(node.children) == 3:
        return node.children[1:]
    return None


def infix(node):
    """A binary operator in the source: its begin, its end, its text."""
    pair = operands(node)
    if pair is None or not pair[1].is_placed_after(pair[0]):
        return None
    between = node.source.text[pair[0].end : pair[1].begin]
    between = COMMENTS.sub(lambda comment: b" " * len(comment.group()), between)
    text = between.strip()
    begin = pair[0].end + between.index(text)
    return begin, begin + len(text), text.decode()


def replaced_infix(node, table):
    found = infix(node)
    if found is not None:
        for text in table.get(found[2], []):
            yield found[0], found[1], text.encode()


def relational(node):
    has_order = node.kind == "BinaryOperator" and is_integer(node.children[0])
    for begin, end, text in replaced_infix(node, RELATIONAL):
        if has_order or text in (b"==", b"!=") or node.opcode not in ("==", "!="):
            yield begin, end, text


def arithmetic(node):
    yield from replaced_infix(node, ARITHMETIC)
    if node.kind == "UnaryOperator" and node.opcode in ("-", "~") and node.children:
        yield whole(node, node.children[0].text)


def assignment(node):
    if node.kind == "CompoundAssignOperator":
        yield from replaced_infix(node, ASSIGNMENT)


def logical(node):
    yield from replaced_infix(node, LOGICAL)
    if node.kind == "BinaryOperator" and node.opcode in LOGICAL and infix(node) is not None:
        for operand in node.children:
            yield whole(node, operand.text)
    if node.kind == "UnaryOperator" and node.opcode == "!" and node.children:
        yield whole(node, node.children[0].text)


def flag(node):
    """Each operand of a chain of `|` dropped, and masks."""
    if node.kind != "BinaryOperator" or node.opcode not in ("|", "&") or infix(node) is None:
        return
    left, right = node.children
    yield whole(node, left.text)
    if node.opcode == "|" and left.visible().opcode != "|":
        yield whole(node, right.text)


# ---- Conditions ----


def condition_of(node):
    """The expression that decides, unless it declares a variable."""
    if node.raw.get("hasVar"):
        return None
    position = {
        "IfStmt": 1 if node.raw.get("hasInit") else 0,
        "WhileStmt": 0,
        "DoStmt": 1,
        "ForStmt": 2,
        "ConditionalOperator": 0,
    }.get(node.kind)
    return None if position is None or position >= len(node.slots) else node.slots[position]


def condition(node):
    decisive = condition_of(node)
    if decisive is None:
        return
    if not is_own_negation(decisive):
        yield negated(decisive)
    yield whole(decisive, b"false")
    # A loop without an end would only show that its tests wait for one.
    if node.kind not in LOOPS:
        yield whole(decisive, b"true")


# ---- Values ----


def other_numbers(value):
    return [other for other in dict.fromkeys([value + 1, value - 1, 0, 1]) if other != value]


def integer_constants(node):
    found = re.fullmatch(rb"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlLzZ]*)", node.text)
    if found is None:
        return
    digits, suffix = found.groups()
    is_hexadecimal = digits[:2].lower() == b"0x"
    value = int(digits.replace(b"'", b""), 16 if is_hexadecimal else 8 if digits[:1] == b"0" else 10)
    for other in other_numbers(value):
        text = f"{other:#x}" if is_hexadecimal and other > 1 else str(other)
        yield whole(node, text.encode() + suffix)


def character_constants(node):
    if re.fullmatch(rb"'.*'", node.text):
        yield whole(node, b"'" + changed_character(node.text[1:-1]) + b"'")


def array_sizes(node):
    """Of `char text[12]`: the sizes next to it."""
    location = node.raw.get("loc", {})
    if not node.type.endswith("]") or "offset" not in location:
        return
    start = location["offset"] + location["tokLen"]
    found = re.compile(rb"\s*\[(\d+)\]").match(node.source.text, start, node.end)
    if found:
        for other in (int(found[1]) + 1, int(found[1]) - 1):
            yield found.start(1), found.end(1), str(other).encode()


def named_constants(node):
    """Constants with a name that are a call's argument: none of its bits."""
    if node.kind in ("CallExpr", "CXXMemberCallExpr"):
        for argument in arguments_of(node):
            is_name = re.fullmatch(rb"[A-Z][A-Z0-9_]+", argument.text)
            if is_name and is_integer(argument):
                yield whole(argument, b"0")


def is_allocated(size):
    """Whether so much memory is asked for: a byte more is never looked at, and malloc(3) rounds up what is a byte less."""
    call = shown_parent(size)
    return call is not None and call.kind == "CallExpr" and call.slots[0].text.decode() in ALLOCATORS


def constant(node):
    if node.kind == "IntegerLiteral":
        if not is_allocated(node):
            yield from integer_constants(node)
    elif node.kind == "CharacterLiteral":
        yield from character_constants(node)
    elif node.kind == "FloatingLiteral" and re.fullmatch(rb"[0-9.]+[fF]?", node.text):
        yield whole(node, b"0.0")
        yield whole(node, b"(" + node.text + b" + 1)")
    elif node.kind == "UnaryExprOrTypeTraitExpr" and node.text.startswith(b"sizeof"):
        if not is_allocated(node):
            yield whole(node, b"(" + node.text + b" + 1)")
            yield whole(node, b"(" + node.text + b" - 1)")
    elif node.kind in ("VarDecl", "FieldDecl"):
        yield from array_sizes(node)
    yield from named_constants(node)


def boolean(node):
    if node.kind == "CXXBoolLiteralExpr" and node.text in (b"true", b"false"):
        yield whole(node, b"false" if node.text == b"true" else b"true")


def other_values(node):
    """What may take the place of a value, by its type."""
    if is_boolean(node):
        if node.bare().kind not in LITERALS and not is_own_negation(node):
            yield negated(node)
    elif is_integer(node):
        for text in (b"0", b"1"):
            if node.text != text:
                yield whole(node, text)
    elif is_pointer(node) and node.text != b"nullptr":
        yield whole(node, b"nullptr")


def returned(node):
    if node.kind == "ReturnStmt" and node.children:
        yield from other_values(node.children[0])


def initial_value(node):
    """The value that a variable or a member begins with, where the source names it."""
    if node.kind in ("VarDecl", "FieldDecl"):
        has_value = node.raw.get("init") or node.raw.get("hasInClassInitializer")
        return node.children[-1] if has_value and node.children else None
    if node.kind == "CXXCtorInitializer" and node.children and node.children[0].kind != "CXXConstructExpr":
        return node.children[0]
    return None


def initial(node):
    """Initial values that are not literals, which `constant` changes, and those that clear a record."""
    value = initial_value(node)
    if value is None:
        return
    if value.text == b"{}":
        # In a text the digit, where the number would often read like the end of the text.
        yield whole(value, b"{'1'}" if node.type.startswith("char[") else b"{1}")
    elif value.bare().kind not in LITERALS:
        yield from other_values(value)
        if is_boolean(value):
            yield whole(value, b"true")
            yield whole(value, b"false")


# ---- Strings ----


def changed_character(character):
    """Another character of the same kind."""
    if len(character) > 1 or not character.isalnum():
        return b"x" if character != b"x" else b"y"
    last_of_its_kind = {b"9": b"0", b"z": b"a", b"Z": b"A"}
    return last_of_its_kind.get(character, bytes([character[0] + 1]))


def literal_parts(text):
    """The positions and texts of a literal's conversions, escapes and characters, of all its pieces."""
    for piece in re.finditer(rb'"((?:[^"\\\n]|\\.)*)"', text):
        for part in FORMAT_PART.finditer(text, piece.start(1), piece.end(1)):
            yield part.start(), part.group()


def changed_at(node, position, old, new):
    return whole(node, node.text[:position] + new + node.text[position + len(old) :])


def string(node):
    """The last character changed, each conversion of a number changed, nothing left; something where nothing was."""
    if node.kind != "StringLiteral" or not node.text.startswith(b'"'):
        return
    parts = list(literal_parts(node.text))
    single = [part for part in parts if len(part[1]) == 1]
    for position, old in [part for part in single if part[1].isalnum()][-1:] or single[-1:]:
        yield changed_at(node, position, old, changed_character(old))
    for position, old in parts:
        if old[:1] == b"%" and old[-1:] in CONVERSIONS:
            yield changed_at(node, position, old, old[:-1] + CONVERSIONS[old[-1:]])
            yield changed_at(node, position, old, b"%" + old.lstrip(b"%-#0 +*123456789."))
    yield whole(node, b'""' if parts else b'"x"')


# ---- Statements ----


def statements_of(node):
    """The children that are statements rather than expressions."""
    if node.kind == "CompoundStmt":
        return node.slots
    if node.kind in ("CaseStmt", "DefaultStmt", "WhileStmt", "ForStmt", "CXXForRangeStmt", "LabelStmt"):
        return node.slots[-1:]
    if node.kind == "IfStmt":
        return node.slots[-2 if node.raw.get("hasElse") else -1 :]
    return []


def is_guard(node):
    """A declaration of one object that a constructor makes of something: what matters may be its end of life."""
    if node.kind != "DeclStmt" or len(node.children) != 1 or node.children[0].kind != "VarDecl":
        return False
    value = initial_value(node.children[0])
    return value is not None and value.visible().kind == "CXXConstructExpr" and bool(value.visible().children)


def is_deletable(statement):
    shown = statement.visible()
    if is_guard(shown):
        return True
    if shown.kind == "ReturnStmt":
        return not shown.children
    is_change = shown.kind in ("BinaryOperator", "UnaryOperator") and shown.opcode in ("=", "++", "--")
    return is_change or shown.kind in DELETABLE


def statement(node):
    for child in statements_of(node):
        if child is not None and is_deletable(child):
            yield whole(child, b"")


def branch(node):
    """What an if-statement does, left out."""
    if node.kind == "IfStmt":
        for child in statements_of(node):
            if child is not None and (child.kind == "IfStmt" or child.kind == "CompoundStmt" and child.children):
                yield whole(child, b"{}")


def increment(node):
    if node.kind != "UnaryOperator" or node.opcode not in ("++", "--") or not node.children:
        return
    operand = node.children[0].text
    other = b"--" if node.opcode == "++" else b"++"
    is_postfix = node.raw.get("isPostfix")
    yield whole(node, operand)
    yield whole(node, operand + other if is_postfix else other + operand)
    if node.parent is not None and node.parent.kind not in ("CompoundStmt", "ForStmt"):
        same = node.opcode.encode()
        yield whole(node, same + operand if is_postfix else operand + same)


# ---- Calls ----


def arguments_of(node):
    arguments = node.slots[1:] if node.kind in ("CallExpr", "CXXMemberCallExpr") else node.slots
    return [argument for argument in arguments if argument is not None]


def is_symmetric(call):
    """Whether the first two arguments mean the same in either order."""
    if call.kind != "CallExpr":
        return False
    name = call.slots[0].text.split(b"<")[0].decode()
    if name in CHOICES:
        return True
    parent = shown_parent(call)
    is_comparison = parent is not None and parent.kind == "BinaryOperator" and parent.opcode in ("==", "!=")
    return name in COMPARISONS and is_comparison and parent.children[1].text == b"0"


def argument(node):
    """Neighbours of the same type change places: a call's arguments, and what a list initialises fields with."""
    if node.kind not in TAKERS:
        return
    arguments = arguments_of(node)
    if is_symmetric(node):
        arguments = arguments[1:]
    for first, second in zip(arguments, arguments[1:]):
        is_alike = first.type == second.type and "dependent" not in first.type and first.text != second.text
        is_row = first.visible().kind == "InitListExpr"
        if is_alike and not is_row and second.is_placed_after(first):
            gap = node.source.text[first.end : second.begin]
            yield first.begin, second.end, second.text + gap + first.text


def narrowing(node):
    """Integers of half the size, in casts and in local variables."""
    if node.kind in ("CXXStaticCastExpr", "CXXFunctionalCastExpr") and node.children:
        stop = node.children[0].begin
    elif node.kind == "VarDecl" and node.parent is not None and node.parent.kind == "DeclStmt":
        stop = node.raw["loc"].get("offset", node.begin)
    else:
        return
    found = TYPE_NAME.search(node.source.text, node.begin, stop)
    if found and b"*" not in node.source.text[found.end() : stop]:
        yield found.start(), found.end(), NARROWER[found[1].decode()].encode()


OPERATORS = {
    "relational": relational,
    "arithmetic": arithmetic,
    "logical": logical,
    "condition": condition,
    "constant": constant,
    "boolean": boolean,
    "return": returned,
    "initial": initial,
    "statement": statement,
    "flag": flag,
    "argument": argument,
    "narrowing": narrowing,
    "string": string,
    "branch": branch,
    "assignment": assignment,
    "increment": increment,
}


def changes(node):
    """All changes at a node: (operator, begin, end, new text)."""
    if node.is_macro:
        return
    for name, function in OPERATORS.items():
        for begin, end, text in function(node):
            if node.source.text[begin:end] != text:
                yield name, begin, end, text
