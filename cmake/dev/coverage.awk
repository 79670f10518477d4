# coverage.awk UNREACHABLE REPORT: prints what gcovr's report says is not reached, then one row a folder. What UNREACHABLE
# excuses is neither asked for nor counted; an excuse that nothing needs any more is a failure.
BEGIN { status = 0 }

function attribute(name) {
  if (!match($0, " " name "=\"[^\"]*\"")) return ""
  return substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4)
}

function trimmed(text) {
  gsub(/^[ \t]+|[ \t]+$/, "", text)
  return text
}

# The text of a line: the file is read when it is first asked for.
function source_text(file, number,    text, line) {
  if (!(file in is_read)) {
    is_read[file] = 1
    while ((getline line < file) > 0) text_of[file, ++lines_in[file]] = trimmed(line)
    close(file)
  }
  return text_of[file, number]
}

# How many branches of the line are excused; -1: the line itself.
function excused(file, text,    key) {
  key = file SUBSEP text
  if (!(key in excuse)) return 0
  used[key] = 1
  return excuse[key]
}

function complain(place, what, text) {
  printf "%-44s %-18s %s\n", place, what, text
}

function add(folder, lines, reached, branches, taken) {
  all_lines[folder] += lines
  all_reached[folder] += reached
  all_branches[folder] += branches
  all_taken[folder] += taken
}

function count_line(number, hits, branches, taken,    text, place, excuse_of_line) {
  folder = file
  sub(/\/[^\/]*$/, "", folder)
  if (!(folder in is_known)) {
    is_known[folder] = 1
    folders[++folder_count] = folder
  }
  text = source_text(file, number)
  place = file ":" number
  if (text ~ /^} catch \(.*\) \{$/) branches = taken = 0  # only an exception comes here
  excuse_of_line = hits == 0 || taken < branches ? excused(file, text) : 0
  if (excuse_of_line < 0 && hits == 0) {
    ++unreachable_lines
    unreachable_branches += branches
    return
  }
  if (excuse_of_line != 0 && (excuse_of_line < 0 || excuse_of_line > branches - taken)) {
    complain(place, "excused too much", text)
    status = 1
    excuse_of_line = 0
  }
  unreachable_branches += excuse_of_line
  branches -= excuse_of_line
  add(folder, 1, hits > 0, branches, taken)
  add(folder ~ /^tools/ ? "the tools" : "the libraries", 1, hits > 0, branches, taken)
  if (hits == 0) {
    complain(place, "not run", text)
  } else if (taken < branches) {
    complain(place, (branches - taken) " of " branches " branches", text)
  }
}

function share(part, whole) {
  # Never rounded up to 100.
  return whole == 0 ? 100 : int(1000 * part / whole) / 10
}

function row(name) {
  if (all_lines[name] == 0) return
  printf "%-28s %6d %6d %7.1f %% %9d %6d %7.1f %%\n", name, all_lines[name], all_reached[name],
    share(all_reached[name], all_lines[name]), all_branches[name], all_taken[name],
    share(all_taken[name], all_branches[name])
}

# The first file: FILE ## N ## THE LINE ## REASON
FILENAME == ARGV[1] {
  if ($0 ~ /^#/ || $0 == "") next
  if (split($0, part, " ## ") != 4) {
    print FILENAME ":" FNR ": not FILE ## BRANCHES ## THE LINE ## REASON" > "/dev/stderr"
    status = 1
    next
  }
  excuse[part[1], part[3]] = part[2] == "line" ? -1 : part[2] + 0
  where[part[1], part[3]] = FILENAME ":" FNR
  next
}

/<class / { file = attribute("filename") }
/<lines>/ { in_lines = 1 }
/<\/lines>/ { in_lines = 0 }
/<line / && in_lines {
  branches = taken = 0
  # condition-coverage="50% (1/2)"
  if (match($0, /\([0-9]+\/[0-9]+\)/)) {
    split(substr($0, RSTART + 1, RLENGTH - 2), fraction, "/")
    taken = fraction[1]
    branches = fraction[2]
  }
  count_line(attribute("number"), attribute("hits") + 0, branches, taken)
}

END {
  for (key in excuse) {
    if (key in used) continue
    split(key, part, SUBSEP)
    print where[key] ": nothing to excuse: " part[1] ": " part[2] > "/dev/stderr"
    status = 1
  }
  printf "\n%-28s %6s %6s %9s %9s %6s %9s\n", "", "lines", "run", "", "branches", "taken", ""
  for (i = 1; i <= folder_count; ++i) row(folders[i])
  row("the libraries")
  row("the tools")
  printf "not counted: %d lines and %d branches that nothing reaches, each with its reason in tests/coverage/unreachable\n",
    unreachable_lines, unreachable_branches
  exit status
}
