"""Records by region: through our reader with tabix's index and with ours, by tabix, by bcftools, by reading all."""

import collections
import os
import random
import subprocess

import pysam
import pytest

from conftest import write_reference

LENGTH = 20_000  # of each contig
Record = collections.namedtuple("Record", "contig start end line")


def made_record(draw, contig, start, number, samples, longest):
    kind = draw.random()
    ref, info, end = "A", "AC=1", start + 1
    if kind < 0.1:
        ref = "A" * draw.randint(2, 60)
        end = start + len(ref)
    elif kind < 0.2:
        end = start + draw.randint(1, longest)
        info = draw.choice([f"END={end}", f"XEND=5;END={end};AC=1"])
    columns = [contig, str(start + 1), f"r{number}", ref, "C", "10", "PASS", info]
    if samples:
        columns += ["GT:AD"] + [f"0/1:{draw.randint(0, 99)},{draw.randint(0, 99)}" for _ in range(samples)]
    return Record(contig, start, end, "\t".join(columns))


def made_records(seed, contigs, each, samples=0, longest=50):
    draw = random.Random(seed)
    records = []
    for contig in contigs:
        for start in sorted(draw.randrange(LENGTH - 100) for _ in range(each)):
            records.append(made_record(draw, contig, start, len(records), samples, longest))
    return records


def names(count):
    return [f"chr{i + 1}" for i in range(count)]


# name: contigs of the header, samples, records
FILES = {
    "one_record": (names(2), 0, made_records(1, ["chr2"], 1)),
    "contigs_without_records": (names(6), 2, made_records(2, ["chr2", "chr5"], 300, 2)),
    "long_ends": (names(2), 0, made_records(3, names(2), 3000, longest=12_000)),
    "wide_lines": (names(2), 9000, made_records(4, names(2), 40, 9000, 3000)),
    "many_contigs": (names(100), 1, made_records(5, names(100), 60, 1)),
}


def write_vcf(path, contigs, samples, records):
    with open(path, "w") as out:
        out.write("##fileformat=VCFv4.2\n##FILTER=<ID=PASS,Description=\"p\">\n")
        for key, number, kind in [("AC", "1", "Integer"), ("END", "1", "Integer"), ("XEND", "1", "Integer")]:
            out.write(f'##INFO=<ID={key},Number={number},Type={kind},Description="d">\n')
        for key, number, kind in [("GT", "1", "String"), ("AD", "R", "Integer")]:
            out.write(f'##FORMAT=<ID={key},Number={number},Type={kind},Description="d">\n')
        out.writelines(f"##contig=<ID={c},length={LENGTH}>\n" for c in contigs)
        columns = ["#CHROM", "POS", "ID", "REF", "ALT", "QUAL", "FILTER", "INFO"]
        columns += ["FORMAT"] * bool(samples) + [f"s{i}" for i in range(samples)]
        out.write("\t".join(columns) + "\n")
        out.writelines(r.line + "\n" for r in records)


def made_regions(seed, contigs, count):
    """As a walk makes them, mostly forward, with jumps; and some at random."""
    draw = random.Random(seed)
    regions, contig, start = [], contigs[0], 0
    for _ in range(count):
        if draw.random() < 0.1:
            contig, start = draw.choice(contigs), draw.randrange(LENGTH)
        start = (start + draw.randint(0, 300)) % LENGTH
        regions.append((contig, start, start + draw.choice([1, draw.randint(1, 200), draw.randint(1, 5000)])))
    return regions


def ask(program_path, vcf, regions):
    """{region: lines}"""
    text = "".join(f"{c} {s} {e}\n" for c, s, e in regions)
    out = subprocess.run([program_path, "-m", vcf], input=text, text=True, capture_output=True, timeout=300)
    assert out.returncode == 0, out.stderr
    answers, lines = {}, None
    for line in out.stdout.splitlines():
        if line.startswith("#"):
            contig, start, end = line[1:].split()
            answers[contig, int(start), int(end)] = lines = []
        else:
            lines.append(line)
    return answers


def ask_tabix(vcf, regions):
    texts = {f"{c}:{s + 1}-{e}": (c, s, e) for c, s, e in regions}
    out = subprocess.run(["tabix", "--separate-regions", vcf, *texts], text=True, capture_output=True, check=True)
    answers, lines = {region: [] for region in regions}, None
    for line in out.stdout.splitlines():
        if line.startswith("#"):
            lines = answers[texts[line[1:]]] = []
        else:
            lines.append(line)
    return answers


def ask_all(records, regions):
    of_contig = collections.defaultdict(list)
    for record in records:
        of_contig[record.contig].append(record)
    return {(c, s, e): [r.line for r in of_contig[c] if r.start < e and r.end > s] for c, s, e in regions}


@pytest.mark.parametrize("name", FILES)
def test_regions_hold_the_same_records_for_all(name, vcf_regions, algo_driver, sanitized, tmp_path):
    contigs, samples, records = FILES[name]
    vcf = str(tmp_path / "a.vcf")
    write_vcf(vcf, contigs, samples, records)
    blocked = str(pysam.tabix_index(vcf, preset="vcf", force=True))
    regions = made_regions(name, contigs, 100 if samples > 100 or sanitized else 2000)
    expected = ask_all(records, regions)
    assert sum(map(len, expected.values())) > 0
    assert ask_tabix(blocked, regions) == expected
    assert ask(vcf_regions, blocked, regions) == expected
    os.remove(blocked + ".tbi")
    for bits in [14, 10, 17]:
        subprocess.run(["bcftools", "index", "--csi", "--force", "--min-shift", str(bits), blocked], check=True)
        assert ask(vcf_regions, blocked, regions) == expected

    # Files and indexes of ours, read by us and by others.
    write_reference(tmp_path / "a.fa", {c: LENGTH for c in contigs}, seed=6)
    for ours in ["ours.vcf", "ours.vcf.gz"]:
        subprocess.run([algo_driver, "-t", "2", "-r", "a.fa", "--algo", "VariantCopy", "-v", blocked, ours],
                       cwd=tmp_path, check=True, capture_output=True, timeout=300)
        assert ask(vcf_regions, str(tmp_path / ours), regions) == expected
    ours = str(tmp_path / "ours.vcf.gz")
    assert os.path.exists(ours + ".tbi")
    assert ask_tabix(ours, regions) == expected
    with open(tmp_path / "regions.bed", "w") as out:
        out.writelines(f"{c}\t{s}\t{e}\n" for c, s, e in regions)
    found = subprocess.run(["bcftools", "view", "-H", "-R", str(tmp_path / "regions.bed"), ours], text=True,
                           capture_output=True, check=True).stdout.splitlines()
    # By ID: in a header that went through ours, a line as long as that of 9000 samples is dropped.
    assert {line.split("\t")[2] for line in found} == {line.split("\t")[2] for lines in expected.values() for line in lines}


@pytest.mark.parametrize("value, longest", [("64k", 65536), ("100000", 100_000), ("1M", 1 << 20), ("1", 16384),
                                            ("100kb", 100 << 10), ("64x", None), ("0", None), ("-1", None)])
def test_longest_line_is_set_from_outside(value, longest, vcf_regions, tmp_path):
    """Of a block of the size that is set, the line gets all but 24 bytes."""
    longest = longest or 1 << 24
    for extra in [0, 1]:
        start = "chr1\t100\t.\tA\tC\t.\t.\tAC="
        line = start + "1" * (longest - 24 - len(start) - 1 + extra)
        write_vcf(tmp_path / "a.vcf", ["chr1"], 0, [Record("chr1", 99, 100, line)])
        vcf = str(pysam.tabix_index(str(tmp_path / "a.vcf"), preset="vcf", force=True))
        out = subprocess.run([vcf_regions, vcf], input="chr1 0 1000\n", text=True, capture_output=True,
                             env={**os.environ, "MAX_VCF_RECORD_SIZE": value})
        if extra:
            assert out.stderr == f"Error: Cannot handle vcf lines longer than {longest - 24} in file {vcf}\n"
        else:
            assert (out.stderr, out.stdout) == ("", line + "\n")


def test_index_of_another_file(vcf_regions, tmp_path):
    for name, seed in [("a", 7), ("b", 8)]:
        write_vcf(tmp_path / f"{name}.vcf", names(3), 0, made_records(seed, names(3), 2000))
        pysam.tabix_index(str(tmp_path / f"{name}.vcf"), preset="vcf", force=True)
    (tmp_path / "b.vcf.gz.tbi").replace(tmp_path / "a.vcf.gz.tbi")
    vcf = str(tmp_path / "a.vcf.gz")
    out = subprocess.run([vcf_regions, vcf], input="chr1 0 20000\nchr2 0 20000\nchr3 0 20000\n", text=True,
                         capture_output=True)
    assert out.returncode == 1 and out.stderr.startswith("Error: ") and vcf in out.stderr
