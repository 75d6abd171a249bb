#!/usr/bin/env python3
"""Plants one defect after the other in a copy of the project and sees whether the harness that is there for it notices.

A harness that notices nothing would look like a library without defects. Two more plants need no copy and are tried with every
test run: a publisher without a second copy (tests/system) and a read behind the end (fuzz). Run by ./vex plants.
"""
import os
import pathlib
import re
import subprocess
import sys

TREE = pathlib.Path("build/plants/tree")
CACHE, GUARD = "vexutils/rt_cache/rt_cache.cpp", "    const MutexGuard lock{mutexRtCache};\n"
TYPE = "    uint8_t eidType;   /* RTCACHE_TYPE_..., 0 after removal */\n"
MODULAR_ID = "    uint8_t modularId; /* 0 unknown */\n"
SET_STATUS = "uint32_t rtcache_SetStorageEIDStatus(uint32_t eid, uint32_t status16) {\n"
FAULTS = ("i386", ["-DVEX_SANITIZE="], ["fault_tests"], "VEX_TEST_LIVES=1 {folder}/tests/faults/fault_tests")
THREADS = ("native-tsan", [], ["thread_tests"], "TSAN_OPTIONS=halt_on_error=1 setarch -R {folder}/tests/threads/thread_tests")
VALGRIND = ("native-release", ["-DBUILD_TESTING=ON"], ["unit_tests"],
            "valgrind -q --suppressions=tests/valgrind.supp {folder}/tests/unit_tests --gtest_filter='*dentify*:*Blink*'")
INTERFACE = ("i386-release", ["-DBUILD_TESTING=OFF", "-DCMAKE_CXX_FLAGS_RELEASE='-O2 -g'"], ["vexutils"],
             "abidiff --no-added-syms abi/i386.abi {folder}/vexutils/libvexutils.so.1")

# What, where, the text and what it becomes, the harness, and what the harness then says.
PLANTS = [
    ("a block that leaks when memory ends", "vexutils/vexel/vexel_memory.cpp",
     "    if (block == nullptr) {\n        return nullptr;", "    if (block == nullptr) {\n        (void)table.release();\n        return nullptr;",
     FAULTS, r"\(\"blocks\", 1\)"),
    ("a lock that stays held", CACHE, SET_STATUS + GUARD,
     SET_STATUS + "    const bool lock = SMMutexLock(mutexRtCache, SM_WAIT_FOREVER) == 0;\n", FAULTS, r"a lock under itself"),
    ("a write without its lock, before it is compiled", CACHE, SET_STATUS + GUARD, SET_STATUS + "    const bool lock = true;\n",
     THREADS, r"error: .*-Wthread-safety"),
    ("a write without its lock, hidden from the compiler", CACHE, SET_STATUS + GUARD,
     "[[clang::no_thread_safety_analysis]] " + SET_STATUS + "    const bool lock = true;\n", THREADS, r"ThreadSanitizer: data race"),
    ("a request whose last bytes nobody wrote", "vexutils/vexel/vexel_identify.cpp",
     "    Request request{0x00, 0x14, 0x0E, 0x00, 0x00, 0x00, 0x0E, 0x00};\n", "    Request request;\n", VALGRIND,
     r"bytes leave that nothing was written to"),
    ("two members of a record that changed places", "vexutils/rt_cache.h", TYPE + MODULAR_ID, MODULAR_ID + TYPE,
     INTERFACE, r"offset changed from 16 to 24"),
]


def copy_tree():
    TREE.mkdir(parents=True, exist_ok=True)
    files = subprocess.run(["git", "ls-files", "-z"], check=True, capture_output=True).stdout
    subprocess.run(["xargs", "-0", "cp", "-pu", "--parents", "-t", TREE], input=files, check=True)


def run_harness(harness):
    """What building and running the harness in the copy says."""
    preset, definitions, targets, command = harness
    folder = f"build/{preset}"
    steps = [f"cmake --preset {preset} {' '.join(definitions)}",
             f"cmake --build {folder} -j {os.environ.get('VEX_JOBS', os.cpu_count())} --target {' '.join(targets)}",
             command.format(folder=folder)]
    return subprocess.run(" && ".join(steps), shell=True, cwd=TREE, text=True, errors="replace", stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)


def try_plant(plant):
    what, file, text, becomes, harness, says = plant
    original = (TREE / file).read_text()
    if original.count(text) != 1:
        sys.exit(f"{file} has this {original.count(text)} times, expected once:\n{text}")
    (TREE / file).write_text(original.replace(text, becomes))
    try:
        run = run_harness(harness)
    finally:
        (TREE / file).write_text(original)
    noticed = run.returncode != 0 and re.search(says, run.stdout) is not None
    print(f"{'noticed' if noticed else 'NOT NOTICED'}: {what}", flush=True)
    if not noticed:
        print("\n".join(run.stdout.splitlines()[-30:]))
    return noticed


def main():
    copy_tree()
    noticed = [try_plant(plant) for plant in PLANTS]
    print(f"figures: R19 plants={len(noticed)} missed={noticed.count(False)}")
    return 0 if all(noticed) else 1


if __name__ == "__main__":
    sys.exit(main())
