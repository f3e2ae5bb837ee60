"""Dedup: the reads it marks are those that a plain judgement of the whole file finds, whatever the shards and threads."""

import collections
import gzip
import math
import random
import subprocess

import pysam
import pytest


def simulated(simulate, folder, *options):
    subprocess.run([simulate, "--out-dir", folder, *options], check=True, stdout=subprocess.DEVNULL)
    return folder / "sample1.bam"


@pytest.fixture(scope="module")
def source(simulate, tmp_path_factory):
    """Pairs near and far with clips and many copies; some reads have lost their mate, some never had one. In half of the
    genome all scores are equal."""
    folder = tmp_path_factory.mktemp("source")
    reads = simulated(simulate, folder, "--contigs", "chr1:60000,chr2:25000", "--depth", "40", "--seed", "5",
                      "--duplicate-rate", "0.3", "--optical", "0.4", "--chimera-rate", "0.08", "--half-mapped-rate", "0.06",
                      "--soft-clip-rate", "0.2", "--libraries", "3", "--read-length", "100")  # fmt: skip
    draw = random.Random(7)
    kinds = collections.defaultdict(draw.random)
    out = folder / "mixed.bam"
    with pysam.AlignmentFile(str(reads)) as f, pysam.AlignmentFile(str(out), "wb", header=f.header) as g:
        for read in f:
            kind = kinds[read.query_name]
            if kind < 0.08 and read.is_mapped and read.flag & 0x900 == 0:  # a single read, the mate is dropped
                if read.is_read2:
                    continue
                read.flag &= 0x414
                read.next_reference_id = read.next_reference_start = -1
                read.template_length = 0
            elif 0.08 < kind < 0.1 and read.is_read2:
                continue
            elif 0.1 < kind < 0.11:
                read.query_qualities = None
            elif read.reference_id == 1 or read.reference_start > 30000:
                read.query_qualities = [30] * read.query_length
            if kind > 0.9 and read.cigartuples:
                read.cigartuples = [(5, 3), *read.cigartuples, (5, 2)]
            g.write(read)
    pysam.index(str(out))
    return out


def ends_of(read, clip):
    cigar = [element for element in read.cigartuples if element[0] != 5]
    if read.is_reverse:
        return read.reference_end - 1 + (cigar[-1][1] if clip and cigar[-1][0] == 4 else 0)
    return read.reference_start - (cigar[0][1] if clip and cigar[0][0] == 4 else 0)


def score_of(read):
    return sum(q for q in read.query_qualities or [] if 15 <= q < 255)


def optical_duplicates(names):
    """Points but one of each cluster, by joining all that are near."""
    clusters = []
    for name, group in names:
        tile, x, y = map(int, name.split(":")[-3:])
        near = [c for c in clusters if any(g == group and t == tile and abs(a - x) <= 100 and abs(b - y) <= 100 for g, t, a, b in c)]
        clusters = [c for c in clusters if c not in near] + [sum(near, []) + [(group, tile, x, y)]]
    return len(names) - len(clusters)


def judge(path, clip=True):
    """All in memory: (key of each record that is a duplicate, counters by library). Records are numbered in file order."""
    with pysam.AlignmentFile(str(path)) as f:
        library = {g["ID"]: g["LB"] for g in f.header.to_dict()["RG"]}
        reads = list(f)
    counts = {name: collections.Counter() for name in library.values()}
    pairs, fragments, names = collections.defaultdict(list), collections.defaultdict(list), {}
    lonely, places = [], set()
    for number, read in enumerate(reads):
        lib = library[read.get_tag("RG")]
        unpaired = read.flag & 9 != 1
        kind = "secondary" if read.flag & 0x900 else "unmapped" if read.flag & 4 else "unpaired" if unpaired else "paired"
        counts[lib][kind] += 1
        if read.flag & 0x904:
            continue
        place = (lib, read.reference_id, ends_of(read, clip), read.is_reverse)
        if unpaired:
            fragments[place].append((score_of(read), -number))
        elif read.query_name in names:
            first, second = sorted([names.pop(read.query_name), (place, number)], key=lambda e: (e[0][1:3], e[1]))
            start = reads[first[1]].reference_start
            score = score_of(reads[first[1]]) + score_of(reads[second[1]])
            pairs[first[0], second[0]].append((score, -start, -first[1], first[1], second[1]))
        else:
            names[read.query_name] = (place, number)
    places.update(place for place, _ in names.values())  # whose mates are gone
    duplicates = set()
    for group_key, group in pairs.items():
        group.sort()
        places.update(group_key)
        duplicates.update(number for pair in group[:-1] for number in pair[3:])
        members = [reads[pair[3]] for pair in group]
        counts[group_key[0][0]]["optical"] += optical_duplicates([(r.query_name, r.get_tag("RG")) for r in members])
    for place, group in fragments.items():
        group.sort()
        duplicates.update(-number for _, number in (group if place in places else group[:-1]))
    for number in duplicates:
        read = reads[number]
        counts[library[read.get_tag("RG")]]["duped_unpaired" if read.flag & 9 != 1 else "duped_paired"] += 1
    return duplicates, counts


def table(path):
    lines = path.read_text().split("\n\n")[0].splitlines()
    return {row.split("\t")[0]: dict(zip(lines[0].split("\t"), row.split("\t"))) for row in lines[1:]}


def marked(path):
    with pysam.AlignmentFile(str(path)) as f:
        return {number for number, read in enumerate(f) if read.is_duplicate}


def records_of(path):
    """The file's bytes behind the header."""
    with pysam.AlignmentFile(str(path)) as f:
        begin = f.tell() >> 16
    return path.read_bytes()[begin:]


def check_ok(result):
    assert result.returncode == 0, result.stderr
    return result


@pytest.fixture
def dedup(run, tmp_path):
    """dedup(reads, *options): collects and marks with shards of a size; gives (result, marked reads, metrics)."""

    def call(reads, *options, threads=2, shard="1000000/1000", collect=(), stem="out"):
        score, out, metrics = (tmp_path / (stem + end) for end in (".score.gz", ".bam", ".metrics"))
        common = ("-t", threads, "-i", reads, "--shard_param", shard)
        check_ok(run(*common, "--algo", "LocusCollector", *collect, score))
        result = check_ok(run(*common, "--algo", "Dedup", "--score_info", score, "--metrics", metrics, *options, out))
        return result, out, metrics

    return call


@pytest.mark.parametrize("clip", [1, 0])
def test_same_as_a_plain_judgement_of_the_whole_file(dedup, source, clip):
    duplicates, counts = judge(source, clip)
    assert len(duplicates) > 4000
    outputs, texts = {}, set()
    for shard in ("1000000/1000", "5000/1000", "999/300"):
        for threads in (1, 2, 8) if shard != "999/300" else (2,):
            _, out, metrics = dedup(source, "--clip", clip, shard=shard, threads=threads)
            assert outputs.setdefault(shard, records_of(out)) == records_of(out)
            texts.add(metrics.read_text())
        assert marked(out) == duplicates
    assert len(texts) == 1
    with pysam.AlignmentFile(str(source)) as a, pysam.AlignmentFile(str(out)) as b:
        for before, after in zip(a, b, strict=True):
            before.flag |= after.flag & 0x400
            assert before == after or before.to_string() == after.to_string()
    for name, row in table(metrics).items():
        wanted = counts[name]
        pairs, lost = wanted["paired"] // 2, wanted["duped_paired"] // 2
        columns = [wanted["unpaired"], pairs, wanted["unmapped"], wanted["duped_unpaired"], lost, wanted["optical"]]
        assert [int(v) for v in list(row.values())[1:7]] == columns
        total = wanted["paired"] + wanted["unpaired"]
        assert float(row["PERCENT_DUPLICATION"]) == pytest.approx((wanted["duped_paired"] + wanted["duped_unpaired"]) / total, abs=1e-6)
        size = int(row["ESTIMATED_LIBRARY_SIZE"])
        assert size * (1 - math.exp(-(pairs - wanted["optical"]) / size)) == pytest.approx(pairs - lost, abs=1)


def test_removal_leaves_the_counters_alone(dedup, source):
    _, out, metrics = dedup(source)
    duplicates, text = marked(out), metrics.read_text()
    _, out, metrics = dedup(source, "--rmdup")
    with pysam.AlignmentFile(str(source)) as f:
        kept = [read.to_string() for number, read in enumerate(f) if number not in duplicates]
    with pysam.AlignmentFile(str(out)) as f:
        assert sorted(read.query_name for read in f) == sorted(line.split("\t")[0] for line in kept)
    assert metrics.read_text() == text


def test_partial_runs_merge_to_the_whole(dedup, run, source, tmp_path):
    result, whole, metrics = dedup(source, "--optical_dup_histogram")
    assert "optical duplicates histogram:\n1.000000 " in result.stderr
    score = tmp_path / "out.score.gz"
    parts = []
    for i, shard in enumerate(["chr1:1-20000", "chr1:20001-60000,chr2:1-7000", "chr2:7001-25000,NO_COOR"]):
        shards = [word for piece in shard.split(",") for word in ("--shard", piece)]
        parts.append(tmp_path / f"part{i}")
        # Score files of other parts, and one twice: lines that are known add nothing.
        again = ["--score_info", score] if i else []
        check_ok(run("-t", 2, "-i", source, *shards, "--algo", "Dedup", "--score_info", score, *again, "--metrics", parts[-1],
                     tmp_path / f"part{i}.bam"))  # fmt: skip
        assert parts[-1].read_text().startswith("#LIBRARY ")
    merged = tmp_path / "merged"
    check_ok(run("--algo", "Dedup", "--merge", merged, *parts))
    assert merged.read_bytes() == metrics.read_bytes()
    names = [name for part in range(3) for name in pysam.view(str(tmp_path / f"part{part}.bam"), "-f", "1024").splitlines()]
    assert sorted(names) == sorted(pysam.view(str(whole), "-f", "1024").splitlines())

    for damage in (lambda text: text[:-1], lambda text: "", lambda text: text + "900 duped 1\n", lambda text: text + "0 duped x\n"):
        parts[1].write_text(damage(metrics_text := parts[1].read_text()))
        result = run("--algo", "Dedup", "--merge", merged, *parts)
        assert result.returncode == 1 and f"Dedup: cannot read file {parts[1]}" in result.stderr
        parts[1].write_text(metrics_text)
    result = run("--algo", "Dedup", "--merge", parts[0], *parts)
    assert result.returncode == 1 and "would overwrite input file" in result.stderr


def test_mates_are_repaired(dedup, source, tmp_path):
    broken = tmp_path / "broken.bam"
    draw = random.Random(1)
    wrong = 0
    with pysam.AlignmentFile(str(source)) as f, pysam.AlignmentFile(str(broken), "wb", header=f.header) as g:
        for read in f:
            if read.is_paired and not read.flag & 0x900 and draw.random() < 0.3:
                read.mate_is_reverse = not read.mate_is_reverse
                read.template_length += 3
                wrong += read.reference_id >= 0
            g.write(read)
    pysam.index(str(broken))

    def repaired(path):
        """Mate flags and sizes of pairs that are whole."""
        with pysam.AlignmentFile(str(path)) as f:
            reads = [r for r in f if r.is_paired and not r.flag & 0x900 and r.reference_id >= 0]
        both = collections.Counter(r.query_name for r in reads)
        return [(r.query_name, r.flag & ~0x400, r.template_length) for r in reads if both[r.query_name] == 2]

    for function, name in ((["--fun", "fixmate"], "fixmate"), (["--fixmate"], "dedup")):
        result, out, _ = dedup(broken, *function, "--fixisize", collect=["--fixmate"], shard="5000/1000")
        assert repaired(out) == repaired(source)
        errors = sum(int(line.split()[1]) for line in result.stderr.splitlines() if line.startswith("R_errors"))
        assert 0.9 * wrong < errors <= wrong
        _, sound, _ = dedup(source, *function, collect=["--fixmate"], stem="sound")
        assert marked(out) == marked(sound) and bool(marked(out)) == (name == "dedup")


@pytest.mark.parametrize("arguments, text", [
    (["o.bam"], "Dedup: missing score_info file"),
    (["--score_info", "S"], "Dedup: missing output file"),
    (["--score_info", "S", "o.bam", "p.bam"], "Dedup: extra argument after output"),
    (["--score_info", "S", "--fun", "mark", "o.bam"], "Dedup: unknown function mark"),
    (["--score_info", "none.gz", "o.bam"], "Dedup: Cannot open score info file none.gz: No such file or directory"),
    (["--score_info", "S", "--merge", "o.bam", "p"], "Dedup: --merge must not have input reference or bam files"),
    (["--score_info", "S", "--metrics", "no/such", "o.bam"], "Failed to open file no/such for write, No such file or directory"),
    (["--score_info", "S", "--metrics", "/dev/full", "o.bam"], "Failed to write to file /dev/full, No space left on device"),
    (["--score_info", "S", "--metrics", "S", "o.bam"], "would overwrite input file"),
])  # fmt: skip
def test_messages(run, source, tmp_path, arguments, text):
    score = tmp_path / "score.gz"
    check_ok(run("-i", source, "--algo", "LocusCollector", score))
    result = run("-i", source, "--algo", "Dedup", *[score if a == "S" else a for a in arguments])
    assert result.returncode != 0 and text in result.stderr
    assert run("--algo", "Dedup", "--merge", "o").stderr.rstrip().endswith("Dedup: no partial files for merge")


@pytest.mark.parametrize("damage, text", [
    (lambda line: line.rsplit(";", 1)[0], "Dedup: score_info format changed. Please rerun algo LocusCollector."),
    (lambda line: line.split(";")[0], "Dedup: score info fie is in incorrect format or corrupted"),
    (lambda line: line.replace("chr1", "chrX", 1), "is of reads with other contigs"),
])  # fmt: skip
def test_score_files_of_other_forms(run, source, tmp_path, damage, text):
    score, plain = tmp_path / "score.gz", tmp_path / "bad"
    check_ok(run("-i", source, "--algo", "LocusCollector", score))
    lines = gzip.open(score, "rt").read().splitlines()
    of_contig = "contigs" in text
    with open(plain, "w") as f:
        f.writelines((damage(line) if of_contig or line[0] != "#" else line) + "\n" for line in lines)
    bad = pysam.tabix_index(str(plain), preset="vcf", force=True)
    result = run("-i", source, "--algo", "Dedup", "--score_info", bad, "o.bam")
    assert result.returncode != 0 and text in result.stderr and "bad.gz" in result.stderr
