"""The command line: what is accepted, what is told where, and with which exit status."""

import os
import pathlib
import re
import resource
import shutil
import subprocess

import pytest

VERSION = "torvesin-genomics-201611.03"


@pytest.fixture(scope="module")
def usage(driver):
    """The usage as the program's table and its registry must make it."""
    return (
        f"Usage: {driver} [options] --algo <algo_name> [algo_options]\n"
        "\n"
        "Options:\n"
        "  -r, --reference       Reference file (FASTA)\n"
        "  -i, --input           Read sequence input file (BAM/CRAM)\n"
        "  -q, --qual_cal        Base quality calibration table\n"
        "  -t, --thread_count    Number of threads\n"
        "      --interval        Interval string or file (BED/Picard)\n"
        "      --interval_padding\n"
        "                        Amount to pad all intervals\n"
        "      --skip_no_coor    Skip unmapped reads\n"
        "      --version         Display version string\n"
        "  -h, --help            Display help information\n"
        "      --read_filter     Read filter name and params\n"
        "\n"
        "For algo specific help information, type\n"
        f"    {driver} --help --algo <algo_name>\n"
        "\n"
        "Available algos:\n"
        "  AlignmentStat\n"
        "  ApplyVarCal\n"
        "  Dedup\n"
        "  GVCFtyper\n"
        "  Genotyper\n"
        "  Haplotyper\n"
        "  LocusCollector\n"
        "  QualCal\n"
        "  ReadWriter\n"
        "  TNhaplotyper\n"
        "  VarCal\n"
    )


def check(result, status, stderr, stdout=""):
    assert (result.returncode, result.stdout, result.stderr) == (status, stdout, stderr)


USAGE = "<usage>"  # stands for the usage text in the tables below

PARSE_CASES = [
    # arguments, exit status, standard error
    ("", 0, USAGE),
    ("--help", 0, USAGE),
    ("-t 3 -h", 0, USAGE),
    ("--help --passthru", 1, "Please specify at least one algo.\n" + USAGE),
    ("-i no.bam -r no.fa", 1, "Please specify at least one algo.\n" + USAGE),
    ("stray", 1, "Please specify at least one algo.\n" + USAGE),
    ("-i no.bam stray --algo ReadWriter out.bam", 1, "Unexpected argument stray\n"),
    ("--bogus", 1, "Unknown option\n" + USAGE),
    ("--bogus --help", 1, "Unknown option\n" + USAGE),
    ("-t", 1, "Unknown option\n" + USAGE),
    ("--interval --algo ReadWriter out.bam", 1, "Unknown option\n" + USAGE),
    ("--skip_no_coor=1", 1, "Unknown option\n" + USAGE),
    ("--shard_", 1, "Unknown option\n" + USAGE),
    ("-t 0", 1, "Invalid thread count 0\n"),
    ("--thread_count two", 1, "Invalid thread count two\n"),
    ("--scheduler_memory_capacity 2x", 1, "Invalid --scheduler_memory_capacity 2x\n"),
    ("--scheduler_memory_capacity 9000000000000G", 1, "Invalid --scheduler_memory_capacity 9000000000000G\n"),
    ("--inter_shard_group_steal_policy first", 1,
     "Invalid --inter_shard_group_steal_policy first, least/most/random expected\n"),
    ("--intra_shard_group_steal_policy most", 1,
     "Invalid --intra_shard_group_steal_policy most, first/last/random expected\n"),
    ("--shard_param 0/5", 1, "Invalid --shard_param 0/5\n"),
    ("--shard_param 4294967296/1", 1, "Invalid --shard_param 4294967296/1\n"),
    ("--shard chr1:0-5", 1, "Failed to parse interval string chr1:0-5\n"),
    ("--shard chr1,chr1:9-7", 1, "Failed to parse interval string chr1:9-7\n"),
    ("--interval chr1:5/9", 1, "Failed to parse interval string chr1:5/9\n"),
    ("--interval chr1:5-2 --interval chr1", 1, "Please specify at least one algo.\n" + USAGE),
    ("--shard chr1", 1, "Non-sharded mode with --shard options\n"),
    ("-i no.bam --shard chr1 --passthru", 1, "Non-sharded mode with --shard options\n"),
    ("--shard chr1 -i no.bam --interval chr1:0", 1, "Failed to parse interval string chr1:0\n"),
    ("--help --algo", 0, "Missing algo name\n"),
    ("--help --algo Nope --algo --algo nope2", 0, "Unknown algo Nope\n\nMissing algo name\n\nUnknown algo nope2\n"),
]  # fmt: skip


@pytest.mark.parametrize("line, status, stderr", PARSE_CASES, ids=[c[0] or "(none)" for c in PARSE_CASES])
def test_parsing(run, usage, line, status, stderr):
    check(run(*line.split()), status, stderr.replace(USAGE, usage))


def test_version(run):
    for line in ("--version", "--version --bogus", "-t 2 --vers --help"):
        check(run(*line.split()), 0, "", VERSION + "\n")
    check(run("-t", "0", "--version"), 1, "Invalid thread count 0\n")
    with open("/dev/full", "w") as full:
        assert run("--version", stdout=full).returncode == 1


def test_algorithm_help(run):
    result = run("--help", "--algo", "ReadWriter", "--algo", "Nope", "--algo", "AlignmentStat", "--bogus")
    assert (result.returncode, result.stdout) == (0, "")
    assert re.fullmatch(
        r"Usage for ReadWriter:\n  driver -i input.bam \[driver_options\] \\\n         --algo ReadWriter \[algo_options\] "
        r"output.bam\n\nOptions for ReadWriter:\n(.*\n)+"
        r"\nUnknown algo Nope\n"
        r"\nUsage for AlignmentStat:\n(.*\n)+Options for AlignmentStat:\n(.*\n)+",
        result.stderr,
    )
    assert "  driver_options" not in result.stderr and "--reference" not in result.stderr


# Behind the summary's first lines nothing but the message; {bam}, {ref} and {dir} are filled in.
OPENING_CASES = [
    # arguments, last lines of standard error
    ("-i {bam} --algo", "Missing algo name\n"),
    ("-i {bam} --algo ReadWriter a.bam --algo Nope", "Unknown algo Nope\n"),
    ("--algo", "Missing algo name\n"),
    ("-i {bam} --algo ReadWriter --bogus a.bam", "ReadWriter: unknown option\n"),
    ("-r {ref} --algo ReadWriter a.bam", "ReadWriter: missing bam input\n"),
    ("-i {bam} --read_filter Other,table=x --algo Nope", "Unknown read filter name Other\n"),
    ("-i {bam} --interval chr9 --algo Nope", "Unknown algo Nope\n"),
]  # fmt: skip


@pytest.mark.parametrize("line, stderr", OPENING_CASES, ids=[c[0] for c in OPENING_CASES])
def test_failure_after_opening(run, sample, tmp_path, line, stderr):
    check(run(*line.format(bam=sample.bam, ref=sample.reference).split()), 1, stderr)
    assert os.listdir(tmp_path) == []  # nothing was created


def test_empty_file_names_are_not_taken_as_absent(run, sample):
    for args in (["-r", "", "-i", sample.bam], ["-i", ""], ["-i", sample.bam, "--interval", "no/such/file:x"]):
        result = run(*args, "--algo", "ReadWriter", "a.bam")
        assert result.returncode == 1 and result.stderr


def test_summary_and_timing_table(run, sample):
    result = run("-t", 3, "-r", sample.reference, "-i", sample.bam, "-i", sample.bam,
                 "--algo", "ReadWriter", "a.bam", "--algo", "AlignmentStat", "a.txt")  # fmt: skip
    size, bases = os.path.getsize(sample.bam), sum(sample.lengths.values())
    assert (result.returncode, result.stdout) == (0, "")
    row = r"\d+ calls \d+\.\d{3} user \d+\.\d{3} sys \d+\.\d{3} real\n"
    assert re.fullmatch(
        rf"sw version: {VERSION}\n"
        r"(?:os version: \S+ \S+\ncpu vendor: .*\n  features: .*\n  extended: .*\n  amd bits: .*\n     brand: .*\n)?"
        rf"threads: 3 max {os.cpu_count()}\n"
        rf"input file size: {size} {size}\n"
        r"algo: ReadWriter AlignmentStat\n"
        rf"reads: {2 * sample.mapped}\n"  # of the contigs, as the indexes tell
        rf"contig: 4 intervals {bases} bases\n"
        rf"(?:\w+: {row})+"
        r"overall: \d+ mem \d+\.\d{3} user \d+\.\d{3} sys \d+\.\d{3} real\n",
        result.stderr,
    ), result.stderr
    for phase in ("init", "execute", "done"):
        assert re.search(rf"^{phase}: 1 calls", result.stderr, re.M)
    timers = re.findall(r"^(\w+): \d+ calls", result.stderr, re.M)
    assert timers == sorted(timers)


def copy(run, sample, *args, out="copy.bam", **options):
    return run("-i", sample.bam, *args, "--algo", "ReadWriter", out, **options)


def test_unknown_contigs_of_intervals_are_told_and_ignored(run, sample, tmp_path):
    result = copy(run, sample, "--interval", "chrX:5-9,chr2:1-100,chrA,chrX:50-60")
    assert result.returncode == 0
    told = [line for line in result.stderr.splitlines() if line.startswith("Unknown contig")]
    assert told == ["Unknown contig chrA, ignored", "Unknown contig chrX, ignored"]
    assert "contig: 1 intervals 100 bases\n" in result.stderr

    result = copy(run, sample, "--interval", "chr2:1-100,chr3:701-900,chr3:600")
    assert result.returncode == 0 and "contig: 2 intervals 101 bases\n" in result.stderr
    assert "\nInterval chr3:701-900 is outside of its contig, ignored\n" in result.stderr

    result = copy(run, sample, "--interval", "chrX", "--interval", "chr2")  # the last one wins
    assert result.returncode == 0 and "Unknown" not in result.stderr

    result = copy(run, sample, "--shard", "chrX,chr3:1-10")
    assert result.returncode == 0
    assert "Unknown contig chrX, ignored\n" in result.stderr and "contig: 1 intervals 10 bases\n" in result.stderr


@pytest.mark.parametrize(
    "args",
    [
        ["--interval", "chrX"],
        ["--interval", "chr3:701-900"],
        ["--interval", "chr1:11-10"],
        ["--shard", "chrX"],
        ["--shard", "chr1:40000-"],
        ["--shard", "NO_COOR", "--skip_no_coor"],
        ["--shard", "chr2", "--interval", "chr1"],
        ["--interval", "chr1:10-20", "--interval_padding", "-6"],
    ],
)
def test_nothing_to_walk(run, sample, tmp_path, args):
    result = copy(run, sample, *args)
    assert result.returncode == 1
    assert result.stderr.endswith("Empty input intervals\n")
    # What init opened must not look like a finished output.
    left = tmp_path / "copy.bam"
    assert not left.exists() or not left.read_bytes().endswith(bytes.fromhex("1b0003000000000000000000"))
    assert not (tmp_path / "copy.bam.bai").exists()


def test_interval_files_and_padding(run, sample, tmp_path):
    bed = tmp_path / "some.bed"
    bed.write_text("chr1\t100\t200\nchr2\t0\t50\n")
    for padding, bases in ((0, 150), (30, 240), (-20, 70), (60000, 30000 + 12000)):
        result = copy(run, sample, "--interval", bed, "--interval_padding", padding)
        assert result.returncode == 0
        assert f"contig: 2 intervals {bases} bases\n" in result.stderr


@pytest.mark.parametrize("path", ["pipe", "/dev/zero"])
def test_pipes_and_devices_are_no_inputs(run, sample, tmp_path, path):
    """A pipe that nobody writes to must not hold the run up, nor a device without an end."""
    os.mkfifo(tmp_path / "pipe")
    for args, told in (
        (["-i", sample.bam, "--interval", path], f"Failed to open file {path}: Illegal seek\n"),
        (["-i", sample.bam, "-r", path], f"Failed to open FASTA file {path}: Illegal seek\nInvalid input file\n"),
        (["-i", path], f"Failed to open {path}: Not a regular file\nInvalid input file\n"),
    ):
        check(run(*args, "--algo", "ReadWriter", "a.bam", timeout=20), 1, told)


def test_mode_masks(run, sample, tmp_path):
    """An unsupported mode is told by init: on a worker in a traversal, on the main thread without."""
    result = run("-i", sample.bam, "-r", sample.reference, "--shard", "chr1", "--algo", "AlignmentStat", "a.txt")
    assert result.returncode == 255
    assert result.stderr.endswith("Algo AlignmentStat does not support sharded traversal mode\n")
    result = run("--passthru", "-i", sample.bam, "--algo", "ReadWriter", "a.bam")
    assert result.returncode == 1
    assert result.stderr.endswith("Algo ReadWriter does not support non-traversal mode\n")
    assert os.listdir(tmp_path) == []


def test_failure_on_a_worker_ends_with_255(run, sample):
    result = copy(run, sample, out="no/such/folder/copy.bam")
    assert (result.returncode, result.stdout) == (255, "")
    assert "no/such/folder/copy.bam" in result.stderr and "overall:" not in result.stderr


@pytest.mark.parametrize("threads", [1, 4])
def test_a_failed_run_leaves_nothing_that_looks_whole(run, sample, tmp_path, threads):
    damaged = bytearray(pathlib.Path(sample.bam).read_bytes())
    middle = len(damaged) * 3 // 4  # shards before it are merged when the run gets there
    damaged[middle : middle + 100] = bytes(100)
    (tmp_path / "damaged.bam").write_bytes(damaged)
    shutil.copy(f"{sample.bam}.bai", tmp_path / "damaged.bam.bai")
    algos = (["Genotyper", "a.vcf"], ["Haplotyper", "b.vcf.gz"], ["ReadWriter", "c.bam"], ["AlignmentStat", "d.txt"],
             ["LocusCollector", "--fun", "score_info", "e.gz"], ["QualCal", "f.table"])
    words = [word for algo in algos for word in ("--algo", *algo)]
    result = run("-t", threads, "--shard_param", "500/100", "-r", sample.reference, "-i", "damaged.bam", *words)
    assert result.returncode == 255 and "Failed to read from damaged.bam: corrupted or truncated" in result.stderr
    assert sorted(os.listdir(tmp_path)) == ["damaged.bam", "damaged.bam.bai"]


def limits(**values):
    """Sets (soft, hard) limits in the child."""

    def apply():
        for name, pair in values.items():
            resource.setrlimit(getattr(resource, "RLIMIT_" + name), pair)

    return apply


def test_more_inputs_than_open_files_are_refused_before_the_first_is_opened(run, sample):
    inputs = [word for i in range(100) for word in ("-i", f"gone{i}.bam")]
    result = run("-t", 2, *inputs, "--algo", "ReadWriter", "a.bam", preexec_fn=limits(NOFILE=(64, 64)))
    assert (result.returncode, result.stdout) == (1, "")
    assert re.fullmatch(r"100 input files, .* need 1\d\d open files, 64 are allowed\n", result.stderr)


def test_many_inputs_raise_the_soft_limit_of_open_files(run, sample, tmp_path, read_names):
    inputs = ["-i", sample.bam] * 60
    result = run("-t", 2, *inputs, "--interval", "chr3", "--algo", "ReadWriter", "a.bam",
                 preexec_fn=limits(NOFILE=(32, 1024)))  # fmt: skip
    assert result.returncode == 0, result.stderr
    assert len(read_names(tmp_path / "a.bam")) % 60 == 0


def test_more_threads_than_can_be_started(run, sample, sanitized):
    if sanitized:
        pytest.skip("a sanitizer needs more address space than the test allows")
    result = copy(run, sample, "-t", 900, preexec_fn=limits(AS=(1 << 31, 1 << 31)))
    assert result.returncode == 1
    assert re.search(r"Failed to start 900 threads: .+\n$", result.stderr)


def test_closed_standard_streams_do_not_end_up_in_the_output(driver, sample, tmp_path, read_names):
    words = f"{driver} --progress 1 --debug 1 -i {sample.bam} --algo ReadWriter {tmp_path}/a.bam"
    for closed in ("2>&-", "0<&-", "0<&- 1>&- 2>&-"):
        assert subprocess.run(["sh", "-c", f"{words} {closed}"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=120).returncode == 0  # fmt: skip
        assert read_names(tmp_path / "a.bam") == read_names(sample.bam)


def test_a_log_reader_that_goes_away_does_not_end_the_run(driver, sample, tmp_path, read_names):
    read_end, write_end = os.pipe()
    os.close(read_end)
    words = [driver, "--progress", "1", "-i", sample.bam, "--algo", "ReadWriter", tmp_path / "a.bam"]
    result = subprocess.run(words, stdin=write_end, stdout=subprocess.DEVNULL, stderr=write_end, timeout=120)
    os.close(write_end)
    assert result.returncode == 0
    assert read_names(tmp_path / "a.bam") == read_names(sample.bam)


def test_debug_lines(run, sample):
    result = copy(run, sample, "--debug", 1, "-t", 1, "--shard_param", "10000/1000")
    rows = re.findall(r"^(\d+): (\w+):(\d+)-(\d+) finished in \d+\.\d{3} s, (\d+) reads, mem = \d+M$", result.stderr, re.M)
    assert sorted(int(row[0]) for row in rows) == list(range(7))
    assert sum(int(row[4]) for row in rows) == sample.mapped + sample.unplaced
    assert {row[1:4] for row in rows} == {
        ("NO_COOR", "0", "0"), ("chr1", "0", "10000"), ("chr1", "10000", "20000"), ("chr1", "20000", "30000"),
        ("chr2", "0", "10000"), ("chr2", "10000", "12000"), ("chr3", "0", "700")}  # fmt: skip

