# Completion of velmo's options and of what this machine has for them.

_velmo_sysfs() { cat "/sys/devices/system/$1" 2>/dev/null; }

# The numbers of a kernel's list such as 0-2,5, one a line.
_velmo_numbers() {
  local range ranges
  IFS=, read -ra ranges <<<"$(_velmo_sysfs "$1")"
  for range in "${ranges[@]}"; do seq "${range%-*}" "${range#*-}"; done
}

# What completes the words of velmo (velmo survey ...), whose name is the first argument.
_velmo_word() {
  local prefix='' choices=''
  case $prev in
    --only | --cpu-nodes | --memory-nodes) prefix=${cur%"${cur##*[,-]}"} ;;&
    --only) choices='idle sizes bandwidth loaded' ;;
    --cpu-nodes) choices=$(_velmo_numbers node/has_cpu) ;;
    --memory-nodes) choices=$(_velmo_numbers node/has_memory) ;;
    --pages) choices='4k thp 2m 1g' ;;
    --directory)
      _filedir -d
      return
      ;;
    --mixes | --size | --repeats | --precision | --time-limit | --seed) return ;;
    *)
      if [[ $cur != -* ]]; then
        _filedir
        return
      fi
      choices=--help
      case ${words[1]} in
        survey)
          choices+=' -o --cpu-nodes --device --directory --memory-nodes --mixes --only --pages
            --precision --quick --quiet --repeats --seed --size --strict --thorough --time-limit'
          ;;
        report) choices+=' -o' ;;
        compare) choices+=' --between --fail-on --json --margin --rounds --run' ;;
        fleet) choices+=' -o --exclude-list --floor --history --json --threshold' ;;
        export) choices+=' -o --prometheus' ;;
      esac
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -P "$prefix" -W "$choices" -- "${cur#"$prefix"}")
  if [[ -n $prefix ]]; then compopt -o nospace 2>/dev/null; fi
}

_velmo() {
  local cur prev words cword split choices prefix=''
  _init_completion -s || return
  case ${words[1]} in
    survey | show | report | compare | fleet | export)
      if [ "$cword" -gt 1 ]; then
        _velmo_word
        return
      fi
      ;;
  esac
  case $prev in
    -C | --cpunode) choices=$(_velmo_numbers node/has_cpu) ;;
    -M | --memnode) choices=$(_velmo_numbers node/has_memory) ;;
    -k | --latency_cpu) choices=$(_velmo_numbers cpu/online) ;;
    -l | --load_cpu)
      prefix=${cur%"${cur##*[,-]}"}
      choices=$(_velmo_numbers cpu/online)
      ;;
    -c | --chunk) choices='0 1 2' ;;
    -V | --verbose) choices='0 1' ;;
    -f | --devdax)
      _filedir
      return
      ;;
    -g | --pmem)
      _filedir -d
      return
      ;;
    -[Ddijmorsw] | --bw_delay | --delay | --iter | --thread | --mem_size | --output | --read | \
      --stride | --write | --use_pa)
      return
      ;;
    *)
      choices='-A -B -C -D -F -I -L -M -T -V -X -Y -Z -a -c -d -f -g -h -i -j -k -l -m -n -o -r -s
        -v -w -z --auto --bandwidth --bandwidth_local --basic_workload --burst_latency --bw_delay=
        --chunk= --cpunode= --delay= --delayed_latency --devdax= --full --help --iter= --latency
        --latency_cpu= --load_cpu= --loaded_latency --mem_size= --memnode= --output= --pmem=
        --read= --stream --stride= --system_info --thread= --use_pa --verbose= --version --write='
      if [[ $cword -eq 1 && $cur != -* ]]; then choices='compare export fleet report show survey'; fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -P "$prefix" -W "$choices" -- "${cur#"$prefix"}")
  # A list may go on, and a value follows a '='.
  if [[ -n $prefix || ${COMPREPLY[0]-} == *= ]]; then compopt -o nospace 2>/dev/null; fi
} && complete -F _velmo velmo
