#!/usr/bin/env python3
"""Makes a tree of text files for the contents benchmark.

    make_text.py DEST [--megabytes N] [--files N] [--seed S]

Files of realistic sizes (a few hundred bytes to a few megabytes, most of them small, most of
the bytes in the large ones) with the extensions of text people search (.txt .md .log .csv .c
.h .py .html is left out: it is a document, read by the helper). The text is English-like
words on lines of 40 to 120 characters. The phrase "quiet harbour lantern" is planted on one
line in about one file in 25, in mixed case, so that a case-blind search finds it and a
case-sensitive one does not find all of them. DEST must be empty or one of these trees; a
tree whose parameters match is reused.
"""
import argparse
import json
import math
import os
import random
import shutil
import sys

WORDS = ("the of and to in is was for on that with as by at from his her it an were are which this be "
         "harbour ship light tower keeper night storm water stone wind lamp quiet sea rope door window "
         "letter morning evening report figure table account record value number line page house road "
         "market river bridge garden winter summer paper engine signal station office journey answer "
         "question matter reason lantern island north south east west brown green silver heavy narrow").split()
EXTENSIONS = [".txt"] * 5 + [".md", ".log", ".log", ".csv", ".c", ".h", ".py"]
PHRASES = ["quiet harbour lantern", "Quiet Harbour Lantern", "QUIET HARBOUR LANTERN", "quiet harbour Lantern"]
STAMP = ".make_text-stamp"


def text_block(rng, size):
    """About `size` bytes of lines of words."""
    out = []
    total = 0
    while total < size:
        line = []
        length = 0
        goal = rng.randint(40, 120)
        while length < goal:
            w = rng.choice(WORDS)
            line.append(w)
            length += len(w) + 1
        s = " ".join(line) + "\n"
        out.append(s)
        total += len(s)
    return "".join(out)


def file_size(rng, mu):
    # Log-normal (around 8 KiB by default), cut at 4 MiB: many small files, some large ones.
    return int(min(4 << 20, max(200, rng.lognormvariate(mu, 1.6))))


def centre_for(megabytes, files):
    """The log-normal centre that gives about `files` files for `megabytes` (9.0: the default)."""
    if not files:
        return 9.0
    # The mean of a log-normal is exp(mu + sigma^2 / 2); the cuts at 200 bytes and 4 MiB move
    # it a little, which the factor found by trial makes up for.
    return math.log((megabytes << 20) / files * 0.98) - 1.6 ** 2 / 2


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("dest")
    ap.add_argument("--megabytes", type=int, default=300)
    ap.add_argument("--files", type=int, default=0, help="about this many files (default: sizes around 8 KiB)")
    ap.add_argument("--seed", type=int, default=11)
    a = ap.parse_args()
    params = {"megabytes": a.megabytes, "seed": a.seed, "version": 1}
    if a.files:
        params["files"] = a.files
    mu = centre_for(a.megabytes, a.files)
    stamp = os.path.join(a.dest, STAMP)
    if os.path.exists(stamp):
        with open(stamp) as f:
            if json.load(f).get("params") == params:
                return 0
        shutil.rmtree(a.dest)
    elif os.path.isdir(a.dest) and os.listdir(a.dest):
        sys.exit("make_text.py: %s is not empty and not a text tree" % a.dest)
    rng = random.Random(a.seed)
    # One large block of text is made once; files are slices of it at random places, which is
    # as good as fresh text for a search and a hundred times faster to make.
    block = text_block(rng, 8 << 20)
    budget = a.megabytes << 20
    written = files = planted = 0
    os.makedirs(a.dest, exist_ok=True)
    while written < budget:
        folder = os.path.join(a.dest, "d%03d" % (files // 40), "s%d" % (files % 3))
        os.makedirs(folder, exist_ok=True)
        size = min(file_size(rng, mu), budget - written + 200)
        start = rng.randrange(0, len(block) - size) if size < len(block) else 0
        body = (block * (1 + size // len(block)))[start:start + size]
        if rng.random() < 0.04:
            at = body.find("\n", rng.randrange(0, max(1, len(body) - 1))) + 1
            body = body[:at] + "the %s was lit\n" % rng.choice(PHRASES) + body[at:]
            planted += 1
        name = os.path.join(folder, "f%06d%s" % (files, rng.choice(EXTENSIONS)))
        with open(name, "w") as f:
            f.write(body)
        written += len(body)
        files += 1
    with open(stamp, "w") as f:
        json.dump({"params": params, "files": files, "bytes": written, "planted": planted}, f)
    print("made %d files, %d MB, the phrase in %d" % (files, written >> 20, planted))
    return 0


if __name__ == "__main__":
    sys.exit(main())
