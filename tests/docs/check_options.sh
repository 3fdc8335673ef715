#!/usr/bin/env bash
# check_options.sh PAGE PROGRAM...: each long option that a program's help lists, or that of one of its
# commands, stands in the manual page.
set -euo pipefail
page=$(mandoc -Tascii "$1" | sed "s/.\x08//g")
program=$2

# The words of a section of a help that begin its lines.
listed() { # SECTION COMMAND...
  local section=$1
  shift
  "$program" "$@" --help | sed -n "/^$section:/,/^$/p" | sed -nE 's/^  (-.,)?([^ ]+).*/\2/p'
}

bad=0 seen=0
check() {
  local option
  while IFS= read -r option; do
    seen=$((seen + 1))
    grep -qE -- "(^|[^-a-z])$option([^-a-z]|$)" <<<"$page" && continue
    printf '%s is not in the page: %s\n' "$option" "$*"
    bad=1
  done < <(listed Options "$@")
  local command
  while IFS= read -r command; do
    check "$@" "$command"
  done < <(listed Subcommands "$@")
}
check
[ "$seen" -ge 5 ] || { printf 'only %s options were seen\n' "$seen"; bad=1; }
exit "$bad"
