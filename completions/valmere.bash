# Completion of valmere for bash; installed as bash-completion/completions/valmere.
# The program takes the line apart itself: $2 is the end of it that bash is about to replace.
_valmere() {
  mapfile -t COMPREPLY < <("$1" __complete --bash "${COMP_LINE:0:COMP_POINT}" "$2" 2>/dev/null)
  # A folder and "--option=" go on.
  if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == *[/=] ]]; then
    compopt -o nospace 2>/dev/null
  fi
}
complete -F _valmere valmere
