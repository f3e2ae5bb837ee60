"""QualCal: against a plain count of the reads, at any thread count and shard size, in parts, and on biased qualities."""

import collections
import csv
import math
import pathlib
import random
import re
import resource
import signal
import subprocess

import pysam
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
UNKNOWN = "QualCal: Missing VCF file of known polymorphic sites, this may lead to inaccurate results\n"


def rows_of(path, name):
    lines = iter(path.read_text().splitlines())
    next(line for line in lines if line.startswith(f"#:TORVESIN_QCAL_TABLE:{name}:"))
    titles = next(lines).split("\t")
    rows = []
    for line in lines:
        if not line:
            return rows
        rows.append(dict(zip(titles, line.split("\t"))))
    raise AssertionError(f"table {name} has no end")


@pytest.fixture(scope="module")
def reads(simulate, tmp_path_factory):
    """A folder with reference.fa, sample1.bam and indexed known_sites.vcf.gz."""
    folder = tmp_path_factory.mktemp("reads")
    subprocess.run([simulate, "--out-dir", folder, "--contigs", "chr1:60000,chr2:25000", "--depth", "20"],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["tabix", "-f", "-p", "vcf", folder / "known_sites.vcf.gz"], check=True)
    return folder


def inputs(folder):
    return ["-r", folder / "reference.fa", "-i", folder / "sample1.bam"]


def known(folder):
    return ["--algo", "QualCal", "-k", folder / "known_sites.vcf.gz"]


def complement(bases):
    return bases[::-1].translate(str.maketrans("ACGTN", "TGCAN"))


def plain_count(folder, bam):
    """(event, table, group, quality, value) -> [observations, events], each event where it stands."""
    reference = {n: s.upper() for n, s in ((n, pysam.FastaFile(str(folder / "reference.fa")).fetch(n))
                                           for n in pysam.FastaFile(str(folder / "reference.fa")).references)}
    masked = collections.defaultdict(set)
    for record in pysam.VariantFile(str(folder / "known_sites.vcf.gz")):
        masked[record.chrom].update(range(record.start, record.stop))
    counts = collections.defaultdict(lambda: [0, 0])
    for read in pysam.AlignmentFile(str(bam)):
        if read.flag & 0x704 or not read.cigartuples:
            continue
        bases, length, text = read.query_sequence, read.query_length, reference[read.reference_name]
        start, end = read.reference_start, read.reference_end
        if read.template_length and read.flag & 13 == 1 and read.is_reverse != read.mate_is_reverse:
            if read.is_reverse and end > read.next_reference_start + 1:
                start = max(start, read.next_reference_start)
            elif not read.is_reverse and start <= read.template_length + read.next_reference_start:
                end = min(end, start + abs(read.template_length) + 1)
        mask = masked[read.reference_name]
        taking, events = [False] * length, collections.defaultdict(set)
        offset, pos, indels = 0, read.reference_start, []
        for op, n in read.cigartuples:
            if op in (0, 7, 8):
                for i in range(n):
                    if start <= pos + i < end and pos + i not in mask and text[pos + i] in "ACGT":
                        taking[offset + i] = bases[offset + i] in "ACGT"
                        if bases[offset + i] != text[pos + i]:
                            events["M"].add(offset + i)
            if op in (1, 2) and start < pos and pos + (n if op == 2 else 0) < end:
                left_known = pos - 1 in mask or text[pos - 1] not in "ACGT"
                after = offset + (n if op == 1 else 0)
                indels.append(("I" if op == 1 else "D", after if read.is_reverse else offset - 1, left_known))
                if op == 1 and not left_known:
                    for i in range(n):
                        taking[offset + i] = bases[offset + i] in "ACGT"
            offset += n if op in (0, 1, 4, 7, 8) else 0
            pos += n if op in (0, 2, 3, 7, 8) else 0
        for kind, at, left_known in indels:
            if left_known and 0 <= at < length:
                taking[at] = False
            events[kind].add(at)
        quals = read.query_qualities
        low, high = 0, length
        while low < high and quals[low] <= 2:
            low += 1
        while high > low and quals[high - 1] <= 2:
            high -= 1
        coded = "N" * low + bases[low:high] + "N" * (length - high)
        if read.is_reverse:
            coded = complement(coded)
        sign = -1 if read.flag & 0x81 == 0x81 else 1
        group = read.get_tag("RG")
        for i in range(length):
            if not taking[i]:
                continue
            place = length - 1 - i if read.is_reverse else i
            for kind, k, quality in (("M", 2, quals[i]), ("I", 3, 45), ("D", 3, 45)):
                context = coded[max(0, place + 1 - k):place + 1]
                cells = [("RecalTable1", "")]
                if len(context) == k and set(context) <= set("ACGT"):
                    cells.append(("Context", context))
                if kind == "M" or 4 <= place < length - 4:
                    cells.append(("Cycle", str(sign * (place + 1))))
                for table, value in cells:
                    cell = counts[kind, table, group, quality, value]
                    cell[0] += 1
                    cell[1] += i in events[kind]
    return counts


def table_counts(path):
    counts = {}
    for row in rows_of(path, "RecalTable1"):
        counts[row["EventType"], "RecalTable1", row["ReadGroup"], int(row["QualityScore"]), ""] = (
            int(row["Observations"]), float(row["Errors"]))
    for row in rows_of(path, "RecalTable2"):
        counts[row["EventType"], row["CovariateName"], row["ReadGroup"], int(row["QualityScore"]),
               row["CovariateValue"]] = int(row["Observations"]), float(row["Errors"])
    return counts


def test_equals_a_plain_count(run, reads, tmp_path):
    result = run(*inputs(reads), *known(reads), "a.table")
    assert result.returncode == 0, result.stderr
    plain, counted = plain_count(reads, reads / "sample1.bam"), table_counts(tmp_path / "a.table")
    assert {k: v[0] for k, v in plain.items()} == {k: v[0] for k, v in counted.items()}
    # The model moves events between bases of a run, and neither makes nor loses any.
    totals = collections.defaultdict(lambda: [0, 0])
    moved = 0
    for key, (_, events) in plain.items():
        if key[1] == "RecalTable1":
            totals[key[0], key[2]][0] += events
            totals[key[0], key[2]][1] += counted[key][1]
            moved += abs(events - counted[key][1]) if key[0] == "M" else 0
    for key, (events, errors) in totals.items():
        assert errors == pytest.approx(events, abs=0.01 * 94), key
    mismatches = sum(events for key, (events, _) in totals.items() if key[0] == "M")
    assert mismatches > 3000 and moved < 0.1 * mismatches


def test_any_threads_and_shards_and_parts(run, reads, tmp_path):
    for i, (threads, shards) in enumerate((("1", "1000000/1000"), ("8", "5000/1000"), ("3", "7001/350"))):
        assert run("-t", threads, "--shard_param", shards, *inputs(reads), *known(reads), f"{i}.table").returncode == 0
    whole = (tmp_path / "0.table").read_bytes()
    assert len(whole) > 100000
    assert whole == (tmp_path / "1.table").read_bytes() == (tmp_path / "2.table").read_bytes()

    pieces = ["chr2", "chr1:1-21000", "chr1:21001-60000"]
    for i, piece in enumerate(pieces):
        assert run("--shard", piece, *inputs(reads), *known(reads), f"part{i}").returncode == 0
    parts = [f"part{i}" for i in range(len(pieces))]
    assert run("--algo", "QualCal", "--merge", "merged.table", *parts).returncode == 0
    assert (tmp_path / "merged.table").read_bytes() == whole

    (tmp_path / "cut").write_bytes((tmp_path / "part1").read_bytes()[:-5])
    result = run("--algo", "QualCal", "--merge", "bad.table", "part0", "cut")
    assert result.returncode != 0 and "File cut terminated unexpectedly" in result.stderr
    assert not (tmp_path / "bad.table").exists()

    def leave_no_room():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (6000, 6000))

    for args in (["--merge", "cut", *parts[1:]], ["--plot", "--before", "merged.table", "cut"]):
        result = run("--algo", "QualCal", *args, preexec_fn=leave_no_room)
        assert result.returncode != 0 and "cut: File too large" in result.stderr
        assert not (tmp_path / "cut").exists()  # no part that is taken for the whole


def test_long_insertions_are_seen_alike_in_any_shards(run, reads, tmp_path):
    """The inserted bases are a copy of those before: the model finds it, whatever else the step has loaded."""
    text = pysam.FastaFile(str(reads / "reference.fa")).fetch("chr1").upper()
    header = pysam.AlignmentFile(str(reads / "sample1.bam")).header.to_dict()
    with pysam.AlignmentFile(str(tmp_path / "copy.bam"), "wb", header=header) as out:
        for start in range(1000, 50000, 37):
            read = pysam.AlignedSegment(out.header)
            read.query_name, read.reference_id, read.reference_start, read.mapping_quality = "r", 0, start, 60
            read.query_sequence = text[start:start + 10] + text[start - 50:start + 10] + text[start + 10:start + 40]
            read.cigarstring, read.query_qualities = "10M60I30M", [30] * 100
            read.set_tag("RG", header["RG"][0]["ID"])
            out.write(read)
    pysam.index(str(tmp_path / "copy.bam"))
    tables = set()
    for shards in ("1000000/1000", "97/11"):
        command = ["--shard_param", shards, "-r", reads / "reference.fa", "-i", "copy.bam", "--algo", "QualCal", "t"]
        assert run(*command).returncode == 0
        tables.add((tmp_path / "t").read_bytes())
    assert len(tables) == 1


def biased_copy(source, target, seed=1):
    """Reads without errors in; out with errors at one of two rates, and qualities that misstate the rate by some phred
    that depend on group, cycle and context."""
    draw = random.Random(seed)
    with pysam.AlignmentFile(str(source)) as old:
        groups = {g["ID"]: i for i, g in enumerate(old.header.to_dict()["RG"])}
        with pysam.AlignmentFile(str(target), "wb", template=old) as new:
            for read in old:
                if read.query_sequence is not None:
                    true = draw.choice((15, 22))
                    rate = 10 ** (-true / 10)
                    bases = "".join(draw.choice("ACGT".replace(b, "")) if draw.random() < rate else b
                                    for b in read.query_sequence)
                    n, forward = len(bases), complement(bases) if read.is_reverse else bases
                    group = 3 * groups[read.get_tag("RG")]
                    quals = [true + group + (4 if i < 50 else 0) + (5 if forward[max(0, i - 1):i + 1] in ("GG", "CA") else 0)
                             for i in range(n)]
                    read.query_sequence = bases
                    read.query_qualities = quals[::-1] if read.is_reverse else quals
                new.write(read)
    pysam.index(str(target))


def test_recovers_biased_qualities(run, simulate, tmp_path):
    subprocess.run([simulate, "--out-dir", ".", "--contigs", "chr1:200000", "--depth", "40", "--error", "perfect",
                    "--read-groups", "2"], check=True, stdout=subprocess.DEVNULL, cwd=tmp_path)
    subprocess.run(["tabix", "-f", "-p", "vcf", "truth.vcf.gz"], check=True, cwd=tmp_path)
    biased_copy(tmp_path / "sample1.bam", tmp_path / "biased.bam")
    args = ["-t", "2", "-r", "reference.fa", "-i", "biased.bam"]
    truth = ["--algo", "QualCal", "-k", "truth.vcf.gz"]
    assert run(*args, *truth, "before.table").returncode == 0
    assert run(*args, "-q", "before.table", *truth, "after.table").returncode == 0
    assert run("--algo", "QualCal", "--plot", "--before", "before.table", "--after", "after.table",
               "cal.csv").returncode == 0

    with open(tmp_path / "cal.csv", newline="") as f:
        rows = [r for r in csv.DictReader(f) if r["EventType"] == "Base Substitution"]
    worst = collections.defaultdict(float)
    for row in rows:
        n = int(row["Observations"])
        if n >= 100000:
            off = -10 * math.log10((float(row["Errors"]) + 1) / (n + 2)) - float(row["AverageReportedQuality"])
            key = row["Recalibration"], row["CovariateName"]
            worst[key] = max(worst[key], abs(off))
    for name in ("QualityScore", "Context"):
        assert worst["Before", name] > 2
        assert worst["After", name] <= 1, worst
    by_cycle = collections.defaultdict(lambda: [0, 0.0, 0.0])  # cells of one cycle are too small: ten together
    for row in rows:
        if row["CovariateName"] == "Cycle" and row["Recalibration"] == "After":
            n, cell = int(row["Observations"]), by_cycle[row["ReadGroup"], int(row["CovariateValue"]) // 10]
            cell[0] += n
            cell[1] += float(row["Errors"])
            cell[2] += n * 10 ** (-float(row["AverageReportedQuality"]) / 10)
    for key, (n, errors, promised) in by_cycle.items():
        if n >= 100000:
            assert abs(10 * math.log10(errors / promised)) <= 1, key

    script = ROOT / "scripts" / "plot-qualcal"
    if subprocess.run(["/usr/bin/python3", "-c", "import matplotlib"], stderr=subprocess.DEVNULL).returncode == 0:
        subprocess.run([script, "cal.csv", "cal"], check=True, cwd=tmp_path)
        assert (tmp_path / "cal.pdf").read_bytes().startswith(b"%PDF")
        for event in ("substitution", "insertion", "deletion"):
            assert (tmp_path / f"cal.{event}.png").stat().st_size > 10000


@pytest.mark.parametrize("args, message", [
    ("", "QualCal: --merge or --plot option is expected, or missing input reference and bam files"),
    ("--merge --plot x", "QualCal: --merge and --plot options are mutally exclusive"),
    ("--merge out", "QualCal: no partial files for merge"),
    ("--plot out", "QualCal: no input for plot"),
    ("--plot --before no.table out", "Error: QualCal failed to load table file no.table"),
    ("--nonsense", "QualCal: unknown option"),
    ("--merge out no.part", "Error: failed to open part file no.part"),
])
def test_misuse_without_inputs(run, args, message):
    result = run("--algo", "QualCal", *args.split())
    assert result.returncode != 0 and message in result.stderr


def test_misuse_with_inputs(run, reads, tmp_path):
    ref, bam = ["-r", reads / "reference.fa"], ["-i", reads / "sample1.bam"]
    for head, args, message in (
        (bam, ["out"], "QualCal: missing reference"),
        (ref, ["out"], "QualCal: missing bam input"),
        (ref + bam, [], "QualCal: missing output file"),
        (ref + bam, ["--merge", "o", "p"], "QualCal: --merge must not have input reference or bam files"),
        (ref + bam, ["--plot", "--before", "b", "o"], "QualCal: --plot must not have input reference or bam files"),
        (ref + bam, ["no/such/folder"], "Error: failed to open table file no/such/folder"),
        (ref + bam, ["-k", "no.vcf.gz", "out"], "no.vcf.gz"),
    ):
        result = run(*head, "--algo", "QualCal", *args)
        assert result.returncode != 0 and message in result.stderr, message
    # A known-sites file is no output, and one of other contigs no input.
    sites = tmp_path / "sites.vcf"
    sites.write_text("##fileformat=VCFv4.2\n##contig=<ID=chr1,length=77>\n#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n"
                     "chr1\t5\t.\tA\tC\t.\t.\t.\n")
    pysam.tabix_index(str(sites), preset="vcf")
    result = run(*ref, *bam, "--algo", "QualCal", "-k", "sites.vcf.gz", "out")
    assert "QualCal: Contigs in vcf sites.vcf.gz are not compatible with reference" in result.stderr
    assert result.returncode != 0
    before = (tmp_path / "sites.vcf.gz").read_bytes()
    assert run(*ref, *bam, "--algo", "QualCal", "-k", "sites.vcf.gz", "sites.vcf.gz").returncode != 0
    assert (tmp_path / "sites.vcf.gz").read_bytes() == before
    result = run(*ref, *bam, "--algo", "QualCal", "/dev/full")
    assert result.returncode != 0 and "/dev/full" in result.stderr


def test_groups_and_odd_reads(run, reads, tmp_path):
    draw = random.Random(3)
    text = pysam.FastaFile(str(reads / "reference.fa")).fetch("chr1")
    header = {"HD": {"VN": "1.5", "SO": "coordinate"}, "SQ": [{"SN": "chr1", "LN": len(text)},
              {"SN": "chr2", "LN": 25000}], "RG": [{"ID": "a", "SM": "s", "PL": "illumina"}, {"ID": "b", "SM": "s"}]}

    def write(path, reads_):
        with pysam.AlignmentFile(str(path), "wb", header=header) as out:
            for i, (start, length, group, quality, tags) in enumerate(reads_):
                read = pysam.AlignedSegment(out.header)
                read.query_name, read.reference_id, read.reference_start = f"r{i}", 0, start
                read.mapping_quality, read.cigarstring = 60, f"{length}M"
                read.query_sequence = text[start:start + length].upper()
                if quality is not None:
                    read.query_qualities = [quality] * length
                read.set_tags([("RG", group), *tags])
                out.write(read)
        pysam.index(str(path))

    write(tmp_path / "odd.bam", [(5000, 50, "a", 30, []), (5010, 1, "a", 30, []), (5020, 50, "b", 30, []),
                                 (5030, 40, "a", None, []), (5040, 30, "a", 20, [("BI", "?" * 30), ("BD", "@" * 30)])])
    result = run("-r", reads / "reference.fa", "-i", "odd.bam", "--algo", "QualCal", "odd.table")
    assert result.returncode == 0
    assert UNKNOWN in result.stderr and "QualCal: No platform information for read group b, ignored\n" in result.stderr
    assert result.stderr.count("Warning: query length is 1. Skip this read\n") == 1
    counts = {k[0:1] + k[2:4]: v for k, v in table_counts(tmp_path / "odd.table").items() if k[1] == "RecalTable1"}
    assert counts == {("M", "a", 30): (50, 0), ("M", "a", 20): (30, 0), ("I", "a", 45): (90, 0), ("D", "a", 45): (90, 0),
                      ("I", "a", 30): (30, 0), ("D", "a", 31): (30, 0)}

    write(tmp_path / "long.bam", [(5000, 501, "a", 30, [])])
    result = run("-r", reads / "reference.fa", "-i", "long.bam", "--algo", "QualCal", "long.table")
    assert result.returncode != 0 and "Error: cycle 501 exceeding the maximum allowed: 500" in result.stderr
    assert not (tmp_path / "long.table").exists()
