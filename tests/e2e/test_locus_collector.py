"""LocusCollector: score lines against a plain Python collector; the same bytes for any threads; faults."""

import collections
import os
import resource
import shutil
import subprocess

import pysam
import pytest



@pytest.fixture(scope="module")
def source(simulate, tmp_path_factory):
    folder = tmp_path_factory.mktemp("source")
    command = [simulate, "--out-dir", folder, "--contigs", "chr1:60000,chr2:30000,chr3:9000"]
    command += ["--depth", "20", "--chimera-rate", "0.2", "--duplicate-rate", "0.3", "--soft-clip-rate", "0.2"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return folder / "sample1.bam"


def five_prime(read):
    operations = read.cigartuples[::-1] if read.is_reverse else read.cigartuples
    clipped = 0
    for operation, length in operations:
        if operation not in (4, 5):
            break
        clipped += length if operation == 4 else 0
    return read.reference_end + clipped - 1 if read.is_reverse else read.reference_start - clipped


def is_far(read, fixmate=False):
    if read.flag & 0x900 or not read.is_paired or read.reference_id < 0 or read.next_reference_id < 0:
        return False
    if not fixmate and read.flag & 0xC:
        return False
    same = read.reference_id == read.next_reference_id
    return not same or abs(read.reference_start - read.next_reference_start) >= 600


def collect(bam, fixmate=False):
    """Lines without ordinal and extended flags: (mate contig, position, five_prime, end, score, flags, name)."""
    lines = []
    with pysam.AlignmentFile(str(bam)) as f:
        for read in f.fetch(until_eof=True):
            if is_far(read, fixmate):
                end = read.reference_end if read.cigartuples else read.reference_start + 1
                five = five_prime(read) if read.cigartuples else (end - 1 if read.is_reverse else read.reference_start)
                score = sum(q for q in read.query_qualities if q >= 15)
                lines.append((read.next_reference_name, read.next_reference_start + 1, five, end, score, read.flag,
                              read.query_name))  # fmt: skip
    return sorted(lines)


def body(path):
    text = pysam.BGZFile(str(path)).read().decode() if str(path).endswith(".gz") else path.read_text()
    return [line for line in text.splitlines() if not line.startswith("#")]


def parsed(path):
    lines = []
    for line in body(path):
        contig, position, *stars, info = line.split("\t")
        assert stars == ["*"] * 5
        five, end, score, flags, ordinal, name = info.split(";")
        assert int(ordinal) > 0
        lines.append((contig, int(position), int(five), int(end), int(score), int(flags) & 0xFFFF, name))
    return lines


def collect_with(run, out, bam, *options, threads=2, driver=(), **limits):
    return run("-t", threads, "-i", bam, *driver, "--algo", "LocusCollector", *options, out, **limits)


def check_ok(result):
    assert result.returncode == 0, result.stderr


@pytest.mark.parametrize("fixmate", [[], ["--fixmate"], ["--fun", "fixmate"]])
def test_all_far_reads_have_a_line(run, source, tmp_path, fixmate):
    out = tmp_path / "score.txt.gz"
    check_ok(collect_with(run, out, source, "--score_info_reduce", "0", *fixmate))
    lines = parsed(out)
    assert len(lines) > 1000
    assert sorted(lines) == collect(source, bool(fixmate))
    with pysam.AlignmentFile(str(source)) as f:
        order = {name: i for i, name in enumerate(f.references)}
        lengths = dict(zip(f.references, f.lengths))
    texts = body(out)
    assert texts == sorted(texts, key=lambda t: (order[t.split("\t")[0]], int(t.split("\t")[1]), t.encode()))
    header = pysam.BGZFile(str(out)).read().decode()
    assert all(f"##contig=<ID={name},length={length}>\n" in header for name, length in lengths.items())
    with pysam.TabixFile(str(out)) as tabix:
        for region in [("chr1", 0, 20000), ("chr1", 30000, 30500), ("chr2", 0, 9000)]:
            wanted = [t for t in texts if t.split("\t")[0] == region[0]
                      and region[1] < int(t.split("\t")[1]) <= region[2]]  # fmt: skip
            assert list(tabix.fetch(*region)) == wanted
    assert sorted(os.listdir(tmp_path)) == ["score.txt.gz", "score.txt.gz.tbi"]


def test_reduction_keeps_all_that_can_be_duplicates(run, source, tmp_path):
    out = tmp_path / "score.txt"
    check_ok(collect_with(run, out, source))
    kept, everything = set(parsed(out)), collect(source)
    assert kept < set(everything) and (tmp_path / "score.txt.idx").exists()
    pairs = collections.defaultdict(dict)
    for line in everything:
        pairs[line[6]][line[5] & 0x40] = line
    groups = collections.defaultdict(list)
    for ends in pairs.values():
        if len(ends) == 2:  # the contig of an end is that of its mate's line
            a, b = ends[0], ends[64]
            groups[tuple(sorted([(b[0], a[2], a[5] & 16), (a[0], b[2], b[5] & 16)]))].append((a, b))
    far = [line for group in groups.values() if len(group) > 1 for pair in group for line in pair]
    assert len(far) > 100
    assert kept >= set(far)


@pytest.mark.parametrize("options", [[], ["--score_info_reduce", "0", "--block_size", "7"]])
def test_same_bytes_for_any_threads(run, source, tmp_path, options):
    files = []
    for threads in (1, 2, 8):
        for out in (tmp_path / "score.gz", tmp_path / "score.txt"):
            check_ok(collect_with(run, out, source, *options, threads=threads, driver=["--shard_param", "5000/1000"]))
        # An .idx tells when its file was written.
        files.append([(tmp_path / name).read_bytes() for name in ("score.gz", "score.gz.tbi", "score.txt")])
        assert len(os.listdir(tmp_path)) == 4
    assert files[0] == files[1] == files[2]


def test_shards_give_the_lines_of_the_whole(run, source, tmp_path):
    def without_ordinals(path):
        return sorted(tuple(line) for line in parsed(path))

    def make(name, *driver):
        check_ok(collect_with(run, tmp_path / name, source, driver=driver))
        return without_ordinals(tmp_path / name)

    whole = make("whole.gz")
    assert make("small.gz", "--shard_param", "5000/1000") == whole
    first = make("1.gz", "--shard", "chr1:1-30000")
    second = make("2.gz", "--shard", "chr1:30001-60000", "--shard", "chr2", "--shard", "chr3")
    assert sorted(first + second) == whole


def test_many_contigs_and_block_files(run, tmp_path):
    count, length, bam, out = 700, 500000000, tmp_path / "in.bam", tmp_path / "score.gz"
    names = [f"{i}:1-9;,|=" for i in range(count)]
    header = {"HD": {"SO": "coordinate"}, "SQ": [{"SN": name, "LN": length} for name in names],
              "RG": [{"ID": "a", "SM": "s"}]}  # fmt: skip
    wanted = []
    with pysam.AlignmentFile(str(bam), "wb", header=header) as f:
        for i in range(count):
            for k, mate_start in enumerate([-1, 5, length - 1]):
                read = pysam.AlignedSegment(f.header)
                read.query_name, read.flag = f"n;{k}" if k else "END=1", 99
                read.reference_id, read.reference_start, read.cigarstring = i, 100 + k, "10M"
                read.query_sequence, read.query_qualities = "A" * 10, [20] * 10
                read.next_reference_id, read.next_reference_start = (i * 9 + 1) % count, mate_start
                read.set_tag("RG", "a")
                f.write(read)
                wanted.append(((i * 9 + 1) % count, mate_start + 1))
    pysam.index(str(bam))
    check_ok(run("-t", 2, "-i", bam, "--shard_param", f"{length}/{length}", "--algo", "LocusCollector",
                 "--score_info_reduce", "0", "--block_size", 1, out))  # fmt: skip
    lines = parsed(out)
    assert [line[:2] for line in lines] == [(names[i], p) for i, p in sorted(wanted)]
    assert {line[6] for line in lines} == {"END 1", "n 1", "n 2"}


@pytest.mark.parametrize("args, told", [
    ("", "LocusCollector: missing output file"),
    ("a b", "LocusCollector: extra argument after output"),
    ("--fun none a", "LocusCollector: unknown function none"),
    ("no/folder/a", "LocusCollector: cannot open file no/folder/a: No such file or directory"),
])  # fmt: skip
def test_usage(run, source, args, told):
    result = run("-i", source, "--algo", "LocusCollector", *args.split())
    assert result.returncode not in (0, 139) and told in result.stderr
    result = run("-i", source, "--interval", "chr1", "--algo", "LocusCollector", "a")
    assert result.returncode == 1 and "LocusCollector: interval not supported." in result.stderr


def test_temporary_names_are_no_inputs(run, source, tmp_path):
    for ending in ("_3", "_tmp_0", "_tmp_0_1", "_tmp_0_1.tmp"):
        reads = tmp_path / f"score{ending}"
        shutil.copy(source, reads)
        shutil.copy(f"{source}.bai", f"{reads}.bai")
        result = collect_with(run, tmp_path / "score", reads)
        assert result.returncode == 1 and "would overwrite input file" in result.stderr
        assert reads.stat().st_size == source.stat().st_size


def test_more_contigs_than_open_files(run, simulate, tmp_path):
    command = [simulate, "--out-dir", tmp_path, "--contig-count", "120", "--length", "240000", "--chimera-rate", "0.3"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    check_ok(collect_with(run, tmp_path / "score.gz", "sample1.bam", "--score_info_reduce", "0",
                          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (40, 40))))  # fmt: skip
    assert sorted(parsed(tmp_path / "score.gz")) == collect(tmp_path / "sample1.bam")


def test_block_file_that_cannot_be_written_leaves_nothing_whole(run, source, tmp_path):
    (tmp_path / "score.gz.tbi").write_text("old")
    (tmp_path / "score.gz_tmp_0").mkdir()
    result = collect_with(run, tmp_path / "score.gz", source)
    assert result.returncode == 1 and "score.gz_tmp_0" in result.stderr
    assert os.listdir(tmp_path) == ["score.gz_tmp_0"]
    shutil.rmtree(tmp_path / "score.gz_tmp_0")
    os.symlink("/dev/full", tmp_path / "score.gz_tmp_0_0")
    result = collect_with(run, tmp_path / "score.gz", source)
    assert result.returncode != 0 and "VcfMerger: failed to write to file" in result.stderr
    assert not (tmp_path / "score.gz.tbi").exists()
