"""Ends velmo by signals at random instants and checks what it leaves behind.

Every job has a mount namespace with a /dev/cpu of its own. Its stand-ins for the registers are
sparse files there, which go with the namespace whatever ends the storm.
"""

import argparse
import collections
import concurrent.futures
import contextlib
import ctypes
import glob
import math
import os
import pathlib
import pty
import random
import select
import signal
import stat
import subprocess
import sys
import tempfile
import time

# Short runs that show every phase; -C 0 and -M 0 spare the search for the nearest CPU node.
COMMANDS = ("-Y -k 1 -m 64m -i 1", "-Y -C 0 -m 1m -i 1 -V 0", "-X -C 0 -m 1m -i 1 -d 100",
            "-L -C 0 -m 1m -i 1 -d 100", "-Z -C 0 -m 2m -D 0", "-Z -C 0 -m 2m",
            "-B -Y -Z -C 0 -m 2m -i 1 -D 0", "-B -m 8m -i 1", "-B -z5 -m 8m", "-T -M 0 -m 8m -i 1",
            "-B -m 8m -i 1 -D 2000000000")
OF_LATENCY = COMMANDS[:7]  # which switch the prefetchers off
SIGNALS = (signal.SIGTSTP, signal.SIGINT, signal.SIGTERM, signal.SIGQUIT)
# Seconds until the handlers are there, and from the first signal to the end.
START_LIMIT, END_LIMIT = 60.0, 2.0
PIPE_SIZE, F_SETPIPE_SZ, PR_SET_PDEATHSIG = 4096, 1031, 1
CLONE_NEWNS, MS_REC_PRIVATE = 0x20000, 0x44000

libc = ctypes.CDLL(None, use_errno=True)

# room: bytes that a pipe takes behind the handlers before it is stuck; None: a terminal. registers:
# whether the machine has some. changes: of the number of threads or of a register before the first
# signal; None: until a register is changed. delay: seconds behind that. gaps: seconds before each
# signal.
Shot = collections.namedtuple("Shot", "number command room registers changes delay signals gaps")


def plan_shot(seed, number, longest):
    rng = random.Random(f"{seed} {number}")
    changes = rng.choice((None, None, 0, rng.randrange(1, 12)))
    signals = rng.sample(SIGNALS, rng.choice((1, 1, 3)))
    return Shot(number, rng.choice(OF_LATENCY if changes is None else COMMANDS),
                rng.choice((None, rng.randrange(1, 1500))), changes is None or rng.random() < 0.8,
                changes, 10 ** rng.uniform(-6, math.log10(longest) if changes == 0 else -1.7),
                signals, [0.0] + [10 ** rng.uniform(-6, -2.3) for _ in signals[1:]])


class Registers:
    """Stand-ins of all CPUs at the addresses that velmo uses, in a /dev/cpu of this process."""

    def __init__(self):
        os.makedirs("/dev/cpu", exist_ok=True)
        if (libc.unshare(CLONE_NEWNS) or libc.mount(None, b"/", None, MS_REC_PRIVATE, None) or
                libc.mount(b"storm", b"/dev/cpu", b"tmpfs", 0, None)):
            sys.exit(f"storm: no mount namespace: {os.strerror(ctypes.get_errno())}")
        self.folders = [pathlib.Path(f"/dev/cpu/{cpu}")
                        for cpu in range(os.sysconf("SC_NPROCESSORS_CONF"))]
        for folder in self.folders:
            folder.mkdir()
        self.files = []

    @staticmethod
    def old(cpu):
        value = (0x1234 + cpu).to_bytes(8, "little")
        return {0x1A0: value[:4] + value, 0xC0000108: value}  # 0x1A0 and 0x1A4 overlap in a file

    def reset(self, present):
        for file in self.files:
            os.close(file)
        self.files = []
        for cpu, folder in enumerate(self.folders):
            file = os.open(folder / "msr", os.O_RDWR | os.O_CREAT, 0o600)
            for address, value in self.old(cpu).items():
                os.pwrite(file, value, address)
            self.files.append(file)
            if not present:
                os.unlink(folder / "msr")

    def changed(self):
        return [f"cpu {cpu} {address:#x}: {value.hex()}" for cpu, file in enumerate(self.files)
                for address, old in self.old(cpu).items()
                if (value := os.pread(file, len(old), address)) != old]


class Run:
    """One velmo with an output, a session and an empty directory of its own."""

    def __init__(self, registers, command, room):
        self.registers, self.changes, self.kept = registers, 0, b""
        self.room, self.is_terminal = room, room is None
        self.directory = tempfile.TemporaryDirectory(prefix="storm-")
        self.source, sink = pty.openpty() if self.is_terminal else os.pipe()
        if not self.is_terminal:
            libc.fcntl(sink, F_SETPIPE_SZ, PIPE_SIZE)
            # Of its own: velmo's end of the pipe still blocks.
            self.filler = os.open(f"/proc/self/fd/{sink}", os.O_WRONLY | os.O_NONBLOCK)
        os.set_blocking(self.source, False)
        self.process = subprocess.Popen(
            [os.path.abspath("build/velmo"), *command.split()], cwd=self.directory.name,
            env={"LD_PRELOAD": os.path.abspath("build/fast_clock.so")}, stdin=subprocess.DEVNULL,
            stdout=sink, stderr=sink, start_new_session=True,
            preexec_fn=lambda: libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL))
        os.close(sink)
        self.proc = pathlib.Path(f"/proc/{self.process.pid}")
        self.pidfd = os.pidfd_open(self.process.pid)

    def ends_within(self, seconds):
        return bool(select.select([self.pidfd], [], [], max(seconds, 0))[0])

    def has_handlers(self):
        """Waits for them."""
        wanted = sum(1 << signum - 1 for signum in SIGNALS)
        deadline = time.monotonic() + START_LIMIT
        while time.monotonic() < deadline and not self.ends_within(0.0001):
            self.drain()  # what it warns of before
            caught = (self.proc / "status").read_text().split("SigCgt:")[1].split()[0]
            if int(caught, 16) & wanted == wanted:
                self.narrow()
                return True
        return False

    def narrow(self):
        if not self.is_terminal:
            with contextlib.suppress(BlockingIOError):
                os.write(self.filler, b"." * (PIPE_SIZE - self.room))
            os.close(self.filler)

    def watch(self, seconds, until=lambda: False):
        """Until that, so much time, or its end; counts the changes of its threads and registers."""
        def state():
            return (self.proc / "task").stat().st_nlink, bool(self.registers.changed())
        deadline, old = time.monotonic() + seconds, state()
        while time.monotonic() < deadline and not until() and not self.ends_within(0.0001):
            self.changes += old != (old := state())
            if self.is_terminal:
                self.drain()

    def drain(self):
        with contextlib.suppress(OSError):
            while part := os.read(self.source, 65536):
                self.kept += part

    def close(self):
        """Its status, and the processes that are left of its session."""
        if not self.ends_within(0):
            self.process.kill()
        status, left = self.process.wait(), []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if os.getsid(int(process.name)) == self.process.pid:
                    left.append(int(process.name))
                    os.kill(left[-1], signal.SIGKILL)
        self.drain()
        os.close(self.source)
        os.close(self.pidfd)
        self.directory.cleanup()
        return status, left


def begin_job():
    global registers
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the parent's matter
    # velmo's threads, at the highest priority, would keep the CPUs at the instant of a shot. A
    # real-time priority would stall both.
    os.sched_setscheduler(0, os.SCHED_OTHER | os.SCHED_RESET_ON_FORK, os.sched_param(0))
    os.nice(-20)
    registers = Registers()


def shoot(task):
    """A failure's whole story or "", seconds from the first signal to the end, and whether a
    register was changed then."""
    shot, longest = task
    registers.reset(shot.registers)
    run = Run(registers, shot.command, shot.room)
    problems = [] if run.has_handlers() else ["did not get to its handlers"]
    run.watch(longest, registers.changed if shot.changes is None
              else lambda: run.changes >= shot.changes)
    run.watch(shot.delay)
    was_changed, fired = registers.changed(), time.monotonic()
    for signum, gap in zip(shot.signals, shot.gaps):
        until = time.monotonic() + gap
        while time.monotonic() < until:
            pass
        os.kill(run.process.pid, signum)
    if not run.ends_within(fired + END_LIMIT - time.monotonic()):
        problems.append("was late")
    seconds, left_changed, (status, left) = (time.monotonic() - fired, registers.changed(),
                                             run.close())
    problems += [f"status {status}"] * (status != 0)
    problems += [f"register not restored: {left_changed}"] * bool(left_changed)
    problems += [f"processes left: {left}"] * bool(left)
    story = "" if not problems else (
        f"FAIL shot {shot.number}: {', '.join(problems)}\n  {shot}\n  register changed before: "
        f"{was_changed}; {seconds:.3f} s to the end; output:\n"
        f"{run.kept.replace(b'....', b'').decode(errors='replace')}")
    return story, seconds, bool(was_changed)


def main():
    parser = argparse.ArgumentParser(prog="storm", description=__doc__.splitlines()[0])
    parser.add_argument("shots", type=int, nargs="?", default=1000)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--jobs", type=int, default=2, help="shots at a time")
    parser.add_argument("--shot", type=int, help="only this one of the seed")
    parser.add_argument("--longest", type=float, default=20,
                        help="seconds from the handlers to the first signal")
    options = parser.parse_args()
    if os.getuid() != 0:
        sys.exit("storm: needs root for its register stand-ins")
    if any(stat.S_ISCHR(os.stat(file).st_mode) for file in glob.glob("/dev/cpu/*/msr")):
        sys.exit("storm: this machine has real registers (/dev/cpu/N/msr)")
    numbers = range(options.shots) if options.shot is None else [options.shot]
    tasks = [(plan_shot(options.seed, number, options.longest), options.longest)
             for number in numbers]
    print(f"storm: {len(tasks)} shots, seed {options.seed}, {options.jobs} at a time", flush=True)
    begun, results = time.monotonic(), []
    with concurrent.futures.ProcessPoolExecutor(options.jobs, initializer=begin_job) as jobs:
        for result in jobs.map(shoot, tasks):
            results.append(result)
            if result[0]:
                print(f"{result[0]}\nagain: script/storm --seed {options.seed} --longest "
                      f"{options.longest} --shot {result[0].split()[2][:-1]}", flush=True)
    stories, seconds, changed = zip(*results)
    failures = sum(map(bool, stories))
    print(f"storm: {len(results)} shots in {time.monotonic() - begun:.0f} s, {failures} failures; "
          f"longest time to the end {max(seconds):.3f} s; {sum(changed)} with a register changed")
    if len(results) >= 40 and sum(changed) < len(results) / 10:
        sys.exit("storm: too few shots met a changed register")
    sys.exit(failures > 0)


if __name__ == "__main__":
    main()
