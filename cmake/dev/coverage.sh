#!/bin/sh
# coverage.sh: the suite, instrumented; then the lines and branches of libraries and tools that it reached.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

need_packages build test coverage
build coverage
find build-coverage -name '*.gcda' -delete # counts of earlier runs would add up
status=0
run_tests coverage || status=$?
mkdir -p build-coverage/report
# Branches that only an exception takes say nothing about the tests.
gcovr --root . --filter 'lib/' --filter 'utils/' --filter 'messages/' --filter 'libqx_cu/' --filter 'tools/' \
  --exclude-throw-branches --exclude-unreachable-branches --txt-metric branch --print-summary \
  --html-details build-coverage/report/index.html --txt - build-coverage
echo "details: build-coverage/report/index.html"
exit "$status"
