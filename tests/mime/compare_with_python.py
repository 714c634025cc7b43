#!/usr/bin/env python3
"""Decodes every mail of a folder with `yinet mail decode --json` and with Python's email package and compares subject,
addresses, text and the bytes of every attachment.

    compare_with_python.py YINET FOLDER EXPLAINED

EXPLAINED lists the differences that the decoder's own rules demand, one a line: "MAIL FIELD RULE", the rule in words. Fails on
a difference that is not listed, on one that is listed and gone, and on a folder without mails.
"""
import base64
import email
import email.header
import email.policy
import email.utils
import json
import pathlib
import re
import subprocess
import sys

CODE_PAGE = "cp1252"
HEADING = "\r\n\r\nEingebettete Mail:\r\n\r\n"


def in_code_page(text):
    """Text as the library can hold it."""
    return "".join(c if c.encode(CODE_PAGE, "ignore") or 0x80 <= ord(c) <= 0x9F else "?" for c in text)


def squeezed(text):
    return re.sub(r"\s+", "", text)


def header_text(value):
    if value is None:
        return ""
    parts = []
    for text, charset in email.header.decode_header(str(value).replace("\r", "").replace("\n", "")):
        if isinstance(text, str):
            parts.append(text)
        else:
            known = charset if charset and charset not in ("unknown-8bit", "us-ascii", "iso-8859-1") else CODE_PAGE
            try:
                parts.append(text.decode(known, "replace"))
            except LookupError:
                parts.append(text.decode(CODE_PAGE, "replace"))
    return "".join(parts)


def addresses(message, name):
    values = message.get_all(name, [])[:1]
    return [a for _, a in email.utils.getaddresses([str(v) for v in values]) if a]


def charset_of(part):
    charset = (part.get_content_charset() or CODE_PAGE).lower()
    return CODE_PAGE if charset in ("us-ascii", "iso-8859-1", "latin1") else charset


def text_of(part):
    payload = part.get_payload(decode=True) or b""
    try:
        text = payload.decode(charset_of(part), "replace")
    except LookupError:
        text = payload.decode(CODE_PAGE, "replace")
    return text


def leaves(message):
    """The leaves as (kind, content): what a mail program would show as text and offer as files."""
    if message.get_content_type() == "message/rfc822" and message.get_payload():
        yield "embedded", message.get_payload()[0]
    elif message.is_multipart():
        for part in message.get_payload():
            yield from leaves(part)
    elif message.get_filename() is None and message.get_content_type() in ("text/plain", "text/html"):
        yield message.get_content_type(), text_of(message)
    else:
        yield "file", message.get_payload(decode=True) or b""


def expected(raw):
    message = email.message_from_bytes(raw, policy=email.policy.compat32)
    texts, files = [], []

    def walk(mail):
        single = not mail.is_multipart()
        for kind, content in leaves(mail):
            if kind == "embedded":
                files.append(None)  # the embedded mail itself, whose bytes Python does not keep
                walk(content)
            elif kind == "text/plain":
                texts.append(content)
            elif kind == "text/html":
                (texts if single and mail is message else files).append(content if single and mail is message
                                                                        else content.encode("utf-8", "replace"))
            elif content:
                files.append(content)

    walk(message)
    return {
        "subject": header_text(message["Subject"]),
        "from": [email.utils.parseaddr(header_text(message["From"]))[1]],
        "to": addresses(message, "To"),
        "cc": addresses(message, "Cc"),
        "text": texts,
        "files": files,
        "html": message.get_content_type() == "text/html",
    }


def items(text):
    return text.split("\x01") if text else []


def differences(mail, ours):
    want = expected(mail.read_bytes())
    seen = []
    if squeezed(in_code_page(want["subject"])) != squeezed(ours.get("BETREFF", "").replace("(Kein Betreff)", "")):
        seen.append(("subject", want["subject"], ours.get("BETREFF")))
    if want["from"][0] != ours.get("ABSENDER", ""):
        seen.append(("from", want["from"][0], ours.get("ABSENDER")))
    for field, key in (("to", "EMPF\u00c4NGER"), ("cc", "KOPIE")):
        if want[field] != [a.strip() for a in items(ours.get(key, ""))]:
            seen.append((field, want[field], items(ours.get(key, ""))))
    if not want["html"]:
        text = "".join(squeezed(in_code_page(t)) for t in want["text"])
        got = squeezed(ours.get("NACHRICHT", "").replace(HEADING, ""))
        if text != got:
            seen.append(("text", text[:200], got[:200]))
    got_files = []
    for name in items(ours.get("ANLAGEN", "")):
        content = base64.b64decode(ours.get(name, {}).get("$base64", ""))
        got_files.append(content)
    if len(got_files) != len(want["files"]) + (1 if want["html"] else 0):
        seen.append(("files", [len(f) if f is not None else "mail" for f in want["files"]], [len(f) for f in got_files]))
    else:
        for content in want["files"]:
            if content is None:
                continue
            same = [f for f in got_files if squeezed(f.decode("latin1")) == squeezed(content.decode("latin1")) or
                    squeezed(in_code_page(content.decode("utf-8", "replace"))) == squeezed(f.decode(CODE_PAGE, "replace"))]
            if not same:
                seen.append(("bytes", len(content), content[:60]))
    return seen


def main():
    yinet, folder, explained_file = sys.argv[1:4]
    mails = sorted(pathlib.Path(folder).glob("*.eml"))
    if not mails:
        sys.exit(f"no mails in {folder}")
    explained = {}
    for line in pathlib.Path(explained_file).read_text(encoding="utf-8").splitlines():
        if line.strip() and not line.startswith("#"):
            mail, field, rule = line.split(maxsplit=2)
            explained[(mail, field)] = rule
    failed = 0
    met = set()
    for mail in mails:
        run = subprocess.run([yinet, "mail", "decode", "--json", str(mail)], capture_output=True, timeout=60)
        if run.returncode != 0:
            print(f"{mail.name}: {run.stderr.decode('utf-8', 'replace')}")
            failed += 1
            continue
        for field, want, got in differences(mail, json.loads(run.stdout)):
            met.add((mail.name, field))
            if (mail.name, field) not in explained:
                failed += 1
                print(f"{mail.name} {field}\n  Python: {want!r}\n  yinet:  {got!r}")
    for mail, field in sorted(set(explained) - met):
        failed += 1
        print(f"{mail} {field}: explained, but there is no difference any more")
    print(f"{len(mails)} mails compared, {len(met)} differences explained or shown, {failed} failures")
    sys.exit(1 if failed else 0)


main()
