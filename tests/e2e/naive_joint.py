"""Joint genotyping of small GVCF texts in the plainest way, to judge the driver's by.

joint_calls() reads whole texts, gathers at each position what every input says, and takes the likelihood of an alternate
count as the sum over all ways to hand the copies out to the samples, divided by the number of those ways.
A site whose decision hangs on a figure that lies at its threshold is `unsure`.
"""

import collections
import itertools
import math
import re

CLOSE = 0.02  # phred
STAR = "*"

Site = collections.namedtuple("Site", "contig pos ref alts qual samples info unsure")  # one-based pos; qual None: "."
Variant = collections.namedtuple("Variant", "start end ref alts info samples")


class Input:
    def __init__(self, text):
        self.samples, self.over, self.first = [], collections.defaultdict(dict), None
        for line in text.splitlines():
            fields = line.split("\t")
            if fields[0] == "#CHROM":
                self.samples = fields[9:]
            elif not line.startswith("#"):
                self.add(fields)

    def add(self, fields):
        info = dict(item.partition("=")[::2] for item in fields[7].split(";"))
        start = int(fields[1]) - 1
        alts = [] if fields[4] == "." else [STAR if alt == "<*:DEL>" else alt for alt in fields[4].split(",")]
        samples = [dict(zip(fields[8].split(":"), column.split(":"))) for column in fields[9:]]
        end = int(info.get("END", start + len(fields[3])))
        record = Variant(start, end, fields[3], alts, info, samples)
        self.first = self.first or record
        for position in range(start, end):
            other = self.over[fields[0]].setdefault(position, record)
            if position == start and other.start < start:
                self.over[fields[0]][position] = record

    def at(self, contig, position):
        """The record that starts there, else the first that covers it."""
        return self.over[contig].get(position)


def genotypes(alleles, ploidy):
    return sorted(itertools.combinations_with_replacement(range(alleles), ploidy), key=lambda g: g[::-1])


def log_sum(values):
    most = max(values, default=-math.inf)
    return most if most == -math.inf else most + math.log10(sum(10 ** (v - most) for v in values))


def log_choose(n, k):
    return math.log10(math.comb(n, k))


def normalized(pair):
    return [v - log_sum(pair) for v in pair]


class Model:
    """One alternate: `samples` holds log10 likelihoods by copies of it, for as many chromosomes as `priors` has counts."""

    def __init__(self, samples, priors):
        by_count, chromosomes = [0.0], 0
        for sample in (s for s in samples if sum(s) < -0.1):
            ploidy = len(sample) - 1
            chromosomes += ploidy
            by_count = [log_sum([by_count[n - k] + sample[k] + log_choose(ploidy, k)
                                 for k in range(ploidy + 1) if 0 <= n - k < len(by_count)]) for n in range(chromosomes + 1)]
        seen = []
        for count, value in enumerate(by_count):
            seen.append(value - log_choose(chromosomes, count))
            if max(seen) - 6 > seen[-1]:
                break
        self.likelihoods = normalized([seen[0], log_sum(seen[1:]) if seen[1:] else -1e6])
        prior = normalized([priors[0], log_sum(priors[1:])])
        self.posteriors = normalized([a + b for a, b in zip(self.likelihoods, prior)])
        present = max((a + b for a, b in zip(seen[1:], priors[1:])), default=-math.inf) - (seen[0] + priors[0])
        self.p_absent, self.unsure = -1e6 if present > 0 else 0.0, abs(present) < CLOSE / 10


def reduced(sample, copies):
    """Likelihoods by what `copies` counts in a genotype, rounded to whole phred."""
    ploidy, likelihoods, alleles = sample
    groups = collections.defaultdict(list)
    for genotype, value in zip(genotypes(alleles, ploidy), likelihoods):
        groups[copies(genotype)].append(value)
    sums = [log_sum(groups[k]) for k in range(ploidy + 1)]
    return [math.floor(-10 * (v - max(sums)) + 0.5) * -0.1 for v in sums]


def call(alts, samples, is_snp, mode, call_conf, emit_conf):
    """The alternates that stay (None: nothing to emit), QUAL, and whether that is unsure."""
    samples = [s for s in samples if s]
    chromosomes = sum(s[0] for s in samples)
    if not chromosomes:
        return None, None, False
    theta = 0.001 if is_snp else 0.000125
    priors = [math.log10(theta / i) for i in range(1, chromosomes + 1)]
    absent = math.log10(1 - sum(10**p for p in priors))
    present, priors = log_sum(priors), [absent, *priors]
    unsure = False
    if len(alts) == 1:
        site = Model([s[1] for s in samples], priors)
        p_absent, unsure = [site.p_absent], site.unsure
    else:
        informative = [s for s in samples if sum(s[1]) < -0.1]
        models = [Model([reduced(s, lambda g: g.count(a + 1)) for s in informative], priors) for a in range(len(alts))]
        ranked = sorted(range(len(alts)), key=lambda a: -models[a].posteriors[1])

        def at_rank(a, rank):
            prior = [math.log10(-math.expm1(rank * present * math.log(10))), rank * present]
            return normalized([x + y for x, y in zip(prior, models[a].likelihoods)])[0]

        p_absent = [at_rank(a, ranked.index(a) + 1) for a in range(len(alts))]
        for a in range(len(alts)):  # with a neighbour in rank that is as likely it may change places
            for b in range(len(alts)):
                if a != b and abs(models[a].posteriors[1] - models[b].posteriors[1]) < CLOSE / 10:
                    unsure |= (-10 * at_rank(a, ranked.index(b) + 1) > emit_conf) != (-10 * p_absent[a] > emit_conf)
        site = Model([reduced(s, lambda g: len(g) - g.count(0)) for s in informative], priors)
    kept = [alt for alt, p in zip(alts, p_absent) if -10 * p > emit_conf and alt != "<NON_REF>"]
    qual = -10 * site.posteriors[0 if kept else 1]
    unsure |= any(abs(-10 * p - emit_conf) < CLOSE for p in p_absent) or min(abs(qual - call_conf), abs(qual - emit_conf)) < CLOSE
    if not (mode == "all" or qual >= call_conf) and qual < emit_conf:
        return None, qual, unsure
    return (kept if kept or mode != "variant" else None), qual, unsure


def union(events, position, ref):
    """The alternates of all events, and for each event the index of each of its own: 0 for none that takes part."""
    longest, alts, star, texts = len(ref), [], False, []
    for event in events:
        texts.append([])
        for alt in event.alts if event else []:
            if alt == "<NON_REF>":
                text = None
            elif event.start < position:
                text = STAR if len(event.ref) > len(alt) else None
            else:
                text = alt if alt == STAR else alt + ref[len(event.ref) : longest]
            star |= text == STAR
            if text not in (None, STAR, *alts):
                alts.append(text)
            texts[-1].append(text)
    return alts + [STAR] * star, texts


def numbers(text):
    return [] if text in (None, ".", "") else [int(n) for n in text.split(",")]


def ploidy_of(sample):
    return len(re.split("[/|]", sample.get("GT", ".")))


def likelihoods_of(sample):
    """Ploidy and PL, without either 0 and nothing."""
    pl = numbers(sample.get("PL")) if sample.get("GT", ".") != "." else []
    return ploidy_of(sample) if pl else 0, pl


def most_likely(alts, texts, events, limit):
    """The `limit` alternates that the samples speak for most, in their order."""
    scores = dict.fromkeys(alts, 0)
    for event, own in zip(events, texts):
        own = [text if text != STAR or STAR not in own[:i] else None for i, text in enumerate(own)]
        for sample in event.samples if event else []:
            ploidy, pl = likelihoods_of(sample)
            if not pl:
                continue
            best, carried = pl[0], set()
            for value, genotype in zip(pl, genotypes(len(own) + 1, ploidy)):
                listed = {own[a - 1] for a in genotype if a and own[a - 1]}
                if listed and value < best:
                    best, carried = value, listed
            for text in carried:
                scores[text] += best - pl[0]
    chosen = sorted(alts, key=lambda text: scores[text])[:limit]  # a stable sort
    return [text for text in alts if text in chosen]


def remapped(event, own, sample, alts, position):
    """Ploidy and likelihoods over the union (None without), AD and DP."""
    starts, block = event.start == position, event.alts == ["<NON_REF>"]
    dp = int(sample["DP"]) if sample.get("DP", ".") != "." else 0
    if (block or not starts) and "MIN_DP" in sample:
        dp = int(sample["MIN_DP"])
    ad, (ploidy, pl) = numbers(sample.get("AD")), likelihoods_of(sample)
    unknown = event.alts.index("<NON_REF>") + 1 if "<NON_REF>" in event.alts else len(event.alts) + 1
    rank = {g: i for i, g in enumerate(genotypes(len(event.alts) + 1, ploidy))}
    source = {"": 0}
    for i, text in enumerate(own):
        if text and (text not in source or (pl and text == STAR and pl[rank[(i + 1,) * ploidy]] < pl[rank[(source[text],) * ploidy]])):
            source[text] = i + 1
    places = [source.get(text, unknown) for text in ["", *alts]]
    if ad and starts and not block:
        ad = [ad[place] if place != unknown else 0 for place in places]
    else:
        ad = None
    if not pl or (len(pl) == 1 and alts):
        return None, ad, dp
    # Without <NON_REF> an allele that the record does not know is as unlikely as what it finds least likely.
    likelihoods = [pl[rank.get(tuple(sorted(places[a] for a in g)), pl.index(max(pl)))] * -0.1 for g in genotypes(len(places), ploidy)]
    return (ploidy, likelihoods, len(places)), ad, dp


def assigned(likelihoods, alts, kept):
    """GT and PL over the kept alternates."""
    ploidy, values, alleles = likelihoods
    renumbered = {0: 0, **{alts.index(text) + 1: i + 1 for i, text in enumerate(kept)}}
    walked = [(g, math.floor(-10 * v + 0.5)) for g, v in zip(genotypes(alleles, ploidy), values) if renumbered.keys() >= set(g)]
    best = min(pl for _, pl in walked)
    total = sum(pl for _, pl in walked) - (best * len(walked) if len(walked) < len(values) else 0)
    if total < 1 and kept:
        return None, None
    chosen = next(g for g, pl in walked if pl == best)
    return "/".join(str(renumbered[a]) for a in chosen), [pl - best for _, pl in walked] if kept else None


def joint_calls(texts, reference, *, mode="variant", call_conf=30, emit_conf=30, max_alt=100, uniquify=False):
    """The names of the columns and the sites, of `texts` on `reference`, which has the bases of each contig."""
    inputs, names, columns = [Input(text) for text in texts], [], []
    for given in inputs:
        columns.append([])
        for name in given.samples:
            unused = next(f"{name}:{k}" for k in itertools.count(1) if f"{name}:{k}" not in names) if name in names else name
            columns[-1].append(len(names) if name not in names or uniquify else None)
            if columns[-1][-1] is not None:
                names.append(unused)
    ploidies = [2] * len(names)
    for given, own in zip(inputs, columns):
        for column, sample in zip(own, given.first.samples if given.first else []):
            if column is not None:
                ploidies[column] = ploidy_of(sample)
    used = [i for i, own in enumerate(columns) if any(column is not None for column in own)]  # others have no say
    inputs, columns = [inputs[i] for i in used], [columns[i] for i in used]
    sites = []
    for contig, bases in reference.items():
        for position in sorted(set().union(*(given.over[contig] for given in inputs))):
            if mode != "all" and not any(e and e.start == position for e in (given.at(contig, position) for given in inputs)):
                continue
            site = call_site(contig, position, bases, inputs, columns, ploidies, mode, call_conf, emit_conf, max_alt)
            if site:
                sites.append(site)
    return names, sites


def call_site(contig, position, bases, inputs, columns, ploidies, mode, call_conf, emit_conf, max_alt):
    events = [given.at(contig, position) for given in inputs]
    if not any(events):
        return None
    longest = max([1, *(len(e.ref) for e in events if e and e.start == position)])
    ref = bases[position : position + longest]
    alts, texts = union(events, position, ref)
    if not alts:  # then QUAL tells how sure the reference is
        if mode != "all":
            return None
        alts = ["<NON_REF>"]
    if len(alts) > max_alt:
        alts = most_likely(alts, texts, events, max_alt)
        texts = [[text if text in alts else None for text in own] for own in texts]
    merged = [(None, None, None)] * len(ploidies)
    for event, own, targets in zip(events, texts, columns):
        for target, sample in zip(targets, event.samples if event else []):
            if target is not None:
                merged[target] = remapped(event, own, sample, alts, position)
    is_snp = longest == 1 and all(len(text) == 1 for text in alts if text != "<NON_REF>")
    kept, qual, unsure = call(alts, [m[0] for m in merged], is_snp, mode, call_conf, emit_conf)
    if kept is None or (kept and not set(kept) - {STAR}):
        return Site(contig, position + 1, ref, [], None, [], {}, True) if unsure else None
    depth = sum(dp for likelihoods, _, dp in merged if likelihoods)
    if not kept:
        merged = [m if m[0] and sum(m[0][1]) <= -0.09 else (None, None, None) for m in merged]
        if not any(m[0] for m in merged):
            if mode != "all":
                return None
            qual = None
    samples = []
    for (likelihoods, ad, dp), ploidy in zip(merged, ploidies):
        sample = {"GT": "/".join(["."] * ploidy)}
        if likelihoods:
            gt, pl = assigned(likelihoods, alts, kept)
            sample = {"GT": gt or "/".join(["."] * likelihoods[0]), "PL": pl, "DP": dp,
                      "AD": ad and [ad[0], *(ad[alts.index(text) + 1] for text in kept)]}
        samples.append(sample)
    given = [int(e.info["DP"]) for e in events if e and "DP" in e.info]
    info = {"DP": str(sum(given) if given else depth)}
    own = [e.info for e in events if e and e.start == position and "RAW_MQ" in e.info]
    if own:
        squares, reads = (sum(float(values[key]) for values in own) for key in ("RAW_MQ", "DP"))
        info |= {"MQ": f"{math.sqrt(squares / reads):.2f}"} if reads else {}
        info["RAW_MQ"] = f"{squares:.2f}"
        ranks = sorted(float(values["MQRankSum"]) for values in own if "MQRankSum" in values)
        info |= {"MQRankSum": f"{ranks[len(ranks) // 2]:.2f}"} if ranks else {}
    real = [text for text in kept if text != STAR]
    trim = 0
    while real and trim < min(map(len, [ref, *real])) - 1 and len({text[-1 - trim] for text in [ref, *real]}) == 1:
        trim += 1
    cut = lambda text: text if text == STAR else text[: len(text) - trim]
    return Site(contig, position + 1, cut(ref), [cut(t) for t in kept], qual, samples, info, unsure)
