"""Outputs of a run that would overwrite its inputs or each other: refused before anything has been changed."""

import os
import shutil

import pysam
import pytest

RW, AS = ["--algo", "ReadWriter"], ["--algo", "AlignmentStat"]
INDEX = "--cram_options"


def state(folder):
    """Every entry below the folder, with the bytes or the target of the link."""
    found = {}
    for path in sorted(folder.rglob("*")):
        found[str(path.relative_to(folder))] = (
            os.readlink(path) if path.is_symlink() else path.is_file() and (path.stat().st_ino, path.read_bytes())
        )
    return found


@pytest.fixture
def folder(sample, tmp_path):
    """Inputs, outputs of earlier runs, and links of all kinds."""
    shutil.copy(sample.bam, tmp_path / "in.bam")
    shutil.copy(f"{sample.bam}.bai", tmp_path / "in.bam.bai")
    shutil.copy(sample.bam, tmp_path / "part.bam_12")
    shutil.copy(f"{sample.bam}.bai", tmp_path / "part.bam_12.bai")
    shutil.copy(sample.reference, tmp_path / "ref.fa")
    shutil.copy(f"{sample.reference}.fai", tmp_path / "ref.fai")  # the second name that is looked for
    (tmp_path / "t.bed").write_text("chr1\t100\t20000\n")
    for name in ("x.bam", "x.bam.bai", "x.bam_1", "old"):
        (tmp_path / name).write_text(f"{name} of an earlier run")
    (tmp_path / "sub").mkdir()
    (tmp_path / "twin").symlink_to("sub")
    (tmp_path / "to_new").symlink_to("sub/../new")  # which is not there
    (tmp_path / "sub" / "to_new").symlink_to(tmp_path / "to_new")
    (tmp_path / "sub" / "up").symlink_to("../new")
    (tmp_path / "to_shard").symlink_to("x.bam_1")
    os.link(tmp_path / "old", tmp_path / "old_too")
    (tmp_path / "bed_link").symlink_to("t.bed")
    os.link(tmp_path / "ref.fai", tmp_path / "fai_too")
    return tmp_path


def refused(run, folder, algos, message, inputs=("-i", "in.bam")):
    before = state(folder)
    result = run("-t", 2, "-r", "ref.fa", *inputs, "--interval", "t.bed", *algos)
    assert (result.returncode, result.stderr.splitlines()[-1]) == (1, message)
    assert state(folder) == before


@pytest.mark.parametrize(
    "algos, message",
    [
        (RW + ["x.bam"] + AS + ["x.bam"], "AlignmentStat: output file x.bam would overwrite output file x.bam of ReadWriter"),
        (AS + ["old"] + AS + ["old"], "AlignmentStat: output file old would overwrite output file old of AlignmentStat"),
        (AS + ["sub/a"] + AS + ["twin/a"], "AlignmentStat: output file twin/a would overwrite output file sub/a of AlignmentStat"),
        (AS + ["old"] + AS + ["old_too"], "AlignmentStat: output file old_too would overwrite output file old of AlignmentStat"),
        (AS + ["to_new"] + AS + ["sub/up"], "AlignmentStat: output file sub/up would overwrite output file to_new of AlignmentStat"),
        (RW + ["to_new"] + RW + ["sub/to_new"], "ReadWriter: output file sub/to_new would overwrite output file to_new of ReadWriter"),
        (RW + ["x.bam"] + RW + ["x.bam_1"], "ReadWriter: output file x.bam_1 would overwrite output file x.bam of ReadWriter"),
        (RW + ["x.bam"] + AS + ["x.bam_-1"], "AlignmentStat: output file x.bam_-1 would overwrite output file x.bam of ReadWriter"),
        (AS + ["to_shard"] + RW + ["x.bam"], "ReadWriter: output file x.bam would overwrite output file to_shard of AlignmentStat"),
        (RW + ["sub/y"] + AS + ["twin/y_0"], "AlignmentStat: output file twin/y_0 would overwrite output file sub/y of ReadWriter"),
        (RW + ["x.bam"] + RW + ["x.bam.bai"], "ReadWriter: output file x.bam.bai would overwrite output file x.bam.bai of ReadWriter"),
        (RW + ["a.bam"] + RW + [INDEX, "output_index_file=a.bam.bai", "b.bam"],
         "ReadWriter: output file a.bam.bai would overwrite output file a.bam.bai of ReadWriter"),
        (RW + ["a.bam"] + AS + ["a.bam.bai.tmp"], "AlignmentStat: output file a.bam.bai.tmp would overwrite output file a.bam.bai.tmp of ReadWriter"),
        (RW + [INDEX, "output_index_file=a.bam", "a.bam"], "ReadWriter: output file a.bam would overwrite output file a.bam of ReadWriter"),
    ],
)  # fmt: skip
def test_outputs_of_one_run(run, folder, algos, message):
    refused(run, folder, algos, message)


@pytest.mark.parametrize("first", [[], RW + ["x.bam"]])
@pytest.mark.parametrize(
    "name, output, known",
    [
        ("AlignmentStat", "ref.fai", "ref.fai"),
        ("ReadWriter", "ref.fai", "ref.fai"),
        ("AlignmentStat", "fai_too", "ref.fai"),
        ("AlignmentStat", "t.bed", "t.bed"),
        ("ReadWriter", "bed_link", "t.bed"),
        ("AlignmentStat", "in.bam.bai", "in.bam.bai"),
        ("ReadWriter", "sub/../in.bam", "in.bam"),
        ("ReadWriter", "part.bam", "part.bam_12"),
    ],
)
def test_inputs(run, folder, first, name, output, known):
    message = f"{name}: output file {output} would overwrite input file {known}"
    refused(run, folder, first + ["--algo", name, output], message, ("-i", "in.bam", "-i", "part.bam_12"))


def test_input_that_is_a_link_in_the_place_of_a_shard(run, folder):
    (folder / "out.bam_3").symlink_to("in.bam")
    (folder / "reads.bam").symlink_to("out.bam_3")
    (folder / "reads.bam.bai").symlink_to("in.bam.bai")
    message = "ReadWriter: output file out.bam would overwrite input file reads.bam"
    refused(run, folder, RW + ["out.bam"], message, ("-i", "reads.bam"))


def test_names_that_only_look_alike(run, folder):
    """Neither numbers as they are printed, nor the same folder, nor files that can be overwritten."""
    outputs = ["x.bam", "x.bam_01", "x.bam_-2", "x.bam_", "x.bam_1_", "sub/x.bam_1", "x.bamx_1", "in.bam_1", "t.bed.bai"]
    algos = [word for name in outputs for word in RW + [name]]
    algos += AS + ["/dev/null"] + AS + ["/dev/null"] + AS + ["/dev/stderr"] + AS + ["/dev/stderr"]
    result = run("-t", 2, "-r", "ref.fa", "-i", "in.bam", "--interval", "t.bed", *algos)
    assert result.returncode == 0, result.stderr
    with pysam.AlignmentFile(str(folder / "in.bam")) as f:
        names = [read.query_name for read in f.fetch("chr1", 100, 20000)]
    for output in outputs:
        with pysam.AlignmentFile(str(folder / output), index_filename=str(folder / f"{output}.bai")) as f:
            assert [read.query_name for read in f.fetch("chr1")] == names, output


def test_two_outputs_on_a_redirected_stream(run, folder):
    """A plain file behind /dev/stdout would be emptied by the second one to open it."""
    with open(folder / "table", "w") as table:
        result = run("-r", "ref.fa", "-i", "in.bam", *AS, "/dev/stdout", *AS, "table", stdout=table)
    message = "AlignmentStat: output file table would overwrite output file /dev/stdout of AlignmentStat"
    assert (result.returncode, result.stderr.splitlines()[-1]) == (1, message)
