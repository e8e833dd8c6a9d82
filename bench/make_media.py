#!/usr/bin/env python3
"""Makes a tree of media files for the property benchmark by copying sample files.

    make_media.py DEST SAMPLES [--copies N]

SAMPLES is a folder of sample files (the corpus); its audio/ and images/ files are copied N
times each (default 60) under DEST/media/, and its documents/ and text-encodings/ files as many
times under DEST/other/, so that a rule on a music or photo property meets as many files it
must read as files it must pass over. DEST must be empty or one of these trees.
"""
import argparse
import json
import os
import shutil
import sys

STAMP = ".make_media-stamp"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("dest")
    ap.add_argument("samples")
    ap.add_argument("--copies", type=int, default=60)
    a = ap.parse_args()
    params = {"copies": a.copies, "samples": os.path.abspath(a.samples), "version": 1}
    stamp = os.path.join(a.dest, STAMP)
    if os.path.exists(stamp):
        with open(stamp) as f:
            if json.load(f).get("params") == params:
                return 0
        shutil.rmtree(a.dest)
    elif os.path.isdir(a.dest) and os.listdir(a.dest):
        sys.exit("make_media.py: %s is not empty and not a media tree" % a.dest)
    counts = {"media": 0, "other": 0}
    for group, folders in (("media", ("audio", "images")), ("other", ("documents", "text-encodings"))):
        for folder in folders:
            src = os.path.join(a.samples, folder)
            if not os.path.isdir(src):
                sys.exit("make_media.py: no %s in %s" % (folder, a.samples))
            for n in range(a.copies):
                dst = os.path.join(a.dest, group, folder, "c%03d" % n)
                os.makedirs(dst, exist_ok=True)
                for name in os.listdir(src):
                    shutil.copyfile(os.path.join(src, name), os.path.join(dst, name))
                    counts[group] += 1
    with open(stamp, "w") as f:
        json.dump({"params": params, "counts": counts}, f)
    print("made %d media files and %d others" % (counts["media"], counts["other"]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
