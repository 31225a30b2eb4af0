# Completion of tamsel's command line for bash: option names, interface names, script files. To be sourced, or installed as
# tamsel in the directory of bash-completion.

_tamsel_scripts() {
  local program
  program=$(readlink -f "$(type -P "$1")" 2> /dev/null) || return
  (cd "${program%/*}/Script" 2> /dev/null && compgen -f -X '!*.pex' -- "$2")
}

_tamsel() {
  local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  # Options and values alternate: an odd place is an option's.
  if ((COMP_CWORD % 2 == 1)); then
    mapfile -t COMPREPLY < <(compgen -W '-Operation -ScriptFile -SetConfigVal -TIF -If -Speed -IP -USB -Module' -- "$word")
    return
  fi
  case ${option,,} in
    -tif | -if)
      mapfile -t COMPREPLY < <(compgen -W \
        'JTAG SWD UART FINE 2-wire-JTAG-PIC32 ICSP SPI C2 cJTAG MC2WJTAG_TDI 2-wire' -- "$word")
      ;;
    -speed)
      mapfile -t COMPREPLY < <(compgen -W 'adaptive' -- "$word")
      ;;
    -scriptfile)
      compopt -o filenames
      case $word in
        /*) mapfile -t COMPREPLY < <(compgen -d -- "$word"; compgen -f -X '!*.pex' -- "$word") ;;
        *) mapfile -t COMPREPLY < <(_tamsel_scripts "${COMP_WORDS[0]}" "$word") ;;
      esac
      ;;
  esac
}

complete -F _tamsel tamsel
