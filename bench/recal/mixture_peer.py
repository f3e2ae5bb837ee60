"""One run of the peer: two mixtures of scikit-learn fitted for a given number of rounds and the log-odds of all data.

usage: mixture_peer.py TRUTH_NPZ NEGATIVE_NPY ROUNDS

It starts from the arrays: reading of calls is on our side alone.
"""
import sys
import warnings

import numpy as np
from sklearn.mixture import BayesianGaussianMixture

warnings.simplefilter("ignore")
kept = np.load(sys.argv[1])
positive, negative, rounds = kept["known"], np.load(sys.argv[2]), int(sys.argv[3])
values = kept["values"]
x = np.nan_to_num((values - np.nanmean(values[positive], axis=0)) / np.nanstd(values[positive], axis=0))
good, bad = (BayesianGaussianMixture(n_components=n, max_iter=rounds, tol=0, random_state=1).fit(x[rows]).score_samples(x)
             for n, rows in [(8, positive), (2, negative)])
print((good - bad).mean())
