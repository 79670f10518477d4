#!/bin/sh
# gcov.sh ARG...: gcov, but without the branches of conditions that a line which was run never got to. Either another branch
# leads there that was not taken, and that one is counted; or they belong to what follows an exception. Nor with those of
# a copy that was not run: of an inline routine each file that includes it has one, and of a template each type.
set -eu
said=$(gcov "$@")
printf '%s\n' "$said"
printf '%s\n' "$said" | sed -n "s/^Creating '\(.*\)'\$/\1/p" | while IFS= read -r file; do
  awk '
    /^ *[^ ]+: *[0-9]+:/ { was_run = $1 !~ /^([#=]+|-)[*:]/ }
    /:Source:.*\.h$/ { is_copy = 1 }
    after_rule { in_instance = !/^ *[^ ]+: *[0-9]+:/ }
    { after_rule = /^-+$/ }
    /^branch +[0-9]+ never executed/ && (was_run || is_copy || in_instance) { next }
    { print }' "$file" >"$file.reached"
  mv "$file.reached" "$file"
done
