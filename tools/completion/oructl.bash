# bash completion for oructl: its commands, their words and their options.

_oructl() {
  local current=${COMP_WORDS[COMP_CWORD]}
  local previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]}
  local subcommand=${COMP_WORDS[2]}
  COMPREPLY=()

  if ((COMP_CWORD == 1)); then
    COMPREPLY=($(compgen -W "status explain doctor prefs unlock-prefs log --help --version" -- "$current"))
    return
  fi

  case $previous in
    --file)
      COMPREPLY=($(compgen -f -- "$current"))
      return
      ;;
    --level)
      COMPREPLY=($(compgen -W "TRACE DEBUG INFO WARN ERROR FATAL NONE" -- "$current"))
      return
      ;;
    --since | --until)
      COMPREPLY=($(compgen -W "now today yesterday tomorrow -1h -1d" -- "$current"))
      return
      ;;
    -n | --lines | --field | --thread | --pid | --tag)
      return
      ;;
  esac

  local words=""
  local options="--help"
  case $command in
    status | explain | doctor)
      options="--help --json"
      ;;
    prefs)
      if ((COMP_CWORD == 2)); then
        words="list get set reset keys"
      elif [[ $subcommand == get || $subcommand == set || $subcommand == reset ]] && ((COMP_CWORD == 3)); then
        words=$(oructl prefs keys 2>/dev/null | cut -d " " -f 1)
      fi
      case $subcommand in
        list) options="--help --json --no-pager" ;;
        get) options="--help --json" ;;
        reset) options="--help --all" ;;
        *) options="--help" ;;
      esac
      ;;
    unlock-prefs)
      options="--help --force"
      ;;
    log)
      if ((COMP_CWORD == 2)); then
        words="sessions write"
      fi
      case $subcommand in
        sessions) options="--help --file --timeline --json" ;;
        write) options="--help --file --level --tag" ;;
        *) options="--help --file -n --lines -f --follow --level --field --thread --pid --since --until --no-pager --json" ;;
      esac
      ;;
  esac
  COMPREPLY=($(compgen -W "$words $options" -- "$current"))
}

complete -F _oructl oructl
