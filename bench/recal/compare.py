#!/usr/bin/python3
"""Times VarCal, from calls to recal file, beside scikit-learn fitting as many Gaussians for as many rounds to the same
1 M variants in memory, and prints the ratios as a Markdown table.

usage: compare.py BUILD_DIR WORK_DIR [--rounds N] [--small]

Two threads on either side. Nine tenths of the variants are training data: the most work there can be.
"""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import numpy as np  # noqa: E402

import simulated_calls  # noqa: E402
from comparison import Table, Timed, arguments, compare  # noqa: E402

EM_ROUNDS = 30

args = arguments(__doc__)
driver = f"{args.build}/driver"
count = 100_000 if args.small else 1_000_000


def ours(size, threads=2):
    folder = f"calls{size}"
    simulated_calls.make(folder, size, "near", true_share=0.9, in_resource=1.0)
    return Timed(simulated_calls.command(driver, folder, "--prob_tol", "0", "--max_iter", str(EM_ROUNDS), "--bad_lod_thresh", "-4",
                                         threads=threads, output=f"{folder}/out"))


os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "2"
table = Table()
ours(count).once()
_, negative = simulated_calls.scores(f"calls{count}/out.recal.vcf.gz")
np.save(f"calls{count}/negative.npy", negative)
peer_words = [sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), "mixture_peer.py"),
              f"calls{count}/truth.npz", f"calls{count}/negative.npy", str(EM_ROUNDS)]
mine, peer = compare(ours(count), Timed(peer_words), rounds=args.rounds)
table.add(f"{count} variants, 8 and 2 Gaussians, {EM_ROUNDS} rounds", mine.seconds, peer.seconds, "scikit-learn", at_most=0.3)
quarter, small, alone = ours(count // 4), ours(1000), ours(count, threads=1)
compare(quarter, small, alone, rounds=args.rounds)
table.add("wall of all, of a quarter of the variants", mine.seconds, 4 * quarter.seconds, "4 quarters", at_most=1.1)
table.add("2 threads, 1 thread", mine.seconds, alone.seconds, "1 thread", at_most=0.65)
table.add("memory per variant", round((mine.mebibytes - small.mebibytes) * 2**20 / count), 200, "bound", at_most=200, unit="bytes",
          of_ratio=False)
table.print(f"Input: {count} simulated variants, 6 annotations, {int(negative.sum())} in the negative set.")
