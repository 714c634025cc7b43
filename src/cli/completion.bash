# Bash completion for yinet. It knows no names of its own: the program is asked for commands, options, functions and the
# parameters of a function, so what is new there is new here.

# The first words of the rows in one section of a text on standard input.
_yinet_rows() { awk -v head="$1:" '$0 == head { on = 1; next } !/^  / { on = 0 } on { sub(/^-[a-z],/, "", $1); print $1 }'; }

# The values that "NAME:{a,b}" in a help text offers for an option or a positional.
_yinet_choices() { sed -nE "s/^  $1( [A-Z]*)?:\{([^}]*)\}.*/\2/p" | tr ',' ' '; }

_yinet_functions() { "$1" functions 2>/dev/null | awk '/^  [A-Z]/ { print $1 }'; }

_yinet() {
  local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local global help words='' word arguments=() path=()
  global=$("$program" --help 2>/dev/null) || return
  help=$global
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if _yinet_rows Subcommands <<<"$help" | grep -qxF -e "$word"; then
      path+=("$word")
      help=$("$program" "${path[@]}" --help)
    elif [[ $word != -* ]]; then
      arguments+=("$word")
    fi
  done
  COMPREPLY=()
  case $previous in
    --settings | --json | --out | =) return ;;
    --*) words=$(_yinet_choices "$previous" <<<"$help"$'\n'"$global") ;;
  esac
  if [[ -z $words ]]; then
    case "$current:${path[*]}:${#arguments[@]}" in
      -*) words=$(_yinet_rows Options <<<"$help"$'\n'"$global") ;;
      *:call:0 | *:functions:0) words=$(_yinet_functions "$program") ;;
      *:call:*)
        words=$("$program" functions "${arguments[0]}" 2>/dev/null | _yinet_rows Parameters | sed 's/$/=/')
        compopt -o nospace 2>/dev/null || true # outside a completion there is nothing to set
        ;;
      *:messages:0) words=$("$program" messages | awk '{ print $1 }') ;;
      *:dns:0) words=$(_yinet_choices TYPE <<<"$help") ;;
      *) words=$(_yinet_rows Subcommands <<<"$help") ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -o default -F _yinet yinet
