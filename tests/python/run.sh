#!/usr/bin/env bash
# The Python package's tests, against the libraries and the service of a build.
#   run.sh BUILD-DIRECTORY SOURCE-DIRECTORY [PYTEST-ARGUMENT...]
set -euo pipefail
build=$1 source=$2
shift 2
export VANTRO_SOURCE=$source VANTROD=$build/bin/vantrod
export LD_LIBRARY_PATH=$build/lib PYTHONPATH=$source/python/src PYTHONDONTWRITEBYTECODE=1
# The system's Python: it has the packages that scripts/deps.sh names.
exec /usr/bin/python3 -m pytest -p no:cacheprovider -q "$source/tests/python" "$@"
