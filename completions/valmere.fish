# Completion of valmere for fish; installed as fish/vendor_completions.d/valmere.fish.
# fish takes the words before the cursor apart; the one at the cursor may be within a quote.
function __valmere_candidates
    set -l words (commandline -opc)
    set -l token (commandline -ct)
    set -l typed (string unescape -- $token 2>/dev/null
        or string unescape -- $token"'" 2>/dev/null
        or string unescape -- $token'"' 2>/dev/null
        or echo -- $token)
    $words[1] __complete -- $words[2..] "$typed" 2>/dev/null
end
complete -c valmere -f -a '(__valmere_candidates)'
