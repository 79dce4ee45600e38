"""What Python has for the texts, numbers and values of the library."""

from __future__ import annotations

import ctypes
import enum
import operator
import typing

from ._errors import Invalid
from ._library import EntryLayout, library

Key = typing.Union[str, typing.Tuple[str, int]]
Owner = typing.Union[str, int]
Value = typing.Union[bool, int, str]


class Type(enum.IntEnum):
    NONE = 0
    BOOL = 1
    BYTE = 2
    DWORD = 3
    IP = 4
    MAC = 5
    STRING = 6


def decoded(text: bytes) -> str:
    return text.decode("utf-8", "surrogateescape")


# ctypes cuts a text at its first NUL, and a number to its lowest bits, without a word.
def encoded(text: str) -> bytes:
    data = text.encode("utf-8", "surrogateescape")
    if b"\0" in data:
        raise Invalid(f"{text!r} has a NUL in it")
    return data


def word(number: typing.SupportsIndex) -> int:
    number = operator.index(number)
    if not 0 <= number <= 0xFFFFFFFF:
        raise Invalid(f"{number} is not a number from 0 to {0xFFFFFFFF}")
    return number


def owner_number(owner: Owner) -> int:
    return library.ostrelOwner(encoded(owner)) if isinstance(owner, str) else word(owner)


def pair(key: Key) -> typing.Tuple[bytes, int]:
    name, index = (key, 0) if isinstance(key, str) else key
    return encoded(name), word(index)


def type_of(value: Value) -> Type:
    for kind, type in ((bool, Type.BOOL), (int, Type.DWORD), (str, Type.STRING)):
        if isinstance(value, kind):
            return type
    raise TypeError(f"a value is a bool, an int or a str, not {value!r}")


def value_of(entry: EntryLayout) -> typing.Optional[Value]:
    if entry.type == Type.NONE:
        return None
    if entry.text is not None:
        return decoded(ctypes.string_at(entry.text, entry.size))
    return bool(entry.number) if entry.type == Type.BOOL else entry.number
