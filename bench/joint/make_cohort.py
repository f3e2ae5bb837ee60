#!/usr/bin/python3
"""Makes the GVCFs of a cohort out of those of a few samples.

usage: make_cohort.py REFERENCE.fa FOLDER COUNT SAMPLE.g.vcf.gz...

FOLDER gets 1.g.vcf.gz, ... with their .tbi. A file is one of the given ones in turn, under another sample name, in which an
eighth of the SNPs stand a base further on; which ones, its number tells. All given files have one contig. INFO gets QS, the
share of the reads by allele, which bcftools call asks for.
"""
import concurrent.futures
import os
import subprocess
import sys
import zlib

ONE_OF = 8  # SNPs is moved


def read_fasta(path):
    return "".join(line.strip() for line in open(path) if not line.startswith(">")).upper()


def with_shares(columns):
    depths = [int(n) for n in columns[9].split(":")[1].split(",")] if columns[8].startswith("GT:AD") else [1, 0]
    total = sum(depths) or 1
    columns[7] += ";QS=" + ",".join(f"{depth / total:.3g}" for depth in depths)
    return columns


def cut_block(columns, start, end, bases):
    """The piece of a reference block between two one-based positions."""
    info = [f"END={end}" if field.startswith("END=") else field for field in columns[7].split(";")]
    return [columns[0], str(start), ".", bases[start - 1], *columns[4:7], ";".join(info), *columns[8:]]


def moved(snp, block, bases):
    """A SNP a base further on, into the block behind it; what was its place becomes a piece of that block."""
    here, end = int(snp[1]), int(block[7].split(";")[0][len("END=") :])
    ref, alt = bases[here], snp[4].split(",")[0]
    if alt == ref:
        alt = snp[3]
    rows = [cut_block(block, here, here, bases), [snp[0], str(here + 1), ".", ref, f"{alt},<NON_REF>", *snp[5:]]]
    return rows + [cut_block(block, here + 2, end, bases)] * (end > here + 1)


def is_snp(columns):
    return len(columns[3]) == 1 and len(columns[4].split(",")[0]) == 1 and columns[4].count(",") == 1


class Pieces:
    """The text of a file: what all copies share, and between that the SNPs that may move, as they are and moved."""

    def __init__(self, path, bases):
        text = subprocess.run(["bgzip", "-cd", path], check=True, text=True, capture_output=True).stdout
        lines = text.splitlines()
        self.header = [line for line in lines if line.startswith("##")]
        self.header.append('##INFO=<ID=QS,Number=R,Type=Float,Description="Share of the reads by allele">')
        rows = [with_shares(line.split("\t")) for line in lines if not line.startswith("#")]
        self.texts, self.choices, shared, i = [], [], [], 0
        while i < len(rows):
            block = rows[i + 1] if i + 1 < len(rows) else None
            if is_snp(rows[i]) and block and block[7].startswith("END=") and int(block[1]) == int(rows[i][1]) + 1:
                self.texts.append("".join("\t".join(row) + "\n" for row in shared))
                self.choices.append((int(rows[i][1]), ["".join("\t".join(row) + "\n" for row in some)
                                                       for some in (rows[i : i + 2], moved(rows[i], block, bases))]))
                shared, i = [], i + 2
            else:
                shared.append(rows[i])
                i += 1
        self.texts.append("".join("\t".join(row) + "\n" for row in shared))

    def copy(self, path, number):
        columns = ["#CHROM", "POS", "ID", "REF", "ALT", "QUAL", "FILTER", "INFO", "FORMAT", f"s{number}"]
        parts = ["\n".join([*self.header, "\t".join(columns)]), "\n", self.texts[0]]
        for (start, choice), text in zip(self.choices, self.texts[1:]):
            parts += [choice[zlib.crc32(f"{start} {number}".encode()) % ONE_OF == 0], text]
        with open(path, "wb") as out:
            subprocess.run(["bgzip", "-c"], check=True, input="".join(parts).encode(), stdout=out)
        subprocess.run(["tabix", "-f", "-p", "vcf", path], check=True)


def main(reference, folder, count, *given):
    bases = read_fasta(reference)
    sources = [Pieces(path, bases) for path in given]
    os.makedirs(folder, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(lambda n: sources[n % len(sources)].copy(f"{folder}/{n + 1}.g.vcf.gz", n + 1), range(int(count))))


if __name__ == "__main__":
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    main(*sys.argv[1:])
