#!/usr/bin/env bash
# cppcheck over everything but tests, fuzz targets and benchmarks. Nothing is built, and no system header is read: each source is
# looked at in one configuration, the one with pages. What is not reported, and why, stands in scripts/cppcheck.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files '*.cpp' ':!tests' ':!fuzz' ':!bench' |
  cppcheck --file-list=- -j 2 --quiet --error-exitcode=1 --std=c++20 --library=posix,openssl,qt \
    --enable=warning,performance,portability,style --suppressions-list=scripts/cppcheck.supp \
    -D BRICKFALL_PAGES -D SIGPIPE=13 -I . \
    --template='{file}:{line}: {severity}: {message} [{id}]'
echo "cppcheck: nothing to say"
