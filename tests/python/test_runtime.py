"""Arrays read in place and kept alive; memory, GIL and Ctrl-C, each in a child interpreter."""

import gc
import signal
import sys
import time
import warnings

import numpy as np
import pytest

import velmor
from conftest import rbf_similarity, run_child


def test_read_in_place_and_kept_alive():
    S = rbf_similarity(40, np.float32, seed=9)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        f = velmor.FacilityLocation(S, normalize=False)
        before = f.evaluate([0, 1])
    # The function reads the caller's array: a write to it shows.
    S[0] *= 2
    S[1] *= 2
    assert f.evaluate([0, 1]) == pytest.approx(2 * before, rel=1e-6)
    # The function keeps the array alive.
    references = sys.getrefcount(S)
    del S
    gc.collect()
    assert references >= 3 and f.evaluate([0, 1]) == pytest.approx(2 * before, rel=1e-6)


def test_other_layouts_warn_once_and_agree(tmp_path):
    S = rbf_similarity(50, np.float64, seed=10)
    expected = velmor.FacilityLocationSelection(6).fit(S)
    np.save(tmp_path / "s.npy", S)
    mapped = np.load(tmp_path / "s.npy", mmap_mode="r")
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        np.testing.assert_array_equal(
            velmor.FacilityLocationSelection(6).fit(mapped).ranking_, expected.ranking_)
    for other in (np.asfortranarray(S), S.astype(np.float16), S.tolist(),
                  np.repeat(S, 2, axis=1)[:, ::2]):
        with pytest.warns(UserWarning, match="copied once.*ascontiguousarray") as record:
            selector = velmor.FacilityLocationSelection(6).fit(other)
        assert len(record) == 1
        np.testing.assert_array_equal(selector.ranking_, expected.ranking_)


MEMORY_CHILD = """
import resource, numpy as np, velmor
baseline = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024
n = 10000
X = np.empty((n, n), dtype=np.float32)
X[:] = np.linspace(0.0, 1.0, n, dtype=np.float32)
np.fill_diagonal(X, 2.0)
velmor.{selector}.fit(X)
peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024
print(baseline, X.nbytes, peak)
"""


@pytest.mark.parametrize("selector", ["FacilityLocationSelection(5)",
                                      "SoftFacilityLocationSelection(2, softness=0.1)"])
def test_fit_memory_is_the_array(selector):
    child = run_child(MEMORY_CHILD.replace("{selector}", selector))
    out, err = child.communicate(timeout=300)
    assert child.returncode == 0, err
    baseline, array, peak = map(int, out.split())
    assert peak <= baseline + 1.05 * array, (peak - baseline) / array


LONG_RUN_CHILD = """
import sys, threading, time, numpy as np, velmor
S = np.random.default_rng(0).random(({rows}, {columns}), dtype=np.float32)
ticks = [0]
def count():
    while not done:
        ticks[0] += 1
done = False
counter = threading.Thread(target=count)
counter.start()
print("fitting", flush=True)
start = time.monotonic()
try:
    {work}
    print("finished", flush=True)
except KeyboardInterrupt:
    print("interrupted", time.monotonic() - start, ticks[0], flush=True)
finally:
    done = True
"""


@pytest.mark.parametrize("rows, columns, work", [
    # Interrupted in the greedy, after the normalization (not interruptible).
    (5000, 5000, "velmor.SoftFacilityLocationSelection(5000, softness=0.1).fit(S)"),
    # The similarity of features, built tile by tile.
    (12000, 2048, "velmor.FacilityLocationFromFeatures(S, metric='dot', threads=1)"),
])
def test_ctrl_c_ends_a_long_run_and_other_threads_run(rows, columns, work):
    child = run_child(LONG_RUN_CHILD.replace("{rows}", str(rows))
                      .replace("{columns}", str(columns)).replace("{work}", work))
    assert child.stdout.readline().strip() == "fitting"
    time.sleep(2.0)
    child.send_signal(signal.SIGINT)
    sent = time.monotonic()
    out = child.stdout.readline()
    stopped_after = time.monotonic() - sent
    err = child.communicate(timeout=60)[1]
    assert out.split()[0] == "interrupted", out + err
    # Stopped within a fraction of a second; the counting thread ran meanwhile.
    assert stopped_after < 1.0
    assert int(out.split()[2]) > 10000


def test_progress_line_without_tqdm(monkeypatch, capsys):
    monkeypatch.setitem(sys.modules, "tqdm", None)
    velmor.FacilityLocationSelection(5, verbose=True).fit(rbf_similarity(40, np.float32))
    assert "velmor: 5 of 5 elements chosen" in capsys.readouterr().err
