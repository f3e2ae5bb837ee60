"""Runs of the driver beside peer tools, timed side by side, and the Markdown table that comes of it.

The commands of a comparison run in turn, round after round, so that both sides see the same machine; the least time of
each side counts.
"""
import argparse
import os
import shutil
import subprocess
import sys
import time


def arguments(doc, add_own=None):
    """The command line that every comparison has, and what add_own(parser) adds; the current folder becomes WORK_DIR."""
    parser = argparse.ArgumentParser(usage=doc)
    parser.add_argument("build")
    parser.add_argument("work")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--small", action="store_true", help="a tenth of the input, to try the script")
    if add_own:
        add_own(parser)
    args = parser.parse_args()
    args.started_in = os.getcwd()
    args.build = os.path.abspath(args.build)
    os.makedirs(args.work, exist_ok=True)
    os.chdir(args.work)
    return args


def simulate(build, length, *options):
    """Reference, reads (one sample) and their number, kept from run to run."""
    folder = "-".join(["sim", str(length), *(o.strip("-") for o in options)])
    if not os.path.exists(f"{folder}/done"):
        shutil.rmtree(folder, ignore_errors=True)
        subprocess.run([f"{build}/simulate", "--seed", "7", "--contigs", f"chr1:{length}", "--depth", "60",
                        "--out-dir", folder, *options], check=True, stdout=subprocess.DEVNULL)
        open(f"{folder}/done", "w").close()
    bam = f"{folder}/sample1.bam"
    count = subprocess.run(["samtools", "view", "-c", bam], check=True, text=True, capture_output=True).stdout
    return f"{folder}/reference.fa", bam, int(count)


class Timed:
    """One side of a comparison: least wall and processor seconds and peak memory over the rounds.

    `command` is a list of words, or a text for the shell. `makes` names the files that it makes: they are removed before
    each round, and `size` is the bytes of the first.
    """

    def __init__(self, command, makes=(), stdin=None, stdout="log"):
        self.command = ["sh", "-ec", command] if isinstance(command, str) else command
        self.makes, self.stdin, self.stdout = makes, stdin or os.devnull, stdout
        self.seconds = self.processor_seconds = float("inf")
        self.mebibytes = 0
        self.size = 0

    def once(self):
        for name in self.makes:
            if os.path.exists(name):
                os.remove(name)
        with open(self.stdout, "w") as out, open("log", "a") as log, open(self.stdin) as stdin:
            begin = time.monotonic()
            child = subprocess.Popen(self.command, stdout=out, stderr=log, stdin=stdin)
            _, status, usage = os.wait4(child.pid, 0)
            self.seconds = min(self.seconds, time.monotonic() - begin)
            self.processor_seconds = min(self.processor_seconds, usage.ru_utime + usage.ru_stime)
        if status != 0:
            sys.exit(f"status {status}: {' '.join(self.command)}\n{open('log').read()[-2000:]}")
        self.size = os.path.getsize(self.makes[0]) if self.makes else 0
        self.mebibytes = max(self.mebibytes, usage.ru_maxrss // 1024)


def compare(*sides, rounds):
    for _ in range(rounds):
        for side in sides:
            side.once()
    return sides


class Table:
    def __init__(self):
        self.rows = []

    def add(self, what, ours, peer, peer_name, at_most=None, at_least=None, unit="s", of_ratio=True):
        """A row; the bound is one of the ratio, or else of our own figure. Without a bound nothing is to hold."""
        form = (lambda x: f"{x:.2f} s") if unit == "s" else (lambda x: f"{x} {unit}")
        figure = ours / peer if of_ratio else ours
        bound, holds = "", ""
        if at_most is not None:
            bound, good = f"<= {at_most}", figure <= at_most
        elif at_least is not None:
            bound, good = f">= {at_least}", figure >= at_least
        if bound:
            bound += "" if of_ratio else f" {unit}"
            holds = "yes" if good else "**no**"
        self.rows.append((what, form(ours), form(peer), peer_name, f"{ours / peer:.3f}", bound, holds))

    def print(self, title):
        print(title + "\n")
        print("| what | ours | peer | peer is | ratio | target | holds |")
        print("|---|---|---|---|---|---|---|")
        for row in self.rows:
            print("| " + " | ".join(row) + " |")
