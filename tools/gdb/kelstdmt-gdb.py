"""GDB's printers for kelstdmt: strings, values, handles, objects, sequences and dictionaries.

Nothing of the program that is looked at is called: all comes from its memory, the types in its debug information and
the names of symbols, so core files print as well. What an object is, its table of virtual functions tells by its
symbol. The declared name and fields of a class stand in static objects of its descriptor's getter, xrtti_get_p_CLASS:
`place`, where the descriptor is once it was built, and `type`, the rows, each with the address of an instance of
kel::field's getter, whose symbol names the member.

Compilers describe a class with virtual functions only where those are compiled, so a program beside a library without
debug information does not know the members of xstring, of the engines of containers and of the library's own classes.
Of those, the places of what is needed are known here. They are part of the library's binary interface.

Memory may hold anything. Whatever cannot be what its type says is shown as <...>; objects that lead back to
themselves, or far, are named and not followed.
"""

import functools
import re
import struct

import gdb
import gdb.printing

NULL, UNINIT = 0, 22  # of pointers to objects; nothing lies below the latter
WORDS_TO_TEXT = 1  # in an xstring
WORDS_TO_NAME, WORDS_TO_VALUES = 2, 3  # in an xrtti and an xrttienum
WORDS_TO_DESCRIPTION = 3  # in a kelXException
UNMEASURED = 0xFFFFFFFF  # the size of a text that its holder writes
DEEPEST, MOST = 4, 50  # objects in one another, and in all that is shown at once
MOST_SLOTS = 1 << 16  # of a table that is looked through in vain

# Memory ---------------------------------------------------------------------------------------------------------------


def pointer_size():
    return gdb.lookup_type("char").pointer().sizeof


def read(address, layout):
    """Numbers, as struct has them; P is a pointer of the program's."""
    layout = "<" + layout.replace("P", "Q" if pointer_size() == 8 else "I")
    return struct.unpack(layout, bytes(gdb.selected_inferior().read_memory(address, struct.calcsize(layout))))


def word_at(address, words=0):
    return read(address + words * pointer_size(), "P")[0]


def chars(address):
    return gdb.Value(address).cast(gdb.lookup_type("char").pointer())


def value_at(address, kind):
    return gdb.Value(address).cast(kind.pointer()).dereference()


def symbol_at(address):
    """The name of what begins, or lies, there, without an offset behind it; "" for nothing known."""
    told = gdb.execute(f"info symbol {address}", to_string=True)
    found = re.match(r"(.*?)(?: \+ \d+)? in section ", told)
    return found[1] if found else ""


def text_at(address):
    """What is shown of the text of a counted buffer."""
    if address == NULL:
        return "null"
    room, size, holders = read(address - 12, "III")
    is_text = 0 < holders < 1 << 31 and (size == UNMEASURED or size <= room and read(address + size, "B") == (0,))
    if not is_text:
        return f"<not a text: {address:#x}>"
    return chars(address).lazy_string(length=-1 if size == UNMEASURED else size)


def is_shown_text(shown):
    return not isinstance(shown, str)


def guarded(method):
    """What a printer's method answers, or why it does not."""

    def call(self):
        try:
            return method(self)
        except gdb.MemoryError:
            return "<memory that cannot be read>"
        except (gdb.error, ValueError, OverflowError, struct.error, TypeError, KeyError, RuntimeError) as error:
            return f"<{error}>"

    return call


def guarded_children(method):
    def call(self):
        try:
            yield from method(self)
        except gdb.MemoryError:
            yield "<memory>", "<that cannot be read>"
        except (gdb.error, ValueError, OverflowError, struct.error, TypeError, KeyError, RuntimeError) as error:
            yield "<error>", f"<{error}>"

    return call


# Types ----------------------------------------------------------------------------------------------------------------


def bases_of(kind):
    """The class itself and all above it."""
    kind = kind.strip_typedefs()
    yield kind
    if kind.code == gdb.TYPE_CODE_STRUCT:
        for field in kind.fields():
            if field.is_base_class:
                yield from bases_of(field.type)


def base_named(kind, start):
    return next((base for base in bases_of(kind) if (base.name or "").startswith(start)), None)


def is_object_class(kind):
    return base_named(kind, "xobject") is not None


def is_object_pointer(kind):
    kind = kind.strip_typedefs()
    return kind.code == gdb.TYPE_CODE_PTR and is_object_class(kind.target())


def known_type(name):
    try:
        return gdb.lookup_type(name)
    except gdb.error:
        return None


def static_of(class_name, name):
    """A static object of the getter of a class's descriptor; None where there is none, or nothing is known of it."""
    scope, _, last = class_name.rpartition("::")
    getter = f"{scope}::xrtti_get_p_{last}" if scope else f"xrtti_get_p_{last}"
    for expression in (f"'{getter}'::{name}", f"'{getter}()::{name}'"):
        try:
            found = gdb.parse_and_eval(expression)
            return None if found.address is None else found
        except gdb.error:
            pass
    return None


def descriptor_name(descriptor):
    text = text_at(word_at(descriptor, WORDS_TO_NAME)) if descriptor else "null"
    return text.value().string() if is_shown_text(text) else None


def declared_name(class_name):
    place = static_of(class_name, "place")
    try:
        return place is not None and descriptor_name(word_at(int(place.address))) or class_name
    except gdb.error:
        return class_name


def enumerator(descriptor, number):
    """Its name, by an xrttienum; None for a number that has none."""
    values = word_at(descriptor, WORDS_TO_VALUES)
    count, names = read(values, "i")[0], word_at(values, 1)
    return chars(word_at(names, number)).string() if 0 <= number < count else None


# Objects --------------------------------------------------------------------------------------------------------------


class Whole:
    """An object as what it is: its class by name, and its value where the debug information has that class."""

    classes = {}  # by the address of the table of virtual functions, while one thing is shown

    def __init__(self, address):
        self.address, self.name, self.value = address, None, None
        if address in (NULL, UNINIT):
            return
        table = word_at(address)
        if table not in self.classes:
            self.classes[table] = self.class_of(table)
        if self.classes[table] is None:
            return
        self.name, kind, to_top, self.information = self.classes[table]
        self.address += to_top
        if kind is not None:
            self.value = value_at(self.address, kind)

    @staticmethod
    def class_of(table):
        """Its declared name, its type, the way to the whole object, and where its type information is."""
        symbol = symbol_at(table)
        if not symbol.startswith("vtable for "):
            return None
        name = symbol[len("vtable for "):]
        kind = known_type(name)
        inner = re.fullmatch(r"xauto<(.*?) ?>", name)
        to_top = read(table - 2 * pointer_size(), "q" if pointer_size() == 8 else "i")[0]
        return (declared_name(inner[1] if inner else name), kind if kind is not None and kind.fields() else None, to_top,
                word_at(table, -1))

    def is_a(self, name):
        """Whether the class is the one with the mangled name or has it as its first base, by the type information."""
        information = self.information
        for _ in range(32):
            if chars(word_at(information, 1)).string() == name:
                return True
            kind = symbol_at(word_at(information))
            if "__si_class" in kind:
                information = word_at(information, 2)
            elif "__vmi_class" in kind and read(information + 2 * pointer_size() + 4, "I")[0] > 0:
                information = read(information + 2 * pointer_size() + 8, "P")[0]
            else:
                return False
        return False

    def member(self, getter):
        """The member that a getter of kel::field reads, by its symbol; None for one that is not stored."""
        symbol = symbol_at(getter)
        found = re.search(r"::get<\(?&\(?(?:.*::)?(\w+)(\(.*)?>\(xrttifield\*", symbol)
        if not found:
            return None
        name = found[1]
        bare = name[3:] if name.startswith("get") else name
        snake = re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "_", bare).lower()
        for candidate in (name, f"m_{bare}", f"m_{snake}", bare, snake):
            for base in bases_of(self.value.type):
                if any(field.name == candidate and not field.is_base_class for field in base.fields()):
                    value = self.value[candidate]
                    if value.type.strip_typedefs().code not in (gdb.TYPE_CODE_METHOD, gdb.TYPE_CODE_FUNC):
                        return value
        return None

    def fields(self):
        """(name, value): the declared fields of the class and those above it, else all that is stored."""
        if self.is_a("13kelXException"):
            yield "Description", text_at(word_at(self.address, WORDS_TO_DESCRIPTION))
        if self.value is None:
            return
        for base in reversed([base for base in bases_of(self.value.type) if base.name]):
            if base.name in ("xobject", "kelXException") or base.name.startswith("xauto<"):
                continue
            rows = static_of(base.name, "type")
            if rows is None or not any(field.name == "rows" for field in rows.type.strip_typedefs().fields()):
                yield from self.stored(base)
                continue
            rows = rows["rows"]["_M_elems"]
            kind = rows.type.strip_typedefs()
            for at in range(kind.range()[1] + 1 if kind.code == gdb.TYPE_CODE_ARRAY else 0):
                value = self.member(int(rows[at]["get"]))
                yield rows[at]["name"].string(), "<computed>" if value is None else value

    def stored(self, base):
        own = self.value if base.name == self.value.type.name else self.value.cast(base)
        for field in base.fields():
            if not field.is_base_class and not field.artificial and hasattr(field, "bitpos") and field.name:
                yield re.sub(r"^m_", "", field.name), own[field]


class Shown:
    """The objects that are being shown, outermost first; all that one print shows counts against MOST."""

    def __init__(self):
        self.open, self.count = [], 0

    def may_follow(self, address):
        return address not in self.open and len(self.open) < DEEPEST and self.count < MOST

    def follow(self, address, children):
        if not self.open:
            self.count = 0
        self.count += 1
        depth = len(self.open)
        self.open.append(address)
        try:
            yield from children
        finally:
            del self.open[depth:]


shown = Shown()


def as_child(value):
    """Pointers to objects are followed, as handles are."""
    if not is_object_pointer(value.type):
        return value
    return {NULL: "null", UNINIT: "uninit"}.get(int(value)) or value.dereference()


class ObjectPrinter:
    def __init__(self, address):
        self.address = address

    @functools.cached_property
    def whole(self):
        return Whole(self.address)

    @functools.cached_property
    def engine(self):
        value = self.whole.value
        if value is None:
            return None
        for start, printer in (("xtbsequence<", Sequence), ("xtbdictionary<", Dictionary)):
            base = base_named(value.type, start)
            if base is None:
                continue
            engine = next(field for field in base.fields() if field.is_base_class and field.name.startswith("xbase"))
            value = value if base.name == value.type.name else value.cast(base)
            return printer(int(value.address) + engine.bitpos // 8, base.template_argument(0))
        return None

    def to_string(self):
        return self.text

    @functools.cached_property
    @guarded
    def text(self):
        if self.address in (NULL, UNINIT):
            return "uninit" if self.address else "null"
        if self.whole.name is None:
            return f"<no object: {self.address:#x}>"
        name = self.whole.name
        engine = self.engine
        if engine:
            name += engine.size_text()
        return name if shown.may_follow(self.address) else f"{name} at {self.address:#x}"

    @guarded_children
    def children(self):
        if self.text.startswith("<") or self.address in (NULL, UNINIT) or not shown.may_follow(self.address):
            return
        engine = self.engine
        parts = engine.entries() if engine else self.whole.fields()
        yield from shown.follow(self.address, ((name, as_child(value) if isinstance(value, gdb.Value) else value)
                                               for name, value in parts))

    def display_hint(self):
        try:
            engine = self.engine
            return engine.hint if engine and engine.is_sound() else None
        except gdb.error:
            return None


class Sequence:
    hint = "array"

    def __init__(self, engine, kind):
        self.kind = kind
        self.buffer, self.size, self.capacity = read(engine + pointer_size(), "PII")

    def is_sound(self):
        return self.size <= self.capacity and self.size % self.kind.sizeof == 0

    def size_text(self):
        return f" of {self.size // self.kind.sizeof}" if self.is_sound() else ", <broken>"

    def entries(self):
        for at in range(self.size // self.kind.sizeof if self.is_sound() else 0):
            yield f"[{at}]", value_at(self.buffer + at * self.kind.sizeof, self.kind)


class Dictionary:
    hint = "map"
    empty, removed = 0, 1

    def __init__(self, engine, kind):
        self.kind = kind
        self.table, self.slots, self.count = read(engine + pointer_size(), "PII")

    def is_sound(self):
        return self.count <= self.slots <= 1 << 31 and self.slots & (self.slots - 1) == 0

    def size_text(self):
        return f" of {self.count}" if self.is_sound() else ", <broken>"

    def entries(self):
        if not self.is_sound():
            return
        word = pointer_size()
        bare = self.kind.strip_typedefs()
        align = 8 if bare.name == "double" else bare.alignof
        offset = -(-word // align) * align
        size = -(-(offset + self.kind.sizeof) // max(align, word)) * max(align, word)
        left, in_vain = self.count, 0
        for slot in range(self.slots):
            if left == 0 or in_vain > MOST_SLOTS:
                return
            key = word_at(self.table + slot * size)
            in_vain += 1
            if key in (self.empty, self.removed):
                continue
            left, in_vain = left - 1, 0
            yield f"[{slot}].key", chars(key).lazy_string()
            yield f"[{slot}].value", value_at(self.table + slot * size + offset, self.kind)


# Strings, values, handles -----------------------------------------------------------------------------------------------


class StringPrinter:
    def __init__(self, value):
        self.address = int(value.address)

    @guarded
    def to_string(self):
        return text_at(word_at(self.address, WORDS_TO_TEXT))

    def display_hint(self):
        return "string" if is_shown_text(self.to_string()) else None


class HandlePrinter(ObjectPrinter):
    def __init__(self, value):
        super().__init__(int(value["m_object"]))


class AnyPrinter:
    uninit, nil, integer, boolean, real, text, enumerated, object, foreign = range(9)

    def __init__(self, value):
        self.value, self.kind, self.payload = value, int(value["m_kind"]), value["m_payload"]

    def object_printer(self):
        return ObjectPrinter(int(self.payload["object"]))

    @guarded
    def to_string(self):
        payload = self.payload
        if self.kind == self.object:
            return self.object_printer().to_string()
        if self.kind == self.text:
            return text_at(int(payload["text"]))
        if self.kind == self.enumerated:
            number, descriptor = int(payload["enumeration"]["value"]), int(payload["enumeration"]["rtti"])
            return enumerator(descriptor, number) or f"{number} of {descriptor_name(descriptor)}"
        if self.kind == self.foreign:
            return f"extern {int(payload['foreign']['value']):#x}"
        plain = {self.uninit: lambda: "uninit", self.nil: lambda: "nil", self.integer: lambda: str(payload["integer"]),
                 self.boolean: lambda: {0: "false", 1: "true"}.get(int(payload["boolean"]), "<no bool>"),
                 self.real: lambda: str(payload["real"])}.get(self.kind)
        return plain() if plain else f"<not a value: kind {self.kind}>"

    @guarded_children
    def children(self):
        if self.kind == self.object:
            yield from self.object_printer().children()

    def display_hint(self):
        if self.kind == self.object:
            return self.object_printer().display_hint()
        return "string" if self.kind == self.text and is_shown_text(self.to_string()) else None


# Finding them -----------------------------------------------------------------------------------------------------------


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("kelstdmt", [])
        self.known = {}  # what makes a printer, by the name of the class

    def __call__(self, value):
        if not shown.open:
            Whole.classes.clear()
        kind = value.type
        if kind.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
            value = value.referenced_value()
            kind = value.type
        kind = kind.strip_typedefs().unqualified()
        if kind.code != gdb.TYPE_CODE_STRUCT or not kind.name or value.address is None:
            return None
        if kind.name not in self.known:
            self.known[kind.name] = self.maker(kind)
        return self.known[kind.name](value)

    @staticmethod
    def maker(kind):
        if kind.name == "xstring":
            return StringPrinter
        if kind.name == "xany":
            return AnyPrinter
        if kind.name.startswith(("xrchandle<", "xrcunihandle<", "xrcbasehandle<")):
            return HandlePrinter
        if is_object_class(kind):
            return lambda value: ObjectPrinter(int(value.address))
        return of_unknown if not kind.fields() else lambda value: None


def of_unknown(value):
    """Of a class whose members are not known here: what lies there may be an object."""
    try:
        printer = ObjectPrinter(int(value.address))
        return printer if printer.whole.name and printer.whole.is_a("7xobject") else None
    except gdb.error:
        return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
