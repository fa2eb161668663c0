# bash completion for oru-installer-sim: its options, scenarios and files.

_oru_installer_sim() {
  local current=${COMP_WORDS[COMP_CWORD]}
  local previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $previous in
    --launcher | --trace)
      COMPREPLY=($(compgen -f -- "$current"))
      return
      ;;
    --scenario)
      COMPREPLY=($(compgen -W "post-now post-after never-post die-holding two-launchers" -- "$current"))
      return
      ;;
    --post-delay | --timeout)
      return
      ;;
  esac
  COMPREPLY=($(compgen -W "--launcher --scenario --post-delay --timeout --json --trace --help --version" -- "$current"))
}

complete -F _oru_installer_sim oru-installer-sim
