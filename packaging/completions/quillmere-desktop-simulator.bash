_quillmere_desktop_simulator() {
  local word=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    --socket | --screenshot) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    --screen) mapfile -t COMPREPLY < <(compgen -W "540x1200 1080x2400" -- "$word") ;;
    --delay | --drop-after | --fail) ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W "--socket --quiet --screen --screenshot --delay --drop-after
        --fail --truncate --silence --help -h" -- "$word")
      ;;
  esac
}
complete -o filenames -F _quillmere_desktop_simulator quillmere-desktop-simulator
