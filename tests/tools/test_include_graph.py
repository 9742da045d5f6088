"""Includes run downwards, and docs/architecture.md shows them as they are."""

import include_graph


def write(folder, name, text):
    (folder / name).parent.mkdir(parents=True, exist_ok=True)
    (folder / name).write_text(text)


def test_includes_run_downwards():
    found = include_graph.includes(include_graph.ROOT / "src")
    assert len(found) > 100  # they have been looked at
    assert include_graph.faults(found) == []


def test_the_document_shows_the_graph():
    graph = include_graph.drawn(include_graph.includes(include_graph.ROOT / "src"))
    assert include_graph.shown() == graph, "tests/tools/include_graph.py --write puts it there"


def test_a_folder_that_includes_what_lies_above_beside_or_nowhere_is_told(tmp_path):
    write(tmp_path, "leaf/a.h", '#include "xml/b.h"\n')
    write(tmp_path, "update/c.cpp", '#include "eventlog/d.h"\n#include "leaf/a.h"\n')
    write(tmp_path, "store/e.h", '#  include "unknown/f.h"\n')
    found = include_graph.includes(tmp_path)
    assert [line.split()[0] for line in include_graph.faults(found)] == [
        "src/leaf/a.h", "src/store/e.h", "src/update/c.cpp"]


def test_the_server_may_include_no_subsystem(tmp_path):
    write(tmp_path, "server/a.cpp", '#include "handler/b.h"\n#include "store/c.h"\n')
    assert len(include_graph.faults(include_graph.includes(tmp_path))) == 1


def test_includes_of_tests_do_not_count(tmp_path):
    write(tmp_path, "leaf/a_test.cpp", '#include "service/b.h"\n')
    assert include_graph.includes(tmp_path) == []
