# Completion of veltrancordctl for bash: all knowledge is in the program.
_veltrancordctl() {
    local word=${COMP_WORDS[COMP_CWORD]} found
    # Silent when nothing answers; a path that goes on ends with a dot and gets no blank.
    found=$("${COMP_WORDS[0]}" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null) || return 0
    mapfile -t COMPREPLY <<<"$found"
    [[ -n $found ]] || COMPREPLY=()
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *. ]]; then
        compopt -o nospace
    fi
    if [[ ${#COMPREPLY[@]} -eq 0 ]]; then
        compopt -o default
    fi
    return 0
}
complete -F _veltrancordctl veltrancordctl
