# Completes the programs: commands and options as their own help has them.
_kez()
{
  local word=${COMP_WORDS[COMP_CWORD]} help
  help=$( "${COMP_WORDS[0]}" help 2>/dev/null ) || return
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <( compgen -W "$(
      awk -v name="${COMP_WORDS[0]##*/}" '$1 == name { print $2 }' <<<"$help" )" -- "$word" )
  elif [[ $word = -* ]]; then
    mapfile -t COMPREPLY < <( compgen -W "$(
      awk '$1 ~ /^--/ { print $1 }' <<<"$help" )" -- "$word" )
  fi
} &&
  complete -o default -F _kez kez-agent kez-inspect kez-sim kez-fabric
