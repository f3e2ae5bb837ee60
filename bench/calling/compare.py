#!/usr/bin/python3
"""Times calling from pileups beside peer callers, judges all of them by the simulated truth, and prints Markdown tables.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds driver and simulate; WORK_DIR keeps the simulated input between runs. Each peer runs as two processes over
one half of the genome each, which is how it uses two processors.
"""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from comparison import Table, Timed, arguments, compare, simulate  # noqa: E402
from peers import accuracy, bcftools, freebayes, in_halves, print_accuracy  # noqa: E402

args = arguments(__doc__)
table = Table()
judged, inputs = [], []
for length, depth in [(5_000_000, 30), (300_000, 400)]:
    length //= 10 if args.small else 1
    ref, bam, reads = simulate(args.build, length, "--depth", str(depth), "--flag-duplicates")
    inputs.append(f"{reads} reads, {length} bases at depth {depth}")
    truth = os.path.join(os.path.dirname(ref), "truth.vcf.gz")
    # The least counts and shares are what the peers have by default.
    for var_type, pileup_options, bayes_options in [("SNP", "-I", "-i -X -u"), ("BOTH", "", "")]:
        sides = {
            "driver": Timed(f"{args.build}/driver -t 2 -r {ref} -i {bam} --algo Genotyper --var_type {var_type} ours.vcf.gz",
                            ["ours.vcf.gz"]),
            "bcftools": Timed(in_halves("chr1", length, bcftools(ref, bam, pileup_options), "bcftools.vcf.gz"),
                              ["bcftools.vcf.gz"]),
            "freebayes": Timed(in_halves("chr1", length, freebayes(ref, bam, bayes_options), "freebayes.vcf.gz"),
                               ["freebayes.vcf.gz"]),
        }
        ours, *peers = compare(*sides.values(), rounds=args.rounds)
        for peer, name in zip(peers, ["bcftools mpileup, call; two halves", "freebayes; two halves"]):
            table.add(f"{var_type}, depth {depth}", ours.seconds, peer.seconds, name, at_most=0.5)
        table.add(f"{var_type}, depth {depth}, peak memory", ours.mebibytes, peers[0].mebibytes, "bcftools, one process",
                  at_most=1024 + 2 * 300, unit="MiB", of_ratio=False)
        for name, side in sides.items():
            rows = accuracy(truth, side.makes[0], ref)
            for what in ["SNP"] if var_type == "SNP" else ["SNP", "INDEL"]:
                judged.append((f"{var_type}, depth {depth}", name, what, *rows[what]))

table.print(f"Input: simulated reads, 2x150, duplicates flagged: {'; '.join(inputs)}.")
print_accuracy(judged)
