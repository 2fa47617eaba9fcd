"""Disturbs surveys and counts which rules name it.

A survey measures every cell three times. All repeats of its second round are disturbed in one way,
those of the others in none. The first child of a round is held while the plant is set or taken.
"""

import argparse
import collections
import contextlib
import ctypes
import json
import os
import pathlib
import pty
import random
import signal
import statistics
import subprocess
import sys
import tempfile
import time

VELMO = os.path.abspath("build/velmo")
ROUNDS, PLANTED = 3, 2
PERIOD = 0.1  # s that a process is stopped, and runs
MADV_PAGEOUT, PROCESS_MADVISE = 21, 440
MIB = 1 << 20
libc = ctypes.CDLL(None, use_errno=True)


@contextlib.contextmanager
def stress(*options):
    process = subprocess.Popen(["stress-ng", "--quiet", *options], start_new_session=True)
    try:
        time.sleep(1)  # it prepares its memory first
        yield
    finally:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


@contextlib.contextmanager
def quota(*pids):
    """Half a CPU for the processes, and for those that they start."""
    first = os.path.isdir("/sys/fs/cgroup/cpu")
    top = pathlib.Path("/sys/fs/cgroup/cpu" if first else "/sys/fs/cgroup")
    group = top / f"velmo_plant_{os.getpid()}"
    group.mkdir()
    try:
        (group / ("cpu.cfs_quota_us" if first else "cpu.max")).write_text("50000")
        # In a group the priority of a process counts for nothing outside of it.
        (group / ("cpu.shares" if first else "cpu.weight")).write_text("10000")
        for pid in pids:
            (group / "cgroup.procs").write_text(str(pid))
        yield
    finally:
        while pids := (group / "cgroup.procs").read_text().split():
            for pid in pids:
                with contextlib.suppress(OSError):
                    (top / "cgroup.procs").write_text(pid)
        group.rmdir()


@contextlib.contextmanager
def swap():
    with tempfile.NamedTemporaryFile(dir="/var/tmp") as file:
        os.posix_fallocate(file.fileno(), 0, 256 * MIB)
        subprocess.run(["/sbin/mkswap", file.name], check=True, capture_output=True)
        subprocess.run(["/sbin/swapon", file.name], check=True)
        try:
            yield
        finally:
            subprocess.run(["/sbin/swapoff", file.name], check=True)


def stop(pid):
    os.kill(pid, signal.SIGSTOP)
    time.sleep(PERIOD)
    os.kill(pid, signal.SIGCONT)
    time.sleep(PERIOD)


def page_out(pid):
    """The first MiB of each large mapping: what the kernel takes where memory is short."""
    time.sleep(PERIOD / 4)
    pidfd = os.pidfd_open(pid)
    for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines():
        begin, end = (int(x, 16) for x in line.split()[0].split("-"))
        if end - begin >= 4 * MIB and len(line.split()) == 5:
            part = (ctypes.c_size_t * 2)(begin, MIB)
            libc.syscall(PROCESS_MADVISE, pidfd, part, 1, MADV_PAGEOUT, 0)
    os.close(pidfd)


# set: holds while the round is measured. often: done to the child again and again. only: the cells.
Kind = collections.namedtuple("Kind", "rules set often only", defaults=(None, None, ""))


def kinds(cpu, other):
    nothing = contextlib.nullcontext
    busy = (f"--stream 1 --taskset {other}", f"--vm 1 --vm-bytes 256m --taskset {other}")
    return {
        "cpu": Kind({"other_work", "involuntary_switches"},
                    lambda *_: stress("--cpu", "1", "--taskset", str(cpu))),
        "load": Kind({"busy_cpus"}, lambda *_: stress(*random.choice(busy).split()), only="idle"),
        "quota": Kind({"quota"}, quota),
        "stop": Kind({"paused"}, lambda *_: nothing(), stop),
        "pages": Kind({"faults", "memory_pressure"}, lambda *_: swap(), page_out),
        "nothing": Kind(set(), lambda *_: nothing()),
    }


def new_children(parent):
    """Yields the children of a process as they come, and None while there is no new one."""
    newest = parent
    while True:
        last = int(pathlib.Path("/proc/loadavg").read_text().split()[-1])
        for pid in range(newest + 1, last + 1):
            with contextlib.suppress(OSError):
                status = pathlib.Path(f"/proc/{pid}/status").read_text()
                if f"\nTgid:\t{pid}\n" in status and f"\nPPid:\t{parent}\n" in status:
                    yield pid  # no thread of a child
        newest = last
        yield None


def survey(options, file, kind=None):
    """Runs one, planting in its second round; its cells."""
    command = [VELMO, "survey", *options.split(), "-o", file]
    with contextlib.ExitStack() as plant:
        run = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        cells = int(run.stderr.readline().split()[0])
        children, child = 0, None
        if not kind:
            run.wait()  # looking for children takes time from cells that need all CPUs
        for pid in new_children(run.pid):
            if run.poll() is not None:
                break
            if pid is not None:
                child, children = pid, children + 1
                if kind and children - 1 in (cells, 2 * cells):
                    os.kill(child, signal.SIGSTOP)
                    plant.close()
                    if children - 1 == cells:
                        plant.enter_context(kind.set(run.pid, child))
                    os.kill(child, signal.SIGCONT)
            elif kind and kind.often and cells < children <= 2 * cells:
                with contextlib.suppress(OSError):
                    kind.often(child)
                continue
            time.sleep(0.01)
    if run.returncode != 0:
        sys.exit(f"plants: {' '.join(command)} ended with {run.returncode}")
    return json.loads(pathlib.Path(file).read_text())["cells"]


def classic_tells():
    """Whether a classic run that is stopped again and again says so on its terminal."""
    source, sink = pty.openpty()
    with tempfile.TemporaryDirectory() as work:
        run = subprocess.Popen([VELMO, *"-Y -C 0 -m 64m -i 1 -V 0".split()], cwd=work,
                               stdout=subprocess.DEVNULL, stderr=sink)
        while run.poll() is None:
            stop(run.pid)
    return run.returncode == 0 and b"Disturbed by paused" in os.read(source, 1 << 16)


def tally(kind, cells, planted, quiet):
    """Counts the repeats and the rules that they broke."""
    for cell in cells:
        for repeat in cell["repeats"]:
            rules = {d["rule"] for d in repeat.get("disturbed_by", [])}
            plant = bool(kind.rules) and repeat["round"] == PLANTED
            if plant or not kind.rules:
                counts = planted if plant else quiet
                counts.update(rules)
                counts["repeats"] += 1
                counts["right"] += bool(rules & kind.rules if plant else rules - {"stolen_time"})


def ratios(cells, clean):
    """Of each cell's summary to that of the same cell in a survey without plants."""
    for cell, other in zip(cells, clean, strict=True):
        for name in ("average_ns", "bytes_per_second"):
            if name in cell["summary"]:
                yield cell["summary"][name]["median"] / other["summary"][name]["median"]


def print_counts(name, counts):
    rules = ", ".join(f"{k} {v}" for k, v in counts.most_common() if k not in ("repeats", "right"))
    print(f"{name:8} {counts['repeats']:7} {counts['right']:6}  {rules}", flush=True)


def main():
    parser = argparse.ArgumentParser(prog="plant")
    parser.add_argument("plants", nargs="?", type=int, default=20)
    parser.add_argument("--kinds", default="cpu,load,quota,stop,pages,nothing")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 31))
    arguments = parser.parse_args()
    random.seed(arguments.seed)
    quiet, missed, off = collections.Counter(), 0, []
    few = arguments.plants < 20  # show that each kind is named at all
    with tempfile.TemporaryDirectory() as work:
        file = f"{work}/survey.json"
        cpu = survey("--only idle --size 1m --repeats 1", file)[0]["parameters"]["cpu"]
        other = max(os.sched_getaffinity(0) - {cpu}, default=cpu)
        print(f"seed {arguments.seed}\nkind     repeats  named  by", flush=True)
        for name in arguments.kinds.split(","):
            kind, planted = kinds(cpu, other)[name], collections.Counter()
            counts = planted if kind.rules else quiet
            wanted = counts["repeats"] + arguments.plants
            while counts["repeats"] < wanted:
                options = (
                    f"--cpu-nodes 0 --memory-nodes 0 --size 64m --repeats {ROUNDS} --mixes "
                    f"{random.choice(('1:0', '2:1', '1:1n'))} --seed {random.randrange(1 << 31)} "
                    f"--only {kind.only or random.choice(('idle', 'bandwidth', 'loaded'))}")
                cells = survey(options, file, kind if kind.rules else None)
                tally(kind, cells, planted, quiet)
                if kind.rules and not few:
                    off += [abs(ratio - 1) for ratio in ratios(cells, survey(options, file))]
            if kind.rules:
                print_counts(name, planted)
                missed += planted["right"] < (1 if few else 0.95 * planted["repeats"])
    if "nothing" in arguments.kinds:
        print_counts("none", quiet)
        missed += quiet["right"] > 0.02 * quiet["repeats"]
    if off:
        near = sum(share <= 0.02 for share in off)
        print(f"{near} of {len(off)} medians are within 2 % of those of a survey without plants, "
              f"half of them within {100 * statistics.median(off):.1f} %")
        missed += statistics.median(off) > 0.02
    told = classic_tells()
    print("A classic run on a terminal", "tells" if told else "does not tell", "that it was stopped")
    sys.exit(1 if missed or not told else 0)


if __name__ == "__main__":
    main()
