"""./dev bench --bin: what is said of two programs that were measured turn by turn."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

import comparison
import targets


def row(name, nanoseconds, ratio, group="short reply"):
    return {"data": "sample", "row": name, "group": group, "clients": 1, "target": 1.15, "ratio": ratio,
            "near_ratio": None, "near": None, "run": {"processor_ns": nanoseconds}}


@pytest.fixture(autouse=True)
def judged_by_groups(monkeypatch):
    monkeypatch.setattr(targets, "judge",
                        lambda results: targets.judge_group(results, "short reply", "short replies"))


def test_results_are_merged_number_by_number():
    some = [{"a": [{"x": number, "name": "n", "good": True}]} for number in (3, 1, 2)]
    assert comparison.middle(some) == {"a": [{"x": 2, "name": "n", "good": True}]}


def test_a_target_that_gets_lost_is_told():
    old = {"rows": [row("one", 1000, 1.1), row("two", 2000, 1.0)]}
    new = {"rows": [row("one", 1100, 1.2), row("two", 2000, 1.0)]}
    assert comparison.lost(old, new) == ["short replies"]
    assert comparison.lost(new, old) == []
    text = comparison.text(old, new)
    assert "| sample, one, 1 client | 1.0 | 1.1 | 1.100 | 1.15 | 1.10 met | 1.20 MISSED |" in text
    assert "short replies, new to old: 1.050" in text
    assert "met before and missed now: short replies" in text
