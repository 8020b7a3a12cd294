#!/usr/bin/env python3
"""A modem manager on the simulated modem: our tool works on it, and each point of the chapter
"Writing your own" of its manual holds. Here it is examples/manager.py, written from that chapter;
any other will do that takes --device and says "ready".

Each step is told as a test; exit status 0 when all pass. The manager's log is printed when a step
fails."""
import contextlib
import json
import os
import select
import signal
import socket
import struct
import subprocess
import sys
import time

from scene import OWN, Scene, need, run_steps

LONG = "a long text that has to go in parts; " * 8
UNICODE = "Привет, мир. 🙂 " * 10
REPORT, RUN, SEND, STORE = 0x10400090, 0x1040008F, 0x104000AF, 0x104000B1
PDU = b"0011000B915155100000F00000AA05E8329BFD06"
SOON = 5.0  # seconds within which everything here comes


class ManagerScene(Scene):
    """The simulated modem, the manager on it, and requests to it by our tool or octet by octet."""

    def __init__(self, programs, folder):
        super().__init__(programs, folder)
        self.runtime = self.folder / "run"
        self.log = self.folder / "manager.log"
        self.manager = None

    @contextlib.contextmanager
    def modem(self):
        with super().modem(), open(self.log, "wb") as log:
            with subprocess.Popen([self.programs.modemd, "--device", self.link], stderr=log,
                                  stdout=subprocess.PIPE, env=self.environment) as self.manager:
                try:
                    equal(self.manager.stdout.readline(), b"ready\n")
                    yield
                finally:
                    self.manager.terminate()

    def trace(self):
        return self.log.read_text(errors="replace")

    def tool(self, *words):
        return self.run(self.programs.tool, *words)

    def tool_starts(self, *words):
        return subprocess.Popen([self.programs.tool, *words], stdin=subprocess.DEVNULL, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=self.environment)

    def connect(self):
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        connection.settimeout(SOON)
        connection.connect(str(self.runtime / "dest-1"))
        return connection

    def ask(self, text, wait=2000, message_id=RUN):
        """The connection on which the answer to a request will come."""
        connection = self.connect()
        connection.send(packet(message_id, command(text, wait) if message_id == RUN else text))
        return connection

    def reply(self, text, wait=2000):
        return reply_on(self.ask(text, wait))

    @contextlib.contextmanager
    def listener(self):
        """Gives a function that waits for the next notification."""
        path = self.runtime / f"notify-{REPORT:x}-test"
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as server:
            server.bind(str(path))
            server.listen(16)
            server.settimeout(SOON)

            def heard():
                connection, _ = server.accept()
                with connection:
                    kind, message_id, size, _, report = parts_of(connection.recv(8192))
                equal((kind, message_id, size), (0, REPORT, len(report)))
                return report
            yield heard
        path.unlink()


def equal(left, right):
    if left != right:
        raise AssertionError(f"{left!r} is not {right!r}")


def packet(message_id, record, kind=1, size=None, session=77):
    size = len(record) if size is None else size
    return struct.pack("=4I", kind, message_id, size, session) + record


def command(text, wait=2000, markers=(b"OK", b"ERROR"), length=None, count=None):
    slots = b"".join(marker.ljust(16, b"\0") for marker in markers).ljust(80, b"\0")
    return struct.pack("=4I", len(text) if length is None else length, 0, wait,
                       len(markers) if count is None else count) + slots + text + b"\0"


def parts_of(octets):
    return *struct.unpack("=4I", octets[:16]), octets[16:]


def record_on(connection, message_id=RUN):
    """The response record; None when the manager closed instead."""
    with connection:
        try:
            octets = connection.recv(8192)
        except ConnectionResetError:
            octets = b""
    if not octets:
        return None
    kind, answered, size, session, record = parts_of(octets)
    equal((kind, answered, size, session), (2, message_id, len(record), 77))
    return record


def reply_on(connection, message_id=RUN):
    """The reply, from a file if it is there; None when the request was refused or failed."""
    record = record_on(connection, message_id)
    if record is None:
        return None
    result, way, length, text = *struct.unpack("=3I", record[:12]), record[12:]
    if result != 0:
        equal((way, length, text), (0, 0, b""))
        return None
    if way == 0:
        equal(length, len(text))
        return text
    equal((way, length, text[-1:]), (1, 0, b"\0"))
    with open(text[:-1], "rb") as file:
        return file.read()


def is_silent(connection):
    return not select.select([connection], [], [], 0.05)[0]


def begin(scene, text):
    """A request that the modem answers late, and one behind it."""
    first, second = scene.ask(text), scene.ask(b"AT+CSQ\r")
    equal(is_silent(second), True)
    return first, second


def shows_the_modem(scene):
    need(scene.tool("--version"), "smspb")
    need(scene.tool("status"), "490154203237518", "READY", "registered, home")


def sends_short_long_and_unicode_texts(scene):
    need(scene.tool("send", OWN, "hello"), "1 segment in GSM 7-bit, reference 1")
    need(scene.tool("send", OWN, LONG), "2 segments (153 + 143) in GSM 7-bit")
    need(scene.tool("send", OWN, UNICODE), "3 segments", "in UCS-2")


def lists_and_deletes_them(scene):
    inbox = json.loads(scene.tool("--json", "inbox"))
    equal([message["text"].strip() for message in inbox["messages"]],
          ["hello", LONG.strip(), UNICODE.strip()])
    need(scene.tool("save", OWN, LONG), "(unsent)")
    scene.tool("delete", "1-8")
    equal(json.loads(scene.tool("--json", "inbox"))["messages"], [])


def passes_a_delivery_report_to_a_listener(scene):
    scene.tool("at", "AT+CNMI=2,0,0,1,0")
    listening = scene.tool_starts("listen", "--once", "--json", "--timeout", "10")
    with listening:
        while "listening" not in (line := listening.stderr.readline()):
            need(line, "smspb: ")
        scene.tool("send", "--report", OWN, "tell me")
        event = json.loads(listening.communicate(timeout=SOON)[0])
    equal((event["kind"], event["matched"]), ("report", True))


def asks_by_ussd(scene):
    need(scene.tool("ussd", "*100#"), "Your balance is 12.34 EUR.")
    scene.tool("ussd", "*103#", "--reply", "2", "--reply", "50")


def keeps_contacts(scene):
    scene.tool("contacts", "add", "Ωmega", "+15550002000")
    need(scene.tool("contacts", "list"), "Ωmega", "+15550002000")
    scene.tool("contacts", "delete", "1-250")


def gives_the_reply_exactly(scene):
    equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")
    equal(scene.reply(b"AT+NOSUCH\r"), b"\r\nERROR\r\n")
    need(scene.reply(b"AT+CLAC\r"), b"\r\nAT+CLAC\r\n")


def takes_the_echo_away(scene):
    equal(scene.reply(b"ATE1\r")[-6:], b"\r\nOK\r\n")
    equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")
    connection = scene.ask(struct.pack("=2I", len(PDU), 3) + PDU + b"\0", message_id=STORE)
    equal(reply_on(connection, STORE)[:9], b"\r\n+CMGW: ")
    connection = scene.ask(struct.pack("=I", len(PDU)) + PDU + b"\0", message_id=SEND)
    equal(reply_on(connection, SEND)[:9], b"\r\n+CMGS: ")
    equal(scene.reply(b"ATE0\r"), b"\r\nOK\r\n")


def answers_again_on_the_same_connection(scene):
    connection = scene.connect()
    for _ in range(2):
        connection.send(packet(RUN, command(b"AT\r")))
        equal(reply_on(connection.dup()), b"\r\nOK\r\n")
    connection.close()


def keeps_a_long_reply_in_a_file(scene):
    reply = scene.reply(b"AT+CLAC;+CLAC;+CLAC\r")
    equal((reply.count(b"AT+CMGS\r\n"), reply[-6:]), (3, b"\r\nOK\r\n"))
    files = list(scene.runtime.glob("transfer-*"))
    equal([file.stat().st_mode & 0o777 for file in files], [0o600])


def ends_a_reply_at_a_marker_or_after_the_wait(scene):
    connection = scene.connect()
    connection.send(packet(RUN, command(b"AT+CSQ\r", markers=(b"+CSQ",))))
    connection.send(packet(RUN, command(b"AT+CBC\r", 200, markers=())))
    equal(reply_on(connection.dup()), b"\r\n+CSQ: 21,99\r\n")
    equal(reply_on(connection), b"\r\n+CBC: 0,100\r\n\r\nOK\r\n")


MALFORMED = (
    (RUN, b""), (RUN, bytes(95)), (RUN, command(b"AT\r")[:-1]), (RUN, command(b"AT\r") + b"\0"),
    (RUN, command(b"AT\r", length=2)), (RUN, command(b"AT\r", length=0xFFFFFFFF)),
    (RUN, command(b"AT\r", count=6)), (RUN, command(b"AT\r", count=0xFFFFFFFF)),
    (RUN, command(b"AT\r", markers=(b"A" * 16,))), (RUN, command(b"AT\r", markers=(b"",))),
    (RUN, command(b"AT")), (RUN, command(b"")), (RUN, command(b"AT\rAT\r")),
    (RUN, command(b"AT\x1b\r")), (RUN, command(b"AT\x1a\r")), (RUN, command(b"AT\0\r")),
    (RUN, command(b"AT" + b"x" * 1024 + b"\r")), (0x10400001, command(b"AT\r")),
    (SEND, struct.pack("=I", 3) + b"001\0"), (SEND, struct.pack("=I", 4) + b"00zz\0"),
    (SEND, struct.pack("=I", 0) + b"\0"), (SEND, struct.pack("=I", 2) + b"00\0"),
    (SEND, struct.pack("=I", 4) + b"0900\0"), (SEND, struct.pack("=I", 6) + b"0011\x1a\r\0"),
    (STORE, struct.pack("=2I", len(PDU), 1) + PDU + b"\0"), (STORE, struct.pack("=I", 1)))


def refuses_malformed_records(scene):
    for message_id, record in MALFORMED:
        connection = scene.connect()
        connection.send(packet(message_id, record))
        if reply_on(connection, message_id) is not None:
            raise AssertionError(f"{message_id:#x} {record!r} was carried out")
    for octets in (b"x", packet(RUN, command(b"AT\r"), kind=9),
                   packet(RUN, command(b"AT\r"), size=5)):
        connection = scene.connect()
        connection.send(octets)
        equal(record_on(connection), None)
    equal(scene.reply(b"AT\r"), b"\r\nOK\r\n")


def keeps_reports_out_of_replies(scene):
    with scene.listener() as heard:
        reports = (b'+CMTI: "SM",9\r\n', b"+CREG: 5\r\n", b"+CMT: ,2\r\n00AA\r\n", b"^MODE: 5\r\n")
        lines = b"".join(reports).decode().removesuffix("\r\n").replace("\r\n", r"\n")
        scene.event("fault", f"+CSQ=unsolicited={lines}:1")
        equal(scene.reply(b"AT+CSQ;+CREG?\r"), b"\r\n+CSQ: 21,99\r\n\r\n+CREG: 0,1\r\n\r\nOK\r\n")
        for report in reports:
            equal(heard(), report)
        scene.reply(b"AT+CUSD=1\r")
        scene.event("ussd", "one\ntwo")
        equal(heard(), b'+CUSD: 0,"one\r\ntwo",15\r\n')
        scene.event("raw", "+ANYTHING: 1")
        equal(heard(), b"+ANYTHING: 1\r\n")


def removes_what_a_dead_listener_left(scene):
    path = scene.runtime / f"notify-{REPORT:x}-dead"
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as dead:
        dead.bind(str(path))
        dead.listen()
    with scene.listener() as heard:
        scene.event("ring")
        equal(heard(), b"RING\r\n")
    scene.reply(b"AT\r")
    equal(path.exists(), False)


def goes_on_when_a_client_is_killed_in_mid_request(scene):
    scene.event("fault", "+CGMM=delay=500:1")
    with scene.tool_starts("at", "AT+CGMM") as client:
        end = time.monotonic() + SOON
        while not is_silent(later := scene.ask(b"AT+CGMR\r")) and time.monotonic() < end:
            later.close()
        client.kill()
    equal(client.returncode, -signal.SIGKILL)
    equal(reply_on(later), b"\r\n1.0.0\r\n\r\nOK\r\n")
    equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")


def drops_what_was_given_up_before_its_turn(scene):
    scene.event("fault", "+CGMM=delay=300:1")
    first, second = begin(scene, b"AT+CGMM\r")
    scene.ask(b"AT+CMEE=2\r").close()
    need(reply_on(first), b"OK")
    need(reply_on(second), b"+CSQ")
    need(scene.reply(b"AT+CMEE?\r"), b"+CMEE: 0")


def answers_right_after_a_silent_modem(scene):
    scene.event("fault", "+CGMI=silence:1")
    equal(scene.reply(b"AT+CGMI\r", 200), None)
    need(scene.tool("at", "AT+CSQ"), "+CSQ: 21,99")
    scene.event("fault", "+CGMI=half:1")
    equal(scene.reply(b"AT+CGMI\r", 200), None)
    equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")


def gives_no_late_reply_to_the_next_one(scene):
    for late in (300, 700):
        scene.event("fault", f"+CGMM=delay={late}:1")
        equal(scene.reply(b"AT+CGMM\r", 100), None)
        for _ in range(3):
            equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")


def leaves_a_prompt_that_a_command_brought(scene):
    equal(scene.reply(b"AT+CMGS=20\r"), None)
    equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")


def brings_words_back_after_a_client_took_them(scene):
    for text in (b"ATV0\r", b"ATQ1\r"):
        equal(scene.reply(text, 100), None)
        equal(scene.reply(b"AT+CSQ\r"), b"\r\n+CSQ: 21,99\r\n\r\nOK\r\n")


def serves_many_at_once_each_with_its_own(scene):
    clients = [scene.tool_starts("send", OWN, text) for text in ("one", LONG)]
    own = ((b"AT+CSQ\r", b"+CSQ: 21,99"), (b"AT+CGMR\r", b"1.0.0"), (b"AT+CBC\r", b"+CBC: 0,100"))
    asked = [(scene.ask(text), wanted) for _ in range(20) for text, wanted in own]
    for connection, wanted in asked:
        equal(reply_on(connection), b"\r\n" + wanted + b"\r\n\r\nOK\r\n")
    for client in clients:
        out, error = client.communicate(timeout=SOON)
        equal((client.returncode, error), (0, ""))
        need(out, "sent to")


def outlives_a_modem_that_hangs_up(scene):
    scene.event("fault", "+CGMR=drop=300:1")
    equal(scene.reply(b"AT+CGMR\r"), None)
    equal(scene.reply(b"AT+CGMR\r"), None)
    end = time.monotonic() + SOON
    while scene.reply(b"AT+CGMR\r") != b"\r\n1.0.0\r\n\r\nOK\r\n":
        if time.monotonic() > end:
            raise AssertionError("the modem is back and not found")
        time.sleep(0.05)


def is_the_only_one(scene):
    second = subprocess.run([scene.programs.modemd, "--device", scene.link], capture_output=True,
                            text=True, timeout=SOON, env=scene.environment, check=False)
    equal((second.returncode, second.stdout), (1, ""))
    need(second.stderr, f"already served by process {scene.manager.pid}")


def ends_on_sigterm_with_nothing_owed(scene):
    scene.event("fault", "+CGMM=delay=200:1")
    first, second = begin(scene, b"AT+CGMM\r")
    idle = scene.connect()
    scene.manager.terminate()
    equal(reply_on(first), b"\r\nsimulated modem\r\n\r\nOK\r\n")
    equal(reply_on(second), None)
    equal(record_on(idle), None)
    equal(scene.manager.wait(SOON), 0)
    left = [name for name in os.listdir(scene.runtime) if name.startswith(("dest-1", "transfer-"))]
    equal(left, ["dest-1.lock"])


STEPS = (shows_the_modem, sends_short_long_and_unicode_texts, lists_and_deletes_them,
         passes_a_delivery_report_to_a_listener, asks_by_ussd, keeps_contacts,
         gives_the_reply_exactly, takes_the_echo_away, answers_again_on_the_same_connection,
         keeps_a_long_reply_in_a_file, ends_a_reply_at_a_marker_or_after_the_wait,
         refuses_malformed_records,
         keeps_reports_out_of_replies, removes_what_a_dead_listener_left,
         goes_on_when_a_client_is_killed_in_mid_request, drops_what_was_given_up_before_its_turn,
         answers_right_after_a_silent_modem, gives_no_late_reply_to_the_next_one,
         leaves_a_prompt_that_a_command_brought, brings_words_back_after_a_client_took_them,
         serves_many_at_once_each_with_its_own, outlives_a_modem_that_hangs_up, is_the_only_one,
         ends_on_sigterm_with_nothing_owed)


if __name__ == "__main__":
    sys.exit(run_steps("manager", None, STEPS, ManagerScene, __doc__))
