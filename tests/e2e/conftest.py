"""What all end-to-end tests share: the built programs, a way to run them, and a small set of sorted reads.

DRIVER and SIMULATE in the environment name the programs; without them those of build/release are taken.
"""

import collections
import os
import pathlib
import random
import subprocess

import pysam
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def program(variable, name):
    path = os.environ.get(variable) or ROOT / "build" / "release" / name
    path = pathlib.Path(path).resolve()
    if not os.access(path, os.X_OK):
        pytest.exit(f"{path} is not there; build it or set {variable}", returncode=2)
    return str(path)


def pytest_collection_modifyitems(items):
    """The thread sanitizer is many times slower: it gets, of the tests on variant files, those that share most."""
    if b"__tsan_init" not in pathlib.Path(program("DRIVER", "driver")).read_bytes():
        return
    skip = pytest.mark.skip(reason="too slow under the thread sanitizer")
    for item in items:
        if "test_vcf_reading" in item.nodeid or ("test_vcf_writing" in item.nodeid and "hundred_contigs" not in item.nodeid):
            item.add_marker(skip)


@pytest.fixture(scope="session")
def driver():
    """Path of the driver."""
    return program("DRIVER", "driver")


@pytest.fixture(scope="session")
def simulate():
    """Path of the generator of sample data."""
    return program("SIMULATE", "simulate")


@pytest.fixture(scope="session")
def algo_driver():
    """The driver with a few algorithms more, which only tests use."""
    return program("ALGO_DRIVER", "tests/algo_driver/algo_driver")


@pytest.fixture(scope="session")
def vcf_regions():
    """A program that prints the records of regions."""
    return program("VCF_REGIONS", "tests/vcf_regions")


@pytest.fixture(scope="session")
def sanitized(driver):
    """True for a driver with a sanitizer in it, which wants far more address space and time."""
    content = pathlib.Path(driver).read_bytes()
    return b"__asan_init" in content or b"__tsan_init" in content


@pytest.fixture
def run(driver, tmp_path):
    """run(*args, **subprocess options): runs the driver in the test's own folder, output as text."""

    def call(*args, **options):
        options = {"cwd": tmp_path, "timeout": 120, "stdin": subprocess.DEVNULL, **options}
        options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        return subprocess.run([driver, *map(str, args)], text=True, **options)

    return call


Sample = collections.namedtuple("Sample", "reference bam lengths mapped unplaced")

LENGTHS = {"chr1": 30000, "chr2": 12000, "chr3": 700}
UNPLACED = 40


def write_reference(path, lengths, seed):
    draw = random.Random(seed)
    bases = {name: "".join(draw.choices("ACGT", k=length)) for name, length in lengths.items()}
    with open(path, "w") as f:
        for name, text in bases.items():
            f.write(f">{name}\n")
            f.writelines(text[i : i + 60] + "\n" for i in range(0, len(text), 60))
    pysam.faidx(str(path))
    return bases


def write_reads(path, bases, seed, group="rg1", unplaced=UNPLACED, depth=4):
    """Single reads of 50 bases in order, with some positions shared and some bases wrong, then unplaced ones."""
    draw = random.Random(seed)
    header = {
        "HD": {"VN": "1.5", "SO": "coordinate"},
        "SQ": [{"SN": name, "LN": len(text)} for name, text in bases.items()],
        "RG": [{"ID": group, "SM": "sample", "LB": "lib", "PL": "ILLUMINA"}],
    }
    mapped = 0
    with pysam.AlignmentFile(str(path), "wb", header=header) as out:

        def write(name, contig, start, sequence, flag):
            read = pysam.AlignedSegment(out.header)
            read.query_name, read.flag, read.reference_id, read.reference_start = name, flag, contig, start
            read.query_sequence = sequence
            read.query_qualities = pysam.qualitystring_to_array("".join(chr(draw.randint(35, 73)) for _ in sequence))
            if contig >= 0:
                read.mapping_quality, read.cigarstring = 60, f"{len(sequence)}M"
            read.set_tag("RG", group)
            out.write(read)

        for contig, text in enumerate(bases.values()):
            for start in sorted(draw.randrange(len(text) - 50) for _ in range(len(text) * depth // 50)):
                sequence = "".join(b if draw.random() > 0.01 else draw.choice("ACGT") for b in text[start : start + 50])
                write(f"{group}.{mapped}", contig, start, sequence, draw.choice([0, 16]))
                mapped += 1
        for i in range(unplaced):
            write(f"{group}.u{i}", -1, -1, "".join(draw.choices("ACGT", k=50)), 4)
    pysam.index(str(path))
    return mapped


@pytest.fixture(scope="session")
def sample(tmp_path_factory):
    """A reference of three contigs and one indexed BAM on it."""
    folder = tmp_path_factory.mktemp("sample")
    bases = write_reference(folder / "reference.fa", LENGTHS, seed=1)
    mapped = write_reads(folder / "reads.bam", bases, seed=2)
    return Sample(folder / "reference.fa", folder / "reads.bam", LENGTHS, mapped, UNPLACED)


def names_of(path, until_eof=True):
    """Names of the reads of a BAM, in file order."""
    with pysam.AlignmentFile(str(path), check_sq=False) as f:
        return [read.query_name for read in f.fetch(until_eof=until_eof)]


@pytest.fixture(scope="session")
def read_names():
    return names_of
