#!/bin/bash
# Every manual page in the docs directory (the companion commands' too) must
# be clean, as mandoc and as man(1) see it:
# - mandoc -T lint at the level "warning": a warning means the page may not
#   render as written (a bad macro argument, a broken table, an unparsable
#   date). The level below, "style", only gives advice on the source (input
#   lines over 80 bytes, date formats) that changes nothing a reader sees, so
#   it is not enforced here.
# - man -l, which renders with groff: no warning of groff's, all of them
#   asked for (a line that cannot be broken runs out of its table cell).
#   A page with a table must begin with '\" t, the line that tells man which preprocessor
#   it needs (man-db also guesses it, other readers and nroff -man do not).
set -u
dir=$1
pages=("$dir"/*.[1-9])
[ -e "${pages[0]}" ] || { echo "no manual pages in $dir"; exit 1; }
err=$(mktemp)
trap 'rm -f "$err"' EXIT
status=0
for page in "${pages[@]}"; do
    if ! mandoc -T lint -W warning "$page"; then
        echo "$page: mandoc reports warnings or errors"; status=1
    fi
    rendered=$(MANWIDTH=80 MAN_DISABLE_SECCOMP=1 man --warnings=w -l "$page" 2>"$err" | col -b)
    if [ -s "$err" ]; then
        echo "$page: man -l reports:"; cat "$err"; status=1
    fi
    if [ -z "$rendered" ]; then
        echo "$page: man -l renders nothing"; status=1
    fi
    if grep -q '^\.TS' "$page" && ! head -n 1 "$page" | grep -qE "^['.]\\\\\" t"; then
        echo "$page: has a table, so its first line must be '\\\" t"; status=1
    fi
done
[ $status -eq 0 ] && echo "${#pages[@]} pages clean"
exit $status
