"""ReadWriter: the copy holds every read once, as it was, with an index; what fails leaves nothing whole."""

import fcntl
import os
import resource
import shutil
import signal
import subprocess
import time

import pysam
import pytest

END_MARKER = bytes.fromhex("1f8b08040000000000ff0600424302001b0003000000000000000000")


@pytest.fixture(scope="module")
def source(simulate, tmp_path_factory):
    """Pairs of all kinds on three contigs, with unplaced reads: (reads, reference)."""
    folder = tmp_path_factory.mktemp("source")
    command = [simulate, "--out-dir", folder, "--contigs", "chr1:60000,chr2:20000,chr3:9000"]
    command += ["--depth", "10", "--read-length", "100", "--unmapped-rate", "0.1", "--seed", "3"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return folder / "sample1.bam", folder / "reference.fa"


def reads_of(path, *region):
    """SAM lines, tags in order of name."""
    with pysam.AlignmentFile(str(path)) as f:
        lines = [read.to_string().split("\t") for read in f.fetch(*region, until_eof=not region)]
    return ["\t".join(fields[:11] + sorted(fields[11:])) for fields in lines]


def records_of(path):
    """The file's bytes behind the blocks of the header, compressed as they are."""
    with pysam.AlignmentFile(str(path)) as f:
        begin = f.tell() >> 16
    return path.read_bytes()[begin:]


def is_whole(path):
    return path.exists() and path.read_bytes().endswith(END_MARKER)


def check_ok(result):
    assert result.returncode == 0, result.stderr


@pytest.mark.parametrize("shard", [None, "1000000/1000", "7000/500", "999/1000", "100/33"])
def test_copy_is_the_source_for_any_threads_and_shards(run, source, tmp_path, shard):
    reads, reference = source
    copies = []
    for threads in (1, 2, 8):
        out = tmp_path / f"copy{threads}.bam"
        options = ["--shard_param", shard] if shard else []
        check_ok(run("-t", threads, "-r", reference, "-i", reads, *options, "--algo", "ReadWriter", out))
        assert reads_of(out) == reads_of(reads)
        copies.append(records_of(out))
    assert copies[0] == copies[1] == copies[2]
    assert sorted(os.listdir(tmp_path)) == sorted(f"copy{t}.bam{s}" for t in (1, 2, 8) for s in ("", ".bai"))


def test_index_answers_like_that_of_samtools(run, source, tmp_path):
    reads, _ = source
    out, other = tmp_path / "copy.bam", tmp_path / "other.bam"
    check_ok(run("-t", 2, "-i", reads, "--shard_param", "5000/1000", "--algo", "ReadWriter", out))
    shutil.copy(out, other)
    pysam.index(str(other))
    assert pysam.idxstats(str(out)) == pysam.idxstats(str(other)) == pysam.idxstats(str(reads))
    for region in [("chr1", 0, 1), ("chr1", 4990, 5010), ("chr1", 16380, 16390), ("chr1", 30000, 50000),
                   ("chr1", 59990, 60000), ("chr2", 0, 20000), ("chr3", 100, 200)]:  # fmt: skip
        assert reads_of(out, *region) == reads_of(other, *region) == reads_of(reads, *region)


@pytest.mark.parametrize("option, kept", [("--skip_no_coor", lambda r: r.reference_id >= 0),
                                          ("--shard=NO_COOR", lambda r: r.reference_id < 0)])  # fmt: skip
def test_reads_without_coordinates(run, source, tmp_path, option, kept):
    reads, _ = source
    out = tmp_path / "out.bam"
    check_ok(run("-t", 2, "-i", reads, option, "--algo", "ReadWriter", out))
    with pysam.AlignmentFile(str(reads)) as f:
        expected = [read.query_name for read in f.fetch(until_eof=True) if kept(read)]
    assert len(expected) > 100
    with pysam.AlignmentFile(str(out)) as f:
        assert [read.query_name for read in f.fetch(until_eof=True)] == expected


@pytest.mark.parametrize("sharded", [False, True])
def test_intervals_keep_each_overlapping_read_once(run, source, tmp_path, sharded):
    reads, _ = source
    out = tmp_path / "out.bam"
    regions = [("chr1", 1000, 2000), ("chr1", 2010, 2011), ("chr1", 2050, 9000), ("chr2", 500, 600)]
    text = ",".join(f"{name}:{start + 1}-{end}" for name, start, end in regions)
    options = ["--shard", text] if sharded else ["--interval", text]
    check_ok(run("-t", 2, "-i", reads, *options, "--shard_param", "300/100", "--algo", "ReadWriter", out))

    def belongs(read):
        # A read belongs to the run when it overlaps a target; with --shard targets are pieces of whole contigs, of
        # which each takes the reads that start in it.
        if sharded:
            return any(read.reference_name == n and s <= read.reference_start < e for n, s, e in regions)
        end = read.reference_end or read.reference_start + 1
        return any(read.reference_name == n and read.reference_start < e and end > s for n, s, e in regions)

    with pysam.AlignmentFile(str(reads)) as f:
        expected = [(r.query_name, r.flag) for r in f.fetch(until_eof=True) if r.reference_id >= 0 and belongs(r)]
    with pysam.AlignmentFile(str(out)) as f:
        assert [(r.query_name, r.flag) for r in f.fetch(until_eof=True)] == expected


def test_program_lines_are_chained(run, driver, source, tmp_path):
    path = source[0]
    for i in range(3):
        out = tmp_path / f"copy{i}.bam"
        check_ok(run("-i", path, "--algo", "ReadWriter", "--bam_compression", i, out))
        path = out
    with pysam.AlignmentFile(str(path)) as f:
        header = f.header.to_dict()
    with pysam.AlignmentFile(str(source[0])) as f:
        before = f.header.to_dict()
    assert header["HD"] == {"VN": "1.5", "SO": "coordinate"}
    assert [(s["SN"], s["LN"]) for s in header["SQ"]] == [(s["SN"], s["LN"]) for s in before["SQ"]]
    assert header["RG"] == before["RG"]
    programs = header["PG"][len(before.get("PG", [])) :]
    identifiers = [program["ID"] for program in header["PG"]]
    assert len(set(identifiers)) == len(identifiers)
    assert [program.get("PP") for program in header["PG"][1:]] == identifiers[:-1]
    assert programs[0]["ID"] == "torvesin-ReadWriter"
    assert all(program["ID"].startswith("torvesin-ReadWriter") for program in programs)
    assert programs[2]["VN"] == "torvesin-genomics-201611.03"
    assert programs[2]["CL"] == (
        f"{driver} -i {tmp_path}/copy1.bam --algo ReadWriter --bam_compression 2 {tmp_path}/copy2.bam"
    )


def test_compression_levels(run, source, tmp_path):
    sizes = {}
    for level in ("0", "1", "6", "9", None):
        out = tmp_path / f"l{level}.bam"
        options = ["--bam_compression", level] if level else []
        check_ok(run("-t", 2, "-i", source[0], "--algo", "ReadWriter", *options, out))
        assert reads_of(out) == reads_of(source[0])
        sizes[level] = out.stat().st_size
    assert sizes["0"] > sizes["1"] > sizes["6"] >= sizes["9"]
    assert abs(sizes[None] - sizes["6"]) < 100  # but for the command line


@pytest.mark.parametrize(
    "arguments, status, text",
    [
        ("", 1, "ReadWriter: missing output file"),
        ("a.bam b.bam", 1, "ReadWriter: extra argument after output"),
        ("--bogus a.bam", 1, "ReadWriter: unknown option"),
        ("-", 255, 'ReadWriter: Don\'t support using "-" as output file name'),
        ("--output_format SAM a.bam", 255, "ReadWriter: Invalid output_format SAM"),
        ("a.cram", 255, "ReadWriter: CRAM output is not supported: a.cram"),
        ("folder", 255, "Failed to write to file folder, Is a directory"),
        ("no/such.bam", 255, "Failed to write to file no/such.bam, No such file or directory"),
        ("--cram_options output_index_file=no/x a.bam", 255, "cannot open file no/x, No such file or directory"),
        ("full", 255, "Failed to write to file full, No space left on device"),
    ],
)
def test_refusals(run, sample, tmp_path, arguments, status, text):
    (tmp_path / "folder").mkdir()
    (tmp_path / "full").symlink_to("/dev/full")
    result = run("-i", sample.bam, "--algo", "ReadWriter", *arguments.split())
    assert (result.returncode, result.stderr.splitlines()[-1]) == (status, text)
    assert [p for p in os.listdir(tmp_path) if p not in ("folder", "full")] == (["a.bam"] if "no/x" in text else [])
    assert not is_whole(tmp_path / "a.bam")


@pytest.mark.parametrize("fraction", [0.02, 0.3, 0.9])
def test_full_disk(run, source, tmp_path, fraction):
    whole, out = tmp_path / "whole.bam", tmp_path / "out.bam"
    for old in (out, tmp_path / "out.bam.bai"):
        old.write_bytes(b"of an earlier run" + END_MARKER)
    check_ok(run("-i", source[0], "--algo", "ReadWriter", whole))
    limit = int(whole.stat().st_size * fraction)
    result = run("-t", 2, "-i", source[0], "--shard_param", "1000/1000", "--algo", "ReadWriter", out,
                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))  # fmt: skip
    assert result.returncode in (1, 255)
    assert f"Failed to write to file {out}, File too large" in result.stderr.splitlines() or (
        f"Failed to write to {out}_" in result.stderr and "File too large" in result.stderr
    )
    assert not is_whole(out)
    assert not (tmp_path / "out.bam.bai").exists()


def test_rerun_over_the_rubble_of_a_killed_run(run, driver, source, tmp_path):
    out = tmp_path / "out.bam"
    command = [driver, "-t", "2", "-i", source[0], "--shard_param", "50/50", "--algo", "ReadWriter", out]
    for attempt in range(50):
        for path in tmp_path.iterdir():
            path.unlink()
        with subprocess.Popen(command, stderr=subprocess.DEVNULL) as process:
            deadline = time.monotonic() + 60
            while process.poll() is None and time.monotonic() < deadline:
                if sum(name.startswith("out.bam_") for name in os.listdir(tmp_path)) > attempt % 3:
                    process.send_signal(signal.SIGKILL)
                    break
        if process.returncode == -signal.SIGKILL and len(os.listdir(tmp_path)) > 1:
            break
    else:
        pytest.fail("no run was killed halfway")
    assert not is_whole(out)
    assert not (tmp_path / "out.bam.bai").exists()
    for name in ("out.bam_0", "out.bam_1", "out.bam_-1"):
        with open(tmp_path / name, "ab") as f:
            f.write(b"rubble" * 1000)
    precious = tmp_path / "precious"
    precious.write_text("keep me")
    for name in ("out.bam_2", "out.bam.bai.tmp"):  # the link goes, not what it leads to
        (tmp_path / name).unlink(missing_ok=True)
        (tmp_path / name).symlink_to(precious)
    check_ok(run("-t", 2, "-i", source[0], "--shard_param", "9000/1000", "--algo", "ReadWriter", out))
    assert reads_of(out) == reads_of(source[0])
    assert pysam.idxstats(str(out)) == pysam.idxstats(str(source[0]))
    assert precious.read_text() == "keep me"


def test_output_in_use_by_another_run(run, source, tmp_path):
    out = tmp_path / "out.bam"
    with open(out, "wb") as other:
        other.write(b"half")
        other.flush()
        fcntl.flock(other, fcntl.LOCK_EX)
        result = run("-i", source[0], "--algo", "ReadWriter", out)
        assert (result.returncode, result.stderr.splitlines()[-1]) == (
            255, f"Failed to write to file {out}, another writer has it open")  # fmt: skip
        assert out.read_bytes() == b"half"
    check_ok(run("-i", source[0], "--algo", "ReadWriter", out))
    assert is_whole(out)


@pytest.mark.parametrize("kept", [1, 2000])
def test_index_of_a_shorter_version(run, sample, tmp_path, kept):
    short, reads = tmp_path / "short.bam", tmp_path / "reads.bam"
    with pysam.AlignmentFile(str(sample.bam)) as f, pysam.AlignmentFile(str(short), "wb", template=f) as out:
        for _, read in zip(range(kept), f):
            out.write(read)
    pysam.index(str(short))
    shutil.copy(sample.bam, reads)
    shutil.move(f"{short}.bai", f"{reads}.bai")
    result = run("-i", reads, "--algo", "ReadWriter", "--skip_no_coor", "copy.bam")
    assert result.returncode != 0 and not (tmp_path / "copy.bam").exists()
    last = result.stderr.splitlines()[-1]
    assert last.startswith(f"Index {reads}.bai does not cover BAM file {reads}: ") and "build it anew" in last
