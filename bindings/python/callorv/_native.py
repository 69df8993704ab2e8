"""The C interface by ctypes: the one place that knows its prototypes."""
from __future__ import annotations

import ctypes
from array import array
from ctypes import POINTER, c_char_p, c_double, c_int, c_size_t, c_void_p
from typing import TYPE_CHECKING, Any, Dict, Tuple


class ErrorRecord(ctypes.Structure):
    """CallOrv_Error."""

    _fields_ = [("iCode", c_int), ("szText", ctypes.c_char * 1023), ("iRefSvcNum", c_int)]


_ERROR, _INT, _DOUBLE = POINTER(ErrorRecord), POINTER(c_int), POINTER(c_double)
# Handles, and buffers whose address is passed.
_HANDLE = _BUFFER = c_void_p
Prototypes = Dict[str, Tuple[Any, ...]]

# Result and arguments of what may wait, or takes long: other threads run meanwhile.
WAITING: Prototypes = {
    "CallOrv_Initialize": (c_int, c_char_p, _ERROR),
    "CallOrv_CallService": (c_int, c_int, _HANDLE, _HANDLE, _ERROR),
    "CallOrv_CallServiceWithin": (c_int, c_int, _HANDLE, _HANDLE, c_int, _ERROR),
    "CallOrv_Resolve": (c_int, _ERROR),
    "CallOrv_Start": (_HANDLE, c_int, _HANDLE, c_int, _ERROR),
    "CallOrv_Finish": (c_int, _HANDLE, _HANDLE, _ERROR),
}
# Of what is over at once: with the interpreter's lock, which would cost threads that compute more than the work itself.
QUICK: Prototypes = {
    "CallOrv_GetFd": (c_int, _HANDLE),
    "CallOrv_GetEvents": (c_int, _HANDLE),
    "CallOrv_GetTimeLeft": (c_int, _HANDLE),
    "CallOrv_Step": (c_int, _HANDLE),
    "CallOrv_Cancel": (None, _HANDLE),
    "MSG_GetNewMsg": (_HANDLE, c_int, _ERROR),
    "MSG_Destroy": (None, _HANDLE),
    "MSG_GetSelfNum": (c_int, _HANDLE),
    "MSG_GetLastError": (c_char_p, _HANDLE),
    "MSG_SetInt": (c_int, _HANDLE, c_int, c_int),
    "MSG_SetDbl": (c_int, _HANDLE, c_int, c_double),
    "MSG_SetBool": (c_int, _HANDLE, c_int, c_int),
    "MSG_SetStr": (c_int, _HANDLE, c_int, c_char_p),
    "MSG_SetDate": (c_int, _HANDLE, c_int, c_char_p),
    "MSG_NewSub": (_HANDLE, _HANDLE, c_int, _INT),
    "MSG_GetArrSize": (c_int, _HANDLE, c_int),
    "MSG_GetAtIntArr": (c_int, _HANDLE, c_int, c_int, _INT),
    "MSG_GetAtDblArr": (c_int, _HANDLE, c_int, c_int, _DOUBLE),
    "MSG_GetAtBoolArr": (c_int, _HANDLE, c_int, c_int, _INT),
    "MSG_GetAtStrArr": (c_int, _HANDLE, c_int, c_int, _BUFFER),
    "MSG_GetAtStrLen": (c_int, _HANDLE, c_int, c_int),
    "MSG_GetAtDateArr": (c_int, _HANDLE, c_int, c_int, _BUFFER),
    "MSG_GetAtSubArr": (_HANDLE, _HANDLE, c_int, c_int, _INT),
    "MSG_GetIntColumn": (c_int, _HANDLE, c_int, c_int, _BUFFER, _BUFFER, c_int),
    "MSG_GetDblColumn": (c_int, _HANDLE, c_int, c_int, _BUFFER, _BUFFER, c_int),
    "MSG_GetBoolColumn": (c_int, _HANDLE, c_int, c_int, _BUFFER, _BUFFER, c_int),
    "MSG_GetDateColumn": (c_int, _HANDLE, c_int, c_int, _BUFFER, _BUFFER, c_int),
    "MSG_GetStrColumn": (c_int, _HANDLE, c_int, c_int, _BUFFER, c_size_t, _BUFFER, _BUFFER, c_int),
    "MSG_NextMsg": (c_int, c_int),
    "MSG_FindMsg": (c_int, c_char_p),
    "MSG_GetMsgName": (c_char_p, c_int),
    "MSG_GetTagCount": (c_int, c_int),
    "MSG_GetTagNum": (c_int, c_int, c_int),
    "MSG_GetTagName": (c_char_p, c_int, c_int),
    "MSG_GetTagType": (c_int, c_int, c_int),
    "MSG_GetTagSubMsg": (c_int, c_int, c_int),
    "MSG_IsArrayTag": (c_int, c_int, c_int),
}

# Codes of callorv.h.
NO_DATA, MEMORY, TAG_TYPE, UNDEF_TAG, UNDEF_MSG, INDEX, INPUT = -1, -11, -17, -18, -19, -27, -28
CONFIG, NOT_INIT = -34, -35
REJECTED = -4
STRING, INTEGER, DOUBLE, BOOL, DATE, SUBMSG = 1, 2, 3, 4, 5, 6


class Library:
    """The functions above, of one loaded library; OSError when it or one of them is not there."""

    def __init__(self, path: str) -> None:
        waiting = ctypes.CDLL(path)
        self.handle = int(waiting._handle)
        quick = ctypes.PyDLL(path, handle=self.handle)
        for library, prototypes in (waiting, WAITING), (quick, QUICK):
            for name, (result, *arguments) in prototypes.items():
                try:
                    function = getattr(library, name)
                except AttributeError as error:
                    raise OSError(str(error)) from None
                function.restype, function.argtypes = result, arguments
                setattr(self, name, function)

    if TYPE_CHECKING:
        def __getattr__(self, name: str) -> Any: ...


def address(buffer: array[Any]) -> int:
    """Where the buffer is; it must outlive the call, and keep its size."""
    return buffer.buffer_info()[0]
