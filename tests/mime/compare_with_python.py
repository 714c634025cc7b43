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


def leaves(message, top=True):
    """The leaves as (kind, content): what a mail program would show as text and offer as files."""
    kind = message.get_content_type()
    if kind == "message/rfc822" and message.is_multipart():
        yield "mail", message.get_payload()[0]
    elif kind == "message/delivery-status" and message.is_multipart():
        yield "file", b"\n".join(block.as_bytes() for block in message.get_payload())
    elif message.is_multipart():
        for part in message.get_payload():
            yield from leaves(part, False)
    elif message.get_filename() is None and kind in ("text/plain", "text/html"):
        text = decoded(message.get_payload(decode=True) or b"", message.get_content_charset())
        yield "body" if top and kind == "text/html" else kind, text
    else:
        yield "file", message.get_payload(decode=True) or b""


def expected(raw):
    message = email.message_from_bytes(raw, policy=email.policy.compat32)
    want = {"texts": [], "files": [], "pages": [], "mails": 0, "html": False}

    def walk(mail, embedded):
        for kind, content in leaves(mail):
            if kind == "mail":
                want["mails"] += 1  # kept as a file too, whose bytes Python does not keep
                walk(content, True)
            elif kind == "text/plain":
                want["texts"].append(content)
            elif kind == "body" and content.strip("\r\n"):
                want["html"] = want["html"] or not embedded
                want["pages"].append(content)
            elif kind == "text/html" and content.strip("\r\n"):
                want["pages"].append(content)
            elif kind == "file" and content.strip(b"\r\n"):
                want["files"].append(content)

    walk(message, False)
    return message, want


def items(text):
    return text.split("\x01") if text else []


def first_difference(want, got):
    at = next((i for i, (a, b) in enumerate(zip(want, got)) if a != b), min(len(want), len(got)))
    return f"{len(want)}, from {at}: {want[at:at + 60]!r}", f"{len(got)}, from {at}: {got[at:at + 60]!r}"


def text_of(record, files):
    """The whole text, and the files without the one that holds a text too long for the record."""
    text = record.get("NACHRICHT", "")
    cut = CUT_NOTICE.search(text)
    if not cut:
        return text, files
    whole = files[cut.group(1)].decode(CODE_PAGE, "replace")
    if not whole.startswith(text[:100]):
        raise ValueError("the text was cut, but its file begins otherwise")
    return whole, {name: content for name, content in files.items() if name != cut.group(1)}


def missing(want, files):
    """What Python found and no file holds; each file counts once."""
    left = [squeezed(content.decode("latin1")) for content in files.values()]
    pages = [in_code_page(page, "\x1A").encode(CODE_PAGE, "replace") for page in want["pages"]]
    for content in want["files"] + pages:
        form = squeezed(content.decode("latin1"))
        if form in left:
            left.remove(form)
        else:
            yield "bytes", f"{len(content)} bytes {content[:60]!r}", "no such file"


def differences(mail, record):
    message, want = expected(mail.read_bytes())
    subject = header_text(message, "Subject")
    got_subject = record.get("BETREFF", "").replace(NO_SUBJECT, "")
    if squeezed(in_code_page(subject, "?")) != squeezed(got_subject):
        yield "subject", subject, got_subject
    sender = email.utils.parseaddr(header_text(message, "From"))[1]
    if sender != record.get("ABSENDER", ""):
        yield "from", sender, record.get("ABSENDER")
    for field, header, key in (("to", "To", "EMPF\u00c4NGER"), ("cc", "Cc", "KOPIE")):
        listed = [address.strip() for address in items(record.get(key, ""))]
        if addresses(message, header) != listed:
            yield field, addresses(message, header), listed

    files = {name: base64.b64decode(record[name]["$base64"]) for name in items(record.get("ANLAGEN", ""))}
    text, files = text_of(record, files)
    if not want["html"]:
        plain = squeezed("".join(in_code_page(part, "\x1A") for part in want["texts"]))
        got = squeezed(text.replace(HEADING, ""))
        if plain != got:
            yield "text", *first_difference(plain, got)
    count = len(want["files"]) + len(want["pages"]) + want["mails"]
    if len(files) != count:
        yield "files", f"{count}: {[len(f) for f in want['files'] + want['pages']]}", [len(f) for f in files.values()]
    yield from missing(want, files)


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
        run = subprocess.run([yinet, "mail", "decode", "--json", str(mail)], capture_output=True, timeout=60, check=False)
        if run.returncode != 0:
            print(f"{mail.name}: {run.stderr.decode('utf-8', 'replace')}")
            failures += 1
            continue
        for field, want, got in differences(mail, json.loads(run.stdout)):
            met.add((mail.name, field))
            if (mail.name, field) not in explained:
                failures += 1
                print(f"{mail.name} {field}\n  Python: {want!r}\n  yinet:  {got!r}")
    for mail, field in sorted(explained - met):
        failures += 1
        print(f"{mail} {field}: explained, but there is no such difference")
    print(f"{len(mails)} mails compared, {len(met)} differences, {failures} failures")
    sys.exit(1 if failures else 0)


main()
