#!/usr/bin/python3
"""Prints what gaussian_mixture_model_test.cpp expects, from the formulas alone, with numpy and scipy.

The data are sines, which both sides form; the steps are those of Bishop (2006), 10.2, for the stated start.
"""
import numpy as np
from scipy.special import digamma, logsumexp
from scipy.stats import multivariate_normal, norm

DATA, N = 90, 3
X = np.array([[2 * np.sin(1 + (i + 1) * (d + 1) * 0.7) + (2 if i % 3 == 0 else 0) for d in range(N)] for i in range(DATA)])
MU = np.array([[2.0, 1.5, 2.0], [-0.5, 0.0, 0.5]])
SIGMA = 30 * np.array([np.diag([2.0, 1.0, 3.0]) + 0.3, np.diag([1.0, 2.0, 1.5]) - 0.2])
SHRINKAGE, DIRICHLET, PRIOR_COUNTS, PRIOR = 1.5, 0.01, 12.0, np.eye(N) / 200
LN10 = np.log(10)


def expect(mu, sigma, a, b, lam):
    logs = np.empty((DATA, len(mu)))
    for c in range(len(mu)):
        away = X - mu[c]
        q = a[c] * np.einsum("ij,ij->i", away @ np.linalg.inv(sigma[c]), away)
        wishart = N * np.log(2) + digamma((a[c] + 1 - np.arange(1, N + 1)) / 2).sum() - np.linalg.slogdet(sigma[c])[1]
        logs[:, c] = digamma(lam[c]) - digamma(lam.sum()) + wishart / 2 - N / (2 * b[c]) - q / 2
    return np.exp(logs - logsumexp(logs, axis=1, keepdims=True))


def maximise(r):
    count = r.sum(axis=0)
    raw = r.T @ X / count[:, None]
    f = count / (SHRINKAGE + count)
    sigma = np.array([(r[:, c, None] * (X - raw[c])).T @ (X - raw[c]) + PRIOR
                      + f[c] * SHRINKAGE * np.outer(raw[c], raw[c]) for c in range(r.shape[1])])
    return count, f[:, None] * raw, sigma


class Generator:
    """The 48-bit linear congruential generator."""

    def __init__(self, seed):
        self.state, self.spare = (seed ^ 25214903917) & (1 << 48) - 1, None

    def next(self, bits):
        self.state = (self.state * 25214903917 + 11) & (1 << 48) - 1
        return self.state >> 48 - bits

    def long(self):
        signed = [v - (v >> 31 << 32) for v in (self.next(32), self.next(32))]
        return (signed[0] << 32) + signed[1]

    def double(self):
        return ((self.next(26) << 27) + self.next(27)) * 2.0**-53

    def gaussian(self):
        if self.spare is not None:
            value, self.spare = self.spare, None
            return value
        while True:
            a, b = 2 * self.double() - 1, 2 * self.double() - 1
            s = a * a + b * b
            if 0 < s < 1:
                break
        m = np.sqrt(-2 * np.log(s) / s)
        self.spare = b * m
        return a * m


def show(name, values):
    print(f"{name}: " + ", ".join(f"{v:.12g}" for v in np.ravel(values)))


k = len(MU)
r = expect(MU, SIGMA, np.full(k, PRIOR_COUNTS), np.full(k, SHRINKAGE), np.full(k, DIRICHLET))
count, mu, sigma = maximise(r)
show("probSum", count)
show("mu", mu)
show("sigma, lower triangles", [s[np.tril_indices(N)] for s in sigma])
r = expect(mu, sigma, PRIOR_COUNTS + count, SHRINKAGE + count, DIRICHLET + count)
count, mu, sigma = maximise(r)
sigma = sigma / count[:, None, None]
weight = count / DATA


def density(x):
    return np.log10(sum(weight[c] * multivariate_normal.pdf(x, mu[c], sigma[c]) for c in range(k)))


show("density of data 0, 1, 45", density(X[[0, 1, 45]]))
show("density of datum 1 by dimension", [np.log10(sum(weight[c] * norm.pdf(X[1, d], mu[c, d], sigma[c, d, d] ** 0.5)
                                                      for c in range(k))) for d in range(N)])
generator = Generator(Generator(5).long())
drawn = []
for _ in range(20):
    x = X[1].copy()
    x[0], x[2] = generator.gaussian(), generator.gaussian()
    drawn.append(10 ** density(x))
show("density of datum 1 without dimensions 0 and 2", np.log10(np.mean(drawn)))
generator = Generator(Generator(6).long())
drawn = []
for _ in range(20):
    for c in range(k):
        own = mu[c] + np.linalg.cholesky(sigma[c]) @ [generator.gaussian() for _ in range(N)]
        own[1] = X[1, 1]
        drawn.append(weight[c] * multivariate_normal.pdf(own, mu[c], sigma[c]))
show("the same drawn by component", np.log10(sum(drawn) / 20))
show("digamma of 0.001, 0.5, 7, 1e6", digamma([0.001, 0.5, 7, 1e6]))
