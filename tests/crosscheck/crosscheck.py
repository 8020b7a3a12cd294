#!/usr/bin/env python3
"""Compares the library's codec with tshark's dissector, PDU by PDU.

Composed messages are SUBMITs that the library makes; received ones are DELIVERs made here. Both
are decoded by the library and by tshark, and have to agree on number, text, concatenation header,
coding and time; what was composed has to be what was asked for. Exits with 77 when tshark is
missing."""

import argparse
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

import deliver
import plan
import tshark

SKIPPED = 77
AT_LEAST = 200  # PDUs of each kind
ABSENT_REFERENCE = 255  # TP-MR: the modem puts in its own
SINGLE = {0: 160, 2: 70}
PART = {0: 153, 2: 67}


class Disagreement(Exception):
    """Two readings of one PDU."""


def expect(what, library, other):
    if library != other:
        raise Disagreement(f"{what}: the library has {library!r}, expected {other!r}")


def corpus(program, requests):
    """The library's answers to the requests, in order."""
    lines = "".join(json.dumps(request) + "\n" for request in requests)
    done = subprocess.run([program], input=lines, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"crosscheck: {done.stderr.strip()}")
    return [json.loads(line) for line in done.stdout.splitlines()]


def units(text):
    octets = text.encode("utf-16-be", "surrogatepass")
    return [octets[i] << 8 | octets[i + 1] for i in range(0, len(octets), 2)]


def as_library_shows(text, header_octets):
    """A GSM text of the standard as the library shows it: it knows no euro sign, has the small
    cedilla for the capital one, and takes a septet 0 for 0x40 unless it fills the top of its
    octet."""
    shown = ""
    bit = header_octets * 8 + -header_octets * 8 % 7
    for character in text:
        bit += 14 if character in deliver.EXTENSION else 7
        if character == "@" and bit % 8 != 0:
            character = "¡"
        shown += {"€": "\u00a0", "Ç": "ç"}.get(character, character)
    return shown


def compare(library, dissected):
    """The library's decoding with tshark's."""
    for what in ("kind", "number", "alphabet", "class", "total", "part", "reference", "report",
                 "time", "timezone"):
        expect(what, library[what], dissected[what])
    if dissected["alphabet"] == 1:
        expect("data", bytes(library["data"]), dissected["data"])
        return
    text = dissected["text"]
    if dissected["alphabet"] == 0:
        text = as_library_shows(text, dissected["header_octets"])
    expect("text", library["text"], units(text))


def expected_coding(text):
    return 0 if all(character in plan.LIBRARY_CHARACTERS for character in text) else 2


def expect_request(message, dissected, length, tpdu):
    """One segment carries what the message says, whichever segment it is."""
    expect("number", dissected["number"], message["number"])
    expect("report", dissected["report"], message["report"])
    expect("time", dissected["time"], message.get("time", [0] * 6))
    expect("alphabet", dissected["alphabet"], expected_coding(message["text"]))
    expect("TP-MR", dissected["message_reference"], ABSENT_REFERENCE)
    expect("TPDU length", length, len(tpdu))


def expect_segments(message, parts, counter):
    """All segments together are the text, numbered from 1 and sharing the next reference."""
    coding = expected_coding(message["text"])
    count = len(units(message["text"]))
    total = 1 if count <= SINGLE[coding] else -(-count // PART[coding])
    expect("segments", len(parts), total)
    joined = "".join(part["text"] for part in parts)
    expect("joined text", joined, message["text"].replace("ç", "Ç") if coding == 0 else
           message["text"])
    for number, part in enumerate(parts, 1):
        header = (part["reference"], part["total"], part["part"])
        expect("header", header, (counter % 256, total, number) if total > 1 else (0, 0, 0))


class Report:
    """Counts the PDUs of each kind and prints the disagreements."""

    def __init__(self):
        self.agree = {}
        self.disagree = {}

    def check(self, kind, tpdu, comparison):
        self.agree.setdefault(kind, 0)
        self.disagree.setdefault(kind, 0)
        try:
            comparison()
            self.agree[kind] += 1
        except Disagreement as error:
            self.disagree[kind] += 1
            print(f"{kind}: {tpdu.hex().upper()}: {error}")

    def good(self, kind):
        return self.disagree[kind] == 0 and self.agree[kind] >= AT_LEAST

    def finish(self, path):
        """Prints the counts, and writes them as a GoogleTest report for whoever adds tests up."""
        cases = []
        for kind, agree in self.agree.items():
            line = f"{kind}: {agree} of {agree + self.disagree[kind]} PDUs agree"
            print(f"crosscheck: {line}")
            failures = {} if self.good(kind) else {"failures": [{"failure": line}]}
            cases.append({"name": kind, "result": "COMPLETED"} | failures)
        failed = sum("failures" in case for case in cases)
        report = {"tests": len(cases), "failures": failed, "errors": 0,
                  "testsuites": [{"name": "crosscheck", "testsuite": cases}]}
        if path:
            path.write_text(json.dumps(report, indent=1), encoding="utf-8")
        return 1 if failed else 0


def tpdu_of(pdu):
    """The octets behind the service-centre part."""
    octets = bytes.fromhex(pdu)
    return octets[1 + octets[0]:]


def check_composed(report, program, dissect):
    """SUBMITs by the library; the counter of concatenated messages starts at 0 with its process."""
    messages = plan.composed()
    answers = corpus(program, [{"compose": message | {"text": units(message["text"])}}
                               for message in messages])
    segments = [segment for answer in answers for segment in answer["segments"]]
    tpdus = [tpdu_of(segment["pdu"]) for segment in segments]
    dissected = dissect("composed", [(tshark.FROM_MOBILE, tpdu) for tpdu in tpdus])
    decoded = corpus(program, [{"decode": segment["pdu"]} for segment in segments])
    first = 0
    for counter, (message, answer) in enumerate(zip(messages, answers, strict=True)):
        behind = first + len(answer["segments"])
        for place in range(first, behind):
            def comparison():
                compare(decoded[place], dissected[place])
                length = segments[place]["length"]
                expect_request(message, dissected[place], length, tpdus[place])
                if place == first:
                    expect_segments(message, dissected[first:behind], counter)
            report.check("composed", tpdus[place], comparison)
        first = behind


def check_received(report, program, dissect):
    """DELIVERs by deliver.py."""
    messages = plan.received()
    tpdus = [deliver.deliver(message) for message in messages]
    dissected = dissect("received", [(tshark.TO_MOBILE, tpdu) for tpdu in tpdus])
    decoded = corpus(program, [{"decode": "00" + tpdu.hex().upper()} for tpdu in tpdus])
    for message, tpdu, library, other in zip(messages, tpdus, decoded, dissected, strict=True):
        def comparison():
            compare(library, other)
            expect("zone as built", other["timezone"], message["zone"])
            expect("time as built", other["time"], message["time"])
        report.check("received", tpdu, comparison)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--corpus", required=True, help="the program pdu_corpus")
    parser.add_argument("--tshark", default="tshark", help="the program tshark")
    parser.add_argument("--report", type=pathlib.Path, help="where to write a GoogleTest report")
    arguments = parser.parse_args()
    if shutil.which(arguments.tshark) is None:
        print("crosscheck: skipped: tshark is not installed (apt-get install tshark)")
        return SKIPPED
    report = Report()
    with tempfile.TemporaryDirectory(prefix="smspb-crosscheck-") as directory:
        def dissect(name, packets):
            return tshark.dissect(arguments.tshark, f"{directory}/{name}.pcapng", packets)
        check_composed(report, arguments.corpus, dissect)
        check_received(report, arguments.corpus, dissect)
    return report.finish(arguments.report)


if __name__ == "__main__":
    sys.exit(main())
