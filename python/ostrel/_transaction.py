"""Changes to be made together."""

from __future__ import annotations

import contextlib
import ctypes
import typing

from ._errors import Fault, Invalid, error_of
from ._handle import Handle
from ._library import DONE, library
from ._values import Owner, Type, Value, decoded, encoded, owner_number, type_of, word


class Instance:
    """An instance that a transaction makes; serves as index in that transaction."""

    def __init__(self, transaction: Transaction, handle: int):
        self._transaction = transaction
        self._handle = handle

    @property
    def key(self) -> int:
        """Its primary key; 0 before the transaction is applied."""
        with self._transaction.locked() as transaction:
            return library.ostrelTransactionKey(transaction, self._handle)


Index = typing.Union[int, Instance]


class Transaction(Handle):
    """Changes to be made together, in the order in which they are staged.

    line is the line of a file, from 1, that the changes staged from now on come from; errors name it."""

    def __init__(self) -> None:
        super().__init__(library.ostrelTransactionNew(), library.ostrelTransactionFree)
        self._instances: typing.Dict[int, Instance] = {}
        self._failure: typing.Optional[Exception] = None
        self._line = 0

    def __len__(self) -> int:
        with self.locked() as transaction:
            return library.ostrelTransactionCount(transaction)

    @property
    def line(self) -> int:
        return self._line

    @line.setter
    def line(self, line: int) -> None:
        with self._staging() as stage:
            stage("SetLine", word(line))
            self._line = line

    def set(self, name: str, value: Value, index: Index = 0, type: typing.Optional[Type] = None) -> None:
        """Writes a value. Without a type, bool makes a Bool, int a Dword and str a String."""
        with self._staging() as stage:
            type = type_of(value) if type is None else type
            if isinstance(value, str):
                stage("SetText", encoded(name), self._index(index), type, encoded(value))
            else:
                stage("SetNumber", encoded(name), self._index(index), type, word(value))

    def erase(self, name: str) -> None:
        """Erases the plain value and the vector elements of the name."""
        with self._staging() as stage:
            stage("Erase", encoded(name))

    def new_instance(self, template: str, structure: str, owner: Owner) -> Instance:
        with self._staging() as stage:
            handle = ctypes.c_uint64()
            stage("NewInstance", encoded(template), encoded(structure), owner_number(owner), handle)
            return self._instances.setdefault(handle.value, Instance(self, handle.value))

    def remove(self, name: str, index: Index) -> None:
        """Removes an instance with its members, or a vector's element."""
        with self._staging() as stage:
            stage("Remove", encoded(name), self._index(index))

    def remove_owned(self, name: str, owner: Owner) -> None:
        """Removes all instances of the owner, also when there is none."""
        with self._staging() as stage:
            stage("RemoveOwned", encoded(name), owner_number(owner))

    @contextlib.contextmanager
    def _staging(self) -> typing.Iterator[typing.Callable]:
        def stage(change: str, *arguments: typing.Any) -> None:
            status = getattr(library, "ostrelTransaction" + change)(transaction, *arguments)
            if status != DONE:
                text = decoded(library.ostrelTransactionError(transaction))
                raise error_of(status, text, self._fault())

        with self.locked() as transaction:
            try:
                yield stage
            except Exception as failure:
                self._failure = self._failure or failure
                raise

    def _index(self, index: Index) -> int:
        if not isinstance(index, Instance):
            return word(index)
        if index._transaction is not self:
            raise Invalid("the instance belongs to another transaction")
        return index._handle

    def _fault(self) -> typing.Optional[Fault]:
        fault = library.ostrelTransactionFault(self._handle)
        if not fault:
            return None
        found = fault.contents
        return Fault(found.change, found.line, decoded(found.name),
                     self._instances.get(found.index, found.index), decoded(found.reason))
