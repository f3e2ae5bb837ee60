"""Haplotyper: beside simulated truth, at any thread count, in parts, as GVCF, and on bad options."""

import itertools
import math
import os
import re
import subprocess

import pysam
import pytest

from test_genotyper import accuracy, check_file, inputs, make_vcf, records_of, same_but_command, simulated, text_of  # noqa: F401

SMALL = ["--shard_param", "5000/500"]


@pytest.fixture
def call(run, tmp_path):
    """call(folder, output, *options, head=driver options): the output's path, after a run that went well."""

    def haplotype(folder, output, *options, head=("-t", 2)):
        done = run(*head, *inputs(folder), "--algo", "Haplotyper", *options, output)
        assert done.returncode == 0, done.stderr
        return tmp_path / output

    return haplotype


@pytest.mark.parametrize("depth, ploidy, samples, floors", [
    (10, 2, 1, {"SNP": (0.99, 0.85, 0.94), "INDEL": (0.97, 0.60, 0.90)}),
    (30, 2, 1, {"SNP": (0.995, 0.96, 0.97), "INDEL": (0.98, 0.95, 0.97)}),
    (30, 1, 1, {"SNP": (0.99, 0.98, 1.00), "INDEL": (0.98, 0.97, 1.00)}),
    (30, 2, 2, {"SNP": (0.99, 0.96, 0.98), "INDEL": (0.98, 0.95, 0.97)}),
])
def test_finds_the_truth(call, simulated, depth, ploidy, samples, floors):  # noqa: F811
    folder = simulated(depth=depth, ploidy=ploidy, samples=samples)
    path = call(folder, "out.vcf.gz", *(["--ploidy", ploidy] if ploidy != 2 else []))
    assert all(float(r.qual) >= 30 and r.filter == "." and r.alts for r in check_file(path, folder, ploidy))
    for i in range(samples):
        figures = accuracy(folder, path, *(["--sample", f"sample{i + 1}"] if samples > 1 else []))
        for kind, floor in floors.items():
            found = figures[kind]
            assert all(found[name] >= least for name, least in zip(("precision", "recall", "genotype"), floor)), (kind, found)


@pytest.mark.parametrize("options", [[], ["--emit_mode", "gvcf"]])
def test_same_bytes_at_any_threads_and_in_parts(run, call, simulated, tmp_path, options):  # noqa: F811
    folder = simulated(depth=20)
    options = [*options, "-d", folder / "known_sites.vcf.gz"]
    whole = call(folder, "whole.vcf.gz", *options, head=["-t", 1, *SMALL])
    assert sum(r.alts not in ([], ["<NON_REF>"]) for r in records_of(whole)) > 100
    for threads in (3, 8):
        assert same_but_command(call(folder, f"t{threads}.vcf.gz", *options, head=["-t", threads, *SMALL])) == same_but_command(whole)
    unchunked = call(folder, "unchunked.vcf.gz", *options, "--phmm_chunk_size", 0, head=["-t", 2, *SMALL])
    chunked = call(folder, "chunked.vcf.gz", *options, "--phmm_chunk_size", 100, head=["-t", 3, *SMALL])
    assert same_but_command(unchunked) == same_but_command(chunked) == same_but_command(whole)
    parts = []
    for i, region in enumerate(("chr1:1-27123", "chr1:27124-60000", "chr2:1-20000")):
        parts.append(f"part{i}.vcf.gz")
        call(folder, parts[-1], *options, head=["-t", 2, *SMALL, "--shard", region])
    done = run("--algo", "Haplotyper", "--merge", "merged.vcf.gz", *parts)
    assert done.returncode == 0, done.stderr
    assert same_but_command(tmp_path / "merged.vcf.gz") == same_but_command(whole)
    order = "contig chr1 of file part0.vcf.gz is not in genome order"
    for wrong, text, gvcf_text in (("102", order, "the positions chr1:1-27123 in front of file part1.vcf.gz are missing"), ("0012", order, order),
                                   ("201", order, order), ("02", None, "the positions chr1:27124-60000 behind file part0.vcf.gz are missing")):
        text = gvcf_text if "gvcf" in options else text
        done = run("--algo", "Haplotyper", "--merge", "wrong.vcf.gz", *(parts[int(i)] for i in wrong))
        assert (done.returncode == 0) == (text is None) and f"Haplotyper: {text}" * bool(text) in done.stderr, (wrong, done.stderr)
        assert (tmp_path / "wrong.vcf.gz").exists() == (text is None)


def likelihoods_of(quality, matches):
    """Of a base, log10 of its chance with 0, 1, 2 copies of something else."""
    error = min(10.0 ** (-float(quality) / 10), 0.75)
    same, other = ((1 - error, error / 3) if matches else (error / 3, 1 - error))
    return [math.log10((2 - n) * same + n * other) - math.log10(2.0) for n in range(3)]


ROWS = {(q, matches): likelihoods_of(q, matches) for q in range(100) for matches in (True, False)}


def observations(line, reference, pileup, deleted):
    """What a read of the SAM text says of each position, counted into pileup and deleted."""
    _, flag, contig, pos, mapq, cigar, _, pnext, tlen, bases, quals = line.split("\t")[:11]
    flag, mapq, start, tlen, mate = int(flag), int(mapq), int(pos) - 1, int(tlen), int(pnext) - 1
    if flag & 0x704 or mapq < 20:
        return
    words = [(int(n), op) for n, op in re.findall(r"(\d+)(\D)", cigar)]
    end = start + sum(n for n, op in words if op in "MDN=X")
    reverse, low, high = bool(flag & 16), start, end
    facing = flag & 13 == 1 and reverse != bool(flag & 32)
    if facing and 0 < abs(tlen) <= 100 and reverse and end > mate + 1:
        low = max(start, mate)
    elif facing and 0 < abs(tlen) <= 100 and not reverse and start <= tlen + mate:
        high = min(end, start + abs(tlen) + 1)
    quals = [ord(c) - 33 for c in quals]
    text, at, offset, place = reference[contig], pileup[contig], 0, start
    for n, op in words:
        if op in "M=X":
            for p in range(max(place, low), min(place + n, high)):
                quality, base = quals[offset + p - place], bases[offset + p - place]
                if quality >= 10 and base in "ACGT" and text[p] in "ACGT":
                    at[p].append(ROWS[min(quality, max(mapq, 10)), base == text[p]])
        elif op == "D":
            for p in range(max(place, low), min(place + n, high)):
                deleted[contig][p] += text[p] in "ACGT"
        place += n if op in "MDN=X" else 0
        offset += n if op in "MIS=X" else 0


def recount(folder, reference):
    """By contig and position: depth, quality of the reference, its band, and the three PL."""
    pileup = {contig: [[] for _ in text] for contig, text in reference.items()}
    deleted = {contig: [0] * len(text) for contig, text in reference.items()}
    for line in subprocess.run(["samtools", "view", folder / "sample1.bam"], check=True, text=True, capture_output=True).stdout.splitlines():
        observations(line, reference, pileup, deleted)
    bounds, counted = [0, *range(1, 61), 70, 80, 90, 99], {}
    for contig in reference:
        counted[contig] = []
        for rows, missing in zip(pileup[contig], deleted[contig]):
            depth = len(rows) + missing
            sums = [sum((row[n] for row in rows), 0.0) + missing * ROWS[30, False][n] for n in range(3)]
            standard = [min(depth, 40) * value for value in ROWS[30, True]]
            if sums[0] - max(sums[1:]) > (ROWS[30, True][0] - max(ROWS[30, True][1:])) * min(depth, 40):
                sums = standard
            sums = [min(value, sums[0]) for value in sums]
            quality = min(int((sums[0] - sorted(sums)[1]) * 10), 99)
            band = max(bound for bound in bounds if bound <= quality)
            counted[contig].append((depth, band, [math.floor((sums[0] - value) * 10 + 0.5) for value in sums]))
    return counted


def expected_blocks(counted, variants, targets):
    """(contig, start, end, DP, MIN_DP, PL) of all blocks: positions of one band between the records."""
    under = {(r.contig, r.pos - 1 + i) for r in variants for i in range(len(r.ref))}
    for contig, start, end in targets:
        key = lambda p: None if (contig, p) in under else counted[contig][p][1]  # noqa: E731
        for band, positions in itertools.groupby(range(start, end), key):
            positions = list(positions)
            depths = sorted(counted[contig][p][0] for p in positions)
            if band is not None:
                pl = [min(counted[contig][p][2][n] for p in positions) for n in range(3)]
                yield contig, positions[0], positions[-1] + 1, depths[len(depths) // 2], depths[0], pl


def test_gvcf_agrees_with_a_recount(call, simulated, tmp_path):  # noqa: F811
    folder = simulated(depth=30)
    fasta = pysam.FastaFile(str(folder / "reference.fa"))
    reference = {contig: fasta.fetch(contig).upper() for contig in fasta.references}
    counted, gvcf = recount(folder, reference), ["--emit_mode", "gvcf"]
    whole = call(folder, "whole.g.vcf.gz", *gvcf)
    for i, (threads, shard) in enumerate([(1, "5000"), (8, "5000"), (2, "20000"), (2, "777/77"), (8, "1000000")]):
        assert same_but_command(call(folder, f"{i}.g.vcf.gz", *gvcf, head=["-t", threads, "--shard_param", shard])) == same_but_command(whole), shard
    places = [("chr1", 0, 60000), ("chr2", 0, 20000)]
    some = [("chr1", 0, 1), ("chr1", 9000, 9010), ("chr1", 20000, 31234), ("chr1", 31300, 33000), ("chr1", 59990, 60000), ("chr2", 7000, 20000)]
    (tmp_path / "targets.bed").write_text("".join("\t".join(map(str, target)) + "\n" for target in some))
    part = call(folder, "part.g.vcf.gz", *gvcf, head=["-t", 2, "--interval", tmp_path / "targets.bed", "--shard_param", "5000"])
    for path, targets in ((whole, places), (part, some)):
        records = records_of(path)
        variants, blocks = [r for r in records if len(r.alts) > 1], [r for r in records if len(r.alts) == 1]
        assert len(variants) > 50 and all(r.alts[-1] == "<NON_REF>" for r in records)
        assert all(any(c == r.contig and s < r.pos <= e for c, s, e in targets) for r in variants)
        found = [(r.contig, r.pos - 1, int(r.info["END"]), r.samples[0]) for r in blocks]
        for block, (contig, start, end, depth, least, pl) in itertools.zip_longest(found, expected_blocks(counted, variants, targets)):
            assert block == (contig, start, end, {"GT": "0/0", "DP": str(depth), "GQ": str(min(sorted(pl)[1], 99)), "MIN_DP": str(least),
                                                  "PL": ",".join(map(str, pl))})


def test_reads_in_two_files(run, call, simulated, tmp_path):  # noqa: F811
    folder = simulated(depth=30)
    with pysam.AlignmentFile(str(folder / "sample1.bam")) as whole:
        halves = [pysam.AlignmentFile(str(tmp_path / f"half{i}.bam"), "wb", header=whole.header) for i in (0, 1)]
        for i, read in enumerate(whole):
            halves[i % 2].write(read)
    for half in halves:
        half.close()
        pysam.index(half.filename.decode())
    for mode in ("variant", "gvcf"):
        expected = same_but_command(call(folder, "one.vcf", "--emit_mode", mode))
        for order in ((0, 1), (1, 0)):
            bams = [word for i in order for word in ("-i", f"half{i}.bam")]
            done = run("-r", folder / "reference.fa", *bams, "--algo", "Haplotyper", "--emit_mode", mode, "two.vcf")
            assert done.returncode == 0, done.stderr
            assert same_but_command(tmp_path / "two.vcf") == expected


def test_gvcf_records(call, simulated):  # noqa: F811
    folder = simulated(depth=30)
    path = call(folder, "out.g.vcf.gz", "--emit_mode", "gvcf")
    variants = [r for r in records_of(path) if r.alts != ["<NON_REF>"]]
    plain = {(r.contig, r.pos) for r in records_of(call(folder, "plain.vcf.gz"))}
    assert len(plain ^ {(r.contig, r.pos) for r in variants}) <= 0.05 * len(plain)
    assert not any(key in r.info for r in variants for key in ("AC", "AF", "AN", "QD", "MQ0", "MQ", "FS", "SOR"))
    assert all("RAW_MQ" in r.info and "SB" in r.samples[0] for r in variants)
    groups = {}
    for record in variants:
        if "PID" in record.samples[0]:
            assert record.samples[0]["PGT"] in ("0|1", "1|0", "1|1")
            groups.setdefault(record.samples[0]["PID"], []).append(record)
    assert groups
    for name, members in groups.items():
        first = members[0]
        assert len(members) > 1 and name.startswith(f"{first.pos}_{first.ref}_")
    header = text_of(path)
    assert "##FORMAT=<ID=PGT,Number=1,Type=String," in header and "##GVCFBlock0-1=minGQ=0(inclusive),maxGQ=1(exclusive)" in header
    assert "ID=PGT" not in text_of(call(folder, "nophase.g.vcf", "--emit_mode", "gvcf", "--phasing", 0))


def test_tells_of_a_ploidy_without_likelihoods(run, simulated):  # noqa: F811
    words = [*inputs(simulated(depth=30)), "--shard", "chr1:1-10000", "--algo", "Haplotyper", "--emit_mode"]
    for mode, ploidy, told in (("gvcf", 13, 1), ("gvcf", 12, 0), ("variant", 13, 0)):
        done = run(*words, mode, "--ploidy", ploidy, "out.vcf")
        assert done.returncode == 0 and done.stderr.count(f"Warning: Haplotyper: records of ploidy {ploidy} have no PL") == told


def test_given_alleles(call, simulated, tmp_path):  # noqa: F811
    folder = simulated(depth=30)
    plain = [r for r in records_of(call(folder, "plain.vcf.gz")) if r.contig == "chr1" and len(r.alts) == 1]
    reference = pysam.FastaFile(str(folder / "reference.fa")).fetch("chr1").upper()
    absent = next(p for p in range(30000, 31000) if all(abs(p - r.pos) > 300 for r in plain) and "N" not in reference[p - 99 : p + 99])
    base = reference[absent - 1]
    lines = [f"chr1\t{r.pos}\t.\t{r.ref}\t{r.alts[0]}\t.\t.\t." for r in plain[4:8]]
    lines.append(f"chr1\t{absent}\t.\t{base}\t{'A' if base != 'A' else 'C'}\t.\tPASS\t.")
    lines.sort(key=lambda line: int(line.split("\t")[1]))
    given = make_vcf(tmp_path / "given.vcf", {"chr1": 60000, "chr2": 20000}, *lines)
    found = records_of(call(folder, "found.vcf.gz", "--given", given))
    assert [(r.pos, r.alts) for r in found] == [(r.pos, r.alts) for r in plain[4:8]]
    everything = records_of(call(folder, "every.vcf.gz", "--given", given, "--emit_mode", "all"))
    assert sorted({r.pos for r in everything}) == sorted([absent, *(r.pos for r in plain[4:8])])


def test_debug_positions(run, simulated, tmp_path):  # noqa: F811
    folder = simulated(depth=30)
    words = (*inputs(folder), "--algo", "Haplotyper", "--phmm_chunk_size", 20)
    plain = run("-t", 3, *words, "plain.vcf")
    assert plain.returncode == 0 and not list(tmp_path.glob("*.dot"))
    record = next(r for r in records_of(tmp_path / "plain.vcf") if r.contig == "chr1")
    place, debug = f"chr1:{record.pos}", tmp_path / "debug"
    debug.mkdir()
    told = run("-t", 3, *words, tmp_path / "told.vcf", env={**os.environ, "dbgloc": f"chr2:20000,{place}#3"}, cwd=debug)
    assert same_but_command(tmp_path / "told.vcf") == same_but_command(tmp_path / "plain.vcf")
    span, counts = r"chr1:\d+-\d+", r"R\d+xH\d+"
    for trace in (f"extened active region {span}\n", rf"{span}, \d+ reads, doFeatureAssemble=F doHCAssemble=T\n",
                  r"Using kmer size of \d+ in read threading assembler\n", r"Adding haplotype bases=[ACGT]+,.* from graph with kmer \d+\n",
                  rf"after hc assembler, got \d+ haplotypes on {span}\n", r"haplotype after assembleReads:\d+\n",
                  rf"@{span} \+{span} {counts}\n", rf"CHUNK {span} {counts} split into \d+ chunks\n"):
        assert re.search(trace, told.stderr) and not re.search(trace, plain.stderr), trace
    graphs = [path.read_text() for path in debug.glob("*.dot")]
    assert len(graphs) > 20
    for graph in graphs:
        assert graph.startswith("digraph assemblyGraphs {\n") and graph.endswith("}\n") and " -> " in graph
    for text in ("chr1", f"{place}#9", "chr9:1", "chr2:20001", "chr1:1,,chr1:2"):
        done = run(*words, "out.vcf", env={**os.environ, "dbgloc": text})
        assert done.returncode not in (0, -6, -11) and done.stderr.startswith("dbgloc: "), (text, done.stderr)
    done = run(*words, tmp_path / "told.vcf", env={**os.environ, "dbgloc": f"{place}#2"}, cwd="/proc")  # nobody writes there
    assert done.returncode == 0 and "Failed to write graph chr1:" in done.stderr


def test_bad_options(run, simulated):  # noqa: F811
    folder = simulated(depth=30)
    for words, text in {
        ("--emit_mode", "none"): "unknown emit mode none",
        ("--gq_bands", "5-3"): "invalid GQ bands 5-3",
        ("--min_base_qual", "256"): "invalid min_base_qual 256",
        ("--min_map_qual", "-1"): "invalid min_map_qual -1",
        ("--max_alt_alleles", "-1"): "invalid max_alt_alleles -1",
        ("--ploidy", "0"): "invalid ploidy 0",
        ("--ploidy", "20", "--max_alt_alleles", "20"): "invalid max_alt_alleles 20, too many genotypes of ploidy 20",
        ("--pcr_indel_model", "mild"): "invalid PCR indel model mild",
        ("--phasing", "1", "--ploidy", "3"): "phasing is only support for diploid samples",
        ("--kmer_sizes", "10,x"): "kmer size list 10,x",
        ("--assemble_mode", "2"): "assemble_mode 2 is not available",
        ("--fg_min_base_qual", "256"): "invalid fg_min_base_qual 256",
        ("--phmm_param", "constantGCP"): "invalid phmm_param format constantGCP",
        ("--phmm_param", "constantGCP=-5"): "invalid phmm_param settings constantGCP=-5",
        ("--given", folder / "known_sites.vcf.gz", "--emit_mode", "gvcf"): "cannot specify a given vcf in gvcf emit mode",
        ("--merge",): "--merge must not have input reference or bam files",
    }.items():
        done = run(*inputs(folder), "--algo", "Haplotyper", *words, "out.vcf")
        assert done.returncode not in (0, -6, -11) and f"Haplotyper: {text}" in done.stderr, (words, done.stderr)
    done = run("--algo", "Haplotyper", "--merge", "out.vcf")
    assert done.returncode != 0 and "Haplotyper: no partial files for merge" in done.stderr
    two = simulated(depth=30, samples=2)
    done = run(*inputs(two), "--algo", "Haplotyper", "--emit_mode", "gvcf", "out.vcf")
    assert done.returncode != 0 and "Only a single sample is allowed in GVCF emit mode" in done.stderr
