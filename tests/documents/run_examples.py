#!/usr/bin/env python3
"""Runs the examples of a document and compares what they print with what the document shows.

    run_examples.py DOCUMENT --programs FOLDER... [--report FILE]

Two kinds of fenced block are examples, each in an empty folder and a runtime directory of its own:

console  a shell session. "$ " begins a command, which goes on where a line ends in a backslash; the
         lines behind it are what it prints, on standard output and error. A command that ends in "&"
         is left running until the block ends, and must print its lines within five seconds.
at ...   a conversation with the simulated modem, started with the options behind "at". "> " begins
         what the terminal sends, with "<Ctrl-Z>" or "<ESC>" as it stands, or else a line's end behind
         it. The other lines are the modem's; its echo, prompts and empty lines are left out.

In what is shown, "..." stands for any characters of the line, alone on a line for any lines. Each
example is told as a test; exit status 0 when all pass."""
import argparse
import json
import os
import pathlib
import re
import select
import shlex
import signal
import subprocess
import sys
import tempfile
import termios
import time
import tty

PATIENCE = 5.0  # seconds for what must come
QUIET = 0.05    # seconds without a character: nothing more comes

CONTROLS = {"<Ctrl-Z>": "\x1a", "<ESC>": "\x1b"}

FENCE = re.compile(r"^```(console|at)([^\n]*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


class Example:
    def __init__(self, document, match):
        self.kind, self.options, self.body = match.groups()
        self.line = document.count("\n", 0, match.start()) + 1

    def steps(self):
        """What is entered, and the lines that are shown behind it."""
        prompt = "$ " if self.kind == "console" else "> "
        steps = []
        lines = iter(self.body.splitlines())
        for line in lines:
            if line.startswith(prompt):
                entered = line.removeprefix(prompt)
                while entered.endswith("\\"):
                    entered = entered[:-1] + next(lines).strip()
                steps.append((entered, []))
            elif steps:
                steps[-1][1].append(line)
            elif line:
                steps.append((None, [line]))
        return steps


def pattern(shown):
    """The lines shown as a regular expression for the whole text."""
    out = ""
    for line in shown:
        if line == "...":
            out += r"(?:.*\n)*?"
        else:
            out += r"[^\n]*".join(re.escape(part) for part in line.split("...")) + r"\n"
    return re.compile(out)


def compare(entered, shown, printed):
    if not pattern(shown).fullmatch(printed):
        raise AssertionError(f"{entered}\nshould print\n{chr(10).join(shown)}\nand prints\n{printed}")


class Reader:
    """What comes from a descriptor, as text."""

    def __init__(self, descriptor):
        self.descriptor = descriptor
        self.text = ""

    def some(self, wait):
        """False when nothing came in that time, or the other end is gone."""
        if not select.select([self.descriptor], [], [], wait)[0]:
            return False
        try:
            octets = os.read(self.descriptor, 65536)
        except OSError:
            return False
        self.text += octets.decode(errors="replace")
        return bool(octets)

    def until(self, is_enough, quiet=QUIET):
        """All that comes until it is enough, and what follows it without a pause."""
        deadline = time.monotonic() + PATIENCE
        while not is_enough(self.text) and time.monotonic() < deadline:
            self.some(deadline - time.monotonic())
        while self.some(quiet):
            pass
        text, self.text = self.text, ""
        return text


class Shell:
    """A shell in a folder of its own; what is left running ends with it."""

    END = "end-of-command"

    def __init__(self, folder, programs):
        environment = dict(os.environ, LC_ALL="C.UTF-8", SMSPB_RUNTIME_DIR=str(folder / "run"),
                           PATH=":".join([*map(str, programs), os.environ["PATH"]]))
        self.process = subprocess.Popen(["bash", "--norc"], cwd=folder, env=environment,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, start_new_session=True)
        self.reader = Reader(self.process.stdout.fileno())

    def enter(self, text):
        self.process.stdin.write(text.encode() + b"\n")
        self.process.stdin.flush()

    def run(self, command, shown):
        if command.endswith("&"):
            self.enter(command)
            expected = pattern(shown)
            return self.reader.until(lambda text: bool(shown) and expected.fullmatch(text))
        self.enter(f"{command}\necho {self.END}")
        end = f"{self.END}\n"
        return self.reader.until(lambda text: text.endswith(end), quiet=0).replace(end, "")

    def close(self):
        os.killpg(self.process.pid, signal.SIGTERM)
        self.process.communicate(timeout=PATIENCE * 2)


class Terminal:
    """A simulated modem and our end of its line."""

    def __init__(self, folder, programs, options):
        program = next(p / "smspb-simmodem" for p in programs if (p / "smspb-simmodem").exists())
        self.process = subprocess.Popen(
            [program, "--link", str(folder / "modem"), *shlex.split(options)],
            stdout=subprocess.PIPE, text=True, cwd=folder)
        line = self.process.stdout.readline()
        if not line.startswith("ready"):
            raise AssertionError(f"the modem does not get ready: {line!r}")
        self.descriptor = os.open(folder / "modem", os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.descriptor, termios.TCSANOW)
        self.reader = Reader(self.descriptor)

    def run(self, entered, shown):
        if entered is not None:
            self.send(entered)
        expected = pattern(shown)
        text = self.reader.until(lambda text: expected.fullmatch(self.tidied(text, entered)))
        return self.tidied(text, entered)

    def send(self, entered):
        text = entered
        for written, character in CONTROLS.items():
            text = text.replace(written, character)
        os.write(self.descriptor, (text if text != entered else text + "\r").encode())

    @staticmethod
    def tidied(text, entered):
        lines = [line for line in re.split(r"[\r\n]+", text) if line.strip("\x1a\x1b ")]
        if lines and lines[0] == entered:
            lines = lines[1:]
        return "".join(line + "\n" for line in lines if line != "> ")

    def close(self):
        os.close(self.descriptor)
        self.process.terminate()
        self.process.wait(PATIENCE)
        self.process.stdout.close()


def run(example, programs):
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        scene = (Shell(folder, programs) if example.kind == "console"
                 else Terminal(folder, programs, example.options))
        try:
            for entered, shown in example.steps():
                compare(entered, shown, scene.run(entered, shown))
        finally:
            scene.close()


def report(path, suite, results):
    cases = [{"name": name, "result": "COMPLETED",
              **({"failures": [{"failure": failure}]} if failure else {})}
             for name, failure in results]
    failures = sum(failure is not None for _, failure in results)
    pathlib.Path(path).write_text(json.dumps({
        "tests": len(results), "failures": failures,
        "testsuites": [{"name": suite, "testsuite": cases}]}), encoding="utf-8")


def main():
    arguments = argparse.ArgumentParser(description=__doc__,
                                        formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("document", type=pathlib.Path)
    arguments.add_argument("--programs", type=pathlib.Path, nargs="+", required=True)
    arguments.add_argument("--report")
    given = arguments.parse_args()
    document = given.document.read_text(encoding="utf-8")
    examples = [Example(document, match) for match in FENCE.finditer(document)]
    results = []
    for example in examples:
        name = f"{given.document.name}:{example.line}"
        failure = None
        try:
            run(example, [path.absolute() for path in given.programs])
        except (AssertionError, OSError, subprocess.SubprocessError) as error:
            failure = str(error)
        print(f"{'FAILED' if failure else 'ok'}  {name}" + (f"\n{failure}" if failure else ""))
        results.append((name, failure))
    if given.report:
        report(given.report, given.document.stem, results)
    if not examples:
        print(f"{given.document} has no examples", file=sys.stderr)
    return 0 if examples and all(failure is None for _, failure in results) else 1


if __name__ == "__main__":
    sys.exit(main())
