"""Prints what Python's email package finds in mail files, as one JSON array: the independent reader of the tests. Bytes are
written in base64; a defect ends the program."""

import base64
import email
import email.policy
import email.utils
import json
import re
import sys


def encoded(data):
    return base64.b64encode(data).decode()


def describe(part):
    """The name as the bytes that stand in the header: what they mean is not said there."""
    fields = "".join(value for name, value in part.raw_items() if name.lower() == "content-disposition")
    name = re.search('filename="([^"]*)"|$', fields).group(1) or ""
    return [part.get_content_type(), part.get_content_charset() or "", part.get_param("method") or "",
            encoded(name.encode("ascii", "surrogateescape")), encoded(part.get_payload(decode=True))]


def read(data):
    # The older policy keeps 8-bit file names as their bytes; the newer one decodes encoded words in headers.
    mail = email.message_from_bytes(data, policy=email.policy.compat32)
    parts = list(mail.walk())
    if any(part.defects for part in parts):
        sys.exit(f"{[part.defects for part in parts]}")
    subject = email.message_from_bytes(data, policy=email.policy.default)["subject"]
    addresses = email.utils.getaddresses([mail["from"], mail["to"]])
    return [encoded(str(subject).encode("latin-1", "replace")), [address for _, address in addresses],
            sum(part.is_multipart() for part in parts), [describe(part) for part in parts if not part.is_multipart()]]


print(json.dumps([read(open(path, "rb").read()) for path in sys.argv[1:]]))
