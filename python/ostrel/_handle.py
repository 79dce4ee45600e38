"""Ownership of the library's objects."""

from __future__ import annotations

import contextlib
import threading
import typing
import weakref

from ._errors import Invalid


class Handle:
    """Owns an object of the library, and lets one thread at a time use it."""

    def __init__(self, handle: typing.Optional[int], free: typing.Callable):
        if not handle:
            raise MemoryError
        self._handle: typing.Optional[int] = handle
        self._lock = threading.RLock()
        self._free = weakref.finalize(self, free, handle)

    @contextlib.contextmanager
    def locked(self) -> typing.Iterator[int]:
        with self._lock:
            if self._handle is None:
                raise Invalid("it is closed")
            yield self._handle
