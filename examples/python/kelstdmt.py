"""kelstdmt from Python, through its C interface and ctypes.

    import kelstdmt
    prices = kelstdmt.RealDictionary({"apple": 0.25})
    names = kelstdmt.StringSequence(["apple", None])

Sequences behave as lists, dictionaries as dicts; str() prints an object as the framework does. A nil value is None,
a value that was never set is UNINIT. Failures are raised as Error, which is also an IndexError, a TypeError or a
MemoryError where that fits.

The library is the one that the environment variable KELSTDMT_LIBRARY names, else that of ../../build/release, else
the installed one.

Ownership: an Object owns one hold and gives it back when Python forgets it; a text that comes back is copied and its
hold given back at once. A call and the look at the exception slot stand in one lock, because all threads share the
slot.
"""
import collections.abc
import ctypes
import ctypes.util
import os
import pathlib
import struct
import threading
import weakref


class _Uninit:
    def __repr__(self):
        return "UNINIT"


UNINIT = _Uninit()


def _find_library():
    named = os.environ.get("KELSTDMT_LIBRARY")
    built = pathlib.Path(__file__).resolve().parents[2] / "build" / "release" / "libkelstdmt.so"
    path = named or (str(built) if built.exists() else ctypes.util.find_library("kelstdmt"))
    if not path:
        raise ImportError("libkelstdmt.so is not found: set KELSTDMT_LIBRARY to its path")
    return ctypes.CDLL(path)


_library = _find_library()
_lock = threading.RLock()
_pointer, _int, _bool, _key = ctypes.c_void_p, ctypes.c_int, ctypes.c_ubyte, ctypes.c_char_p


def _function(name, result, *arguments):
    function = getattr(_library, name)
    function.restype, function.argtypes = result, arguments
    return function


_unlock_text = _function("xstrunlock_c", None, _pointer)
_release = _function("xrcrelease_c", None, _pointer)
_delete = _function("xdelete_c", None, _pointer)
_type_name = _function("xgettypename_c", _pointer, _pointer)
_print_text = _function("xprinttext_c", _pointer, _pointer)
_slots = _function("xgetndictelems_c", _int, _pointer)
_is_error = _function("xisexc_c", _bool)
_extract_error = _function("xextractexc_c", _pointer)
_error_text = _function("xgetexcdescription_c", _pointer)


def _take_text(pointer):
    """The text behind a counted buffer, whose hold is given back."""
    if pointer is None or pointer == 1:
        return None
    if pointer == 2:
        return UNINIT
    text = ctypes.string_at(pointer).decode("utf-8", "surrogateescape")
    _unlock_text(pointer)
    return text


def _c_text(text):
    if not isinstance(text, str):
        raise TypeError(f"expected a str, not {type(text).__name__}")
    data = text.encode("utf-8", "surrogateescape")
    if b"\0" in data:
        raise ValueError("a text holds no NUL")
    return data


def _call(function, *arguments):
    """The result of a container's function; what is in the slot afterwards is raised."""
    with _lock:
        result = function(*arguments)
        if not _is_error():
            return result
        description = _take_text(_error_text())
        error = Object(_extract_error(), _delete)
    raise _ERRORS.get(error.type_name, Error)(error, description)


class Object:
    """A framework object. Owns the hold that comes with the pointer."""

    def __init__(self, pointer, give_back=_release):
        self._as_parameter_ = pointer
        weakref.finalize(self, give_back, pointer)

    @property
    def type_name(self):
        """The declared name, such as "kellib::XNegativeIndex"."""
        return _take_text(_type_name(self))

    def __str__(self):
        return _take_text(_print_text(self))


class Error(Exception):
    """An exception of the framework: `object` prints with all its fields."""

    def __init__(self, error, description):
        super().__init__(description)
        self.object = error
        self.type_name = error.type_name


class IndexFailure(Error, IndexError):
    pass


class TypeFailure(Error, TypeError):
    pass


_ERRORS = {
    "kellib::XNegativeIndex": IndexFailure,
    "kellib::XInvalidSeqIndex": IndexFailure,
    "kellib::XInvalidDictIndex": IndexFailure,
    "kellib::XTypeMismatch": TypeFailure,
    "kellib::XNotInitialized": TypeFailure,
}


class _Scalar:
    """How values of one type cross: the C type, the reserved values, and what Python may hand in."""

    def __init__(self, c_type, uninit, nil, convert):
        self.c_type, self.uninit, self.nil, self.convert = c_type, uninit, nil, convert

    def pack(self, value):
        if value is None:
            return self.nil
        return self.uninit if value is UNINIT else self.convert(value)

    def unpack(self, value):
        return None if value == self.nil else UNINIT if value == self.uninit else self.wrap(value)

    @staticmethod
    def wrap(value):
        return value


class _Bool(_Scalar):
    wrap = staticmethod(bool)


class _Text:
    c_type = _pointer

    @staticmethod
    def pack(value):
        return None if value is None or value is UNINIT else ctypes.cast(_key(_c_text(value)), _pointer)

    unpack = staticmethod(_take_text)


def _checked_int(value):
    value = value.__index__()
    if not -(2**31) + 2 <= value < 2**31:
        raise OverflowError("an int has 32 bits, and its two least values are reserved")
    return value


def _real(bits):
    return struct.unpack(">d", bits.to_bytes(8, "big"))[0]


_ELEMENTS = {
    "int": _Scalar(_int, -(2**31) + 1, -(2**31), _checked_int),
    "bool": _Bool(_bool, 0x81, 0x80, lambda value: int(bool(value))),
    "real": _Scalar(ctypes.c_double, _real(0x5A1545D516DF5D06), _real(0x5A17A2ECC414A040), float),
    "string": _Text(),
}


class _Container(Object):
    def __init__(self, values=()):
        super().__init__(_call(self._create))
        (self.extend if isinstance(self, Sequence) else self.update)(values)

    def __init_subclass__(cls, prefix=None, element=None, **functions):
        """Binds the functions of a family; `functions` gives result and arguments behind the container."""
        if prefix is None:
            return
        cls._element = _ELEMENTS[element]
        cls._create = staticmethod(_function(f"{prefix}_create", _pointer))
        for name, (result, *arguments) in functions.items():
            setattr(cls, f"_{name}", staticmethod(_function(f"{prefix}_{name}", result, _pointer, *arguments)))


class Sequence(_Container, collections.abc.MutableSequence):
    """A list of one type of values."""

    def _place(self, index):
        return _checked_int(index + len(self) if index < 0 else index)

    def __len__(self):
        return _call(self._getarraysize, self)

    def __getitem__(self, index):
        if isinstance(index, slice):
            return [self[i] for i in range(*index.indices(len(self)))]
        return self._element.unpack(_call(self._get, self, self._place(index)))

    def __setitem__(self, index, value):
        self[index]  # beyond the end a list does not grow
        self.set(self._place(index), value)

    def __delitem__(self, index):
        self[index]
        place = self._place(index)
        _call(self._removerange, self, place, place + 1)

    def set(self, index, value):
        """As the framework's: beyond the end the sequence grows."""
        _call(self._set, self, _checked_int(index), self._element.pack(value))

    def insert(self, index, value):
        size = len(self)
        place = min(max(index + size if index < 0 else index, 0), size)
        _call(self._insert, self, place, self._element.pack(value))

    def extend(self, values):
        if type(values) is type(self):
            _call(self._insertseq, self, len(self), values)
        else:
            super().extend(values)

    def clear(self):
        _call(self._removerange, self, 0, len(self))


class Dictionary(_Container, collections.abc.MutableMapping):
    """A dict from str to one type of values. Its order is that of the slots, which a change may move."""

    def _find_value(self, key):
        place = self._element.c_type()
        found = _call(self._find, self, _c_text(key), ctypes.byref(place)) == 1
        return found, self._element.unpack(place.value) if found else None

    def __getitem__(self, key):
        found, value = self._find_value(key)
        if not found:
            raise KeyError(key)
        return value

    def __setitem__(self, key, value):
        _call(self._set, self, _c_text(key), self._element.pack(value))

    def __delitem__(self, key):
        self[key]
        _call(self._remove, self, _c_text(key))

    def __iter__(self):
        keys = []
        for slot in range(_slots(self)):
            key = _pointer()
            if _call(self._getkeybyindex, self, slot, ctypes.byref(key)) == 1:
                keys.append(_take_text(key.value))
        return iter(keys)

    def __len__(self):
        return sum(_call(self._getbyindex, self, slot, None) for slot in range(_slots(self)))


def _sequence(name, element):
    c_type = _ELEMENTS[element].c_type
    return type(Sequence)(name, (Sequence,), {"__module__": __name__}, prefix=f"x{element}sequence",
                          element=element, getarraysize=(_int,), get=(c_type, _int), set=(None, _int, c_type),
                          insert=(None, _int, c_type), insertseq=(None, _int, _pointer),
                          removerange=(None, _int, _int))


def _dictionary(name, element):
    c_type = _ELEMENTS[element].c_type
    place = ctypes.POINTER(c_type)
    return type(Dictionary)(name, (Dictionary,), {"__module__": __name__}, prefix=f"x{element}dictionary",
                            element=element, find=(_bool, _key, place), getbyindex=(_bool, _int, place),
                            getkeybyindex=(_bool, _int, ctypes.POINTER(_pointer)), set=(None, _key, c_type),
                            remove=(None, _key))


IntSequence = _sequence("IntSequence", "int")
BoolSequence = _sequence("BoolSequence", "bool")
RealSequence = _sequence("RealSequence", "real")
StringSequence = _sequence("StringSequence", "string")
IntDictionary = _dictionary("IntDictionary", "int")
BoolDictionary = _dictionary("BoolDictionary", "bool")
RealDictionary = _dictionary("RealDictionary", "real")
StringDictionary = _dictionary("StringDictionary", "string")
