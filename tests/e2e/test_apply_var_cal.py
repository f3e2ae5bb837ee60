"""ApplyVarCal on hand-made recal files: which records change, in what, and what is said of files that do not fit."""

import os
import random
import resource
import subprocess

import pysam
import pytest

ENV = {**os.environ, "SOURCE_DATE_EPOCH": "0"}
TRANCHES = [(90, 3.25, "SNP"), (99, 1.5, "SNP"), (99.9, -0.75, "SNP"), (100, -20, "SNP"), (99, 0.5, "INDEL"), (100, -4, "INDEL")]
TITLES = ("# Variant quality score tranches file\n# Version number 5\ntargetTruthSensitivity,numKnown,numNovel,knownTiTv,novelTiTv,"
          "minVQSLod,filterName,model,accessibleTruthSites,callsAtTruthSites,truthSensitivity\n")
RECAL_INFO = ['##INFO=<ID=END,Number=1,Type=Integer,Description="e">', '##INFO=<ID=NEGATIVE_TRAIN_SITE,Number=0,Type=Flag,Description="n">',
              '##INFO=<ID=POSITIVE_TRAIN_SITE,Number=0,Type=Flag,Description="p">',
              '##INFO=<ID=VQSLOD,Number=1,Type=Float,Description="v">', '##INFO=<ID=culprit,Number=1,Type=String,Description="c">']
LODS = [-25.0, -20.0, -4.0001, -4.0, -0.7501, -0.75, -0.0001, 0.0, 0.4999, 0.5, 1.4999, 1.5, 3.0]


def tranches_text(rows=TRANCHES):
    text, before = TITLES, {}
    for target, lod, model in rows:
        text += f"{target:.2f},1,1,2.0000,2.0000,{lod:.4f},VQSRTranche{model}{before.get(model, 0):.2f}to{target:.2f},{model},9,8,0.8889\n"
        before[model] = target
    return text


def kind(record):
    """SNP, INDEL or None for a record without alternates."""
    sizes = [len(alt) - len(record[3]) for alt in record[4].split(",") if alt not in ("", ".")]
    return None if not sizes else "INDEL" if any(sizes) else "SNP"


def indexed(path, text):
    path.write_text(text)
    pysam.tabix_index(str(path), preset="vcf", force=True)
    return path.with_name(path.name + ".gz")


def header(lengths, more=(), columns=()):
    return "\n".join(["##fileformat=VCFv4.2", *(f"##contig=<ID={c},length={n}>" for c, n in lengths.items()), *more,
                      "\t".join(["#CHROM", "POS", "ID", "REF", "ALT", "QUAL", "FILTER", "INFO", *columns])]) + "\n"


class Calls:
    """A call set with what recal files say of some of its records."""

    def __init__(self, folder, lengths, seed=3):
        draw, self.folder, self.lengths, self.records, self.said = random.Random(seed), folder, lengths, [], {}
        for contig, length in lengths.items():
            places = sorted(draw.sample(range(1, length - 9), length // 60))
            for at in sorted([0, 1, length, length + 1, *places, *draw.sample(places, 9)]):  # some places twice, as split records have them
                ref = "ACGTA"[: draw.choice([1, 1, 1, 1, 3, 5])] if at < length - 9 else "A"
                alts = ",".join(draw.sample(["C", "G", "T", "CCC", "AT", "CTTCT", "*"], draw.choice([1, 1, 1, 2]))) if draw.random() < 0.95 else "."
                self.records.append([contig, str(at), draw.choice([".", "rs1"]), ref, alts, draw.choice(["30.5", "."]),
                                     draw.choice([".", ".", "PASS", "q10", "q10;s50"]),
                                     draw.choice([".", "DP=7", "VQSLOD=99;DP=3;culprit=old", "DB;END=%d" % (at + len(ref) - 1), "AC=1;;X=a=b;"]),
                                     "GT:DP", "0/1:5", draw.choice(["./.", "1|1:3"])])
        for number, record in enumerate(self.records):
            if kind(record) and draw.random() < 0.8:
                flags = draw.choice(["", "POSITIVE_TRAIN_SITE;", "NEGATIVE_TRAIN_SITE;"])
                self.said[number] = f"{flags}VQSLOD={draw.choice(LODS):.4f};culprit={draw.choice(['QD', 'NULL'])}"
        last = {}  # records of one place and end are told apart by their order alone, so both are in the recal file
        for number, record in enumerate(self.records):
            place = (record[0], record[1], len(record[3]), kind(record))
            if place in last and kind(record):
                self.said.setdefault(last[place], "VQSLOD=2.0000;culprit=QD")
                self.said.setdefault(number, "VQSLOD=1.0000;culprit=FS")
            last[place] = number
        own = ['##FILTER=<ID=q10,Description="q">', '##FILTER=<ID=s50,Description="s">', '##FILTER=<ID=PASS,Description="old">', '##FILTER=<ID=PASSED,Description="other">',
                '##FILTER=<ID=VQSRTrancheSNP99.90to100.00+,Description="stale">', RECAL_INFO[3], '##INFO=<ID=culprit,Number=1,Type=String,Description="own">', *(f'##INFO=<ID={key},Number=.,Type=String,Description="d">' for key in ("DP", "DB", "AC", "X")),
                "##long=" + "x" * 9000, *(f'##FORMAT=<ID={key},Number=1,Type=String,Description="g">' for key in ("GT", "DP"))]
        self.header = header(lengths, own, ["FORMAT", "s1", "s2"])
        self.vcf = indexed(folder / "calls.vcf", self.header + self.body(self.records))
        for model in ("SNP", "INDEL"):
            lines = [[r[0], r[1], ".", "N", "<VQSR>", ".", ".", f"END={int(r[1]) + len(r[3]) - 1};{self.said[n]}"]
                     for n, r in enumerate(self.records) if n in self.said and kind(r) == model]
            setattr(self, model, indexed(folder / f"{model}.vcf", header(lengths, RECAL_INFO) + self.body(lines)))
        (folder / "tranches").write_text(tranches_text())

    @staticmethod
    def body(records):
        return "".join("\t".join(r) + "\n" for r in records)

    def after(self, models, sensitivity=None, cutoff=0.0):
        """The records after runs for `models`, by the rules as they read."""
        changed = []
        for number, record in enumerate(self.records):
            record, model = list(record), kind(record)
            if number in self.said and model in models:
                new = dict(item.partition("=")[::2] for item in self.said[number].split(";"))
                old = {i.partition("=")[0]: i.partition("=")[2] for i in record[7].split(";") if i not in ("", ".")}
                old.update(new)
                record[7] = ";".join(k + ("=" + v if v or k == "X" else "") for k, v in old.items())
                name = self.filter(model, float(new["VQSLOD"]), sensitivity, cutoff)
                if record[6].upper() in (".", "PASS"):
                    record[6] = name
                elif name != "PASS":
                    record[6] += ";" + name
            changed.append(record)
        return changed

    @staticmethod
    def filter(model, lod, sensitivity, cutoff):
        if sensitivity is None:
            return "LOW_VQSLOD" if lod < cutoff else "PASS"
        cuts = [(target, least) for target, least, of in TRANCHES if of == model]
        names = {cut[0]: f"VQSRTranche{model}{below:.2f}to{cut[0]:.2f}" for below, cut in zip([0, *(t for t, _ in cuts)], cuts)}
        (_, passing), *worse = [cut for cut in cuts if cut[0] >= sensitivity]
        return "PASS" if lod >= passing else next((names[t] for t, least in worse if lod >= least), names[100] + "+")


@pytest.fixture(scope="module")
def calls(sample, tmp_path_factory):
    return Calls(tmp_path_factory.mktemp("calls"), sample.lengths)


@pytest.fixture
def apply(run, sample, calls):
    def call(output, *more, vcf=None, model="SNP", recal=None, tranches=None, driver=("-t", 2, "--shard_param", "3000/500")):
        return run("-r", sample.reference, *driver, "--algo", "ApplyVarCal", "--vcf", vcf or calls.vcf, "--var_type", model, "--recal",
                   recal or getattr(calls, model), "--tranches_file", tranches or calls.folder / "tranches", "--ignore_input_filters", "q10", "--ignore_input_filters", "s50", *more, output, env=ENV)

    return call


def content(path):
    """Header lines and records of a file that bcftools reads without a word."""
    read = subprocess.run(["bcftools", "view", path], capture_output=True, text=True)
    assert (read.returncode, read.stderr) == (0, "")
    lines = pysam.BGZFile(str(path)).read().decode() if str(path).endswith("gz") else path.read_text()
    lines = lines.splitlines()
    return [l for l in lines if l.startswith("#")], [l.split("\t") for l in lines if not l.startswith("#")]


@pytest.mark.parametrize("options, settings, new", [
    (["--sensitivity", 99], {"sensitivity": 99}, [
        ("VQSRTrancheSNP99.90to100.00", "Truth sensitivity tranche level for SNP model at VQS Lod: -20.000000 <= x < -0.750000"),
        ("VQSRTrancheSNP99.00to99.90", "Truth sensitivity tranche level for SNP model at VQS Lod: -0.750000 <= x < 1.500000"),
        ("VQSRTrancheSNP99.90to100.00+", "Truth sensitivity tranche level for SNP model at VQS Lod < -20.000000")]),
    (["--sensitivity", 100], {"sensitivity": 100}, [
        ("VQSRTrancheSNP99.90to100.00+", "Truth sensitivity tranche level for SNP model at VQS Lod < -20.000000")]),
    (["--vqslod_cutoff", -4], {"cutoff": -4.0}, [("LOW_VQSLOD", "VQSLOD < -4.000000")]),
    ([], {}, [("LOW_VQSLOD", "VQSLOD < 0.000000")]),
])
def test_records_and_header(apply, calls, tmp_path, options, settings, new):
    for output, driver in (("a.vcf.gz", ("-t", 2, "--shard_param", "3000/500")), ("b.vcf", ("-t", 1))):
        result = apply(output, *options, driver=driver)
        assert result.returncode == 0, result.stderr
        lines, records = content(tmp_path / output)
        assert records == calls.after(["SNP"], **settings)
    dropped = {"PASS", *(name for name, _ in new)}
    kept = [l for l in calls.header.splitlines()[:-1] if l.partition("=<ID=")[2].partition(",")[0] not in dropped]
    filters = [f'##FILTER=<ID={name},Description="{text}">' for name, text in [*new, ("PASS", "Passed all filters")]]
    assert lines[:-2] == kept + RECAL_INFO[:3] + filters  # the others are there
    assert lines[-2].startswith("##TorvesinCommandLine.ApplyVarCal=<ID=ApplyVarCal,") and " --var_type SNP " in lines[-2]
    assert lines[-1].startswith("#CHROM\t")
    tabix = subprocess.run(["tabix", tmp_path / "a.vcf.gz", "chr2:3000-6000"], capture_output=True, text=True, check=True).stdout
    assert len(tabix.splitlines()) >= sum(r[0] == "chr2" and 3000 <= int(r[1]) <= 6000 for r in records) > 20


def test_either_order_of_types_any_threads_and_shards(run, apply, calls, tmp_path):
    ends = []
    for first, second, driver in (("SNP", "INDEL", ("-t", 1)), ("INDEL", "SNP", ("-t", 3, "--shard_param", "700/300"))):
        assert apply("one.vcf.gz", "--sensitivity", 99, model=first, driver=driver).returncode == 0
        assert apply("two.vcf.gz", "--sensitivity", 99, model=second, vcf="one.vcf.gz", driver=driver).returncode == 0
        lines, records = content(tmp_path / "two.vcf.gz")
        assert records == calls.after(["SNP", "INDEL"], sensitivity=99)
        ends.append(sorted(l for l in lines if "CommandLine" not in l))
    assert ends[0] == ends[1]
    texts = []
    for threads in (1, 4):  # the command line itself is not among the shared bytes
        assert apply("same.vcf.gz", driver=("-t", threads, "--shard_param", "500/100")).returncode == 0
        texts.append((content(tmp_path / "same.vcf.gz")[1], sorted(p.name for p in tmp_path.glob("same*"))))
    assert texts[0] == texts[1] and texts[0][1] == ["same.vcf.gz", "same.vcf.gz.tbi"]
    shards = ["chr1:1-7278", "chr1:7279-", "chr2,chr3"]
    for number, shard in enumerate(shards):
        assert apply(f"part{number}.vcf.gz", driver=("--shard", shard)).returncode == 0
    merged = run("--algo", "ApplyVarCal", "--merge", "merged.vcf.gz", *(f"part{number}.vcf.gz" for number in range(3)))
    assert merged.returncode == 0, merged.stderr
    assert content(tmp_path / "merged.vcf.gz")[1] == texts[0][0]


@pytest.mark.parametrize("broken, told", [
    (tranches_text().replace("Version number 5", "Version number 6"), "Unsupported tranche file {}"),
    (tranches_text().replace(",8,0.8889", ""), "Unsupported tranche file {}"),
    (tranches_text().replace("0.8889", "0.8889,1"), "Unsupported tranche file {}"),
    (tranches_text()[:-14], "Unsupported tranche file {}"),
    (TITLES[:-14], "Unsupported tranche file {}"),
    (tranches_text().replace("1.5000", "nan"), "Unsupported tranche file {}"),
    (tranches_text().replace("1.5000", "-0.8000"), "Unsupported tranche file {}"),  # below that of a higher target
    (tranches_text().replace("to99.00", "to;99"), "Unsupported tranche file {}"),
    ("", "Unsupported tranche file {}"),
    (tranches_text().replace(",INDEL,", ",OTHER,"), "Unsupported model=OTHER in tranche file {}"),
    (tranches_text([(100.5, 0, "SNP")]), "Target false discovery rate(FDS) is unreasonable 100.500000"),
], ids=range(11))
def test_tranches_files_that_do_not_fit(apply, tmp_path, broken, told):
    path = tmp_path / "broken"
    path.write_text(broken)
    result = apply("out.vcf", "--sensitivity", 99, tranches=path)
    assert result.returncode != 0 and told.format(path) in result.stderr
    assert not (tmp_path / "out.vcf").exists()


def test_no_tranche_of_the_type_is_a_warning(apply, tmp_path):
    (tmp_path / "indel").write_text(tranches_text(TRANCHES[4:]))
    result = apply("out.vcf.gz", "--sensitivity", 99, tranches=tmp_path / "indel")
    assert result.returncode == 0 and "Warning: no tranche in the tranches file.\n" in result.stderr
    told = "Warning: no tranche from --sensitivity 99.95 up but that of 100: the cut is VQSLOD -20.0000\n"
    assert [told in apply("out.vcf.gz", "--sensitivity", s).stderr for s in (99.95, 99.904, 100)] == [True, False, False]


@pytest.mark.parametrize("info, told", [
    ("END=101;culprit=QD", "no VQSLOD in the line of chr1:101 of"), ("END=101;VQSLOD=;culprit=QD", "VQSLOD is no number"),
    ("END=101;VQSLOD=1x", "VQSLOD is no number"), ("END=101;VQSLOD=nan", "VQSLOD is no number"),
    ("VQSLOD=1;" + ";".join(f"K{i}=1" for i in range(101)), "too many INFO fields")])
def test_recal_lines_that_say_nothing(apply, calls, tmp_path, info, told):
    vcf = indexed(tmp_path / "in.vcf", header(calls.lengths) + "chr1\t101\t.\tA\tC\t.\t.\t.\n")
    recal = indexed(tmp_path / "recal.vcf", header(calls.lengths) + f"chr1\t101\t.\tN\t<VQSR>\t.\t.\t{info}\n")
    result = apply("out.vcf", vcf=vcf, recal=recal)
    assert result.returncode != 0 and told in result.stderr and str(recal) in result.stderr
    assert not [*tmp_path.glob("out.vcf*")]


def test_recal_files_of_another_run(apply, calls, tmp_path):
    lines = "chr1\t101\t.\tA\tC\t.\t.\t.\n"
    vcf = indexed(tmp_path / "in.vcf", header(calls.lengths) + lines)
    result = apply("out.vcf.gz", vcf=vcf, recal=indexed(tmp_path / "e.vcf", header(calls.lengths) + "chr1\t101\t.\tN\t<V>\t.\t.\tEND=102;VQSLOD=1\n"))
    assert result.returncode == 0 and "Warning: none of 1 SNP records of" in result.stderr  # END differs
    assert content(tmp_path / "out.vcf.gz")[1] == [lines.split()]
    for lengths, listed in (({"chr1": 999}, True), ({"other": 5000}, True), ({"other": 5000}, False)):
        contig = next(iter(lengths))
        foreign = indexed(tmp_path / "f.vcf", header(lengths if listed else {}) + f"{contig}\t101\t.\tN\t<V>\t.\t.\tEND=101;VQSLOD=1\n")
        for files in ({"recal": foreign}, {"vcf": foreign}):
            result = apply("never.vcf", **files)
            assert result.returncode != 0 and f"ApplyVarCal: Contigs in vcf {foreign} are not compatible with reference" in result.stderr
    os.truncate(calls.folder / "INDEL.vcf.gz", (calls.folder / "INDEL.vcf.gz").stat().st_size // 2)
    result = apply("never.vcf", model="INDEL")
    assert result.returncode != 0 and str(calls.INDEL) in result.stderr


def test_arguments_and_files_that_are_not_there(run, apply, sample, calls, tmp_path):
    whole = ["--vcf", calls.vcf, "--recal", calls.SNP, "--tranches_file", calls.folder / "tranches", "out.vcf"]

    def told(args, reference=("-r", sample.reference)):
        result = run(*reference, "--algo", "ApplyVarCal", *args)
        assert result.returncode == 1
        return result.stderr

    assert "ApplyVarCal: missing reference" in told(whole, ())
    for gone, text in ((0, "missing input vcf file"), (2, "missing option --recal"), (4, "missing option --tranches_file")):
        assert f"ApplyVarCal: {text}" in told(whole[:gone] + whole[gone + 2 :])
    for args, text in ((whole[:-1], "missing output file"), ([*whole, "more"], "extra argument after output"),
                       (["--sensitivity", "9", "--vqslod_cutoff", "0", *whole], "cannot set both --sensitivity and --vqslod_cutoff"),
                       (["--sensitivity", "101", *whole], "invalid sensitivity 101"), (["--vqslod_cutoff", "1x", *whole], "invalid vqslod_cutoff 1x"),
                       (["--recal", calls.SNP, *whole], "--recal duplicated"), (["--var_type", "MNP", *whole], "invalid var_type MNP"), (["--bogus", *whole], "unknown option")):
        assert f"ApplyVarCal: {text}" in told(args)
    for option in ("vcf", "recal"):
        result = apply("out.vcf", **{option: "gone.vcf.gz"})
        assert result.returncode != 0 and "ApplyVarCal: Failed to open file gone.vcf.gz, No such file or directory" in result.stderr
    assert "cannot open file gone, No such file" in apply("out.vcf", "--sensitivity", 9, tranches="gone").stderr
    assert "failed to open output file no/out.vcf" in apply("no/out.vcf").stderr
    os.link(calls.vcf, tmp_path / "bare.vcf.gz")
    assert "Failed to load index for bare.vcf.gz" in apply("out.vcf", vcf="bare.vcf.gz").stderr
    full = run("-r", sample.reference, "--algo", "ApplyVarCal", *whole[:-1], "/dev/full")
    assert full.returncode != 0 and "/dev/full" in full.stderr
    for shard in ("90000/500", "1000/500"):  # the file of a shard has no room, or the output itself
        cut = run("-r", sample.reference, "--shard_param", shard, "--algo", "ApplyVarCal", *whole[:-1], "cut.vcf",
                  preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (8000, 8000)))
        assert cut.returncode != 0 and "File too large" in cut.stderr and not [*tmp_path.glob("cut.vcf*")]
