"""Reads mail files and prints what Python's email package finds in them, as one JSON array: the independent reader of the
tests. Bytes are written as hexadecimal digits."""

import email
import email.policy
import email.utils
import json
import re
import sys

def file_name(part):
    """The name as the bytes that stand in the header: what they mean is not said there."""
    for name, value in part.raw_items():
        if name.lower() == "content-disposition":
            return re.search('filename="([^"]*)"', value).group(1).encode("ascii", "surrogateescape").hex()
    return ""


def describe(part):
    return {
        "type": part.get_content_type(),
        "charset": part.get_content_charset() or "",
        "method": part.get_param("method") or "",
        "name": file_name(part),
        "bytes": part.get_payload(decode=True).hex(),
    }


def read(path):
    with open(path, "rb") as file:
        data = file.read()
    # The older policy keeps 8-bit file names as their bytes; the newer one decodes encoded words in headers.
    mail = email.message_from_bytes(data, policy=email.policy.compat32)
    modern = email.message_from_bytes(data, policy=email.policy.default)

    def addresses(name):
        return [address for _, address in email.utils.getaddresses(mail.get_all(name, []))]

    parts = list(mail.walk())
    return {
        "defects": [repr(defect) for part in parts for defect in part.defects],
        "subject": str(modern["subject"]).encode("latin-1", "replace").hex(),
        "from": addresses("from"),
        "to": addresses("to"),
        "fields": [name for name, _ in mail.items()],
        "date": email.utils.parsedate_to_datetime(mail["date"]).isoformat(),
        "containers": [part.get_content_type() for part in parts if part.is_multipart()],
        "parts": [describe(part) for part in parts if not part.is_multipart()],
    }


print(json.dumps([read(path) for path in sys.argv[1:]]))
