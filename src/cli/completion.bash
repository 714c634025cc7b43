# Bash completion for yinet. It knows no names of its own: the program is asked for commands, options, functions and the
# parameters of a function, so what is new there is new here.

# The first words of the rows in one section of a text on standard input.
_yinet_rows() { awk -v head="$1:" '$0 == head { on = 1; next } !/^  / { on = 0 } on { sub(/^-[a-z],/, "", $1); print $1 }'; }

# The values that "NAME:{a,b}" in a help text offers for an option or a positional.
_yinet_choices() { sed -nE "s/^  $1( [A-Z]*)?:\{([^}]*)\}.*/\2/p" | tr ',' ' '; }

# The options that a help text shows with a value.
_yinet_valued() { sed -nE 's/^  (-[a-z]),?(--[a-z-]+)? [A-Z].*/\1\n\2/p; s/^  (--[a-z-]+) [A-Z].*/\1/p'; }

_yinet_settings() { "$1" settings 2>/dev/null | awk '/^[^ ]/ { print $1 }'; }
_yinet_functions() { "$1" functions 2>/dev/null | awk '/^  [A-Z]/ { print $1 }'; }

_yinet() {
  local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local global help words='' word value=0 arguments=() path=()
  global=$("$program" --help 2>/dev/null) || return
  help=$global
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $word == = ]]; then # the shell has cut a word here; what comes next belongs to it
      value=1
    elif ((value)); then
      value=0
    elif [[ $word == -* ]]; then
      _yinet_valued <<<"$help"$'\n'"$global" | grep -qxF -e "$word" && value=1
    elif _yinet_rows Subcommands <<<"$help" | grep -qxF -e "$word"; then
      path+=("$word")
      help=$("$program" "${path[@]}" --help)
    else
      arguments+=("$word")
    fi
  done
  COMPREPLY=()
  case $previous in
    =) return ;;
    --set)
      words=$(_yinet_settings "$program" | sed 's/$/=/')
      compopt -o nospace 2>/dev/null || true # outside a completion there is nothing to set
      ;;
    --from | --to) words=$("$program" charset list) ;;
    --*) words=$(_yinet_choices "$previous" <<<"$help"$'\n'"$global") ;;
  esac
  if [[ -z $words ]] && ! ((value)); then # other values are files
    case "$current:${path[*]}:${#arguments[@]}" in
      -*) words=$(_yinet_rows Options <<<"$help"$'\n'"$global") ;;
      *:call:0 | *:functions:0) words=$(_yinet_functions "$program") ;;
      *:call:*)
        words=$("$program" functions "${arguments[0]}" 2>/dev/null | _yinet_rows Parameters | sed 's/$/=/')
        compopt -o nospace 2>/dev/null || true
        ;;
      *:settings:0) words=$(_yinet_settings "$program") ;;
      *:messages:0) words=$("$program" messages | awk '{ print $1 }') ;;
      *:dns:0) words=$(_yinet_choices TYPE <<<"$help") ;;
      *) words=$(_yinet_rows Subcommands <<<"$help") ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -o default -F _yinet yinet
