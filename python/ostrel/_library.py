"""The functions and layouts of libostrelClient."""

from __future__ import annotations

import ctypes
import os
from pathlib import Path

DONE = 0


class KeyLayout(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("index", ctypes.c_uint32)]


class EntryLayout(ctypes.Structure):
    _fields_ = [("type", ctypes.c_uint), ("number", ctypes.c_uint32), ("text", ctypes.c_void_p),
                ("size", ctypes.c_size_t)]


class FaultLayout(ctypes.Structure):
    _fields_ = [("change", ctypes.c_size_t), ("line", ctypes.c_size_t), ("name", ctypes.c_char_p),
                ("index", ctypes.c_uint64), ("reason", ctypes.c_char_p)]


def _signatures() -> dict:
    handle, text, index, size = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_uint64, ctypes.c_size_t
    word, status, pointer = ctypes.c_uint32, ctypes.c_uint, ctypes.POINTER
    return {
        "ostrelFree": (None, handle),
        "ostrelOwner": (word, text),
        "ostrelSessionNew": (handle, text),
        "ostrelSessionFree": (None, handle),
        "ostrelSessionSetTimeout": (status, handle, ctypes.c_uint),
        "ostrelSessionSetDaemonUser": (status, handle, text),
        "ostrelSessionError": (text, handle),
        "ostrelSessionConnect": (status, handle),
        "ostrelSessionShutdown": (status, handle),
        "ostrelSessionRead": (status, handle, pointer(KeyLayout), size, pointer(pointer(EntryLayout))),
        "ostrelSessionCount": (status, handle, text, word, pointer(word)),
        "ostrelSessionList": (status, handle, text, word, pointer(pointer(word)), pointer(size)),
        "ostrelSessionApply": (status, handle, handle),
        "ostrelSessionCheck": (status, handle, handle),
        "ostrelTransactionNew": (handle,),
        "ostrelTransactionFree": (None, handle),
        "ostrelTransactionSetNumber": (status, handle, text, index, ctypes.c_uint, word),
        "ostrelTransactionSetText": (status, handle, text, index, ctypes.c_uint, text),
        "ostrelTransactionErase": (status, handle, text),
        "ostrelTransactionNewInstance": (status, handle, text, text, word, pointer(index)),
        "ostrelTransactionRemove": (status, handle, text, index),
        "ostrelTransactionRemoveOwned": (status, handle, text, word),
        "ostrelTransactionSetLine": (status, handle, size),
        "ostrelTransactionCount": (size, handle),
        "ostrelTransactionKey": (word, handle, index),
        "ostrelTransactionMayBeApplied": (ctypes.c_int, handle),
        "ostrelTransactionFault": (pointer(FaultLayout), handle),
        "ostrelTransactionError": (text, handle),
    }


def _load() -> ctypes.CDLL:
    """The one that OSTREL_CLIENT_LIBRARY names, else the one installed beside, else the system's."""
    soname = "libostrelClient.so.0"
    here = Path(__file__).resolve().parent
    # Installed, this is PREFIX/lib/python3/dist-packages/ostrel.
    installed = here.parents[2] / soname
    found = str(installed) if installed.exists() else soname
    library = ctypes.CDLL(os.environ.get("OSTREL_CLIENT_LIBRARY") or found)
    for name, (result, *arguments) in _signatures().items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


library = _load()
