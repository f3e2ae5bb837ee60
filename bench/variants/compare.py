#!/usr/bin/python3
"""Times the reading and writing of variants beside bcftools on one made-up VCF and prints the ratios as a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds the built programs; WORK_DIR keeps the input between runs.
"""
import os
import random
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from comparison import Table, Timed, arguments, compare  # noqa: E402

args = arguments(__doc__)
VCF_REGIONS = f"{args.build}/tests/vcf_regions"
ALGO_DRIVER = f"{args.build}/tests/algo_driver/algo_driver"

CONTIGS = 10
GAP = 100  # mean bases between records


def make_input(path, records):
    """Three samples, as a caller writes them."""
    draw = random.Random(11)
    length = records // CONTIGS * GAP + 1000
    with open("input.vcf", "w") as out:
        out.write("##fileformat=VCFv4.2\n")
        out.writelines(f"##contig=<ID=chr{c},length={length}>\n" for c in range(1, CONTIGS + 1))
        for key, number, kind in [("AC", "A", "Integer"), ("AF", "A", "Float"), ("AN", "1", "Integer"),
                                  ("DP", "1", "Integer"), ("FS", "1", "Float"), ("MQ", "1", "Float")]:
            out.write(f'##INFO=<ID={key},Number={number},Type={kind},Description="d">\n')
        for key, number, kind in [("GT", "1", "String"), ("AD", "R", "Integer"), ("DP", "1", "Integer"),
                                  ("GQ", "1", "Integer"), ("PL", "G", "Integer")]:
            out.write(f'##FORMAT=<ID={key},Number={number},Type={kind},Description="d">\n')
        out.write("#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT\ts1\ts2\ts3\n")
        for contig in range(1, CONTIGS + 1):
            position = 0
            for _ in range(records // CONTIGS):
                position += draw.randint(1, 2 * GAP - 1)
                ref, alt = draw.sample("ACGT", 2)
                depth = draw.randint(20, 120)
                calls = []
                for _ in range(3):
                    a, b, q = draw.randint(5, 30), draw.randint(0, 30), draw.randint(3, 99)
                    calls.append(f"0/1:{a},{b}:{a + b}:{q}:{q * 11},0,{q * 9}")
                out.write(f"chr{contig}\t{position}\t.\t{ref}\t{alt}\t{draw.random() * 900:.2f}\t.\t"
                          f"AC=3;AF=0.500;AN=6;DP={depth};FS={draw.random() * 9:.3f};MQ={50 + draw.random() * 10:.2f}\t"
                          f"GT:AD:DP:GQ:PL\t" + "\t".join(calls) + "\n")
    subprocess.run(["bgzip", "-f", "input.vcf"], check=True)
    subprocess.run(["tabix", "-f", "-p", "vcf", "input.vcf.gz"], check=True)
    os.rename("input.vcf.gz.tbi", path + ".tbi")
    os.rename("input.vcf.gz", path)


def make_reference(path, length):
    """Contigs without a base, which are only walked along."""
    line = "N" * 60 + "\n"
    with open(path, "w") as out, open(path + ".fai", "w") as index:
        for contig in range(1, CONTIGS + 1):
            out.write(f">chr{contig}\n")
            index.write(f"chr{contig}\t{length // 60 * 60}\t{out.tell()}\t60\t61\n")
            out.write(line * (length // 60))


def positions(path):
    return subprocess.run(f"cut -f 1,2 {path} | sort -u | md5sum", shell=True, capture_output=True).stdout


def records_of(path):
    return subprocess.run(f"bcftools view -H {path} | md5sum", shell=True, capture_output=True).stdout


table = Table()
records = 100_000 if args.small else 1_000_000
length = records // CONTIGS * GAP + 1000
vcf = f"records{records}.vcf.gz"
if not os.path.exists(vcf):
    make_input(vcf, records)

for size in [1_000_000, 10_000]:
    tiles = [(f"chr{c}", s, min(s + size, 2 * length)) for c in range(1, CONTIGS + 1) for s in range(0, 2 * length, size)]
    with open("tiles.txt", "w") as out:
        out.writelines(f"{c} {s} {e}\n" for c, s, e in tiles)
    with open("tiles.bed", "w") as out:
        out.writelines(f"{c}\t{s}\t{e}\n" for c, s, e in tiles)
    texts = ",".join(f"{c}:{s + 1}-{e}" for c, s, e in tiles)
    peer_regions = ["-r", texts] if len(texts) < 100_000 else ["-R", "tiles.bed"]
    ours, peer = compare(Timed([VCF_REGIONS, vcf], stdin="tiles.txt", stdout="ours.txt"),
                         Timed(["bcftools", "view", "-H", *peer_regions, vcf], stdout="peer.txt"), rounds=args.rounds)
    if positions("ours.txt") != positions("peer.txt"):
        sys.exit("the two sides found other records")
    table.add(f"read in {len(tiles)} regions", ours.seconds, peer.seconds, f"bcftools view {peer_regions[0]}", at_most=0.7)

reference = f"reference{records}.fa"
if not os.path.exists(reference + ".fai"):
    make_reference(reference, 2 * length)
for threads, option in [(1, ""), (2, "--threads 2")]:
    ours, peer = compare(
        Timed([ALGO_DRIVER, "-t", str(threads), "-r", reference, "--algo", "VariantCopy", "-v", vcf, "ours.vcf.gz"]),
        Timed(f"bcftools view {option} -Oz -o peer.vcf.gz {vcf}; tabix -f -p vcf peer.vcf.gz"), rounds=args.rounds)
    if records_of("ours.vcf.gz") != records_of("peer.vcf.gz"):
        sys.exit("the two sides wrote other records")
    table.add(f"copy with index, -t {threads}", ours.seconds, peer.seconds,
              f"bcftools view {option} -Oz, tabix".replace("  ", " "), at_most=1.0)

table.print(f"Input: {records} made-up records, 3 samples, {CONTIGS} contigs; {os.path.getsize(vcf)} bytes.")
