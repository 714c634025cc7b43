#!/usr/bin/env python3
"""Decodes every mail of a folder with `yinet mail decode --json` and with Python's email package and compares subject,
addresses, text and the bytes of every attachment.

    compare_with_python.py YINET FOLDER EXPLAINED

EXPLAINED lists the differences that the decoder's own rules demand, one a line: "MAIL FIELD RULE", the rule in words. Fails on
a difference that is not listed, on one that is listed and gone, and on a folder without mails. Without the folder it
says so and ends with 77: not run.
"""
import base64
import email
import email.header
import email.policy
import email.utils
import json
import os
import pathlib
import re
import subprocess
import sys

NOT_RUN = 77
CODE_PAGE = "cp1252"
HEADING = "\r\n\r\nEingebettete Mail:\r\n\r\n"
NO_SUBJECT = "(Kein Betreff)"
CUT_NOTICE = re.compile(r'\.\.\.\r\n\r\n------- System-Hinweis:\r\n.*in der Datei "([^"]*)"\.$', re.S)
# Labels that mean Windows-1252 in mails, and names that Python knows otherwise.
ALIASES = {"us-ascii": CODE_PAGE, "ascii": CODE_PAGE, "iso-8859-1": CODE_PAGE, "latin1": CODE_PAGE, "unknown-8bit": CODE_PAGE,
           "x-mac-cyrillic": "mac_cyrillic", "ks_c_5601-1987": "cp949"}
C1_BYTES = {byte: chr(byte) for byte in (0x81, 0x8D, 0x8F, 0x90, 0x9D)}  # unassigned in Windows-1252: they stay


def decoded(data, charset):
    charset = ALIASES.get((charset or CODE_PAGE).lower(), (charset or CODE_PAGE).lower())
    if charset != CODE_PAGE:
        try:
            return data.decode(charset, "replace")
        except LookupError:
            pass  # nobody's charset: the bytes count as the system's
    return "".join(C1_BYTES.get(byte) or bytes([byte]).decode(CODE_PAGE) for byte in data)


def in_code_page(text, substitute):
    """Text as the library can hold it."""
    return "".join(c if c in C1_BYTES.values() or c.encode(CODE_PAGE, "ignore") else substitute for c in text)


def squeezed(text):
    return re.sub(r"\s+", "", text)


def raw_header(message, name):
    """The first field of this name as text in which every byte is one character of the code page."""
    for key, value in message.raw_items():
        if key.lower() == name.lower():
            unfolded = str(value).replace("\r", "").replace("\n", "")
            return decoded(unfolded.encode("utf-8", "surrogateescape"), CODE_PAGE)
    return ""


def header_text(message, name):
    value = raw_header(message, name)
    return "".join(text if isinstance(text, str) else decoded(text, charset)
                   for text, charset in email.header.decode_header(value))


def addresses(message, name):
    return [address for _, address in email.utils.getaddresses([raw_header(message, name)]) if address]


def collect(message, want, top=True, embedded=False):
    """Fills `want` with what a mail program would show as text and offer as files."""
    kind = message.get_content_type()
    data = b"" if message.is_multipart() else message.get_payload(decode=True) or b""
    if kind == "message/rfc822" and message.is_multipart():
        want["mails"] += 1  # kept as a file too, whose bytes Python does not keep
        collect(message.get_payload()[0], want, True, True)
    elif kind == "message/delivery-status" and message.is_multipart():
        want["files"].append(b"\n".join(block.as_bytes() for block in message.get_payload()))
    elif message.is_multipart():
        for part in message.get_payload():
            collect(part, want, False, embedded)
    elif message.get_filename() is None and kind == "text/plain":
        want["texts"].append(decoded(data, message.get_content_charset()))
    elif data.strip(b"\r\n") and message.get_filename() is None and kind == "text/html":
        page = decoded(data, message.get_content_charset())
        want["html"] = want["html"] or (top and not embedded)
        want["files"].append(in_code_page(page, "\x1A").encode(CODE_PAGE, "replace"))
    elif data.strip(b"\r\n"):
        want["files"].append(data)


def items(text):
    return text.split("\x01") if text else []


def text_of(record, files):
    """The whole text; the file that holds a text too long for the record is taken out of the files."""
    text = record.get("NACHRICHT", "")
    cut = CUT_NOTICE.search(text)
    return files.pop(cut.group(1)).decode(CODE_PAGE, "replace") if cut else text


def differences(mail, record):
    message = email.message_from_bytes(mail.read_bytes(), policy=email.policy.compat32)
    want = {"texts": [], "files": [], "mails": 0, "html": False}
    collect(message, want)
    subject = header_text(message, "Subject")
    got_subject = record.get("BETREFF", "").replace(NO_SUBJECT, "")
    if squeezed(in_code_page(subject, "?")) != squeezed(got_subject):
        yield "subject", subject, got_subject
    sender = email.utils.parseaddr(header_text(message, "From"))[1]
    if sender != record.get("ABSENDER", ""):
        yield "from", sender, record.get("ABSENDER")
    for field, key in (("to", "EMPF\u00c4NGER"), ("cc", "KOPIE")):
        listed = [address.strip() for address in items(record.get(key, ""))]
        if addresses(message, field) != listed:
            yield field, addresses(message, field), listed

    files = {name: base64.b64decode(record[name]["$base64"]) for name in items(record.get("ANLAGEN", ""))}
    text = text_of(record, files)
    if not want["html"]:
        plain = squeezed("".join(in_code_page(part, "\x1A") for part in want["texts"]))
        got = squeezed(text.replace(HEADING, ""))
        if plain != got:
            yield "text", plain, got
    if len(files) != len(want["files"]) + want["mails"]:
        yield "files", f"{want['mails']} mails and {[len(f) for f in want['files']]}", [len(f) for f in files.values()]
    left = [squeezed(content.decode("latin1")) for content in files.values()]
    for content in want["files"]:  # each file counts once
        form = squeezed(content.decode("latin1"))
        if form in left:
            left.remove(form)
        else:
            yield "bytes", f"{len(content)} bytes {content[:60]!r}", "no such file"


def main():
    yinet, folder, explained_file = sys.argv[1:4]
    if not os.path.isdir(folder):
        print(f"the mails to compare are not beside this checkout: no folder {folder}")
        sys.exit(NOT_RUN)
    mails = sorted(pathlib.Path(folder).glob("*.eml"))
    if not mails:
        sys.exit(f"no mails in {folder}")
    rows = [line.split(maxsplit=2) for line in pathlib.Path(explained_file).read_text("utf-8").splitlines()]
    explained = {(row[0], row[1]) for row in rows if row and row[0] != "#"}
    failures = 0
    met = set()
    for mail in mails:
        run = subprocess.run([yinet, "mail", "decode", "--json", str(mail)], capture_output=True, timeout=60, check=True)
        for field, want, got in differences(mail, json.loads(run.stdout)):
            met.add((mail.name, field))
            if (mail.name, field) not in explained:
                failures += 1
                print(f"{mail.name} {field}\n  Python: {want!r:.500}\n  yinet:  {got!r:.500}")
    gone = sorted(explained - met)
    print(f"{len(mails)} mails compared, {len(met)} differences, {failures} failures; explained, but not met: {gone}")
    sys.exit(1 if failures or gone else 0)


main()
