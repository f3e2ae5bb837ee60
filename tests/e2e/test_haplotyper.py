"""Haplotyper: beside simulated truth, at any thread count, in parts, as GVCF, and on bad options."""

import os
import re

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
    for i, region in enumerate(("chr1:1-25000", "chr1:25001-60000", "chr2:1-20000")):
        parts.append(f"part{i}.vcf.gz")
        call(folder, parts[-1], *options, head=["-t", 2, *SMALL, "--shard", region])
    done = run("--algo", "Haplotyper", "--merge", "merged.vcf.gz", *parts)
    assert done.returncode == 0, done.stderr
    assert same_but_command(tmp_path / "merged.vcf.gz") == same_but_command(whole)


def check_tiling(records, contigs):
    """Every position has a block or lies under a record, and no block lies over what was before it."""
    for contig, length in contigs.items():
        covered = 0
        for record in (r for r in records if r.contig == contig):
            start, block = record.pos - 1, record.alts == ["<NON_REF>"]
            assert start <= covered and not (block and start < covered), record.line
            covered = max(covered, int(record.info["END"]) if block else start + len(record.ref))
            assert record.alts[-1] == "<NON_REF>"
        assert covered == length, contig


@pytest.mark.parametrize("shard", ["1000000/1000", "9000/1000", "3001/77"])
def test_gvcf_covers_every_position_once(call, simulated, shard):  # noqa: F811
    folder = simulated(depth=30)
    path = call(folder, "out.g.vcf.gz", "--emit_mode", "gvcf", head=["-t", 2, "--shard_param", shard])
    records = records_of(path)
    check_tiling(records, {"chr1": 60000, "chr2": 20000})
    variants = [r for r in records if r.alts != ["<NON_REF>"]]
    plain = {(r.contig, r.pos) for r in records_of(call(folder, "plain.vcf.gz", head=["-t", 2, "--shard_param", shard]))}
    assert len(plain ^ {(r.contig, r.pos) for r in variants}) <= 0.05 * len(plain)
    assert not any(key in r.info for r in variants for key in ("AC", "AF", "AN", "QD", "MQ0"))
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
