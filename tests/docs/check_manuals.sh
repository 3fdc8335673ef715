#!/usr/bin/env bash
# check_manuals.sh FOLDER: every manual page in FOLDER/man* has the sections that people look for,
# is clean under mandoc's lint, and refers only to pages that are there.
set -euo pipefail
cd "$1"

bad=0
complain() {
  printf '%s\n' "$1"
  bad=1
}

sections_of() {
  case "$1" in
    man1/* | man8/*) printf '%s\n' 'EXIT STATUS' FILES ENVIRONMENT EXAMPLES ;;
    man5/*) printf '%s\n' FILES EXAMPLES ;;
    man7/*) printf '%s\n' ENVIRONMENT EXAMPLES ;;
  esac
}

pages=(man?/*)
[ "${#pages[@]}" -ge 4 ] || complain "there are only ${#pages[@]} pages"
for page in "${pages[@]}"; do
  # It looks for other pages in the system's folder alone, so those are looked at below. Its status is
  # no success for these either, so what it prints decides.
  if { mandoc -Tlint "$page" || true; } |
    grep -vE 'referenced manual not found: Xr valmered?(-[a-z]+)? '; then
    complain "$page is not clean"
  fi
  while read -r name section _; do
    [ -e "man$section/$name.$section" ] || complain "$page refers to $name($section)"
  done < <(sed -n 's/^\.Xr \([^ ]*\) \([0-9]\).*/\1 \2/p' "$page" | grep '^valmere')
  while IFS= read -r section; do
    grep -qx "\.Sh $section" "$page" || complain "$page has no section $section"
  done < <(sections_of "$page")
done
exit "$bad"
