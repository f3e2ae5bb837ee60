#!/usr/bin/python3
"""Times joint genotyping of 10, 100 and 500 GVCFs of 1 Mb, beside bcftools on a tenth of it, and prints a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds driver and simulate; WORK_DIR keeps the cohort (0.6 GB) between runs.

bcftools 1.16 merges the files, but crashes when it is to call from that, since merging leaves PL of what a file has no
allele for half empty. So merging is timed alone, and once more with those filled in on the way to call. Both run as two
processes over one half of the region each.
"""
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "calling"))
from comparison import Table, Timed, arguments, compare  # noqa: E402
from peers import in_halves  # noqa: E402

SOURCES = 5  # samples that the cohort is made of
BANDS = "1-60/10,60-99/20,99"
FILL = r"sed -e 's/<NON_REF>/<*>/' -e 's/,\.,/,999,/g;s/,\.,/,999,/g;s/,\.:/,999:/g;s/,\.\t/,999\t/g;s/,\.$/,999/'"


def make_cohort(length, count):
    """Reference and GVCFs, kept from run to run."""
    folder = f"cohort-{length}-{count}"
    reference = f"{folder}/sim/reference.fa"
    if not os.path.exists(f"{folder}/done"):
        run = lambda *words: subprocess.run(words, check=True, stdout=subprocess.DEVNULL, stderr=open("log", "a"))
        run(f"{args.build}/simulate", "--seed", "7", "--contigs", f"chr1:{length}", "--depth", "20", "--samples", str(SOURCES),
            "--multi-allelic-rate", "0.00005", "--flag-duplicates", "--out-dir", f"{folder}/sim")
        sources = [f"{folder}/sim/sample{n}.g.vcf.gz" for n in range(1, SOURCES + 1)]
        for path in sources:
            run(f"{args.build}/driver", "-t", "2", "-r", reference, "-i", path.replace(".g.vcf.gz", ".bam"), "--algo", "Haplotyper",
                "--emit_mode", "gvcf", "--gq_bands", BANDS, path)
        run(sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), "make_cohort.py"), reference, folder, str(count),
            *sources)
        open(f"{folder}/done", "w").close()
    return reference, [f"{folder}/{n}.g.vcf.gz" for n in range(1, count + 1)]


def ours(paths, output, shard, *head):
    """Shards small enough for both threads to have some."""
    return Timed([f"{args.build}/driver", "-t", "2", "-r", reference, "--shard_param", str(shard), *head, "--algo", "GVCFtyper", output,
                  *paths], [output])


def merging(paths):
    with open(f"list{len(paths)}", "w") as out:
        out.writelines(f"{path}\n" for path in paths)
    return f"bcftools merge -g {reference} -r {{region}} -l list{len(paths)}"


def records(path):
    return int(subprocess.run(f"bcftools view -H {path} | wc -l", shell=True, check=True, text=True, capture_output=True).stdout)


args = arguments(__doc__)
LENGTH = 100_000 if args.small else 1_000_000
PIECE, START = LENGTH // 10, LENGTH // 2
COUNTS = [5, 20, 50] if args.small else [10, 100, 500]
reference, gvcfs = make_cohort(LENGTH, COUNTS[-1])

table, whole, pieces, merges, sites = Table(), {}, {}, {}, []
for count in COUNTS:
    paths = gvcfs[:count]
    rounds = 1 if count == COUNTS[-1] else args.rounds
    whole[count] = ours(paths, "ours.vcf.gz", LENGTH // 10)
    compare(whole[count], rounds=args.rounds)
    sites.append(f"{count}: {records('ours.vcf.gz')}")
    pieces[count], merges[count], calls = compare(
        ours(paths, "piece.vcf.gz", PIECE // 4, "--interval", f"chr1:{START}-{START + PIECE - 1}"),
        Timed(in_halves("chr1", PIECE, merging(paths) + " -Ou -o /dev/null", "none", START).split("; bcftools concat")[0]),
        Timed(in_halves("chr1", PIECE, f"{merging(paths)} | {FILL} | bcftools call -mv", "peer.vcf.gz", START), ["peer.vcf.gz"]), rounds=rounds)
    if min(records("piece.vcf.gz"), records("peer.vcf.gz")) == 0:
        sys.exit("a side found nothing")
    what = f"{count} samples, {PIECE // 1000} kb"
    table.add(what, pieces[count].seconds, merges[count].seconds, "bcftools merge -g alone; two halves")
    table.add(what, pieces[count].seconds, calls.seconds, "bcftools merge -g, call -m; two halves", at_most=0.5)

per_sample = {count: round(1000 * whole[count].processor_seconds / count, 1) for count in COUNTS}
for fewer, more in zip(COUNTS, COUNTS[1:]):
    table.add(f"processor milliseconds per sample, {more} of {LENGTH / 1e6:g} Mb", per_sample[more], per_sample[fewer], f"{fewer} samples", at_most=1.1,
              unit="")
least, most = COUNTS[0], COUNTS[-1]
memory = {name: round((sides[most].mebibytes - sides[least].mebibytes) * 1024 / (most - least))
          for name, sides in (("ours", whole), ("peer", merges))}
table.add("memory of a further sample", memory["ours"], max(memory["peer"], 1), "bcftools merge, one process", at_most=2048, unit="KiB",
          of_ratio=False)
for count in COUNTS:
    table.add(f"{count} samples, peak memory", whole[count].mebibytes, merges[count].mebibytes, "bcftools merge, one process", unit="MiB")
    table.add(f"{count} samples, {LENGTH / 1e6:g} Mb, seconds", whole[count].seconds, whole[least].seconds, f"{least} samples")

sizes = sum(os.path.getsize(path) for path in gvcfs) // len(gvcfs)
table.print(f"Input: GVCFs of {LENGTH} bases made of {SOURCES} simulated samples of depth 20, bands {BANDS}, {sizes} bytes each; "
            f"records of the output by samples: {', '.join(sites)}.")
