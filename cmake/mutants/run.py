#!/usr/bin/env python3
"""Changes the sources in one place at a time and counts which changes the tests find.
Run by check-mutants, which makes the build and describes the options. The places are drawn by hashes of
the lines that they are in, so that a seed draws the same places as long as these lines stay.
BUILD/results-SEED.tsv tells what became of each."""
import argparse
import hashlib
import json
import os
import re
import subprocess
import sys
import threading
import time
from collections import Counter
from pathlib import Path

from build import Build, Worker
from places import KINDS, places

SHARES = {"lib": 13, "locale": 3, "tools": 4}  # of 20
COUNTED = ("found", "survived", "equivalent")
ROOT = Path(__file__).resolve().parents[2]


# ---- Drawing ----

def drawn(build, seed, room, only):
    """The places of a room in the order in which they are tried: the kinds take turns."""
    by_kind = {kind: [] for kind in KINDS}
    for path in build.sources():
        if not path.startswith(room + "/") or only not in path:
            continue
        for place in places(path, (ROOT / path).read_text()):
            by_kind[place.kind].append(place)
    for found in by_kind.values():
        found.sort(key=lambda p: hashlib.sha256(f"{seed}\t{p.name()}".encode()).digest())
    for turn in range(max(map(len, by_kind.values()))):
        for kind in KINDS:
            if turn < len(by_kind[kind]):
                yield by_kind[kind][turn]


def equivalents():
    """Changes that change no answer, as "path: lines => changed lines"; an indented line tells why."""
    text = (ROOT / "cmake/mutants/equivalent.list").read_text()
    return {line for line in text.splitlines() if line and line[0] not in "# "}


# ---- Tests ----

class Tests:
    """The test programs: how long each takes, and which tests fail without any change."""

    def __init__(self, build):
        self.folder, self.file = build.folder, build.folder / "tests.json"
        self.names = sorted(p.name for p in (build.folder / "bin").glob("*_test"))
        self.rooms = {p.stem: p.parent.name for p in ROOT.glob("tests/*/*_test.cpp")}
        self.needs_tools = {name for name in self.names if self.rooms[name] == "tools"}
        self.env = dict(os.environ, KOVA_SOURCE_DIR=str(ROOT),
                        KOVA_LOCALES_LIST=str(ROOT / "data/locales.list"),
                        KOVA_CONVERSIONS_LIST=str(ROOT / "data/conversions.list"))
        # Where this is allowed, what a changed program leaves running ends with it.
        alone = ["unshare", "-pf", "--kill-child"]
        self.alone = alone if subprocess.run([*alone, "true"], check=False).returncode == 0 else []
        self.seconds, self.unfit = {}, {}

    def run(self, worker, name, *options):
        """The exit status, the processor time and the output of one program."""
        cpu = int(3 * self.seconds.get(name, 200)) + 3
        # Both: an endless loop takes processor time, a deadlock takes none.
        command = [*self.alone, "timeout", "-s", "KILL", str(cpu * 15 + 120),
                   "prlimit", f"--cpu={cpu}", "--core=0", str(worker.folder / "bin" / name), "--gtest_brief=1", *options]
        env = dict(self.env, KOVA_BIN_DIR=str(worker.folder / "bin"), HOME=str(worker.folder),
                   KOVA_TEST_ROOT=str(worker.folder / "data"), TMPDIR=str(worker.folder / "tmp"))
        with open(worker.folder / "said", "wb") as out:
            run = subprocess.Popen(command, env=env, stdin=subprocess.DEVNULL, stdout=out, stderr=out,
                                   cwd=worker.folder)
            _, status, used = os.wait4(run.pid, 0)
            run.returncode = os.waitstatus_to_exitcode(status)
        said = (worker.folder / "said").read_text(errors="replace")
        return run.returncode, used.ru_utime + used.ru_stime, said

    def measure(self, workers):
        """Runs what has changed since it was measured."""
        left = []
        known = json.loads(self.file.read_text()) if self.file.exists() else {}
        for name in self.names:
            made = (self.folder / "bin" / name).stat().st_mtime
            if name in known and known[name][0] == made:
                self.seconds[name], self.unfit[name] = known[name][1:]
            else:
                left.append(name)
        threads = [threading.Thread(target=self.measure_some, args=(w, left)) for w in workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.file.write_text(json.dumps({name: [(self.folder / "bin" / name).stat().st_mtime,
                                                self.seconds[name], self.unfit[name]]
                                         for name in self.names}))
        for name in self.names:
            if self.unfit[name]:
                print(f"not used, because they fail here: {name}: {' '.join(self.unfit[name])}")

    def measure_some(self, worker, left):
        while left:
            name = left.pop()
            status, seconds, said = self.run(worker, name)
            failed = sorted(set(re.findall(r"^\[  FAILED  \] (\w[\w./]*)(?:$|,| \()", said, re.M)))
            self.unfit[name] = failed or (["*"] if status else [])
            self.seconds[name] = seconds

    def order(self, path):
        """The programs for a source, likely ones first: those of the commands, or those of the library."""
        room, stem = path.split("/")[1], Path(path).stem
        tools = path.startswith("tools/")
        command = "kova" if room == "common" else room

        def far(name):
            common = len(os.path.commonprefix([stem, name]))
            room_of_test = "locale" if path.startswith("locale/") else room
            near = self.rooms[name] == room_of_test or (tools and name.startswith(command))
            return (not near and common < 6, -common, self.seconds[name])
        names = [n for n in self.names if (n in self.needs_tools) == tools]
        names.sort(key=self.seconds.get)
        near = sorted((n for n in names if not far(n)[0]), key=far)
        near += [n for n in names if far(n)[0] and self.seconds[n] < 0.5]
        return near, [n for n in names if n not in near]

    def find(self, worker, path, only_near):
        """What fails with the worker's libraries; "": nothing."""
        near, rest = self.order(path)
        for name in near if only_near else near + rest:
            unfit = self.unfit[name]
            if unfit == ["*"]:
                continue
            options = ["--gtest_fail_fast"] + ([f"--gtest_filter=-{':'.join(unfit)}"] if unfit else [])
            status, seconds, said = self.run(worker, name, *options)
            if status:
                failed = re.search(r"^\[  FAILED  \] (\w[\w./]*)", said, re.M)
                return f"{name} {failed.group(1) if failed else f'ended with {status} after {seconds:.1f} s'}"
        return ""


# ---- The run ----

class Run:
    def __init__(self, options):
        self.options = options
        self.build = Build(ROOT, options.build)
        self.tests = Tests(self.build)
        self.equivalent = equivalents()
        self.file = Path(options.build) / f"results-{options.seed}.tsv"
        self.kept = self.read_kept()
        self.lock = threading.Lock()
        self.results = []  # of one room
        self.ends = time.monotonic() + options.stop_after

    def read_kept(self):
        kept = {}
        if self.options.keep and self.file.exists():
            for line in self.file.read_text().splitlines():
                outcome, by, name = line.split("\t", 2)
                if self.options.keep == "all" or outcome != "survived":
                    kept[name] = outcome, by
                if outcome == "survived" and by == "near" and not self.options.near:
                    kept.pop(name, None)
        return kept

    def judge(self, worker, place):
        if f"{place.path}: {place.was} => {place.becomes}" in self.equivalent:
            return "equivalent", "listed"
        if place.name() in self.kept:
            return self.kept[place.name()]
        made = worker.make(place, (ROOT / place.path).read_text())
        if made != "made":
            return made, ""
        by = self.tests.find(worker, place.path, self.options.near)
        worker.reset()
        worker.sweep()
        return ("found", by) if by else ("survived", "near" if self.options.near else "all")

    def note(self, n, place, outcome, by):
        with self.lock:
            self.results.append((n, place, outcome, by))
            if place.name() not in self.kept:
                with open(self.file, "a", encoding="utf-8") as out:
                    out.write(f"{outcome}\t{by}\t{place.name()}\n")
            if outcome == "survived":
                print(f"{place.path}:{place.line}: {place.kind}\n    {place.was}\n    {place.becomes}",
                      flush=True)

    def work(self, worker, source, count):
        while time.monotonic() < self.ends:
            with self.lock:
                if sum(r[2] in COUNTED for r in self.results) >= count:
                    return
                n, place = next(source, (0, None))
            if not place:
                return
            self.note(n, place, *self.judge(worker, place))

    def room(self, workers, room, count):
        """The outcomes of the first places of a room that count."""
        self.results = []
        source = enumerate(drawn(self.build, self.options.seed, room, self.options.only))
        threads = [threading.Thread(target=self.work, args=(w, source, count)) for w in workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        ordered = sorted(self.results, key=lambda r: r[0])
        return [r for r in ordered if r[2] in COUNTED][:count]

    def all(self):
        workers = [Worker(self.build, f"worker-{os.getpid()}-{n}", self.options.data)
                   for n in range(self.options.jobs)]
        self.tests.measure(workers)
        total = Counter()
        rows = []
        for room, share in SHARES.items():
            counts = Counter(r[2] for r in self.room(workers, room, self.options.places * share // 20))
            rows.append((room, counts))
            total.update(counts)
        for worker in workers:
            worker.remove()
        print(f"{'':8} places  found  equivalent  survived")
        for room, c in (*rows, ("all", total)):
            print(f"{room:8} {sum(c.values()):6} {c['found']:6} {c['equivalent']:11} {c['survived']:9}")
        judged = total["found"] + total["survived"]
        print(f"{100 * total['found'] / max(judged, 1):.1f} % of those that change something are found")
        return total["found"] * 10 >= judged * 9


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("seed")
    parser.add_argument("--data", required=True)
    parser.add_argument("--places", type=int, default=300)
    parser.add_argument("--only", default="")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--keep", choices=("all", "found"))
    parser.add_argument("--near", action="store_true")
    parser.add_argument("--stop-after", type=float, default=float("inf"))
    options = parser.parse_args()
    return 0 if Run(options).all() else 1


if __name__ == "__main__":
    sys.exit(main())
