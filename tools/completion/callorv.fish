# fish completion for callorv: the command itself says what may stand where.

function __callorv_complete
    set -l words (commandline -opc | string replace -r '^~/' "$HOME/")
    set -l word (commandline -ct | string unescape)
    set -l program $words[1]
    set -e words[1]
    set -l lines ($program complete $words "$word" 2>/dev/null)
    set -l kind (string split -m 1 ' ' -- $lines[1])
    set -e lines[1]
    switch "$kind[1]"
        case files folders
            set -l start (string sub -s (math 1 + (string length -- "$kind[2]")) -- "$word")
            set -l found (__fish_complete_path "$start")
            test "$kind[1]" = folders; and set found (__fish_complete_directories "$start" '')
            for name in $found
                printf '%s%s\n' "$kind[2]" $name
            end
    end
    printf '%s\n' $lines
end

complete -c callorv -f -a '(__callorv_complete)'
