"""What the tests of other programs on the simulated modem share: the modem, the processes, the steps
told as tests, and the report."""
import argparse
import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile

OWN = "+15550001000"
SKIPPED = 77  # exit status: the program is not installed


class Scene:
    """A folder with the simulated modem; the program to try finds its terminal at `link`."""

    def __init__(self, programs, folder):
        self.programs = programs
        self.folder = pathlib.Path(folder)
        self.link = self.folder / "modem"
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

    def event(self, *words):
        return self.run(self.programs.simmodem, "ctl", "--link", str(self.link), *words)

    def run(self, *words, text=None):
        """What the program printed, given `text` on its standard input."""
        done = subprocess.run(words, input=text or "", stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=60,
                              env=self.environment, cwd=self.folder, check=False)
        if done.returncode != 0:
            raise AssertionError(f"{' '.join(words[:4])} ended with {done.returncode}:\n"
                                 f"{done.stdout}")
        return done.stdout

    def trace(self):
        """What the program noted of its conversation, for a step that fails."""
        return ""


def need(text, *parts):
    for part in parts:
        if part not in text:
            raise AssertionError(f"{part!r} is not in\n{text}")


def play(scene, steps):
    """The failures, by step."""
    failures = {}
    for step in steps:
        name = step.__name__.replace("_", " ")
        try:
            step(scene)
            print(f"ok      {name}", flush=True)
        except (AssertionError, OSError, subprocess.TimeoutExpired) as failure:
            failures[step.__name__] = str(failure)
            print(f"FAILED  {name}\n{failure}", flush=True)
    return failures


def write_report(path, name, steps, failures):
    """As a GoogleTest report, for whoever adds tests up."""
    cases = []
    for step in steps:
        why = failures.get(step.__name__)
        cases.append({"name": step.__name__, "result": "COMPLETED"}
                     | ({"failures": [{"failure": why}]} if why else {}))
    report = {"tests": len(cases), "failures": len(failures), "errors": 0,
              "testsuites": [{"name": name, "testsuite": cases}]}
    pathlib.Path(path).write_text(json.dumps(report, indent=1), encoding="utf-8")


def run_steps(client, package, steps, scene_type, description):
    """The exit status of a test of the program `client` from Debian's `package`, or of our own."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--simmodem", type=os.path.abspath, required=True)
    parser.add_argument("--modemd", type=os.path.abspath)
    parser.add_argument("--tool", type=os.path.abspath)
    parser.add_argument("--report")
    programs = parser.parse_args()
    if package is not None and shutil.which(client) is None:
        print(f"{client} is not installed (Debian package {package})")
        return SKIPPED
    with tempfile.TemporaryDirectory(prefix=f"smspb-{client}-") as folder:
        scene = scene_type(programs, folder)
        with scene.modem():
            failures = play(scene, steps)
        if failures:
            print(scene.trace()[-20000:])
    if programs.report:
        write_report(programs.report, client, steps, failures)
    return 1 if failures else 0
