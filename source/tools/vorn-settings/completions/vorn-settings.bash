# bash completion for vorn-settings: commands, options, files, and the paths that are in the files
# given by --file.

# The settings beside PATH in the files, one per line, as the tool lists them.
_vorn_settings_paths() { # PATH PROGRAM [--file FILE]...
    local parent=/ name
    [[ $1 == */* ]] && parent=${1%/*}/
    "${@:2}" list "$parent" </dev/null 2>/dev/null | while IFS= read -r name; do
        printf '%s\n' "$parent$name"
    done
}

_vorn_settings() {
    local IFS=$' \t\n' commands='get set type list dump tree reset merge diff watch shell'
    local options='--file --strict --color --help --version' candidates=() candidate
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' files=() operands=0 at
    # "--file=x" comes in three words.
    [[ $word == '=' ]] && word=''
    [[ $before == '=' ]] && before=${COMP_WORDS[COMP_CWORD - 2]}

    for ((at = 1; at < COMP_CWORD; ++at)); do
        case ${COMP_WORDS[at]} in
        --file)
            [[ ${COMP_WORDS[at + 1]-} == '=' ]] && ((++at))
            ((++at < COMP_CWORD)) && files+=(--file "$(_vorn_settings_unquoted "${COMP_WORDS[at]}")")
            ;;
        --color | --type | --depth | --width | --html)
            [[ ${COMP_WORDS[at + 1]-} == '=' ]] && ((++at))
            ((++at))
            ;;
        -*) ;;
        *) if [[ -z $command ]]; then command=${COMP_WORDS[at]}; else ((++operands)); fi ;;
        esac
    done

    COMPREPLY=()
    case $before in
    --color) candidates=(auto always never) ;;
    --type) candidates=(bool int float string json) ;;
    --depth | --width) return ;;
    --file | --html)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    esac
    if ((${#candidates[@]} == 0)); then
        if [[ $word == -* ]]; then
            case $command in
            get | type | dump | watch | diff) options+=' --json' ;;
            list) options+=' --recursive --sort --json' ;;
            tree) options+=' --depth --width --sort --json --html' ;;
            set) options+=' --type --dry-run --json' ;;
            reset) options+=' --force --dry-run --json' ;;
            merge) options+=' --keep --json' ;;
            shell) options+=' --stop-on-error' ;;
            esac
            read -ra candidates <<<"$options"
        elif [[ -z $command ]]; then
            read -ra candidates <<<"$commands"
        elif [[ $command == merge || $command == diff ]]; then
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            return
        elif [[ $command != shell ]] && ((${#files[@]} > 0 && operands == 0)); then
            word=$(_vorn_settings_unquoted "$word")
            mapfile -t candidates < <(_vorn_settings_paths "$word" \
                "$(_vorn_settings_unquoted "${COMP_WORDS[0]}")" "${files[@]}")
        fi
    fi
    for candidate in "${candidates[@]}"; do
        [[ $candidate == "$word"* ]] && COMPREPLY+=("$(printf '%q' "$candidate")")
    done
    # More may follow an inner node.
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace 2>/dev/null
    return 0
}

# A word as the shell would hand it to the program.
_vorn_settings_unquoted() { # WORD
    local word=$1 quote
    quote=${word:0:1}
    if [[ $quote == [\"\'] ]]; then
        word=${word#"$quote"}
        word=${word%"$quote"}
    else
        word=${word//\\/}
    fi
    [[ ${word:0:2} == \~/ ]] && word=$HOME/${word:2}
    printf '%s' "$word"
}

complete -F _vorn_settings vorn-settings
