#!/usr/bin/env bash
# Builds the Python module's wheel into a folder, without network: build_wheel.sh FOLDER
#
# From a copy, since setuptools writes beside what it reads. The same sources give the same bytes.
set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mkdir -p "$1"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
umask 022
mkdir "$scratch/veltrancord"
install -m 644 "$source/pyproject.toml" "$scratch"
install -m 644 "$source"/veltrancord/*.py "$source/veltrancord/py.typed" "$scratch/veltrancord"
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-1767225600} /usr/bin/python3 -m pip wheel --quiet \
    --disable-pip-version-check --no-cache-dir --no-index --no-deps --no-build-isolation \
    --wheel-dir "$1" "$scratch"
