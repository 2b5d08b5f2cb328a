# bash completion for qovctl, made by "qovctl completion bash"
_qovctl() {
  local current=${COMP_WORDS[COMP_CWORD]} command= words= i
  local commands="disk folder-size file count-files compare find-text find-file checksum text-log text-log2 files process processes cpu external shell-script tcp udp execute send syslog info settings reload restart quit disk-space service nt-log perf-counter script snmp icmp-ping services event-log-files event-log-sources drives raw ping wait all set upgrade packet check-config show-config completion"
  local common="-h --help -V --version -H --host -p --port --password-file --config -t --timeout --json"
  for ((i = 1; i < COMP_CWORD; i++)); do
    if [[ " $commands " == *" ${COMP_WORDS[i]} "* ]]; then
      command=${COMP_WORDS[i]}
      break
    fi
  done
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    --password-file | --config | --state-file | --new-password-file) return ;;  # leaves it to the names of files
  esac
  case $command in
    '') words=$commands ;;
    disk) words="-h --help" ;;
    folder-size) words="-h --help --recurse --macros" ;;
    file) words="-h --help --macros" ;;
    count-files) words="-h --help --recurse --count --limit --macros" ;;
    compare) words="-h --help --time --size --contents --macros --other-macros" ;;
    find-text) words="-h --help --case --whole-word --macros" ;;
    find-file) words="-h --help --macros" ;;
    checksum) words="-h --help" ;;
    text-log) words="-h --help --find --expression --scan-all --case --whole-word --position --size --time --state-file" ;;
    text-log2) words="-h --help --scan-all --find --expression --case --whole-word --or-find --or-expression --or-case --or-whole-word --macros --position --size --time --state-file" ;;
    files) words="-h --help --no-folders --no-files --hidden --system" ;;
    process) words="-h --help" ;;
    processes) words="-h --help" ;;
    cpu) words="-h --help" ;;
    external) words="-h --help --time-limit" ;;
    shell-script) words="-h --help --command --params --time-limit --lines" ;;
    tcp) words="-h --help --time-limit --send --receive" ;;
    udp) words="-h --help --time-limit --attempts --send --receive" ;;
    execute) words="-h --help --directory --time-limit" ;;
    send) words="-h --help --udp --delay --then" ;;
    syslog) words="-h --help --syslog-port --facility --severity" ;;
    info) words="-h --help" ;;
    settings) words="-h --help --show-password" ;;
    reload) words="-h --help" ;;
    restart) words="-h --help" ;;
    quit) words="-h --help" ;;
    disk-space) words="-h --help" ;;
    service) words="-h --help" ;;
    nt-log) words="-h --help" ;;
    perf-counter) words="-h --help" ;;
    script) words="-h --help" ;;
    snmp) words="-h --help" ;;
    icmp-ping) words="-h --help" ;;
    services) words="-h --help" ;;
    event-log-files) words="-h --help" ;;
    event-log-sources) words="-h --help" ;;
    drives) words="-h --help" ;;
    raw) words="-h --help" ;;
    ping) words="-h --help -n --count" ;;
    wait) words="-h --help" ;;
    all) words="-h --help" ;;
    set) words="-h --help --new-password-file" ;;
    upgrade) words="-h --help" ;;
    packet) words="-h --help build read -h --help --key -h --help --reply --key" ;;
    check-config) words="-h --help --strict" ;;
    show-config) words="-h --help" ;;
    completion) words="-h --help bash zsh fish -h --help -h --help -h --help" ;;
  esac
  if [[ $current == -* ]]; then
    words="$words $common"
  else
    words=$(printf '%s\n' $words | grep -v '^-')
  fi
  COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o bashdefault -o default -F _qovctl qovctl
