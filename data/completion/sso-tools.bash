# bash completion for ssoctl, sso-simulator, sso-platform and sso-sim-session.
# The words come from the tools' own help, so they follow the installed
# version: commands from the help's command lists, options from the --help
# of the command being typed.

# The first words of the indented lines after the heading line $1 (up to the
# next empty line) of the help that "$@" (after $1) prints.
_sso_listed() {
    local heading=$1
    shift
    "$@" --help 2>/dev/null | awk -v h="$heading" '
        index($0, h) == 1 { on = 1; next }
        on && /^$/ { on = 0 }
        on && /^  [a-z]/ { print $1 }'
}

# Every --option in the help that "$@" prints.
_sso_options() {
    "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z0-9-]*' | sort -u
}

_ssoctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} i command=""
    case $prev in
        --timeout) return ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --timeout) ((i++)) ;;
            -*) ;;
            *) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_sso_options ssoctl ${command:+"$command"})" -- "$cur"))
    elif [ -z "$command" ]; then
        COMPREPLY=($(compgen -W "$(ssoctl --help 2>/dev/null |
            awk '/^  [a-z]/ && !/^  --/ { print $1 }')" -- "$cur"))
    fi
}

_sso_simulator() {
    local cur=${COMP_WORDS[COMP_CWORD]} words=() i
    for ((i = 1; i < COMP_CWORD; i++)); do
        [[ ${COMP_WORDS[i]} == -* ]] || words+=("${COMP_WORDS[i]}")
    done
    if [ ${#words[@]} -eq 0 ]; then
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "--help --version --json --demo-accounts --seed" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "run ctl" -- "$cur"))
        fi
        return
    fi
    if [ "${words[0]}" = run ]; then
        COMPREPLY=($(compgen -W "$(_sso_options sso-simulator run)" -- "$cur"))
        return
    fi
    [ "${words[0]}" = ctl ] || return
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--json $(_sso_options sso-simulator "${words[@]}")" -- "$cur"))
        return
    fi
    local listed
    listed=$(_sso_listed "Commands:" sso-simulator ctl)
    case ${#words[@]} in
        1) COMPREPLY=($(compgen -W "$(printf '%s\n' $listed | sort -u)" -- "$cur")) ;;
        2) # the second word of a two-word command ("account add")
            COMPREPLY=($(compgen -W "$(sso-simulator ctl --help 2>/dev/null |
                awk -v g="${words[1]}" '/^Commands:/ { on = 1; next } on && /^$/ { on = 0 }
                    on && $1 == g && $2 ~ /^[a-z]/ { print $2 }')" -- "$cur")) ;;
    esac
}

_sso_platform() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} words=() i
    case $prev in
        --root | --file)
            COMPREPLY=($(compgen -f -- "$cur"))
            return
            ;;
        --type) COMPREPLY=($(compgen -W "int bool string" -- "$cur")); return ;;
        --color) COMPREPLY=($(compgen -W "auto always never" -- "$cur")); return ;;
        --priority)
            COMPREPLY=($(compgen -W "verbose debug info warn error fatal" -- "$cur"))
            return
            ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --root | --file | --type | --color | --priority | --tag | --pid | --exec | --app | \
                --author-cert | --module-id | --uuid) ((i++)) ;;
            -*) ;;
            *) words+=("${COMP_WORDS[i]}") ;;
        esac
    done
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--root --json $(_sso_options sso-platform "${words[@]:0:2}")" \
            -- "$cur"))
    elif [ ${#words[@]} -eq 0 ]; then
        COMPREPLY=($(compgen -W "$(_sso_listed "Groups:" sso-platform)" -- "$cur"))
    elif [ ${#words[@]} -eq 1 ] && [ "${words[0]}" != log ]; then
        COMPREPLY=($(compgen -W "$(_sso_listed "Commands:" sso-platform "${words[0]}")" -- "$cur"))
    fi
}

_sso_sim_session() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} i
    case $prev in
        --bus-policy) COMPREPLY=($(compgen -W "strict open" -- "$cur")); return ;;
        --control-group) COMPREPLY=($(compgen -g -- "$cur")); return ;;
        --seed | --sign-in-as) return ;;
    esac
    # After the session's options comes the command, completed as a command.
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --bus-policy | --control-group | --seed | --sign-in-as) ((i++)) ;;
            --) break ;;
            -*) ;;
            *) break ;;
        esac
    done
    if [ "$i" -lt "$COMP_CWORD" ]; then
        [ "${COMP_WORDS[i]}" = -- ] && ((i++))
        if [ "$i" -eq "$COMP_CWORD" ]; then
            COMPREPLY=($(compgen -c -- "$cur"))
        else
            COMPREPLY=($(compgen -f -- "$cur"))
        fi
        return
    fi
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_sso_options sso-sim-session)" -- "$cur"))
    else
        COMPREPLY=($(compgen -c -- "$cur"))
    fi
}

complete -F _ssoctl ssoctl
complete -F _sso_simulator sso-simulator
complete -F _sso_platform sso-platform
complete -F _sso_sim_session sso-sim-session
