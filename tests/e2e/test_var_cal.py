"""VarCal as a user runs it: options, resources, messages, outputs."""

import os
import random
import re

import pysam
import pytest

LENGTH = 400_000
ANNOTATIONS = ["QD", "FS", "MQ"]


@pytest.fixture
def calls(tmp_path):
    """calls(): reference.fa, calls.vcf.gz, resource.vcf.gz of 3,000 sites on two contigs, a third of them false.

    `change(site, info)` may alter the record's fields or INFO.
    """

    def make(count=3000, change=None, known=0.4):
        draw = random.Random(5)
        with open(tmp_path / "reference.fa", "w") as out, open(tmp_path / "reference.fa.fai", "w") as index:
            for contig in ["chr1", "chr2"]:
                out.write(f">{contig}\n")
                index.write(f"{contig}\t{LENGTH}\t{out.tell()}\t80\t81\n")
                out.write(("N" * 80 + "\n") * (LENGTH // 80))
        header = "##fileformat=VCFv4.2\n" + "".join(f"##contig=<ID=chr{c},length={LENGTH}>\n" for c in (1, 2))
        header += "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n"
        texts = {"calls": header, "resource": header}
        truth = []
        for i in range(count):
            true = draw.random() < 0.67
            fields = [f"chr{1 + 2 * i // count}", str((i % (count // 2)) * 200 + 100), ".", "A", "G" if true else "T", "50", "."]
            if i % 5 == 4:  # an indel
                fields[3] = "AT"
            info = {"QD": draw.gauss(20, 4) if true else draw.gauss(8, 5), "FS": draw.gauss(2, 1) if true else draw.gauss(9, 5),
                    "MQ": 60 - abs(draw.gauss(0, 1) if true else draw.gauss(0, 8))}
            if i % 7 == 0:
                del info["MQ"]
            if change:
                change(i, fields, info)
            text = ";".join(f"{k}={v if isinstance(v, str) else round(v, 3)}" for k, v in info.items()) or "."
            texts["calls"] += "\t".join(fields + [text]) + "\n"
            if true and draw.random() < known:
                texts["resource"] += "\t".join(fields[:6] + [".", "."]) + "\n"
            truth.append(true)
        for name, text in texts.items():
            (tmp_path / f"{name}.vcf").write_text(text)
            pysam.tabix_index(str(tmp_path / f"{name}.vcf"), preset="vcf", force=True)
        return truth

    return make


def words(*more, threads=2, annotations=ANNOTATIONS, output="out.vcf.gz", resources=("resource.vcf.gz",), vcf="calls.vcf.gz", tranches="tranches",
          truth="true"):
    result = ["-t", threads, "-r", "reference.fa", "--algo", "VarCal", "--vcf", vcf, "--tranches_file", tranches]
    for path in resources:
        result += ["--resource", path, "--resource_param", f"t,known=true,training=true,truth={truth},prior=15.0"]
    for annotation in annotations:
        result += ["--annotation", annotation]
    return result + [*more, output]


def records(path):
    with pysam.VariantFile(str(path)) as file:
        return [(r.chrom, r.pos, r.stop, r.info["VQSLOD"], r.info["culprit"], set(r.info) - {"VQSLOD", "culprit", "END"}) for r in file]


def test_scores_each_site_and_tells_what_it_does(calls, run, tmp_path):
    truth = calls()
    (tmp_path / "out.vcf.gz").write_text("old")
    done = run(*words("--plot_file", "plot", "--plot_simu_steps", 4, "--plot_sample_size", 50, "--max_mq", 60), env={"debugDump": "dump"})
    assert done.returncode == 0, done.stderr
    for text in ["maxGaussians = 8\n", "data size = 2400\n", "an[0] QD: mean = ", "reorder annotations by order of ",
                 "Model after random init\n", "EStep_compute: ", "accumMu_compute: ", "accumSigma_compute: ", "iter 1: mixture weight delta ", "Model after EM\n", "evaluating 2400 variants\n"]:
        assert text in done.stderr
    assert re.search(r"positive training data size \d+ \(Warning: too few training variants sites!\)\n", done.stderr)
    assert re.search(r"negative training data size [1-9]\d*\n", done.stderr)

    sites = [i for i in range(3000) if i % 5 != 4]
    out = records(tmp_path / "out.vcf.gz")
    assert [(c, p) for c, p, *_ in out] == [(f"chr{1 + 2 * i // 3000}", i % 1500 * 200 + 100) for i in sites]
    lods = [[r[3] for r, i in zip(out, sites) if truth[i] == kind] for kind in (True, False)]
    above = sum(good > bad for good in lods[0] for bad in lods[1]) / len(lods[0]) / len(lods[1])
    assert above > 0.95
    assert {r[4] for r in out} <= {"QD", "FS", "MQ"} and {"POSITIVE_TRAIN_SITE"} in [r[5] for r in out]
    with pysam.VariantFile(str(tmp_path / "out.vcf.gz")) as file:
        assert [r.pos for r in file.fetch("chr2", 0, 500)] == [100, 300, 500]
        assert "##contig=<ID=chr1,length=400000,assembly=hg19>" in str(file.header)
        assert "##reference=file://reference.fa" in str(file.header)

    plot = (tmp_path / "plot").read_text().split("#")[1:]
    assert [part.split("\n")[0] for part in plot] == [f"out.vcf.gz_vqsr_{kind}_{i}_{j}" for i, j in [(0, 1), (0, 2), (1, 2)]
                                                      for kind in ("data", "simu")]
    data, simulated = (part.strip().split("\n") for part in plot[:2])
    assert re.fullmatch(r"\w+,\w+,outcome,traning,known", data[1]) and 100 < len(data) <= 152
    assert {row.split(",")[2] for row in data[2:]} == {"0", "1"}  # by the cut of 90 %
    assert simulated[1].endswith(",lod") and len(simulated) == 2 + 16
    assert "logit_MQ" in "".join(plot)
    dump = (tmp_path / "dump").read_text().splitlines()
    assert len(dump) == 2400 and re.fullmatch(r"chr1\t100\tqual=50\.0+\tprior=.*\tx\[3\]=\[(-?[\d.]+, ){3}\]", dump[0])


def test_same_bytes_at_any_number_of_threads(calls, run, tmp_path):
    calls()
    made = []
    for threads in [1, 4, 3]:
        folder = tmp_path / str(threads)
        folder.mkdir()
        names = [folder / "out.vcf", folder / "tranches", folder / "plot"]
        line = words("--plot_file", names[2], "--partsize", 100, threads=threads, output=names[0], tranches=names[1])
        assert run(*line).returncode == 0
        made.append([re.sub(rb"#\S*out.vcf_", b"#out_", n.read_bytes()) for n in names])
        made[-1][0] = b"".join(l for l in made[-1][0].splitlines() if not l.startswith(b"##"))
    assert made[0] == made[1] == made[2]


@pytest.mark.parametrize("kind, count, gaussians", [("INDEL", 600, 4), ("BOTH", 3000, 8), ("2", 600, 4)])
def test_kinds_of_variants(calls, run, tmp_path, kind, count, gaussians):
    calls()
    done = run(*words("--var_type", kind))
    assert f"maxGaussians = {gaussians}\n" in done.stderr and f"data size = {count}\n" in done.stderr
    assert len(records(tmp_path / "out.vcf.gz")) == count


def test_filters_resources_and_aggregates(calls, run, tmp_path):
    def change(i, fields, info):
        fields[6] = ["PASS", "LowQual", ".", "LowQual;Other"][i % 4]

    calls(change=change)
    assert "data size = 1200\n" in run(*words()).stderr
    done = run(*words("--ignore_input_filters", "LowQual"))
    assert "data size = 1800\n" in done.stderr
    # Aggregate data train, and are not written; a resource of bad sites makes the negative set.
    done = run(*words("--aggregate_data", "calls.vcf.gz", "--resource", "calls.vcf.gz", "--resource_param", "b,bad=true,prior=2"))
    assert "data size = 2400\n" in done.stderr
    out = records(tmp_path / "out.vcf.gz")
    assert len(out) == 1200 and all("NEGATIVE_TRAIN_SITE" in r[5] for r in out)


def test_counts_the_records_of_a_resource_over_each_site(calls, run, tmp_path):
    calls(600)
    draw, lines, spans = random.Random(3), [], []
    for pos in sorted(draw.choices(range(60000), k=5000)):
        ref, alt = draw.choice(["A", "AT", "ATGCA"]), draw.choice(["G", "TC", "GCATG", "ATG,G", ".", "."])
        end = draw.choice([pos + len(ref), pos + len(ref), pos + 300, pos + 3000])
        filters = draw.choice([".", "pass", "LowQual"])
        lines.append(f"chr1\t{pos + 1}\t.\t{ref}\t{alt}\t.\t{filters}\tEND={end}\n")
        if alt != "." and filters != "LowQual":
            spans.append((pos, end, any(len(word) != len(ref) for word in alt.split(","))))
    with pysam.VariantFile(str(tmp_path / "calls.vcf.gz")) as file:
        (tmp_path / "spans.vcf").write_text(str(file.header) + "".join(lines))
    pysam.tabix_index(str(tmp_path / "spans.vcf"), preset="vcf", force=True)
    more = ["--resource", "spans.vcf.gz", "--resource_param", "s,consensus=true"]
    done = run(*words("--var_type", "BOTH", *more), env={"debugDump": "dump"})
    assert done.returncode == 0, done.stderr
    counts = [int(c) for c in re.findall(r"^chr1.*\tcc=(\d+)", (tmp_path / "dump").read_text(), re.M)]
    sites = [(i * 200 + 99, i * 200 + 100 + (i % 5 == 4), i % 5 == 4) for i in range(300)]
    assert counts == [sum(s < end and e > pos and kind == indel for s, e, indel in spans) for pos, end, kind in sites]
    assert max(counts) > 20


BAD_OPTIONS = [
    (lambda w: w[:2] + w[4:], "VarCal: missing reference"),
    (lambda w: [x for x in w if x not in ("--vcf", "calls.vcf.gz")], "VarCal: missing input vcf file"),
    (lambda w: [x for x in w if x not in ("--annotation", *ANNOTATIONS)], "VarCal: missing option --annotation"),
    (lambda w: w[:-1] + ["--annotation", "QD", "o.vcf"], "VarCal: --annotation QD duplicated"),
    (lambda w: w[:10] + w[14:], "VarCal: missing options --resource and --resource_param"),
    (lambda w: w[:12] + w[14:], "VarCal: --resource_param need follow --resource"),
    (lambda w: w[:10] + w[12:], "VarCal: --resource_param need follow --resource"),
    (lambda w: w[:14] + w[12:], "VarCal: --resource_param need follow --resource"),
    (lambda w: w[:12] + ["--var_type", "SNP"] + w[12:], "VarCal: --resource_param need follow --resource"),
    (lambda w: w[:13] + ["noname"] + w[14:], "cannot parse training data source noname"),
    (lambda w: w[:8] + w[10:], "VarCal: missing option --tranches_file"),
    (lambda w: w[:-1], "VarCal: missing output file"),
    (lambda w: w + ["more"], "VarCal: extra argument after output"),
    *((lambda w, o=o: w[:-1] + ["--" + o, "SNP", "o.vcf"], f"VarCal: --{o} duplicated") for o in ("vcf", "tranches_file")),
    (lambda w: w[:-1] + ["--var_type", "SNV", "o.vcf"], "VarCal: invalid var_type SNV"),
    (lambda w: w[:-1] + ["--tranche", "101", "o.vcf"], "Target false discovery rate(FDS) is unreasonable 101.000000"),
    *((lambda w, o=o, v=v: w[:-1] + ["--" + o, v, "o.vcf"], f"VarCal: invalid {o} {v}") for o, v in [
        ("partsize", "0"), ("max_gaussians", "2000000000"), ("max_gaussians", "0"), ("max_neg_gaussians", "0"), ("srand", "12abc"), ("std_thresh", "nan"),
        ("max_mq", "-1"), ("prob_tol", "inf"), ("iter_for_marginal", "-1"), ("shrinkage", "-1"), ("dirichlet", "0"), ("prior_counts", "-1e6"),
        ("bad_lod_thresh", "x"), ("plot_simu_steps", ""), ("tranche", "9x")]),
    (lambda w: w[:-1] + ["--plot_file", "none/plot", "o.vcf"], "VarCal: cannot open file none/plot, No such file or directory"),
    (lambda w: ["--shard", "chr1:1-1000", *w], "Algo VarCal does not support sharded traversal mode"),
    (lambda w: w[:-1] + ["."], "VarCal: cannot open file ., Is a directory"),
    (lambda w: w[:-1] + ["none/o.vcf"], "VarCal: cannot open file none/o.vcf, No such file or directory"),
]


def test_bad_options(calls, run, tmp_path):
    calls(100)
    for change, text in BAD_OPTIONS:
        line = change(list(map(str, words())))
        done = run(*line)
        status = 255 if "cannot open" in text or "mode" in text else 1
        assert (done.returncode, done.stderr.splitlines()[-1]) == (status, text), (line, done.stderr)


def test_inputs_that_do_not_fit(calls, run, tmp_path):
    calls(100)
    os.rename(tmp_path / "resource.vcf.gz", tmp_path / "bare.vcf.gz")
    titles = "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n"
    for name, text in {"short": f"##contig=<ID=chr1,length={LENGTH}>\n{titles}chr1\t2100\t.\tA\n", "other": "##contig=<ID=chr1,length=77>\n" + titles,
                       "unlisted": titles + "chr9\t7\t.\tA\tC\t.\t.\t.\n"}.items():
        (tmp_path / f"{name}.vcf").write_text("##fileformat=VCFv4.2\n" + text)
        pysam.tabix_index(str(tmp_path / f"{name}.vcf"), preset="vcf", force=True)
    clash = "VarCal: Contigs in vcf {}.vcf.gz are not compatible with reference"
    for vcf, name, text in [("calls", "bare", "bare.vcf.gz"), ("calls", "other", clash), ("calls", "unlisted", clash), ("unlisted", "calls", "unlisted.vcf.gz"),
                            ("short", "calls", "short.vcf.gz: too few columns in the line of chr1:2100")]:
        for old in ("out.vcf.gz", "out.vcf.gz.tbi", "tranches"):  # of an earlier run
            (tmp_path / old).write_text("old")
        done = run(*words(vcf=f"{vcf}.vcf.gz", resources=[f"{name}.vcf.gz"]))
        assert done.returncode == 255 and text.format(name) in done.stderr, done.stderr
        assert not [*tmp_path.glob("out*"), *tmp_path.glob("tranches")]


def put(name, value):
    def change(i, fields, info):
        info[name] = value(i)

    return change


@pytest.mark.parametrize("options, setup, status, text", [
    (["--annotation", "XX"], {}, 255, "There is no training data for annotation XX for var_type SNP. Please remove XX from annotations"),
    (["--annotation", "XX"], {"change": put("XX", lambda i: "7")}, 255,
     "Training data is constant for annotation XX for var_tpe SNP. Please remove XX from annotations"),
    ([], {"known": 0}, 255, "There is no training data for annotation QD for var_type SNP. Please remove QD from annotations"),
    (["--annotation", "XX"], {"change": put("XX", lambda i: ["nan", "inf", "-inf", "abc", ""][i % 5])}, 255, "There is no training data for annotation XX"),
    (["--std_thresh", "0"], {}, 0, "could not find training data. Skip the recalibration."),
    (["--bad_lod_thresh", "-1000"], {}, 0, "negative training data size 0\nModel after"),
    (["--prior_counts", "2"], {}, 0, "numeric overflow\n"),  # digamma(0)
])
def test_runs_without_results_leave_no_files(calls, run, tmp_path, options, setup, status, text):
    calls(600, **setup)
    names = ["out.vcf.gz", "out.vcf.gz.tbi", "tranches", "plot"]
    for name in names:
        (tmp_path / name).write_text("of an earlier run")
    done = run(*words("--plot_file", "plot", *options))
    assert done.returncode == status and text in done.stderr, done.stderr
    assert not [name for name in names if (tmp_path / name).exists()]


def test_without_truth_or_draws(calls, run, tmp_path):
    calls()
    done = run(*words("--plot_file", "plot", "--iter_for_marginal", 0, truth="false"))
    assert done.returncode == 0 and "Warning: no tranche from 0 truth sites: the tranches file has titles only\n" in done.stderr
    assert (tmp_path / "tranches").read_text().count("\n") == 3
    assert not re.search(r"^[-\d.]+,[-\d.]+,1,", (tmp_path / "plot").read_text(), re.M)  # none retained
    # Without a draw what is missing has no density.
    assert all((r[3] == -1e6) == (i % 7 == 0) for r, i in zip(records(tmp_path / "out.vcf.gz"), [i for i in range(3000) if i % 5 != 4]))


def test_ten_variants(calls, run, tmp_path):
    calls(10, known=1)
    done = run(*words("--var_type", "BOTH"))
    assert done.returncode == 0 and ("VarCal failed\n" in done.stderr or len(records(tmp_path / "out.vcf.gz")) == 10)


def test_values_beyond_numbers(calls, run, tmp_path):
    def change(i, fields, info):
        if i % 50 == 1:
            info["QD"] = ["nan", "inf", "-1e308", "1e308", "."][i // 50 % 5]
            info["MQ"] = ["-0.01", "-1", "60.01"][i // 50 % 3]

    calls(change=change)
    done = run(*words("--max_mq", 60))
    assert done.returncode == 0 and all(abs(r[3]) <= 1e6 for r in records(tmp_path / "out.vcf.gz"))


@pytest.mark.parametrize("option", ["--tranches_file", "--plot_file", ""])
def test_full_disk(calls, run, tmp_path, option):
    calls()
    full = {"--tranches_file": {"tranches": "/dev/full"}, "": {"output": "/dev/full"}}.get(option, {})
    done = run(*words(*([] if full else [option, "/dev/full"]), **full))
    assert done.returncode == 255 and "/dev/full" in done.stderr
    assert not (tmp_path / "out.vcf.gz").exists()
