"""Variant files written shard by shard: the same at any thread count and sharding, with an index as tabix makes it."""

import collections
import random
import shutil
import subprocess

import pysam
import pytest

Record = collections.namedtuple("Record", "contig start end line")


def make_records(contigs, share, seed):
    """`share` records per base, some with a long END; the contigs of every third place have none."""
    draw = random.Random(seed)
    for i, (contig, length) in enumerate(contigs.items()):
        for start in sorted(draw.randrange(length) for _ in range(int(length * share) if i % 3 != 1 else 0)):
            ref, alt, info = draw.choice("ACGT") * draw.choice([1, 1, 1, 12]), "T", "DP=%d" % draw.randrange(99)
            end = start + len(ref)
            if draw.random() < 0.01:
                end = min(start + draw.choice([1, 300, 20000, 400000]), length)
                alt, info = "<DEL>", f"SVTYPE=DEL;END={end}"
            end = max(end, start + 1)
            calls = [f"0/1:{draw.randrange(99)}" for _ in range(3)]
            if draw.random() < 0.001:
                calls[2] = "0/1:" + ",".join(str(draw.randrange(10**6)) for _ in range(12000))
            columns = [contig, start + 1, ".", ref, alt, draw.randrange(900), "PASS", info, "GT:AD", *calls]
            yield Record(contig, start, end, "\t".join(map(str, columns)))


INPUTS = {  # contigs, records per base
    "one_contig": ({"chr1": 2_000_000}, 0.004),
    "hundred_contigs": ({f"c{i}": 500 + 97 * i for i in range(100)}, 0.02),
    "one_record": ({"chr1": 2_000_000, "chr2": 5000}, 0.0000005),
    "no_record": ({"chr1": 2_000_000, "chr2": 5000}, 0),
}
SHARD_SIZES = [2_000_000, 300_000, 10_000]  # one contig in 1, 7 and 200 shards

Variants = collections.namedtuple("Variants", "name contigs records")


@pytest.fixture(scope="session", params=INPUTS)
def variants(request, tmp_path_factory):
    """A folder with ref.fa and in.vcf.gz, indexed by tabix."""
    contigs, share = INPUTS[request.param]
    records = list(make_records(contigs, share, seed=5))
    folder = tmp_path_factory.mktemp(request.param)
    with open(folder / "ref.fa", "w") as f:
        f.writelines(f">{name}\n{'A' * length}\n" for name, length in contigs.items())
    pysam.faidx(str(folder / "ref.fa"))
    with open(folder / "in.vcf", "w") as f:
        f.write('##fileformat=VCFv4.2\n##FILTER=<ID=PASS,Description="all">\n')
        f.writelines(f"##contig=<ID={name},length={length}>\n" for name, length in contigs.items())
        for key, number, kind in [("END", 1, "Integer"), ("DP", 1, "Integer"), ("SVTYPE", 1, "String")]:
            f.write(f'##INFO=<ID={key},Number={number},Type={kind},Description="d">\n')
        for key, number, kind in [("GT", 1, "String"), ("AD", ".", "Integer")]:
            f.write(f'##FORMAT=<ID={key},Number={number},Type={kind},Description="d">\n')
        f.write("#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\tFORMAT\ts1\ts2\ts3\n")
        f.writelines(r.line + "\n" for r in records)
    pysam.tabix_index(str(folder / "in.vcf"), preset="vcf")
    assert len(records) == {"one_record": 1, "no_record": 0}.get(request.param, len(records))
    return folder, Variants(request.param, contigs, records)


@pytest.fixture
def copy(algo_driver, variants, tmp_path):
    """copy(output, *driver arguments): runs VariantCopy in tmp_path and gives the output's path."""

    def call(output, *args, folder=".", algo_args=("-v", variants[0] / "in.vcf.gz"), status=0):
        (tmp_path / folder).mkdir(exist_ok=True)
        command = [algo_driver, *args, "--algo", "VariantCopy", *algo_args]
        # The name of the output is in a .idx: it stays the same in every folder.
        at = command.index("--merge") + 1 if "--merge" in command else len(command)
        command.insert(at, output)
        result = subprocess.run(list(map(str, command)), cwd=tmp_path / folder, text=True, capture_output=True, timeout=300)
        assert result.returncode == status, result.stderr
        if status == 0:  # nothing is left but the output and its index
            assert not [p for p in (tmp_path / folder).iterdir() if "_" in p.name and p.is_file()]
        return tmp_path / folder / output if status == 0 else result.stderr

    return call


def text_of(path):
    data = path.read_bytes()
    return subprocess.run(["bgzip", "-dc", path], check=True, capture_output=True).stdout if path.suffix == ".gz" else data


def index_bytes(path):
    """Those of the index; the time of the data file is blanked in a .idx."""
    tbi, idx = path.with_name(path.name + ".tbi"), path.with_name(path.name + ".idx")
    if tbi.exists():
        return subprocess.run(["bgzip", "-dc", tbi], check=True, capture_output=True).stdout
    data = idx.read_bytes()
    time = data.index(b"\0", 12) + 1 + 8
    return data[:time] + data[time + 8 :]


def random_regions(contigs, count, seed):
    draw = random.Random(seed)
    for _ in range(count):
        contig, length = draw.choice(list(contigs.items()))
        start = draw.randrange(length)
        yield contig, start, min(length, start + draw.choice([1, 50, 3000, 50_000]))


def answers(path, regions, index=None):
    with pysam.TabixFile(str(path), index=index and str(index)) as f:
        known = set(f.contigs)
        return [list(f.fetch(*region)) if region[0] in known else [] for region in regions]


def naive_answers(variants, regions):
    of_contig = collections.defaultdict(list)
    for r in variants.records:
        of_contig[r.contig].append(r)
    return [[r.line for r in of_contig[c] if r.start < end and r.end > start] for c, start, end in regions]


def check_standing(path, variants, folder):
    """Other tools take the file; the joined index answers as tabix's own does."""
    subprocess.run(["bgzip", "-t", path], check=True)
    seen = subprocess.run(["bcftools", "view", "-H", path], check=True, capture_output=True, text=True)
    assert (len(seen.stdout.splitlines()), seen.stderr) == (len(variants.records), "")
    for option in ["-c", "-t"]:
        subprocess.run(["bcftools", "index", option, "-f", "-o", folder / "bcftools.idx", path], check=True)
    regions = list(random_regions(variants.contigs, 1500, seed=9))
    expected = naive_answers(variants, regions)
    assert variants.name not in ("one_contig", "hundred_contigs") or sum(map(len, expected)) > 10_000
    assert answers(path, regions) == expected
    shutil.copy(path, folder / "theirs.vcf.gz")
    pysam.tabix_index(str(folder / "theirs.vcf.gz"), preset="vcf", force=True)
    assert answers(path, regions, folder / "theirs.vcf.gz.tbi") == expected
    # All regions in one go, by either index.
    with open(folder / "regions.bed", "w") as bed:
        bed.writelines(f"{c}\t{s}\t{e}\n" for c, s, e in regions)
    ours, theirs = (
        subprocess.run(["tabix", "-R", folder / "regions.bed", p], check=True, capture_output=True).stdout
        for p in (path, folder / "theirs.vcf.gz")
    )
    assert ours == theirs


@pytest.mark.parametrize("size", SHARD_SIZES)
def test_same_file_at_any_thread_count_and_sharding(size, variants, copy, tmp_path):
    folder, v = variants
    body = "".join(r.line + "\n" for r in v.records).encode()
    for output in ["out.vcf.gz", "out.vcf"]:
        found = []
        for threads in [1, 3, 8]:
            path = copy(output, "-t", threads, "-r", folder / "ref.fa", "--shard_param", f"{size}/1000", folder=f"t{threads}")
            found.append((path.read_bytes(), index_bytes(path)))
        assert found[1] == found[0] and found[2] == found[0]
        text = text_of(path)
        assert text.endswith(body) and sorted(text.splitlines()) == sorted(text_of(folder / "in.vcf.gz").splitlines())
        if output == "out.vcf.gz":
            check_standing(path, v, tmp_path)


@pytest.mark.parametrize("output", ["out.vcf.gz", "out.vcf"])
def test_merged_partial_files_are_the_file_of_one_run(output, variants, copy, tmp_path):
    folder, v = variants
    names = list(v.contigs)
    whole = copy(output, "-t", 3, "-r", folder / "ref.fa", "--shard_param", "50000/1000", folder="whole")
    # Seams inside the first contig and between contigs; the second piece has few records or none.
    length = v.contigs[names[0]]
    pieces = [[f"{names[0]}:1-{length // 3}"], [f"{names[0]}:{length // 3 + 1}-{length // 3 + 10}"],
              [f"{names[0]}:{length // 3 + 11}-{length}", *names[1 : len(names) // 2]], names[len(names) // 2 :]]
    partials = []
    for i, piece in enumerate(p for p in pieces if p and p != names[:1]):
        shards = [word for region in piece for word in ("--shard", region)]
        partials.append(copy(output.replace("out", f"part{i}"), "-t", 2, "-r", folder / "ref.fa", *shards))
    merged = copy(output, algo_args=["--merge", *partials], folder="merged")
    assert text_of(merged) == text_of(whole)
    if merged.suffix == ".gz":
        check_standing(merged, v, tmp_path)
    else:
        assert index_bytes(merged) == index_bytes(whole)


def test_headers_of_other_tools_survive(algo_driver, simulate, tmp_path):
    """Of a caller, a merger and an annotator: every header line comes back, but for the version and what is too long."""
    options = ["--length", "30000", "--depth", "5", "--samples", "a,b"]
    subprocess.run([simulate, "--out-dir", tmp_path, *options], check=True, capture_output=True)
    commands = """
        bcftools mpileup -f reference.fa a.bam b.bam -a AD,DP,SP 2>log | bcftools call -mv -Oz -o called.vcf.gz
        bcftools index -t called.vcf.gz
        (bcftools view -h truth.vcf.gz | grep -v ^#CHROM; echo '##long=<ID=x,Description="'$(printf 'x%.0s' $(seq 4100))'">'
         echo '##pedigree=file:/a,b=c'; echo '##SAMPLE=<ID=a,Genomes="g;h",Mixture="a, b">'; echo '##ALT=<ID=DEL,Description="d">') > head.txt
        bcftools view -h truth.vcf.gz | grep ^#CHROM >> head.txt
        bcftools reheader -h head.txt truth.vcf.gz > odd.vcf.gz
        bcftools index -t odd.vcf.gz
        bcftools merge -Oz -o merged.vcf.gz --force-samples called.vcf.gz odd.vcf.gz
        bcftools index -t merged.vcf.gz
    """
    subprocess.run(["bash", "-ec", commands], cwd=tmp_path, check=True)
    for name in ["called", "odd", "merged"]:
        command = [algo_driver, "-r", "reference.fa", "--algo", "VariantCopy", "-v", f"{name}.vcf.gz", f"{name}.copy.vcf.gz"]
        subprocess.run(command, cwd=tmp_path, check=True, capture_output=True)
        theirs, ours = (
            subprocess.run(["bgzip", "-dc", tmp_path / f"{name}{x}.vcf.gz"], check=True, capture_output=True, text=True).stdout.splitlines()
            for x in ["", ".copy"]
        )
        kept = [line for line in theirs if len(line) < 4095 and not line.startswith("##fileformat")]
        assert sorted(kept) == sorted(ours[1:])
        assert ours[0] == "##fileformat=VCFv4.2" and len(theirs) - len(ours) == (name != "called")
