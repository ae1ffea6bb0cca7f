# shellcheck shell=bash
# One session with the program: sign in, look around, pull, edit, push, meet a conflict, sign out.
# Sourced by scripts that set $folder, a temporary folder, and run the program by a function quorvane.

top=$(cd "${BASH_SOURCE[0]%/*}/.." && pwd)
account=ada@tidewater.example
project=prj-ferry-times
bold="" plain=""
if [[ -t 1 && -z ${NO_COLOR:-} ]]; then bold=$'\e[1m' plain=$'\e[0m'; fi
export PYTHONDONTWRITEBYTECODE=1

clean_up() {
    local pid
    trap '' INT TERM HUP
    for pid in $(jobs -p); do
        if kill "$pid" 2>/dev/null; then wait "$pid" || true; fi
    done
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}
say() { printf '\n# %s\n' "$*"; }

# start NAME COMMAND...: starts a server and leaves in $origin the address that ends its first line.
start() {
    local name=$1 line output
    shift
    mkfifo "$folder/$name"
    "$@" >"$folder/$name" &
    exec {output}<"$folder/$name"
    read -r -t 30 -u "$output" line || fail "the $name did not start"
    origin=${line##* }
    [[ $origin =~ ^https?://[a-z0-9.:]+$ ]] || fail "the $name said: $line"
}

# Shows a command as one would type it: quoted where the shell needs it.
show() {
    local word line="$"
    for word in "$@"; do
        [[ $word =~ ^[A-Za-z0-9@%+=:,./_-]+$ ]] || word="'$word'"
        line+=" $word"
    done
    printf '%s%s%s\n' "$bold" "$line" "$plain"
}

# run STATUS TEXT COMMAND...: shows the command and its output, and fails unless it ends with
# STATUS and its output contains TEXT.
run() {
    local status=$1 text=$2 output code=0
    shift 2
    show "$@"
    output=$("$@" 2>&1) || code=$?
    [[ -z $output ]] || printf '%s\n' "$output"
    ((code == 0)) || printf '(exit status %d)\n' "$code"
    [[ $code == "$status" && $output == *"$text"* ]] ||
        fail "$*: expected exit status $status and: $text; got $code and: $output"
}

visitor() { "$top/dev/visitor" "$@" --account "$account"; }

# log_in WORDS...: the command waits for the browser; the visitor acts as one.
log_in() {
    local output line url page login
    show quorvane login --no-browser "$@"
    rm -f "$folder/login"
    mkfifo "$folder/login"
    quorvane login --no-browser "$@" >"$folder/login" 2>&1 &
    login=$!
    exec {output}<"$folder/login"
    read -r -t 30 -u "$output" line || fail "login said nothing"
    read -r -t 30 -u "$output" url || fail "login ended early: $line"
    printf '%s\n%s\n' "$line" "$url"

    # 127.1 is an example of a host that is not the service's and leads to this machine.
    if [[ $url == http:* ]]; then
        page=$(visitor authorize "${url/127.0.0.1/127.1}" 2>&1) || true
        [[ $page == *"that host"* ]] || fail "a foreign host was answered for: $page"
    fi
    page=$(visitor authorize "$url") || fail "the browser was told: $page"
    printf '(In the browser: "%s")\n' "$page"

    read -r -t 30 -u "$output" line || fail "login said nothing more"
    printf '%s\n' "$line"
    [[ $line == *"$account" ]] || fail "a wrong greeting"
    wait "$login" || fail "login ended with exit status $?"
    exec {output}<&-
}

# story FILE WORDS...: the session, with the service at $origin.  Every command has the WORDS; FILE is
# what the program calls the file quorvane.config.json of this folder, "" where that is its name, too.
story() {
    local file=quorvane.config.json saved config=(-p "$project" ${1:+-f "$1"} "${@:2}")
    shift
    say "Sign in. The browser part is played by a script that presses the same buttons."
    log_in "$@"
    run 0 "$account" quorvane whoami "$@"
    run 0 "$project  " quorvane projects "$@"

    say "Fetch a project's configuration, change it, send it back."
    run 0 Saved quorvane config pull "${config[@]}"
    run 0 "" sed -i 's/"refreshSeconds": 30/"refreshSeconds": 45/' "$file"
    run 0 synchronized quorvane config push "${config[@]}"

    say "Meanwhile somebody changes delayMinutes on the project's web page..."
    saved=$(visitor replace "$origin" "$project" '"delayMinutes": [0-9]+' '"delayMinutes": 5') ||
        fail "the web page refused the change: $saved"
    printf '(In the browser: "%s")\n' "$saved"

    say "...so that the next push, based on an older revision, is refused and changes nothing."
    run 0 "" sed -i 's/"refreshSeconds": 45/"refreshSeconds": 90/' "$file"
    run 1 "Pull again" quorvane config push "${config[@]}"
    run 0 Saved quorvane config pull "${config[@]}"
    run 0 '"delayMinutes": 5' grep -E 'refreshSeconds|delayMinutes' "$file"

    say "Sign out: the token is revoked and its file removed."
    run 0 "Signed out" quorvane logout "$@"
    run 1 "login first" quorvane whoami "$@"
}
