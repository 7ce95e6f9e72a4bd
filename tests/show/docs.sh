#!/bin/bash
# slotag-show's man page is lint clean and documents every option the
# program's help lists; the bash completion offers exactly those options.
# Usage: docs.sh SOURCE-DIR SLOTAG-SHOW
set -u
top=$1 show=$2
fail=0
lint=$(mandoc -T lint "$top/docs/slotag-show.8" 2>&1) || { echo "$lint"; fail=1; }
options=$("$show" --help | grep -E '^ +-' | grep -oE -- '--?[a-z]+' | sort -u)
page=$(mandoc -T ascii "$top/docs/slotag-show.8" | sed 's/.\x08//g')
for o in $options; do
    grep -qF -- "$o" <<<"$page" || { echo "the man page does not mention $o"; fail=1; }
done
for field in would_register summary controllers outside duplicates problems bus_id \
             physical_slot sysfs_slots alt_pm pm_cap alterpm same_as_line stage site explanation \
             action detail nearby messages; do
    grep -qw -- "$field" <<<"$page" || { echo "the man page does not document $field"; fail=1; }
done
for status in 0 1 2; do
    sed -n '/^EXIT STATUS/,/^[A-Z]/p' <<<"$page" | grep -qE "^ +$status( |$)" ||
        { echo "exit status $status is not documented"; fail=1; }
done
completed=$(bash -c '. "$1/bash-completion/slotag-show"
    COMP_WORDS=(slotag-show -); COMP_CWORD=1; _slotag_show; printf "%s\n" "${COMPREPLY[@]}"' _ "$top" | sort -u)
[ "$completed" = "$options" ] || { echo "completion offers:" $completed "; help lists:" $options; fail=1; }
exit $fail
