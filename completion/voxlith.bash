# Completion for voxlith, voxlith-tools and voxlith-plot in bash.

# The long options that a command's own --help names: new options need no change here.
_voxlith_options_of() {
    "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u
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
        COMPREPLY=($(compgen -f -- "$word"))
        compopt -o filenames 2>/dev/null
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
