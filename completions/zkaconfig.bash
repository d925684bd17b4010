# Completion of zkaconfig's command line for bash, 3.2 or later.
#
# Installed as share/bash-completion/completions/zkaconfig. Where bash reads no such directory, source this file from ~/.bashrc.
# zkaconfig itself decides what may follow: "zkaconfig __complete WORD..." writes a candidate, a tab and a description on each
# line, or ":files" if a file's name is due.

_zkaconfig() {
  local IFS=$'\n' word line candidate i isJoined=0
  local -a words=()
  COMPREPLY=()

  # Bash splits KEY=VALUE if "=" is in COMP_WORDBREAKS: join such words again.
  for ((i = 1; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [[ ${#words[@]} -gt 0 && ($word == "=" || $isJoined == 1) ]]; then
      words[${#words[@]} - 1]+=$word
    else
      words+=("$word")
    fi
    isJoined=0
    [[ $word == "=" ]] && isJoined=1
  done
  local current=${words[${#words[@]} - 1]} prefix=
  [[ $COMP_WORDBREAKS == *=* && $current == *=* ]] && prefix=${current%%=*}=

  while IFS= read -r line; do
    if [[ $line == :files ]]; then
      COMPREPLY=($(compgen -f -- "$current"))
      compopt -o filenames 2>/dev/null
      return 0
    fi
    candidate=${line%%$'\t'*}
    if [[ $candidate == *= ]]; then
      compopt -o nospace 2>/dev/null
      COMPREPLY+=("$(printf '%q' "${candidate%=}")=")
    else
      COMPREPLY+=("$(printf '%q' "${candidate#"$prefix"}")")
    fi
  done < <("$1" __complete "${words[@]}" 2>/dev/null)
}

complete -F _zkaconfig zkaconfig
