#!/usr/bin/env python3
"""Times a whole process, many times, finer than the shell's `time`.

    proc_time.py [--reps N] [--warm N] -- COMMAND [ARGS...]

Prints "WALL CPU": the medians over N runs (default 20) of the wall time from spawning the
process to reaping it, and of its CPU time (user + system, from wait4), in milliseconds with
two decimals. Its output goes to /dev/null; a command that fails is timed all the same. The
spawn itself (posix_spawn, a fraction of a millisecond) is part of the wall time: time
/bin/true the same way to see it.
"""
import argparse
import os
import statistics
import sys
import time


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--reps", type=int, default=20)
    ap.add_argument("--warm", type=int, default=2, help="untimed runs first (caches, page cache)")
    ap.add_argument("command", nargs=argparse.REMAINDER)
    args = ap.parse_args()
    command = args.command[1:] if args.command[:1] == ["--"] else args.command
    if not command or args.reps < 1:
        ap.error("give --reps >= 1 and a command after --")
    null = os.open(os.devnull, os.O_WRONLY)
    actions = [(os.POSIX_SPAWN_DUP2, null, 1), (os.POSIX_SPAWN_DUP2, null, 2)]
    walls, cpus = [], []
    for run in range(args.warm + args.reps):
        start = time.perf_counter()
        try:
            pid = os.posix_spawnp(command[0], command, os.environ, file_actions=actions)
        except OSError as e:
            print("proc_time.py: %s: %s" % (command[0], e.strerror), file=sys.stderr)
            return 2
        _, _, usage = os.wait4(pid, 0)
        wall = (time.perf_counter() - start) * 1000
        if run >= args.warm:
            walls.append(wall)
            cpus.append((usage.ru_utime + usage.ru_stime) * 1000)
    print("%.2f %.2f" % (statistics.median(walls), statistics.median(cpus)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
