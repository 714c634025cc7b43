#!/usr/bin/env python3
"""Script functions of YInet from Python: call.py LIBYINET.SO MAIL-FILE prints what a mail says."""

import ctypes
import json
import sys


class YInet:
    def __init__(self, path):
        self._library = ctypes.CDLL(path)
        self._library.yinet_call.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p)]
        self._library.yinet_free.argtypes = [ctypes.c_void_p]

    def call(self, function, **parameters):
        """The record after the call; "_RETV" in it says whether the function succeeded."""
        answer = ctypes.c_void_p()
        status = self._library.yinet_call(function.encode(), json.dumps(parameters).encode(), ctypes.byref(answer))
        if not answer:
            raise MemoryError
        record = json.loads(ctypes.string_at(answer))
        self._library.yinet_free(answer)
        if status == 2:
            raise ValueError(record["error"])
        return record


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: call.py LIBYINET.SO MAIL-FILE")
    result = YInet(sys.argv[1]).call("MIME_DEKODIERE", pEMLDatei=sys.argv[2])
    if not result["_RETV"]:
        sys.exit("the mail could not be read")
    print(result["pMail"]["ABSENDER"], "-", result["pMail"]["BETREFF"])
    print(result["pMail"]["NACHRICHT"])
