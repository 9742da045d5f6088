#!/usr/bin/env bash
# Fails when a tracked file holds what means nothing to its reader: a folder of somebody's machine, a
# reference to a document that does not lie in the tree, an unfinished mark; or a test named otherwise.
set -uo pipefail

# Each pattern is written so that it does not match itself.
patterns=(
    '(^|[^A-Za-z0-9_.])/([w]ork|[f]arm|[h]ome/[a-z]+|[r]oot)/'
    '\b[s]pec(ification)?\b|[s]pec\.md'
    '\b[P]arts? [1-7]\.[1-9]\b|\b[P]art[0-9]'
    '\b([T]ODO|[F]IXME|[X]XX)\b'
)
status=0
for pattern in "${patterns[@]}"; do
    if git grep -nIP "$pattern" -- . ':!*.svg'; then
        status=1
    fi
done
# A test's name is CamelCase, its suite's too: one rule for the tests of every folder.
if git grep -nE '^(TEST|TEST_F|TEST_P)\( *([a-z]|[A-Za-z0-9]*_|[A-Za-z0-9]+, *([a-z]|[A-Za-z0-9]*_))' -- '*_test.cpp'; then
    status=1
fi
# A client has one owner, and one place where it ends.
if git grep -nE 'release_item|clients\.(erase|clear|pop|remove|emplace)' -- 'src/*' ':!src/server/serving.*' ':!*_test.cpp'; then
    status=1
fi
# The server knows no subsystem: what it runs is handed to it.
if git grep -nE '#include "' -- 'src/server/*' ':!*_test.cpp' | grep -vE '"(leaf|handler|server)/'; then
    status=1
fi
if ((status != 0)); then
    echo 'These lines need other words.' >&2
fi
exit "$status"
