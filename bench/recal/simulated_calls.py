"""Call sets whose truth is known: six annotations drawn from mixtures, a resource with some of the true sites.

Used by power.py and compare.py beside it; numpy is loaded by those who call what needs it. The shapes are those of real
call sets in the large: true variants in a few clouds (heterozygous and homozygous ones differ in QD), false ones around
and between them, rank sums that only heterozygous sites have.
"""
import os
import subprocess

ANNOTATIONS = ["QD", "MQ", "FS", "SOR", "MQRankSum", "ReadPosRankSum"]
GAP = 100  # bases between variants
CONTIGS = 4

# By scenario: for true and for false ones, (weight, mean, deviations) of each cloud.
SCENARIOS = {
    "apart": (
        [(0.6, [14, 60, 1.5, 0.8, 0, 0.2], [3, 0.8, 1.2, 0.3, 0.8, 0.9]), (0.4, [27, 59.8, 1, 0.9, 0, 0], [3, 0.9, 0.9, 0.35, 0.9, 1])],
        [(0.5, [6, 52, 9, 2, -2, -1.2], [3, 5, 6, 0.8, 1.8, 1.6]), (0.5, [10, 57, 4, 1.6, -1, -1], [5, 4, 4, 0.9, 1.5, 1.5])]),
    "near": (
        [(0.6, [13, 59.5, 2, 0.9, 0, 0.2], [3.5, 1.2, 1.6, 0.4, 0.9, 1]), (0.4, [26, 59.5, 1.5, 1, 0, 0], [4, 1.2, 1.4, 0.4, 1, 1])],
        [(0.7, [9, 57, 4, 1.4, -0.9, -0.8], [4, 3, 3.5, 0.7, 1.5, 1.4]), (0.3, [14, 58.5, 3, 1.3, -0.5, -0.4], [5, 2, 3, 0.7, 1.3, 1.3])]),
    "clouds": (
        [(0.4, [12, 59.8, 1.2, 0.7, 0, 0.2], [2, 0.5, 0.8, 0.2, 0.7, 0.8]), (0.3, [20, 59, 2, 1, 0.3, 0], [2, 1, 1, 0.25, 0.7, 0.8]),
         (0.2, [28, 59.9, 0.8, 0.8, 0, 0], [1.5, 0.5, 0.6, 0.2, 0.8, 0.8]), (0.1, [16, 56, 3, 1.2, -0.8, -0.3], [2, 1.5, 1, 0.3, 0.8, 0.8])],
        [(0.4, [6, 55, 6, 1.8, -1.5, -1], [2.5, 3, 3, 0.5, 1.2, 1.2]), (0.3, [16, 57, 5, 0.6, 0.5, -1.5], [3, 2, 2, 0.2, 1, 1]),
         (0.3, [24, 57, 2, 1.7, -1, 1], [4, 2.5, 1.5, 0.4, 1, 1])]),
}


def draw(rng, clouds, count):
    """Values by datum, and the number of the cloud."""
    import numpy as np
    which = rng.choice(len(clouds), count, p=[w for w, _, _ in clouds])
    means, deviations = np.array([m for _, m, _ in clouds]), np.array([d for _, _, d in clouds])
    return means[which] + deviations[which] * rng.standard_normal((count, len(ANNOTATIONS))), which


def make(folder, count, scenario="near", true_share=0.7, in_resource=0.2, seed=1):
    """Writes reference.fa, calls.vcf.gz and resource.vcf.gz, with indexes. Returns annotations (NaN: missing), which
    data are true and which of them are in the resource; kept from run to run."""
    import numpy as np
    done = f"{folder}/truth.npz"
    if os.path.exists(done):
        kept = np.load(done)
        return kept["values"], kept["true"], kept["known"]
    os.makedirs(folder, exist_ok=True)
    rng = np.random.default_rng(seed)
    true = rng.random(count) < true_share
    good, bad = SCENARIOS[scenario]
    values, cloud = draw(rng, good, count)
    values[~true], cloud[~true] = (part[~true] for part in draw(rng, bad, count))
    values = np.round(values, 3)
    # Homozygous sites have no reads of both alleles to be ranked; of the others a few have too few.
    no_ranks = (cloud == 1) & (rng.random(count) < 0.5) | (rng.random(count) < 0.05)
    values[no_ranks, 4:] = np.nan
    known = true & (rng.random(count) < in_resource)

    per_contig = -(-count // CONTIGS)
    length = (per_contig + 1) * GAP // 60 * 60 + 60
    with open(f"{folder}/reference.fa", "w") as out, open(f"{folder}/reference.fa.fai", "w") as index:
        for contig in range(1, CONTIGS + 1):
            out.write(f">chr{contig}\n")
            index.write(f"chr{contig}\t{length}\t{out.tell()}\t60\t61\n")
            out.write(("N" * 60 + "\n") * (length // 60))
    header = "##fileformat=VCFv4.2\n" + "".join(f"##contig=<ID=chr{c},length={length}>\n" for c in range(1, CONTIGS + 1))
    header += "".join(f'##INFO=<ID={a},Number=1,Type=Float,Description="d">\n' for a in ANNOTATIONS)
    header += "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO\n"
    alleles = np.where(rng.random(count) < np.where(true, 0.68, 0.4), "A\tG", "A\tC")  # transitions, others
    with open(f"{folder}/calls.vcf", "w") as calls, open(f"{folder}/resource.vcf", "w") as resource:
        calls.write(header)
        resource.write(header)
        for i in range(count):
            site = f"chr{i // per_contig + 1}\t{(i % per_contig + 1) * GAP}\t.\t{alleles[i]}\t50\t.\t"
            calls.write(site + ";".join(f"{a}={v:.3f}" for a, v in zip(ANNOTATIONS, values[i]) if v == v) + "\n")
            if known[i]:
                resource.write(site + ".\n")
    for name in ["calls", "resource"]:
        subprocess.run(["bgzip", "-f", f"{folder}/{name}.vcf"], check=True)
        subprocess.run(["tabix", "-f", "-p", "vcf", f"{folder}/{name}.vcf.gz"], check=True)
    np.savez(done, values=values, true=true, known=known)
    return values, true, known


def command(driver, folder, *options, threads=2, output="out"):
    """The run of VarCal on a folder of make()."""
    words = [driver, "-t", str(threads), "-r", f"{folder}/reference.fa", "--algo", "VarCal", "--vcf", f"{folder}/calls.vcf.gz",
             "--resource", f"{folder}/resource.vcf.gz", "--resource_param", "truth,known=false,training=true,truth=true,prior=15.0"]
    for annotation in ANNOTATIONS:
        words += ["--annotation", annotation]
    return words + ["--tranches_file", f"{output}.tranches", *options, f"{output}.recal.vcf.gz"]


def scores(path):
    """VQSLOD of each record, and whether it was in the negative set."""
    import numpy as np
    text = subprocess.run(["bcftools", "query", "-f", "%INFO/VQSLOD\t%INFO/NEGATIVE_TRAIN_SITE\n", path], check=True, text=True,
                          capture_output=True).stdout.split("\n")[:-1]
    pairs = [line.split("\t") for line in text]
    return np.array([float(lod) for lod, _ in pairs]), np.array([flag == "1" for _, flag in pairs])
