# Completion of mfctl for bash.

# Runs mfctl for what a host knows, with the host that the line names; quiet and for a moment only.
_mfctl_ask() {
    local i host=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        # "=" is a word of its own here.
        if [[ ${COMP_WORDS[i]} == --host ]]; then
            if [[ ${COMP_WORDS[i + 1]} == "=" ]]; then
                host=(--host "${COMP_WORDS[i + 2]}")
            else
                host=(--host "${COMP_WORDS[i + 1]}")
            fi
        fi
    done
    timeout 2 mfctl "${host[@]}" "$@" 2>/dev/null
}

# The texts under a name in JSON: _mfctl_texts id <json
_mfctl_texts() {
    grep -oE "\"$1\" *: *\"[^\"\\\\]*\"" | sed 's/^[^:]*: *"//; s/"$//'
}

_mfctl_drivers() { _mfctl_ask drivers --json | _mfctl_texts id; }
_mfctl_fids() { _mfctl_ask complete "sendFID $1"; }
_mfctl_keys() { _mfctl_ask state --json | _mfctl_texts key; }
_mfctl_macros() { _mfctl_ask macros --json | _mfctl_texts name; }

_mfctl_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
}

_mfctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command="" place=0 i
    local commands="drivers driver reload stop start debug state send set unset event events macros link links macro check plan apply
        history diff undo health log queues panel pair sessions attach shutdown monitor recording doctor keygen sign verify new-driver"
    local common="--help --host --json" stream="--driver --kind --glob" options=""
    local kinds="value event fid command start exit hang restart configuration log output stale merged mark wire gap"
    COMPREPLY=()

    for ((i = 1; i < COMP_CWORD; i++)); do
        case "${COMP_WORDS[i]}" in
            --host | --timeout | --wait | --type | --lines | -n | --level | --bundle | --key | --trust | --driver | --kind | --glob | --wire | --from | --count | --ring | \
                --directory | --workdir | --to | --until | --output | --note | --before | --role)
                ((i++))
                ;;
            -* | =) ;;
            *)
                if [[ -z $command ]]; then
                    command=${COMP_WORDS[i]}
                elif [[ $command == recording || $command == link ]]; then
                    command+=" ${COMP_WORDS[i]}"
                else
                    ((place++))
                fi
                ;;
        esac
    done

    case "$previous" in
        --host | --bundle | --key | --ring | --output)
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return
            ;;
        --trust | --directory | --workdir)
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            return
            ;;
        --wait)
            _mfctl_offer "accepted dispatched delivered taken"
            return
            ;;
        --type)
            _mfctl_offer "string int float bool"
            return
            ;;
        --role)
            _mfctl_offer "view operate admin"
            return
            ;;
        --level)
            _mfctl_offer "1 2 3 4 5"
            return
            ;;
        --driver | --wire)
            _mfctl_offer "$(_mfctl_drivers)"
            return
            ;;
        --kind)
            _mfctl_offer "$kinds"
            return
            ;;
        --glob)
            _mfctl_offer "$(_mfctl_keys)"
            return
            ;;
        --from)
            [[ $command != monitor ]] || _mfctl_offer "oldest newest"
            return
            ;;
        --to)
            [[ $command != "recording export" ]] || _mfctl_offer "mcap jsonl csv"
            return
            ;;
        --timeout | --lines | -n | --count | --until | --note | --before) return ;;
    esac

    case "$command" in
        "")
            if [[ $cur == -* ]]; then
                _mfctl_offer "$common --version"
            else
                _mfctl_offer "$commands"
            fi
            return
            ;;
        drivers) options="$common -l --long" ;;
        driver) options="$common --runs" ;;
        reload | stop | start | debug | macro | apply | undo) options="$common --timeout" ;;
        state) options="$common --watch --counts" ;;
        send) options="$common --wait --timeout" ;;
        set) options="$common --type" ;;
        plan) options="$common --exit-code" ;;
        log) options="$common -n --lines --level -f --follow" ;;
        events) options="$common $stream -n --lines -f --follow" ;;
        monitor) options="$common $stream --ring --from --wire --date --count" ;;
        recording | link) options="--help" ;;
        "link acl") options="--help --workdir" ;;
        "recording list") options="$common --ring --directory" ;;
        "recording show") options="$common $stream --ring --directory --from --to --until --count" ;;
        "recording stats" | "recording diff") options="$common $stream --ring --directory --from --to --until" ;;
        "recording export") options="$common $stream --ring --directory --from --until --to --output --redact" ;;
        "recording keep") options="$common --ring --directory --note --before --output" ;;
        pair) options="$common --role" ;;
        doctor) options="$common --stacks --bundle" ;;
        keygen) options="--help" ;;
        sign) options="--help --key" ;;
        verify) options="--help --trust" ;;
        new-driver) options="--help --directory" ;;
        *) options="$common" ;;
    esac
    if [[ $cur == -* ]]; then
        _mfctl_offer "$options"
        return
    fi

    case "$command" in
        sign | verify | "link acl" | "recording show" | "recording stats" | "recording export" | "recording diff")
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return
            ;;
    esac
    [[ $place -eq 0 ]] || return
    case "$command" in
        driver | reload | stop | start | debug | log) _mfctl_offer "$(_mfctl_drivers)" ;;
        link) _mfctl_offer "acl" ;;
        recording) _mfctl_offer "list show stats export diff keep" ;;
        send)
            _mfctl_offer "$(_mfctl_fids "$cur")"
            # A driver's function follows.
            [[ ${COMPREPLY[0]-} != *. ]] || compopt -o nospace 2>/dev/null
            ;;
        state | set | unset) _mfctl_offer "$(_mfctl_keys)" ;;
        macro) _mfctl_offer "$(_mfctl_macros)" ;;
        sessions) _mfctl_offer "list revoke" ;;
    esac
}

complete -F _mfctl mfctl
