"""VarCal and ApplyVarCal one after the other, on calls of simulated reads: what is filtered, and what stays as it was."""

import os
import subprocess
from fractions import Fraction

import pysam
import pytest

from conftest import ROOT

ENV = {**os.environ, "SOURCE_DATE_EPOCH": "0"}
ANNOTATIONS = ["QD", "FS", "SOR", "MQRankSum", "ReadPosRankSum"]
ADDED = {"VQSLOD", "culprit", "POSITIVE_TRAIN_SITE", "NEGATIVE_TRAIN_SITE"}


@pytest.fixture(scope="module")
def folder(driver, simulate, tmp_path_factory):
    """Calls of one sample and, in `known`, half of the known sites."""
    folder = tmp_path_factory.mktemp("recalibration")
    subprocess.run([simulate, "--out-dir", folder, "--seed", "6", "--contigs", "chr1:200000,chr2:100000", "--depth", "12",
                    "--snp-rate", "0.005", "--indel-rate", "0.002"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run([driver, "-t", "2", "-r", folder / "reference.fa", "-i", folder / "sample1.bam", "--algo", "Genotyper", "--var_type", "BOTH",
                    "--emit_conf", "3", folder / "calls.vcf.gz"], check=True, stderr=subprocess.DEVNULL)
    with pysam.VariantFile(str(folder / "known_sites.vcf.gz")) as sites, open(folder / "known.vcf", "w") as out:
        out.write(str(sites.header))
        out.writelines(str(site) for i, site in enumerate(sites) if i % 4 < 2)
    pysam.tabix_index(str(folder / "known.vcf"), preset="vcf")
    return folder


@pytest.fixture
def train(run, folder):
    """train(model, output, ...): VarCal on the calls."""

    def call(model, output, *options, vcf=folder / "calls.vcf.gz", threads=2, annotations=ANNOTATIONS):
        result = run("-t", threads, "-r", folder / "reference.fa", "--algo", "VarCal", "--vcf", vcf, "--var_type", model, "--resource",
                     folder / "known.vcf.gz", "--resource_param", "known,known=true,training=true,truth=true,prior=15",
                     *(word for name in annotations for word in ("--annotation", name)), "--tranches_file", f"{output}.tranches",
                     "--plot_file", f"{output}.plot", *options, f"{output}.recal.vcf.gz", env=ENV)
        assert result.returncode == 0 and "VarCal failed" not in result.stderr, result.stderr
        return result

    return call


@pytest.fixture
def apply(run, folder):
    def call(model, trained, output, vcf=folder / "calls.vcf.gz", threads=2):
        result = run("-t", threads, "-r", folder / "reference.fa", "--algo", "ApplyVarCal", "--vcf", vcf, "--var_type", model, "--recal",
                     f"{trained}.recal.vcf.gz", "--tranches_file", f"{trained}.tranches", "--sensitivity", 99, output, env=ENV)
        assert result.returncode == 0, result.stderr

    return call


def lines(path, header=False):
    with pysam.BGZFile(str(path)) as file:
        rows = [line.decode() for line in file]
    return sorted(row for row in rows if row[0] == "#" and "CommandLine" not in row) if header else [row.split("\t") for row in rows if row[0] != "#"]


def is_indel(row):
    return any(len(alt) != len(row[3]) for alt in row[4].split(",") if alt != "*")


def test_both_orders_change_filter_and_info_alone(train, apply, folder, tmp_path):
    train("SNP", "s")
    apply("SNP", "s", "snp.vcf.gz")
    train("INDEL", "i", vcf="snp.vcf.gz")
    apply("INDEL", "i", "both.vcf.gz", vcf="snp.vcf.gz")
    train("INDEL", "first")
    apply("INDEL", "first", "indel.vcf.gz")
    apply("SNP", "s", "other.vcf.gz", vcf="indel.vcf.gz")
    for kind in ("recal.vcf.gz", "tranches"):  # the filters of SNPs are nothing to indels
        assert (tmp_path / f"i.{kind}").read_bytes() == (tmp_path / f"first.{kind}").read_bytes()
    filtered = lines(tmp_path / "both.vcf.gz")
    assert filtered == lines(tmp_path / "other.vcf.gz")
    assert lines(tmp_path / "both.vcf.gz", header=True) == lines(tmp_path / "other.vcf.gz", header=True)

    plain, seen = lines(folder / "calls.vcf.gz"), set()
    assert len(plain) == len(filtered)
    for old, new in zip(plain, filtered):
        assert old[:6] == new[:6] and old[8:] == new[8:]
        seen |= {(is_indel(new), word) for word in new[6].split(";")}
        info = new[7].split(";")
        assert [item for item in info if item.split("=")[0] not in ADDED] == old[7].split(";")
        # Filtered records are not trained on, so they have no score.
        assert any(item.startswith("VQSLOD=") for item in info) == (old[6] in (".", "PASS")), new
    for indel, name in ((False, "SNP"), (True, "INDEL")):
        assert {(indel, "PASS"), (indel, f"VQSRTranche{name}99.00to99.90")} <= seen
    for path in ("snp.vcf.gz", "both.vcf.gz", "s.recal.vcf.gz"):
        told = subprocess.run(["bcftools", "view", "-o", "/dev/null", path], cwd=tmp_path, capture_output=True, text=True)
        assert told.returncode == 0 and not told.stderr


@pytest.mark.parametrize("model", ["SNP", "INDEL"])
def test_tranches_are_what_a_plain_count_of_calls_and_resource_says(train, folder, tmp_path, model):
    targets = [100, 99.5, 97.25, 80, 50]
    train(model, "out", *(word for target in targets for word in ("--tranche", target)))
    calls = [row for row in lines(folder / "calls.vcf.gz") if is_indel(row) == (model == "INDEL") and row[6] in (".", "PASS")]
    known = [row for row in lines(folder / "known.vcf.gz") if is_indel(row) == (model == "INDEL")]
    data = []
    for call, said in zip(calls, lines(tmp_path / "out.recal.vcf.gz"), strict=True):
        begin, end = int(call[1]), int(call[1]) + len(call[3])
        assert said[:2] == call[:2] and f"END={end - 1}" in said[7].split(";")
        hit = any(row[0] == call[0] and int(row[1]) < end and begin < int(row[1]) + len(row[3]) for row in known)
        assert hit == ("POSITIVE_TRAIN_SITE" in said[7].split(";"))
        transition = {call[3], call[4]} in ({"A", "G"}, {"C", "T"})
        simple = len(call[3]) == len(call[4]) == 1
        data.append((float(said[7].split("VQSLOD=")[1].split(";")[0]), hit, transition and simple, simple))
    assert 20 < sum(d[1] for d in data) < len(data) - 20

    def ratio(some):
        return f"{sum(d[2] for d in some) / sum(not d[2] for d in some):.4f}" if not all(d[2] for d in some) else "0.0000"

    truth = [lod for lod, hit, *_ in data if hit]
    expected, before = [], 0
    for target in sorted(targets):
        cut = min(lod for lod, *_ in data if Fraction(sum(t >= lod for t in truth), len(truth)) <= Fraction(target) / 100)
        over = [d for d in data if d[0] >= cut]
        old, new = [d for d in over if d[1]], [d for d in over if not d[1]]
        expected.append([f"{target:.2f}", f"{len(old)}", f"{len(new)}", ratio([d for d in old if d[3]]), ratio(new), f"{cut:.4f}",
                         f"VQSRTranche{model}{before:.2f}to{target:.2f}", model, f"{len(truth)}", f"{len(old)}", f"{len(old) / len(truth):.4f}"])
        before = target
    text = (tmp_path / "out.tranches").read_text().splitlines()
    assert [line.split(",") for line in text if line[0] not in "#t"] == expected


def test_any_number_of_threads_and_the_plots(train, apply, tmp_path):
    made = {}
    for threads in (1, 4):
        train("SNP", "out", "--plot_sample_size", 200, "--plot_simu_steps", 20, "--partsize", 100, "--bad_lod_thresh", -2, threads=threads,
              annotations=ANNOTATIONS[:3])
        apply("SNP", "out", "out.vcf.gz", threads=threads)
        made[threads] = [(tmp_path / f"out.{kind}").read_bytes() for kind in ("recal.vcf.gz", "recal.vcf.gz.tbi", "tranches", "plot")]
        made[threads].append((lines(tmp_path / "out.vcf.gz"), lines(tmp_path / "out.vcf.gz", header=True)))
    assert made[1] == made[4]

    if subprocess.run(["/usr/bin/python3", "-c", "import matplotlib"], stderr=subprocess.DEVNULL).returncode == 0:
        subprocess.run([ROOT / "scripts" / "plot-varcal", "out.tranches", "out.plot", "drawn"], check=True, cwd=tmp_path)
        pages = (tmp_path / "drawn.pdf").read_bytes()
        assert pages.startswith(b"%PDF") and pages.count(b"/Type /Page ") == 2 + 3  # pairs of annotations
        whole = (tmp_path / "out.plot").read_text()
        for cut in (whole[: len(whole) // 3], whole[: whole.index("\n", len(whole) // 3) + 1], whole[:-1], whole[: whole.rindex("#")]):
            (tmp_path / "cut.plot").write_text(cut)
            done = subprocess.run([ROOT / "scripts" / "plot-varcal", "out.tranches", "cut.plot", "none"], cwd=tmp_path, capture_output=True, text=True)
            assert done.returncode == 1 and done.stderr == "scripts/plot-varcal: cut.plot is cut short\n" and not (tmp_path / "none.pdf").exists()
        assert all((tmp_path / f"drawn.{page}.png").stat().st_size > 10000 for page in ("tranches", "sensitivity"))
