# Completion of veltrancordctl for bash: all knowledge is in the program.
_veltrancordctl() {
    local words=("${COMP_WORDS[@]//\\/}") found one
    # Silent when nothing answers; a path that goes on ends with a dot and gets no blank.
    found=$("${words[0]}" complete -- "${words[@]:1:COMP_CWORD}" 2>/dev/null) || return 0
    COMPREPLY=()
    while [[ -n $found ]] && IFS= read -r one; do
        # This shell does not show what a word means, which stands behind a tab.
        printf -v one %q "${one%%$'\t'*}" # names may hold blanks
        COMPREPLY+=("$one")
    done <<<"$found"
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *. ]]; then
        compopt -o nospace
    fi
    if [[ ${#COMPREPLY[@]} -eq 0 ]]; then
        compopt -o default
    fi
    return 0
}
complete -F _veltrancordctl veltrancordctl
