#!/usr/bin/python3
"""Times calling of a tumor beside its normal, and freebayes on the same pair, and prints Markdown tables.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds driver and simulate; WORK_DIR keeps the pairs (1 GB) between runs. The peer runs as two processes over one
half of the genome each, on both samples at once, and finds alleles by their reads alone. Its somatic calls are those that
the normal lacks, by counts that were tuned on such a truth.
"""
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "calling"))
from comparison import Table, Timed, arguments, compare  # noqa: E402
from peers import COMPARE_CALLS, freebayes, in_halves  # noqa: E402

DEPTHS = [45, 90, 180]  # of the tumor; the normal has 35
USUAL = 90
# Of the peer's alternate: what it looks for, and what of that counts; the best of a grid on half a megabase of such a pair.
SOUGHT, READS = 0.02, 3
FRACTION, QUALITY, NORMAL_FRACTION, NORMAL_READS = 0.035, 20, 0.03, 1


def make_pair(depth):
    """Folder of a pair, kept from run to run, and the reads of both."""
    folder = f"pair-{LENGTH}-{depth}"
    if not os.path.exists(f"{folder}/done"):
        shutil.rmtree(folder, ignore_errors=True)
        subprocess.run([f"{args.build}/simulate", "--seed", "7", "--contigs", f"chr1:{LENGTH}", "--samples", "NORMAL", "--tumor", "TUMOR",
                        "--tumor-depth", str(depth), "--flag-duplicates", "--out-dir", folder], check=True, stdout=subprocess.DEVNULL)
        open(f"{folder}/done", "w").close()
    count = lambda name: int(subprocess.run(["samtools", "view", "-c", f"{folder}/{name}.bam"], check=True, text=True,  # noqa: E731
                                            capture_output=True).stdout)
    return folder, count("TUMOR") + count("NORMAL")


def ours(folder, threads):
    output = f"ours{threads}.vcf.gz"
    return Timed([f"{args.build}/driver", "-t", str(threads), "-r", f"{folder}/reference.fa", "-i", f"{folder}/TUMOR.bam", "-i",
                  f"{folder}/NORMAL.bam", "--algo", "TNhaplotyper", "--tumor_sample", "TUMOR", "--normal_sample", "NORMAL", output], [output])


def theirs(folder):
    bams = f"{folder}/TUMOR.bam {folder}/NORMAL.bam"
    options = f"--pooled-continuous -F {SOUGHT} -C {READS}"
    return Timed(in_halves("chr1", LENGTH, freebayes(f"{folder}/reference.fa", bams, options), "freebayes.vcf.gz"), ["freebayes.vcf.gz"])


def accuracy(folder, calls, *options):
    out = subprocess.run([COMPARE_CALLS, *options, f"{folder}/somatic.vcf.gz", calls, f"{folder}/reference.fa"], check=True, text=True,
                         capture_output=True).stdout
    return {row[0]: row[5:8] for row in (line.split() for line in out.splitlines()[1:])}


def somatic_of_peer(folder):
    """The peer's calls, one alternate each, of which the tumor has enough good reads and the normal hardly any. Its QUAL is of
    the pool and of no use: near 0 for all that is rare."""
    alt, ref = "FMT/AO[{0}:0]", "FMT/RO[{0}]"
    samples = subprocess.run(["bcftools", "query", "-l", "freebayes.vcf.gz"], check=True, text=True, capture_output=True).stdout.split()
    tumor, normal = samples.index("TUMOR"), samples.index("NORMAL")
    enough = f"{alt}>={READS} && {alt}>={FRACTION}*({alt}+{ref}) && FMT/QA[{{0}}:0]>={QUALITY}*{alt}".format(tumor)
    hardly = f"{alt}<={NORMAL_READS} && {alt}<={NORMAL_FRACTION}*({alt}+{ref})".format(normal)
    subprocess.run(f"bcftools norm -m -any -f {folder}/reference.fa freebayes.vcf.gz 2>>log | bcftools view -i '{enough} && {hardly}' "
                   "-G -Oz -o freebayes.somatic.vcf.gz", shell=True, check=True)
    return "freebayes.somatic.vcf.gz"


args = arguments(__doc__)
LENGTH = 200_000 if args.small else 2_000_000
table, cost, sizes = Table(), {}, []
judged = []
for depth in DEPTHS:
    folder, reads = make_pair(depth)
    sizes.append(f"{depth}x: {reads} reads")
    two, one, bayes = compare(ours(folder, 2), ours(folder, 1), theirs(folder), rounds=args.rounds)
    what = f"tumor {depth}x"
    table.add(what, two.seconds, bayes.seconds, "freebayes; two halves", at_most=1.0 if depth != USUAL else 0.5)
    table.add(f"{what}, one thread", one.seconds, two.seconds, "two threads", at_least=1.8)
    table.add(f"{what}, peak memory", two.mebibytes, bayes.mebibytes, "freebayes, one process", at_most=700, unit="MiB", of_ratio=False)
    cost[depth] = round(one.processor_seconds * 1e6 / reads, 2)
    for caller, found in (("driver", accuracy(folder, "ours2.vcf.gz", "--sample", "TUMOR")), ("freebayes", accuracy(folder, somatic_of_peer(folder)))):
        judged += [(what, caller, kind, *found[kind]) for kind in ("SNP", "INDEL")]
for fewer, more in zip(DEPTHS, DEPTHS[1:]):
    table.add(f"one thread, processor microseconds per read, {more}x", cost[more], cost[fewer], f"{fewer}x", at_most=1.1, unit="")

table.print(f"Input: a simulated pair of {LENGTH} bases, 2x150, duplicates flagged, normal of depth 35; {', '.join(sizes)}.")
print("\nThe same calls beside the truth, PASS, or of the peer those that its counts call somatic:\n")
print("| what | caller | type | precision | recall | F1 |")
print("|---|---|---|---|---|---|")
for row in judged:
    print("| " + " | ".join(row) + " |")
