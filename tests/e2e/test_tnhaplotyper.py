"""TNhaplotyper: a simulated tumor beside its normal, alone and with faults, however the reads come in, and bad input."""

import collections
import math
import os
import random
import re
import shutil
import subprocess

import pysam
import pytest

from test_genotyper import records_of, same_but_command, text_of

SAMPLES = ["--tumor_sample", "TUMOR", "--normal_sample", "NORMAL"]


@pytest.fixture(scope="module")
def pair(simulate, tmp_path_factory):
    """pair(option=value): a folder with a tumor, its normal and what is true of them; made once."""
    made = {}

    def make(**options):
        key = tuple(sorted(options.items()))
        if key not in made:
            made[key] = tmp_path_factory.mktemp("pair")
            words = [w for k, v in options.items() for w in (f"--{k.replace('_', '-')}", str(v))]
            subprocess.run([simulate, "--out-dir", made[key], "--contigs", "chr1:120000,chr2:40000", "--samples", "NORMAL",
                            "--tumor", "TUMOR", "--flag-duplicates", *words], check=True, stdout=subprocess.DEVNULL)
        return made[key]

    return make


@pytest.fixture
def call(run, tmp_path):
    """call(folder, output, *options, bams, head): the output's path, after a run that went well."""

    def somatic(folder, output, *options, bams=("TUMOR", "NORMAL"), head=("-t", 2), samples=SAMPLES):
        reads = [word for bam in bams for word in ("-i", folder / f"{bam}.bam")]
        done = run(*head, "-r", folder / "reference.fa", *reads, "--algo", "TNhaplotyper", *samples, *options, output)
        assert done.returncode == 0, done.stderr
        return tmp_path / output

    return somatic


def key(record):
    return record.contig, record.pos, record.ref, record.alts[0]


def passing(path):
    return {key(r) for r in records_of(path) if r.filter == "PASS"}


def test_finds_the_truth(call, pair):
    folder = pair(seed=11)
    path = call(folder, "out.vcf.gz", "-d", folder / "known_sites.vcf.gz", "--cosmic", folder / "cosmic.vcf.gz", "--pon", folder / "pon.vcf.gz")
    truth = {key(r): float(r.info["AF"]) for r in records_of(folder / "somatic.vcf.gz")}
    found = passing(path)
    clear = {k for k, fraction in truth.items() if fraction >= 0.1}
    assert len(clear) > 50 and len(found & clear) >= 0.94 * len(clear), sorted(clear - found)
    assert len(found - set(truth)) <= 1, sorted(found - set(truth))
    faint = {k for k, fraction in truth.items() if fraction < 0.1}
    assert len(found & faint) >= 0.5 * len(faint)
    known = {key(r) for r in records_of(folder / "known_sites.vcf.gz")}
    filters = set(re.findall("##FILTER=<ID=([^,]*)", text_of(path)))
    for record in records_of(path):
        assert record.qual == "." and set(record.filter.split(";")) <= filters | {"PASS"}
        assert (record.samples[0]["GT"], record.samples[1]["GT"]) == ("0/1", "0/0") and ("DB" in record.info) == (key(record) in known)
        tlod, nlod = float(record.info["TLOD"]), float(record.info["NLOD"])
        assert tlod >= 4 and nlod >= 0.5 and ("t_lod_fstar" in record.filter) == (tlod < 6.3), record.line
        assert ("germline_risk" in record.filter) >= (nlod < 2.2) and len(record.alts) == 1
    with pysam.VariantFile(str(path)) as file:
        assert list(file.header.samples) == ["TUMOR", "NORMAL"] and sum(1 for _ in file) == len(records_of(path))


def test_filters_faults_and_leaves_a_normal_alone(call, pair):
    faults = {"strand_artefact_rate": 0.0002, "end_artefact_rate": 0.0002, "oxidation_rate": 0.0004}
    folder = pair(seed=12, somatic_snv_rate=0, somatic_indel_rate=0, **faults)
    planted = {(r.contig, r.pos) for r in records_of(folder / "artefacts.vcf.gz")}
    open_to_all = call(folder, "all.vcf", "--filter_artefacts", 0)
    filtered = call(folder, "filtered.vcf")
    assert [r.line.split("\t")[:5] for r in records_of(open_to_all)] == [r.line.split("\t")[:5] for r in records_of(filtered)]
    assert len(passing(open_to_all)) > 10 and len(passing(filtered)) <= 0.3 * len(passing(open_to_all))
    assert {k[:2] for k in passing(filtered)} <= planted
    used = set(";".join(r.filter for r in records_of(filtered)).split(";"))
    assert {"strand_artefact", "read_end_artefact", "oxidation_artefact"} <= used
    clean = pair(seed=13, somatic_snv_rate=0, somatic_indel_rate=0)
    assert not passing(call(clean, "clean.vcf"))


def test_same_calls_however_the_reads_come(call, run, pair, tmp_path):
    folder = pair(seed=11)
    small = ["--shard_param", "5000/500"]
    options = ["--tumor_contamination_frac", "0.02"]
    whole = call(folder, "whole.vcf.gz", *options, head=["-t", 1])
    assert len(passing(whole)) > 50
    # The tumor in two files of one read group each, the normal in front.
    with pysam.AlignmentFile(folder / "TUMOR.bam") as source:
        header = source.header.to_dict()
        group = header["RG"][0]
        for part in (0, 1):
            header["RG"] = [{**group, "ID": f"part{part}"}]
            with pysam.AlignmentFile(tmp_path / f"part{part}.bam", "wb", header=header) as out:
                for read in source.fetch(until_eof=True):
                    if sum(read.query_name.encode()) % 2 == part:
                        read.set_tag("RG", f"part{part}")
                        out.write(read)
            source.reset()
            pysam.index(str(tmp_path / f"part{part}.bam"))
    pysam.merge("-f", str(tmp_path / "both.bam"), str(folder / "NORMAL.bam"), str(folder / "TUMOR.bam"))
    pysam.index(str(tmp_path / "both.bam"))
    for name, bams, head in (("order", ("NORMAL", "TUMOR"), ["-t", 8, *small]), ("both", [tmp_path / "both"], ["-t", 2, "--shard_param", "1000000/1000"]),
                             ("parts", ("NORMAL", tmp_path / "part1", tmp_path / "part0"), ["-t", 2])):
        assert same_but_command(call(folder, f"{name}.vcf.gz", *options, bams=bams, head=head)) == same_but_command(whole), name
    for i, region in enumerate(("chr1:1-45000", "chr1:45001-120000", "chr2:1-40000")):
        call(folder, f"{i}.vcf.gz", *options, head=["-t", 2, *small, "--shard", region])
    assert run("--algo", "TNhaplotyper", "--merge", "merged.vcf.gz", "0.vcf.gz", "1.vcf.gz", "2.vcf.gz").returncode == 0
    assert same_but_command(tmp_path / "merged.vcf.gz") == same_but_command(whole)


def test_events_of_one_region(call, pair, tmp_path):
    folder = pair(seed=13, somatic_snv_rate=0, somatic_indel_rate=0)
    # Of a third of the fragments, the bases at so many positions are others: 2 in one region, 3 in the next, and in the
    # last 2 of which the second is of other fragments; 200 bases on one that is alone.
    places = [9999, 10019, 14999, 15011, 15029, 11999, 12199]
    apart = 12015
    with pysam.AlignmentFile(folder / "NORMAL.bam") as source:
        header = source.header.to_dict()
        header["RG"] = [{**group, "ID": "t", "SM": "TUMOR"} for group in header["RG"][:1]]
        with pysam.AlignmentFile(tmp_path / "made.bam", "wb", header=header) as out:
            for read in source.fetch("chr2"):
                third = sum(read.query_name.encode()) % 3
                if read.query_sequence and third < 2:
                    bases, quals = list(read.query_sequence), read.query_qualities
                    for offset, place in read.get_aligned_pairs(matches_only=True):
                        if place in ([apart] if third else places):
                            bases[offset] = "ACGT"[("ACGT".index(bases[offset]) + 1) % 4]
                    read.query_sequence, read.query_qualities = "".join(bases), quals
                read.set_tag("RG", "t")
                out.write(read)
    pysam.index(str(tmp_path / "made.bam"))
    found = records_of(call(folder, "out.vcf", bams=[tmp_path / "made", "NORMAL"], head=["-t", 2, "--interval", "chr2:9000-16000"]))
    assert [r.pos for r in found] == sorted(place + 1 for place in (*places, apart))
    two, trans, (alone,), three = found[:2], found[2:4], found[4:5], found[5:]
    events = lambda record: tuple(record.info[name] for name in ("ECNT", "MAX_ED", "MIN_ED"))  # noqa: E731
    assert all(r.filter == "PASS" and events(r) == ("2", "20", "20") for r in two)
    assert all(r.filter == "PASS" and events(r) == ("2", "16", "16") for r in trans)
    assert alone.filter == "PASS" and events(alone) == ("1", ".", ".") and "PID" not in alone.samples[0]
    assert all(r.filter == "homologous_mapping_event;clustered_events" for r in three)
    assert all(events(r) == ("3", "18", "12") for r in three)
    # There are reads of neither: which chromosomes the two lie on is not known.
    assert all(r.samples[0].get("PGT", ".") == "." for r in trans)
    for group in (two, three):
        first = group[0]
        assert all(r.samples[0]["PGT"] == "0|1" and r.samples[0]["PID"] == f"{first.pos}_{first.ref}_{first.alts[0]}" for r in group)
        assert all(r.samples[1].get("PID", ".") == "." for r in group)


def best_of(row):
    return row.index(max(row))


def ahead(row):
    """The allele that the read has, or None."""
    first, second = sorted(row, reverse=True)[:2]
    return best_of(row) if first - second > 0.2 else None


def overlapped(reads):
    """Of the reads (sample, name, row) those whose mate speaks for the fragment, as indexes."""
    kept, gone = {}, set()
    for i, (sample, name, row) in enumerate(reads):
        j = kept.setdefault((sample, name), i)
        if i == j:
            continue
        other = reads[j][2]
        best = best_of([a + b for a, b in zip(row, other)])
        loser = j if other[best] < row[best] else i
        gone.add(loser)
        kept[sample, name] = i + j - loser
    return gone


def recount_lods(reads, alleles):
    """(TLOD, NLOD) by alternate of reads (sample, row), over plain probabilities."""
    lods = []
    for a in range(1, alleles):
        seen = collections.Counter(ahead(row) for sample, row in reads if sample == "tumor")
        n = seen[0] + seen[a]
        f = min(max(seen[a] / n, 1 / (n + 1)), n / (n + 1)) if n else 0
        tumor = sum(math.log10(1 - f + f * 10 ** (row[a] - row[0])) for sample, row in reads if sample == "tumor")
        normal = sum(-math.log10(0.5 + 0.5 * 10 ** (row[a] - row[0])) for sample, row in reads if sample == "normal")
        lods.append((tumor, normal))
    return lods


@pytest.mark.parametrize("fractions", [(0, 0), (0.05, 0.02)])
def test_scores_agree_with_a_recount_of_the_likelihoods(call, run, pair, tmp_path, fractions):
    folder = pair(seed=14, insert="200/40")  # most mates overlap
    options = ["--tumor_contamination_frac", fractions[0], "--normal_contamination_frac", fractions[1]]
    records = records_of(call(folder, "out.vcf", *options))
    places = random.Random(5).sample(records, 60)
    told = run("-t", 2, "-r", folder / "reference.fa", "-i", folder / "TUMOR.bam", "-i", folder / "NORMAL.bam", "--algo", "TNhaplotyper", *SAMPLES,
               *options, "told.vcf", env={**os.environ, "dbgloc": ",".join(f"{r.contig}:{r.pos}#1" for r in places)})
    assert told.returncode == 0 and same_but_command(tmp_path / "told.vcf") == same_but_command(tmp_path / "out.vcf")
    loci = collections.defaultdict(list)
    for contig, pos, sample, name, status, row in re.findall(r"^(chr\d):(\d+) (tumor|normal) (\S+) (\d+) (.*)$", told.stderr, re.M):
        loci[contig, int(pos)].append((sample, name, int(status), [float(x) for x in row.split()]))
    assert {(r.contig, r.pos) for r in places} <= loci.keys()
    found, fragments, contaminants = {(r.contig, r.pos): r for r in records}, 0, 0
    for place, reads in loci.items():
        gone = overlapped([(sample, name, row) for sample, name, _, row in reads])
        assert gone == {i for i, read in enumerate(reads) if read[2] & 64}, place
        fragments += len(gone)
        alleles = len(reads[0][3])
        for sample, fraction in zip(("tumor", "normal"), fractions):
            best = [(best_of(row), status & 128) for i, (of, _, status, row) in enumerate(reads) if of == sample and i not in gone]
            counts = [sum(a == allele for a, _ in best) for allele in range(alleles)]
            taken = [sum(a == allele and bits > 0 for a, bits in best) for allele in range(alleles)]
            total = int(fraction * len(best))
            half_of_each = all(n >= min(count, total // 2) for n, count in zip(taken, counts))
            assert sum(taken) == total and (alleles > 2 or half_of_each), (place, sample, counts, taken)
            contaminants += total
        counting = [(sample, row) for sample, _, status, row in reads if not status & 192]
        lods = recount_lods(counting, alleles)
        near = any(abs(tlod - 4) < 0.01 or abs(nlod - 0.5) < 0.01 for tlod, nlod in lods)
        passing_alleles = [a for a, (tlod, nlod) in enumerate(lods) if tlod >= 4 and nlod >= 0.5]
        assert near or (place in found) == bool(passing_alleles), (place, lods)
        if place not in found or near:
            continue
        record = found[place]
        tlod, nlod = lods[passing_alleles[-1]]
        # Printed with two digits, summed by a table.
        assert abs(float(record.info["TLOD"]) - tlod) < 0.02 and abs(float(record.info["NLOD"]) - nlod) < 0.02, (record.line, lods)
        assert ("triallelic_site" in record.filter) == (len(passing_alleles) > 1)
        for column, sample in zip(record.samples, ("tumor", "normal")):
            rows = [row for of, row in counting if of == sample]
            depths = [sum(ahead(row) == allele for row in rows) for allele in (0, passing_alleles[-1] + 1)]
            assert column["DP"] == str(len(rows)) and column["AD"] == ",".join(map(str, depths)), (place, sample)
    assert fragments > 1000 and (contaminants > 100) == (fractions[0] > 0)


def write_sites(path, records, shift=0):
    """An indexed VCF of SNPs at the records' places, or so many bases on."""
    header = "##fileformat=VCFv4.2\n##contig=<ID=chr1,length=120000>\n##contig=<ID=chr2,length=40000>\n#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n"
    path.write_text(header + "".join(f"{r.contig}\t{r.pos + shift}\trs{r.pos}\t{r.ref}\t{r.alts[0]}\t.\t.\t.\n" for r in records))
    return pysam.tabix_index(str(path), preset="vcf", force=True)


def test_each_filter_just_on_either_side(call, pair, tmp_path):
    folder = pair(seed=11)
    head = ["-t", 2, "--interval", "chr2"]
    snps = [r for r in records_of(call(folder, "plain.vcf", head=head)) if r.filter == "PASS" and len(r.ref) == len(r.alts[0]) == 1]
    record = min(snps, key=lambda r: float(r.info["NLOD"]))
    tlod, nlod, fraction = float(record.info["TLOD"]), float(record.info["NLOD"]), float(record.samples[0]["AF"])
    known, beside = write_sites(tmp_path / "known.vcf", [record]), write_sites(tmp_path / "beside.vcf", [record], 1)
    dbsnp = ["-d", known, "--min_normal_lod", -1000, "--min_dbsnp_normal_lod"]
    for options, fails, holds in (
            (["--min_tumor_lod"], [tlod + 0.01], [tlod - 0.01]),
            (["--min_normal_lod"], [nlod + 0.01], [nlod - 0.01]),
            (dbsnp, [nlod + 0.01], [nlod - 0.01]),
            (dbsnp, [nlod + 0.01], [nlod + 0.01, "--cosmic", known]),
            (dbsnp, [nlod + 0.01, "--cosmic", beside], [nlod - 0.01, "--cosmic", beside]),
            (["--min_tumor_allele_frac"], [fraction + 0.001], [fraction - 0.001]),
            (["--min_tumor_allele_frac", fraction + 0.001], [], ["--filter_t_alt_frac", 0]),
            (["--pon"], [known], [beside]),
            (["--pon", known], [], ["--detect_pon"]),
            (["--min_init_tumor_lod"], [tlod + 0.01], [tlod - 0.01]),
            (["--min_init_normal_lod"], [nlod + 0.01], [nlod - 0.01])):
        name = {"--min_tumor_lod": "t_lod_fstar", "--min_tumor_allele_frac": "low_t_alt_frac", "--pon": "panel_of_normals",
                "--min_init_tumor_lod": None, "--min_init_normal_lod": None}.get(options[0], "germline_risk")
        for words, expected in (fails, name), (holds, "PASS"):
            found = [r.filter for r in records_of(call(folder, "out.vcf", *options, *words, head=head)) if key(r) == key(record)]
            assert found == [expected] * (expected is not None), (options, words)


def test_without_a_normal(call, pair):
    folder = pair(seed=11)
    alone = ["--tumor_sample", "TUMOR"]
    path = call(folder, "alone.vcf", "--use_real_sample_name", bams=["TUMOR"], samples=alone, head=["-t", 2, "--interval", "chr2"])
    records = records_of(path)
    assert records and all("NLOD" not in r.info and len(r.samples) == 1 and "normal" not in r.filter and "germline" not in r.filter for r in records)
    germline = {key(r) for r in records_of(folder / "truth.vcf.gz") if r.contig == "chr2" and len(r.alts) == 1}
    assert len(passing(path) & germline) >= 0.8 * len(germline)
    # A panel of these calls removes them, but not from the next member of the panel.
    panel = make_vcf_indexed(path)
    options = ["--pon", panel]
    head = ["-t", 2, "--interval", "chr2"]
    again = call(folder, "again.vcf", *options, bams=["TUMOR"], samples=alone, head=head)
    assert not passing(again) and all("panel_of_normals" in r.filter and int(r.info["PON"]) >= 1 for r in records_of(again))
    detected = call(folder, "detected.vcf", *options, "--detect_pon", bams=["TUMOR"], samples=alone, head=head)
    assert passing(detected) == passing(path)


def make_vcf_indexed(path):
    return pysam.tabix_index(str(path), preset="vcf", keep_original=True, force=True)


def test_bad_input(run, pair, tmp_path):
    folder = pair(seed=11)
    base = ["-r", folder / "reference.fa", "-i", folder / "TUMOR.bam", "-i", folder / "NORMAL.bam", "--algo", "TNhaplotyper"]
    other = tmp_path / "other.vcf.gz"
    with pysam.VariantFile(str(other), "w", header=pysam.VariantHeader()) as file:
        file.header.add_line("##contig=<ID=chr9,length=5>")
    pysam.tabix_index(str(other), preset="vcf", force=True)
    bare = tmp_path / "bare.vcf"
    bare.write_text("##fileformat=VCFv4.2\n#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n")
    for options, text in (
            ([], "missing tumor sample"),
            (["--tumor_sample", "X", "--normal_sample", "NORMAL"], "tumor sample SM tag is not present in the bam file"),
            (["--tumor_sample", "TUMOR", "--normal_sample", "X"], "normal sample SM tag is not present in the bam file"),
            (["--tumor_sample", "TUMOR", "--normal_sample", "TUMOR"], "tumor and normal are the same sample TUMOR"),
            (["--tumor_sample", "TUMOR"], "the input bam file has SM tags that are not being used"),
            ([*SAMPLES, "--tumor_sample", "B"], "multiple tumor sample id"),
            ([*SAMPLES, "--normal_sample", "B"], "multiple normal sample id"),
            ([*SAMPLES, "--pon", other], f"Contigs in vcf {other} are not compatible with reference"),
            ([*SAMPLES, "--cosmic", other], f"Contigs in vcf {other} are not compatible with reference"),
            ([*SAMPLES, "--tumor_contamination_frac", "1"], "invalid tumor_contamination_frac 1"),
            ([*SAMPLES, "--normal_contamination_frac", "-0.1"], "invalid normal_contamination_frac -0.1"),
            *(([*SAMPLES, "--tumor_contamination_frac", f], f"invalid tumor_contamination_frac {f}") for f in (-1, "nan", "abc", "")),
            ([*SAMPLES, "--min_tumor_lod", "nan"], "invalid min_tumor_lod nan"),
            ([*SAMPLES, "--phasing", "2"], "invalid phasing 2"),
            *(([*SAMPLES, f"--{option}", ""], f"empty file name of --{option}") for option in ("dbsnp", "cosmic", "pon")),
    ):
        done = run(*base, *options, "out.vcf")
        assert done.returncode != 0 and f"TNhaplotyper: {text}" in done.stderr and not (tmp_path / "out.vcf").exists(), done.stderr
    unindexed = shutil.copy(folder / "known_sites.vcf.gz", tmp_path)
    for option, path in (("--pon", bare), ("--pon", unindexed), ("--cosmic", unindexed), ("-d", unindexed), ("--pon", "none.vcf.gz")):
        done = run(*base, *SAMPLES, option, path, "out.vcf")
        assert done.returncode != 0 and str(path) in done.stderr and not (tmp_path / "out.vcf").exists(), done.stderr
    third = tmp_path / "third.bam"
    header = subprocess.run(["samtools", "view", "-H", folder / "TUMOR.bam"], check=True, text=True, capture_output=True).stdout
    subprocess.run(["samtools", "view", "-b", "-o", third], check=True, text=True, input=header.replace("SM:TUMOR", "SM:THIRD"))
    pysam.index(str(third))
    done = run(*base[:6], "-i", third, *base[6:], *SAMPLES, "out.vcf")
    assert done.returncode != 0 and "TNhaplotyper: the input bam file has SM tags that are not being used" in done.stderr
    cut = tmp_path / "cut.bam"
    cut.write_bytes((folder / "TUMOR.bam").read_bytes()[:100000])
    shutil.copy(folder / "TUMOR.bam.bai", tmp_path / "cut.bam.bai")
    done = run("-r", folder / "reference.fa", "-i", cut, "-i", folder / "NORMAL.bam", "--algo", "TNhaplotyper", *SAMPLES, "out.vcf")
    assert done.returncode != 0 and str(cut) in done.stderr and not (tmp_path / "out.vcf").exists()
    (tmp_path / "old.bcf").write_text("old")
    done = run(*base, *SAMPLES, "old.bcf")
    assert done.returncode != 0 and "output is VCF text, whose file name cannot be old.bcf" in done.stderr
    assert (tmp_path / "old.bcf").read_text() == "old"
    done = run(*base, *SAMPLES, "/dev/full")
    assert done.returncode != 0 and "/dev/full, No space left on device" in done.stderr
    assert run(*base, *SAMPLES, "--tumor_contamination_frac", "0.999", "most.vcf").returncode == 0
    assert not passing(tmp_path / "most.vcf")


def test_samples_without_reads(run, pair, tmp_path):
    folder = pair(seed=11)
    for name in ("TUMOR", "NORMAL"):
        with pysam.AlignmentFile(folder / f"{name}.bam") as source, pysam.AlignmentFile(tmp_path / f"{name}.bam", "wb", template=source):
            pass
        pysam.index(str(tmp_path / f"{name}.bam"))
    for tumor, normal, silent in ((folder, tmp_path, "normal"), (tmp_path, folder, "tumor"), (tmp_path, tmp_path, "tumor"), (folder, folder, None)):
        done = run("-t", 2, "-r", folder / "reference.fa", "-i", tumor / "TUMOR.bam", "-i", normal / "NORMAL.bam", "--algo", "TNhaplotyper",
                   *SAMPLES, "out.vcf")
        assert done.returncode == 0 and (len(records_of(tmp_path / "out.vcf")) > 0) == (silent is None)
        warning = f"Warning: TNhaplotyper: no reads of the {silent} sample" if silent else "Warning"
        assert (warning in done.stderr) == (silent is not None), done.stderr
