"""Reads and changes the configuration database of the appliance through the running daemon.

    with ostrel.Session("example") as session:
        print(session["lan.domain"])
        with session.transaction() as change:
            change.set("lan.domain", "home")

This module binds the client library (libostrelClient), which does the work; its rules hold here, too:

- A session connects when it is first needed and again after a connection was lost. Each call ends within the
  session's timeout.
- A transaction is staged in memory; nothing is sent before it is applied or checked, and then in one go. It
  is applied as a whole or not at all. One that failed while a change was staged cannot be applied.
- Whatever fails raises a subclass of OstrelError.
- An object may be shared between threads; they take turns. A child process must not use its parent's
  sessions.
- Texts are bytes for the daemon: str stands for their UTF-8, with surrogateescape for other bytes.

A key is the name of a plain value, or a pair: a name with the index of a vector's element, or a member's name
(STRUCT.MEMBER) with the primary key of the instance. An owner is a tag of up to four bytes, or its number.
"""

__version__ = "0.1"

from ._errors import (Busy, Failed, Fault, Gone, Incomplete, Invalid, Missing, NotRunning, OstrelError,
                      Refused, StaleSocket)
from ._session import Session
from ._transaction import Instance, Transaction
from ._values import Type

__all__ = [
    "Busy", "Failed", "Fault", "Gone", "Incomplete", "Instance", "Invalid", "Missing", "NotRunning",
    "OstrelError", "Refused", "Session", "StaleSocket", "Transaction", "Type",
]
