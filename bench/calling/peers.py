"""What comparisons of variant callers share: peers over two halves of the genome at a time, and the judgement by truth."""
import os
import subprocess

COMPARE_CALLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "compare-calls")


def in_halves(contig, length, command, output, start=1):
    """A text for the shell: `command` on both halves of a stretch of the contig at a time, joined."""
    halves = [(start, start + length // 2 - 1), (start + length // 2, start + length - 1)]
    starts = [f"({command.format(region=f'{contig}:{a}-{b}')}) >half{i}.vcf & half{i}=$!" for i, (a, b) in enumerate(halves)]
    return "; ".join([*starts, "wait $half0", "wait $half1", f"bcftools concat -Oz -o {output} half0.vcf half1.vcf"])


def freebayes(reference, bam, options=""):
    return f"freebayes {options} -f {reference} -r {{region}} {bam}"


def bcftools(reference, bam, options=""):
    """Without bounds on the depth: the driver has none."""
    return f"bcftools mpileup -d 100000 -L 100000 {options} -a AD -Ou -f {reference} -r {{region}} {bam} | bcftools call -mv"


def accuracy(truth, calls, reference):
    """Rows by type: precision, recall, F1, genotype."""
    out = subprocess.run([COMPARE_CALLS, "--min-qual", "20", truth, calls, reference], check=True, text=True,
                         capture_output=True).stdout
    return {row[0]: row[5:] for row in (line.split() for line in out.splitlines()[1:])}


def print_accuracy(rows):
    print("\nThe same calls beside the truth, those of QUAL 20 or more:\n")
    print("| what | caller | type | precision | recall | F1 | genotype |")
    print("|---|---|---|---|---|---|---|")
    for row in rows:
        print("| " + " | ".join(row) + " |")
