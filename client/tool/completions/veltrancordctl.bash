# Completion of veltrancordctl for bash: all knowledge is in the program.
_veltrancordctl() {
    local words=() found one part typed
    # This shell takes "=" for a word of its own, and completes what stands behind it alone.
    for part in "${COMP_WORDS[@]:0:COMP_CWORD+1}"; do
        part=${part//\\/}
        if [[ ${#words[@]} -gt 1 && ($part == = || ${words[-1]} == *=) ]]; then
            words[-1]+=$part
        else
            words+=("$part")
        fi
    done
    typed=${words[-1]}
    # Silent when nothing answers; a path that goes on ends with a dot and gets no blank.
    found=$("${words[0]}" complete -- "${words[@]:1}" 2>/dev/null) || return 0
    COMPREPLY=()
    while [[ -n $found ]] && IFS= read -r one; do
        # This shell does not show what a word means, which stands behind a tab.
        one=${one%%$'\t'*}
        [[ $typed == *=* ]] && one=${one#*=}
        printf -v one %q "$one" # names may hold blanks
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
