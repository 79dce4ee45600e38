"""The connection to the daemon."""

from __future__ import annotations

import contextlib
import ctypes
import typing

from ._errors import Incomplete, Invalid, Missing, OstrelError, error_of
from ._handle import Handle
from ._library import DONE, EntryLayout, KeyLayout, library
from ._transaction import Transaction
from ._values import Key, Owner, Type, Value, decoded, encoded, owner_number, pair, value_of, word


class Session(Handle):
    """A connection to the daemon. program names the caller in the daemon's log; the timeout is in seconds.
    daemon_user, a name or a number, may serve the socket besides root and the own user; None: the one in
    OSTREL_DAEMON_USER."""

    def __init__(self, program: str, timeout: float = 30.0,
                 daemon_user: typing.Union[str, int, None] = None):
        super().__init__(library.ostrelSessionNew(encoded(program)), library.ostrelSessionFree)
        self.timeout = timeout
        if daemon_user is not None:
            self._call("SetDaemonUser", encoded(str(daemon_user)))

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *_exception: object) -> None:
        self.close()

    def close(self) -> None:
        with self._lock:
            self._handle = None
            self._free()

    @property
    def timeout(self) -> float:
        return self._timeout

    @timeout.setter
    def timeout(self, seconds: float) -> None:
        self._call("SetTimeout", word(round(seconds * 1000)))
        self._timeout = seconds

    def connect(self) -> None:
        """Connects if needed, and waits until the daemon has answered. The other calls do not need it."""
        self._call("Connect")

    def shutdown(self) -> None:
        """Ends the daemon."""
        self._call("Shutdown")

    def __getitem__(self, key: Key) -> Value:
        return self._read([key], required=True)[0][1]

    def read(self, name: str, index: int = 0) -> Value:
        return self[name, index]

    def type(self, name: str, index: int = 0) -> Type:
        return self._read([(name, index)], required=True)[0][0]

    def read_many(self, keys: typing.Iterable[Key]) -> typing.List[typing.Optional[Value]]:
        """The values in the order of the keys; None where there is none. Each group of about a hundred is one
        request to the daemon: between groups others may commit."""
        return [value for _type, value in self._read(list(keys), required=False)]

    def count(self, name: str, owner: Owner = 0) -> int:
        """The owner's instances of a structure; owner 0: the elements of a vector. 0 for an unknown name."""
        count = ctypes.c_uint32()
        self._call("Count", encoded(name), owner_number(owner), count)
        return count.value

    def list(self, name: str, owner: Owner = 0) -> typing.List[int]:
        """Their primary keys, or the elements' indices, ascending."""
        keys = ctypes.POINTER(ctypes.c_uint32)()
        count = ctypes.c_size_t()
        try:
            self._call("List", encoded(name), owner_number(owner), keys, count)
            return keys[:count.value]
        except Incomplete as error:
            error.keys = keys[:count.value]
            raise
        finally:
            library.ostrelFree(keys)

    @contextlib.contextmanager
    def transaction(self) -> typing.Iterator[Transaction]:
        """A transaction that is applied at the end of the with block, unless that is left by an exception."""
        transaction = Transaction()
        yield transaction
        self.apply(transaction)

    def apply(self, transaction: Transaction) -> None:
        """Commits the changes, all or none. Then they are durable, and the plug-ins have been told."""
        self._finish("Apply", transaction)

    def check(self, transaction: Transaction) -> None:
        """Lets the daemon try the changes and roll them back; raises what apply would."""
        self._finish("Check", transaction)

    def _call(self, function: str, *arguments: typing.Any) -> None:
        with self.locked() as session:
            status = getattr(library, "ostrelSession" + function)(session, *arguments)
            if status != DONE:
                raise error_of(status, decoded(library.ostrelSessionError(session)))

    def _read(self, keys: typing.List[Key],
              required: bool) -> typing.List[typing.Tuple[Type, typing.Optional[Value]]]:
        wanted = (KeyLayout * len(keys))(*map(pair, keys))
        entries = ctypes.POINTER(EntryLayout)()
        try:
            try:
                self._call("Read", wanted, len(keys), entries)
            except Missing:
                if required:
                    raise
            return [(Type(entry.type), value_of(entry)) for entry in entries[:len(keys)]]
        finally:
            library.ostrelFree(entries)

    def _finish(self, function: str, transaction: Transaction) -> None:
        with transaction.locked() as handle:
            if transaction._failure is not None:
                raise Invalid(f"a change could not be staged: {transaction._failure}") from transaction._failure
            try:
                self._call(function, handle)
            except OstrelError as error:
                error.fault = transaction._fault()
                error.may_be_applied = bool(library.ostrelTransactionMayBeApplied(handle))
                raise
