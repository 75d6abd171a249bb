#!/usr/bin/env python3
"""Changes branches of the library's machine code one by one and counts how many of the changes the tests notice.

Each conditional jump that the compiler made of a source becomes, once, a jump that is always taken and, once, none. The changed
source is assembled and linked with the tests as they were built; a change is noticed when a test program fails, crashes or does
not end. Nothing is compiled again. Run by ./vex mutate, which builds what this needs.

A branch that changes nothing either way (proven, not guessed) is left out where its line or the one above has the comment
"// Same either way: why".
"""
import argparse
import collections
import concurrent.futures
import glob
import json
import os
import pathlib
import random
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

JUMP = re.compile(r"^\tj(?!mp\b)[a-z]+\t(\.L\w+)$")
LOCATION = re.compile(r"^\t\.loc (\d+) (\d+)")
FILE = re.compile(r'^\t\.file (\d+) (?:"([^"]*)" )?"([^"]*)"')
SECTION = re.compile(r"^\t\.(section|text)\b")
MARK = "// Same either way: "
PATIENCE = 8  # a program that takes so many times as long as it does unchanged, and some seconds, does not end
# What must notice more than the rest: what reads foreign bytes, copies records, keeps the cache.
STRICT = re.compile(r"vexutils/(rt_dup/|rt_cache/|internal/wide_text|rt_shm/(fqdd_text|"
                    r"rt_shm_(bpapi|topology|pciessd\w*|fru|slots|simulation)\.))")

# What is linked with the changed source, and what is then run, quick ones first. Inputs as stored, and broken in every way.
GTEST = "--gtest_fail_fast --gtest_brief=1"
CORPUS = os.path.abspath("fuzz/corpus")
JUDGES = {
    "tests/unit_tests": ["{made} " + GTEST],
    "tests/faults/fault_tests": ["{made} --gtest_filter=*Stored " + GTEST, "{made} --gtest_filter=-*Stored " + GTEST],
    "fuzz/fuzz_replay": ["{made} " + CORPUS, "{made} " + CORPUS + " 4"],
    "vexutils/libvexutils.so.1.0.0": ["{build}/tests/system/system_tools_tests " + GTEST],
}

Mutant = collections.namedtuple("Mutant", "source index kind place")


class Build:
    """The test programs of a build folder, and how their parts were made."""

    def __init__(self, folder):
        self.folder = folder
        self.compile = {}
        self.limits = {}  # seconds, by how long the control takes
        for entry in json.loads((folder / "compile_commands.json").read_text()):
            name = os.path.relpath(entry["file"])
            if name.startswith("vexutils/"):
                command = shlex.split(entry["command"])
                self.compile[name] = (command, command[command.index("-o") + 1])
        self.link = {}
        for program in JUDGES:
            commands = subprocess.run(["ninja", "-C", folder, "-t", "commands", program], text=True, check=True,
                                      capture_output=True).stdout.splitlines()
            self.link[program] = shlex.split(commands[-1].removeprefix(": && ").removesuffix(" && :"))

    def assembly(self, source):
        """The lines that the compiler makes of a source. Stack guards would be branches that no test can take."""
        command, output = self.compile[source]
        command = ["-" if word == output else word for word in command if word != "-c"]
        if "ccache" in command[0]:
            command = command[1:]
        command += ["-S", "-fno-stack-protector"]
        return subprocess.run(command, cwd=self.folder, text=True, check=True, capture_output=True).stdout.split("\n")

    def verdict(self, changed, work):
        """What happens with these lines, by source, in place of the compiled ones: None, or which program noticed."""
        objects = {}
        for number, (source, lines) in enumerate(changed.items()):
            objects[self.compile[source][1]] = str(work / f"{number}.o")
            subprocess.run(["as", "--32", "-o", work / f"{number}.o", "-"], input="\n".join(lines), text=True, check=True)
        environment = dict(os.environ, TEST_TMPDIR=f"{work}/", LD_LIBRARY_PATH=str(work), VEX_TEST_LIVES="100",
                           VEX_TEST_PAIRS="500")
        for target, runs in JUDGES.items():
            command = [objects.get(word, word) for word in self.link[target]]
            made = work / os.path.basename(target).removesuffix(".0.0")  # as the tools look for the library
            command[command.index("-o") + 1] = str(made)
            subprocess.run(command + ["-fuse-ld=lld"], cwd=self.folder, check=True)
            for run in runs:
                if verdict := self.fails(run.format(made=made, build=self.folder.resolve()), work, environment):
                    return verdict
        return None

    def fails(self, run, work, environment):
        """What a test program says: None, or how it failed."""
        name = re.sub(r"\S*/", "", run)
        began = time.monotonic()
        program = subprocess.Popen(run.split(), cwd=work, env=environment, start_new_session=True, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            status = program.wait(self.limits.get(name))
        except subprocess.TimeoutExpired:
            os.killpg(program.pid, signal.SIGKILL)  # it and the tools that it runs
            status = program.wait()
        self.limits.setdefault(name, PATIENCE * (time.monotonic() - began) + 5)
        for region in glob.glob(f"/dev/shm/vexsystem{program.pid}.*"):
            os.remove(region)
        return name if status != 0 else None


def branches(lines):
    """Index and source line of every conditional jump that belongs to this project's own lines.

    Functions that several sources bring (templates and such of headers) are left out: only one source's is linked."""
    texts, files, place, shared = {}, {}, None, False
    for index, line in enumerate(lines):
        if match := SECTION.match(line):
            shared = '"axG"' in line
        elif match := FILE.match(line):
            name = os.path.join(match[2] or "", match[3])
            files[match[1]] = name[name.find("vexutils/"):] if "vexutils/" in name else None
        elif match := LOCATION.match(line):
            place = (files.get(match[1]), int(match[2]))
        elif JUMP.match(line) and not shared and place and place[0]:
            name, number = place
            if name not in texts:
                texts[name] = pathlib.Path(name).read_text().splitlines()
            if not any(MARK in text for text in texts[name][max(0, number - 2):number]):
                yield index, f"{name}:{number}"


def mutate(lines, mutant):
    changed = list(lines)
    target = JUMP.match(lines[mutant.index])[1]
    changed[mutant.index] = f"\tjmp\t{target}" if mutant.kind == "always" else "\tnop"
    return changed


def parse_arguments():
    parser = argparse.ArgumentParser(prog="./vex mutate", description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--seed", type=int, default=1, help="which sample is drawn (default: 1)")
    parser.add_argument("count", type=int, nargs="?", default=600, help="how many changes to try, 0: all (default: 600)")
    parser.add_argument("sources", nargs="*", help="only these sources of the library (default: all)")
    arguments = parser.parse_args()
    for source in arguments.sources:
        if not pathlib.Path(source).is_file():
            parser.error(f"no such source: {source}, expected for example vexutils/rt_dup/rt_dup.cpp")
    return arguments


def report(results):
    """Prints survivors and the score per group; returns the two scores in percent."""
    tried, noticed = collections.Counter(), collections.Counter()
    for mutant, verdict in results:
        for key in (mutant.source, "all", "strict" if STRICT.match(mutant.source) else "others"):
            tried[key] += 1
            noticed[key] += verdict is not None
        if verdict is None:
            print(f"survived: {mutant.place} {mutant.kind} taken")
    for key in sorted(tried, key=lambda key: ("/" not in key, key)):
        print(f"{noticed[key]:5} of {tried[key]:5} noticed, {100 * noticed[key] / tried[key]:5.1f} %  {key}")
    score = {key: 100 * noticed[key] / tried[key] for key in tried}
    print(f"figures: R11 mutants={tried['all']} score={score['all']:.1f} strict={score.get('strict', 100):.1f}")


def main():
    arguments = parse_arguments()
    build = Build(arguments.build)
    sources = sorted(arguments.sources or build.compile)
    assembled = {source: build.assembly(source) for source in sources}
    mutants = [Mutant(source, index, kind, place) for source in sources
               for index, place in branches(assembled[source]) for kind in ("always", "never")]
    chosen = mutants if arguments.count == 0 else random.Random(arguments.seed).sample(
        mutants, min(arguments.count, len(mutants)))
    print(f"{len(mutants)} changes of {len(sources)} sources, {len(chosen)} to try, seed {arguments.seed}", flush=True)

    top = pathlib.Path(tempfile.mkdtemp(prefix="vex-mutate-"))
    try:
        # Without this control every change would seem to be noticed where the way of linking breaks the tests.
        if verdict := build.verdict(assembled, top):
            sys.exit(f"the control failed: {verdict} with everything assembled unchanged")

        def attempt(mutant):
            with tempfile.TemporaryDirectory(dir=top) as work:
                return mutant, build.verdict({mutant.source: mutate(assembled[mutant.source], mutant)}, pathlib.Path(work))

        results = []
        with concurrent.futures.ThreadPoolExecutor(int(os.environ.get("VEX_JOBS", os.cpu_count()))) as pool:
            for result in pool.map(attempt, chosen):
                results.append(result)
                if len(results) % 50 == 0:
                    print(f"{len(results)} of {len(chosen)} tried", flush=True)
    finally:
        shutil.rmtree(top)
    report(sorted(results))


if __name__ == "__main__":
    main()
