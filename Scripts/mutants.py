#!/usr/bin/env python3
"""Do the tests notice? Puts small faults into copies of the product, one at a time, and runs the tests.

    Scripts/mutants.py [--lanes N] [--check | --list] [NAME...]

NAME is the whole name of a fault or of a room (a file of Tests/Mutants), or a regular expression that is found in
"room/fault"; without names all are tried. --list prints them, --check only tells which no longer apply: both build
nothing. --lanes says how many faults are tried at a time (2).

The list is data: Tests/Mutants/ROOM.toml, each with tables like this:

    [[fault]]
    name = "what-the-fault-is"
    file = "Updater/Run/OnlineCheck.cpp"
    old = "== 1;"          # occurs exactly once in the file: as little of it as tells the place
    new = "== 0;"
    tests = ["Updater.Run", "Run.*"] # CTest's names, or regular expressions of whole names, in the order of trying
    often = true           # false: it hits what seldom happens
    accepted = "why"       # only of a fault that the tests needn't notice

Each lane is a copy of the working tree in build/mutants/N, with a build folder and Wine prefixes of its own: the
developer's tree is never changed. It stays for the next run, which builds only what has changed since. The tests
run without any fault first, and all must pass.

The table of a whole run is written to out/mutants.md, that of a chosen few to out/mutants-chosen.md; what a test said
is in build/mutants/N/said. Exit code 0: every fault was noticed or is accepted; 1: one was not, doesn't build or no
longer applies; 2: the tests don't pass as it is.
"""
from __future__ import annotations

import argparse
import json
import os
import queue
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
import tomllib
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LISTS = ROOT / "Tests" / "Mutants"
LANES = ROOT / "build" / "mutants"
PRESET = "x86-release"
PREFIXES = ("wine-x86", "wine-x86-run")

# A test that takes this much longer than without a fault hangs, which is one way to notice. Never over five minutes.
SLOWER = 4
SLACK_SECONDS = 45
MOST_SECONDS = 300
BUILD_SECONDS = 1800

NOTICED, UNNOTICED, ACCEPTED = "noticed", "NOT NOTICED", "accepted"
NO_LONGER, NO_BUILD = "NO LONGER APPLIES", "DOESN'T BUILD"


@dataclass(frozen=True)
class Fault:
    room: str
    name: str
    file: str
    old: str
    new: str
    tests: tuple[str, ...]
    often: bool
    accepted: str

    @property
    def full_name(self) -> str:
        return f"{self.room}/{self.name}"


@dataclass(frozen=True)
class Outcome:
    fault: Fault
    kind: str
    by: str  # what noticed it, or what is wrong with the fault
    seconds: float


@dataclass(frozen=True)
class Test:
    target: str  # builds its program
    prefix: str  # the Wine prefix it runs in


@dataclass(frozen=True)
class TestRun:
    passed: bool
    said: str  # where the first check failed, or how else it ended
    seconds: float


class Broken(Exception):
    """The run can't go on; the text says why."""


# --- the list

def read_faults() -> list[Fault]:
    faults: list[Fault] = []
    known = {"name", "file", "old", "new", "tests", "often", "accepted"}
    for path in sorted(LISTS.glob("*.toml")):
        for table in tomllib.loads(path.read_text())["fault"]:
            if not known - {"accepted"} <= table.keys() <= known:
                raise Broken(f"{path.name}: {table.get('name')}: missing or unknown keys {known ^ table.keys()}")
            tests = tuple(table.pop("tests"))
            faults.append(Fault(room=path.stem, tests=tests, accepted=table.pop("accepted", ""), **table))
    names = [fault.full_name for fault in faults]
    if doubles := {name for name in names if names.count(name) > 1}:
        raise Broken(f"two faults of one name: {', '.join(sorted(doubles))}")
    return faults


def choose(faults: list[Fault], names: list[str]) -> list[Fault]:
    def is_meant(fault: Fault) -> bool:
        whole = {fault.name, fault.room, fault.full_name}
        return any(name in whole or re.search(name, fault.full_name) for name in names)

    chosen = [fault for fault in faults if is_meant(fault)] if names else faults
    if not chosen:
        raise Broken("no fault has such a name")
    return chosen


def times_found(fault: Fault, tree: Path) -> int:
    path = tree / fault.file
    return path.read_text().count(fault.old) if path.exists() else 0


# --- one lane

class Lane:
    """A copy of the working tree, what is built from it, and the Wine prefixes of its tests."""

    def __init__(self, number: int) -> None:
        self.folder = LANES / str(number)
        self.build_folder = self.folder / "build" / PRESET
        self.said_folder = self.folder / "said"
        self.started: set[int] = set()

    def prepare(self) -> None:
        self.folder.mkdir(parents=True, exist_ok=True)
        self.stop_wine(PREFIXES)  # of a run that was broken off
        copy_tree(self.folder)
        (self.folder / "build").mkdir(exist_ok=True)
        # The other architecture's elevation service serves a test, where it was built.
        for name in ("wine32", "wine-signals.so", "x64-release"):
            link = self.folder / "build" / name
            if not link.is_symlink():
                link.symlink_to(ROOT / "build" / name)
        shutil.rmtree(self.said_folder, ignore_errors=True)
        self.said_folder.mkdir()
        self.make_prefixes(PREFIXES)
        self.run(["cmake", "--preset", PRESET], BUILD_SECONDS, "configure")

    def make_prefixes(self, names: Sequence[str]) -> None:
        """New ones: what a test left in a registry or a folder when a fault ended it is gone."""
        self.stop_wine(names)
        for name in names:
            clone_prefix(ROOT / "build" / name, self.folder / "build" / name)
        self.in_prefixes(names, "wineserver -p && wine wineboot")

    def stop_wine(self, names: Sequence[str]) -> None:
        self.in_prefixes(names, "wineserver -k; wineserver -w")

    def in_prefixes(self, names: Sequence[str], command: str) -> None:
        script = f'. "{self.folder}/Scripts/wine-env.sh" && {{ {command}; }}'
        for name in names:
            prefix = self.folder / "build" / name
            if prefix.exists():
                subprocess.run(["bash", "-c", script], env={**os.environ, "WINEPREFIX": str(prefix)}, check=False,
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def run(self, command: list[str], limit: float, log: str) -> int | None:
        """The exit code; none when the limit has passed. The command is a process group, and ends as one."""
        with open(self.said_folder / f"{log}.txt", "wb") as said:
            process = subprocess.Popen(command, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=said,
                                       stderr=subprocess.STDOUT, start_new_session=True)
            self.started.add(process.pid)
            try:
                return process.wait(timeout=limit)
            except subprocess.TimeoutExpired:
                return None
            finally:
                end_group(process.pid)
                process.wait()
                self.started.discard(process.pid)

    def build(self, targets: list[str], log: str) -> bool:
        command = ["cmake", "--build", "--preset", PRESET, "--target", *targets, "--", "--quiet", "-j", "2"]
        return self.run(command, BUILD_SECONDS, log) == 0

    def test(self, name: str, limit: float, log: str) -> TestRun:
        begin = time.monotonic()
        command = ["ctest", "--test-dir", str(self.build_folder), "--no-tests=error", "--output-on-failure",
                   "-R", f"^{re.escape(name)}$"]
        code = self.run(command, limit, log)
        seconds = time.monotonic() - begin
        if code is None:
            return TestRun(False, f"no end in {limit:.0f} s", seconds)
        said = (self.said_folder / f"{log}.txt").read_text(errors="replace")
        return TestRun(code == 0, first_failure(said), seconds)

    def tests(self) -> dict[str, Test]:
        shown = subprocess.run(["ctest", "--test-dir", str(self.build_folder), "--show-only=json-v1"],
                               capture_output=True, text=True, check=True)
        found: dict[str, Test] = {}
        for test in json.loads(shown.stdout)["tests"]:
            program = next((part for part in test.get("command", []) if re.search(r"Tests(\.exe)?$", part)), None)
            if program:
                properties = {one["name"]: one["value"] for one in test["properties"]}
                variables = dict(one.split("=", 1) for one in properties["ENVIRONMENT"])
                found[test["name"]] = Test(Path(program).stem, Path(variables["WINEPREFIX"]).name)
        return found

    def end_processes(self) -> None:
        for pid in list(self.started):
            end_group(pid)


def end_group(pid: int) -> None:
    try:
        os.killpg(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def first_failure(said: str) -> str:
    place = re.search(r"(\w+\.(?:cpp|h))[:(](\d+)\)?:? (?:FATAL )?ERROR", said)
    return f"{place[1]}:{place[2]}" if place else "crashed or said nothing"


def copy_tree(to: Path) -> None:
    """Only what differs is written, so that little is built again."""
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                            capture_output=True, text=True, check=True).stdout
    names = {name for name in listed.split("\0") if name and (ROOT / name).is_file()}
    for path in list(to.rglob("*")):
        name = path.relative_to(to)
        if name.parts[0] not in ("build", "out", "said") and path.is_file() and str(name) not in names:
            path.unlink()
    for name in names:
        source, copy = ROOT / name, to / name
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)


def clone_prefix(source: Path, to: Path) -> None:
    """The system's own files, which nobody writes, are the same ones; registry, users and settings are copies."""
    if not (source / "system.reg").exists():
        raise Broken(f"{source} isn't there: run Scripts/setup.sh")
    windows = source / "drive_c" / "windows"

    def link_or_copy(path: str, target: str) -> str:
        is_system = path.startswith(f"{windows}/") and not path.startswith(f"{windows}/temp/")
        if is_system and not path.endswith(".ini"):
            os.link(path, target)
        else:
            shutil.copy2(path, target)
        return target

    shutil.rmtree(to, ignore_errors=True)
    shutil.copytree(source, to, symlinks=True, copy_function=link_or_copy)


# --- the run

class Run:
    def __init__(self, faults: list[Fault], lane_count: int) -> None:
        self.faults = faults
        self.lanes = [Lane(number + 1) for number in range(lane_count)]
        self.tests: dict[str, Test] = {}
        self.limits: dict[str, float] = {}
        self.outcomes: list[Outcome] = []
        self.problems: list[str] = []
        self.lock = threading.Lock()
        self.threads: list[threading.Thread] = []
        self.stopping = False

    def say(self, line: str) -> None:
        with self.lock:
            print(line, flush=True)

    def names_of(self, fault: Fault) -> list[str]:
        """The tests that the fault names, in its order."""
        names: dict[str, None] = {}
        for pattern in fault.tests:
            found = [name for name in self.tests if name == pattern or re.fullmatch(pattern, name)]
            if not found:
                raise Broken(f"{fault.full_name}: no test is called {pattern}")
            names.update(dict.fromkeys(found))
        return list(names)

    def in_lanes(self, jobs: list[Callable[[Lane], None]]) -> None:
        """Each job in whichever lane is free."""
        waiting: queue.SimpleQueue[Callable[[Lane], None]] = queue.SimpleQueue()
        for job in jobs:
            waiting.put(job)

        def work(lane: Lane) -> None:
            while not self.stopping:
                try:
                    job = waiting.get_nowait()
                except queue.Empty:
                    return
                job(lane)

        self.together([lambda lane=lane: work(lane) for lane in self.lanes])

    def together(self, actions: list[Callable[[], None]]) -> None:
        """Side by side; ends the run when one of them has had a problem."""
        self.threads = [threading.Thread(target=self.guarded, args=(action,)) for action in actions]
        for thread in self.threads:
            thread.start()
        for thread in self.threads:
            thread.join()
        if self.problems:
            raise Broken("\n".join(self.problems))

    def guarded(self, action: Callable[[], None]) -> None:
        try:
            action()
        except Exception as problem:
            self.problems.append(str(problem))
            self.stopping = True

    def prepare(self) -> None:
        self.say("preparing the lanes")
        self.together([lane.prepare for lane in self.lanes])
        self.tests = self.lanes[0].tests()

    def without_fault(self) -> None:
        """Builds what is needed, everywhere, and runs every test that is named once."""
        names = list(dict.fromkeys(name for fault in self.faults for name in self.names_of(fault)))
        targets = sorted({self.tests[name].target for name in names})
        self.say(f"building {', '.join(targets)} without a fault")
        self.together([lambda lane=lane: self.build_all(lane, targets) for lane in self.lanes])
        self.say(f"running {len(names)} tests without a fault")
        self.in_lanes([lambda lane, name=name: self.pass_without_fault(lane, name) for name in names])

    def build_all(self, lane: Lane, targets: list[str]) -> None:
        if not lane.build(targets, "build"):
            raise Broken(f"the build fails: {lane.said_folder}/build.txt")

    def pass_without_fault(self, lane: Lane, name: str) -> None:
        run = lane.test(name, MOST_SECONDS, f"without-fault-{name}")
        if not run.passed:
            raise Broken(f"{name} fails without a fault: {run.said}, {lane.said_folder}/without-fault-{name}.txt")
        self.limits[name] = min(MOST_SECONDS, SLACK_SECONDS + SLOWER * run.seconds)
        self.say(f"  {name}: {run.seconds:.0f} s")

    def try_all(self) -> None:
        # Those of one file follow one another: it is compiled once to put one in and the one before out.
        for_build = sorted(self.faults, key=lambda fault: fault.file)
        self.in_lanes([lambda lane, fault=fault: self.try_one(lane, fault) for fault in for_build])

    def try_one(self, lane: Lane, fault: Fault) -> None:
        begin = time.monotonic()
        path = lane.folder / fault.file
        text = path.read_text() if path.exists() else ""
        if (count := text.count(fault.old)) != 1:
            kind, by = NO_LONGER, f"found {count} times"
        else:
            try:
                path.write_text(text.replace(fault.old, fault.new))
                kind, by = self.run_tests(lane, fault)
            finally:
                path.write_text(text)
        if self.stopping:
            return  # what ended it may have been the end of this run
        outcome = Outcome(fault, kind, by, time.monotonic() - begin)
        self.outcomes.append(outcome)
        self.say(f"{len(self.outcomes):4}/{len(self.faults)} {kind:17} {fault.full_name}: {by} ({outcome.seconds:.0f} s)")

    def run_tests(self, lane: Lane, fault: Fault) -> tuple[str, str]:
        log = fault.full_name.replace("/", "-")
        names = self.names_of(fault)
        for name in names:
            if not lane.build([self.tests[name].target], log):
                return NO_BUILD, f"{lane.said_folder}/{log}.txt"
            run = lane.test(name, self.limits[name], log)
            if not run.passed:
                lane.make_prefixes([self.tests[name].prefix])
                return NOTICED, f"{name}, {run.said}"
        if fault.accepted:
            return ACCEPTED, fault.accepted
        return UNNOTICED, f"not by {', '.join(names)}"

    def close(self) -> None:
        self.stopping = True
        for lane in self.lanes:
            lane.end_processes()
        for thread in self.threads:
            thread.join()
        for lane in self.lanes:
            lane.stop_wine(PREFIXES)


def table(outcomes: list[Outcome], total: int) -> str:
    lines = ["| fault | in | hits | outcome | by | s |", "|---|---|---|---|---|---|"]
    for outcome in sorted(outcomes, key=lambda outcome: outcome.fault.full_name):
        fault = outcome.fault
        hits = "often" if fault.often else "seldom"
        lines.append(f"| {fault.full_name} | {fault.file} | {hits} | {outcome.kind} | {outcome.by} | "
                     f"{outcome.seconds:.0f} |")
    kinds = [outcome.kind for outcome in outcomes]
    counts = ", ".join(f"{kinds.count(kind)} {kind}" for kind in (NOTICED, ACCEPTED, UNNOTICED, NO_LONGER, NO_BUILD)
                       if kind in kinds)
    share = 100 * kinds.count(NOTICED) / max(1, len(kinds))
    broken_off = f" The run was broken off: {total - len(kinds)} faults were not tried." if len(kinds) < total else ""
    return "\n".join(lines) + f"\n\n{len(kinds)} faults: {counts}. {share:.0f} % were noticed.{broken_off}\n"


def check(faults: list[Fault]) -> int:
    wrong = [(fault, count) for fault in faults if (count := times_found(fault, ROOT)) != 1]
    for fault, count in wrong:
        print(f"{fault.full_name}: no longer applies, found {count} times in {fault.file}")
    often = sum(fault.often for fault in faults)
    print(f"{len(faults)} faults, {often} in what often happens; {len(wrong)} no longer apply")
    return 1 if wrong else 0


def try_faults(faults: list[Fault], lanes: int, report: Path) -> int:
    run = Run(faults, min(lanes, len(faults)))
    begin = time.monotonic()
    try:
        run.prepare()
        run.without_fault()
        run.try_all()
    except KeyboardInterrupt:
        print("broken off")
    finally:
        run.close()
    text = table(run.outcomes, len(faults))
    report.parent.mkdir(exist_ok=True)
    report.write_text(text)
    print(f"\n{text}\n{(time.monotonic() - begin) / 60:.0f} minutes; the table is in {report.relative_to(ROOT)}")
    done = [outcome for outcome in run.outcomes if outcome.kind in (NOTICED, ACCEPTED)]
    return 0 if len(done) == len(faults) else 1


def main() -> int:
    parser = argparse.ArgumentParser(description="Puts faults into copies of the product and runs the tests.")
    parser.add_argument("names", nargs="*", metavar="NAME", help="a fault, a room or a regular expression")
    parser.add_argument("--lanes", type=int, default=2, help="faults tried at a time (2)")
    parser.add_argument("--check", action="store_true", help="only tell which faults no longer apply")
    parser.add_argument("--list", action="store_true", help="only print the faults")
    options = parser.parse_args()
    try:
        faults = choose(read_faults(), options.names)
        if options.list:
            print("\n".join(f"{fault.full_name}  ({fault.file}: {', '.join(fault.tests)})" for fault in faults))
            return 0
        if options.check:
            return check(faults)
        report = "mutants-chosen.md" if options.names else "mutants.md"
        return try_faults(faults, max(1, options.lanes), ROOT / "out" / report)
    except Broken as reason:
        print(reason, file=sys.stderr)
        return 2


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    sys.exit(main())
