"""Progress of a long run: a tqdm bar when tqdm is installed, a plain line otherwise."""

import contextlib
import sys


@contextlib.contextmanager
def progress_reporter(verbose, total):
    """Yields None (quiet) or a callable taking the number of elements chosen so far."""
    if not verbose:
        yield None
        return
    try:
        from tqdm import tqdm
    except ImportError:
        tqdm = None
    if tqdm is not None:
        bar = tqdm(total=total, desc="velmor", unit="element")

        def update(chosen):
            shown = min(chosen, total) if total is not None else chosen
            if shown > bar.n:
                bar.update(shown - bar.n)

        try:
            yield update
        finally:
            bar.close()
        return
    last = [-1]

    def line(chosen):
        if chosen != last[0]:
            last[0] = chosen
            of = f" of {total}" if total is not None else ""
            sys.stderr.write(f"\rvelmor: {chosen}{of} elements chosen")
            sys.stderr.flush()

    try:
        yield line
    finally:
        sys.stderr.write("\n")
