"""Genotyper: beside simulated truth, at any thread count and sharding, in parts, in its modes, and on bad input."""

import gzip
import itertools
import math
import pathlib
import random
import re
import resource
import shutil
import subprocess
import time

import pysam
import pytest

COMPARE = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "compare-calls"
ARGUMENT, RUN = 1, 255  # exit status of a run that could not start, and of one that broke off


@pytest.fixture(scope="session")
def simulated(simulate, tmp_path_factory):
    """simulated(option=value): a folder with reference.fa, <sample>.bam, truth.vcf.gz and known_sites.vcf.gz; made once."""
    made = {}

    def make(contigs="chr1:60000,chr2:20000", **options):
        key = (contigs, *sorted(options.items()))
        if key not in made:
            made[key] = tmp_path_factory.mktemp("simulated")
            words = [w for k, v in options.items() for w in (f"--{k.replace('_', '-')}", str(v))]
            subprocess.run([simulate, "--out-dir", made[key], "--contigs", contigs, "--flag-duplicates", "--snp-rate", "0.003",
                            "--indel-rate", "0.0008", *words], check=True, stdout=subprocess.DEVNULL)
        return made[key]

    return make


def inputs(folder):
    bams = [word for bam in sorted(folder.glob("*.bam")) for word in ("-i", bam)]
    return ["-r", folder / "reference.fa", *bams]


@pytest.fixture
def call(run, tmp_path):
    """call(folder, output, *options, head=driver options): the output's path, after a run that went well."""

    def genotype(folder, output, *options, head=("-t", 2)):
        done = run(*head, *inputs(folder), "--algo", "Genotyper", *options, output)
        assert done.returncode == 0, done.stderr
        return tmp_path / output

    return genotype


def text_of(path):
    data = path.read_bytes()
    return (gzip.decompress(data) if path.suffix == ".gz" else data).decode()


def same_but_command(path):
    return re.sub(r"##TorvesinCommandLine.*\n", "", text_of(path), count=1)


class Record:
    def __init__(self, line):
        self.line = line
        self.contig, pos, self.id, self.ref, alt, self.qual, self.filter, info, *rest = line.split("\t")
        self.pos, self.alts = int(pos), [] if alt == "." else alt.split(",")
        self.info = dict(item.partition("=")[::2] for item in info.split(";"))
        keys = rest[0].split(":") if rest else []
        self.samples = [dict(zip(keys, column.split(":"))) for column in rest[1:]]


def records_of(path):
    return [Record(line) for line in text_of(path).splitlines() if line[0] != "#"]


def check_record(record, reference, ploidy):
    """The fields of a record say one thing."""
    assert reference[record.contig][record.pos - 1 : record.pos - 1 + len(record.ref)] == record.ref
    assert len({record.ref, *record.alts}) == 1 + len(record.alts)
    genotypes = sorted(itertools.combinations_with_replacement(range(1 + len(record.alts)), ploidy), key=lambda g: g[::-1])
    carried, depth = [], 0
    for sample in record.samples:
        genotype = sample["GT"].split("/")
        assert len(genotype) == ploidy
        if "." in genotype:
            assert set(genotype) == {"."} and sample.get("GQ", ".") == sample.get("PL", ".") == "."
        if sample.get("DP", ".") != ".":
            depth += int(sample["DP"])
            assert len(sample["AD"].split(",")) == 1 + len(record.alts)
            assert sum(map(int, sample["AD"].split(","))) <= int(sample["DP"])
        if "." in genotype:
            continue
        alleles = tuple(map(int, genotype))
        assert alleles == tuple(sorted(alleles))
        carried += alleles
        if record.alts:
            pl = list(map(int, sample["PL"].split(",")))
            assert len(pl) == len(genotypes) and min(pl) == 0 == pl[genotypes.index(alleles)]
            assert int(sample["GQ"]) == min(99, sorted(pl)[1])
    info, counts = record.info, [carried.count(i + 1) for i in range(len(record.alts))]
    assert int(info["DP"]) == depth and int(info.get("AN", 0)) == len(carried)
    if record.alts and carried:
        assert list(map(int, info["AC"].split(","))) == counts
        assert info["AF"].split(",") == [f"{n / len(carried):.3f}" for n in counts]
        assert all(0 <= int(n) <= len(carried) for n in info["MLEAC"].split(","))
    for key in ("FS", "MQ", "QD", "SOR"):
        assert math.isfinite(float(info.get(key, 0)))


def check_file(path, folder, ploidy=2, check=check_record):
    fasta = pysam.FastaFile(str(folder / "reference.fa"))
    reference = {name: fasta.fetch(name).upper() for name in fasta.references}
    records = records_of(path)
    for record in records:
        check(record, reference, ploidy)
    order = [(fasta.references.index(r.contig), r.pos) for r in records]
    assert order == sorted(order)
    for command in (["view"], ["norm", "-c", "e", "-f", folder / "reference.fa"], ["stats", "-s", "-"]):
        done = subprocess.run(["bcftools", *command, path], text=True, capture_output=True)
        assert done.returncode == 0 and not re.search("warn|error", done.stderr, re.I), done.stderr
    if path.suffix == ".gz":  # the index finds what the file holds
        with pysam.TabixFile(str(path)) as file:
            for record in records[:: max(1, len(records) // 20)]:
                assert record.line in file.fetch(record.contig, record.pos - 1, record.pos)
    return records


def accuracy(folder, path, *options):
    out = subprocess.run([COMPARE, *options, folder / "truth.vcf.gz", path, folder / "reference.fa"], check=True, text=True,
                         capture_output=True).stdout
    rows = [line.split() for line in out.splitlines()[1:]]
    return {row[0]: dict(zip(("precision", "recall", "F1", "genotype"), map(float, row[5:]))) for row in rows}


@pytest.mark.parametrize("depth, ploidy, samples, floors", [
    (10, 2, 1, {"SNP": (0.99, 0.83, 0.93), "INDEL": (0.97, 0.35, 0.80)}),
    (30, 2, 1, {"SNP": (0.99, 0.95, 0.98), "INDEL": (0.97, 0.85, 0.97)}),
    (100, 2, 1, {"SNP": (0.99, 0.98, 0.99), "INDEL": (0.97, 0.95, 0.98)}),
    (30, 1, 1, {"SNP": (0.99, 0.95, 1.00), "INDEL": (0.97, 0.90, 1.00)}),
    (100, 4, 1, {"SNP": (0.99, 0.96, 0.94), "INDEL": (0.97, 0.65, 0.90)}),
    (30, 2, 3, {"SNP": (0.99, 0.95, 0.98), "INDEL": (0.97, 0.90, 0.95)}),
])
def test_finds_the_truth(call, simulated, depth, ploidy, samples, floors):
    folder = simulated(depth=depth, ploidy=ploidy, samples=samples)
    path = call(folder, "out.vcf.gz", "--var_type", "BOTH", *(["--ploidy", ploidy] if ploidy != 2 else []))
    records = check_file(path, folder, ploidy)
    assert all(float(r.qual) >= 30 and r.filter == "." for r in records)
    for i in range(samples):
        figures = accuracy(folder, path, *(["--sample", f"sample{i + 1}"] if samples > 1 else []))
        for kind, floor in floors.items():
            found = figures[kind]
            assert all(found[name] >= least for name, least in zip(("precision", "recall", "genotype"), floor)), (kind, found)


def test_same_bytes_at_any_threads_and_sharding_and_in_parts(run, call, simulated, tmp_path, monkeypatch):
    monkeypatch.setenv("SOURCE_DATE_EPOCH", "1700000000")
    folder = simulated(depth=20, samples=3)
    options = ["--var_type", "BOTH", "-d", folder / "known_sites.vcf.gz"]
    small = ["--shard_param", "5000/500"]
    whole = call(folder, "whole.vcf.gz", *options, head=["-t", 1, *small])
    assert "##TorvesinCommandLine.Genotyper=<ID=Genotyper," in text_of(whole) and 'Date="2023-11-14T22:13:20Z"' in text_of(whole)
    assert len(records_of(whole)) > 200
    for name, head in {"t3": ["-t", 3, *small], "t8": ["-t", 8, *small], "coarse": ["-t", 3, "--shard_param", "1000000/1000"],
                       "odd": ["-t", 2, "--shard_param", "7013/77"]}.items():
        assert same_but_command(call(folder, f"{name}.vcf.gz", *options, head=head)) == same_but_command(whole), name
    for suffix in ("vcf.gz", "vcf"):
        whole = call(folder, f"all.{suffix}", *options, head=["-t", 2, *small])
        parts = []
        for i, region in enumerate(("chr1:1-25000", "chr1:25001-60000", "chr2:1-20000")):
            parts.append(f"part{i}.{suffix}")
            call(folder, parts[-1], *options, head=["-t", 2, *small, "--shard", region])
        done = run("--algo", "Genotyper", "--merge", f"merged.{suffix}", *parts)
        assert done.returncode == 0, done.stderr
        assert same_but_command(tmp_path / f"merged.{suffix}") == same_but_command(whole)
        index = {"vcf.gz": ".tbi", "vcf": ".idx"}[suffix]
        assert (tmp_path / f"merged.{suffix}{index}").exists()


def test_modes(call, simulated):
    folder = simulated(depth=10)
    variant = check_file(call(folder, "variant.vcf.gz"), folder)
    assert variant and all(r.alts for r in variant)
    confident = check_file(call(folder, "confident.vcf.gz", "--emit_mode", "confident"), folder)
    assert [r.line for r in confident if r.alts] == [r.line for r in variant]
    everything = check_file(call(folder, "all.vcf.gz", "--emit_mode", "ALL", head=["--interval", "chr2:5001-8000"]), folder)
    bases = pysam.FastaFile(str(folder / "reference.fa")).fetch("chr2", 5000, 8000).upper()
    assert [r.pos for r in everything] == [5001 + i for i, base in enumerate(bases) if base != "N"]
    here = {r.pos: r for r in variant if r.contig == "chr2" and 5000 < r.pos <= 8000}
    assert {r.pos for r in everything if r.alts and r.filter == "."} == set(here)
    for record in everything:
        assert record.filter == ("LowQual" if float(record.qual) < 30 else "."), record.line
    low = check_file(call(folder, "low.vcf.gz", "--call_conf", "200", "--emit_conf", "20"), folder)
    assert {r.filter for r in low} == {".", "LowQual"} and len(low) >= len(variant)
    assert all((r.filter == "LowQual") == (float(r.qual) < 200) for r in low)
    header = text_of(call(folder, "some.vcf", "--annotation", "!MQ,!QD,NBQ,nonsense"))
    assert all((f"INFO=<ID={name}," in header) == there for name, there in {"MQ": False, "QD": False, "NBQ": True, "FS": True}.items())


def make_vcf(path, contigs, *records):
    lines = ["##fileformat=VCFv4.2", *(f"##contig=<ID={n},length={length}>" for n, length in contigs.items()),
             "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO", *records]
    path.write_text("\n".join(lines) + "\n")
    pysam.tabix_index(str(path), preset="vcf", force=True)
    return path.with_name(path.name + ".gz")


CONTIGS = {"chr1": 60000, "chr2": 20000}


def test_given_and_known_sites(call, simulated, tmp_path):
    folder = simulated(depth=30)
    plain = check_file(call(folder, "plain.vcf.gz", "--var_type", "BOTH", "-d", folder / "known_sites.vcf.gz"), folder)
    known = {(r.contig, r.pos, r.ref): r for r in records_of(folder / "known_sites.vcf.gz")}
    for record in plain:
        site = known.get((record.contig, record.pos, record.ref))
        same = site is not None and set(site.alts) & set(record.alts)
        assert (record.id, "DB" in record.info) == ((site.id, True) if same else (".", False)), record.line
    assert 0.7 * len(plain) < sum(r.id != "." for r in plain) < len(plain)

    reference = pysam.FastaFile(str(folder / "reference.fa")).fetch("chr1").upper()
    snps = [r for r in plain if r.contig == "chr1" and len(r.ref) == 1 and [len(a) for a in r.alts] == [1]]
    there, filtered, symbolic = snps[5:8]
    absent = next(p for p in range(30000, 31000) if all(abs(p - r.pos) > 300 for r in plain) and "N" not in reference[p - 99 : p + 99])
    base = reference[absent - 1]
    line = lambda r, filt=".", alt=None: f"chr1\t{r.pos}\tgiven\t{r.ref}\t{alt or r.alts[0]}\t.\t{filt}\t."
    given = make_vcf(tmp_path / "given.vcf", CONTIGS, line(there), line(filtered, "bad"), line(symbolic, alt="<DEL>"),
                     f"chr1\t{absent}\t.\t{base}\t{'A' if base != 'A' else 'C'}\t.\tPASS\t.",
                     f"chr1\t{absent + 20}\t.\t{reference[absent + 19 : absent + 23]}\t{reference[absent + 19]}\t.\tPASS\t.")
    nobodys = {absent, absent + 20}  # a SNP, a deletion
    for mode in ("variant", "all"):
        records = check_file(call(folder, f"{mode}.vcf.gz", "--var_type", "BOTH", "--given", given, "--emit_mode", mode), folder)
        assert {r.pos for r in records} - {there.pos} <= nobodys and there.pos in {r.pos for r in records}, mode
        assert mode == "variant" or nobodys < {r.pos for r in records}
        record = next(r for r in records if r.pos == there.pos)
        assert record.alts == there.alts and [s["GT"] for s in record.samples] == [s["GT"] for s in there.samples]


def test_bad_options(run, simulated, tmp_path):
    words = inputs(simulated(depth=10))
    for options, text in ((["--ploidy", "0"], "invalid ploidy 0"), (["--ploidy", "2x"], "invalid ploidy 2x"),
                          (["--var_type", "4"], "invalid variant type"), (["--var_type", "MNP"], "invalid variant type"),
                          (["--min_base_qual", "256"], "invalid min_base_qual 256"),
                          (["--emit_mode", "gvcf"], "unknown emit mode gvcf"), (["--nonsense"], "unknown option")):
        done = run(*words, "--algo", "Genotyper", *options, "out.vcf")
        assert (done.returncode, done.stderr) == (ARGUMENT, f"Genotyper: {text}\n")
        assert not (tmp_path / "out.vcf").exists()


def test_bad_files(run, simulated, tmp_path):
    folder = simulated(depth=10)
    source = gzip.decompress((folder / "known_sites.vcf.gz").read_bytes())
    (tmp_path / "plain.vcf").write_bytes(source)
    other = make_vcf(tmp_path / "other.vcf", {"chr1": 77}, "chr1\t5\t.\tA\tC\t.\t.\t.")
    cut = shutil.copy(folder / "known_sites.vcf.gz", tmp_path / "cut.vcf.gz")
    shutil.copy(folder / "known_sites.vcf.gz.tbi", tmp_path / "cut.vcf.gz.tbi")
    pathlib.Path(cut).write_bytes((folder / "known_sites.vcf.gz").read_bytes()[:-200])
    for option, name, text in (("-d", "none.vcf.gz", "none.vcf.gz"), ("-d", "plain.vcf", "plain.vcf"), ("-d", other.name, "contigs in vcf"),
                               ("--given", "none.vcf.gz", "none.vcf.gz"), ("--given", "plain.vcf", "plain.vcf"),
                               ("--given", other.name, "contigs in vcf"), ("-d", "cut.vcf.gz", "cut.vcf.gz")):
        done = run(*inputs(folder), "--algo", "Genotyper", option, name, "out.vcf.gz")
        assert done.returncode in (ARGUMENT, RUN) and text in done.stderr and name in done.stderr, (name, done.stderr)
        assert "ssert" not in done.stderr and "backtrace" not in done.stderr
        assert not (tmp_path / "out.vcf.gz.tbi").exists()


def test_full_disk(run, simulated, tmp_path):
    folder = simulated(depth=10)
    for output in ("full.vcf", "full.vcf.gz"):
        (tmp_path / output).symlink_to("/dev/full")
        done = run(*inputs(folder), "--algo", "Genotyper", output)
        assert done.returncode == RUN, done.stderr
        assert re.search(f"\nGenotyper: failed to .* file {output}, No space left on device\n$", done.stderr), done.stderr
        assert not list(tmp_path.glob("full.*.idx")) + list(tmp_path.glob("full.*.tbi"))
    limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))
    done = run("-t", 8, *inputs(folder), "--algo", "Genotyper", "--emit_mode", "all", "cut.vcf", preexec_fn=limit)
    assert done.returncode == RUN
    # Of threads that fail side by side one is heard, its two lines together.
    told = re.search(r"\ncut.vcf_\d: File too large\nGenotyper: failed to write to temp file\n$", done.stderr)
    assert told and done.stderr.count("\ncut.vcf_") == 1, done.stderr
    assert not list(tmp_path.glob("cut.vcf*")) + list(tmp_path.glob("full.vcf*_*"))


# --- reads made by hand ---

def write_bam(path, lengths, reads):
    """reads: start on the first contig, CIGAR, bases, and the quality of them all; strands in turn."""
    header = {"HD": {"VN": "1.6", "SO": "coordinate"}, "SQ": [{"SN": n, "LN": length} for n, length in lengths.items()],
              "RG": [{"ID": "g", "SM": "s"}]}
    with pysam.AlignmentFile(str(path), "wb", header=header) as out:
        for i, (start, cigar, bases, qual) in enumerate(reads):
            read = pysam.AlignedSegment(out.header)
            read.query_name, read.reference_id, read.reference_start, read.flag = f"r{i}", 0, start, 16 * (i % 2)
            read.mapping_quality, read.cigarstring, read.query_sequence = 60, cigar, bases
            read.query_qualities = None if qual is None else [qual] * len(bases)
            read.set_tag("RG", "g")
            out.write(read)
    pysam.index(str(path))


@pytest.fixture
def own(tmp_path):
    """A contig of 3000 bases, of which 1000 to 1200 are N, and own(reads): the arguments of a run on them."""
    draw = random.Random(5)
    bases = "".join(draw.choices("ACGT", k=1000)) + "N" * 200 + "".join(draw.choices("ACGT", k=1800))
    (tmp_path / "own.fa").write_text(f">c\n{bases}\n")
    pysam.faidx(str(tmp_path / "own.fa"))

    def arguments(reads, length=3000):
        write_bam(tmp_path / "own.bam", {"c": length}, reads)
        return ["-t", 2, "-r", "own.fa", "-i", "own.bam"]

    arguments.bases = bases
    return arguments


BOTH = ["--algo", "Genotyper", "--var_type", "BOTH"]


def test_little_or_nothing_to_call(run, own, tmp_path):
    read = own.bases[100:200]
    for reads, head, mode, count in (([], [], "variant", 0), ([(100, "100M", read, 30)], [], "variant", 0),
                                     ([(100, "100M", read, None)], [], "confident", 0),
                                     ([], ["--interval", "c:1-50"], "all", 50),
                                     ([(1040, "100M", "A" * 100, 30)], ["--interval", "c:1001-1200"], "all", 0),
                                     ([(950, "100M", "A" * 100, 30)] * 40, ["--interval", "c:1001-1200"], "variant", 0)):
        done = run(*own(reads), *head, *BOTH, "--emit_mode", mode, "o.vcf.gz")
        assert done.returncode == 0, done.stderr
        assert len(records_of(tmp_path / "o.vcf.gz")) == count, (reads[:1], mode)
    for interval in ("c:0-0", "c:50-40", "c:4000-5000"):
        done = run(*own([]), "--interval", interval, *BOTH, "o.vcf.gz")
        assert done.returncode in (0, ARGUMENT) and "ssert" not in done.stderr


def test_reads_that_do_not_fit_the_reference(run, own, tmp_path):
    beyond = [(2950, "100M", "A" * 100, 30)] * 10
    done = run(*own(beyond), *BOTH, "o.vcf")
    assert done.returncode >= 0 and "ssert" not in done.stderr, done.stderr
    done = run(*own([(100, "100M", own.bases[100:200], 30)] * 10, length=9000), *BOTH, "o.vcf")
    assert (done.returncode, done.stderr) == (ARGUMENT, "Contig c has different size in the bam files than in the reference\n")


def other(base):
    return "ACGT"["ACGT".index(base) - 1]


def test_counts_that_one_can_tell(run, own, tmp_path):
    """Clean reads with a homozygous insertion, and on every other one a SNP and a deletion."""
    reads = []
    for i in range(40):
        start, text = 1470 + i // 2, own.bases[1470 + i // 2 : 1620 + i // 2]
        ins, snp, gone = 1500 - start, 1560 - start, 1600 - start
        changed = i % 2
        bases = text[:ins] + "GATTACA" + text[ins:snp] + (other(text[snp]) if changed else text[snp]) + text[snp + 1 : gone]
        rest = text[gone + 3 * changed :]
        cigar = f"{ins}M7I{gone - ins}M" + ("3D" if changed else "") + f"{len(rest)}M" if changed else f"{ins}M7I{150 - ins}M"
        reads.append((start, cigar, bases + rest, 35))
    done = run(*own(reads), *BOTH, "o.vcf")
    assert done.returncode == 0, done.stderr
    found = {(r.pos, len(r.ref), len(r.alts[0])): r.samples[0] for r in records_of(tmp_path / "o.vcf")}
    genotypes = {key[1:]: sample["GT"] for key, sample in found.items()}
    assert genotypes == {(1, 8): "1/1", (1, 1): "0/1", (4, 1): "0/1"}, found
    snp = found[1561, 1, 1]
    assert (snp["AD"], snp["DP"], snp["GQ"]) == ("20,20", "40", "99")


def test_fifty_thousand_reads_on_one_place(run, own, sanitized, tmp_path):
    """Time and memory grow with the reads, not worse."""
    left, base, right = own.bases[2000:2050], own.bases[2050], own.bases[2051:2100]
    seconds = []
    for depth in (5000, 50000):
        reads = [(2000, "100M", left + (other(base) if i % 4 == 0 else base) + right, 30) for i in range(depth)]
        limit = None if sanitized else lambda: resource.setrlimit(resource.RLIMIT_AS, (1200 << 20, 1200 << 20))
        words = own(reads)
        begin = time.monotonic()
        done = run("-t", 1, *words[2:], *BOTH, "o.vcf", preexec_fn=limit)
        seconds.append(time.monotonic() - begin)
        assert done.returncode == 0, done.stderr
        (record,) = records_of(tmp_path / "o.vcf")
        assert record.pos == 2051 and record.samples[0]["GT"] == "0/1" and record.samples[0]["DP"] == str(depth)
        assert record.samples[0]["AD"] == f"{depth * 3 // 4},{depth // 4}"
    assert seconds[1] < 20 * seconds[0] + 2, seconds
