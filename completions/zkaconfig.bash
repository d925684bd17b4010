# Completion of zkaconfig's command line for bash, 3.2 or later.
#
# Installed as share/bash-completion/completions/zkaconfig; where no such directory is read, source it from ~/.bashrc.

# Offers those lines of standard input that begin with $1, each with $2 behind it.
_zkaconfig_offer() {
  local line
  while IFS= read -r line; do
    [[ $line == "$1"* ]] && COMPREPLY+=("$(printf '%q' "$line")$2")
  done
}

_zkaconfig_files() {
  COMPREPLY=($(compgen -f -- "$current"))
  compopt -o filenames 2>/dev/null
  return 0
}

_zkaconfig() {
  local program=$1 previous= current= word command= section= rest=0 i
  local IFS=$'\n'
  local -a reading=(--no-lock) operands=()
  COMPREPLY=()

  # "=" takes KEY=VALUE apart where it is in COMP_WORDBREAKS: put such words together again.
  local -a words=()
  local isJoined=0
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

  local last=$((${#words[@]} - 1))
  current=${words[last]}
  for ((i = 0; i < last; i++)); do
    word=${words[i]}
    if [[ -n $previous ]]; then
      [[ $previous == --config || $previous == --daemon-section ]] && reading+=("$previous=$word")
      previous=
      continue
    fi
    case $word in
      --) rest=1 ;;
      --config=* | --daemon-section=*) reading+=("$word") ;;
      --config | --tool | --daemon-section | --timeout) previous=$word ;;
      -?*) [[ $rest == 1 ]] && operands+=("$word") ;;
      *) operands+=("$word") ;;
    esac
  done

  case $previous in
    --config | --tool)
      _zkaconfig_files
      return
      ;;
    --daemon-section | --timeout) return ;;
  esac
  if [[ $current == -* && $rest == 0 ]]; then
    COMPREPLY=($(compgen -W "$("$program" --help | sed -n 's/^  [- ][A-Za-z ][, ] \(--[a-z-]*\).*/\1/p')" -- "$current"))
    return
  fi
  if [[ ${#operands[@]} == 0 ]]; then
    COMPREPLY=($(compgen -W $'show\nget\nset\napply\ndiff\nlist' -- "$current"))
    return
  fi

  command=${operands[0]}
  case $command in
    apply | diff)
      [[ ${#operands[@]} == 1 ]] && _zkaconfig_files
      ;;
    show | get | list)
      if [[ ${#operands[@]} == 1 ]]; then
        _zkaconfig_offer "$current" "" < <("$program" "${reading[@]}" list 2>/dev/null)
      elif [[ ${#operands[@]} == 2 && $command != show ]]; then
        _zkaconfig_offer "$current" "" < <("$program" "${reading[@]}" list "${operands[1]}" 2>/dev/null)
      fi
      ;;
    set) _zkaconfig_set ;;
  esac
}

# Behind "set": a section, its keys, the words for a key's value; behind a setting, another section too. Uses _zkaconfig's variables.
_zkaconfig_set() {
  local hasSetting=0
  for word in "${operands[@]:1}"; do
    hasSetting=1
    [[ $word == *=* ]] || { section=$word hasSetting=0; }
  done
  if [[ $current == *=* ]]; then
    local key=${current%%=*}
    local prefix="$key="
    [[ $COMP_WORDBREAKS == *=* ]] && prefix=
    _zkaconfig_offer "${current#*=}" "" < <("$program" "${reading[@]}" list "$section" "$key" 2>/dev/null)
    for i in "${!COMPREPLY[@]}"; do COMPREPLY[i]=$prefix${COMPREPLY[i]}; done
    return
  fi
  if [[ -n $section ]]; then
    _zkaconfig_offer "$current" "=" < <("$program" "${reading[@]}" list "$section" 2>/dev/null)
    [[ ${#COMPREPLY[@]} -gt 0 ]] && compopt -o nospace 2>/dev/null
  fi
  if [[ -z $section || $hasSetting == 1 ]]; then
    _zkaconfig_offer "$current" "" < <("$program" "${reading[@]}" list 2>/dev/null)
  fi
  return 0
}

complete -F _zkaconfig zkaconfig
