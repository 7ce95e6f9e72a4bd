#!/bin/bash
# The bash completion, loaded as bash-completion loads it, completing command
# lines against a table and the disks and volumes of a simulated server (its
# /etc/opt/KVTPslotag and /dev are the ones the completion reads). Prints
# COMPREPLY for each line and compares it with completion.expected
# (TS_UPDATE=1 rewrites that file).
# Arguments: slotag-sim, the completion file, the directory to work in.
set -u
sim=$1 completion=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
expected=$here/completion.expected
root=$work/completion.root
out=$work/completion.out
rm -rf "$root" "$root.user"
mkdir -p "$work"

cat >"$root.topology" <<'TOPOLOGY'
adapter 0000:05:00.0
pm
adapter 0000:06:00.0
pm
host 0 0000:05:00.0
host 1 0000:06:00.0
disk sda host=0 parts=2
disk sdb host=1 id=scsi-35000c500a1b2c3d4
# a multipath device: its device link leads into the multipath tree
disk sdc
kvph kvph0 disk=sdc
path scsi_host_0 0
vds
volume data/vol1
volume data/vol2
volume logs/v1 char
# a regular file is no device
file dev/notadisk
TOPOLOGY
"$sim" build "$root" "$root.topology" >/dev/null || { echo "sim build failed"; exit 1; }

cat >"$root/etc/hba_addr.conf" <<'TABLE'
# rack 4, labels on several lines
A,/dev/sdb 0000:05:00.0 #first path
	# ghost,/dev/sdz 0000:09:00.0 (a comment, no label)

B,/dev/sdc 0000:06:00.0
  A,/dev/sdd 0000:06:00.0
rack4:slot1,manual 0000:05:00.0
nocomma 0000:05:00.0
$(id),written-by-hand 0000:05:00.0
/dev/vdsdev/data/dsk/vol1,/dev/sdb 0000:05:00.0
C,/dev/sde 0000:06:00.0 # last, without a newline
TABLE
printf 'other,/dev/sdb 0000:05:00.0\n#x,y 0000:05:00.0\nB,/dev/sdc 0000:06:00.0' >"$root/other.conf"

# The user's completion directory, as bash-completion's loader searches it.
mkdir -p "$root.user/completions"
ln -s "$completion" "$root.user/completions/slotag"

cat >"$root.driver" <<'DRIVER'
# complete LINE: completes at the end of LINE, with the line split into words
# as readline splits it (blanks, and ":" as a word of its own).
complete_line() {
    local line=$1 w
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMP_WORDS=()
    for w in $(sed 's/:/ : /g' <<<"$line"); do COMP_WORDS+=("$w"); done
    [[ $line == *[' :'] ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _slotag slotag "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
    printf '$ %s%s<TAB>\n' "${KVTPslotag+KVTPslotag=\"$KVTPslotag\" }" "$line"
    if ((${#COMPREPLY[@]})); then printf '%s\n' "${COMPREPLY[@]}"; else echo "(nothing)"; fi
}
DRIVER

cases() {  # the cases, run in bash inside the simulated server
    cat <<CASES
export LC_ALL=C
BASH_COMPLETION_USER_DIR=$root.user
. /usr/share/bash-completion/bash_completion
. $root.driver
echo "== loaded on demand by bash-completion"
__load_completion slotag && complete -p slotag
echo "== modes; the extended options only with KVTPslotag=KESTREL exactly"
complete_line 'slotag '
complete_line 'slotag -'
KVTPslotag=KESTREL complete_line 'slotag '
KVTPslotag='KESTREL ' complete_line 'slotag -'
KVTPslotag=kestrel complete_line 'slotag -'
complete_line 'slotag -l -'
KVTPslotag=KESTREL complete_line 'slotag -r -'
echo "== labels for every operand of -d, each once, none from comments, quoted"
complete_line 'slotag -d '
complete_line 'slotag -d A '
complete_line 'slotag -d /dev/v'
complete_line 'slotag -dd rack4:'
complete_line 'slotag B -d '
echo "== labels for the first operand of -c only"
complete_line 'slotag -c '
complete_line 'slotag -c A '
complete_line 'slotag -c -- '
echo "== the -f table when the extended options are on"
KVTPslotag=KESTREL complete_line 'slotag -f $root/other.conf -d '
KVTPslotag=KESTREL complete_line 'slotag -f$root/other.conf -c '
KVTPslotag=KESTREL complete_line 'slotag -d -f $root/missing.conf '
complete_line 'slotag -f $root/other.conf -d '
KVTPslotag=KESTREL complete_line 'slotag -l -t '
KVTPslotag=KESTREL complete_line 'slotag -d -o $root/oth'
echo "== disks, partitions, links, multipath devices, volumes and classes for -a"
complete_line 'slotag -a '
complete_line 'slotag -a /dev/sdb '
complete_line 'slotag -a /dev/vdsdev/'
complete_line 'slotag -a l'
complete_line 'slotag -a /dev/vdsdev/_'
complete_line 'slotag -a /dev/no'
complete_line 'slotag -a /us'
echo "== without bash-completion"
unset -f _get_comp_words_by_ref __ltrim_colon_completions
complete_line 'slotag -c '
CASES
}

cases >"$root.cases"
"$sim" run "$root" -- bash --norc --noprofile -c ". '$completion'; . '$root.cases'" >"$out" 2>&1
echo "status $?" >>"$out"
sed -i "s|$root|ROOT|g" "$out"
if [ "${TS_UPDATE:-}" = 1 ]; then cp "$out" "$expected"; exit 0; fi
diff -u "$expected" "$out" || { echo "output differs from $expected"; exit 1; }
rm -rf "$root" "$root".*
