# Completion of tamsel's command line for bash from 3.2 on: option names, interface names, script files. To be sourced,
# or installed as tamsel in the directory of bash-completion.

# Sets word to what stands at the cursor, count to the number of arguments in front of it, and option to the last one.
# Bash's list is cut at = and : too, and holds redirections: these do not count. Sets redirected at the target of one.
_tamsel_split() {
  local line=${COMP_LINE:0:COMP_POINT} part blanks i operator=''
  count=0 option='' word='' redirected=1
  line=${line#*"${COMP_WORDS[0]}"}
  for ((i = 1; i <= COMP_CWORD; i++)); do
    blanks=${line%%[![:blank:]]*}
    part=${COMP_WORDS[i]}
    ((i < COMP_CWORD)) || part=${line#"$blanks"}
    line=${line#"$blanks$part"}
    if [[ $part == [\<\>]* ]]; then
      # The number in 2> belongs to the redirection.
      [[ -z $blanks && $word != *[!0-9]* ]] || _tamsel_end_word
      word='' redirected=1 operator=1
    elif [[ -z $blanks || -n $operator ]]; then
      word+=$part operator=''
    else
      _tamsel_end_word
      word=$part redirected=''
    fi
  done
}

_tamsel_end_word() {
  [[ -n $redirected ]] || option=$word count=$((count + 1))
}

# Scripts, and the folders in which there may be more.
_tamsel_files() {
  compgen -f -X '!*.pex' -- "$1"
  compgen -d -S / -- "$1"
}

# Names that are not absolute stand for files beside the program.
_tamsel_scripts() {
  local program link
  program=$(type -P "${1/#\~/$HOME}") || return
  while link=$(readlink "$program"); do
    [[ $link == /* ]] || link=${program%/*}/$link
    program=$link
  done
  (CDPATH='' cd "${program%/*}/Script" 2> /dev/null && _tamsel_files "$2")
}

_tamsel() {
  local count option word redirected prefix replies='' reply
  _tamsel_split
  # Only what follows the last = or : is replaced. Quotes are no part of a name.
  prefix=${word%"$2"}
  prefix=${prefix//[\\\"\']/}
  word=${word//[\\\"\']/}
  COMPREPLY=()
  if [[ -n $redirected ]]; then
    compopt -o default 2> /dev/null || :
  elif ((count % 2 == 0)); then  # Options and values alternate.
    replies=$(compgen -W '-Operation -ScriptFile -SetConfigVal -TIF -If -Speed -IP -USB -Module' -- "$word")
  elif [[ $option == -[tT][iI][fF] || $option == -[iI][fF] ]]; then
    replies=$(compgen -W 'JTAG SWD UART FINE 2-wire-JTAG-PIC32 ICSP SPI C2 cJTAG MC2WJTAG_TDI 2-wire' -- "$word")
  elif [[ $option == -[sS][pP][eE][eE][dD] ]]; then
    replies=$(compgen -W 'adaptive' -- "$word")
  elif [[ $option == -[sS][cC][rR][iI][pP][tT][fF][iI][lL][eE] ]]; then
    case $word in
      /* | \~*) replies=$(_tamsel_files "$word") ;;
      *) replies=$(_tamsel_scripts "$1" "$word") ;;
    esac
  fi
  while IFS= read -r reply; do
    [[ -z $reply ]] || COMPREPLY+=("${reply#"$prefix"}")
  done <<< "$replies"
  # Inside a folder there is more to say.
  [[ ${#COMPREPLY[@]} != 1 || ${COMPREPLY[0]} != */ ]] || compopt -o nospace 2> /dev/null || :
}

# No option looks like the name of a file, so all of them may be quoted as names are.
complete -o filenames -F _tamsel tamsel
