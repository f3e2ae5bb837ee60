"""Haplotyper on reads that are deep, short, long or wild: what one region may cost is bounded, and calls are still made."""

import random
import resource

import pysam
import pytest

from test_genotyper import other, records_of

MEMORY = 700 << 20  # bytes of address space
REGION = 4.0        # seconds of the processor


@pytest.fixture
def draw():
    return random.Random(11)


def changed(draw, bases, errors, indels=0.0):
    """The bases with substitutions, and with single bases lost and doubled, at these rates."""
    text = []
    for base in bases:
        chance = draw.random()
        if chance >= indels:
            text.append(base if draw.random() >= errors else draw.choice("ACGT"))
        if indels <= chance < 2 * indels:
            text.append(base)
    return "".join(text)


def placed(start, length, bases):
    """A read that was aligned end to end, with what is too much or missing in one gap."""
    extra = len(bases) - length
    gap = f"10M{extra}I{len(bases) - 10 - extra}M" if extra > 0 else f"10M{-extra}D{len(bases) - 10}M"
    return start, gap if extra else f"{length}M", bases


@pytest.fixture
def call(run, sanitized, tmp_path):
    """call(contigs, reads, *options, regions): records; reads are a start, a CIGAR, bases, and a contig when it is not the
    first. Fails when the run takes more than so many regions may."""

    def haplotype(contigs, reads, *options, regions=1):
        with open(tmp_path / "r.fa", "w") as fasta:
            for name, bases in contigs.items():
                fasta.write(f">{name}\n{bases}\n")
        pysam.faidx(str(tmp_path / "r.fa"))
        header = {"HD": {"VN": "1.6", "SO": "coordinate"}, "SQ": [{"SN": n, "LN": len(b)} for n, b in contigs.items()],
                  "RG": [{"ID": "g", "SM": "s"}]}
        names = list(contigs)
        order = {name: i for i, name in enumerate(names)}
        target = pysam.AlignmentHeader.from_dict(header)
        with pysam.AlignmentFile(str(tmp_path / "r.bam"), "wb", header=target) as out:
            for i, (start, cigar, bases, *contig) in enumerate(sorted(reads, key=lambda read: (order[read[3]] if read[3:] else 0, read[0]))):
                out.write(pysam.AlignedSegment.fromstring("\t".join(map(str, (
                    f"r{i}", 16 * (i % 2), contig[0] if contig else names[0], start + 1, 60, cigar, "*", 0, 0, bases,
                    "I" * len(bases), "RG:Z:g"))), target))
        pysam.index(str(tmp_path / "r.bam"))
        limit = None if sanitized else lambda: resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        done = run("-t", 1, "-r", "r.fa", "-i", "r.bam", "--algo", "Haplotyper", *options, "o.vcf", preexec_fn=limit)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        assert done.returncode == 0, done.stderr
        seconds = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        assert sanitized or seconds < regions * REGION, seconds
        return records_of(tmp_path / "o.vcf")

    return haplotype


def expect_covered(records, contigs):
    """A GVCF has every position of each contig: once, but for variants that begin in what another one deletes."""
    for name, bases in contigs.items():
        end = 0
        for record in (r for r in records if r.contig == name):
            assert record.pos == end + 1 or ("END" not in record.info and record.pos <= end), record.line
            end = max(end, int(record.info["END"]) if "END" in record.info else record.pos + len(record.ref) - 1)
        assert end == len(bases), name


def random_bases(draw, count):
    return "".join(draw.choices("ACGT", k=count))


def with_snps(bases, *places):
    return "".join(other(base) if i in places else base for i, base in enumerate(bases))


def test_depth_of_twenty_thousand(call, draw):
    """At one site, and over 300 bases where each read has errors and every third is not of this place."""
    bases = random_bases(draw, 1200)
    texts = [bases, with_snps(bases, 520, 640)]
    reads = [(start, "100M", draw.choice(texts)[start : start + 100]) for start in (draw.randint(421, 520) for _ in range(20000))]
    assert [(r.pos, r.samples[0]["GT"]) for r in call({"c": bases}, reads)] == [(521, "0/1")]
    wild = [(start, "100M", random_bases(draw, 100) if i % 3 == 0 else changed(draw, draw.choice(texts)[start : start + 100], 0.02))
            for i, start in enumerate(draw.randint(420, 720) for _ in range(60000))]
    found = {r.pos: r.samples[0]["GT"] for r in call({"c": bases}, wild, regions=6)}
    assert found.get(521) == found.get(641) == "0/1"


def test_many_haplotypes(call, draw):
    """Sites so close, each read with a choice of its own, that paths are more than can be looked at."""
    bases = random_bases(draw, 1200)
    reads = []
    for _ in range(8000):
        start = draw.randint(400, 600)
        text = list(bases[start : start + 150])
        for place in range(500, 700, 15):
            if start <= place < start + 150 and draw.random() < 0.5:
                text[place - start] = other(bases[place])
        reads.append(placed(start, 150, changed(draw, text, 0.02, 0.003)))
    assert call({"c": bases}, reads, regions=6)


@pytest.mark.parametrize("length, errors", [(20, 0.0), (5000, 0.0), (5000, 0.03)])
def test_short_and_long_reads(call, draw, length, errors):
    bases = random_bases(draw, 12000)
    texts = [bases, with_snps(bases, 3000, 6000, 9000)]
    reads = [(start, f"{length}M", changed(draw, draw.choice(texts)[start : start + length], errors))
             for start in (draw.randint(0, 12000 - length) for _ in range(30 * 12000 // length))]
    found = {r.pos: r.samples[0]["GT"] for r in call({"c": bases}, reads, regions=3)}
    right = [pos for pos in (3001, 6001, 9001) if found.get(pos) == "0/1"]
    # With many errors the paths of the graph are more than are looked at, and not all sites need be on some.
    assert len(right) >= 2 if errors else len(right) == len(found) == 3, found


@pytest.mark.parametrize("unit", ["A", "CA", "ATG", "AAAAAAAAAATT", "".join(random.Random(3).choices("ACGT", k=31))])
def test_low_complexity(call, draw, unit):
    bases = random_bases(draw, 500) + (unit * 2000)[:2000] + random_bases(draw, 500)
    reads = [placed(start, 150, changed(draw, bases[start : start + 150], 0.05, 0.02))
             for start in (draw.randint(0, 2850) for _ in range(3000))]
    expect_covered(call({"c": bases}, reads, "--emit_mode", "gvcf", regions=3), {"c": bases})


def test_a_reference_that_tells_little(call, draw):
    """Letters that are not known, contigs shorter than k-mers, and a place in which every base differs."""
    whole = random_bases(draw, 3000)
    contigs = {"a": whole[:1000] + "N" * 500 + whole[1500:2000] + with_snps(whole[2000:2300], *range(300)) + whole[2300:]}
    contigs |= {f"b{n}": whole[:n] for n in (1, 2, 9, 10, 11, 24, 25, 26, 84, 85, 95, 130)}
    contigs |= {"n": "N" * 300}
    reads = [(start, "100M", whole[start : start + 100], "a") for start in range(0, 2901, 3)]
    for name, bases in contigs.items():
        if name != "a":
            reads += [(0, f"{len(bases)}M", with_snps(whole[: len(bases)], len(bases) // 2), name)] * 30
    records = call(contigs, reads, "--emit_mode", "gvcf", regions=3)
    expect_covered(records, contigs)
    assert not any(set(allele) - set("ACGT") for r in records for allele in r.alts if allele != "<NON_REF>")
    # A lone SNP needs some bases beside it to be told from an end.
    assert {r.contig for r in records if r.alts != ["<NON_REF>"]} >= {"b84", "b85", "b95", "b130"}
