# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Bash completion for kavro: the commands and options come from the tool itself.
_kavro()
{
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command="" i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --host | --port | --user | --app | --team | --connect-timeout | --cacert | --cert | --key) ((i++)) ;;
            -*) ;;
            *)
                command=${COMP_WORDS[i]}
                break
                ;;
        esac
    done
    if [[ $previous == --cacert || $previous == --cert || $previous == --key ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    elif [[ -z $command || $command == help || $cur == -* ]]; then
        [[ $command == help ]] && command=""
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" --completions $command 2>/dev/null)" -- "$cur")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}
complete -F _kavro kavro
