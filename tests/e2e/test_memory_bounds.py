"""Runs in little address space over small files whose reads ask for much."""

import resource
import struct
import zlib

import pysam
import pytest

LIMIT = 400 << 20  # bytes of address space


@pytest.fixture
def run_small(run, sanitized):
    if sanitized:
        pytest.skip("a sanitizer wants far more address space")
    # One thread, so that the limit is for what is held, whatever the machine.
    return lambda *args: run("-t", 1, *args, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (LIMIT, LIMIT)))


def write_sparse_reference(path, length):
    """One contig without a letter in the file: its bases are zeros that take no disk."""
    lines = -(-length // 100)
    with open(path, "wb") as f:
        f.write(b">chr1\n")
        f.truncate(6 + lines * 101)
    with open(f"{path}.fai", "w") as f:
        f.write(f"chr1\t{length}\t6\t100\t101\n")


def bgzf_block(data):
    deflate = zlib.compressobj(6, zlib.DEFLATED, -15)
    packed = deflate.compress(data) + deflate.flush()
    head = b"\x1f\x8b\x08\x04\0\0\0\0\0\xff\x06\0BC\x02\0" + struct.pack("<H", len(packed) + 25)
    return head + packed + struct.pack("<II", zlib.crc32(data), len(data))


def header_of(length):
    return {"HD": {"VN": "1.6", "SO": "coordinate"}, "SQ": [{"SN": "chr1", "LN": length}], "RG": [{"ID": "g", "SM": "s"}]}


def write_read(path, length, cigar, bases):
    with pysam.AlignmentFile(str(path), "wb", header=header_of(length)) as out:
        read = pysam.AlignedSegment(out.header)
        read.query_name, read.flag, read.reference_id, read.reference_start = "r", 0, 0, 100
        read.query_sequence, read.mapping_quality, read.cigarstring = "A" * bases, 60, cigar
        read.set_tag("RG", "g")
        out.write(read)
    pysam.index(str(path))


def fields(path):
    titles, row = (line.split("\t") for line in open(path).read().splitlines())
    return dict(zip(titles, row))


def test_a_read_of_many_bad_cycles(run_small, tmp_path):
    bases = 6_000_000
    write_sparse_reference(tmp_path / "r.fa", bases + 1000)
    write_read(tmp_path / "a.bam", bases + 1000, f"{bases}M", bases)
    result = run_small("-r", "r.fa", "-i", "a.bam", "--algo", "AlignmentStat", "a.txt")
    assert result.returncode == 0, result.stderr
    assert fields(tmp_path / "a.txt")["BAD_CYCLES"] == str(bases)


def test_a_read_that_reaches_over_its_contig(run_small, tmp_path):
    length = 450_000_000
    write_sparse_reference(tmp_path / "r.fa", length)
    write_read(tmp_path / "a.bam", length, f"50M{260_000_000}N50M{180_000_000}N20M", 120)
    result = run_small("-r", "r.fa", "-i", "a.bam", "--algo", "AlignmentStat", "a.txt")
    assert result.returncode == 0, result.stderr
    row = fields(tmp_path / "a.txt")
    assert (row["PF_ALIGNED_BASES"], row["PF_MISMATCH_RATE"]) == ("120", "1.000000")


@pytest.mark.parametrize("algo", ["AlignmentStat", "ReadWriter"])
def test_long_reads_without_coordinates(run_small, tmp_path, algo):
    """Of 40 kb each; a block of the file holds just one."""
    count, bases = 8000, 40000
    with pysam.AlignmentFile(str(tmp_path / "a.bam"), "wb", header=header_of(1000)):
        pass
    content = (tmp_path / "a.bam").read_bytes()
    eof = content[-28:]
    record = struct.pack("<iiBBHHHiiii", -1, -1, 2, 0, 4680, 0, 4, bases, -1, -1, 0)
    record += b"r\0" + b"\x11" * (bases // 2) + b"\x1e" * bases + b"RGZg\0"
    block = bgzf_block(struct.pack("<i", len(record)) + record)
    (tmp_path / "a.bam").write_bytes(content[:-28] + block * count + eof)
    pysam.index(str(tmp_path / "a.bam"))
    write_sparse_reference(tmp_path / "r.fa", 1000)
    output = "a.txt" if algo == "AlignmentStat" else "copy.bam"
    result = run_small("-r", "r.fa", "-i", "a.bam", "--algo", algo, output)
    assert result.returncode == 0, result.stderr
    if algo == "AlignmentStat":
        assert fields(tmp_path / output)["TOTAL_READS"] == str(count)
    else:
        with pysam.AlignmentFile(str(tmp_path / output)) as copy:
            assert sum(read.query_length == bases for read in copy.fetch(until_eof=True)) == count
