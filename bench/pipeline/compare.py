#!/usr/bin/python3
"""Times whole runs of the driver beside peer tools on one simulated input and prints the ratios as a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds driver, bench_driver and simulate; WORK_DIR keeps the simulated inputs between runs. The commands of a
comparison run in turn, round after round, so that both sides see the same machine; the least time of each side counts.
"""
import argparse
import os
import shutil
import subprocess
import sys
import time

parser = argparse.ArgumentParser(usage=__doc__)
parser.add_argument("build")
parser.add_argument("work")
parser.add_argument("--rounds", type=int, default=3)
parser.add_argument("--small", action="store_true", help="a tenth of the reads, to try the script")
args = parser.parse_args()

DRIVER = os.path.join(os.path.abspath(args.build), "driver")
BENCH_DRIVER = os.path.join(os.path.abspath(args.build), "bench", "bench_driver")
SIMULATE = os.path.join(os.path.abspath(args.build), "simulate")
PICARD = shutil.which("PicardCommandLine")
os.makedirs(args.work, exist_ok=True)
os.chdir(args.work)


def simulate(folder, length):
    if not os.path.exists(f"{folder}/done"):
        shutil.rmtree(folder, ignore_errors=True)
        subprocess.run([SIMULATE, "--seed", "7", "--contigs", f"chr1:{length}", "--depth", "60", "--out-dir", folder],
                       check=True, stdout=subprocess.DEVNULL)
        open(f"{folder}/done", "w").close()
    reads = int(subprocess.run(["samtools", "view", "-c", f"{folder}/sample1.bam"], check=True, text=True,
                               capture_output=True).stdout)
    return f"{folder}/reference.fa", f"{folder}/sample1.bam", reads


class Timed:
    """One side of a comparison: least wall seconds and peak memory over the rounds."""

    def __init__(self, command):
        self.command = command
        self.seconds = float("inf")
        self.mebibytes = 0
        self.size = 0  # of the BAM it made, bytes

    def once(self):
        for name in os.listdir("."):
            if name.endswith((".bam", ".bai")):  # both sides make new files
                os.remove(name)
        begin = time.monotonic()
        with open("log", "w") as log:
            child = subprocess.Popen(self.command, stdout=log, stderr=log, stdin=subprocess.DEVNULL)
            _, status, usage = os.wait4(child.pid, 0)
        if status != 0:
            sys.exit(f"status {status}: {' '.join(self.command)}\n{open('log').read()[-2000:]}")
        self.seconds = min(self.seconds, time.monotonic() - begin)
        self.size = sum(os.path.getsize(name) for name in os.listdir(".") if name.endswith(".bam"))
        self.mebibytes = max(self.mebibytes, usage.ru_maxrss // 1024)


def compare(*commands, rounds=None):
    sides = [Timed(c) for c in commands]
    for _ in range(rounds or args.rounds):
        for side in sides:
            side.once()
    return sides


rows = []


def row(what, ours, peer, peer_name, target, holds):
    ratio = ours / peer
    rows.append((what, f"{ours:.2f} s", f"{peer:.2f} s", peer_name, f"{ratio:.2f}", target,
                 "yes" if holds(ratio) else "**no**"))


def driver(*algos, threads=2, ref=None, reads=None, binary=DRIVER):
    return [binary, "-t", str(threads)] + (["-r", ref] if ref else []) + ["-i", reads, *algos]


length = 500_000 if args.small else 5_000_000
ref, bam, reads = simulate(f"sim{length}", length)
_, half_bam, half_reads = simulate(f"sim{length // 2}", length // 2)

copy = driver("--algo", "ReadWriter", "ours.bam", reads=bam)
copy_peer = ["samtools", "view", "-@2", "-b", "--write-index", "-o", "peer.bam##idx##peer.bam.bai", bam]
ours, peer = compare(copy, copy_peer)
row("copy, default level", ours.seconds, peer.seconds, "samtools view -@2 -b --write-index", "<= 1.0", lambda r: r <= 1.0)
sizes = ours.size / peer.size
rows.append(("copy, file size", f"{ours.size} B", f"{peer.size} B", "same", f"{sizes:.3f}",
             "<= 1.01", "yes" if sizes <= 1.01 else "**no**"))
rows.append(("copy, peak memory", f"{ours.mebibytes} MiB", f"{peer.mebibytes} MiB", "same",
             f"{ours.mebibytes / peer.mebibytes:.2f}", "<= 400 MiB", "yes" if ours.mebibytes <= 400 else "**no**"))
copy_seconds = ours.seconds

fast = driver("--algo", "ReadWriter", "--bam_compression", "1", "ours1.bam", reads=bam)
ours, peer = compare(fast, ["samtools", "view", "-@2", "-1", "-o", "peer1.bam", bam])
row("copy, level 1", ours.seconds, peer.seconds, "samtools view -@2 -1", "<= 0.6", lambda r: r <= 0.6)
rows.append(("copy, level 1, file size", f"{ours.size} B", f"{peer.size} B", "same", f"{ours.size / peer.size:.3f}", "",
             ""))

ours, peer = compare(driver("--algo", "CountReads", reads=bam, binary=BENCH_DRIVER), ["samtools", "view", "-c", "-@2", bam])
row("traversal alone", ours.seconds, peer.seconds, "samtools view -c -@2", "<= 1.5", lambda r: r <= 1.5)

metrics = driver("--algo", "AlignmentStat", "aln.txt", ref=ref, reads=bam)
ours, peer = compare(metrics, ["samtools", "stats", "-r", ref, "-@2", bam])
row("AlignmentStat", ours.seconds, peer.seconds, "samtools stats -r -@2", "<= 0.4", lambda r: r <= 0.4)
metrics_seconds = ours.seconds
if PICARD:
    _, peer = compare(["true"], [PICARD, "CollectAlignmentSummaryMetrics", f"R={ref}", f"I={bam}", "O=picard.txt"], rounds=1)
    row("AlignmentStat", metrics_seconds, peer.seconds, "Picard CollectAlignmentSummaryMetrics", "<= 0.125",
        lambda r: r <= 0.125)

stacked = driver("--algo", "AlignmentStat", "aln.txt", "--algo", "ReadWriter", "ours.bam", ref=ref, reads=bam)
ours, alone = compare(stacked, driver("--algo", "ReadWriter", "ours.bam", ref=ref, reads=bam))
row("AlignmentStat stacked on a copy", ours.seconds, alone.seconds, "the copy alone", "<= 1.15", lambda r: r <= 1.15)

two, one, half = compare(copy, driver("--algo", "ReadWriter", "one.bam", reads=bam, threads=1),
                         driver("--algo", "ReadWriter", "half.bam", reads=half_bam))
row("-t 1 over -t 2", one.seconds, two.seconds, "ours, -t 2", ">= 1.8", lambda r: r >= 1.8)
row(f"{reads} reads over {half_reads}", two.seconds, half.seconds, "ours, half the reads", "<= 2.2", lambda r: r <= 2.2)

print(f"Input: {reads} simulated reads, 2x150, {length} bases at depth 60; {os.path.getsize(bam)} bytes.\n")
print("| what | ours | peer | peer is | ratio | target | holds |")
print("|---|---|---|---|---|---|---|")
for r in rows:
    print("| " + " | ".join(r) + " |")
