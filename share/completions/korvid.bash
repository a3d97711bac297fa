# Completion of korvid's programs for bash; installed under the name of each.
# shellcheck shell=bash

_korvid_share=$(readlink -f "${BASH_SOURCE[0]%/*}/../..")

_korvid() {
    local i word whole words=() offers=()
    for ((i = 1; i <= COMP_CWORD; ++i)); do  # bash takes --name=value apart
        word=${COMP_WORDS[i]}
        if [[ ${#words[@]} -gt 0 && (($word == = && ${words[-1]} == --*) || ${words[-1]} == --*=) ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
    done
    whole=${words[-1]}
    if [ "$word" = = ]; then word=''; fi
    mapfile -t offers < <("$_korvid_share/${1##*/}/complete" "${1/#\~\//$HOME/}" "${words[@]}" 2>/dev/null)
    COMPREPLY=()
    case ${offers[0]-} in
        '<files>')
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            ;;
        '<hosts>') mapfile -t COMPREPLY < <(compgen -A hostname -- "$word") ;;
        *)
            COMPREPLY=("${offers[@]%%$'\t'*}")
            COMPREPLY=("${COMPREPLY[@]#"${whole%"$word"}"}")
            ;;
    esac
}

complete -F _korvid "${BASH_SOURCE[0]##*/}"
