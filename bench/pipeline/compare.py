#!/usr/bin/python3
"""Times whole runs of the driver beside peer tools on one simulated input and prints the ratios as a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds driver, bench_driver and simulate; WORK_DIR keeps the simulated inputs between runs.
"""
import os
import shutil
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from comparison import Table, Timed, arguments, compare, simulate  # noqa: E402

args = arguments(__doc__)
DRIVER = f"{args.build}/driver"
PICARD = shutil.which("PicardCommandLine")


def ours(*algos, threads=2, ref=None, reads=None, binary=DRIVER, makes=()):
    return Timed([binary, "-t", str(threads)] + (["-r", ref] if ref else []) + ["-i", reads, *algos], makes)


def copy_of(reads, *options, **settings):
    return ours("--algo", "ReadWriter", *options, "ours.bam", reads=reads, makes=("ours.bam", "ours.bam.bai"), **settings)


def run(*sides, rounds=args.rounds):
    return compare(*sides, rounds=rounds)


table = Table()
length = 500_000 if args.small else 5_000_000
ref, bam, reads = simulate(args.build, length)
_, half_bam, half_reads = simulate(args.build, length // 2)

made = ("peer.bam", "peer.bam.bai")
copy, peer = run(copy_of(bam),
                 Timed(["samtools", "view", "-@2", "-b", "--write-index", "-o", "peer.bam##idx##peer.bam.bai", bam], made))
table.add("copy, default level", copy.seconds, peer.seconds, "samtools view -@2 -b --write-index", at_most=1.0)
table.add("copy, file size", copy.size, peer.size, "same", at_most=1.01, unit="B")
table.add("copy, peak memory", copy.mebibytes, peer.mebibytes, "same", at_most=400, unit="MiB", of_ratio=False)

fast, peer = run(copy_of(bam, "--bam_compression", "1"), Timed(["samtools", "view", "-@2", "-1", "-o", "peer.bam", bam], made))
table.add("copy, level 1", fast.seconds, peer.seconds, "samtools view -@2 -1", at_most=0.6)
table.add("copy, level 1, file size", fast.size, peer.size, "same", unit="B")

count, peer = run(ours("--algo", "CountReads", reads=bam, binary=f"{args.build}/bench/bench_driver"),
                  Timed(["samtools", "view", "-c", "-@2", bam]))
table.add("traversal alone", count.seconds, peer.seconds, "samtools view -c -@2", at_most=1.5)

metrics, peer = run(ours("--algo", "AlignmentStat", "aln.txt", ref=ref, reads=bam),
                    Timed(["samtools", "stats", "-r", ref, "-@2", bam]))
table.add("AlignmentStat", metrics.seconds, peer.seconds, "samtools stats -r -@2", at_most=0.4)
if PICARD:
    (peer,) = run(Timed([PICARD, "CollectAlignmentSummaryMetrics", f"R={ref}", f"I={bam}", "O=picard.txt"]), rounds=1)
    table.add("AlignmentStat", metrics.seconds, peer.seconds, "Picard CollectAlignmentSummaryMetrics", at_most=0.125)

stacked, alone = run(ours("--algo", "AlignmentStat", "aln.txt", "--algo", "ReadWriter", "ours.bam", ref=ref, reads=bam),
                     ours("--algo", "ReadWriter", "ours.bam", ref=ref, reads=bam))
table.add("AlignmentStat stacked on a copy", stacked.seconds, alone.seconds, "the copy alone", at_most=1.15)

two, one, half = run(copy_of(bam), copy_of(bam, threads=1), copy_of(half_bam))
table.add("-t 1 over -t 2", one.seconds, two.seconds, "ours, -t 2", at_least=1.8)
table.add(f"{reads} reads over {half_reads}", two.seconds, half.seconds, "ours, half the reads", at_most=2.2)

table.print(f"Input: {reads} simulated reads, 2x150, {length} bases at depth 60; {os.path.getsize(bam)} bytes.")
