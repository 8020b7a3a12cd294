#!/usr/bin/env python3
"""gnokii, unmodified, takes the simulated modem for a modem: it identifies it, looks at its state,
sends, reads and deletes messages and keeps contacts.

Exit status 0 when all pass, 77 when gnokii is not installed."""
import sys

from scene import OWN, Scene, need, run_steps

LONG = "a long text that has to go in parts; " * 8
UNICODE = "Привет, мир"


class GnokiiScene(Scene):
    def __init__(self, programs, folder):
        super().__init__(programs, folder)
        self.environment["HOME"] = str(self.folder)
        self.config = self.folder / "config"
        # gnokii has room for a short path only
        self.config.write_text(
            f"[global]\nport = {self.link.name}\nmodel = AT\nconnection = serial\n")
        (self.folder / ".cache" / "gnokii").mkdir(parents=True)

    def gnokii(self, *words, text=None):
        return self.run("gnokii", "--config", str(self.config), *words, text=text)

    def send(self, text):
        return self.gnokii("--sendsms", OWN, text=text)


def identifies(scene):
    need(scene.gnokii("--identify"), "490154203237518", "smspb", "simulated modem")


def tells_the_network_and_the_clock(scene):
    need(scene.gnokii("--getnetworkinfo"), "001 01", "00c3", "000012ab")
    need(scene.gnokii("--getdatetime"), "Date: 20")


def finds_the_service_centre(scene):
    need(scene.gnokii("--getsmsc", "1"), "+15550000099")


def sends_and_reads_a_short_text(scene):
    need(scene.send("hello from gnokii"), "Send succeeded with reference 1")
    need(scene.gnokii("--getsms", "SM", "1"), "Inbox Message (Unread)", OWN, "hello from gnokii")


def sends_and_reads_a_long_text(scene):
    need(scene.send(LONG), "Message sent in 2 parts with reference numbers: 2 3")
    need(scene.gnokii("--getsms", "SM", "2", "3"), "Linked (1/2)", LONG[:153].strip(),
         "Linked (2/2)", LONG[153:].strip())


def sends_and_reads_a_unicode_text(scene):
    need(scene.send(UNICODE), "Send succeeded with reference 4")
    need(scene.gnokii("--getsms", "SM", "4"), UNICODE)


def reads_what_comes_in(scene):
    scene.event("text", "+491712345678", "it rains")
    need(scene.gnokii("--getsms", "SM", "5"), "+491712345678", "it rains")


def deletes_messages(scene):
    need(scene.gnokii("--showsmsfolderstatus"), "SM    5")
    need(scene.gnokii("--deletesms", "SM", "1", "5"), "Deleted SMS (location 5 from memory SM)")
    need(scene.gnokii("--showsmsfolderstatus"), "SM    0")


def keeps_contacts(scene):
    need(scene.gnokii("--writephonebook", "-o", text="Alice;+15550002000;SM;5;0;\n"), "Succeeded")
    need(scene.gnokii("--getphonebook", "SM", "5"), "Name: Alice", "Number: +15550002000")
    need(scene.gnokii("--deletephonebook", "SM", "5"), "entry removed")
    if "+15550002000" in scene.gnokii("--getphonebook", "SM", "1", "end"):
        raise AssertionError("the deleted contact is still there")


def reads_the_own_number(scene):
    need(scene.gnokii("--getphonebook", "ON", "1"), OWN)


STEPS = (identifies, tells_the_network_and_the_clock, finds_the_service_centre,
         sends_and_reads_a_short_text, sends_and_reads_a_long_text, sends_and_reads_a_unicode_text,
         reads_what_comes_in, deletes_messages, keeps_contacts, reads_the_own_number)

if __name__ == "__main__":
    sys.exit(run_steps("gnokii", "gnokii-cli", STEPS, GnokiiScene, __doc__))
