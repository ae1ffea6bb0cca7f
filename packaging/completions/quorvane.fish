# Completion of quorvane for fish.

# Prints what stands before the word at the cursor: with "trail" the commands, with "base" the value
# of --base-url.
function __quorvane_line
    set -l trail
    set -l base
    set -l option
    set -l ended
    for word in (commandline -opc)[2..]
        if test -n "$option"
            test $option = --base-url; and set base $word
            set option
        else if test -n "$ended"; or not string match -q -- '-*' $word
            set -a trail $word
        else
            switch $word
                case --
                    set ended yes
                case '--base-url=*'
                    set base (string replace -- --base-url= '' $word)
                case --base-url --project -p --file -f
                    set option $word
            end
        end
    end
    string join ' ' -- $$argv[1]
end

function __quorvane_at
    contains -- (__quorvane_line trail; or echo) $argv
end

# The signed-in account's projects: nothing when signed out, offline or after two seconds.  Only IDs
# that mean nothing to a shell are offered.
function __quorvane_projects
    set -l base (__quorvane_line base)
    test -n "$base"; and set base --base-url $base; or set base
    for line in (timeout 2 quorvane projects $base </dev/null 2>/dev/null)
        set -l parts (string split -m 1 '  ' -- $line)
        string match -qr '^[A-Za-z0-9][A-Za-z0-9._-]*$' -- $parts[1]; or continue
        printf '%s\t%s\n' $parts[1] (string replace -ar '[[:cntrl:]]' '?' -- "$parts[2]")
    end
end

set -l top "__quorvane_at ''"
set -l config "__quorvane_at config"
set -l sync "__quorvane_at 'config pull' 'config push' 'config export' 'config import'"

complete -c quorvane -f
complete -c quorvane -s h -l help -d "Show help"
complete -c quorvane -s V -l version -d "Show version"
complete -c quorvane -l base-url -x -d "Alternate Quorvane deployment" \
    -a "https:// http://127.0.0.1: http://localhost:"

complete -c quorvane -n $top -a login -d "Authorize this CLI in your browser"
complete -c quorvane -n $top -a logout -d "Revoke this CLI session"
complete -c quorvane -n $top -a whoami -d "Show the authenticated account"
complete -c quorvane -n $top -a projects -d "List your projects"
complete -c quorvane -n $top -a config -d "Sync project configuration"

complete -c quorvane -n "__quorvane_at login" -l no-browser \
    -d "Print the URL without opening a browser"

complete -c quorvane -n $config -a "pull export" -d "Export configuration and its revision"
complete -c quorvane -n $config -a "push import" -d "Import configuration with a revision check"

complete -c quorvane -n $sync -s p -l project -x -d "Project ID" -a "(__quorvane_projects)"
complete -c quorvane -n $sync -s f -l file -r -F -d "Configuration file"
