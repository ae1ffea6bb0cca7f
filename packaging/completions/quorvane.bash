# Completion of quorvane and quorvane-doctor for bash, also without the bash-completion package.
# shellcheck shell=bash

# Prints the IDs of the signed-in account's projects, one a line: nothing when signed out, offline
# or after two seconds.  $1 is the base URL, empty for the default.  Only IDs that mean nothing to the
# shell are offered, since what a service names its projects ends up on the command line.
_quorvane_projects() {
    local id
    while read -r id _; do
        [[ $id =~ ^[A-Za-z0-9][A-Za-z0-9._-]*$ ]] && printf '%s\n' "$id"
    done < <(timeout 2 quorvane projects ${1:+--base-url "$1"} </dev/null 2>/dev/null)
}

# Splits the line up to the cursor into $words at blanks only: bash has cut it at "=" and ":" too,
# and a base URL is full of those.
_quorvane_words() {
    local rest=$COMP_LINE piece index
    words=()
    for ((index = 0; index <= COMP_CWORD; index++)); do
        piece=${COMP_WORDS[index]}
        if ((index == 0)) || [[ $rest == [[:blank:]]* ]]; then
            rest=${rest#"${rest%%[![:blank:]]*}"}
            words+=("$piece")
        else
            words[-1]+=$piece
        fi
        rest=${rest#"$piece"}
    done
}

_quorvane() {
    local words path=() base="" option="" value="" options_ended="" word index
    COMPREPLY=()
    _quorvane_words
    [[ ${words[0]##*/} != quorvane-doctor ]] || path=(doctor)

    # What stands before the word at the cursor: commands, base URL, an option without its value.
    local last=$((${#words[@]} - 1))
    for ((index = 1; index < last; index++)); do
        word=${words[index]}
        if [[ -n $option ]]; then
            [[ $option != --base-url ]] || base=$word
            option=""
        elif [[ -n $options_ended || $word != -* ]]; then
            path+=("$word")
        else
            case $word in
                --) options_ended=yes ;;
                --base-url=*) base=${word#*=} ;;
                --base-url | --project | -p | --file | -f) option=$word ;;
            esac
        fi
    done

    local current=${words[last]}
    if [[ -z $option && -z $options_ended && $current == -*=* ]]; then
        option=${current%%=*} value=${current#*=}
    else
        value=$current
    fi
    # bash replaces only what stands behind the last of its own word breaks.
    local kept=""
    [[ $value != *[:=]* ]] || kept=${value%"${value##*[:=]}"}

    local -a candidates=()
    case $option in
        --base-url)
            compopt -o nospace 2>/dev/null
            candidates=(https:// http://127.0.0.1: http://localhost:)
            ;;
        --project | -p)
            mapfile -t candidates < <(_quorvane_projects "$base")
            ;;
        --file | -f)
            # readline's own file names, which know about quotes and folders.
            compopt -o default 2>/dev/null
            ;;
        "")
            case "${path[*]}" in
                "") candidates=(login logout whoami projects config) ;;
                config) candidates=(pull push export import) ;;
            esac
            if [[ -z $options_ended && ($current == -* || ${#candidates[@]} -eq 0) ]]; then
                candidates=(--base-url --help -h)
                [[ ${path[*]} == doctor ]] || candidates+=(--version -V)
                case "${path[*]}" in
                    login) candidates+=(--no-browser) ;;
                    "config pull" | "config push" | "config export" | "config import")
                        candidates+=(--project --file -p -f)
                        ;;
                esac
            fi
            ;;
    esac

    local candidate
    for candidate in "${candidates[@]}"; do
        [[ $candidate != "$value"* ]] || COMPREPLY+=("${candidate#"$kept"}")
    done
}

complete -F _quorvane quorvane quorvane-doctor
