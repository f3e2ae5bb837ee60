#!/usr/bin/python3
"""Times calling by assembly beside peer callers, with one and two threads, and prints Markdown tables.

usage: haplotyper.py BUILD_DIR WORK_DIR [--rounds N] [--small] [--real FOLDER]

BUILD_DIR holds driver and simulate; WORK_DIR keeps the simulated input between runs; FOLDER holds real reads of one contig:
reference.fa and reads.bam. Each peer runs as two processes over one half of the genome each, which is how it uses two
processors.
"""
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from comparison import Table, Timed, arguments, compare, simulate  # noqa: E402
from peers import accuracy, bcftools, freebayes, in_halves, print_accuracy  # noqa: E402

GVCF = "--emit_mode gvcf"
MEMORY = 700  # MiB


def command(threads, ref, bam, options, output):
    return f"{args.build}/driver -t {threads} -r {ref} -i {bam} --algo Haplotyper {options} {output}"


def ours(threads, ref, bam, options=""):
    output = f"ours{threads}{'.g' if options else ''}.vcf.gz"
    return Timed(command(threads, ref, bam, options, output), [output])


def shares(ref, bam):
    """Of the processor's time of one thread, in percent, by what it is for."""
    told = subprocess.run(command(1, ref, bam, "", "shares.vcf.gz"), shell=True, check=True, text=True, capture_output=True).stderr
    seconds = {name: float(user) + float(system)
               for name, user, system in re.findall(r"^(\w+): \d+ (?:calls|mem) (\S+) user (\S+) sys", told, re.M)}
    parts = {"activity": ["calc", "active"], "assembly": ["clip_region", "assemble_region", "trim_region"],
             "pair HMM": ["pairhmm"], "realignment": ["realign"]}
    found = {part: sum(seconds.get(name, 0) for name in names) for part, names in parts.items()}
    found["genotyping, annotation, writing"] = seconds["calc_region"] - found["pair HMM"] - found["realignment"]
    found["reading and the rest"] = seconds["overall"] - sum(found.values())
    return [f"{100 * part / seconds['overall']:.0f} %" for part in found.values()], list(found)


args = arguments(__doc__, lambda parser: parser.add_argument("--real", metavar="FOLDER"))
inputs = {}
for length, depth in [(5_000_000, 30), (5_000_000, 100), (2_500_000, 30)]:
    length //= 10 if args.small else 1
    ref, bam, reads = simulate(args.build, length, "--depth", str(depth), "--flag-duplicates")
    inputs[f"{depth}x of {length / 1e6:g} Mb"] = (ref, bam, "chr1", length, reads)
if args.real:
    folder = os.path.join(args.started_in, args.real)
    ref, bam = f"{folder}/reference.fa", f"{folder}/reads.bam"
    contig, length = open(f"{ref}.fai").readline().split()[:2]
    reads = int(subprocess.run(["samtools", "view", "-c", bam], check=True, text=True, capture_output=True).stdout)
    inputs["real reads"] = (ref, bam, contig, int(length), reads)

table, judged, profile, single = Table(), [], [], {}
for what, (ref, bam, contig, length, reads) in inputs.items():
    sides = {"driver": ours(2, ref, bam), "driver, GVCF": ours(2, ref, bam, GVCF),
             "driver, one thread": ours(1, ref, bam), "driver, one thread, GVCF": ours(1, ref, bam, GVCF),
             "freebayes": Timed(in_halves(contig, length, freebayes(ref, bam), "freebayes.vcf.gz"), ["freebayes.vcf.gz"]),
             "bcftools": Timed(in_halves(contig, length, bcftools(ref, bam), "bcftools.vcf.gz"), ["bcftools.vcf.gz"])}
    two, two_gvcf, one, one_gvcf, bayes, pileup = compare(*sides.values(), rounds=args.rounds)
    single[what] = one
    table.add(f"{what}, VCF", two.seconds, bayes.seconds, "freebayes; two halves", at_most=1.0)
    table.add(f"{what}, VCF", two.seconds, pileup.seconds, "bcftools mpileup, call; two halves")
    table.add(f"{what}, GVCF", two_gvcf.seconds, bayes.seconds, "freebayes; two halves", at_most=1.0)
    table.add(f"{what}, VCF, one thread", one.seconds, two.seconds, "two threads", at_least=1.8)
    table.add(f"{what}, GVCF, one thread", one_gvcf.seconds, two_gvcf.seconds, "two threads", at_least=1.8)
    for kind, side in ("VCF", two), ("GVCF", two_gvcf):
        table.add(f"{what}, {kind}, peak memory", side.mebibytes, bayes.mebibytes, "freebayes, one process", at_most=MEMORY,
                  unit="MiB", of_ratio=False)
    figures, titles = shares(ref, bam)
    profile.append((what, *figures))
    truth = os.path.join(os.path.dirname(ref), "truth.vcf.gz")
    if what != "real reads":
        for name in "driver", "freebayes", "bcftools":
            rows = accuracy(truth, sides[name].makes[0], ref)
            judged += [(what, name, kind, *rows[kind]) for kind in ("SNP", "INDEL")]

# Linear means that a read, and a base of the genome, cost the same in the larger input.
(base, deep, half) = list(inputs)[:3]
for what, larger, smaller, size in ("microseconds per read by depth", deep, base, 4), ("nanoseconds per base by length", base, half, 3):
    cost = [round(single[name].seconds * (1e6 if size == 4 else 1e9) / inputs[name][size], 2) for name in (larger, smaller)]
    table.add(f"one thread, {what}, {larger}", *cost, smaller, at_most=1.1, unit="")

table.print(f"Input: {'; '.join(f'{what}: {values[4]} reads' for what, values in inputs.items())}. Simulated ones are 2x150, duplicates flagged.")
print("\nShares of the time of one thread:\n")
print("| what | " + " | ".join(titles) + " |\n|" + "---|" * (len(titles) + 1))
for row in profile:
    print("| " + " | ".join(row) + " |")
print_accuracy(judged)
