"""What is raised, by the status of the library."""

from __future__ import annotations

import typing

if typing.TYPE_CHECKING:
    from ._transaction import Index


class Fault(typing.NamedTuple):
    """The change of a transaction that was refused."""

    change: int  # which of the staged changes, from 0
    line: int  # see Transaction.line; 0: none
    name: str
    index: Index
    reason: str  # as far as it can be known: the daemon does not tell it


class OstrelError(Exception):
    """What is raised. Nothing is changed, unless may_be_applied tells otherwise."""

    def __init__(self, text: str, fault: typing.Optional[Fault] = None, may_be_applied: bool = False):
        super().__init__(text)
        self.fault = fault
        self.may_be_applied = may_be_applied

    def __str__(self) -> str:
        # A KeyError shows its argument quoted.
        return str(self.args[0])


class Refused(OstrelError):
    """By the daemon. fault tells the change, if it can be told."""


class Invalid(OstrelError, ValueError):
    """The arguments cannot be right; nothing was sent."""


class NotRunning(OstrelError):
    """There is no socket."""


class StaleSocket(OstrelError):
    """There is a socket that nobody serves: the daemon has ended."""


class Busy(OstrelError):
    """The daemon serves somebody else, or a plug-in works, beyond the timeout."""


class Gone(OstrelError):
    """The daemon ended while it was asked."""


class Missing(OstrelError, KeyError):
    """A key that was to be read is not there."""


class Incomplete(OstrelError):
    """There are more instances than the daemon can list. keys has those that it did."""

    keys: typing.List[int] = []


class Failed(OstrelError):
    """Out of memory, a system call failed, the daemon's answer makes no sense, or the socket is served by
    somebody who may not be the daemon."""


ERRORS = {1: Refused, 2: Invalid, 3: NotRunning, 4: StaleSocket, 5: Busy, 6: Gone, 7: Missing, 8: Incomplete,
           9: Failed}


def error_of(status: int, text: str, fault: typing.Optional[Fault] = None) -> OstrelError:
    return ERRORS.get(status, OstrelError)(text, fault)
