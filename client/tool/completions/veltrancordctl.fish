# Completion of veltrancordctl for fish: all knowledge is in the program.
function __veltrancordctl_complete
    set -l words (commandline -opc) (commandline -ct | string unescape)
    test (count $words) -gt (count (commandline -opc)); or set -a words ''
    set -l program $words[1]
    $program complete -- $words[2..-1] 2>/dev/null
end
complete -c veltrancordctl -a '(__veltrancordctl_complete)'
