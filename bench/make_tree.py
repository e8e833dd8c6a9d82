#!/usr/bin/env python3
"""Builds a large, reproducible folder tree for the search-speed benchmark.

    make_tree.py DEST [--files N] [--folders M] [--seed S]

The tree is a function of (files, folders, seed): the same parameters give the same names,
sizes and dates (dates are relative to the moment of generation). What it holds, so that a
walk meets the awkward cases of real disks:

  - folders forming a random tree a dozen or so levels deep, some of them hidden (".name");
  - files with a mix of extensions (a few in upper case), some hidden;
  - sizes from 0 bytes to tens of megabytes, made with truncate, so the files are sparse and
    the whole tree costs little more than its inodes and folder blocks;
  - modification dates over the last three years, about a fifth of them recent: recent ones
    lie 0 to 20 days back and old ones 45 days or more, so "the last 30 days" means the same
    to every tool whatever its rounding; no size lies within 4 KiB of 100 KiB for the same
    reason;
  - names with accents and CJK characters (UTF-8), and a few names that are not UTF-8;
  - symbolic links: one to an ancestor folder (a loop for whoever follows links), one to a
    file, one dangling.

DEST is reused when it holds a stamp with the same parameters (and is less than
MAX_AGE_DAYS old). A DEST without our stamp is
refused when it is not empty, so a mistyped path never loses anyone's files.
"""

import argparse
import json
import os
import random
import shutil
import sys
import time

STAMP = ".make_tree-stamp"
VERSION = 1

# Extension and weight; "" is a name without an extension.
EXTENSIONS = [
    ("txt", 12), ("md", 4), ("log", 6), ("c", 5), ("h", 4), ("cpp", 5), ("py", 5), ("js", 4),
    ("json", 4), ("xml", 2), ("html", 3), ("jpg", 10), ("png", 6), ("gif", 1), ("pdf", 4),
    ("docx", 2), ("xlsx", 1), ("zip", 2), ("tar.gz", 1), ("mp3", 3), ("mp4", 1), ("o", 4),
    ("", 3), ("TXT", 1), ("JPG", 1),
]
WORDS = ["report", "photo", "notes", "draft", "main", "util", "index", "data", "backup",
         "readme", "config", "test", "image", "song", "invoice", "letter", "summary", "build",
         "cache", "module", "chapter", "scan", "export", "list"]
ACCENTED = ["café", "résumé", "naïve", "Ångström", "señal", "Überblick", "crème", "façade"]
CJK = ["資料", "写真", "日本語", "报告", "테스트", "ファイル"]
FOLDER_WORDS = ["src", "docs", "photos", "music", "projects", "archive", "misc", "work",
                "2019", "2020", "2021", "assets", "lib", "tmp", "old", "new"]

DAY = 86400
# Dates are relative to the day the tree was made; after this many days the gap around
# "30 days ago" has moved too far and the tree is made again.
MAX_AGE_DAYS = 10


def pick_name(rng, i, words):
    """A base name: mostly ASCII, sometimes accented or CJK (UTF-8)."""
    r = rng.random()
    if r < 0.03:
        stem = rng.choice(ACCENTED)
    elif r < 0.05:
        stem = rng.choice(CJK)
    else:
        stem = rng.choice(words)
    return "%s_%d" % (stem, i)


def pick_size(rng):
    r = rng.random()
    if r < 0.10:
        return 0
    if r < 0.70:
        size = rng.randint(1, 16 * 1024)
    elif r < 0.85:
        size = rng.randint(16 * 1024, 96 * 1024)
    else:
        size = int(2 ** rng.uniform(17.0, 26.0))  # about 128 KiB to 64 MiB
    # Keep away from the 100 KiB threshold so every tool's rounding gives the same answer.
    if 96 * 1024 < size < 108 * 1024:
        size = 108 * 1024 + size % 4096
    return size


def pick_mtime(rng, now):
    if rng.random() < 0.2:
        age = rng.uniform(0, 20 * DAY)
    else:
        age = rng.uniform(45 * DAY, 3 * 365 * DAY)
    return now - age


def build(dest, files, folders, seed):
    rng = random.Random(seed)
    now = time.time()
    root = os.fsencode(dest)
    os.makedirs(root, exist_ok=True)

    # Folders: each new one hangs under a random earlier one, which gives a tree of
    # logarithmic depth with a long tail of deeper branches.
    paths = [root]
    depth = [0]
    hidden_folder = [False]  # the folder or one of its ancestors is hidden
    for i in range(1, folders):
        parent = rng.randrange(i) if rng.random() < 0.7 else rng.randrange(max(1, i - 50), i)
        name = pick_name(rng, i, FOLDER_WORDS)
        hidden = rng.random() < 0.03
        if hidden:
            name = "." + name
        path = os.path.join(paths[parent], name.encode("utf-8"))
        os.mkdir(path)
        paths.append(path)
        depth.append(depth[parent] + 1)
        hidden_folder.append(hidden or hidden_folder[parent])

    weights = [w for _, w in EXTENSIONS]
    for i in range(files):
        folder = paths[rng.randrange(folders)]
        ext = rng.choices(EXTENSIONS, weights)[0][0]
        name = pick_name(rng, i, WORDS) + ("." + ext if ext else "")
        if rng.random() < 0.04:
            name = "." + name
        path = os.path.join(folder, name.encode("utf-8"))
        fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
        try:
            size = pick_size(rng)
            if size:
                os.ftruncate(fd, size)
            t = pick_mtime(rng, now)
            os.utime(fd, (t, t))
        finally:
            os.close(fd)

    # Names that are not UTF-8: Latin-1 bytes, a lone continuation byte, an overlong form.
    bad = [b"caf\xe9.txt", b"\xff\xfe-notes.txt", b"bad\x80name.log", b"over\xc0\xaflong.txt",
           b"latin1-r\xe9sum\xe9.pdf", b"\xe6\x97.txt"]
    for j, name in enumerate(bad):
        folder = paths[(j * 7919 + 13) % folders]
        path = os.path.join(folder, name)
        with open(path, "wb") as f:
            f.write(b"x" * (j + 1))
        t = now - (j + 1) * DAY
        os.utime(path, (t, t))
    bad_folder = os.path.join(paths[min(5, folders - 1)], b"dir-\xfe\xff")
    os.mkdir(bad_folder)
    with open(os.path.join(bad_folder, b"inside.txt"), "wb") as f:
        f.write(b"y")

    # Links: a loop back to an ancestor (the deepest visible folder's grandparent), a link
    # to a file, and one that leads nowhere. Their own dates are left as made.
    deep = max((i for i in range(folders) if not hidden_folder[i]), key=lambda i: depth[i])
    os.symlink(b"../..", os.path.join(paths[deep], b"loop-up"))
    target_dir = paths[min(7, folders - 1)]
    some_file = sorted(n for n in os.listdir(target_dir)
                       if os.path.isfile(os.path.join(target_dir, n)))
    if some_file:
        os.symlink(some_file[0], os.path.join(target_dir, b"link-to-file.txt"))
    os.symlink(b"does-not-exist", os.path.join(paths[min(9, folders - 1)], b"dangling.txt"))

    # Folders' own dates are old, so the date rule is about files.
    for p in reversed(paths[1:]):
        t = now - 400 * DAY
        os.utime(p, (t, t))


def main():
    ap = argparse.ArgumentParser(description="Build the benchmark folder tree.")
    ap.add_argument("dest")
    ap.add_argument("--files", type=int, default=300000)
    ap.add_argument("--folders", type=int, default=30000)
    ap.add_argument("--seed", type=int, default=20240611)
    args = ap.parse_args()
    if args.files < 0 or args.folders < 10:
        ap.error("need --files >= 0 and --folders >= 10")

    params = {"version": VERSION, "files": args.files, "folders": args.folders, "seed": args.seed}
    stamp = os.path.join(args.dest, STAMP)
    if os.path.isdir(args.dest):
        try:
            with open(stamp) as f:
                old = json.load(f)
        except (OSError, ValueError):
            old = None
        fresh = old is not None and time.time() - old.get("made", 0) < MAX_AGE_DAYS * DAY
        if old is not None and old.get("params") == params and fresh:
            print("%s: reusing the tree made %s" % (args.dest, time.ctime(old.get("made", 0))))
            return 0
        if old is None and os.listdir(args.dest):
            print("%s exists, is not empty and holds no tree of ours; not touching it" % args.dest,
                  file=sys.stderr)
            return 2
        shutil.rmtree(args.dest)

    started = time.time()
    build(args.dest, args.files, args.folders, args.seed)
    # The stamp comes last: an interrupted run leaves a tree that the next run rebuilds.
    with open(stamp, "w") as f:
        json.dump({"params": params, "made": time.time()}, f)
    print("%s: %d files in %d folders made in %.1f s" %
          (args.dest, args.files, args.folders, time.time() - started))
    return 0


if __name__ == "__main__":
    sys.exit(main())
