# Bash completion for morv-settings: commands, options, types, the products
# that have settings, and the keys and values of a product. Installed as
# share/bash-completion/completions/morv-settings; to try it from a source
# tree: source src/morv-settings/morv-settings.bash
#
# Products and keys come from the program being completed (morv-settings
# products, morv-settings list), so they are those of the settings files
# that it would use.

_morv_settings() {
  local cur=${COMP_WORDS[COMP_CWORD]}
  local prev=${COMP_WORDS[COMP_CWORD - 1]}
  local tool=${COMP_WORDS[0]}
  local commands="read write delete list export import apply where watch products"
  local types="int uint int32 uint32 int64 uint64 float double bool string data"
  COMPREPLY=()

  # What is already on the line: the command, --installer, and the
  # arguments that are not options (PRODUCT, KEY, TYPE...).
  local command="" installer="" word i
  local -a arguments=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      -t | --type | -f | --file | --format) ((i++)) ;;  # an option and its value
      --installer) installer=--installer ;;
      -*) ;;
      *) if [[ -z $command ]]; then command=$word; else arguments+=("$word"); fi ;;
    esac
  done

  if [[ -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$cur")
    return
  fi
  case $prev in
    -t | --type)
      mapfile -t COMPREPLY < <(compgen -W "$types" -- "$cur")
      return
      ;;
    --format)
      mapfile -t COMPREPLY < <(compgen -W "xml binary" -- "$cur")
      return
      ;;
    -f | --file)
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
  esac
  if [[ $cur == -* ]]; then
    local options="--help"
    case $command in
      read) options+=" --installer --type --json" ;;
      write) options+=" --installer --file" ;;
      delete) options+=" --installer" ;;
      list | where | watch | products | import) options+=" --installer --json" ;;
      export) options+=" --installer --format" ;;
      apply) options+=" --installer --prune --check --diff --json" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    return
  fi

  # PRODUCT, then what each command takes after it.
  local position=${#arguments[@]}
  if ((position == 0)); then
    [[ $command == products ]] && return
    mapfile -t COMPREPLY < <(compgen -W "$("$tool" products $installer 2>/dev/null)" -- "$cur")
    return
  fi
  local product=${arguments[0]}
  case $command:$position in
    read:1 | write:1 | delete:1) _morv_settings_keys all ;;
    list:1 | watch:1) _morv_settings_keys keys ;;
    write:2) mapfile -t COMPREPLY < <(compgen -W "$types" -- "$cur") ;;
    write:3) [[ ${arguments[2]} == bool ]] && mapfile -t COMPREPLY < <(compgen -W "true false" -- "$cur") ;;
    export:1 | import:1 | apply:1) mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
  esac
}

# The keys ("a/b/", completed one level at a time) and, with "all", the
# values below the key typed so far.
_morv_settings_keys() {
  local parent="" prefix=""
  if [[ $cur == */* ]]; then
    parent=${cur%/*}
    prefix=$parent/
  fi
  local name
  local -a names=()
  while IFS= read -r name; do
    [[ $1 == keys && $name != */ ]] && continue
    names+=("$prefix$name")
  done < <("$tool" list $installer "$product" ${parent:+"$parent"} 2>/dev/null)
  local candidate
  for candidate in "${names[@]}"; do
    [[ $candidate == "$cur"* ]] && COMPREPLY+=("$candidate")
  done
  # A key goes on with what is below it: no space after its "/".
  if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == */ ]]; then
    compopt -o nospace 2>/dev/null
  fi
}

complete -F _morv_settings morv-settings
