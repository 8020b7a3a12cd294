#!/usr/bin/env python3
"""gammu, unmodified, takes the simulated modem for a modem: it identifies it, sends, reads and deletes
messages, keeps a contact and asks by USSD. What it stored our tool reads, and the other way round.

Each step is told as a test; exit status 0 when all pass, 77 when gammu is not installed. What gammu
sent and got is in its log, which is printed when a step fails."""
import json
import sys

from scene import OWN, Scene, need, run_steps

SHORT = "hello from gammu"
LONG = "a long text that has to go in parts; " * 8
UNICODE = "Привет, мир. " * 10
CONTACT = "BEGIN:VCARD\r\nVERSION:2.1\r\nN:Alice\r\nTEL;PREF:+15550002000\r\nEND:VCARD\r\n"


class GammuScene(Scene):
    """Either gammu on the simulated modem, or our manager and tool."""

    def __init__(self, programs, folder):
        super().__init__(programs, folder)
        self.log = self.folder / "gammu.log"
        self.config = self.folder / "gammurc"
        self.config.write_text(
            f"[gammu]\ndevice = {self.link}\nconnection = at\nlogformat = textalldate\n"
            f"logfile = {self.log}\n")

    def gammu(self, *words):
        return self.run("gammu", "-c", str(self.config), *words)

    def tool(self, *words):
        with self.process(self.programs.modemd, "--device", str(self.link)):
            return self.run(self.programs.tool, *words)

    def trace(self):
        return self.log.read_text(errors="replace")


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


if __name__ == "__main__":
    sys.exit(run_steps("gammu", "gammu", STEPS, GammuScene, __doc__))
