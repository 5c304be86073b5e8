# bash completion for vornctl
_vornctl() {
  local current=${COMP_WORDS[COMP_CWORD]} command='' word words='' files='' names=''
  # With = among the characters that divide words, what stands behind it is a word of its own.
  if [[ $current == '=' || ${COMP_WORDS[COMP_CWORD - 1]} == '=' ]]; then
    [[ $current == '=' ]] && current=''
    mapfile -t COMPREPLY < <(compgen -W 'on off' -- "$current")
    return
  fi
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in
      cards|get|set|pulse|stop|watch|wait|lcd|ir|param|store|recall|reboot|poll|speed|version|status|io|cae|batch|shell|completion|run)
        command=$word
        break
        ;;
    esac
  done
  case $command in get|set|pulse|watch|wait) names=$(vornctl completion names 2>/dev/null) ;; esac
  case $command in
    '') words="cards get set pulse stop watch wait lcd ir param store recall reboot poll speed version status io cae batch shell completion --help --host --cae-port --io-port --mon-port --settings --timeout --wait --json --quiet --dry-run --unchecked --version" ;;
    cards) words="--help --rescan" ;;
    get) words="all --help $names" ;;
    set) words="--help --others ${names:+$(printf '%s= ' $names)}" ;;
    pulse) words="--help --others $names" ;;
    stop) words="--help" ;;
    watch) words="all --help --monitor --count --for --raw $names" ;;
    wait) words="--help --for ${names:+$(printf '%s= ' $names)}" ;;
    lcd) words="clear light cursor blink on off --help --at" ;;
    ir) words="--help --text" ;;
    param) words="--help" ;;
    store) words="--help" ;;
    recall) words="--help" ;;
    reboot) words="--help" ;;
    poll) words="on off --help" ;;
    speed) words="--help" ;;
    version) words="--help" ;;
    status) words="--help --only" ;;
    io) words="--help" ;;
    cae) words="--help" ;;
    sleep) words="--help" ;;
    batch|run) words="--help --keep-going"; files=1 ;;
    shell) words="--help" ;;
    completion) words="bash zsh --help" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" ${files:+-f} -- "$current")
  if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == *= ]]; then compopt -o nospace; fi
}
complete -F _vornctl vornctl
