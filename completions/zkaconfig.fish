# Completion of zkaconfig's command line for fish, 3.0 or later. Installed as share/fish/vendor_completions.d/zkaconfig.fish.
# zkaconfig itself decides what may follow: "zkaconfig __complete WORD..." writes a candidate, a tab and a description on each
# line, or ":files" if a file's name is due.

function __zkaconfig_candidates
    set -l words (commandline -opc)
    set -l current (commandline -ct | string unescape)
    set -l lines ($words[1] __complete $words[2..-1] "$current" 2>/dev/null)
    if test "$lines" = ":files"
        complete -C "'' "(commandline -ct)  # __fish_complete_path wants an escaped name from fish 4 on, and a plain one before
    else if set -q lines[1]
        printf '%s\n' $lines
    end
end

complete -c zkaconfig -f -a '(__zkaconfig_candidates)'
