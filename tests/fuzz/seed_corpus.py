#!/usr/bin/env python3
"""Writes the seeds in corpus/<target>/ from the vectors of tests/vectors, named after their sentences.

Run it when vectors were added. A file that stands there under another name, a found input for
instance, is left alone.
"""
import pathlib
import re
import struct

HERE = pathlib.Path(__file__).resolve().parent
VECTORS = HERE.parent / "vectors"
SEEDS_MAX = 40  # of a target, spread over its vectors
OK = b"\r\nOK\r\n"


def vectors(name):
    """The vectors of a file: (sentence, {key: value})."""
    sentence, fields = None, {}
    for line in (VECTORS / f"{name}.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith("["):
            if sentence:
                yield sentence, fields
            sentence, fields = line[1:line.rindex("]")], {}
        elif "=" in line and not line.startswith("#") and sentence:
            key, value = line.split("=", 1)
            fields.setdefault(key.strip(), value.strip())
    if sentence:
        yield sentence, fields


def text(value):
    """A text of a vector file with its escapes as the characters they stand for."""
    for escape, character in (("\\r", "\r"), ("\\n", "\n"), ("\\s", " ")):
        value = value.replace(escape, character)
    return value.encode("utf-8")


def octets(value):
    """Octets of a vector file: "05 81", "61x153"."""
    result = b""
    for word in value.split():
        pair, _, times = word.partition("x") if not word.startswith("0x") else (word[2:], "", "")
        result += bytes.fromhex(pair) * int(times or 1)
    return result


def units(value):
    return b"".join(struct.pack("=H", int(unit, 16)) for unit in value.split()) + b"\0\0"


def collect(files, key, form=text, before=b"", behind=b""):
    for name in files:
        for sentence, fields in vectors(name):
            if key in fields:
                yield sentence, before + form(fields[key]) + behind


def reports(name, key):
    for sentence, fields in vectors(name):
        if "head" in fields and key in fields:
            yield sentence, text(fields["head"]) + b"\r\n" + text(fields[key]) + b"\r\n"


def stored():
    for sentence, fields in vectors("read_replies"):
        if "head" in fields and "pdu" in fields:
            yield sentence, (b"\r\n+CMGR: " + text(fields["head"]) + b"\r\n" +
                             text(fields["pdu"]) + b"\r\n" + OK)


def sms_replies():
    """Replies behind the letter of the operation that asks; see sms_replies.cpp."""
    for operation in "bcilnopqr":
        yield f"every command of {operation} is acknowledged", operation.encode() + OK
        yield f"the second command of {operation} fails", operation.encode() + OK + b"\0\r\nERROR\r\n"
    yield from collect(["reply_status"], "reply", before=b"s")
    yield from collect(["storage_counts"], "reply", before=b"d")
    yield from collect(["storage_counts"], "reply", before=b"e")
    yield from collect(["storage_info"], "reply", before=b"f" + OK + b"\0")
    yield from collect(["centre_replies"], "reply", before=b"h")
    yield from collect(["charset_replies"], "reply", before=b"j")
    yield from collect(["charset_replies"], "reply", before=b"i", behind=b"\0" + OK)
    yield from collect(["saved_indexes"], "reply", before=b"m", behind=OK)


def phonebook_replies():
    """See phonebook_replies.cpp."""
    for operation in "adef":
        yield f"{operation} is acknowledged", operation.encode() + OK
    yield "the fill of a storage", b"b" + OK + b"\0\r\n+CPBS: \"SM\",3,250\r\n" + OK
    yield "the longest name", b"c" + OK + b"\0\r\n+CPBR: (1-250),40,16\r\n" + OK
    yield from collect(["phonebook_lines"], "line", before=b"g\r\n+CPBR: ", behind=b"\r\n" + OK)
    yield from collect(["phonebook_lines"], "line", before=b"h\r\n+CPBR: ", behind=b"\r\n" + OK)


def responses():
    """The response records of the modem manager; see response_record.cpp."""
    for operation in (0, 1, 2, 3, 0x13, 15):
        for name, words, rest in (("an acknowledgement", (0, 0, 6), OK),
                                  ("more announced than came", (0, 0, 1013), OK),
                                  ("a failure", (3, 0, 0), b""),
                                  ("a transfer file", (0, 1, 0), b"/transfer\0"),
                                  ("no reply", (0, 0, 0), b"")):
            yield f"{name} for {operation}", bytes([operation, 0]) + struct.pack("=3I", *words) + rest


def requests():
    """The request records that the modem manager accepts; see manager_records.cpp."""
    def slots(*markers):
        return b"".join(marker.ljust(16, b"\0") for marker in markers).ljust(80, b"\0")
    pdu = b"0001000B915155001000F0000005E8329BFD06"
    for name, command in (("a command", b"AT+CSQ\r"), ("two commands", b"AT\rAT\r"),
                          ("no line end", b"AT"), ("a text command", b"AT+CMGS=18\r")):
        yield name, (b"\0" + struct.pack("=4I", len(command), 0, 3000, 2) +
                     slots(b"OK", b"ERROR") + command + b"\0")
    yield "six markers", b"\0" + struct.pack("=4I", 3, 0, 0, 6) + slots(b"OK") + b"AT\r\0"
    yield "a length beyond the record", b"\0" + struct.pack("=4I", 2**32 - 1, 0, 0, 0) + slots()
    yield "a message", b"\1" + struct.pack("=I", len(pdu)) + pdu + b"\0"
    yield "a message of an odd length", b"\1" + struct.pack("=I", len(pdu) - 1) + pdu[1:] + b"\0"
    yield "a service centre that fills the message", b"\1" + struct.pack("=I", 4) + b"0191\0"
    yield "a message to store", b"\2" + struct.pack("=2I", len(pdu), 2) + pdu + b"\0"
    yield "a message to store as nothing known", b"\2" + struct.pack("=2I", len(pdu), 9) + pdu + b"\0"
    yield "no request at all", b"\3"


def dialogues():
    """What happens at the modem manager's tty; see manager_tty.cpp."""
    ready = OK + b"\0" + OK + b"\0"
    message = ready + b"m0001000B915155001000F0000005E8329BFD06\0" + OK + b"\0"
    yield "in step", ready
    yield "no answer to the probe", b"t\x20\0t\x20\0cAT\0t\x20"
    yield "a command and its reply", ready + b"cAT+CSQ\0\r\n+CSQ: 20,99\r\n" + OK
    yield "a command with its echo", ready + b"cAT+CSQ\0AT+CSQ\r\r\n+CSQ: 20,99\r\n" + OK
    yield "a command without an answer", ready + b"cAT\0t\x08\0" + OK + b"\0" + OK
    yield "half a reply", ready + b"cAT+CSQ\0\r\n+CSQ: 2\0t\x10\0" + OK + b"\0t\x10"
    yield "an error with its number", ready + b"cAT+CMGR=1\0\r\n+CMS ERROR: 321\r\n"
    yield "a message", message + b"\r\n> \0\r\n+CMGS: 5\r\n" + OK
    yield "no prompt", message + b"\r\n+CMS ERROR: 302\r\n"
    yield "no result behind the prompt", message + b"\r\n> \0t\xff\0t\xff\0" + OK
    yield "a prompt that nobody asked for", ready + b"cAT\0\r\n> \0" + OK
    yield "a late reply", ready + b"cAT\0t\x08\0cAT+CSQ\0" + OK + b"\0" + OK + b"\0t\x08"
    yield "a report in a reply", ready + b"cAT+CREG?\0\r\n+CREG: 1\r\n\r\n+CREG: 0,1\r\n" + OK
    yield "a message that comes unasked", ready + b"\r\n+CMT: ,22\r\n00040791942143F5\r\n"
    yield "a report without its second line", ready + b"\r\n+CDS: 25\r\n\r\n" + OK
    yield "an answer of the network over two lines", ready + b'\r\n+CUSD: 1,"a\r\nb",15\r\n'
    yield "a vendor's report", ready + b"\r\n^RSSI:15\r\n\r\nRING\r\n"
    yield "a call", ready + b"cATD123;\0\r\nNO CARRIER\r\n"
    yield "a modem that goes away", ready + b"cAT\0x\0t\x08\0" + OK + b"\0" + OK
    yield "octets that are no text", ready + bytes(range(1, 256))
    yield "a line without an end", ready + b"A" * 4200 + b"\r\n"
    yield "two at the same time", ready + b"cAT\0cATI\0" + OK + b"\0\r\nmodem\r\n" + OK


def simmodem():
    """What the conversations with the simulated modem send; see simmodem_line.cpp."""
    names = {"CR": "\r", "LF": "\n", "BS": "\b", "ESC": "\x1b", "CTRL-Z": "\x1a"}

    def expanded(line):
        def stands_for(match):
            code = match.group(1)
            return chr(int(code, 16)) if re.fullmatch("[0-9A-F]{2}", code) else names.get(code, "")
        return re.sub(r"<([^<>]+)>", stands_for, line)

    for path in sorted(VECTORS.glob("at_dialogues*.txt")):
        sentence, sent = None, b""
        for line in path.read_text(encoding="utf-8").splitlines() + ["[]"]:
            if line.startswith("["):
                if sent:
                    yield sentence, sent
                sentence, sent = line[1:-1], b""
            elif line.startswith("let "):
                name, text_ = line[4:].split("=", 1)
                names[name.strip()] = expanded(text_.strip())
            elif line.startswith("> "):
                text_ = expanded(line[2:])
                sent += text_.encode("latin-1", "replace")
                sent += b"" if text_[-1:] in ("\r", "\x1a", "\x1b") else b"\r"
            elif line.startswith("! "):
                sent += b"\xff" + {"text": b"m", "ring": b"r", "sim": b"s"}.get(line.split()[1], b"\1")


TARGETS = {
    "pdu_text": lambda: [*collect(["framing", "received", "pdu_refusals", "compose"], "pdu")],
    "tpdu_octets": lambda: [*collect(["deliver", "submit", "status_report", "address", "timestamp",
                                      "user_data", "user_data_header"], "octets", octets)],
    "septets": lambda: [*collect(["septets"], "septets", octets, b"\0\xa0"),
                        *collect(["user_data"], "octets", octets, b"\0\xa0")],
    "sms_replies": lambda: [*sms_replies()],
    "stored_message": lambda: [*stored()],
    "phonebook_lines": lambda: [*collect(["phonebook_lines"], "line")],
    "phonebook_replies": lambda: [*phonebook_replies()],
    "new_message_lines": lambda: [*collect(["new_messages"], "line")],
    "popup_reports": lambda: [*reports("popup_reports", "pdu")],
    "cell_broadcast": lambda: [*reports("cell_broadcast", "page")],
    "ussd_answers": lambda: [*collect(["ussd_answers"], "line")],
    "report_chunks": lambda: [*collect(["report_keys"], "line", before=b"\1"),
                              ("three chunks", b"\1+CLIP: \0\"+49123\"\0,145"),
                              ("a cause", b"\0+DISC: 1,0,0,\00016,0")],
    "hexadecimal": lambda: [*collect(["framing", "cell_broadcast"], "pdu", before=b"\x10"),
                            *collect(["cell_broadcast"], "page", before=b"\x11"),
                            *collect(["phonebook_lines"], "name",
                                     lambda v: v.replace(" ", "").encode(), b"\x10")],
    "utf8": lambda: [*collect(["utf8"], "octets", octets, b"\x40")],
    "ucs2": lambda: [*collect(["utf8"], "units", units, b"\x40"),
                     *collect(["dialled_numbers"], "number",
                              lambda v: v.encode("utf-16-le") + b"\0\0", b"\x40")],
    "typed_numbers": lambda: [(s, text(f["number"]) + b"\0" + text(f.get("type", "")))
                              for name in ("typed_numbers", "dialled_numbers")
                              for s, f in vectors(name) if "number" in f],
    "compose": lambda: [(s, text(f["number"]).ljust(15, b"\0")[:15] + bytes(7) +
                         f["text"].encode("utf-16-le"))
                        for s, f in vectors("compose") if "number" in f and "text" in f] +
                       [("three segments of the default alphabet",
                         b"+4912345".ljust(22, b"\0") + ("abcdefghij" * 40).encode("utf-16-le")),
                        ("three segments of UCS-2",
                         b"+4912345".ljust(22, b"\0") + ("абвгдежзий" * 18).encode("utf-16-le"))],
    "response_record": lambda: [*responses()],
    "manager_records": lambda: [*requests()],
    "manager_tty": lambda: [*dialogues()],
    "simmodem_line": lambda: [*simmodem()],
}


def spread(seeds):
    """At most SEEDS_MAX of them, each content once."""
    once = list({content: sentence for sentence, content in reversed(seeds)}.items())[::-1]
    step = max(1, -(-len(once) // SEEDS_MAX))
    return [(sentence, content) for content, sentence in once][::step]


def main():
    for target, seeds in TARGETS.items():
        folder = HERE / "corpus" / target
        folder.mkdir(parents=True, exist_ok=True)
        for old in folder.glob("seed-*"):
            old.unlink()
        chosen = spread(seeds())
        for number, (sentence, content) in enumerate(chosen):
            slug = re.sub(r"[^a-z0-9]+", "-", sentence.lower()).strip("-")[:60]
            (folder / f"seed-{number:02}-{slug}").write_bytes(content)
        print(f"{target:20} {len(chosen)} seeds")


if __name__ == "__main__":
    main()
