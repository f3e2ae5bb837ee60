#!/usr/bin/python3
"""Copies a BAM and plants what makes callers err: places where, in sample after sample, reads show a base that nobody
carries. Places and their kinds depend on the reference and PLACES_SEED alone, so that a cohort shares them.

usage: plant_artefacts.py REFERENCE IN.bam OUT.bam PER_MEGABASE PLACES_SEED

A third of the places each: `strand`, the reads of one direction show it; `end`, reads that have the place among their
first or last 15 cycles; `copy`, fragments of a copy that the reference lacks, with three wrong bases and a low mapping
quality. How often differs from place to place, and by chance from sample to sample.
"""
import bisect
import hashlib
import random
import sys

import pysam

END, QUALITY, COPY_LENGTH = 15, 25, 150  # cycles; most of an artefact's base; bases


def places_of(fasta, per_megabase, seed):
    """By contig, sorted (position, kind, base, share, forward)."""
    result = {}
    for contig in fasta.references:
        draw, bases = random.Random(f"{seed} {contig}"), fasta.fetch(contig).upper()
        places = set()
        for _ in range(int(len(bases) * per_megabase / 1e6)):
            kind, position = draw.choice(["strand", "end", "copy"]), draw.randrange(len(bases) - COPY_LENGTH)
            share, forward = draw.uniform(0.3, 0.9) if kind != "copy" else draw.uniform(0.1, 0.4), draw.random() < 0.5
            for offset in (0, draw.randrange(20, 70), draw.randrange(80, COPY_LENGTH)) if kind == "copy" else (0,):
                reference = bases[position + offset]
                if reference in "ACGT":
                    other = draw.choice([b for b in "ACGT" if b != reference])
                    places.add((position + offset, kind, other, share, forward, position))
        result[contig] = sorted(places)
    return result


def main():
    reference, source, target, per_megabase, seed = sys.argv[1:]
    with pysam.FastaFile(reference) as fasta:
        places = places_of(fasta, float(per_megabase), seed)
    with pysam.AlignmentFile(source) as reads, pysam.AlignmentFile(target, "wb", template=reads) as out:
        sample = reads.header["RG"][0]["SM"]
        for read in reads:
            change(read, places, sample)
            out.write(read)
    pysam.index(target)


def change(read, places, sample):
    if read.is_unmapped or read.query_sequence is None:
        return
    here = places[read.reference_name]
    first, last = bisect.bisect_left(here, (read.reference_start,)), bisect.bisect_left(here, (read.reference_end,))
    if first == last:
        return
    chance = random.Random(hashlib.md5(f"{sample} {read.query_name}".encode()).digest())  # mates agree
    luck, on_reference = {}, {r: q for q, r in read.get_aligned_pairs(matches_only=True)}
    bases, qualities, low = list(read.query_sequence), list(read.query_qualities), False
    for position, kind, base, share, forward, group in here[first:last]:
        at = on_reference.get(position)
        if at is None or (kind == "strand" and read.is_reverse == forward):
            continue
        if kind == "end" and END <= at < len(bases) - END:
            continue
        if luck.setdefault(group, chance.random()) < share:
            bases[at], low = base, low or kind == "copy"
            if kind != "copy":
                qualities[at] = min(qualities[at], QUALITY)
    read.query_sequence = "".join(bases)
    read.query_qualities = qualities
    if low:
        read.mapping_quality = min(read.mapping_quality, 30)
    for tag in ("MD", "NM"):
        read.set_tag(tag, None)


main()
