# Bash completion for vxlan-agent. Needs nothing but bash 4.

# _vxlan_agent_reply WORD...: those of the words that begin with what has been typed.
_vxlan_agent_reply() {
  mapfile -t COMPREPLY < <(compgen -W "$*" -- "$_vxlan_agent_typed")
}

# _vxlan_agent_files PATTERN...: directories, and the files that end in one of them.
_vxlan_agent_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(
    compgen -d -- "$_vxlan_agent_typed" || true
    for pattern; do
      compgen -f -X "!*$pattern" -- "$_vxlan_agent_typed"
    done
  )
}

_vxlan_agent_directories() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -d -- "$_vxlan_agent_typed")
}

# The value of an option of a command ("question" is any that asks a running agent); fails if there is no such option, or it takes none.
_vxlan_agent_value() {
  case $1:$2 in
    replay:--format | diff:--format | check:--format | question:--format | part:--format | dump:--format)
      _vxlan_agent_reply table json ;;
    replay:--color | diff:--color | dump:--color) _vxlan_agent_reply auto always never ;;
    trace:--format | explain:--format | replay:--trace-format | run:--trace-format)
      _vxlan_agent_reply text json ;;
    trace:--level) _vxlan_agent_reply {0..9} ;;
    replay:--ring | run:--ring) _vxlan_agent_directories ;;
    run:--config) _vxlan_agent_files .toml ;;
    run:--record) _vxlan_agent_files .jsonl ;;
    replay:--report) _vxlan_agent_files .html ;;
    run:--private-key | run:--certificate | run:--ca-cert) _vxlan_agent_files .pem ;;
    run:--control | question:--control | report:--control | explain:--control | part:--control | dump:--control) _vxlan_agent_files .sock ;;
    run:--data-plane) _vxlan_agent_reply linux none ;;
    run:--links) _vxlan_agent_reply manage adopt ;;
    replay:--max-process-time | replay:--time-per-read | replay:--speed | replay:--until) ;;
    replay:--stop-at) ;;
    *:--rows | *:--vlan | *:--vni | *:--vtep | *:--mac) ;;
    generate:--help | run:--help | run:--trace) return 1 ;;
    trace:--help | trace:--previous | trace:--full | trace:--follow) return 1 ;;
    generate:--* | run:--* | trace:--*) ;;
    *) return 1 ;;
  esac
}

# Behind a "=": also of an option that can do without a value.
_vxlan_agent_value_behind_equals() {
  if [[ $1:$2 == replay:--trace || $1:$2 == run:--trace ]]; then
    _vxlan_agent_reply {0..9}
  else
    _vxlan_agent_value "$1" "$2"
  fi
}

_vxlan_agent() {
  local _vxlan_agent_typed=${COMP_WORDS[COMP_CWORD]}
  local command=${COMP_WORDS[1]-} before=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()

  if ((COMP_CWORD == 1)); then
    _vxlan_agent_reply run status hosts floods dump problems doctor release report explain replay diff \
      trace check generate --help --version
    return
  fi
  case $command in
    status | problems | doctor | release) command=question ;;
    hosts | floods) command=part ;;
  esac

  # "--option=value" comes as three words, or as two while the value is empty.
  if [[ $_vxlan_agent_typed == = ]]; then
    _vxlan_agent_typed=
    _vxlan_agent_value_behind_equals "$command" "$before"
    return 0
  fi
  if [[ $before == = ]]; then
    _vxlan_agent_value_behind_equals "$command" "${COMP_WORDS[COMP_CWORD - 2]}"
    return 0
  fi
  _vxlan_agent_value "$command" "$before" && return

  # A "-" alone is the standard input.
  case $command:$_vxlan_agent_typed in
    run:*)
      _vxlan_agent_reply --database --switch --private-key --certificate --ca-cert --config \
        --withdraw-delay --hold-above --hold-min --hold-time --settle --data-plane --links \
        --record --record-size --control --metrics --max-process-time --trace --trace-format \
        --ring --help
      ;;
    question:*) _vxlan_agent_reply --format --control --help ;;
    report:-*) _vxlan_agent_reply --control --help ;;
    report:*) _vxlan_agent_files .html ;;
    explain:-*) _vxlan_agent_reply - --vlan --vni --previous --format --control --help ;;
    part:*) _vxlan_agent_reply --format --control --vlan --vni --vtep --mac --help ;;
    dump:*)
      _vxlan_agent_reply --format --control --rows --color --vlan --vni --vtep --mac --help
      ;;
    replay:-*)
      _vxlan_agent_reply - --format --max-process-time --time-per-read --realtime --keep-going \
        --trace --trace-format --ring --diff --timeline --rows --color --speed --until --stop-at \
        --report --vlan --vni --vtep --mac --help
      ;;
    diff:-*)
      _vxlan_agent_reply - --format --rows --color --vlan --vni --vtep --mac --times --keep-going \
        --help
      ;;
    trace:-*)
      _vxlan_agent_reply - --level --grep --mac --vlan --vni --since --until --last --context \
        --previous --full --follow --format --help
      ;;
    check:-*) _vxlan_agent_reply - --format --help ;;
    generate:*) _vxlan_agent_reply --vnis --hosts --vteps --moves --restarts --seed --help ;;
    replay:* | check:*) _vxlan_agent_files .jsonl ;;
    explain:*) _vxlan_agent_files .jsonl .rlg '.rlg.prev*' ;;
    diff:*)
      _vxlan_agent_files .jsonl .json
      mapfile -O ${#COMPREPLY[@]} -t COMPREPLY < <(compgen -W agent -- "$_vxlan_agent_typed")
      ;;
    trace:*) _vxlan_agent_files .rlg '.rlg.prev*' ;;
  esac
}

complete -F _vxlan_agent vxlan-agent
