#!/bin/sh
# coverage.sh [--report]: the suite, instrumented; then the lines and branches of libraries and tools that it did not reach,
# and how many it did. --report only prints what is known from the last run, and from tests that were run by hand since.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

need_packages build test coverage
status=0
case ${1:-} in
'')
  build coverage
  find build-coverage -name '*.gcda' -delete # counts of earlier runs would add up
  run_tests coverage || status=$?
  ;;
--report) ;;
*)
  echo "usage: ./dev coverage [--report]" >&2
  exit 2
  ;;
esac
report=build-coverage/report
mkdir -p "$report"
# The product's objects, and those that tests compile of its sources, but not of the helper that has raised privileges and
# cannot write counts. Branches that only an exception takes say nothing about the tests, nor do those of the cleaning up
# after it.
find build-coverage/tests -type d -path '*/__/__' ! -path '*/secure_helper.dir/*' -print0 |
  xargs -0 gcovr --root . --filter 'lib/' --filter 'utils/' --filter 'messages/' --filter 'libqx_cu/' --filter 'tools/' \
    --gcov-executable "sh '$PWD/cmake/dev/gcov.sh'" --exclude-throw-branches --exclude-unreachable-branches -j "$jobs" \
    --xml-pretty --xml "$report/report.xml" --html-details "$report/index.html" \
    build-coverage/lib build-coverage/libqx_cu build-coverage/messages build-coverage/tools
awk -f cmake/dev/coverage.awk tests/coverage/unreachable "$report/report.xml" || status=$?
echo "line by line: $report/index.html"
exit "$status"
