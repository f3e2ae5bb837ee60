"""scripts/compare-calls on files written by hand."""

import gzip
import pathlib
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "compare-calls"
#            1         11        21        31        41        51
REFERENCE = "ACGTTGCAAC" "TTTTTTGACC" "GATCACACAC" "AGTACCGTAG" "CATTGACCAT" "GGACTTACGA"


def vcf(path, *records, samples="s"):
    """Each record: POS REF ALT GT, with QUAL, FILTER and contig at will."""
    lines = ["##fileformat=VCFv4.2", "\t".join("#CHROM POS ID REF ALT QUAL FILTER INFO FORMAT".split() + samples.split())]
    for pos, ref, alt, gt, *rest in records:
        qual, filt, contig = (rest + ["50", "PASS", "c1"][len(rest):])[:3]
        lines.append("\t".join([contig, str(pos), ".", ref, alt, qual, filt, ".", "GT", *gt.split()]))
    data = ("\n".join(lines) + "\n").encode()
    path.write_bytes(gzip.compress(data) if path.suffix == ".gz" else data)


@pytest.fixture
def compare(tmp_path):
    (tmp_path / "ref.fa").write_text(f">c1\n{REFERENCE}\n>c2\n{REFERENCE.lower()}\n")
    (tmp_path / "ref.fa.fai").write_text("c1\t60\t4\t60\t61\nc2\t60\t69\t60\t61\n")

    def call(*options):
        return subprocess.run([SCRIPT, *options, "truth.vcf", "calls.vcf.gz", "ref.fa"], cwd=tmp_path, text=True,
                              capture_output=True)

    def figures(*options):
        done = call(*options)
        assert done.returncode == 0, done.stderr
        rows = [line.split() for line in done.stdout.splitlines()[1:]]
        return {row[0]: (*map(int, row[1:5]), row[8]) for row in rows}  # truth, calls, missed, false, genotype

    call.figures, call.folder = figures, tmp_path
    return call


@pytest.mark.parametrize("truth, calls, snp, indel", [
    # the same site; a wrong genotype; one missed; one false; two alternatives of one record
    ([(3, "G", "A", "0|1"), (8, "A", "T", "1|1"), (50, "T", "C", "0|1"), (20, "C", "G,T", "1|2")],
     [(3, "G", "A", "0/1"), (8, "A", "T", "0/1"), (53, "A", "C", "0/1"), (20, "C", "G,T", "1/2")], (5, 5, 1, 1, "0.7500"),
     (0, 0, 0, 0, "-")),
    # an allele that nobody carries counts on neither side, nor does a spanning deletion or a symbol
    ([(3, "G", "A", "0|0")], [(3, "G", "A", "0/0"), (8, "A", "T,*", "0/2"), (9, "A", "<DEL>", "0/1")], (0, 0, 0, 0, "-"),
     (0, 0, 0, 0, "-")),
    # indels at any place of their repeat and with any bases around
    ([(10, "CT", "C", "0|1"), (24, "CACA", "CA", "1|1")], [(15, "TTG", "TG", "0/1"), (29, "ACA", "A", "1/1")], (0, 0, 0, 0, "-"),
     (2, 2, 0, 0, "1.0000")),
    # several bases at once are so many SNPs
    ([(3, "G", "A", "0|1"), (5, "T", "C", "0|1")], [(3, "GTT", "ATC", "0/1")], (2, 2, 0, 0, "1.0000"), (0, 0, 0, 0, "-")),
    # an indel and a SNP beside it, written as one allele; one more SNP, that is shared, does not hinder
    ([(34, "A", "AGG", "0|1"), (34, "A", "C", "0|1"), (37, "G", "T", "0|1")], [(34, "A", "CGG", "0/1"), (37, "G", "T", "0/1")],
     (2, 1, 0, 0, "1.0000"), (1, 1, 0, 0, "-")),
    # the same bases are not made: a deletion of another length
    ([(41, "CAT", "C", "0|1")], [(41, "CATT", "C", "0/1")], (0, 0, 0, 0, "-"), (1, 1, 1, 1, "-")),
])
def test_alleles_match_however_they_are_written(compare, truth, calls, snp, indel):
    vcf(compare.folder / "truth.vcf", *truth)
    vcf(compare.folder / "calls.vcf.gz", *calls)
    assert compare.figures() == {"SNP": snp, "INDEL": indel}


def test_what_is_left_out(compare):
    vcf(compare.folder / "truth.vcf", (3, "G", "A", "0|1 1|1"), (50, "T", "C", "0|1 0|0"), (50, "T", "C", "0|1 0|1", ".", ".", "c2"),
        samples="s t")
    vcf(compare.folder / "calls.vcf.gz", (3, "G", "A", "1/1"), (8, "A", "T", "0/1", "19.9"), (50, "T", "C", "0/1", "50", "LowQual"))
    refused = compare()
    assert refused.returncode == 1 and refused.stderr == "compare-calls: truth.vcf: has 2 samples; choose one with --sample\n"
    assert compare.figures("--sample", "s")["SNP"] == (3, 2, 2, 1, "0.0000")
    assert compare.figures("--sample", "t", "--skip-contig", "c2", "--min-qual", "20")["SNP"] == (1, 1, 0, 0, "1.0000")
    (compare.folder / "r.bed").write_text("#x\nc1\t3\t10\nc1\t0\t3\tname\n")
    assert compare.figures("--sample", "s", "--bed", "r.bed", "--differences", "d.txt")["SNP"] == (1, 2, 0, 1, "0.0000")
    assert (compare.folder / "d.txt").read_text() == "c1\t3\tG\tA\tgenotype\nc1\t8\tA\tT\tfalse\n"


def test_recall_by_fraction(compare):
    lines = ["##fileformat=VCFv4.2", "#CHROM POS ID REF ALT QUAL FILTER INFO".replace(" ", "\t")]
    for pos, ref, alt, info in [(3, "G", "A", "X=1;AF=0.5"), (5, "T", "C", "AF=0.05"), (8, "A", "T", "AF=0.05;KIND=snv"),
                                (10, "CT", "C", "AF=0.05"), (50, "T", "C", "MAF=0.5")]:
        lines.append(f"c1\t{pos}\t.\t{ref}\t{alt}\t.\t.\t{info}")
    (compare.folder / "truth.vcf").write_text("\n".join(lines) + "\n")
    vcf(compare.folder / "calls.vcf.gz", (3, "G", "A", "0/1"), (8, "A", "T", "0/1"), (50, "T", "C", "0/1"))
    done = compare("--by-fraction")
    assert [line.split() for line in done.stdout.splitlines()[4:]] == [
        ["0.5", "1", "0", "1.0000", "0", "0", "-"], ["0.05", "2", "1", "0.5000", "1", "1", "0.0000"]], done.stderr


def test_many_neighbours(compare):
    """Twelve SNPs beside each other, of which the other file writes the first two as a deletion and an insertion."""
    snps = [(pos, REFERENCE[pos - 1], "ACGT"["ACGT".index(REFERENCE[pos - 1]) - 1], "0|1") for pos in range(33, 45)]
    vcf(compare.folder / "truth.vcf", *snps)
    vcf(compare.folder / "calls.vcf.gz", (32, "GTA", "G", "0/1"), (34, "A", "AGT", "0/1"), *snps[2:])
    assert compare.figures() == {"SNP": (12, 10, 0, 0, "1.0000"), "INDEL": (0, 2, 0, 0, "-")}


@pytest.mark.parametrize("record, text", [
    ((3, "C", "A", "0/1"), "calls.vcf.gz: line 3: REF C differs from ref.fa"),
    ((60, "AC", "A", "0/1"), "calls.vcf.gz: line 3: REF AC differs from ref.fa"),
    ((0, "A", "C", "0/1"), "calls.vcf.gz: line 3: REF A differs from ref.fa"),
    ((3, "G", "A", "0/2"), "calls.vcf.gz: line 3 is no VCF record: c1\t3\t.\tG\tA\t50\tPASS\t.\tGT\t0/2"),
    (("x", "G", "A", "0/1"), "calls.vcf.gz: line 3 is no VCF record: c1\tx\t.\tG\tA\t50\tPASS\t.\tGT\t0/1"),
    ((3, "G", "A", "0/1", "9", ".", "c9"), "calls.vcf.gz: line 3: contig c9 is not in ref.fa"),
])
def test_bad_records_are_told(compare, record, text):
    vcf(compare.folder / "truth.vcf")
    vcf(compare.folder / "calls.vcf.gz", record)
    done = compare()
    assert (done.returncode, done.stderr) == (1, f"compare-calls: {text}\n")
