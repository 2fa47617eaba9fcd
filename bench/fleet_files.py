#!/usr/bin/env python3
"""Time and memory of velmo fleet against the number of files.

    bench/fleet_files.py VELMO DIR [FILES...]    of a fleet in DIR, which script/make-fleet made

Each line is a run over the first so many files of DIR, linked into a directory of their own.
"""

import os
import pathlib
import sys
import tempfile
import time


def main():
    velmo, fleet = sys.argv[1], pathlib.Path(sys.argv[2])
    names = sorted(path.name for path in fleet.glob("*.json"))
    counts = [int(count) for count in sys.argv[3:]] or [100, 1000, 10000, 100000]
    print(f"{'Files':>7} {'MB':>8} {'Seconds':>8} {'CPU s':>8} {'MiB':>6}")
    for count in (count for count in counts if count <= len(names)):
        with tempfile.TemporaryDirectory(dir=fleet.parent) as place:
            for name in names[:count]:
                os.link(fleet / name, f"{place}/{name}")
            size = sum((fleet / name).stat().st_size for name in names[:count])
            started = time.monotonic()
            child = os.posix_spawn(velmo, [velmo, "fleet", place, "--json"], os.environ,
                                   file_actions=[(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)])
            _, status, usage = os.wait4(child, 0)
            seconds = time.monotonic() - started
            assert os.waitstatus_to_exitcode(status) in (0, 3)
            print(f"{count:>7} {size / 1e6:>8.0f} {seconds:>8.2f} "
                  f"{usage.ru_utime + usage.ru_stime:>8.2f} {usage.ru_maxrss / 1024:>6.0f}")


main()
