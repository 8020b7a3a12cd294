#!/usr/bin/env python3
"""gammu, unmodified, takes the simulated modem for a modem: it identifies it, sends, reads and deletes
messages, keeps a contact and asks by USSD. What it stored our tool reads, and the other way round.

Each step is told as a test; exit status 0 when all pass, 77 when gammu is not installed. What gammu
sent and got is in its log, which is printed when a step fails."""
import argparse
import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

OWN = "+15550001000"
SHORT = "hello from gammu"
LONG = "a long text that has to go in parts; " * 8
UNICODE = "Привет, мир. " * 10
CONTACT = "BEGIN:VCARD\r\nVERSION:2.1\r\nN:Alice\r\nTEL;PREF:+15550002000\r\nEND:VCARD\r\n"


class Scene:
    """The simulated modem, and either gammu or our manager and tool on it."""

    def __init__(self, programs, folder):
        self.programs = programs
        self.folder = pathlib.Path(folder)
        self.link = self.folder / "modem"
        self.log = self.folder / "gammu.log"
        self.config = self.folder / "gammurc"
        self.config.write_text(
            f"[gammu]\ndevice = {self.link}\nconnection = at\nlogformat = textalldate\n"
            f"logfile = {self.log}\n")
        self.environment = dict(os.environ, LC_ALL="C.UTF-8",
                                SMSPB_RUNTIME_DIR=str(self.folder / "run"))

    @contextlib.contextmanager
    def process(self, *words):
        """A process that prints "ready" and ends on SIGTERM."""
        process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True, env=self.environment)
        try:
            line = process.stdout.readline()
            if not line.startswith("ready"):
                raise AssertionError(f"{words[0]} did not get ready: {line!r}")
            yield
        finally:
            process.terminate()
            process.wait(10)
            process.stdout.close()

    def modem(self):
        return self.process(self.programs.simmodem, "--link", str(self.link))

    def gammu(self, *words):
        return self.run("gammu", "-c", str(self.config), *words)

    def tool(self, *words):
        with self.process(self.programs.modemd, "--device", str(self.link)):
            return self.run(self.programs.tool, *words)

    def run(self, *words):
        done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=60,
                              env=self.environment, check=False)
        if done.returncode != 0:
            raise AssertionError(f"{' '.join(words[:4])} ended with {done.returncode}:\n"
                                 f"{done.stdout}")
        return done.stdout


def need(text, *parts):
    for part in parts:
        if part not in text:
            raise AssertionError(f"{part!r} is not in\n{text}")


def identifies(scene):
    need(scene.gammu("identify"), "smspb", "simulated modem", "490154203237518", "001010123456789")


def finds_the_service_centre(scene):
    need(scene.gammu("getsmsc"), '"+15550000099"')


def sends_and_reads_a_short_text(scene):
    need(scene.gammu("sendsms", "TEXT", OWN, "-text", SHORT), "OK, message reference=1")
    need(scene.gammu("getallsms"), SHORT, "1 SMS parts in 1 SMS sequences")


def sends_and_reads_a_long_text(scene):
    need(scene.gammu("sendsms", "TEXT", OWN, "-len", "400", "-text", LONG), "2/2", "reference=3")
    listing = scene.gammu("getallsms")
    need(listing, "part 1 of 2", "part 2 of 2")
    first, second = LONG[:153].strip(), LONG[153:].strip()
    need(listing, first, second)


def sends_and_reads_a_unicode_text(scene):
    need(scene.gammu("sendsms", "TEXT", OWN, "-unicode", "-len", "400", "-text", UNICODE),
         "2/2", "reference=5")
    listing = scene.gammu("getallsms")
    need(listing, "Unicode (no compression)", UNICODE[:67].strip(), UNICODE[67:].strip())


def our_tool_reads(scene, *wanted):
    inbox = json.loads(scene.tool("--json", "inbox"))
    texts = [message["text"].strip() for message in inbox["messages"]]
    for text in wanted:
        if text.strip() not in texts:
            raise AssertionError(f"{text!r} is not among {texts}")


def our_tool_reads_what_gammu_sent(scene):
    our_tool_reads(scene, SHORT, LONG, UNICODE)


def deletes_all_messages(scene):
    scene.gammu("deleteallsms", "1")
    need(scene.gammu("getallsms"), "0 SMS parts in 0 SMS sequences")


def reads_what_our_tool_saved(scene):
    scene.tool("save", OWN, LONG)
    scene.tool("save", OWN, UNICODE)
    listing = scene.gammu("getallsms")
    need(listing, LONG[:153].strip(), LONG[153:].strip(), UNICODE[:67].strip(),
         UNICODE[67:].strip(), "4 SMS parts")


def our_tool_reads_what_gammu_stored(scene):
    scene.gammu("deleteallsms", "1")
    scene.gammu("savesms", "TEXT", "-folder", "2", "-len", "400", "-text", LONG)
    scene.gammu("savesms", "TEXT", "-folder", "2", "-unicode", "-len", "400", "-text", UNICODE)
    our_tool_reads(scene, LONG, UNICODE)


def keeps_a_contact(scene):
    card = scene.folder / "contact.vcf"
    card.write_text(CONTACT)
    scene.gammu("addnew", str(card), "-memory", "SM", "-yes")
    need(scene.gammu("getallmemory", "SM"), "Alice", "+15550002000")
    need(scene.tool("contacts", "list"), "Alice", "+15550002000")
    need(scene.gammu("deletememory", "SM", "1"), "Entry was deleted")
    if "Alice" in scene.gammu("getallmemory", "SM"):
        raise AssertionError("the deleted contact is still there")


def asks_by_ussd(scene):
    need(scene.gammu("getussd", "*100#"), "Your balance is 12.34 EUR.")


STEPS = (identifies, finds_the_service_centre, sends_and_reads_a_short_text,
         sends_and_reads_a_long_text, sends_and_reads_a_unicode_text,
         our_tool_reads_what_gammu_sent, deletes_all_messages, reads_what_our_tool_saved,
         our_tool_reads_what_gammu_stored, keeps_a_contact, asks_by_ussd)


def play(scene):
    """The failures, by step."""
    failures = {}
    for step in STEPS:
        name = step.__name__.replace("_", " ")
        try:
            step(scene)
            print(f"ok      {name}", flush=True)
        except (AssertionError, subprocess.TimeoutExpired) as failure:
            failures[step.__name__] = str(failure)
            print(f"FAILED  {name}\n{failure}", flush=True)
    return failures


def write_report(path, failures):
    """As a GoogleTest report, for whoever adds tests up."""
    cases = []
    for step in STEPS:
        why = failures.get(step.__name__)
        cases.append({"name": step.__name__, "result": "COMPLETED"}
                     | ({"failures": [{"failure": why}]} if why else {}))
    report = {"tests": len(cases), "failures": len(failures), "errors": 0,
              "testsuites": [{"name": "gammu", "testsuite": cases}]}
    pathlib.Path(path).write_text(json.dumps(report, indent=1), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("--simmodem", "--modemd", "--tool"):
        parser.add_argument(name, required=True)
    parser.add_argument("--report")
    programs = parser.parse_args()
    if shutil.which("gammu") is None:
        print("gammu is not installed (Debian package gammu)")
        return 77
    with tempfile.TemporaryDirectory(prefix="smspb-gammu-") as folder:
        scene = Scene(programs, folder)
        with scene.modem():
            failures = play(scene)
        if failures:
            print(scene.log.read_text(errors="replace")[-20000:])
    if programs.report:
        write_report(programs.report, failures)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
