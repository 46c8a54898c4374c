# Reads one command's --help (CLI11's layout) and appends what it says to the manual page's
# COMMANDS section (the file man) and to the completions' tables (the files bash and zsh); prints
# the names of its subcommands. path is the command ("dossync contacts list").
# Give the help file twice: the first pass finds the description column.
#
# The help is "about" lines, "Usage: ...", then sections ("Options:") of entries: "  NAME"
# padded to the description column, then its description; a NAME as wide as the column stands
# alone and its description follows on the next line, indented to the column. An option's NAME
# is its names ("-h,--help") and what it takes ("TEXT:{a,b} REQUIRED", "Needs: --x" for a flag).

NR == FNR {
  if (!col && match($0, /^  -h,--help +/)) col = RLENGTH
  lines = FNR
  text[FNR] = $0
  next
}

FNR == 1 { if (!col) col = 30; before_usage = 1 }

function trim(s) { sub(/^ +/, "", s); sub(/ +$/, "", s); return s }
function continues(n) {  # a line of the description of the entry above it
  return n <= lines && substr(text[n], 1, col + base) ~ /^ *$/ &&
         substr(text[n], col + base + 1, 1) ~ /[^ ]/
}
# A word of an entry's first column rather than of a description.
function column_word(w) {
  return w ~ /^(-|Needs:|Excludes:|REQUIRED$|\.\.\.$|\(Env:|[A-Z][A-Z0-9_]*([:=].*)?$)/
}
function roff(s) {
  gsub(/\\/, "\\e", s)
  if (s ~ /^[.']/) s = "\\&" s
  return s
}
function roff_opt(s) { s = roff(s); gsub(/-/, "\\-", s); return "\\fB" s "\\fR" }
function quoted(s) { gsub(/'/, "'\\''", s); return "'" s "'" }
function add(list, item, sep) { return list == "" ? item : list sep item }
# What a value is, for the completions: file, dir, outlook (a store), job (a job's name from
# config.toml), choice:A B C, or none (nothing to offer).
function value_kind(name, rest,    c) {
  if (match(rest, /\{[^}]*\}/)) {
    c = substr(rest, RSTART + 1, RLENGTH - 2)
    gsub(/,/, " ", c)
    return "choice:" c
  }
  if (name == "--outlook") return "outlook"
  if (name == "--screenshots") return "dir"
  if (name ~ /^(--host-db|--sync-db|--password-file|--body-file|--attach|--json|PATH)$/) return "file"
  if (path == "dossync run" && name !~ /^-/) return "job"
  return "none"
}
function takes(key, kind) {
  printf "_dossync_takes[%s]=%s\n", quoted(key), quoted(kind) >> bash
  printf "_dossync_takes+=(%s %s)\n", quoted(key), quoted(kind) >> zsh
}
function entry(name, desc,    n, first, rest, names, i, k) {
  n = index(name, " ")
  first = n ? substr(name, 1, n - 1) : name
  rest = n ? trim(substr(name, n + 1)) : ""
  if (section == "Subcommands" || (section != "Positionals" && first !~ /^-/ && rest == "")) {
    if (first !~ /^[a-z][-a-z0-9]*$/) return
    print first
    subs = add(subs, first, " ")
    sub_lines = add(sub_lines, first ":" desc, "\n")
    return
  }
  if (first !~ /^-/) {  # a positional argument
    if (!positionals++) takes(path " #", value_kind(first, rest))
    man_entries = man_entries ".TP\n\\fI" roff(first) "\\fR" (rest == "" ? "" : " " roff(rest)) \
                  "\n" roff(desc) "\n"
    return
  }
  k = split(first, names, ",")
  first = ""
  for (i = 1; i <= k; i++) {
    opts = add(opts, names[i], " ")
    opt_lines = add(opt_lines, names[i] ":" desc, "\n")
    if (rest != "" && rest !~ /^(Needs:|Excludes:|\(Env:)/) takes(path " " names[i], value_kind(names[i], rest))
    first = add(first, roff_opt(names[i]), ", ")
  }
  if (names[1] == "-h" || names[1] == "--help-all") return  # said once, under OPTIONS
  man_entries = man_entries ".TP\n" first (rest == "" ? "" : " " roff(rest)) "\n" roff(desc) "\n"
}

/^Usage: / { usage = substr($0, 8); before_usage = 0; next }
before_usage { if ($0 != "") about = add(about, $0, " "); next }
/^\[/ { section = ""; next }  # an option group ("[Option Group: body]"): its heading follows
{ match($0, /^ */); indent = RLENGTH }
# A heading, maybe indented within an option group; its entries are indented two more.
/^ *[^ -][^:]*:$/ && !/[^ ]  +[^ ]/ {
  section = trim(substr($0, 1, length($0) - 1)); base = indent
  next
}
section != "" && indent == base + 2 && !continues(FNR) {
  name = $0; desc = ""; at = col + base
  split(substr($0, at + 1), words, " ")
  # Beside the description, or alone with the description below it.
  if (length($0) > at && substr($0, at, 1) == " " &&
      !(continues(FNR + 1) && column_word(words[1]))) {
    name = substr($0, 1, at); desc = trim(substr($0, at + 1))
  }
  for (n = FNR + 1; continues(n); n++) desc = add(desc, trim(text[n]), " ")
  entry(trim(name), desc)
}

END {
  printf "_dossync_subs[%s]=%s\n_dossync_opts[%s]=%s\n", quoted(path), quoted(subs),
         quoted(path), quoted(opts) >> bash
  printf "_dossync_subs+=(%s %s)\n_dossync_opts+=(%s %s)\n", quoted(path), quoted(sub_lines),
         quoted(path), quoted(opt_lines) >> zsh
  # The top command is the page's own synopsis and options (help2man's part).
  if (path == "dossync") exit
  printf ".SS \"%s\"\n%s\n.PP\n\\fB%s\\fR%s\n%s", path, roff(about), path,
         roff(substr(usage, length(path) + 1)), man_entries >> man
}
