"""Ends velmo by signals at random instants and checks what it leaves behind.

Every job has a mount namespace with a /dev/cpu of its own. Its stand-ins for the registers are
sparse files there, which go with the namespace whatever ends the storm.
"""

import argparse
import collections
import contextlib
import ctypes
import fcntl
import glob
import multiprocessing.connection
import os
import pathlib
import pty
import random
import re
import select
import signal
import stat
import subprocess
import sys
import tempfile
import termios
import time

# Short runs that show every phase; -C 0 and -M 0 spare the search for the nearest CPU node.
COMMANDS = ("-Y -k 1 -m 64m -i 1", "-Y -C 0 -m 1m -i 1 -V 0", "-X -C 0 -m 1m -i 1 -d 100",
            "-L -C 0 -m 1m -i 1 -d 100", "-B -m 8m -i 1", "-B -a -m 8m -i 1", "-B -z5 -m 8m",
            "-T -M 0 -m 8m -i 1", "-Z -C 0 -m 2m -D 0", "-Z -C 0 -m 2m",
            "-B -Y -Z -C 0 -m 2m -i 1 -D 0")
OUTPUTS = ("terminal", "file", "closed pipe", "stuck pipe")
SIGNALS = (signal.SIGTSTP, signal.SIGINT, signal.SIGTERM, signal.SIGQUIT)
BANNER, DONE = b"***** VELMO START *****\n", b"***** DONE *****"
# Seconds until the handlers are there, from the first signal to the end, and for which a process
# that is late is watched.
START_LIMIT, END_LIMIT, PATIENCE = 60.0, 2.0, 10.0
PIPE_SIZE, PR_SET_PDEATHSIG, PF_EXITING = 4096, 1, 4
CLONE_NEWNS, MS_REC_PRIVATE = 0x20000, 0x44000

libc = ctypes.CDLL(None, use_errno=True)


# room: what a stuck pipe takes of the text behind the banner, 0 none, 1 all. msr False: a machine
# without registers. gaps: seconds before each signal. anchor: "start" (the handlers are there),
# "change" (of threads or register), "register" (it is changed), "uniform", or "end" (the closing
# banner, where it can be seen). place: which change or which instant of the run, 0 first, 1 last.
# delay: seconds behind the anchor.
Shot = collections.namedtuple(
    "Shot", "number command output room msr signals gaps anchor place delay")


def plan_shot(seed, number):
    rng = random.Random(f"{seed} {number}")
    anchor = rng.choices(("start", "change", "register", "uniform", "end"), (20, 25, 30, 15, 10))[0]
    aims_at_register = anchor == "register"
    command = rng.choice([c for c in COMMANDS if not aims_at_register or re.search("-[LXYZ]", c)])
    signals = rng.sample(SIGNALS, rng.choice((1, 1, 3)))
    return Shot(number, command, rng.choice(OUTPUTS), rng.random(),
                aims_at_register or rng.random() < 0.8, signals,
                [0.0] + [10 ** rng.uniform(-6, -2.3) for _ in signals[1:]], anchor,
                rng.uniform(0.9, 1.1) if anchor == "end" else rng.random(),
                0.0 if anchor == "uniform" else 10 ** rng.uniform(-6, -1.7))


def stat_fields(process):
    """Of /proc/PID/stat, from the third, the state, on."""
    return (process / "stat").read_text().rsplit(")", 1)[1].split()


class Registers:
    """Stand-ins of all CPUs at the addresses that velmo uses, in a /dev/cpu of this process."""

    def __init__(self):
        os.makedirs("/dev/cpu", exist_ok=True)
        if (libc.unshare(CLONE_NEWNS) or libc.mount(None, b"/", None, MS_REC_PRIVATE, None) or
                libc.mount(b"storm", b"/dev/cpu", b"tmpfs", 0, None)):
            sys.exit(f"storm: no mount namespace: {os.strerror(ctypes.get_errno())}")
        self.files, self.present = [], True
        for cpu in range(os.sysconf("SC_NPROCESSORS_CONF")):
            os.mkdir(f"/dev/cpu/{cpu}")
            self.files.append(os.open(f"/dev/cpu/{cpu}/msr", os.O_RDWR | os.O_CREAT, 0o600))

    @staticmethod
    def old(cpu):
        value = (0x1234 + cpu).to_bytes(8, "little")
        return {0x1A0: value[:4] + value, 0xC0000108: value}  # 0x1A0 and 0x1A4 overlap in a file

    def reset(self, present):
        for cpu, file in enumerate(self.files):
            for address, value in self.old(cpu).items():
                os.pwrite(file, value, address)
            if present != self.present:
                names = [f"/dev/cpu/{cpu}/msr", f"/dev/cpu/{cpu}/absent"]
                os.rename(*(reversed(names) if present else names))
        self.present = present

    def changed(self):
        return [f"cpu {cpu} {address:#x}: {value.hex()}" for cpu, file in enumerate(self.files)
                for address, old in self.old(cpu).items()
                if (value := os.pread(file, len(old), address)) != old]


class Run:
    """One velmo with an output, a session and an empty directory of its own."""

    def __init__(self, work, registers, command, output, room=0):
        self.registers, self.output, self.changes = registers, output, 0
        self.source, self.kept = None, b""
        self.directory = tempfile.TemporaryDirectory(dir=work)
        if output == "terminal":
            self.source, sink = pty.openpty()
        elif output == "file":
            sink = os.open(work, os.O_RDWR | os.O_TMPFILE | os.O_APPEND, 0o600)
            self.source = os.open(f"/proc/self/fd/{sink}", os.O_RDONLY)
        else:
            self.source, sink = os.pipe()
            fcntl.fcntl(sink, fcntl.F_SETPIPE_SZ, PIPE_SIZE)
            if output == "stuck pipe":
                os.write(sink, b"." * max(PIPE_SIZE - room, 1))
            else:
                os.close(self.source)
                self.source = None
        if self.source is not None:
            os.set_blocking(self.source, False)
        self.process = subprocess.Popen(
            [os.path.abspath("build/velmo"), *command.split()], cwd=self.directory.name,
            env={"LD_PRELOAD": os.path.abspath("build/fast_clock.so")}, stdin=subprocess.DEVNULL,
            stdout=sink, stderr=sink, start_new_session=True, preexec_fn=self.prepare)
        os.close(sink)
        self.pid = self.process.pid
        self.proc = pathlib.Path(f"/proc/{self.pid}")
        self.pidfd = os.pidfd_open(self.pid)

    def prepare(self):
        libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        if self.output == "terminal":
            fcntl.ioctl(1, termios.TIOCSCTTY, 0)

    def ends_within(self, seconds):
        return bool(select.select([self.pidfd], [], [], max(seconds, 0))[0])

    def has_handlers(self):
        """Waits for them."""
        wanted = sum(1 << signum - 1 for signum in SIGNALS)
        deadline = time.monotonic() + START_LIMIT
        while time.monotonic() < deadline and not self.ends_within(0):
            caught = (self.proc / "status").read_text().split("SigCgt:")[1].split()[0]
            if int(caught, 16) & wanted == wanted:
                return True
            time.sleep(0.0001)
        return False

    def exiting(self):
        """The kernel is ending it: signals no longer matter."""
        return int(stat_fields(self.proc)[6]) & PF_EXITING != 0

    def threads(self):
        """Of a process that is late: identity, state, scheduling policy and system call."""
        with contextlib.suppress(OSError):
            return [(task.name, fields[0], fields[38], (task / "syscall").read_text().split()[0])
                    for task in self.proc.glob("task/*") if (fields := stat_fields(task))]

    def blocked(self):
        """A thread of it is in write or writev."""
        with contextlib.suppress(OSError):
            return any(file.read_text().split()[0] in ("1", "20")
                       for file in self.proc.glob("task/*/syscall"))

    def watch(self, seconds, until=lambda: False):
        """Until that, so much time, or its end; counts the changes of its threads and register."""
        def state():
            return (self.proc / "task").stat().st_nlink, bool(self.registers.changed())
        deadline, old = time.monotonic() + seconds, state()
        while time.monotonic() < deadline and not until() and not self.ends_within(0):
            time.sleep(max(0, min(0.0001, deadline - time.monotonic())))
            self.changes += old != (old := state())
            if self.output in ("terminal", "file"):
                self.drain()

    def drain(self):
        with contextlib.suppress(OSError):
            while self.source is not None and (part := os.read(self.source, 65536)):
                self.kept += part

    def close(self):
        """Its status, and the processes that are left of its session."""
        if not self.ends_within(0):
            self.process.kill()
        status, left = self.process.wait(), []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if stat_fields(process)[3] == str(self.pid):
                    left.append(int(process.name))
                    os.kill(left[-1], signal.SIGKILL)
        self.drain()
        for fd in (self.source, self.pidfd):
            if fd is not None:
                os.close(fd)
        self.directory.cleanup()
        return status, left

    def text(self):
        return self.kept.lstrip(b".").decode(errors="replace").replace("\n", "\n  | ")


def measure(work, registers, task):
    """Length of a normal run, its changes of state, its text up to the banner and in all."""
    command, longest = task
    registers.reset(True)
    run = Run(work, registers, command, "file")
    started, begun = run.has_handlers(), time.monotonic()
    run.watch(longest)
    length, ended, left_changed = time.monotonic() - begun, run.ends_within(0), registers.changed()
    status, _ = run.close()
    if not started or ended and (status != 0 or left_changed):
        sys.exit(f"storm: {command} fails without a signal: {status} {left_changed} {run.text()}")
    return command, (length, run.changes, run.kept.index(BANNER) + len(BANNER), len(run.kept))


def shoot(work, registers, task):
    """A failure's whole story or "", ended by the signal, seconds to the end, register changed and
    output blocked at the first signal."""
    shot, (length, changes, banner, text) = task
    registers.reset(shot.msr)
    run = Run(work, registers, shot.command, shot.output,
              int(banner + shot.room * (text - banner)))
    problems = [] if run.has_handlers() else ["did not get to its handlers"]
    begun = time.monotonic()
    if shot.anchor == "change":
        run.watch(2 * length, lambda: run.changes > int(shot.place * changes))
    elif shot.anchor == "register":
        run.watch(2 * length, registers.changed)
    elif shot.anchor == "end" and shot.output in ("terminal", "file"):
        run.watch(2 * length, lambda: DONE in run.kept)
    elif shot.anchor != "start":
        run.watch(shot.place * length)
    run.watch(shot.delay)

    was_blocked, was_changed, over = run.blocked(), registers.changed(), run.exiting()
    # The status of a run that cannot write its last line.
    lost = 1 if shot.output == "closed pipe" else 0
    right = {lost if over else 0}
    fired = time.monotonic()
    for signum, gap in zip(shot.signals, shot.gaps):
        until = time.monotonic() + gap
        while time.monotonic() < until:
            pass
        os.kill(run.pid, signum)
        if lost and signum == shot.signals[0] and run.exiting():
            right.add(lost)  # the end may have been sooner
    ended = run.ends_within(fired + END_LIMIT - time.monotonic())
    if not ended:
        problems.append(f"was late: {run.threads()}")
        run.ends_within(PATIENCE)
    seconds, left_changed, (status, left) = (time.monotonic() - fired, registers.changed(),
                                             run.close())
    if status not in right:
        problems.append(f"status not {right}")
    if left_changed:
        problems.append("register not restored")
    if left:
        problems.append(f"processes left: {left}")
    story = "" if not problems else (
        f"FAIL shot {shot.number} {', '.join(problems)}\n  {shot}\n  fired "
        f"{fired - begun:.6f} s after the handlers, run of {length:.3f} s; status {status} "
        f"{seconds:.3f} s later; exiting before: {over}; changed registers before: {was_changed}, "
        f"after: {left_changed}; output:\n  | {run.text()}")
    return story, not over, seconds, bool(was_changed), was_blocked


def work_off(function, work, tasks, following, results):
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the parent's matter
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    # velmo's threads, at the highest priority, would keep the CPUs at the instant of a shot. A
    # real-time priority would stall both.
    os.sched_setscheduler(0, os.SCHED_OTHER | os.SCHED_RESET_ON_FORK, os.sched_param(0))
    os.nice(-20)
    registers = Registers()
    while True:
        with following.get_lock():
            index, following.value = following.value, following.value + 1
        if index >= len(tasks):
            return
        results.send(function(work, registers, tasks[index]))


def spread(jobs, function, work, tasks):
    """Results of function for all tasks, as they come."""
    following, readers = multiprocessing.Value("i", 0), []
    for _ in range(jobs):
        reader, writer = multiprocessing.Pipe(duplex=False)
        multiprocessing.Process(target=work_off, daemon=True,
                                args=(function, work, tasks, following, writer)).start()
        writer.close()
        readers.append(reader)
    while readers:
        for reader in multiprocessing.connection.wait(readers):
            try:
                yield reader.recv()
            except EOFError:
                readers.remove(reader)


def main():
    parser = argparse.ArgumentParser(prog="storm", description=__doc__.splitlines()[0])
    parser.add_argument("shots", type=int, nargs="?", default=1000)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--jobs", type=int, default=2, help="shots at a time")
    parser.add_argument("--shot", type=int, help="only this one of the seed")
    parser.add_argument("--longest", type=float, default=20,
                        help="seconds of a run that are measured and under fire")
    options = parser.parse_args()
    if os.getuid() != 0:
        sys.exit("storm: needs root for its register stand-ins")
    if any(stat.S_ISCHR(os.stat(file).st_mode) for file in glob.glob("/dev/cpu/*/msr")):
        sys.exit("storm: this machine has real registers (/dev/cpu/N/msr)")
    numbers = range(options.shots) if options.shot is None else [options.shot]
    plan = [plan_shot(options.seed, number) for number in numbers]
    print(f"storm: {len(plan)} shots, seed {options.seed}, {options.jobs} at a time", flush=True)
    for signum in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(signum, lambda *_: sys.exit("storm: ended by a signal"))

    begun, results = time.monotonic(), []
    with tempfile.TemporaryDirectory(prefix="storm-") as work:
        try:
            commands = sorted({shot.command for shot in plan})
            measured = dict(spread(options.jobs, measure, work,
                                   [(command, options.longest) for command in commands]))
            if len(measured) < len(commands):
                sys.exit(1)
            tasks = [(shot, measured[shot.command]) for shot in plan]
            for result in spread(options.jobs, shoot, work, tasks):
                results.append(result)
                if result[0]:
                    print(f"{result[0]}\nagain: script/storm --seed {options.seed} --longest "
                          f"{options.longest} --shot {result[0].split()[2]}", flush=True)
                if sys.stderr.isatty():
                    print(f"\r{len(results)} of {len(plan)} ", end="", file=sys.stderr, flush=True)
        finally:
            for process in multiprocessing.active_children():
                process.kill()
                process.join()
    stories, by_signal, seconds, changed, blocked = zip(*results)
    failures, hit = sum(map(bool, stories)), sum(changed)
    print(f"storm: {len(results)} shots in {time.monotonic() - begun:.0f} s, {failures} failures; "
          f"{sum(by_signal)} ended by the signal, {len(results) - sum(by_signal)} before it; "
          f"longest time to the end {max(seconds):.3f} s; {hit} with the register changed, "
          f"{sum(map(bool, blocked))} with a blocked output")
    if len(results) >= 40 and hit < len(results) / 10:
        sys.exit("storm: too few shots met a changed register")
    sys.exit(failures > 0 or len(results) < len(plan))


if __name__ == "__main__":
    main()
