#!/usr/bin/python3
"""Times duplicate marking and base quality calibration beside peer tools and prints the ratios as a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

BUILD_DIR holds driver and simulate; WORK_DIR keeps the simulated input between runs.
"""
import os
import shutil
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from comparison import Table, Timed, arguments, compare, simulate  # noqa: E402

args = arguments(__doc__)
DRIVER = f"{args.build}/driver"
PICARD = shutil.which("PicardCommandLine")

table = Table()
length = 500_000 if args.small else 5_000_000
ref, bam, reads = simulate(args.build, length, "--duplicate-rate", "0.1")
known = os.path.join(os.path.dirname(ref), "known_sites.vcf.gz")
score_made = ("score.gz", "score.gz.tbi")
ours_made = ("ours.bam", "ours.bam.bai", *score_made)
peer_made = ("peer.bam", "peer.bam.bai", "peer.bai")


def run(*sides, rounds=args.rounds):
    return compare(*sides, rounds=rounds)


def ours(*algos, makes=ours_made):
    return Timed([DRIVER, "-t", "2", "-i", bam, *algos], makes)


for level in ["6", "1"]:
    level_words = f"--bam_compression {level}"
    mark, copy = run(
        Timed(f"{DRIVER} -t 2 -i {bam} --algo LocusCollector --fun score_info score.gz; {DRIVER} -t 2 -i {bam}"
              f" --algo Dedup --score_info score.gz --metrics dup.txt {level_words} ours.bam", ours_made),
        ours("--algo", "ReadWriter", *level_words.split(), "ours.bam"))
    table.add(f"duplicate marking, level {level}", mark.seconds, copy.seconds, "a copy of ours, same level", at_most=1.25)
    if level == "6":
        table.add("duplicate marking, peak memory", mark.mebibytes, copy.mebibytes, "same", at_most=600, unit="MiB",
                  of_ratio=False)
        plain_copy = copy
    peers = {
        "sambamba markdup": f"sambamba markdup -q -t 2 -l {level} {bam} peer.bam",
        "samtools collate, fixmate, sort, markdup":
            f"samtools collate -@1 -Ou {bam} tmp.collate | samtools fixmate -m -u - - | samtools sort -@1 -u -T tmp.sort -"
            f" | samtools markdup -@1 --output-fmt-option level={level} - peer.bam",
    }
    if PICARD:
        peers["Picard MarkDuplicates"] = (f"{PICARD} MarkDuplicates I={bam} O=peer.bam M=peer.txt"
                                          f" COMPRESSION_LEVEL={level} VALIDATION_STRINGENCY=SILENT")
    timed = {name: run(Timed(command, peer_made), rounds=1)[0] for name, command in peers.items()}
    fastest = min(timed, key=lambda name: timed[name].seconds)
    for name, peer in timed.items():
        table.add(f"duplicate marking, level {level}", mark.seconds, peer.seconds, name,
                  at_most=(0.6 if level == "6" else 0.3) if name == fastest else None)

locus, stat, both = run(ours("--algo", "LocusCollector", "score.gz", makes=score_made),
                        Timed([DRIVER, "-t", "2", "-r", ref, "-i", bam, "--algo", "AlignmentStat", "aln.txt"]),
                        Timed([DRIVER, "-t", "2", "-r", ref, "-i", bam, "--algo", "AlignmentStat", "aln.txt",
                               "--algo", "LocusCollector", "score.gz"], score_made))
table.add("LocusCollector stacked on AlignmentStat", both.seconds, max(locus.seconds, stat.seconds), "the dearer alone",
          at_most=1.3)

calibrate, peer = run(Timed([DRIVER, "-t", "2", "-r", ref, "-i", bam, "--algo", "QualCal", "-k", known, "recal.table"]),
                      Timed(["samtools", "calmd", "-r", "-u", "-@2", bam, ref], stdout="/dev/null"))
table.add("QualCal", calibrate.seconds, peer.seconds, "samtools calmd -r -u -@2", at_most=0.35)

applied, copy = run(Timed([DRIVER, "-t", "2", "-i", bam, "-q", "recal.table", "--algo", "ReadWriter", "ours.bam"], ours_made),
                    ours("--algo", "ReadWriter", "ours.bam"))
table.add("-q on a copy", applied.seconds, copy.seconds, "the copy alone", at_most=1.4)

table.print(f"Input: {reads} simulated reads, 2x150, a tenth of them duplicates, {length} bases at depth 60;"
            f" {os.path.getsize(bam)} bytes.")
