"""Times a program under every variant in turn, round after round.

All in one process: what the machine does meanwhile (its clock rate, its other load) then meets
neighbouring samples alike, which is why a ratio is taken within each round.
"""

from bench import variants
from bench.timing import timed
import morvik_counting


def sample(variant, program, times):
    """Processor seconds of program.run(times) under a variant."""
    share = times
    if variant in variants.SLOW:
        share = max(1, times // 10)
    with variant(program) as elsewhere:
        return (elsewhere or timed)(program, share) * times / share


def quantile(values, fraction):
    values = sorted(values)
    position = fraction * (len(values) - 1)
    below = int(position)
    above = min(below + 1, len(values) - 1)
    return values[below] + (values[above] - values[below]) * (position - below)


def ratios_to(others, samples):
    return [own / other for own, other in zip(samples, others)]


def count_events(program, times):
    morvik_counting.start()
    program.run(times)
    return morvik_counting.stop()


def measure(program, times, rounds):
    """What is known of one program: its events, and for each variant the median processor
    seconds, the median ratio to the yardstick, the quartiles of that ratio, and the median ratio
    to the program untraced."""
    # Room in the memory that there is: else a program may have the interpreter get the same piece
    # from the system, and give it back, at every call.
    cushion = [object() for _ in range(100000)]
    del cushion[::2]
    seconds = dict((variant, []) for variant in variants.ALL)
    for _ in range(rounds):
        for variant in variants.ALL:
            seconds[variant].append(sample(variant, program, times))
    results = {}
    for variant in variants.ALL:
        ratios = ratios_to(seconds[variants.YARDSTICK], seconds[variant])
        results[variant.__name__] = {
            "seconds": quantile(seconds[variant], 0.5),
            "ratio": quantile(ratios, 0.5),
            "quartiles": [quantile(ratios, 0.25), quantile(ratios, 0.75)],
            "untraced_ratio": quantile(
                ratios_to(seconds[variants.untraced], seconds[variant]), 0.5),
        }
    return {"times": times, "events": count_events(program, times), "variants": results}
