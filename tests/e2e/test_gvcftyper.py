"""GVCFtyper: beside a naive joint genotyper, from GVCFs made in other ways, at any thread count, in parts, on bad input."""

import math
import pathlib
import random
import re
import resource
import shutil
import subprocess

import pysam
import pytest

import naive_joint
from test_genotyper import ARGUMENT, RUN, accuracy, check_file, records_of, same_but_command, simulated, text_of  # noqa: F401

LENGTHS = {"c1": 1500, "c2": 400}


class Maker:
    """GVCF texts of a made-up cohort: what lies at a position is drawn from a few alleles that all samples share."""

    def __init__(self, seed, ploidies):
        self.draw = draw = random.Random(seed)
        self.ploidies, self.bases = ploidies, {}
        for contig, length in LENGTHS.items():  # few letters at a time, so that alleles end alike
            self.bases[contig] = "".join("".join(draw.choices(draw.choice(["ACGT", "AC", "T"]), k=5)) for _ in range(length // 5))
        self.pool = {(contig, start): [a for a in (self.allele(text, start) for _ in range(draw.choice([1, 1, 2, 3]))) if a[0] != a[1]]
                     for contig, text in self.bases.items() for start in range(len(text) - 8) if draw.random() < 0.15}

    def allele(self, text, start):
        draw = self.draw
        longest = draw.choice([1, 1, 2, 3, 6])
        first = text[start]
        return draw.choice([(first, draw.choice([b for b in "ACGT" if b != first])), (text[start : start + longest + 1], first),
                            (first, first + "".join(draw.choices("ACT", k=longest))),
                            (text[start : start + longest + 1], first + text[start] * draw.choice([1, 4]))])

    def genotype(self, alleles, ploidy, quiet):
        """GT and PL; of a block the likelihood falls with each copy that is not the reference."""
        draw = self.draw
        if quiet:
            step = draw.choice([0, 1, 3, 30, 60, 99])
            pl = [k * step + draw.choice([0, 1]) * (k > 0) for k in range(ploidy + 1)]
        else:
            widest = draw.choice([15, 60, 400, 900])
            pl = [draw.randrange(widest // 2, widest) for _ in naive_joint.genotypes(alleles, ploidy)]
            pl[draw.choice([0, *[draw.randrange(math.comb(alleles - 2 + ploidy, ploidy))] * 4])] = 0
        gt = naive_joint.genotypes(alleles, ploidy)[pl.index(min(pl))]
        pl = [value - min(pl) for value in pl]
        gt = "/".join(map(str, gt)) if draw.random() < 0.97 else "/".join("." * ploidy)
        return gt, ",".join(map(str, pl)) if draw.random() < 0.97 else "."

    def line(self, contig, start, ref, alts, info, ploidies):
        draw, block = self.draw, alts == ["<NON_REF>"]
        columns = []
        for ploidy in ploidies:
            gt, pl = self.genotype(len(alts) + 1, ploidy, block)
            ad, dp = [draw.randrange(30) for _ in range(len(alts) + 1)], draw.randrange(99)
            columns.append(f"{gt}:{dp}:9:{dp // 2}:{pl}" if block else f"{gt}:{','.join(map(str, ad))}:{sum(ad)}:9:x{dp}:{pl}:{dp},1,2,3")
        keys = "GT:DP:GQ:MIN_DP:PL" if block else "GT:AD:DP:GQ:PID:PL:SB"
        return "\t".join([contig, str(start + 1), ".", ref, ",".join(alts), ".", ".", info, keys, *columns])

    def text(self, names, header=True):
        """The GVCF of these samples, by number."""
        draw, ploidies, lines, spans = self.draw, [self.ploidies[n] for n in names], [], 0
        for contig, bases in self.bases.items():
            at, end = 0, 0  # of the next record; of the last one's REF
            while at < len(bases):
                pool = self.pool.get((contig, at), [])
                chosen = [allele for allele in pool if draw.random() < 0.5]
                if chosen:
                    ref = max((r for r, _ in chosen), key=len)
                    alts = list(dict.fromkeys(alt + ref[len(r) :] for r, alt in chosen))
                    spans = draw.random() < 0.5 and at < end
                    alts = alts + [draw.choice(["*", "<*:DEL>"])] * spans + ["<NON_REF>"] * (draw.random() < 0.97)
                    info = f"DP={draw.randint(1, 99)};MQRankSum={draw.random():.3f};RAW_MQ={draw.randrange(9999)}.000"
                    lines.append(self.line(contig, at, ref, alts, info, ploidies))
                    at, end = at + draw.choice([1, len(ref)]), at + len(ref)
                else:
                    until = min([at + draw.randint(1, 12), len(bases), *(p for c, p in self.pool if c == contig and p > at)])
                    if draw.random() < 0.9:
                        lines.append(self.line(contig, at, bases[at], ["<NON_REF>"], f"END={until}", ploidies))
                    at = until
        return self.header(names) + "\n".join(lines) + "\n"

    def header(self, names):
        made = ["##fileformat=VCFv4.2", '##ALT=<ID=NON_REF,Description="n">', "##GVCFBlock0-60=minGQ=0(inclusive),maxGQ=60(exclusive)",
                *(f"##contig=<ID={contig},length={len(bases)}>" for contig, bases in self.bases.items()),
                *(f'##FORMAT=<ID={key},Number=.,Type={kind},Description="d">' for key, kind in
                  [("GT", "String"), ("AD", "Integer"), ("DP", "Integer"), ("GQ", "Integer"), ("MIN_DP", "Integer"), ("PID", "String"),
                   ("PL", "Integer"), ("SB", "Integer")]),
                *(f'##INFO=<ID={key},Number=1,Type={kind},Description="d">' for key, kind in
                  [("DP", "Integer"), ("END", "Integer"), ("MQRankSum", "Float"), ("RAW_MQ", "Float")])]
        columns = ["#CHROM", "POS", "ID", "REF", "ALT", "QUAL", "FILTER", "INFO", "FORMAT", *(f"s{n}" for n in names)]
        return "\n".join([*made, "\t".join(columns)]) + "\n"

    def write(self, folder, texts):
        with open(folder / "ref.fa", "w") as out:
            out.writelines(f">{contig}\n{bases}\n" for contig, bases in self.bases.items())
        pysam.faidx(str(folder / "ref.fa"))
        return [write_gvcf(folder / f"in{i}.g.vcf", text) for i, text in enumerate(texts)]


def write_gvcf(path, text):
    path.write_text(text)
    pysam.tabix_index(str(path), preset="vcf", force=True)
    return path.with_name(path.name + ".gz")


def words(reference, paths, output, *options):
    return ["-r", reference, "--algo", "GVCFtyper", *(word for path in paths for word in ("-v", path)), *options, output]


@pytest.fixture
def joint(run, tmp_path):
    """joint(reference, inputs, output, *options, head=driver options): the output's path, after a run that went well."""

    def call(reference, paths, output, *options, head=("-t", 2)):
        done = run(*head, *words(reference, paths, output, *options))
        assert done.returncode == 0, done.stderr
        return tmp_path / output

    return call


def difference(record, site):
    """What of a record is not as it should be."""
    carried = [int(a) for s in site.samples for a in s["GT"].split("/") if a != "."]
    counts = [str(carried.count(i + 1)) for i in range(len(site.alts))]
    wanted = {"REF": site.ref, "ALT": site.alts, "AC": counts if counts and carried else None, "AN": str(len(carried)), **site.info}
    info = record.info
    found = {"REF": record.ref, "ALT": record.alts, "AC": info["AC"].split(",") if "AC" in info else None, "AN": info.get("AN", "0"),
             **{key: info.get(key) for key in site.info}}
    for i, (told, sample) in enumerate(zip(record.samples, site.samples)):
        for key in ("GT", "PL", "AD", "DP"):
            value = sample.get(key)
            wanted[f"{key} {i}"] = "." if value is None else ",".join(map(str, value)) if isinstance(value, list) else str(value)
            found[f"{key} {i}"] = told.get(key, ".")
    wrong = {key: (found[key], wanted[key]) for key in wanted if found[key] != wanted[key]}
    if (record.qual == ".") != (site.qual is None) or (site.qual is not None and abs(float(record.qual) - site.qual) > naive_joint.CLOSE):
        wrong["QUAL"] = record.qual, site.qual
    return wrong


def check_sites(records, sites):
    found, wanted = ({(r.contig, r.pos): r for r in rows} for rows in (records, sites))
    assert sum(site.unsure for site in sites) < 2 + 0.03 * len(sites)
    for place in sorted(found.keys() | wanted.keys()):
        if place not in wanted or not wanted[place].unsure:
            assert place in found and place in wanted, (place, found.get(place) and found[place].line, wanted.get(place))
            assert not difference(found[place], wanted[place]), (place, difference(found[place], wanted[place]), found[place].line)


def check_reference(record, reference, _):
    assert reference[record.contig][record.pos - 1 :].startswith(record.ref), record.line


def body_of(path):
    return text_of(path).split("#CHROM")[1]


def columns_of(path):
    return body_of(path).split("\n")[0].split("\t")[9:]


CASES = [  # ploidy of each sample, columns of each input, options
    ([2, 2, 2, 2], [[0], [1], [2], [3]], {}),
    ([1, 1, 1, 1, 1], [[0], [1, 2], [3], [4]], {}),
    ([2, 1, 3, 2, 4], [[0], [1], [2, 3], [4]], {}),
    ([2, 2], [[0], [1]], {"max_alt": 1}),
    ([2, 1, 2, 2, 2, 2], [[0, 1], [2], [3], [4], [5]], {"max_alt": 2}),
    ([2, 2, 2], [[0, 1], [1, 2], [2, 0]], {}),
    ([2, 2, 1], [[0, 1], [1, 2], [2, 0]], {"uniquify": True}),
    ([2, 2, 2, 1], [[0], [1], [2], [3]], {"mode": "confident"}),
    ([2, 1, 2], [[0], [1], [2]], {"mode": "all"}),
    ([2] * 7, [[n] for n in range(7)], {"call_conf": 100, "emit_conf": 10}),
    ([2], [[0]], {}),
]


@pytest.mark.parametrize("case", range(len(CASES)))
@pytest.mark.parametrize("seed", range(4))
def test_calls_as_the_naive_one_does(joint, tmp_path, case, seed):
    ploidies, columns, options = CASES[case]
    maker = Maker(100 * case + seed, ploidies)
    texts = [maker.text(names) for names in columns]
    names, sites = naive_joint.joint_calls(texts, maker.bases, **options)
    flags = {"mode": "--emit_mode", "max_alt": "--max_alt_alleles", "call_conf": "--call_conf", "emit_conf": "--emit_conf"}
    given = [word for key, value in options.items() for word in ([flags[key], value] if key in flags else ["--uniquify_samples"])]
    path = joint(tmp_path / "ref.fa", maker.write(tmp_path, texts), "out.vcf.gz", *given)
    assert columns_of(path) == names
    check_sites(records_of(path), sites)
    assert len(sites) > (60 if len(ploidies) > 1 else 20)


@pytest.fixture(scope="session")
def cohort(driver, simulated):  # noqa: F811
    """Ten samples, every third the child of the two before it: the folder with truth and reference, and their GVCFs."""
    folder = simulated(contigs="chr1:200000", depth=30, samples=10, multi_allelic_rate=0.0002)
    paths = [folder / f"{n}.g.vcf.gz" for n in range(1, 11)]
    for n, path in enumerate(paths, 1):
        if not path.exists():
            haplotype(driver, folder, n, path)
    return folder, paths


def haplotype(driver, folder, number, path, *options, head=()):
    subprocess.run([driver, "-t", "2", *head, "-r", folder / "reference.fa", "-i", folder / f"sample{number}.bam", "--algo", "Haplotyper",
                    "--emit_mode", "gvcf", *options, path], check=True, capture_output=True)
    return path


def region_text(path, contig, start, end):
    with pysam.TabixFile(str(path)) as file:
        return "\n".join([*file.header, *file.fetch(contig, start, end)]) + "\n"


def test_calls_a_cohort(joint, cohort, tmp_path):
    """Beside the truth of all samples; hom-ref and missing told apart; "*" where a deletion spans; and the naive one's calls."""
    folder, paths = cohort
    path = joint(folder / "reference.fa", paths, "out.vcf.gz")
    records = check_file(path, folder, check=check_reference)
    assert columns_of(path) == [f"sample{n}" for n in range(1, 11)] and all({"MQ", "QD"} <= r.info.keys() for r in records)
    found = [accuracy(folder, path, "--sample", f"sample{n}") for n in range(1, 11)]
    for kind, floors in {"SNP": (0.998, 0.94, 0.995), "INDEL": (0.99, 0.95, 0.97)}.items():
        means = {name: sum(figures[kind][name] for figures in found) / 10 for name in ("precision", "recall", "genotype")}
        assert all(mean >= floor for mean, floor in zip(means.values(), floors)), (kind, means)

    texts = [region_text(p, "chr1", 100000, 130000) for p in paths]
    bases = pysam.FastaFile(str(folder / "reference.fa")).fetch("chr1").upper()
    _, sites = naive_joint.joint_calls(texts, {"chr1": bases})
    inside = lambda rows: [r for r in rows if 100500 < r.pos < 129500]
    check_sites(inside(records), inside(sites))
    assert len(inside(records)) > 60

    spanned, joined = 0, {r.pos: r for r in records}
    for n, given in enumerate(map(records_of, paths)):
        starts = {r.pos for r in given}
        for event in (r for r in given if len(r.ref) > 1 and int(r.samples[0]["PL"].split(",")[0]) > 150):
            carried = [event.alts[int(i) - 1] for i in event.samples[0]["GT"].split("/") if i not in "0."]
            for pos in range(event.pos + 1, event.pos + len(event.ref)) if any(len(alt) < len(event.ref) for alt in carried) else ():
                if pos in joined and pos not in starts:
                    spanned += 1
                    record = joined[pos]
                    assert str(record.alts.index("*") + 1) in record.samples[n]["GT"].split("/"), (n, record.line)
    assert spanned > 15

    lost = write_gvcf(tmp_path / "lost.g.vcf", region_text(paths[0], "chr1", 0, 100000))
    for record in records_of(joint(folder / "reference.fa", [lost, *paths[1:]], "lost.vcf.gz")):
        assert record.pos < 101000 or record.samples[0] == {"GT": "./."} | dict.fromkeys(record.samples[0].keys() - {"GT"}, ".")
    without = [s["DP"] for r in records for s in r.samples if "." in s["GT"]]
    assert sum(dp in ".0123" for dp in without) > 0.8 * len(without) > 0
    assert sum(s["GT"] == "0/0" for r in records for s in r.samples) > 2 * len(records)


def calls_of(path):
    """Place, alleles and the genotypes by sample, whatever their order, without figures."""
    names, calls = columns_of(path), {}
    for r in records_of(path):
        texts = {".": ".", "0": r.ref, **{str(i): alt for i, alt in enumerate(r.alts, 1)}}
        calls[r.contig, r.pos, r.ref, *sorted(r.alts)] = {n: sorted(texts[a] for a in s["GT"].split("/")) for n, s in zip(names, r.samples)}
    return calls


def test_same_calls_from_gvcfs_made_in_other_ways(run, driver, joint, cohort, tmp_path):
    folder, paths = cohort
    reference, paths = folder / "reference.fa", paths[:3]
    whole = joint(reference, paths, "whole.vcf.gz")
    calls = calls_of(whole)
    sharded = [haplotype(driver, folder, n, tmp_path / f"sharded{n}.g.vcf.gz", head=["--shard_param", "7013/500"]) for n in (1, 2, 3)]
    assert body_of(joint(reference, sharded, "sharded.vcf.gz")) == body_of(whole)
    plain = [haplotype(driver, folder, n, tmp_path / f"plain{n}.g.vcf") for n in (1, 2, 3)]
    assert all(path.with_name(path.name + ".idx").exists() for path in plain)
    assert body_of(joint(reference, [plain[0], paths[1], plain[2]], "plain.vcf.gz")) == body_of(whole)
    bands = [haplotype(driver, folder, n, tmp_path / f"bands{n}.g.vcf.gz", "--gq_bands", "10-99/30") for n in (1, 2, 3)]
    assert calls_of(joint(reference, bands, "bands.vcf.gz")).keys() == calls.keys()
    turned = joint(reference, [paths[2], paths[0], paths[1]], "turned.vcf.gz")
    assert columns_of(turned) == ["sample3", "sample1", "sample2"] and calls_of(turned) == calls
    done = run(*words(reference, [*paths, paths[1]], "twice.vcf.gz"))
    assert done.returncode == 0 and f"Warning: GVCFtyper: input file {paths[1]} specified more than once\n" in done.stderr
    assert body_of(tmp_path / "twice.vcf.gz") == body_of(whole)
    done = run("-r", reference, "--algo", "GVCFtyper", "last.vcf.gz", *paths)  # the other form
    assert done.returncode == 0 and body_of(tmp_path / "last.vcf.gz") == body_of(whole)
    unique = joint(reference, [paths[0], sharded[0]], "unique.vcf.gz", "--uniquify_samples")
    assert columns_of(unique) == ["sample1", "sample1:1"]
    assert all(len({s["GT"] for s in r.samples}) == 1 for r in records_of(unique))
    assert columns_of(joint(reference, [paths[0], sharded[0]], "merged.vcf.gz")) == ["sample1"]


def test_same_bytes_at_any_threads_and_sharding_and_in_parts(run, joint, cohort, tmp_path):
    folder, paths = cohort
    reference, options = folder / "reference.fa", ["-d", folder / "known_sites.vcf.gz"]
    for suffix in ("vcf.gz", "vcf"):
        whole = joint(reference, paths, f"whole.{suffix}", *options, head=("-t", 1))
        for i, head in enumerate((["-t", 2, "--shard_param", "10000/100"], ["-t", 8, "--shard_param", "977/13"], ["-t", 8])):
            assert same_but_command(joint(reference, paths, f"{i}.{suffix}", *options, head=head)) == same_but_command(whole), head
        parts = [f"part{i}.{suffix}" for i in range(3)]
        for part, region in zip(parts, ("1-59999", "60000-150321", "150322-200000")):
            joint(reference, paths, part, *options, head=("-t", 2, "--shard", f"chr1:{region}"))
        done = run("--algo", "GVCFtyper", "--merge", f"all.{suffix}", *parts)
        assert done.returncode == 0 and same_but_command(tmp_path / f"all.{suffix}") == same_but_command(whole), done.stderr
    known = {(r.pos, r.ref, alt): r.id for r in records_of(folder / "known_sites.vcf.gz") for alt in r.alts}
    records = records_of(whole)
    for record in records:
        ids = {known[record.pos, record.ref, alt] for alt in record.alts if (record.pos, record.ref, alt) in known}
        assert (record.id in ids and "DB" in record.info) or (not ids and record.id == "." and "DB" not in record.info), record.line
    assert 0.5 * len(records) < sum(r.id != "." for r in records) < len(records)


def test_bad_options(run, cohort, tmp_path):
    folder, (path, *_) = cohort
    reference, text = folder / "reference.fa", "GVCFtyper: {}\n".format
    for options, told in ((["--emit_mode", "gvcf"], "unknown emit mode gvcf"), (["--max_alt_alleles", "-1"], "invalid max_alt_alleles -1"),
                          (["--nonsense"], "unknown option"), (["--merge"], "--merge must not have input reference or bam files")):
        done = run(*words(reference, [path], "out.vcf", *options))
        assert (done.returncode, done.stderr) == (ARGUMENT, text(told))
    for given, told in ((["-r", reference, "--algo", "GVCFtyper", "-v", path], "missing output file"),
                        (["-r", reference, "--algo", "GVCFtyper", "out.vcf"], "missing input vcf files"),
                        (["--algo", "GVCFtyper", "-v", path, "out.vcf"], "missing reference"),
                        (["--algo", "GVCFtyper", "--merge", "out.vcf"], "no partial files for merge")):
        done = run(*given)
        assert done.returncode == ARGUMENT and told in done.stderr, (told, done.stderr)
    assert not (tmp_path / "out.vcf").exists()


def test_bad_files(run, cohort, tmp_path):
    folder, _ = cohort
    maker = Maker(1, [2])
    (good,) = maker.write(tmp_path, [maker.text([0])])
    header = maker.header([1])
    at = 20
    base = maker.bases["c1"][at - 1]
    snp = f"c1\t{at}\t.\t{base}\t{'A' if base != 'A' else 'C'},<NON_REF>\t.\t.\tDP=9\tGT:AD:PL\t"
    block = f"c1\t1\t.\tA\t<NON_REF>\t.\t.\tEND={at - 1}\tGT:DP:GQ:MIN_DP:PL\t0/0:9:27:9:0,27,300\n"

    def made(name, *records, head=header):
        return write_gvcf(tmp_path / f"{name}.g.vcf", head + "".join(records))

    cut = shutil.copy(good, tmp_path / "cut.g.vcf.gz")
    shutil.copy(f"{good}.tbi", f"{cut}.tbi")
    pathlib.Path(cut).write_bytes(good.read_bytes()[:-400])
    shutil.copy(good, tmp_path / "bare.g.vcf.gz")
    (tmp_path / "noindex.g.vcf").write_text(header + block)
    for path, status, told in (
            (made("plain", block, head=re.sub("##GVCFBlock.*\n", "", header)), RUN, "Input file {} is not a gvcf file"),
            (made("longer", block, head=header.replace("length=1500", "length=1501")), RUN, "contigs in vcf {} are not compatible"),
            (made("more", block, head=header.replace("##contig", "##contig=<ID=c3,length=9>\n##contig", 1)), RUN,
             "contigs in vcf {} are not compatible"),
            (tmp_path / "cut.g.vcf.gz", RUN, "{}"), (tmp_path / "bare.g.vcf.gz", RUN, "Failed to load index for {}"),
            (tmp_path / "noindex.g.vcf", RUN, "Failed to load index for {}"), (tmp_path / "none.g.vcf.gz", RUN, "Failed to open vcf file {}"),
            (made("short", snp + "0/1:3,9,0:90,0,80\n"), RUN, "{}"), (made("long", snp + "0/1:3,9,0:90,0,80,99,99,99,99\n"), RUN, "{}"),
            (made("ad", snp + "0/1:3,9,0,5:90,0,80,99,99,99\n"), RUN, "{}"), (made("word", snp + "0/1:3,9,0:90,x,80,99,99,99\n"), RUN, "{}"),
            (made("cut_line", block, snp[: snp.index("GT:")] + "GT\n"), RUN, "{}"),
            (made("chromosomes", block.replace("0/0", "/".join("0" * 1001))), RUN, "Input file {} has samples of ploidy 1001, above 1000"),
            (made("huge", snp + "0/1:3,9,0:90,0,99999999999999,99,99,99\n"), RUN, "{}"),
            (made("ploidy", snp + "0/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1/1:3,9,0:90,0,80,99,99,99\n"), RUN, "{}")):
        done = run("-t", 2, *words("ref.fa", [good, path], "out.vcf.gz"))
        assert done.returncode == status and told.format(path) in done.stderr, (path.name, done.returncode, done.stderr)
        assert "ssert" not in done.stderr and not (tmp_path / "out.vcf.gz.tbi").exists(), done.stderr
    for i, column in enumerate(("0/1:3,9,0:.", "./.:3,9,0:.", "0/1", ".", "./.:.:.", "1:3,9,0:90,0,80")):
        path = made(f"odd{i}", block, snp + column + "\n")  # nothing to call from, or fewer chromosomes than before
        done = run(*words("ref.fa", [path], "odd.vcf"))
        assert done.returncode == 0, (column, done.stderr)
        assert [s["GT"] for r in records_of(tmp_path / "odd.vcf") for s in r.samples] == ["1"] * (i == 5), column
    for output in ("full.vcf", "full.vcf.gz"):
        (tmp_path / output).symlink_to("/dev/full")
        done = run(*words("ref.fa", [good], output))
        assert done.returncode == RUN and re.search(f"GVCFtyper: failed to .* file {output}, No space left on device\n$", done.stderr)
    done = run(*words("ref.fa", [good], "none/out.vcf"))
    assert done.returncode != 0 and "GVCFtyper: failed to open output file none/out.vcf" in done.stderr
    done = run(*words("ref.fa", [good], good))
    assert done.returncode == ARGUMENT and "would overwrite input file" in done.stderr
    kept = made("kept", block, snp + "0/1:3,9,0:.\n")
    before = open(kept, "rb").read()
    done = run("-r", "ref.fa", "--algo", "GVCFtyper", kept, good)
    assert done.returncode == ARGUMENT and f"GVCFtyper: output file {kept} is a gvcf file" in done.stderr
    assert open(kept, "rb").read() == before


def test_more_inputs_than_may_be_open(run, tmp_path):
    maker = Maker(2, [2] * 120)
    text = maker.text([0])
    paths = maker.write(tmp_path, [text.replace("FORMAT\ts0\n", f"FORMAT\ts{n}\n") for n in range(120)])
    limit = lambda soft, hard: {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))}
    done = run("-t", 2, *words("ref.fa", paths, "out.vcf.gz"), **limit(100, 4096))  # the soft limit is raised
    assert done.returncode == 0 and columns_of(tmp_path / "out.vcf.gz") == [f"s{n}" for n in range(120)], done.stderr
    assert "Preparing input files\nLoading input file 0\nLoading input file 100\n" in done.stderr
    assert all(len({s["GT"] for s in r.samples}) == 1 for r in records_of(tmp_path / "out.vcf.gz"))
    done = run("-t", 2, *words("ref.fa", paths, "none.vcf.gz"), **limit(100, 100))
    assert done.returncode in (ARGUMENT, RUN) and re.search("open files|descriptors", done.stderr) and not (tmp_path / "none.vcf.gz.tbi").exists(), done.stderr
