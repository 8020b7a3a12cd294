#!/usr/bin/env python3
"""smsd of the smstools, unmodified, takes the simulated modem for a modem: it sends what lies in its
outbox, asks for reports, and puts what comes in into its inbox.

Exit status 0 when all pass, 77 when smsd is not installed."""
import json
import subprocess
import sys
import time

from scene import OWN, Scene, need, run_steps

FOLDERS = ("outgoing", "checked", "failed", "incoming", "sent")
LONG = ("a long text that has to go in parts; " * 8).strip()
SOON = 20  # seconds, for what must come


class SmsdScene(Scene):
    def __init__(self, programs, folder):
        super().__init__(programs, folder)
        for name in FOLDERS:
            (self.folder / name).mkdir()
        self.config = self.folder / "smsd.conf"
        self.config.write_text("devices = GSM1\n" + "".join(
            f"{name} = {self.folder / name}\n" for name in FOLDERS) + f"""\
logfile = {self.folder / "log"}
infofile = {self.folder / "working"}
pidfile = {self.folder / "pid"}
loglevel = 7
delaytime = 1
autosplit = 3
[GSM1]
device = {self.link}
init = AT+CNMI=2,1,0,2,0
incoming = yes
report = yes
""")

    def outgoing(self, name, text):
        """A file of the outbox, whole at once as smsd wants it."""
        partial = self.folder / name
        partial.write_text(f"To: {OWN[1:]}\n\n{text}", encoding="latin-1")
        partial.rename(self.folder / "outgoing" / name)

    def received(self):
        return [path.read_text(encoding="latin-1")
                for path in sorted((self.folder / "incoming").iterdir())]

    def handle(self, done):
        """smsd at work until `done` holds."""
        smsd = subprocess.Popen(("smsd", "-c", str(self.config), "-t"), env=self.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        try:
            limit = time.monotonic() + SOON
            while not done():
                if time.monotonic() > limit:
                    raise AssertionError(f"it did not come: {self.received()}")
                time.sleep(0.05)
        finally:
            smsd.terminate()
            smsd.wait(SOON)

    def trace(self):
        log = self.folder / "log"
        return log.read_text(errors="replace") if log.exists() else ""


def handles_its_outbox_and_what_comes_in(scene):
    scene.event("text", "+491712345678", "it rains")
    scene.outgoing("short", "hello from smsd")
    scene.outgoing("long", LONG)
    # a text that came in, two of its own, and a report for each of their three parts
    scene.handle(lambda: len(scene.received()) == 6 and len(list(
        (scene.folder / "sent").iterdir())) == 2)


def received_the_texts(scene):
    need("\n====\n".join(scene.received()), "From: 491712345678", "it rains", "hello from smsd", LONG,
         "IMSI: 001010123456789", "IMEI: 490154203237518")


def received_the_reports(scene):
    reports = [text for text in scene.received() if "SMS STATUS REPORT" in text]
    if len(reports) != 3:
        raise AssertionError(f"{len(reports)} reports, not 3: {reports}")
    for text in reports:
        need(text, "Status: 0,Ok,short message received by the SME")


def left_nothing_in_the_modem(scene):
    storages = json.loads(scene.event("status"))["storages"]
    if any(each["used"] for each in storages.values()):
        raise AssertionError(f"messages are left: {storages}")


STEPS = (handles_its_outbox_and_what_comes_in, received_the_texts, received_the_reports,
         left_nothing_in_the_modem)

if __name__ == "__main__":
    sys.exit(run_steps("smsd", "smstools", STEPS, SmsdScene, __doc__))
