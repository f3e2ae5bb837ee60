"""Calibrated qualities (-q, --read_filter) against a recomputation from the text of the table, read for read."""

import math
import random

import pysam
import pytest

PREFIX = "#:TORVESIN_QCAL_TABLE:"
BASES = "ACGT"
COLUMNS = {
    "Arguments": "Argument Value",
    "Quantized": "QualityScore Count QuantizedScore",
    "RecalTable0": "ReadGroup EventType EmpiricalQuality EstimatedQReported Observations Errors",
    "RecalTable1": "ReadGroup QualityScore EventType EmpiricalQuality Observations Errors",
    "RecalTable2": "ReadGroup QualityScore CovariateValue CovariateName EventType EmpiricalQuality Observations Errors",
}
QUANTIZED = [min(q, 45) // 2 * 2 if q > 5 else q for q in range(94)]


def write_table(path, groups, seed):
    """Random counts: errors scatter around the reported quality, by a few phred in each cell."""
    draw = random.Random(seed)

    def counts(n, q):
        n = draw.randint(1, n)
        return f"0\t{n}\t{min(n, n * 10 ** (-(q + draw.gauss(-2, 4)) / 10)):.2f}"

    tables = {name: [] for name in COLUMNS}
    tables["Arguments"] = ["maximum_cycle_value\t300", "low_quality_tail\t3"]
    tables["Quantized"] = [f"{q}\t0\t{level}" for q, level in enumerate(QUANTIZED)]
    for group in groups:
        for event, size, qualities in (("M", 2, range(2, 42)), ("I", 3, [40, 45]), ("D", 3, [45])):
            average = sum(qualities) / len(qualities)
            n = f"{counts(10**9, average).split(chr(9), 1)[1]}"
            tables["RecalTable0"].append(f"{group}\t{event}\t0\t{average - 0.37:.4f}\t{n}")
            for q in qualities:
                if draw.random() < 0.1:
                    continue
                tables["RecalTable1"].append(f"{group}\t{q}\t{event}\t{counts(10**7, q)}")
                cells = [("".join(draw.choices(BASES, k=size)), "Context") for _ in range(12)]
                cells += [(c, "Cycle") for c in range(-90, 91) if c and draw.random() < 0.8]
                for value, name in dict.fromkeys(cells):
                    tables["RecalTable2"].append(f"{group}\t{q}\t{value}\t{name}\t{event}\t{counts(10**5 if event == 'M' else 10**8, q)}")
    with open(path, "w") as f:
        f.write("#:TORVESIN_QCAL_TABLE.V1:5\n")
        for name, columns in COLUMNS.items():
            f.write(f"{PREFIX}{len(columns.split())}:\n{PREFIX}{name}:\n" + columns.replace(" ", "\t") + "\n")
            f.writelines(row + "\n" for row in tables[name])
            f.write("\n")


def read_table(path):
    tables, name, columns = {}, None, None
    for line in open(path).read().split("\n"):
        if line.startswith(PREFIX):
            name, columns = line[len(PREFIX) :].split(":")[0], None
        elif line and name and columns is None:
            columns = line.split("\t")
            tables[name] = []
        elif line and columns:
            tables[name].append(dict(zip(columns, line.split("\t"))))
    return tables


def empirical(n, errors, prior):
    k, trials = math.floor(errors + 0.5) + 1, n + 2
    if trials >= 2147483647:
        factor = 2147483646.0 / trials
        trials, k = 2147483646, math.floor(factor * k + 0.5)
    best, result = -math.inf, 0
    for q in range(1, 61):
        d = min(abs(math.trunc(q - prior)), 40)
        rate = 10 ** (-q / 10)
        score = math.log10(0.9) - 2 * d * d / math.log(10) + k * math.log10(rate) + (trials - k) * math.log10(1 - rate)
        if score > best:
            best, result = score, q
    return result


class Model:
    def __init__(self, path, prior=-1.0, quantized=None, min_qual=6):
        tables = read_table(path)
        self.map = quantized or [int(row["QuantizedScore"]) for row in tables["Quantized"]]
        self.min_qual = min_qual
        self.group, self.quality, self.cell = {}, {}, {}

        def counts(row):
            return int(row["Observations"]), float(row["Errors"])

        for row in tables["RecalTable0"]:
            reported = float(row["EstimatedQReported"])
            base = prior if prior > 0 and row["EventType"] == "M" else reported
            self.group[row["ReadGroup"], row["EventType"]] = empirical(*counts(row), base)
        for row in tables["RecalTable1"]:
            key = row["ReadGroup"], row["EventType"]
            self.quality[*key, int(row["QualityScore"])] = empirical(*counts(row), self.group[key])
        for row in tables["RecalTable2"]:
            key = row["ReadGroup"], row["EventType"], int(row["QualityScore"])
            if key in self.quality:
                base = self.quality[key]
                value = row["CovariateValue"]
                self.cell[*key, value] = empirical(*counts(row), base) - base

    def apply(self, group, event, quals, contexts, cycles):
        out = []
        for q, context, cycle in zip(quals, contexts, cycles):
            if q < self.min_qual:
                out.append(q)
                continue
            x = self.quality.get((group, event, q), self.group[group, event])
            x += self.cell.get((group, event, q, context), 0) + self.cell.get((group, event, q, str(cycle)), 0)
            out.append(self.map[max(1, min(x, 93))])
        return out


def contexts_of(bases, quals, size, tail):
    """`bases` and `quals` as sequenced."""
    letters = list(bases)
    for order in (range(len(letters)), range(len(letters) - 1, -1, -1)):
        for i in order:
            if quals[i] > tail:
                break
            letters[i] = "N"
    words = ["".join(letters[max(0, i - size + 1) : i + 1]) for i in range(len(letters))]
    return [w if len(w) == size and set(w) <= set(BASES) else None for w in words]


def cycles_of(read, platform, indel):
    sign, n = (-1 if read.flag & 129 == 129 else 1), read.query_length
    if platform == "ILLUMINA":
        return [sign * (i + 1) if not indel or 4 <= i < n - 4 else None for i in range(n)]
    bases = read.query_sequence[::-1] if read.is_reverse else read.query_sequence
    cycles, cycle = [], sign
    while len(cycles) < n:
        for base in "TACG":
            while len(cycles) < n and bases[len(cycles)] == base:
                cycles.append(cycle)
        cycle += sign
        if len(cycles) < n and bases[len(cycles)] not in BASES:
            cycles.append(cycle)
    return cycles


def expected(model, read, platform, event):
    order = -1 if read.is_reverse else 1
    bases = read.get_forward_sequence()
    quals = list(read.query_qualities)[::order]
    given = quals
    if event != "M":
        tag = {"I": "BI", "D": "BD"}[event]
        given = [ord(c) - 33 for c in (read.get_tag(tag) if read.has_tag(tag) else "N" * len(quals))][::order]
    contexts = contexts_of(bases, quals, 2 if event == "M" else 3, tail=3)
    cycles = cycles_of(read, platform, event != "M")
    return model.apply(read.get_tag("RG"), event, given, contexts, cycles)[::order]


PLATFORMS = {"lane1": "ILLUMINA", "flow": "IONTORRENT", "other": "ONT", "unlisted": "ILLUMINA"}


@pytest.fixture(scope="module")
def reads(tmp_path_factory):
    folder = tmp_path_factory.mktemp("calibrated")
    draw = random.Random(5)
    header = {
        "HD": {"VN": "1.5", "SO": "coordinate"},
        "SQ": [{"SN": "chr1", "LN": 100000}],
        "RG": [{"ID": id, "SM": "s", "PL": platform} for id, platform in PLATFORMS.items()],
    }
    with pysam.AlignmentFile(str(folder / "reads.bam"), "wb", header=header) as out:
        for i in range(3000):
            read = pysam.AlignedSegment(out.header)
            read.query_name, read.reference_id, read.reference_start = f"r{i}", 0, 10 * i
            read.flag = draw.choice([0, 16, 65, 81, 128, 129, 145, 4, 1024 + 129])
            length = draw.choice([0, 1, 5, 20, 80, 100, 300])
            read.query_sequence = "".join(draw.choices("ACGTN", [10, 10, 10, 10, 1], k=length))
            quals = [draw.choice([2, 5, 6, 11, 20, 30, 31, 40, 41, 60]) for _ in range(length)]
            if draw.random() < 0.3:
                tail = draw.randint(0, length)
                quals[length - tail :] = [draw.randint(0, 3) for _ in range(tail)]
            if draw.random() < 0.95:
                read.query_qualities = pysam.qualitystring_to_array("".join(chr(q + 33) for q in quals))
            if not read.flag & 4 and length:
                read.cigarstring = f"{length}M"
            read.set_tag("RG", draw.choice(list(PLATFORMS)))
            if draw.random() < 0.2:
                read.set_tag("BI", "".join(draw.choice("%INI") for _ in range(length)))
            out.write(read)
    pysam.index(str(folder / "reads.bam"))
    write_table(folder / "lane1.table", ["lane1", "other"], seed=6)
    write_table(folder / "flow.table", ["flow"], seed=7)
    return folder


def all_reads(path):
    with pysam.AlignmentFile(str(path), check_sq=False) as f:
        return list(f.fetch(until_eof=True))


def static_map(levels):
    """Nearest of 6 and the levels by 10^(-q/10), ties down; all levels lie above 6."""
    marks = [6, *levels]
    return [q if q < 6 else min(marks, key=lambda m: (abs(10 ** (-q / 10) - 10 ** (-m / 10)), m)) for q in range(94)]


@pytest.mark.parametrize(
    "params, options",
    [
        (None, {}),
        ("indel=true", {}),
        ("prior=33,min_qual=21", {"prior": 33.0, "min_qual": 21}),
        ("levels=30/10/20/40,indel=false", {"quantized": static_map([10, 20, 30, 40])}),
        ("levels=14/22/30,rounding=down", {"quantized": [max(m for m in (q % 6 if q < 6 else 6, 14, 22, 30) if m <= q) for q in range(94)]}),
    ],
)
def test_qualities_are_those_of_the_table(run, reads, tmp_path, params, options):
    tables = [reads / "lane1.table", reads / "flow.table"]
    if params:
        args = [a for t in tables for a in ("--read_filter", f"QualCalFilter,table={t},{params}")]
    else:
        args = [a for t in tables for a in ("-q", t)]
    result = run("-t", 2, "--shard_param", "5000/1000", "-i", reads / "reads.bam", *args, "--algo", "ReadWriter", "a.bam")
    assert result.returncode == 0
    for line in (
        "Warning: Unsupported platform: ONT, no recalibration will be performed. \n",
        "Warning: read group unlisted is in no calibration table, its base qualities are kept\n",
    ):
        assert result.stderr.count(line) == 1

    models = {"lane1": Model(tables[0], **options), "flow": Model(tables[1], **options)}
    indel = params == "indel=true"
    before, after = all_reads(reads / "reads.bam"), all_reads(tmp_path / "a.bam")
    assert len(before) == len(after) == 3000
    compared = 0
    for old, new in zip(before, after):
        assert old.query_name == new.query_name
        group = old.get_tag("RG")
        if group not in models or old.query_qualities is None or not old.query_length:
            assert new.query_qualities == old.query_qualities
            continue
        kinds = [("M", list(new.query_qualities))]
        if indel:
            kinds += [(e, [ord(c) - 33 for c in new.get_tag(t)]) for e, t in (("I", "BI"), ("D", "BD"))]
        else:
            assert [t for t in old.get_tags()] == new.get_tags()
        for event, got in kinds:
            assert got == expected(models[group], old, PLATFORMS[group], event), (old.to_string(), event)
            compared += len(got)
    assert compared > (240000 if indel else 80000)


def test_same_bytes_at_any_thread_count(run, reads, tmp_path):
    contents = set()
    for threads in (1, 3):
        args = ["-i", reads / "reads.bam", "-q", reads / "lane1.table", "--shard_param", "2000/500"]
        assert run("-t", threads, *args, "--algo", "ReadWriter", "a.bam").returncode == 0
        contents.add("\n".join(r.to_string() for r in all_reads(tmp_path / "a.bam")))
    assert len(contents) == 1


FAILURES = [
    ("-q no.table", "Error: failed to read table file no.table: No such file or directory\n"
     "Error: QualCal failed to load table file no.table\n"),
    ("-q cut.table", "Error: table file terminates prematurely: cut.table\n"
     "Error: QualCal failed to load table file cut.table\n"),
    ("--read_filter QualCalFilter", 'Missing table param\nFailed to parse qcal string "QualCalFilter"\n'),
    ("--read_filter QualCalFilter,table=t,indel=1",
     'Unknown indel val 1\nFailed to parse qcal string "QualCalFilter,table=t,indel=1"\n'),
    ("--read_filter QualCalFilter,table=no.table", "Error: QualCal failed to load table file no.table\n"),
    ("--read_filter Other,table=t", "Unknown read filter name Other\n"),
]  # fmt: skip


@pytest.mark.parametrize("args, stderr", FAILURES, ids=[c[0] for c in FAILURES])
def test_failures(run, reads, tmp_path, args, stderr):
    (tmp_path / "cut.table").write_text((reads / "lane1.table").read_text()[:9000])
    result = run("-i", reads / "reads.bam", *args.split(), "--algo", "ReadWriter", "a.bam")
    assert result.returncode == 1
    assert result.stderr.endswith(stderr)
    assert not (tmp_path / "a.bam").exists()


def test_a_table_in_use_is_not_overwritten(run, reads):
    table = reads / "lane1.table"
    result = run("-i", reads / "reads.bam", "-q", table, "--algo", "ReadWriter", table)
    assert result.returncode == 1
    assert f"would overwrite input file {table}" in result.stderr


def test_a_read_beyond_the_cycle_limit_ends_the_run(run, reads, tmp_path):
    text = (reads / "lane1.table").read_text().replace("maximum_cycle_value\t300", "maximum_cycle_value\t200")
    (tmp_path / "short.table").write_text(text)
    result = run("-i", reads / "reads.bam", "-q", "short.table", "--algo", "ReadWriter", "a.bam")
    assert result.returncode != 0
    assert "Error: cycle 300 exceeding the maximum allowed: 200\n" in result.stderr
