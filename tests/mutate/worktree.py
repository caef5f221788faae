# SPDX-License-Identifier: Apache-2.0
"""The copy of the sources that faults are put into, its build, and its test programs."""

import dataclasses
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import schemata

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
WORK = ROOT / "build" / "mutate"
TREE, BUILD = WORK / "tree", WORK / "build"

FOLDERS = ["keyring", "keymodel", "logmsg", "syslog"]
# The tests that look at each source, those that are likeliest to notice first, by how its name
# begins.
TESTS = {
    "keyring": [
        "texts/vestrel-texts-test",
        "keyring/vestrel-keyring-test",
        "faults/vestrel-faults-test",
        "faults/vestrel-allocation-test",
    ],
    "keymodel/Ber": ["keymodel/vestrel-certificate-test", "diagnosis/vestrel-diagnosis-test"],
    "keymodel/Certificate": [
        "keymodel/vestrel-certificate-test",
        "keymodel/vestrel-keymodel-test",
        "diagnosis/vestrel-diagnosis-test",
    ],
    "keymodel": ["keymodel/vestrel-keymodel-test", "keyring/vestrel-keyring-test"],
    "logmsg": [
        "logmsg/vestrel-logmsg-test",
        "syslog/vestrel-syslog-test",
        "keyring/vestrel-keyring-test",
    ],
    "syslog": [
        "syslog/vestrel-appraisal-test",
        "syslog/vestrel-syslog-test",
        "texts/vestrel-texts-test",
        "faults/vestrel-allocation-test",
    ],
}
# They read the sources as text or the symbols of the library, of which the copy has more than there
# are: a call whose arguments are exchanged is a call of another kind.
NOT_RUN = (
    "LogSection.IsRaisedFromByTwoKindsOfCalls"
    ":Texts.OfEveryStatementOfTheSourcesAreInTheTableOnce"
    ":Texts.OfLogMessagesAreRaisedAsTheirRecordsSay"
)
BYTES_EACH = 4 << 30
# A processor's seconds for one test program: so many times what it takes, and so many more.
TIMES, MORE = 4, 4
SECONDS_WAITING = 90
# The standard library, read once for all: it takes most of a compilation.
PREFIX = "algorithm array filesystem fstream functional map memory optional regex set span sstream"


def run(command, **options):
    return subprocess.run(command, check=False, capture_output=True, text=True, **options)


def must(command, **options):
    result = run(command, **options)
    if result.returncode != 0:
        sys.exit(f"mutate: {' '.join(map(str, command))} failed:\n{result.stdout}{result.stderr}")


def limits_set():
    """For all that is started from here."""
    resource.setrlimit(resource.RLIMIT_AS, (BYTES_EACH, BYTES_EACH))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def write(name, text):
    """What is the same keeps its time, so that little is rebuilt."""
    copy = TREE / name
    if not copy.exists() or copy.read_text() != text:
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_text(text)


def copy_tree(woven):
    """Brings the copy up to date; files of `woven` that it has are left to their writer."""
    names = run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT).stdout.splitlines()
    for name in names:
        source, copy = ROOT / name, TREE / name
        if not source.exists() or (name in woven and copy.exists()):
            continue
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    write(schemata.HEADER, schemata.HEADER_TEXT)


def configure():
    WORK.mkdir(parents=True, exist_ok=True)
    prefix = WORK / "prefix.h"
    common = ["-O0", "-w", "-Wpedantic", "-std=c++20", "-fPIC", "-fvisibility=hidden"]
    common += ["-fvisibility-inlines-hidden", "-fstack-protector-strong"]
    if not prefix.exists():
        prefix.write_text("".join(f"#include <{name}>\n" for name in PREFIX.split()))
        must(["g++", *common, "-x", "c++-header", prefix, "-o", f"{prefix}.gch"])
    must(
        ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None"]
        + [f"-DCMAKE_CXX_FLAGS=-O0 -w -include {prefix}", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
    )


def tests_of(name):
    return next(tests for start, tests in TESTS.items() if name.startswith(start))


def targets(tests):
    return sorted({pathlib.PurePath(test).name for test in tests})


def build(wanted):
    """What the build says where it fails, otherwise nothing."""
    result = run(["ninja", "-C", BUILD, "-k", "0", "-j", str(os.cpu_count()), *wanted])
    return result.stdout + result.stderr if result.returncode != 0 else ""


@dataclasses.dataclass(frozen=True)
class Outcome:
    passed: bool
    test: str  # the first that failed, or that ran when the program ended
    seconds: float  # of a processor


def test_that_failed(output):
    """From the output of GoogleTest."""
    running = "?"
    for line in output.splitlines():
        if line.startswith("[ RUN      ] "):
            running = line[13:]
        elif line.startswith("[  FAILED  ] "):
            return line[13:].split(" ")[0].rstrip(",")
    return running


class Programs:
    """Runs test programs, in directories in memory where there are such."""

    def __init__(self):
        shared = pathlib.Path("/dev/shm")
        self.base = tempfile.mkdtemp(prefix="mutate-", dir=shared if shared.is_dir() else None)
        self.usual = {}

    def end(self):
        shutil.rmtree(self.base, ignore_errors=True)

    def run(self, test, number=0, names=None):
        """Runs all tests of the program, or those of the names, with one of the woven faults."""
        directory = tempfile.mkdtemp(dir=self.base)
        chosen = ":".join(names) if names else f"-{NOT_RUN}"
        seconds = int(self.usual.get(test, 60) * TIMES + MORE)
        command = ["prlimit", f"--cpu={seconds}", "--", BUILD / "tests" / test]
        command += ["--gtest_fail_fast", f"--gtest_filter={chosen}"]
        environment = {**os.environ, "TMPDIR": directory, schemata.ENVIRONMENT: str(number)}
        output = pathlib.Path(directory, "output")
        try:
            with output.open("w") as stream:
                passed, spent = ended(command, environment, stream)
            text = "" if passed else output.read_text(errors="replace")
            return Outcome(passed, test_that_failed(text), spent)
        finally:
            shutil.rmtree(directory, ignore_errors=True)

    def usual_is(self, test):
        outcome = self.run(test)
        if not outcome.passed:
            sys.exit(f"mutate: {test} fails without any fault: {outcome.test}")
        self.usual[test] = outcome.seconds


def progress(pid):
    """The state of a process and its ticks of a processor: one that gets none still wants them."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return fields[0], fields[11:15]


def ended(command, environment, stream):
    """Whether the program passes, and its seconds; one that waits for ever does not."""
    process = subprocess.Popen(
        command, env=environment, stdin=subprocess.DEVNULL, stdout=stream, stderr=stream,
        start_new_session=True,
    )
    flags = os.WEXITED | os.WNOWAIT | os.WNOHANG
    deadline, before = time.monotonic() + SECONDS_WAITING, None
    while not os.waitid(os.P_PID, process.pid, flags) and time.monotonic() < deadline:
        time.sleep(0.02)
        if (now := progress(process.pid)) != before or now[0] != "S":
            deadline, before = time.monotonic() + SECONDS_WAITING, now
    # What the test program may have left running is ended with it: its own session, nobody else's.
    os.killpg(process.pid, signal.SIGKILL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    return process.returncode == 0, usage.ru_utime + usage.ru_stime
