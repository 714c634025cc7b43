#!/usr/bin/env python3
"""Decodes every mail of a folder with `yinet mail decode --json` and with Python's email package and compares subject,
addresses, text and the bytes of every attachment:  compare_with_python.py YINET FOLDER [EXPLAINED]

EXPLAINED lists the differences that the decoder's own rules demand, one a line: "MAIL FIELD RULE", the rule in words. Fails
on a difference that is not listed, on one that is listed and gone, and on a folder without mails; without EXPLAINED, for
mails of our own, on any defect that Python sees as well. Without the folder it says so and ends with 77: not run.
"""
import base64
import email
import email.header
import email.utils
import json
import pathlib
import re
import subprocess
import sys

CODE_PAGE = "cp1252"
UNASSIGNED = "\x81\x8D\x8F\x90\x9D"  # in Windows-1252: these bytes stay
CUT_NOTICE = re.compile(r'\.\.\.\r\n\r\n------- System-Hinweis:\r\n.*in der Datei "([^"]*)"\.$', re.S)
# Labels that mean Windows-1252 in mails, and names that Python knows otherwise.
ALIASES = {**dict.fromkeys(["us-ascii", "ascii", "iso-8859-1", "latin1", "unknown-8bit"], CODE_PAGE),
           "x-mac-cyrillic": "mac_cyrillic", "ks_c_5601-1987": "cp949"}


def decoded(data, charset):
    charset = ALIASES.get((charset or CODE_PAGE).lower(), charset or CODE_PAGE)
    try:
        if charset != CODE_PAGE:
            return data.decode(charset, "replace")
    except LookupError:
        pass  # nobody's charset: the bytes count as the system's
    return "".join(chr(byte) if chr(byte) in UNASSIGNED else bytes([byte]).decode(CODE_PAGE) for byte in data)


def in_code_page(text, substitute):
    """Text as the library can hold it."""
    return "".join(c if c in UNASSIGNED or c.encode(CODE_PAGE, "ignore") else substitute for c in text)


def squeezed(text):
    return re.sub(r"\s+", "", text)


def raw_header(message, name):
    """The first field of this name as text in which every byte is one character of the code page."""
    values = [str(value) for key, value in message.raw_items() if key.lower() == name] + [""]
    return decoded(re.sub("[\r\n]", "", values[0]).encode("utf-8", "surrogateescape"), CODE_PAGE)


def header_text(message, name):
    words = email.header.decode_header(raw_header(message, name))
    return "".join(text if isinstance(text, str) else decoded(text, charset) for text, charset in words)


def collect(message, want):
    """Fills `want` with what a mail program would show as text and offer as files."""
    kind = message.get_content_type()
    is_file = message.get_filename() is not None
    data = b"" if message.is_multipart() else message.get_payload(decode=True) or b""
    want["defects"] += message.defects
    if kind == "message/rfc822" and message.is_multipart():
        want["mails"] += 1  # kept as a file too, whose bytes Python does not keep
        collect(message.get_payload()[0], want)
    elif kind == "message/delivery-status" and message.is_multipart():
        want["files"].append(b"\n".join(block.as_bytes() for block in message.get_payload()))
    elif message.is_multipart():
        for part in message.get_payload():
            collect(part, want)
    elif kind == "text/plain" and not is_file:
        want["texts"].append(decoded(data, message.get_content_charset()))
    elif data.strip(b"\r\n"):
        if kind == "text/html" and not is_file:
            page = decoded(data, message.get_content_charset())
            data = in_code_page(page, "\x1A").encode(CODE_PAGE, "replace")
        want["files"].append(data)


def differences(mail, record):
    message = email.message_from_bytes(mail.read_bytes())
    want = {"texts": [], "files": [], "mails": 0, "defects": []}
    collect(message, want)
    pairs = {
        "subject": [squeezed(in_code_page(header_text(message, "subject"), "?")),
                    squeezed(record.get("BETREFF", "").replace("(Kein Betreff)", ""))],
        "from": [email.utils.parseaddr(header_text(message, "from"))[1], record.get("ABSENDER", "")]}
    for field, key in (("to", "EMPF\u00c4NGER"), ("cc", "KOPIE")):
        addresses = email.utils.getaddresses([raw_header(message, field)])
        pairs[field] = [[address for _, address in addresses if address],
                        [address.strip() for address in record.get(key, "").split("\x01") if address]]
    files = {name: base64.b64decode(record[name]["$base64"]) for name in record.get("ANLAGEN", "").split("\x01") if name}
    text = record.get("NACHRICHT", "")
    if cut := CUT_NOTICE.search(text):  # the whole text is in the file that it names
        text = files.pop(cut.group(1)).decode(CODE_PAGE, "replace")
    if message.get_content_type() != "text/html" or message.get_filename() is not None:
        pairs["text"] = [squeezed("".join(in_code_page(part, "\x1A") for part in want["texts"])),
                         squeezed(text.replace("\r\n\r\nEingebettete Mail:\r\n\r\n", ""))]
    pairs["files"] = [len(want["files"]) + want["mails"], len(files)]
    left = [squeezed(content.decode("latin1")) for content in files.values()]
    for content in want["files"]:  # each file counts once
        form = squeezed(content.decode("latin1"))
        if form in left:
            left.remove(form)
        else:
            pairs["bytes"] = [f"{len(content)} bytes {content[:60]!r}", "no such file"]
    return {field: pair for field, pair in pairs.items() if pair[0] != pair[1]}, want["defects"]


def main():
    yinet, folder, *explained_file = sys.argv[1:]
    mails = sorted(pathlib.Path(folder).glob("*.eml"))
    if not pathlib.Path(folder).is_dir():
        print(f"the mails to compare are not beside this checkout: no folder {folder}")
        sys.exit(77)
    rows = [line.split(maxsplit=2) for file in explained_file for line in open(file, encoding="utf-8")]
    explained = {(row[0], row[1]) for row in rows if row and row[0] != "#"}
    failures, met = 0 if mails else 1, set()
    for mail in mails:
        run = subprocess.run([yinet, "mail", "decode", "--json", str(mail)], capture_output=True, timeout=60, check=True)
        found, defects = differences(mail, json.loads(run.stdout))
        if defects and not explained_file:
            found["defects"] = [defects, "a mail without any"]
        met |= {(mail.name, field) for field in found}
        for field in [field for field in found if (mail.name, field) not in explained]:
            failures += 1
            print("{} {}\n  Python: {!r:.500}\n  yinet:  {!r:.500}".format(mail.name, field, *found[field]))
    gone = sorted(explained - met)
    print(f"{len(mails)} mails compared, {len(met)} differences, {failures} failures; explained, but not met: {gone}")
    sys.exit(1 if failures or gone else 0)


main()
