# fish completion for syslogmon(1). Commands and options are read from the program's own --help, so they are
# always those of the program that is installed.

# The entries of a section of a help text: "name<tab>what it is", one line for each spelling of a name.
function __syslogmon_section
    set -l inside no
    for line in $argv[2..]
        if test "$line" = "$argv[1]:"
            set inside yes
        else if test -z "$line"
            set inside no
        else if test $inside = yes; and string match -qr '^  \S' -- $line
            set -l entry (string match -r '^  (\S+)(?: \S+)*?(?:\s{2,}(.*))?$' -- $line)
            for name in (string split , -- $entry[2])
                printf '%s\t%s\n' $name "$entry[3]"
            end
        end
    end
end

# What may stand at the cursor.
function __syslogmon_candidates
    set -l words (commandline -opc)
    set -l program $words[1]
    set -l word (commandline -ct)
    set -l call $program
    set -l top ($program --help 2>/dev/null)
    set -l help $top
    set -l verb
    set -l arguments
    set -l skip no
    for w in $words[2..]
        if test $skip = root
            set -a call --root $w
            set skip no
        else if test $skip = yes
            set skip no
        else if test "$w" = --root
            set skip root
        else if string match -q -- '-*' $w
            if string match -qr -- "^  (\S*,)?$w(,\S*)? [A-Z]" $help
                set skip yes
            end
        else if contains -- $w (__syslogmon_section Subcommands $help | string split -f 1 \t)
            set -a verb $w
            set help ($program $verb --help 2>/dev/null)
        else
            set -a arguments $w
        end
    end
    if test $skip = root
        __fish_complete_directories $word
        return
    end
    if test $skip = yes
        set -l choices (string match -rg -- "^  (?:\S*,)?$words[-1] \S*\{([^}]*)\}" $help)
        string split , -- $choices
        return
    end
    if string match -q -- '-*' $word
        __syslogmon_section Options $help
        __syslogmon_section Options $top
        return
    end
    set -l subcommands (__syslogmon_section Subcommands $help)
    if test (count $subcommands) -gt 0
        printf '%s\n' $subcommands
        return
    end
    set -l names (__syslogmon_section Positionals $help | string split -f 1 \t)
    set -l name $names[(math (count $arguments) + 1)]
    switch "$verb:$name"
        case 'event *:source'
            $call event list 2>/dev/null | string split -f 1 \t | sort -u
        case 'event *:id'
            $call event list 2>/dev/null | string match -rg -- '^'(string escape --style=regex -- $arguments[-1])'\t([0-9A-F]+)'
        case 'input add:kind'
            printf '%s\n' files journal
        case 'input add:name'
        case 'input *:name'
            $call input list 2>/dev/null | string split -f 1 \t
        case 'sink add:kind'
            string match -rg -- '^  ([a-z]+): ' $help
        case 'sink add:name'
            # a new one
        case 'sink *:name'
            $call sink list 2>/dev/null | string split -f 1 \t
        case 'get:setting' 'set:setting'
            $call get 2>/dev/null | string replace -r '^([^\t]*)\t[^\t]*\t[^\t]*\t' '$1\t'
        case 'set:value'
            switch $arguments[-1]
                case fault-tolerant
                    printf '%s\n' on off default
                case trace-level
                    printf '%s\n' detail error system notable off default
                case customer-file file-monitor
                    __fish_complete_path $word
                case '*'
                    echo default
            end
        case 'trace level:level'
            printf '%s\n' detail error system notable off
        case '*:file' '*:files' '*:FILE'
            __fish_complete_path $word
    end
end

complete -c syslogmon -f -a '(__syslogmon_candidates)'

function __syslogmond_options
    set -l words (commandline -opc)
    __syslogmon_section Options ($words[1] --help 2>/dev/null)
end
complete -c syslogmond -f -n 'string match -q -- "-*" (commandline -ct)' -a '(__syslogmond_options)'
complete -c syslogmond -l root -x -a '(__fish_complete_directories (commandline -ct))'
