# Completion for voxlith, voxlith-tools and voxlith-plot in bash.

# The long options that a command's own --help names: new options need no change here.
_voxlith_options_of() {
    "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u
}

# The words that a value of an option may have: those that --help shows in braces, or behind "Kind of".
_voxlith_values_of() {
    local option=$1 help
    shift
    help=$("$@" --help 2>/dev/null | grep -E -- "^ +$option ")
    if [[ $help =~ :\{([^}]*)\} ]]; then
        tr ',' ' ' <<<"${BASH_REMATCH[1]}"
    elif [[ $help =~ Kind\ of[^:]*:\ (.*),\ or\ a\ code ]]; then
        tr ',' ' ' <<<"${BASH_REMATCH[1]}"
    fi
}

_voxlith() {
    local word=${COMP_WORDS[COMP_CWORD]}
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -f -X '!*.inp' -- "$word") $(compgen -d -S / -- "$word"))
    else
        COMPREPLY=($(compgen -W 'NOFAST Misfit= Tradeoff= Offset= Clip= ObsClip=' -- "$word"))
    fi
    compopt -o nospace 2>/dev/null
}

_voxlith_tools() {
    local program=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]}
    if [ "$COMP_CWORD" -eq 1 ]; then
        local commands
        commands=$("$program" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z]\+\).*/\1/p')
        COMPREPLY=($(compgen -W "$commands --help" -- "$word"))
    elif [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_voxlith_options_of "$program" "${COMP_WORDS[1]}")" -- "$word"))
    else
        local before=${COMP_WORDS[COMP_CWORD - 1]} values=
        [[ $before == --* ]] && values=$(_voxlith_values_of "$before" "$program" "${COMP_WORDS[1]}")
        if [ -n "$values" ]; then
            COMPREPLY=($(compgen -W "$values" -- "$word"))
        else
            COMPREPLY=($(compgen -f -- "$word"))
            compopt -o filenames 2>/dev/null
        fi
    fi
}

_voxlith_plot() {
    local word=${COMP_WORDS[COMP_CWORD]}
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_voxlith_options_of "${COMP_WORDS[0]}")" -- "$word"))
    else
        COMPREPLY=($(compgen -f -- "$word"))
        compopt -o filenames 2>/dev/null
    fi
}

complete -F _voxlith voxlith
complete -F _voxlith_tools voxlith-tools
complete -F _voxlith_plot voxlith-plot
