#!/usr/bin/env python3
"""A modem manager in one file, written from docs/modem-manager.md, "Writing your own"; the numbers
in brackets are that chapter's points. One loop, no threads.

    examples/manager.py --device /dev/ttyUSB2
"""
import argparse
import collections
import contextlib
import fcntl
import functools
import os
import pathlib
import re
import selectors
import signal
import socket
import struct
import sys
import tempfile
import termios
import time
import tty
from collections.abc import Callable

NOTIFICATION, REQUEST, RESPONSE = 0, 1, 2
REPORT, RUN, SEND, STORE = 0x10400090, 0x1040008F, 0x104000AF, 0x104000B1
HEADER = struct.Struct("=4I")  # kind, message id, payload octets, session id
ANSWER = struct.Struct("=3I")  # result, 1 for the path of a file, octets of the reply
RECORD_MAX, LINE_MAX, REPLY_MAX, WAITING_MAX, CONNECTIONS_MAX = 1025, 4096, 262144, 256, 500
WAIT, WAIT_MAX, PROMPT_WAIT, MESSAGE_WAIT = 3.0, 19.0, 5.0, 34.0  # seconds, as all that follow
STEP_WAIT, QUIET, OPEN_AGAIN, KEEP_FILE = 1.0, 0.3, 0.5, 60.0
ESC, CTRL_Z = b"\x1b", b"\x1a"
FINAL = (b"OK", b"ERROR", b"+CMS ERROR:", b"+CME ERROR:")
# V.250, TS 27.007, TS 27.005 (3.4.1). What answers AT+CREG? has a second number, the report none.
REPORTS = re.compile(rb'(RING\b|\^[A-Z]+|\+(?:CMTI?|CBMI?|CDSI?|CUSD|CRING|CLIP|CCWA|CSSI|CSSU|CGEV'
                     rb'|CIEV|CTZV|CTZE)(?=:))|\+C[GE]?REG: *\d+\s*(?:$|,\s*")')
# A report that the next line belongs to. [5]
UNFINISHED = re.compile(rb'\+(?:CMT|CBM):[^\n]*\n|\+CDS: *,?\d+\s*\n'
                        rb'|\+CUSD: *\d+,"(?!.*"(?:,\d+)?\s*$).*', re.DOTALL)
Loop = selectors.BaseSelector


class Failed(Exception):
    """Why a request is not carried out."""


def log(text: str) -> None:
    print(text, file=sys.stderr, flush=True)


def turn(loop: Loop, seconds: float | None) -> None:
    for key, _ in loop.select(seconds):
        key.data()


def ends_reply(line: bytes, markers: tuple[bytes, ...]) -> bool:
    text = line.rstrip()
    return any(text == marker if marker in (b"OK", b"ERROR") else text.startswith(marker)
               for marker in markers)


class Modem:
    """The tty: replies to those who ask [4], what the modem says by itself to `tell` [5]."""

    def __init__(self, device: str, loop: Loop, tell: Callable[[bytes], None]) -> None:
        self.device, self.loop, self.tell = device, loop, tell
        self.fd = -1
        self.rest = self.blank = self.report = b""  # as far as they came: a line, "\r\n", a report
        self.written = self.command = self.reply = b""
        self.markers: tuple[bytes, ...] | None = None  # None: lines are no part of a reply
        self.owed = 0  # final results

    def open(self) -> None:
        """Opens the tty if it is not, and makes sure that the modem owes nothing. [4]"""
        try:
            if self.fd < 0:
                self.fd = self.open_tty()
                self.loop.register(self.fd, selectors.EVENT_READ, self.read)
                self.rest = self.report = b""
                self.owed = 1  # perhaps: to whoever had the tty before
        except (OSError, termios.error) as error:
            raise Failed(f"{self.device}: {error}") from error
        if self.wait(lambda: self.owed == 0, QUIET):
            return
        for escape in (b"", ESC + b"\r"):
            self.write(escape + b"ATE0Q0V1\r", None)
            owed = self.owed
            if self.wait(lambda: self.owed < owed, STEP_WAIT):
                # Either it was late and another one follows, or an earlier command has none.
                self.wait(lambda: self.owed == 0, QUIET)
                self.owed = 0
                return
        raise Failed("the modem does not answer")

    def open_tty(self) -> int:
        fd = os.open(self.device, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        try:
            fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
            tty.setraw(fd)
            mode = termios.tcgetattr(fd)
            mode[tty.CFLAG] |= termios.CLOCAL
            termios.tcsetattr(fd, termios.TCSANOW, mode)
        except (OSError, termios.error):
            os.close(fd)
            raise
        return fd

    def read(self) -> None:
        try:
            octets = os.read(self.fd, LINE_MAX)
        except BlockingIOError:
            return
        except OSError:
            octets = b""
        if not octets:
            log(f"{self.device} is lost")
            self.loop.unregister(self.fd)
            os.close(self.fd)
            self.fd = -1
        *lines, self.rest = (self.rest + octets.replace(b"\0", b"")).split(b"\n")
        for line in lines:
            self.take(line + b"\n")
        if len(self.rest) > LINE_MAX:
            self.rest = b""

    def take(self, line: bytes) -> None:
        if self.written and line.startswith(self.written):  # the echo
            line, self.written = line.removeprefix(self.written).lstrip(CTRL_Z), b""
        final = self.owed > 0 and ends_reply(line, FINAL)
        if self.report and not final or self.is_report(line):
            self.report += line
            self.blank = b""
            if not UNFINISHED.fullmatch(self.report) or len(self.report) > LINE_MAX:
                self.tell(self.report)
                self.report = b""
        elif not line.strip():
            self.blank = line
        else:  # of a reply, or too late for it
            if self.markers is not None:
                self.reply += self.blank + line
                if ends_reply(line, self.markers + FINAL[1:]):
                    self.markers = None
            self.report = self.blank = b""
            self.owed -= final
            self.written = b""

    def is_report(self, line: bytes) -> bool:
        if self.owed == 0 and self.markers is None:
            return line.strip() != b""
        known = REPORTS.match(line)
        asked = known and known[1] and re.search(re.escape(known[1]) + rb"(=?\?|;|$)", self.command)
        return known is not None and not asked

    def wait(self, done: Callable[[], bool], seconds: float) -> bool:
        """Lets the loop turn until it is done; false when the time passed first."""
        end = time.monotonic() + seconds
        while not done():
            left = end - time.monotonic()
            if left <= 0:
                return False
            turn(self.loop, left)
            if self.fd < 0:
                raise Failed("the modem went away")
            if len(self.reply) > REPLY_MAX:
                raise Failed(f"a reply of more than {REPLY_MAX} octets")
        return True

    def write(self, text: bytes, markers: tuple[bytes, ...] | None) -> None:
        self.written, self.command = text.rstrip(CTRL_Z), re.sub(rb"\s", b"", text.upper())
        self.markers, self.reply, self.blank = markers, b"", b""
        self.owed += text.endswith(b"\r")
        try:
            count = os.write(self.fd, text)
        except OSError:
            count = 0
        if count < len(text):
            raise Failed("the modem takes nothing")

    def ask(self, text: bytes, markers: tuple[bytes, ...], seconds: float) -> bool:
        """True: answered. False: a prompt, or the time passed."""
        self.write(text, markers)
        self.wait(lambda: self.markers is None or self.rest == b"> ", seconds)
        return self.markers is None

    def take_prompt(self) -> bool:
        prompt, self.rest = self.rest == b"> ", self.rest.removeprefix(b"> ")
        return prompt

    def run(self, text: bytes, markers: tuple[bytes, ...], seconds: float) -> bytes:
        answered = self.ask(text, markers, seconds)
        if self.take_prompt():
            self.write(ESC, None)
            raise Failed("only a message can answer a prompt")
        if not answered and markers:
            raise Failed(f"no final result in {seconds} s")
        return self.reply

    def message(self, order: bytes, pdu: bytes) -> bytes:
        end = time.monotonic() + MESSAGE_WAIT
        if not self.run(b"AT+CMGF=0\r", FINAL, WAIT).endswith(b"OK\r\n"):
            return self.reply
        if self.ask(order, FINAL, PROMPT_WAIT):
            return self.reply
        if not self.take_prompt():
            self.write(ESC, None)
            raise Failed("no prompt")
        if not self.ask(pdu + CTRL_Z, FINAL, end - time.monotonic()):
            raise Failed("no final result: the message may have gone out")
        return self.reply


Job = Callable[[Modem], bytes]
Answer = Callable[[bytes], None]


def need(holds: bool, else_text: str) -> None:
    if not holds:
        raise Failed(else_text)


def take_text(record: bytes, at: int) -> bytes:
    """The text that a record ends with; its first word is the length. [2]"""
    need(at < len(record) <= RECORD_MAX, f"a record of {len(record)} octets")
    length, = struct.unpack_from("=I", record)
    need(at + length + 1 == len(record) and record[-1] == 0, f"{length} is not the text's length")
    return record[at:-1]


def parse_command(record: bytes) -> Job:
    text = take_text(record, 96)
    _, _, milliseconds, count = struct.unpack_from("=4I", record)
    need(count <= 5, f"{count} markers, at most 5 fit")
    need(re.fullmatch(rb"[^\0-\x1f\x7f]*\r", text) is not None, "the command is no line with \\r")
    slots = [record[16 + 16 * i:32 + 16 * i] for i in range(count)]
    need(all(slot.find(b"\0") > 0 for slot in slots), "a marker is empty or without its zero")
    markers = tuple(slot.split(b"\0")[0] for slot in slots)
    seconds = min(milliseconds / 1000 or WAIT, WAIT_MAX)
    return lambda modem: modem.run(text, markers, seconds)


def parse_message(record: bytes, at: int) -> Job:
    text = take_text(record, at)
    need(re.fullmatch(rb"([0-9A-Fa-f]{2})+", text) is not None, "no row of hexadecimal pairs")
    octets = len(text) // 2 - 1 - int(text[:2], 16)
    need(octets > 0, "the PDU ends in its service-centre part")
    if at == 4:
        return lambda modem: modem.message(b"AT+CMGS=%d\r" % octets, text)
    status, = struct.unpack_from("=I", record, 4)
    need(status in (0, 2, 3), f"status {status}, not 0, 2 or 3")
    order = b"AT+CMGW=%d,%d\r" % (octets, status) if status else b"AT+CMGW=%d\r" % octets
    return lambda modem: modem.message(order, text)


def parse(message_id: int, record: bytes) -> Job:
    need(message_id in (RUN, SEND, STORE), f"{message_id:#x} is no request of a modem manager")
    if message_id == RUN:
        return parse_command(record)
    return parse_message(record, 4 if message_id == SEND else 8)


class Manager:
    """Destination 1 [1]: takes requests, lets the modem carry them out in turn, answers [3]."""

    def __init__(self, folder: pathlib.Path, device: str) -> None:
        self.folder, self.loop = folder, selectors.DefaultSelector()
        self.modem = Modem(device, self.loop, self.tell)
        self.waiting: collections.deque[tuple[socket.socket, Answer, Job]] = collections.deque()
        self.files: collections.deque[tuple[float, pathlib.Path]] = collections.deque()
        self.stopping = False
        self.lock = open(folder / "dest-1.lock", "a+", encoding="ascii")
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            self.lock.seek(0)
            sys.exit(f"destination 1 is already served by process {self.lock.read().strip()}")
        self.lock.truncate(0)
        print(os.getpid(), file=self.lock, flush=True)
        for left in (folder / "dest-1", *folder.glob("transfer-*")):
            left.unlink(missing_ok=True)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.socket.bind(str(folder / "dest-1"))
        self.socket.listen(128)
        self.socket.setblocking(False)
        self.loop.register(self.socket, selectors.EVENT_READ, self.accept)

    def accept(self) -> None:
        try:
            connection, _ = self.socket.accept()
        except OSError:
            return
        connection.setblocking(False)
        receive = functools.partial(self.receive, connection)
        self.loop.register(connection, selectors.EVENT_READ, receive)
        if len(self.loop.get_map()) > CONNECTIONS_MAX:
            self.close(connection)

    def close(self, connection: socket.socket) -> None:
        """Who hung up asks for nothing any more; who is cut off fails at once. [1]"""
        self.loop.unregister(connection)
        connection.close()
        self.waiting = collections.deque(one for one in self.waiting if one[0] is not connection)

    def receive(self, connection: socket.socket) -> None:
        try:
            packet = connection.recv(HEADER.size + RECORD_MAX + 1)
        except OSError:
            packet = b""
        header, record = packet[:HEADER.size].ljust(HEADER.size, b"\0"), packet[HEADER.size:]
        kind, message_id, size, session_id = HEADER.unpack(header)
        if (kind, size) != (REQUEST, len(record)) or len(self.waiting) == WAITING_MAX:
            return self.close(connection)
        answer = functools.partial(self.answer, connection, message_id, session_id)
        try:
            self.waiting.append((connection, answer, parse(message_id, record)))
        except Failed as failure:
            self.refuse(answer, failure)

    def answer(self, connection: socket.socket, request: int, session: int, record: bytes) -> None:
        try:
            connection.send(HEADER.pack(RESPONSE, request, len(record), session) + record)
        except OSError:
            log("an answer nobody waits for")

    def refuse(self, answer: Answer, failure: Failed) -> None:
        log(f"refused: {failure}")
        answer(ANSWER.pack(1, 0, 0))

    def carry_out(self, answer: Answer, job: Job) -> None:
        try:
            self.modem.open()
            answer(self.answer_record(job(self.modem)))
        except Failed as failure:
            self.refuse(answer, failure)
        self.modem.markers = None

    def answer_record(self, reply: bytes) -> bytes:
        if ANSWER.size + len(reply) <= RECORD_MAX:
            return ANSWER.pack(0, 0, len(reply)) + reply
        try:
            fd, path = tempfile.mkstemp(prefix="transfer-", dir=self.folder)
            self.files.append((time.monotonic() + KEEP_FILE, pathlib.Path(path)))
            with open(fd, "wb") as file:
                file.write(reply)
        except OSError as error:
            raise Failed(str(error)) from error
        return ANSWER.pack(0, 1, 0) + os.fsencode(path) + b"\0"

    def tell(self, report: bytes) -> None:
        packet = HEADER.pack(NOTIFICATION, REPORT, len(report), 0) + report
        for path in self.folder.glob(f"notify-{REPORT:x}-*"):
            with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as listener:
                listener.setblocking(False)
                try:
                    listener.connect(str(path))
                    listener.send(packet)
                except ConnectionRefusedError:
                    path.unlink(missing_ok=True)
                except OSError as error:
                    log(f"{path}: {error}")

    def remove_files(self, until: float) -> None:
        while self.files and self.files[0][0] <= until:
            self.files.popleft()[1].unlink(missing_ok=True)

    def stop(self) -> None:
        self.stopping = True

    def serve(self) -> None:
        while not self.stopping:
            if self.modem.fd < 0:
                with contextlib.suppress(Failed):  # who asks is told
                    self.modem.open()
            turn(self.loop, self.pause())
            turn(self.loop, 0)  # who has given up is seen before his turn
            if self.waiting and not self.stopping:
                _, answer, job = self.waiting.popleft()
                self.carry_out(answer, job)
            self.remove_files(time.monotonic())
        self.remove_files(float("inf"))
        (self.folder / "dest-1").unlink()

    def pause(self) -> float | None:
        if self.waiting or self.stopping:
            return 0
        if self.modem.fd < 0:
            return OPEN_AGAIN
        return max(0, self.files[0][0] - time.monotonic()) if self.files else None


def runtime_directory() -> pathlib.Path:
    """Where the sockets are, for us alone. [1]"""
    folder = os.environ.get("SMSPB_RUNTIME_DIR")
    if not folder:
        base = "/run" if os.geteuid() == 0 else os.environ.get("XDG_RUNTIME_DIR")
        if not base:
            sys.exit("neither SMSPB_RUNTIME_DIR nor XDG_RUNTIME_DIR is set")
        folder = base + "/smspb"
    os.makedirs(folder, exist_ok=True)
    os.chmod(folder, 0o700)
    return pathlib.Path(folder)


def main() -> None:
    parser = argparse.ArgumentParser(description="A modem manager in one file.")
    parser.add_argument("--device", metavar="TTY", required=True, help="the modem's AT port")
    options = parser.parse_args()
    os.umask(0o077)
    try:
        manager = Manager(runtime_directory(), options.device)
    except OSError as error:
        sys.exit(f"cannot serve destination 1: {error}")
    awake, alarm = socket.socketpair()
    alarm.setblocking(False)
    signal.set_wakeup_fd(alarm.fileno())
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(number, lambda *_: None)
    manager.loop.register(awake, selectors.EVENT_READ, manager.stop)
    print("ready", flush=True)
    manager.serve()


if __name__ == "__main__":
    main()
