#!/usr/bin/env python3
"""Builds a file server's share for the shared-index benchmark.

    make_share.py DEST [--files N] [--seed S]

N files (default 1,000,000) in folders of about fifty, four levels deep
(team/project/year/topic), named from office words, a date and a number. Every tenth file is
a text of about 120 words drawn with a long tail from a generated vocabulary (the first
words common, the last rare); one text in a hundred holds "ledger", one in a thousand the
phrase "quiet harbour lights". One in ten is a one-line .csv or .log; the others are
sparse (made with truncate), up to 64 KiB, so the share costs little more than its inodes.
DEST must not exist or be empty.
"""

import argparse
import os
import random
import sys

NAME_WORDS = ["report", "invoice", "minutes", "budget", "draft", "contract", "photo", "scan",
              "summary", "letter", "plan", "review", "notes", "offer", "order", "memo"]
TEAMS = ["finance", "legal", "design", "sales", "support", "research", "hr", "it"]
TOPICS = ["clients", "archive", "incoming", "templates", "shared", "old", "current", "misc",
          "exports", "meetings"]
# Made sparse, sized from bytes to 64 KiB: the indexer's readers look into every file, and
# large sparse files would make the benchmark measure reading zeros. Text formats (.csv,
# .log) get one line.
SPARSE = [".pdf", ".docx", ".jpg", ".JPG", ".png", ".xlsx", ".zip", ""]
SMALL = [".csv", ".log"]


def vocabulary(rng, count):
    syllables = ["ka", "lo", "mi", "ne", "ru", "sa", "to", "vi", "der", "lan", "mor", "pel",
                 "qua", "ste", "win", "zor", "bra", "chi", "fen", "gul"]
    return ["".join(rng.choice(syllables) for _ in range(rng.randint(2, 4))) for _ in range(count)]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("dest")
    ap.add_argument("--files", type=int, default=1000000)
    ap.add_argument("--seed", type=int, default=7)
    args = ap.parse_args()
    if os.path.exists(args.dest) and os.listdir(args.dest):
        sys.exit(f"make_share.py: {args.dest} is not empty")
    rng = random.Random(args.seed)
    words = vocabulary(rng, 5000)
    per_folder = 50
    folder = None
    for i in range(args.files):
        if i % per_folder == 0:
            k = i // per_folder
            folder = os.path.join(args.dest, TEAMS[k % len(TEAMS)], f"project-{k // 8 % 250}",
                                  str(2015 + k % 11), rng.choice(TOPICS) + f"-{k}")
            os.makedirs(folder)
        year = 2015 + rng.randrange(11)
        stem = f"{rng.choice(NAME_WORDS)}_{year}-{rng.randrange(1, 13):02d}_{i}"
        if rng.random() < 0.3:
            stem = stem.capitalize()
        if i % 10 == 0:
            text = [words[int(5000 ** rng.random()) - 1] for _ in range(120)]
            if i % 1000 == 0:
                text[60:63] = ["quiet", "harbour", "lights"]
            elif i % 100 == 0:
                text[30] = "ledger"
            with open(os.path.join(folder, stem + ".txt"), "w") as f:
                f.write(" ".join(text) + "\n")
        elif i % 10 == 5:
            with open(os.path.join(folder, stem + rng.choice(SMALL)), "w") as f:
                f.write(f"{i};{year};{rng.randrange(1000)}\n")
        else:
            with open(os.path.join(folder, stem + rng.choice(SPARSE)), "w") as f:
                f.truncate(int(2 ** (16 * rng.random())))


if __name__ == "__main__":
    main()
