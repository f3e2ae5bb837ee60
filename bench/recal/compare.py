#!/usr/bin/python3
"""Times VarCal, from calls to recal file, beside scikit-learn fitting as many Gaussians for as many rounds to the same
1 M variants in memory; its time and memory beside those for fewer variants and threads; reading and ApplyVarCal beside
bcftools. Prints a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

Two threads on either side. Nine tenths of the variants are training data: the most work there can be.
"""
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import simulated_calls  # noqa: E402
from comparison import Table, Timed, arguments, compare  # noqa: E402

EM_ROUNDS = 30

args = arguments(__doc__)
driver = f"{args.build}/driver"
count = 100_000 if args.small else 1_000_000


def apart(work):
    """Does work in a process of its own: what numpy takes here would count as the memory of the runs that are timed."""
    child = os.fork()
    if child == 0:
        work()
        os._exit(0)
    if os.waitpid(child, 0)[1] != 0:
        sys.exit("failed to make the input")


def save_negative_set():
    import numpy as np
    np.save(f"calls{count}/negative.npy", simulated_calls.scores(f"calls{count}/out.recal.vcf.gz")[1])


AS_MANY_ROUNDS = ["--prob_tol", "0", "--max_iter", str(EM_ROUNDS), "--bad_lod_thresh", "-4"]
HARDLY_ANY = ["--kmeans_iter", "1", "--max_iter", "1", "--bad_lod_thresh", "1000"]


def ours(size, threads=2, rounds=AS_MANY_ROUNDS):
    folder = f"calls{size}"
    apart(lambda: simulated_calls.make(folder, size, "near", true_share=0.9, in_resource=1.0))
    return Timed(simulated_calls.command(driver, folder, *rounds, threads=threads, output=f"{folder}/out"))


os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "2"
table = Table()
ours(count).once()
apart(save_negative_set)
peer_words = [sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), "mixture_peer.py"),
              f"calls{count}/truth.npz", f"calls{count}/negative.npy", str(EM_ROUNDS)]
mine, peer = compare(ours(count), Timed(peer_words), rounds=args.rounds)
table.add(f"{count} variants, 8 and 2 Gaussians, {EM_ROUNDS} rounds", mine.seconds, peer.seconds, "scikit-learn", at_most=0.3)
quarter, alone = ours(count // 4), ours(count, threads=1)
compare(quarter, alone, rounds=args.rounds)
table.add("wall of all, of a quarter of the variants", mine.seconds, 4 * quarter.seconds, "4 quarters", at_most=1.1)
table.add("2 threads, 1 thread", mine.seconds, alone.seconds, "1 thread", at_most=0.65)
for what, mebibytes, size in [("peak memory of the run, per variant", mine.mebibytes, count),
                              ("the same, of the last three quarters", mine.mebibytes - quarter.mebibytes, count * 3 // 4)]:
    table.add(what, round(mebibytes * 2**20 / size), 200, "bound", at_most=200, unit="bytes", of_ratio=False)


class Walk(Timed):
    """What VarCal takes to read calls and resource, by its own timer."""

    def once(self):
        whole, self.seconds = self.seconds, 0
        super().once()
        self.seconds = min(whole, float(re.findall(r"\nexecute: .* ([0-9.]+) real\n", open("log").read())[-1]))


folder = f"calls{count}"
calls, resource, recal = (f"{folder}/{name}.vcf.gz" for name in ["calls", "resource", "out.recal"])
walk = Walk(ours(count, rounds=HARDLY_ANY).command)
reading = Timed(f"bcftools view --threads 2 {calls} >/dev/null; bcftools view --threads 2 {resource} >/dev/null")
apply_words = [driver, "-t", "2", "-r", f"{folder}/reference.fa", "--algo", "ApplyVarCal", "--vcf", calls, "--recal", recal, "--tranches_file",
               f"{folder}/out.tranches", "--sensitivity", "99", "applied.vcf.gz"]
applying = Timed(apply_words, makes=["applied.vcf.gz", "applied.vcf.gz.tbi"])
annotating = Timed(f"bcftools annotate --threads 2 -a {recal} -c INFO/VQSLOD,INFO/culprit -Oz -o annotated.vcf.gz {calls}; tabix -f -p vcf annotated.vcf.gz",
                   makes=["annotated.vcf.gz"])
ours(count).once()
compare(applying, annotating, walk, reading, rounds=args.rounds)
table.add("reading calls and resource", walk.seconds, reading.seconds, "bcftools view", at_most=1.0)
table.add("ApplyVarCal", applying.seconds, annotating.seconds, "bcftools annotate, tabix", at_most=1.0)
table.print(f"Input: {count} simulated variants, 6 annotations, nine tenths of them training data.")
