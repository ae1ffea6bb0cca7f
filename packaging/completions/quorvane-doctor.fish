# Completion of quorvane-doctor for fish.
complete -c quorvane-doctor -f
complete -c quorvane-doctor -s h -l help -d "Show help"
complete -c quorvane-doctor -l base-url -x -d "Alternate Quorvane deployment" \
    -a "https:// http://127.0.0.1: http://localhost:"
